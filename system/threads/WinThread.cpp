// A thread object and its thread share the record of the run, each holding it until it needs it no
// more: a thread that outlives its object ends without touching what is gone.
#include "WinThread.h"

#include "OssiraCheck.h"

#include <algorithm>
#include <new>

namespace Tavrik::tSystem::tThreads
{

namespace
{

constinit std::atomic<std::int32_t> gLiveThreads = 0;

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
    gLiveThreads.fetch_add(1);
}

WinThread::~WinThread()
{
    constexpr std::uint32_t patience = 200;
    WaitFor(patience);
    mThread.Close(IsFinishedOrGone());
    gLiveThreads.fetch_sub(1);
}

std::int32_t WinThread::LiveCount() noexcept
{
    return gLiveThreads;
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

// A thread that is gone without having come to its end has left its share of the record behind.
bool WinThread::IsFinishedOrGone() noexcept
{
    if (!IsFinished() && mThread.IsGone() && !mRun->Finished.exchange(true))
        mRun->Owners.fetch_sub(1);
    return IsFinished();
}

std::uint8_t WinThread::Start(IThreadFunction* function, void* parameter)
{
    return TryStart(function, parameter) == Ossira::S_OK;
}

Result WinThread::TryStart(IThreadFunction* function, void* parameter) noexcept
{
    if (function == nullptr || !IsFinished())
        return Ossira::E_FAIL;
    RunPtr run(new (std::nothrow) CRun(function, parameter));
    if (run == nullptr || !WatchForks())
        return Ossira::E_OUTOFMEMORY;
    if (!run->FinishedEvent.Create())
        return Ossira::E_FAIL;

    mThread.Close(true);
    mRun = std::move(run);
    mFunction = function;
    // Before the thread exists: it may ask for its state at once.
    mState = ThreadRunning;
    mRun->Owners = 2;
    const CNativeThread::EStart start = mThread.Start(mRun.get());
    if (start == CNativeThread::EStart::Started)
        return Ossira::S_OK;

    mState = ThreadNotStarted;
    mRun->Owners = 1;
    mRun.reset();
    mFunction = nullptr;
    return start == CNativeThread::EStart::NoMemory ? Ossira::E_OUTOFMEMORY : Ossira::E_FAIL;
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
    constexpr std::uint32_t slice = 100; // what is gone sets no event, so it is looked for
    for (std::uint32_t left = milliseconds; !IsFinishedOrGone();)
    {
        const std::uint32_t step = std::min(left, slice);
        if (mRun->FinishedEvent.WaitFor(step))
            continue;
        if (left == 0)
            return IsFinished();
        left -= left == Forever ? 0 : step;
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
    while (mRun->ThreadId == 0 && !mThread.IsGone()) // it has not run yet, but soon will
        GiveWay();
    return mRun->ThreadId;
}

} // namespace Tavrik::tSystem::tThreads
