// A re-entrant lock of an object that costs no more than a spin word where nobody waits: the word,
// and who has it how often. It is for what is seldom awaited and may be held for long: a waiter
// falls asleep soon. To the check of the order it is an object's section, so its holder may call
// what the holder of a section may.
#pragma once

#include "FastCriticalSection.h"
#include "ThreadMark.h"

namespace Tavrik::tSystem
{

class OSSIRA_LOCK CReentrantWord
{
public:
    void lock(const LockPlace& place = LockPlace::current()) noexcept OSSIRA_TAKES()
    {
        EnterLock(this, ELockRank::Object, place);
        const std::uintptr_t self = ThreadMark();
        if (mOwner.load(std::memory_order_relaxed) == self) [[unlikely]]
        {
            ++mDepth;
            return;
        }
        mWord.Take();
        mOwner.store(self, std::memory_order_relaxed);
    }

    void unlock() noexcept OSSIRA_GIVES()
    {
        LeaveLock(this);
        if (mDepth != 0) [[unlikely]]
        {
            --mDepth;
            return;
        }
        mOwner.store(0, std::memory_order_relaxed);
        mWord.Give();
    }

private:
    CSpinWord mWord;
    std::uint32_t mDepth = 0; // how often it was entered again
    std::atomic<std::uintptr_t> mOwner = 0;
};

} // namespace Tavrik::tSystem
