// What a pool keeps for each worker: its thread, its events and the queue of jobs that it is to
// take a copy of.
//
// A worker that has just run out of work does not sleep at once: waking it would cost more than
// many a job. It spins for a moment and then lets other threads run between its looks, so that it
// is in nobody's way where there are fewer processors than threads.
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

    // To be looked at without the lock.
    [[nodiscard]] bool HasCopies() const noexcept
    {
        return mCount.load() != 0;
    }

    // For the worker when there is nothing to do: looks whether `isTime` for a short while, then
    // sleeps until `Wake` is set. May return without.
    template <class IsTime>
    void Await(IsTime isTime) noexcept
    {
        if (LookWhether(isTime))
            return;
        // What was signalled so far was seen while looking; whatever comes now signals again.
        Wake.Reset();
        if (!isTime())
            Wake.Wait();
    }

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
    CEvent Wake;     // something was queued, a run of the worker's own is done, or it is to end
    CEvent Ready;    // the worker has begun
    int Helping = 0; // the worker's: how deep it is in copies that it runs while it waits

private:
    template <class IsTime>
    [[nodiscard]] static bool LookWhether(IsTime isTime) noexcept
    {
        constexpr int pauses = 50;                     // about 2 microseconds
        constexpr std::int64_t looksPerSecond = 10000; // one look lasts 100 microseconds

        for (int pause = 0; pause < pauses; ++pause)
        {
            if (isTime())
                return true;
            Pause();
        }
        const std::int64_t end = PerformanceCounter() + PerformanceFrequency() / looksPerSecond;
        while (PerformanceCounter() < end)
        {
            if (isTime())
                return true;
            GiveWay();
        }
        return false;
    }

    CFastCriticalSection mLock; // guards the queue
    CQueuedCopy* mFirst = nullptr;
    CQueuedCopy* mLast = nullptr;
    std::atomic<std::int32_t> mCount = 0; // of what is queued
};

} // namespace Tavrik::tSystem::tThreads
