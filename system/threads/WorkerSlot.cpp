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
        mHasQueued = true;
    }
    Rouse();
}

CQueuedCopy* CWorkerSlot::Pop() noexcept
{
    if (!mHasQueued)
        return nullptr;
    const CLockGuard guard(mLock);
    CQueuedCopy* const copy = mFirst;
    if (copy != nullptr)
        mFirst = copy->Next;
    mHasQueued = mFirst != nullptr; // also for what was taken back
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
        return copy.State.TakeBack();
    }
    return false;
}

} // namespace Tavrik::tSystem::tThreads
