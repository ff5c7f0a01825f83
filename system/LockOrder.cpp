// What each thread holds, for the check of the order. Compiled in only where the check is on.
#include "LockOrder.h"

#if OSSIRA_CHECK_LOCK_ORDER

#include "Platform.h"
#include "TextFormat.h"

#include <algorithm>
#include <cstdlib>
#include <span>

namespace Tavrik::tSystem
{

namespace
{

struct HeldLock
{
    const void* Lock;
    ELockRank Rank;
    LockPlace Place;
};

constexpr std::size_t HeldLimit = 64; // a thread that holds more is not looked at any further

constinit thread_local HeldLock tHeld[HeldLimit] = {};
constinit thread_local std::size_t tCount = 0;

[[nodiscard]] std::span<const HeldLock> Held() noexcept
{
    return {tHeld, std::min(tCount, HeldLimit)};
}

[[nodiscard]] const char* RankName(ELockRank rank) noexcept
{
    constexpr const char* names[] = {"the process-wide section", "the loader's lock",
                                     "an object's section", "a spin word"};
    return names[static_cast<std::size_t>(rank)];
}

[[noreturn]] void Stop(const char* taken, const LockPlace& place, const HeldLock& held) noexcept
{
    char line[1000];
    FormatInto(line, sizeof line,
               "\aLock order broken: %s at %s:%u (%s), while %s is held since %s:%u (%s)\n", taken,
               place.file_name(), place.line(), place.function_name(), RankName(held.Rank),
               held.Place.file_name(), held.Place.line(), held.Place.function_name());
    WriteDebugText(line);
    std::abort();
}

} // namespace

void EnterLock(const void* lock, ELockRank rank, const LockPlace& place) noexcept
{
    for (const HeldLock& held : Held())
    {
        if (held.Lock == lock && rank != ELockRank::Word) // entered again
            break;
        if (held.Rank > rank || held.Rank == ELockRank::Word)
            Stop(RankName(rank), place, held);
    }
    EnterTriedLock(lock, rank, place);
}

void EnterTriedLock(const void* lock, ELockRank rank, const LockPlace& place) noexcept
{
    if (tCount < HeldLimit)
        tHeld[tCount] = {lock, rank, place};
    ++tCount;
}

void LeaveLock(const void* lock) noexcept
{
    // Not always the last one: guards of different kinds may overlap.
    for (std::size_t at = Held().size(); at-- > 0;)
    {
        if (tHeld[at].Lock != lock)
            continue;
        std::move(tHeld + at + 1, tHeld + Held().size(), tHeld + at);
        break;
    }
    --tCount;
}

void CheckForeignCall(const LockPlace& place) noexcept
{
    for (const HeldLock& held : Held())
    {
        if (held.Rank == ELockRank::Word)
            Stop("a call of something foreign", place, held);
    }
}

} // namespace Tavrik::tSystem

#endif
