// Memory that runs out at will. The test program that links this has its allocation operators
// replaced; memory from the C library directly is not concerned.
#pragma once

#include <cstdint>

namespace Tavrik::Ossira::tTest
{

enum class Shortage
{
    Once,      // one allocation fails, the ones after it succeed
    FromThenOn // all allocations after it fail too
};

// While this lives, this thread's allocations are counted, and the one with that number (from 0)
// fails. Other threads are not concerned.
class FailingMemory
{
public:
    FailingMemory(std::int64_t which, Shortage shortage);
    FailingMemory(const FailingMemory&) = delete;

    ~FailingMemory()
    {
        Stop();
    }

    // Ends it; whether an allocation failed.
    bool Stop();
};

// The allocations of the whole program that were not freed yet.
[[nodiscard]] std::int64_t LiveAllocations();

} // namespace Tavrik::Ossira::tTest
