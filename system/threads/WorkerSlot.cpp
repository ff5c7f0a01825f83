// The queue of a worker's slot.
#include "WorkerSlot.h"

namespace Tavrik::tSystem::tThreads
{

void CWorkerSlot::Push(CQueuedCopy& copy) noexcept
{
    {
        const CLockGuard guard(mLock);
        (mFirst == nullptr ? mFirst : mLast->Next) = &copy;
        mLast = &copy;
        mCount.fetch_add(1);
    }
    Rouse();
}

CQueuedCopy* CWorkerSlot::Pop() noexcept
{
    if (mCount.load() == 0)
        return nullptr;
    const CLockGuard guard(mLock);
    CQueuedCopy* const copy = mFirst;
    if (copy == nullptr)
        return nullptr;
    mFirst = copy->Next;
    mCount.fetch_sub(1);
    return copy;
}

bool CWorkerSlot::TakeBack(CQueuedCopy& copy) noexcept
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
        return copy.State.TakeBack();
    }
    return false;
}

} // namespace Tavrik::tSystem::tThreads
