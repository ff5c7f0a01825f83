// The pool's life and its two kinds of run. Workers hold nothing while a job runs; whoever wants a
// pool destroyed sees to it that no run is under way.
#include "ThreadPool.h"

#include "OssiraCheck.h"
#include "ThreadPoolMessage.h"

#include <algorithm>

namespace Tavrik::tSystem::tThreads
{

namespace
{

using Ossira::DebugOutputF;

constinit std::atomic<std::int32_t> gLiveCount = 0;
constinit std::atomic<std::uint8_t> gStatistics = 0;

constexpr Result RunFailed = -1;
constexpr std::int64_t NoStatistics = -1;

long long CallsPerSecond(std::int64_t start) noexcept
{
    return PerformanceFrequency() / (PerformanceCounter() - start + 1);
}

bool Complain(int number) noexcept
{
    DebugOutputF("\aCThreadPool Error #%d\n", number);
    return false;
}

} // namespace

CThreadPool::CThreadPool(std::int32_t threadCount) noexcept : mThreadCount(threadCount)
{
    gLiveCount.fetch_add(1);
}

CThreadPool::~CThreadPool()
{
    // All are told before any is waited for.
    for (std::size_t index = mSlots.size(); index-- > 0;)
    {
        CWorkerSlot& slot = mSlots[index];
        if (slot.Thread == nullptr || !slot.IsToRun())
            continue;
        slot.Thread->Stop();
        slot.Wake.Set();
    }
    for (std::size_t index = mSlots.size(); index-- > 0;)
    {
        CWorkerSlot& slot = mSlots[index];
        if (slot.Thread == nullptr)
            continue;
        if (slot.Thread->GetState() == ThreadStopRequested)
            slot.Ready.Wait();
        constexpr std::uint32_t patience = 5;
        for (int poll = 0; poll < 100 && !slot.Thread->WaitFor(patience); ++poll)
        {
            if (poll > 50)
                DebugOutputF("\aCThreadPool delayed thread termination at %d\n",
                             static_cast<int>(index));
        }
        slot.Thread->Wait(); // what the worker still touches goes with the pool
        slot.Thread.reset();
    }
    gLiveCount.fetch_sub(1);
}

bool CThreadPool::CreateSlots() noexcept
{
    for (auto index = static_cast<std::size_t>(mThreadCount); index-- > 0;)
    {
        CWorkerSlot& slot = mSlots[index];
        if (!slot.Ready.Create())
            return Complain(11);
        if (!slot.Wake.Create())
            return Complain(12);
        slot.Thread.reset(WinThread::Create());
        if (slot.Thread == nullptr)
            return Complain(13);
    }
    return true;
}

bool CThreadPool::StartThreads() noexcept
{
    for (auto index = static_cast<std::size_t>(mThreadCount); index-- > 0;)
    {
        CWorkerSlot& slot = mSlots[index];
        if (slot.Thread->Start(this, &slot) == 0)
            return Complain(14);
    }
    return true;
}

bool CThreadPool::StartWorkers() noexcept
{
    if (!CreateSlots() || !StartThreads())
        return false;
    for (auto index = static_cast<std::size_t>(mThreadCount); index-- > 0;)
        mSlots[index].Ready.Wait();
    return true;
}

void* CThreadPool::DeletingDestructor(std::uint32_t flags)
{
    return DestroyAsFlagged(this, flags);
}

Result CThreadPool::Release()
{
    delete this;
    return Ossira::S_OK;
}

std::int32_t CThreadPool::GetThreadCount()
{
    return mThreadCount;
}

void CThreadPool::Run(void* parameter)
{
    CWorkerSlot& slot = *static_cast<CWorkerSlot*>(parameter);
    slot.Ready.Set();
    while (slot.IsToRun())
    {
        if (const CQueuedCopy* const copy = slot.Pop(); copy != nullptr)
            static_cast<CMessage*>(copy->Message)->RunOnWorker();
        else
            slot.AwaitCopy();
    }
    slot.Ready.Set();
}

// The workers see the state of their thread.
void CThreadPool::RequestStop()
{
}

std::int32_t CThreadPool::CurrentWorker() noexcept
{
    const std::uint32_t self = CurrentThreadId();
    for (std::int32_t index = mThreadCount - 1; index >= 0; --index)
    {
        if (mSlots[static_cast<std::size_t>(index)].Thread->GetThreadId() == self)
            return index;
    }
    return -1;
}

std::int32_t CThreadPool::LiveCount() noexcept
{
    return gLiveCount;
}

void CThreadPool::SwitchStatistics(bool on) noexcept
{
    gStatistics = on;
}

Result CThreadPool::Run(IThreadFunction* function, std::uint8_t* abortFlag, std::uint8_t symmetric,
                        const char* name)
try
{
    OSSIRA_CHECK_POINTER(function);
    std::uint8_t ownFlag = 0;
    CMessage message(*this, *function, abortFlag == nullptr ? &ownFlag : abortFlag, name);
    const std::int64_t start = gStatistics != 0 ? PerformanceCounter() : NoStatistics;

    if (mThreadCount <= 1)
        RunAlone(message, start);
    else if (symmetric != 0)
        RunSymmetric(message, start);
    else if (!RunAsymmetric(message, start))
        return RunFailed;
    return message.IsAborted() ? RunFailed : Ossira::S_OK;
}
OSSIRA_CATCH_RETURN

void CThreadPool::RunAlone(CMessage& message, std::int64_t start) noexcept
{
    message.Run();
    if (start != NoStatistics)
    {
        DebugOutputF("CThreadPool single thread job %s %s: %lld calls/s\n", message.Name(),
                     message.Outcome(), CallsPerSecond(start));
    }
}

void CThreadPool::RunSymmetric(CMessage& message, std::int64_t start) noexcept
{
    const bool all = message.QueueCopies(true);
    if (!all && start != NoStatistics)
    {
        DebugOutputF("CThreadPool::RunSymmetric early break: %d / %d\n", mThreadCount,
                     message.CountDone());
    }
    message.RunOnCaller();
    // Waiting for a worker that has not even woken up would take longer than most short jobs.
    message.TakeBackCopies();
    const std::int32_t spins = message.AwaitSpinning();
    if (start != NoStatistics)
    {
        DebugOutputF("CThreadPool %d threads sym job %s %s: %lld calls/s; %d Wait-Spins\n",
                     mThreadCount, message.Name(), message.Outcome(), CallsPerSecond(start), spins);
    }
}

bool CThreadPool::RunAsymmetric(CMessage& message, std::int64_t start) noexcept
{
    CEvent doneEvent;
    if (!doneEvent.Create())
        return Complain(15);
    message.SetDoneEvent(doneEvent);
    message.QueueCopies(false);
    message.RunOnCaller();
    // A job that calls `Run` itself must not wait for workers that may be waiting for it.
    if (CurrentWorker() >= 0)
        message.TakeBackCopies();
    const std::int32_t spins = message.AwaitSleeping();
    if (start != NoStatistics)
    {
        DebugOutputF("CThreadPool %d threads asym job %s %s: %lld calls/s; %d Unlock-Spins\n",
                     mThreadCount, message.Name(), message.Outcome(), CallsPerSecond(start), spins);
    }
    return true;
}

CThreadPool* CreateThreadPool(std::int32_t count) noexcept
{
    if (count > CThreadPool::MaxThreads)
    {
        DebugOutputF("\aCThreadPool Warn too many threads needed: %d but %d now using\n", count,
                     CThreadPool::MaxThreads);
        count = CThreadPool::MaxThreads;
    }
    if (count < 1)
    {
        static const std::int32_t processors = CountProcessors();
        count = std::clamp(processors - 1, 1, CThreadPool::MaxThreads);
    }
    auto* const pool = new (std::nothrow) CThreadPool(count);
    if (pool == nullptr || pool->StartWorkers())
        return pool;
    delete pool;
    return nullptr;
}

} // namespace Tavrik::tSystem::tThreads
