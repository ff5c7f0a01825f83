// The life of a run: copies are queued, the caller does a share of its own, and the record may go
// when the last worker has let go of it. A symmetric run's worker does so by counting its copy as
// done; an asymmetric one's still has to set the event then and is counted as busy meanwhile.
#include "ThreadPoolMessage.h"

#include "OssiraDiagnostics.h"

#include <new>

namespace Tavrik::tSystem::tThreads
{

namespace
{

// The code of the exception being handled, which is released.
Result CodeOfCaught() noexcept
{
    try
    {
        throw;
    }
    catch (Ossira::IException* exception)
    {
        if (exception == nullptr) // memory ran out while it was made
            return Ossira::E_OUTOFMEMORY;
        const Result code = exception->GetCode();
        exception->Release();
        return code;
    }
    catch (const std::bad_alloc&)
    {
        return Ossira::E_OUTOFMEMORY;
    }
    catch (...)
    {
        return Ossira::E_UNEXPECTED;
    }
}

} // namespace

CThreadPool::CMessage::CMessage(CThreadPool& pool, IThreadFunction& function,
                                std::uint8_t* abortFlag, const char* name) noexcept
    : mPool(pool), mFunction(function), mAbortFlag(abortFlag), mName(name == nullptr ? "?" : name),
      mExpected(pool.mThreadCount)
{
    CAbortFlag(mAbortFlag).Lower();
}

void CThreadPool::CMessage::Run() noexcept
{
    try
    {
        mFunction.Run(mAbortFlag);
    }
    catch (...)
    {
        const Result code = CodeOfCaught();
        CAbortFlag(mAbortFlag).Raise();
        Ossira::DebugOutputF(
            "\aCThreadPool::CMessage::Run Thread:(%d) - Exception for %s: Code: 0x%X\n",
            mPool.CurrentWorker(), mName, static_cast<std::uint32_t>(code));
    }
}

bool CThreadPool::CMessage::RunNext(CWorkerSlot& slot) noexcept
{
    const CQueuedCopy* const copy = slot.Pop();
    if (copy == nullptr)
        return false;
    static_cast<CMessage*>(copy->Message)->RunOnWorker();
    return true;
}

void CThreadPool::CMessage::RunOnWorker() noexcept
{
    CEvent* const doneEvent = mDoneEvent; // without one the record is gone once the copy counts
    if (doneEvent != nullptr)
        mBusy.fetch_add(1);
    if (!IsAborted())
        Run();
    const std::int32_t done = mDone.fetch_add(1) + 1;
    if (doneEvent == nullptr)
        return;
    if (done == mExpected)
        doneEvent->Set();
    mBusy.fetch_sub(1);
}

void CThreadPool::CMessage::SetDoneEvent(CEvent& event) noexcept
{
    mDoneEvent = &event;
}

bool CThreadPool::CMessage::QueueCopies(bool breakEarly) noexcept
{
    for (std::int32_t worker = 0; worker < mPool.mThreadCount; ++worker)
    {
        if (breakEarly && worker > 0 && IsDone())
            return false;
        if (IsAborted())
            return true;
        const auto index = static_cast<std::size_t>(worker);
        mCopies[index].Message = this;
        mPool.mSlots[index].Push(mCopies[index]);
        ++mQueued;
    }
    return true;
}

void CThreadPool::CMessage::RunOnCaller() noexcept
{
    if (!IsDone() && !IsAborted())
        Run();
}

void CThreadPool::CMessage::TakeBackCopies() noexcept
{
    std::int32_t takenBack = 0;
    for (std::size_t index = 0; index < static_cast<std::size_t>(mQueued); ++index)
    {
        if (mPool.mSlots[index].TakeBack(mCopies[index]))
            ++takenBack;
    }
    mQueued -= takenBack;
}

// Deep enough for jobs that call each other, and far from the end of the stack. Whoever is deeper
// just waits, which is no danger: a worker waits for nothing but copies that others have begun
// after it began what it is at, so those who wait never form a circle.
bool CThreadPool::CMessage::Helps(const CWorkerSlot& own) noexcept
{
    constexpr int deepest = 8;
    return own.Helping < deepest;
}

bool CThreadPool::CMessage::HelpOut(CWorkerSlot& own) noexcept
{
    if (!own.HasCopies() || !Helps(own))
        return false;
    ++own.Helping;
    const bool helped = RunNext(own);
    --own.Helping;
    return helped;
}

std::int32_t CThreadPool::CMessage::AwaitSpinning() noexcept
{
    constexpr std::int32_t pauses = 50;
    CWorkerSlot* own = nullptr;
    std::int32_t spins = 0;
    for (; !IsDone(); ++spins)
    {
        // A worker in the midst of its copy may be waiting for this very processor.
        if (spins < pauses)
            Pause();
        else if (spins == pauses)
            own = OwnSlot();
        else if (own == nullptr || !HelpOut(*own))
            GiveWay();
    }
    return spins;
}

std::int32_t CThreadPool::CMessage::AwaitSleeping(CWorkerSlot* own) noexcept
{
    // Fewer than were expected may have been queued. Whoever is done after this sees it, and what
    // was done before this the loop sees.
    mExpected = mQueued;
    while (!IsDone())
    {
        if (own == nullptr)
            mDoneEvent->Wait();
        else if (!HelpOut(*own))
            own->Await([&] { return IsDone() || (own->HasCopies() && Helps(*own)); });
    }

    std::int32_t unlockSpins = 0;
    for (; mBusy != 0; ++unlockSpins)
        GiveWay();
    return unlockSpins;
}

bool CThreadPool::CMessage::IsDone() const noexcept
{
    return mDone == mQueued;
}

std::int32_t CThreadPool::CMessage::CountDone() const noexcept
{
    return mDone;
}

bool CThreadPool::CMessage::IsAborted() const noexcept
{
    return CAbortFlag(mAbortFlag).IsRaised();
}

const char* CThreadPool::CMessage::Name() const noexcept
{
    return mName;
}

const char* CThreadPool::CMessage::Outcome() const noexcept
{
    return IsAborted() ? "aborted" : "finished";
}

} // namespace Tavrik::tSystem::tThreads
