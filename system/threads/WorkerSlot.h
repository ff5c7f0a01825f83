// What a pool keeps for each worker: its thread, its events and the queue of jobs that it is to
// take a copy of.
#pragma once

#include "FastCriticalSection.h"
#include "WinThread.h"

namespace Tavrik::tSystem::tThreads
{

// A queue's entry. It lies in the record of the run, so that queuing needs no memory. A record has
// many, most of them never used: nothing is set before it is.
struct CQueuedCopy
{
    void* Message; // the record
    CQueuedCopy* Next;
};

// Slots lie on cache lines of their own: their workers look at them without pause.
class alignas(64) CWorkerSlot
{
public:
    // Puts a copy at the end of the queue and wakes the worker. The copy is the worker's until the
    // worker has counted it as done or `TakeBack` has answered true.
    void Push(CQueuedCopy& copy) noexcept;

    // The copy at the front of the queue, or null.
    [[nodiscard]] CQueuedCopy* Pop() noexcept;

    // Takes a copy out of the queue; false when it is there no more.
    [[nodiscard]] bool TakeBack(const CQueuedCopy& copy) noexcept;

    // For the worker when its queue was empty: looks for the next copy for a short while, then
    // sleeps until there is one. May return without.
    void AwaitCopy() noexcept;

    [[nodiscard]] bool IsToRun() noexcept
    {
        return Thread->GetState() == ThreadRunning;
    }

    // Gives up the thread of a slot, which has finished.
    struct ReleaseThread
    {
        void operator()(WinThread* thread) const noexcept
        {
            thread->Release();
        }
    };

    std::unique_ptr<WinThread, ReleaseThread> Thread;
    CEvent Wake;  // something was queued, or the worker is to end
    CEvent Ready; // the worker has begun; and again: it has ended

private:
    [[nodiscard]] bool LookForCopy() noexcept;

    CFastCriticalSection mLock; // guards the queue
    CQueuedCopy* mFirst = nullptr;
    CQueuedCopy* mLast = nullptr;
    std::atomic<std::int32_t> mCount = 0; // of what is queued, to be looked at without the lock
};

} // namespace Tavrik::tSystem::tThreads
