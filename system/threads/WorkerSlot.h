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

class CThreadPool;

// Looks whether `isTime` for a short while: spins for a moment, unless a thread that is waited for
// may need this very processor, and then lets other threads run between its looks.
template <class IsTime>
[[nodiscard]] bool LookWhether(IsTime isTime, bool isCrowded = false) noexcept
{
    const int pauses = isCrowded ? 1 : 50;         // 50 are about 2 microseconds
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

// Where a worker's copy of a job is: one word, which the caller of the run and the worker hand to
// and fro. A run that finds both of them awake moves nothing else between their processors.
class CCopyState
{
public:
    // For the caller: hands the copy out.
    void Offer() noexcept
    {
        mWord.exchange(Offered); // what the caller looks at next, it looks at after this
    }

    // For the caller: false when the worker has it, or has done it.
    [[nodiscard]] bool TakeBack() noexcept
    {
        std::uint32_t offered = Offered;
        return mWord.compare_exchange_strong(offered, Free);
    }

    // Whether the copy was handed out and is done, or was taken back. From then on the worker
    // touches nothing of the run.
    [[nodiscard]] bool IsDone() const noexcept
    {
        return mWord.load(std::memory_order_acquire) == Free;
    }

    // For the caller, before it sleeps until the event of the run is set, once. False when that is
    // not to come, because the copy is done, or as good as done.
    [[nodiscard]] bool Await() noexcept
    {
        std::uint32_t word = mWord.load();
        while (word != Free && word != Waking)
        {
            if (mWord.compare_exchange_weak(word, word | Awaited))
                return true;
        }
        return false;
    }

    [[nodiscard]] bool IsOffered() const noexcept
    {
        return (mWord.load() & Offered) != 0;
    }

    // For the worker: begins the copy, if it is there.
    [[nodiscard]] bool Take() noexcept
    {
        std::uint32_t word = mWord.load();
        while ((word & Offered) != 0)
        {
            if (mWord.compare_exchange_weak(word, word ^ (Offered | Taken)))
                return true;
        }
        return false;
    }

    // For the worker: the copy is done. False when the caller sleeps; then it has to be woken, and
    // `Leave` comes after that.
    [[nodiscard]] bool Finish() noexcept
    {
        std::uint32_t taken = Taken;
        if (mWord.compare_exchange_strong(taken, Free))
            return true;
        mWord.store(Waking);
        return false;
    }

    void Leave() noexcept
    {
        mWord.store(Free);
    }

private:
    static constexpr std::uint32_t Free = 0;
    static constexpr std::uint32_t Offered = 1;
    static constexpr std::uint32_t Taken = 2;
    static constexpr std::uint32_t Awaited = 4; // beside one of those
    static constexpr std::uint32_t Waking = 8;

    std::atomic<std::uint32_t> mWord = Free;
};

// What workers read of a run. The pool has one such record, for whoever runs a job while nobody
// else does; others make one for themselves.
struct CRunRecord
{
    CRunRecord() noexcept = default;
    CRunRecord(const CRunRecord&) = delete;
    CRunRecord& operator=(const CRunRecord&) = delete;

    CThreadPool* Pool = nullptr;
    IThreadFunction* Function = nullptr;
    std::uint8_t* AbortFlag = nullptr;
    const char* Name = nullptr;
    CEvent* DoneEvent = nullptr; // what an asymmetric run's caller sleeps on
    std::uint8_t OwnFlag = 0;    // for callers without one
};

// A queue's entry. It lies in the caller's frame, so that queuing needs no memory. A run has
// room for many, most of which are never made.
struct CQueuedCopy
{
    explicit CQueuedCopy(const CRunRecord* run) noexcept : Run(run)
    {
        State.Offer();
    }

    const CRunRecord* Run;
    CQueuedCopy* Next = nullptr;
    CCopyState State;
};

// Slots lie on cache lines of their own: their workers look at them without pause.
class alignas(64) CWorkerSlot
{
public:
    // Hands out a copy of the run that has the pool's record.
    void Offer() noexcept
    {
        First.Offer();
        Rouse();
    }

    // Puts a copy of another run at the end of the queue. It is the worker's until the worker has
    // done it or `TakeBack` has answered true.
    void Push(CQueuedCopy& copy) noexcept;

    // The copy at the front of the queue, or null.
    [[nodiscard]] CQueuedCopy* Pop() noexcept;

    // Takes a copy out of the queue; false when it is there no more.
    [[nodiscard]] bool TakeBack(CQueuedCopy& copy) noexcept;

    // To be looked at without the lock.
    [[nodiscard]] bool HasCopies() const noexcept
    {
        return First.IsOffered() || mHasQueued;
    }

    // For the worker when there is nothing to do: looks whether `isTime` for a short while, then
    // sleeps until `Wake` is set. May return without.
    template <class IsTime>
    void Await(IsTime isTime) noexcept
    {
        if (!LookWhether(isTime))
            Sleep(isTime);
    }

    // The second part of it. Whoever has something for the worker either finds that it rests, or
    // comes in time for its last look.
    template <class IsTime>
    void Sleep(IsTime isTime) noexcept
    {
        mRests = true;
        Wake.Reset();
        if (!isTime())
            Wake.Wait();
        mRests = false;
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

    CCopyState First; // of the pool's own record, alone on its line

    alignas(64) std::unique_ptr<WinThread, ReleaseThread> Thread;
    const CRunRecord* Record = nullptr; // the pool's
    CEvent Wake;     // something was handed out, a run of the worker's own is done, or it is to end
    CEvent Ready;    // the worker has begun
    int Helping = 0; // the worker's: how deep it is in copies that it runs while it waits

private:
    void Rouse() noexcept
    {
        if (mRests)
            Wake.Set();
    }

    std::atomic<bool> mRests = false; // asleep, or about to be
    CFastCriticalSection mLock;
    CQueuedCopy* mFirst OSSIRA_GUARDED_BY(mLock) = nullptr;
    CQueuedCopy* mLast OSSIRA_GUARDED_BY(mLock) = nullptr;
    std::atomic<bool> mHasQueued = false; // whether there is a first one, without the lock
};

} // namespace Tavrik::tSystem::tThreads
