// Counts what is allocated by `new`, in the runtime too: this program's operators stand in for
// those of the standard library in the whole process.
#pragma once

#include <cstdint>

namespace Tavrik::Ossira::tBench
{

// Allocations of this thread so far.
[[nodiscard]] std::uint64_t AllocationCount() noexcept;

} // namespace Tavrik::Ossira::tBench
