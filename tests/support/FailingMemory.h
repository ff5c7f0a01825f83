// Memory that runs out at will. The test program that links this has its allocation operators
// replaced; memory from the C library directly is not concerned.
#pragma once

#include "AllocationWatch.h"

namespace Tavrik::Ossira::tTest
{

using tSystem::LiveAllocations;

// While this lives, this thread's allocations are counted, and the one with that number (from 0)
// fails, or each from that one on. Other threads are not concerned.
class FailingMemory
{
public:
    explicit FailingMemory(std::int64_t which, bool andLater = true)
    {
        tSystem::FailAllocations(which, andLater);
    }

    FailingMemory(const FailingMemory&) = delete;

    ~FailingMemory()
    {
        Stop();
    }

    // Ends it; whether an allocation failed.
    bool Stop()
    {
        return tSystem::EndFailing();
    }
};

} // namespace Tavrik::Ossira::tTest
