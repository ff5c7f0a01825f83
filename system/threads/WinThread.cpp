// A thread object and its thread share the record of the run, each holding it until it needs it no
// more: a thread that outlives its object ends without touching what is gone.
#include "WinThread.h"

#include "OssiraCheck.h"

#include <new>

namespace Tavrik::tSystem::tThreads
{

namespace
{

constinit std::atomic<std::int32_t> gLiveCount = 0;

} // namespace

struct WinThread::CRun
{
    CRun(IThreadFunction* function, void* parameter) noexcept
        : Function(function), Parameter(parameter)
    {
    }

    std::atomic<std::int32_t> Owners = 1;
    IThreadFunction* Function;
    void* Parameter;
    std::atomic<std::uint32_t> ThreadId = 0; // told by the thread itself
    std::atomic<bool> Finished = false;
    CEvent FinishedEvent;
};

void WinThread::DropRun::operator()(CRun* run) const noexcept
{
    if (run->Owners.fetch_sub(1) == 1)
        delete run;
}

void RunNativeThread(void* argument) noexcept
{
    const WinThread::RunPtr run(static_cast<WinThread::CRun*>(argument));
    run->ThreadId = CurrentThreadId();
    try
    {
        run->Function->Run(run->Parameter);
    }
    catch (...)
    {
        OSSIRA_LOCATION(here);
        (void)Ossira::ReportCaught(here);
    }
    run->Finished = true;
    run->FinishedEvent.Set();
}

WinThread* WinThread::Create() noexcept
{
    return new (std::nothrow) WinThread;
}

WinThread::WinThread() noexcept
{
    gLiveCount.fetch_add(1);
}

WinThread::~WinThread()
{
    constexpr std::uint32_t patience = 100;
    if (!WaitFor(patience))
        WaitFor(patience);
    mThread.Close(IsFinished());
    gLiveCount.fetch_sub(1);
}

std::int32_t WinThread::LiveCount() noexcept
{
    return gLiveCount;
}

void* WinThread::DeletingDestructor(std::uint32_t flags)
{
    return DestroyAsFlagged(this, flags);
}

void WinThread::Release()
{
    delete this;
}

bool WinThread::IsFinished() const noexcept
{
    return mRun == nullptr || mRun->Finished;
}

std::uint8_t WinThread::Start(IThreadFunction* function, void* parameter)
{
    if (function == nullptr || !IsFinished())
        return 0;
    RunPtr run(new (std::nothrow) CRun(function, parameter));
    if (run == nullptr || !run->FinishedEvent.Create())
        return 0;

    mThread.Close(true);
    mRun = std::move(run);
    mFunction = function;
    // Before the thread exists: it may ask for its state at once.
    mState = ThreadRunning;
    mRun->Owners = 2;
    if (mThread.Start(mRun.get()))
        return 1;

    mState = ThreadNotStarted;
    mRun->Owners = 1;
    mRun.reset();
    mFunction = nullptr;
    return 0;
}

std::uint8_t WinThread::Stop()
{
    if (mRun == nullptr || GetState() == ThreadFinished)
        return GetState() == ThreadFinished;
    Resume(); // a held thread could not end
    if (!IsFinished())
    {
        mState = ThreadStopRequested;
        if (mFunction != nullptr)
            mFunction->RequestStop();
    }
    mFunction = nullptr;
    return GetState() == ThreadFinished;
}

std::int32_t WinThread::GetState()
{
    std::int32_t state = mState;
    const bool isUnderWay = state == ThreadRunning || state == ThreadStopRequested;
    if (isUnderWay && IsFinished() && mState.compare_exchange_strong(state, ThreadFinished))
        return ThreadFinished;
    return state;
}

std::uint8_t WinThread::Suspend()
{
    std::int32_t running = ThreadRunning;
    if (GetState() == running && mThread.Suspend())
        mState = ThreadSuspended;
    return mState == ThreadSuspended;
}

std::uint8_t WinThread::Resume()
{
    if (mState == ThreadSuspended)
    {
        mState = ThreadRunning;
        mThread.Resume();
    }
    return 1;
}

void WinThread::Wait()
{
    WaitFor(Forever);
}

bool WinThread::WaitFor(std::uint32_t milliseconds) noexcept
{
    while (!IsFinished())
    {
        if (!mRun->FinishedEvent.WaitFor(milliseconds) && !IsFinished())
            return false;
    }
    if (mRun == nullptr)
        return true;
    mRun->FinishedEvent.Set(); // for others that wait
    mState = ThreadFinished;
    return true;
}

std::uint32_t WinThread::GetThreadId()
{
    if (mRun == nullptr)
        return 0;
    while (mRun->ThreadId == 0) // it has not run yet, but soon will
        GiveWay();
    return mRun->ThreadId;
}

} // namespace Tavrik::tSystem::tThreads
