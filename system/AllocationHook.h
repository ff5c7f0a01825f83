// For the platforms' parts of `AllocationWatch.h`: how a platform gets hold of the heap's calls.
#pragma once

#include <cstddef>

namespace Tavrik::tSystem
{

// Makes the library's calls of the heap come here, as far as they do not already; false where they
// cannot.
[[nodiscard]] bool HookAllocations(const wchar_t* path);

// Whether the allocation that is asked for has to fail; to be asked once for each.
[[nodiscard]] bool IsToFail() noexcept;

// To be told of every block; answers `memory`, which may be null.
void* NoteAllocated(void* memory) noexcept;

// To be told before a block is given back.
void NoteFreed(void* memory, std::size_t size) noexcept;

} // namespace Tavrik::tSystem
