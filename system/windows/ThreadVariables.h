// The storage of a library's `thread_local` variables. It is given back when the library is
// unloaded, after all its static objects.
#pragma once

namespace Tavrik::Ossira::tSystem
{

// Takes the process's slot that the first variable needs; false when there is none left.
[[nodiscard]] bool PrepareVariables() noexcept;

// When a thread ends.
void ReleaseVariablesOfThread() noexcept;

// When the process ends: nothing is given back then.
void KeepVariablesOfAllThreads() noexcept;

} // namespace Tavrik::Ossira::tSystem
