// A worker that has just run out of work does not sleep at once: waking it would cost more than
// many a job. It spins for a moment and then lets other threads run between its looks, so that it
// is in nobody's way where there are fewer processors than threads.
#include "WorkerSlot.h"

namespace Tavrik::tSystem::tThreads
{

void CWorkerSlot::Push(CQueuedCopy& copy) noexcept
{
    {
        const CLockGuard guard(mLock);
        copy.Next = nullptr;
        (mFirst == nullptr ? mFirst : mLast->Next) = &copy;
        mLast = &copy;
        mCount.fetch_add(1);
    }
    Wake.Set();
}

CQueuedCopy* CWorkerSlot::Pop() noexcept
{
    const CLockGuard guard(mLock);
    CQueuedCopy* const copy = mFirst;
    if (copy == nullptr)
        return nullptr;
    mFirst = copy->Next;
    mCount.fetch_sub(1);
    return copy;
}

bool CWorkerSlot::TakeBack(const CQueuedCopy& copy) noexcept
{
    const CLockGuard guard(mLock);
    CQueuedCopy* before = nullptr;
    for (CQueuedCopy* at = mFirst; at != nullptr; before = at, at = at->Next)
    {
        if (at != &copy)
            continue;
        (before == nullptr ? mFirst : before->Next) = at->Next;
        if (mLast == at)
            mLast = before;
        mCount.fetch_sub(1);
        return true;
    }
    return false;
}

bool CWorkerSlot::LookForCopy() noexcept
{
    constexpr int pauses = 50;                     // about 2 microseconds
    constexpr std::int64_t looksPerSecond = 10000; // one look lasts 100 microseconds

    for (int pause = 0; pause < pauses; ++pause)
    {
        if (mCount.load() != 0)
            return true;
        Pause();
    }
    const std::int64_t end = PerformanceCounter() + PerformanceFrequency() / looksPerSecond;
    while (IsToRun() && PerformanceCounter() < end)
    {
        if (mCount.load() != 0)
            return true;
        GiveWay();
    }
    return false;
}

void CWorkerSlot::AwaitCopy() noexcept
{
    if (LookForCopy())
        return;
    // What was signalled so far was seen while looking; whatever comes now signals again.
    Wake.Reset();
    if (mCount.load() == 0 && IsToRun())
        Wake.Wait();
}

} // namespace Tavrik::tSystem::tThreads
