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

// The word itself, past the check of the order: for locks that are made of several.
class CSpinWord
{
public:
    constexpr CSpinWord() noexcept = default;
    CSpinWord(const CSpinWord&) = delete;
    CSpinWord& operator=(const CSpinWord&) = delete;

    [[gnu::always_inline]] [[nodiscard]] bool TryTake() noexcept
    {
        std::uint32_t expected = Free;
        return mWord.compare_exchange_strong(expected, Taken, std::memory_order_acquire,
                                             std::memory_order_relaxed);
    }

    // After that failed.
    void WaitAndTake() noexcept;

    [[gnu::always_inline]] void Take() noexcept
    {
        if (!TryTake()) [[unlikely]]
            WaitAndTake();
    }

    [[gnu::always_inline]] void Give() noexcept
    {
        if (GiveQuietly()) [[unlikely]]
            WakeWaiter();
    }

    // Whether somebody waits; then `WakeWaiter` is to be called.
    [[gnu::always_inline]] [[nodiscard]] bool GiveQuietly() noexcept
    {
        // A store, not an exchange, which would double the cost of the pair. A thread that begins
        // to sleep between the two lines is missed; it looks again by itself a moment later.
        const bool isAwaited = mWord.load(std::memory_order_relaxed) == Awaited;
        mWord.store(Free, std::memory_order_release);
        return isAwaited;
    }

    void WakeWaiter() noexcept;

    // Whether somebody held it a moment ago.
    [[nodiscard]] bool IsTaken() const noexcept
    {
        return mWord.load(std::memory_order_relaxed) != Free;
    }

private:
    static constexpr std::uint32_t Free = 0;
    static constexpr std::uint32_t Taken = 1;
    static constexpr std::uint32_t Awaited = 2; // taken, and threads may sleep

    std::atomic<std::uint32_t> mWord = Free;
};

class OSSIRA_LOCK CFastCriticalSection : public CSpinWord
{
public:
    constexpr CFastCriticalSection() noexcept = default;
    CFastCriticalSection(const CFastCriticalSection&) = delete;
    CFastCriticalSection& operator=(const CFastCriticalSection&) = delete;

    [[gnu::always_inline]] void lock(const LockPlace& place = LockPlace::current()) noexcept
        OSSIRA_TAKES()
    {
        EnterLock(this, ELockRank::Word, place);
        Take();
    }

    // The same where waiting is left to a second call: false when somebody is there.
    [[gnu::always_inline]] [[nodiscard]] bool
    begin(const LockPlace& place = LockPlace::current()) noexcept OSSIRA_TAKES_IF(true)
    {
        EnterLock(this, ELockRank::Word, place);
        if (TryTake()) [[likely]]
            return true;
        LeaveLock(this);
        return false;
    }

    [[nodiscard]] bool try_lock(const LockPlace& place = LockPlace::current()) noexcept
        OSSIRA_TAKES_IF(true)
    {
        const bool isOurs = TryTake();
        if (isOurs)
            EnterTriedLock(this, ELockRank::Word, place);
        return isOurs;
    }

    [[gnu::always_inline]] void unlock() noexcept OSSIRA_GIVES()
    {
        LeaveLock(this);
        Give();
    }

    // The same for who has something to keep meanwhile. Whether somebody waits; then `WakeWaiter`
    // is to be called.
    [[gnu::always_inline]] [[nodiscard]] bool Leave() noexcept OSSIRA_GIVES()
    {
        LeaveLock(this);
        return GiveQuietly();
    }
};

} // namespace Tavrik::tSystem
