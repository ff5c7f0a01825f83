// Replaces the allocation operators of the program. The state is the thread's own and needs no
// construction, because memory is asked for before and after everything else lives.
#include "FailingMemory.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

constinit thread_local bool gIsArmed = false;
constinit thread_local bool gHasFailed = false;
constinit thread_local std::int64_t gLeft = 0; // allocations that still succeed
constinit thread_local Tavrik::Ossira::tTest::Shortage gShortage = {};
constinit std::atomic<std::int64_t> gLive = 0;

bool IsToFail()
{
    using Tavrik::Ossira::tTest::Shortage;
    if (!gIsArmed || gLeft-- > 0)
        return false;
    if (gHasFailed && gShortage == Shortage::Once)
        return false;
    gHasFailed = true;
    return true;
}

void* Allocate(std::size_t size) noexcept
{
    void* const memory = IsToFail() ? nullptr : std::malloc(size == 0 ? 1 : size);
    gLive += memory != nullptr ? 1 : 0;
    return memory;
}

void Free(void* memory) noexcept
{
    gLive -= memory != nullptr ? 1 : 0;
    std::free(memory);
}

} // namespace

namespace Tavrik::Ossira::tTest
{

FailingMemory::FailingMemory(std::int64_t which, Shortage shortage)
{
    gLeft = which;
    gShortage = shortage;
    gHasFailed = false;
    gIsArmed = true;
}

FailingMemory::~FailingMemory()
{
    Stop();
}

bool FailingMemory::Stop()
{
    gIsArmed = false;
    return gHasFailed;
}

std::int64_t LiveAllocations()
{
    return gLive;
}

} // namespace Tavrik::Ossira::tTest

void* operator new(std::size_t size)
{
    void* const memory = Allocate(size);
    if (memory == nullptr)
        throw std::bad_alloc();
    return memory;
}

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return Allocate(size);
}

void operator delete(void* memory) noexcept
{
    Free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    Free(memory);
}

void operator delete[](void* memory) noexcept
{
    Free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    Free(memory);
}
