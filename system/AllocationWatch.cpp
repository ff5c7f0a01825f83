// The state needs no construction: memory is asked for before and after everything else lives.
#include "AllocationWatch.h"

#include "AllocationHook.h"

#include <atomic>
#include <cstring>
#include <limits>

namespace Tavrik::tSystem
{

namespace
{

constexpr std::int64_t Unlimited = (std::numeric_limits<std::int64_t>::max)();
constinit std::atomic<bool> gIsWatching = false;
constinit std::atomic<std::int64_t> gLive = 0;
constinit thread_local std::int64_t gLeft = Unlimited; // allocations that still succeed
constinit thread_local bool gFailsLater = false;
constinit thread_local bool gHasFailed = false;

} // namespace

bool WatchAllocations(const wchar_t* path)
{
    const bool isWatching = HookAllocations(path);
    gIsWatching = gIsWatching || isWatching;
    return isWatching;
}

void FailAllocations(std::int64_t which, bool andLater) noexcept
{
    gHasFailed = false;
    gFailsLater = andLater;
    gLeft = which;
}

bool EndFailing() noexcept
{
    gLeft = Unlimited;
    return gHasFailed;
}

std::int64_t LiveAllocations() noexcept
{
    return gLive.load();
}

bool IsToFail() noexcept
{
    if (!gIsWatching.load(std::memory_order_relaxed) || gLeft-- > 0)
        return false;
    gLeft = gFailsLater ? 0 : Unlimited;
    return gHasFailed = true;
}

void* NoteAllocated(void* memory) noexcept
{
    if (memory != nullptr)
        gLive.fetch_add(1, std::memory_order_relaxed);
    return memory;
}

void NoteFreed(void* memory, std::size_t size) noexcept
{
    gLive.fetch_sub(1, std::memory_order_relaxed);
    if (gIsWatching.load(std::memory_order_relaxed))
        std::memset(memory, 0xDF, size);
}

} // namespace Tavrik::tSystem
