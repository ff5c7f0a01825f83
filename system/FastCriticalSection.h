// The spin lock of everything that is held for a few instructions: one 32-bit word, taken by
// compare-exchange from 0 to 1 and released by storing 0. Not re-entrant. Whoever finds it taken
// looks again for about a microsecond and then sleeps in the kernel: a holder that is not running
// costs the others nothing, and a waiter of higher priority lets it run.
#pragma once

#include "LockOrder.h"

#include <atomic>
#include <cstdint>

namespace Tavrik::tSystem
{

class CFastCriticalSection
{
public:
    constexpr CFastCriticalSection() noexcept = default;
    CFastCriticalSection(const CFastCriticalSection&) = delete;
    CFastCriticalSection& operator=(const CFastCriticalSection&) = delete;

    void lock(const LockPlace& place = LockPlace::current()) noexcept
    {
        EnterLock(this, ELockRank::Word, place);
        std::uint32_t expected = Free;
        if (!mWord.compare_exchange_strong(expected, Taken, std::memory_order_acquire,
                                           std::memory_order_relaxed)) [[unlikely]]
            LockContended();
    }

    [[nodiscard]] bool try_lock(const LockPlace& place = LockPlace::current()) noexcept
    {
        std::uint32_t expected = Free;
        const bool isOurs = mWord.compare_exchange_strong(
            expected, Taken, std::memory_order_acquire, std::memory_order_relaxed);
        if (isOurs)
            EnterTriedLock(this, ELockRank::Word, place);
        return isOurs;
    }

    [[gnu::always_inline]] void unlock() noexcept
    {
        if (Leave()) [[unlikely]]
            WakeWaiter();
    }

    // The two steps of `unlock`, for who has something to keep meanwhile. Whether somebody waits;
    // then `WakeWaiter` is to be called.
    [[gnu::always_inline]] [[nodiscard]] bool Leave() noexcept
    {
        LeaveLock(this);
        // A store, not an exchange, which would double the cost of the pair. A thread that begins
        // to sleep between the two lines is missed; it looks again by itself a moment later.
        const bool isAwaited = mWord.load(std::memory_order_relaxed) == Awaited;
        mWord.store(Free, std::memory_order_release);
        return isAwaited;
    }

    void WakeWaiter() noexcept;

private:
    static constexpr std::uint32_t Free = 0;
    static constexpr std::uint32_t Taken = 1;
    static constexpr std::uint32_t Awaited = 2; // taken, and threads may sleep

    void LockContended() noexcept;

    std::atomic<std::uint32_t> mWord = Free;
};

} // namespace Tavrik::tSystem
