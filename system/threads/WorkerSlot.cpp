// The queue of a worker's slot.
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

} // namespace Tavrik::tSystem::tThreads
