// Replaces the allocation operators of the program; those for arrays call these. The state is the
// thread's own and needs no construction, because memory is asked for before and after everything
// else lives.
#include "FailingMemory.h"

#include <atomic>
#include <cstdlib>
#include <limits>
#include <new>

namespace Tavrik::Ossira::tTest
{

namespace
{

constexpr std::int64_t Unlimited = std::numeric_limits<std::int64_t>::max();
constinit thread_local std::int64_t gLeft = Unlimited; // allocations that still succeed
constinit thread_local std::int64_t gLeftAfterwards = Unlimited;
constinit thread_local bool gHasFailed = false;
constinit std::atomic<std::int64_t> gLive = 0;

bool IsToFail()
{
    if (gLeft-- > 0)
        return false;
    gLeft = gLeftAfterwards;
    return gHasFailed = true;
}

} // namespace

FailingMemory::FailingMemory(std::int64_t which, Shortage shortage)
{
    gHasFailed = false;
    gLeftAfterwards = shortage == Shortage::Once ? Unlimited : 0;
    gLeft = which;
}

bool FailingMemory::Stop()
{
    gLeft = Unlimited;
    return gHasFailed;
}

std::int64_t LiveAllocations()
{
    return gLive;
}

} // namespace Tavrik::Ossira::tTest

using namespace Tavrik::Ossira::tTest;

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    void* const memory = IsToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
    gLive += memory != nullptr ? 1 : 0;
    return memory;
}

void* operator new(std::size_t size)
{
    void* const memory = operator new(size, std::nothrow);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    gLive -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

// For arrays too: a sanitizer has operators of its own for them, which do not come here.

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return operator new(size, std::nothrow);
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void operator delete[](void* memory) noexcept
{
    operator delete(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    operator delete(memory);
}
