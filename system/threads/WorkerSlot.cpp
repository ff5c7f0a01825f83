// The queue of a worker's slot.
#include "WorkerSlot.h"

namespace Tavrik::tSystem::tThreads
{

void CWorkerSlot::Push(CQueuedCopy& copy) noexcept
{
    {
        const CLockGuard guard(mLock);
        if (mFirst == nullptr)
            mFirst = &copy;
        else
            mLast->Next = &copy;
        mLast = &copy;
    }
    Rouse();
}

CQueuedCopy* CWorkerSlot::Pop() noexcept
{
    if (mFirst == nullptr)
        return nullptr;
    const CLockGuard guard(mLock);
    CQueuedCopy* const copy = mFirst;
    if (copy != nullptr)
        mFirst = copy->Next;
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
        if (before == nullptr)
            mFirst = at->Next;
        else
            before->Next = at->Next;
        if (mLast == at)
            mLast = before;
        return copy.State.TakeBack();
    }
    return false;
}

} // namespace Tavrik::tSystem::tThreads
