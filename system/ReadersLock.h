// The lock of tables that many threads read: a spin word that grows. Threads that read the same
// table one after another through one word spend most of their time fetching that word from each
// other. So where readers keep meeting, the lock makes itself a row of words, each in a cache line
// of its own, and from then on a reader takes one of them, as a rule one that no other thread uses.
//
// A reader holds one word, whichever: the lock's own or one of the row. A writer takes the lock's
// own and then all of the row, so it excludes every reader, and readers exclude it. The row is made
// by a reader that holds the lock's own word, and it stays as long as the lock: a writer sees it as
// soon as it has that word, before any reader can have used it behind the writer's back.
//
// To the check of the order it is one spin word, and what holds for that holds for both kinds of
// holder. Not re-entrant, not even for readers. A writer pays for the row, about a pair more for
// each word; a table that is written between the readers' meetings gets none.
#pragma once

#include "FastCriticalSection.h"

#include <cstddef>
#include <type_traits>
#include <utility>

namespace Tavrik::tSystem
{

class OSSIRA_LOCK CReadersLock
{
public:
    constexpr CReadersLock() noexcept = default;
    CReadersLock(const CReadersLock&) = delete;
    CReadersLock& operator=(const CReadersLock&) = delete;
    ~CReadersLock();

    // For writing.

    void lock(const LockPlace& place = LockPlace::current()) noexcept OSSIRA_TAKES()
    {
        mWord.lock(place);
        mMeetings = 0;
        if (CRow* const row = mRow.load(std::memory_order_relaxed); row != nullptr) [[unlikely]]
            TakeAll(*row);
    }

    void unlock() noexcept OSSIRA_GIVES()
    {
        if (CRow* const row = mRow.load(std::memory_order_relaxed); row != nullptr) [[unlikely]]
            GiveAll(*row);
        mWord.unlock();
    }

    // For reading. Answers what the reader is to unlock.
    [[nodiscard]] CFastCriticalSection&
    lock_shared(const LockPlace& place = LockPlace::current()) noexcept OSSIRA_UNCHECKED_GUARDS
    {
        CFastCriticalSection& word = WordOfThisThread();
        if (!word.begin(place)) [[unlikely]]
            WaitToRead(word, place);
        return word;
    }

    // The same where waiting is left to a second call: null when somebody is there.
    [[gnu::always_inline]] [[nodiscard]] CFastCriticalSection*
    begin_shared(const LockPlace& place = LockPlace::current()) noexcept
    {
        CFastCriticalSection& word = WordOfThisThread();
        return word.begin(place) ? &word : nullptr;
    }

    // Whether readers have words of their own.
    [[nodiscard]] bool HasRow() const noexcept
    {
        return mRow.load(std::memory_order_relaxed) != nullptr;
    }

private:
    static constexpr std::uint32_t RowBits = 3;
    static constexpr std::size_t RowSize = std::size_t{1} << RowBits;
    static constexpr std::uint32_t MeetingsToGrow = 4;

    // Alone in its cache line wherever in memory the row begins.
    struct Seat
    {
        std::byte Before[64];
        CFastCriticalSection Word;
        std::byte Behind[64 - sizeof(CFastCriticalSection)];
    };

    struct CRow
    {
        Seat Seats[RowSize];
        std::atomic<std::uint32_t> Factor = 0x9E3779B1; // odd; it says who sits where
        std::atomic<std::int32_t> ChangesLeft = 64;
    };

    // A thread is told by where its stack lies. One that is so deep in its stack that it sits
    // elsewhere than a moment ago does no harm.
    [[gnu::always_inline]] [[nodiscard]] CFastCriticalSection& WordOfThisThread() noexcept
    {
        CRow* const row = mRow.load(std::memory_order_acquire);
        if (row == nullptr) [[likely]]
            return mWord;
        constexpr int granule = 16; // bits; a stack is larger
        char here;                  // NOLINT: it is never read
        const auto thread =
            static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(&here) >> granule);
        const std::uint32_t mixed = thread * row->Factor.load(std::memory_order_relaxed);
        return row->Seats[mixed >> (32 - RowBits)].Word;
    }

    void WaitToRead(CFastCriticalSection& word, const LockPlace& place) noexcept OSSIRA_TAKES(word);
    static void TakeAll(CRow& row) noexcept;
    static void GiveAll(CRow& row) noexcept;

    CFastCriticalSection mWord;
    std::uint32_t mMeetings = 0; // of readers since the last writer; guarded by the word
    std::atomic<CRow*> mRow = nullptr;
};

// How a lock of any kind is held by somebody who only reads: what is answered is to be unlocked.
// One that knows no readers is taken as it is.
template <class Lock>
[[nodiscard]] auto& BeginReading(Lock& lock, const LockPlace& place) OSSIRA_UNCHECKED_GUARDS
{
    if constexpr (requires { lock.lock_shared(place); })
    {
        return lock.lock_shared(place);
    }
    else
    {
        TakeLock(lock, place);
        return lock;
    }
}

// Null where it would have to be waited for, which is left to a call of the above.
template <class Lock>
[[gnu::always_inline]] [[nodiscard]] inline auto*
BeginReadingAtOnce(Lock& lock, const LockPlace& place) OSSIRA_UNCHECKED_GUARDS
{
    if constexpr (requires { lock.begin_shared(place); })
        return lock.begin_shared(place);
    else if constexpr (requires { lock.begin(place); })
        return lock.begin(place) ? &lock : nullptr;
    else
        return &BeginReading(lock, place);
}

template <class Lock>
using ReadHold =
    std::remove_reference_t<decltype(BeginReading(std::declval<Lock&>(), LockPlace()))>;

template <class Lock>
class [[nodiscard]] OSSIRA_GUARD CReadGuard
{
public:
    explicit CReadGuard(Lock& lock, const LockPlace& place = LockPlace::current())
        OSSIRA_TAKES_TO_READ(lock)
        : mHold(BeginReading(lock, place))
    {
    }

    CReadGuard(const CReadGuard&) = delete;
    CReadGuard& operator=(const CReadGuard&) = delete;

    ~CReadGuard() OSSIRA_GIVES()
    {
        mHold.unlock();
    }

private:
    ReadHold<Lock>& mHold;
};

} // namespace Tavrik::tSystem
