// The one order in which locks are taken, and what checks it while a debug build runs. The table of
// all locks is in docs/architecture.md.
//
// A thread takes a lock only of the same rank as those that it holds, or of a later one; within a
// spin word it takes no lock at all and calls nothing foreign: no operation of an object that may
// be another module's, no export, no observer. Taking a reference is the exception, because without
// it nothing that was found under a word could be used behind it.
//
// A lock that this thread holds already may be entered again wherever it is re-entrant. Each
// library checks the locks that were compiled into it.
#pragma once

#include "GuardedBy.h"

#include <cstdint>
#include <source_location>

namespace Tavrik::tSystem
{

enum class ELockRank : std::uint8_t
{
    ProcessWide, // singletons come and go, modules are loaded and unloaded
    Loader,      // the platform's own, held while a library's start-up and clean-up code runs
    Object,      // sections of objects: a container's before that of what it contains
    Word         // spin words
};

#if OSSIRA_CHECK_LOCK_ORDER

using LockPlace = std::source_location;

// Each stops the process, after a line with both places, when the order is broken.
void EnterLock(const void* lock, ELockRank rank, const LockPlace& place) noexcept;
void CheckForeignCall(const LockPlace& place = LockPlace::current()) noexcept;

// After a lock was taken that was only tried for, which cannot break the order.
void EnterTriedLock(const void* lock, ELockRank rank, const LockPlace& place) noexcept;
void LeaveLock(const void* lock) noexcept;

#else

struct LockPlace
{
    [[nodiscard]] static constexpr LockPlace current() noexcept
    {
        return {};
    }
};

inline void EnterLock(const void*, ELockRank, const LockPlace&) noexcept
{
}
inline void CheckForeignCall(const LockPlace& = LockPlace::current()) noexcept
{
}
inline void EnterTriedLock(const void*, ELockRank, const LockPlace&) noexcept
{
}
inline void LeaveLock(const void*) noexcept
{
}

#endif

// Takes a lock of whatever kind, with the place where it knows what to do with it.
template <class Lock>
void TakeLock(Lock& lock, const LockPlace& place) OSSIRA_TAKES(lock)
{
    if constexpr (requires { lock.lock(place); })
        lock.lock(place);
    else
        lock.lock();
}

// Holds a lock while it lives; the place that a report names is that of the guard.
template <class Lock>
class [[nodiscard]] OSSIRA_GUARD CLockGuard
{
public:
    explicit CLockGuard(Lock& lock, const LockPlace& place = LockPlace::current())
        OSSIRA_TAKES(lock)
        : mLock(lock)
    {
        TakeLock(lock, place);
    }

    CLockGuard(const CLockGuard&) = delete;
    CLockGuard& operator=(const CLockGuard&) = delete;

    ~CLockGuard() OSSIRA_GIVES()
    {
        mLock.unlock();
    }

private:
    Lock& mLock;
};

} // namespace Tavrik::tSystem
