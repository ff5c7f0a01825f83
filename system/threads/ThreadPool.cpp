// The pool's life and its two kinds of run. Workers hold nothing while a job runs.
#include "ThreadPool.h"

#include "../ThreadMark.h"
#include "OssiraCheck.h"
#include "ThreadPoolMessage.h"

#include <algorithm>

namespace Tavrik::tSystem::tThreads
{

namespace
{

using Ossira::DebugOutputF;

constinit std::atomic<std::int32_t> gLivePools = 0;
constinit std::atomic<std::uint8_t> gStatistics = 0;

constexpr Result RunFailed = -1;
constexpr std::int64_t NoStatistics = -1;

long long CallsPerSecond(std::int64_t start) noexcept
{
    return PerformanceFrequency() / (PerformanceCounter() - start + 1);
}

// The pools that live, for the library's end and for finding a worker's slot. Nothing of it needs
// to be constructed or destroyed: pools may live when the process ends.
constinit CFastCriticalSection gPoolsLock;
constinit CLinkedList<CThreadPool> gPools OSSIRA_GUARDED_BY(gPoolsLock);

Result Complain(int number, Result code) noexcept
{
    DebugOutputF("\aCThreadPool Error #%d\n", number);
    return code;
}

} // namespace

CThreadPool::CThreadPool(std::int32_t threadCount) noexcept
    : mThreadCount(threadCount), mIsCrowded(threadCount >= CountProcessors())
{
    gLivePools.fetch_add(1);
    const CLockGuard guard(gPoolsLock);
    gPools.Enter(*this);
}

CThreadPool::~CThreadPool()
{
    {
        const CLockGuard guard(gPoolsLock);
        gPools.Leave(*this);
    }
    EndWorkers();
    gLivePools.fetch_sub(1);
}

void CThreadPool::EndWorkers() noexcept
{
    mHasWorkers = false;
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
        constexpr std::uint32_t patience = 5;
        // What the worker still touches goes with the pool, so there is no end to the waiting.
        for (std::uint32_t poll = 0; !slot.Thread->WaitFor(patience); ++poll)
        {
            if (poll > 50 && poll < 100)
                DebugOutputF("\aCThreadPool delayed thread termination at %d\n",
                             static_cast<int>(index));
        }
        slot.Thread.reset();
    }
}

void CThreadPool::EndAllWorkers() noexcept
{
    const auto nextWithWorkers = []
    {
        const CLockGuard guard(gPoolsLock);
        CThreadPool* pool = gPools.First();
        while (pool != nullptr && !pool->mHasWorkers)
            pool = gPools.Next(*pool);
        return pool != nullptr ? pool->Enter() : Use();
    };
    while (const Use pool = nextWithWorkers())
        pool->EndWorkers();
}

Result CThreadPool::CreateSlots() noexcept
{
    for (auto index = static_cast<std::size_t>(mThreadCount); index-- > 0;)
    {
        CWorkerSlot& slot = mSlots[index];
        if (!slot.Ready.Create())
            return Complain(11, Ossira::E_FAIL);
        if (!slot.Wake.Create())
            return Complain(12, Ossira::E_FAIL);
        slot.Record = &mRecord;
        slot.Thread.reset(WinThread::Create());
        if (slot.Thread == nullptr)
            return Complain(13, Ossira::E_OUTOFMEMORY);
    }
    return Ossira::S_OK;
}

Result CThreadPool::StartThreads() noexcept
{
    for (auto index = static_cast<std::size_t>(mThreadCount); index-- > 0;)
    {
        CWorkerSlot& slot = mSlots[index];
        if (const Result result = slot.Thread->TryStart(this, &slot); Ossira::Failed(result))
            return Complain(14, result);
    }
    return Ossira::S_OK;
}

Result CThreadPool::StartWorkers() noexcept
{
    if (const Result result = CreateSlots(); Ossira::Failed(result))
        return result;
    if (const Result result = StartThreads(); Ossira::Failed(result))
        return result;
    for (auto index = static_cast<std::size_t>(mThreadCount); index-- > 0;)
        mSlots[index].Ready.Wait();
    mForks = CountForks();
    mHasWorkers = true;
    return Ossira::S_OK;
}

bool CThreadPool::HasWorkers() const noexcept
{
    return mHasWorkers && mForks == CountForks();
}

CThreadPool::Use CThreadPool::Enter() noexcept
{
    std::int32_t uses = mUses.load();
    while (!mUses.compare_exchange_weak(uses, (uses + 1) | RecordTaken))
    {
    }
    return {this, {(uses & RecordTaken) == 0}};
}

void CThreadPool::Leave(std::int32_t uses) noexcept
{
    if (mUses.fetch_sub(uses) == uses)
        delete this;
}

void* CThreadPool::DeletingDestructor(std::uint32_t flags)
{
    constexpr std::uint32_t freeMemory = 1;
    if ((flags & freeMemory) == 0)
        return DestroyAsFlagged(this, flags);
    void* const address = this;
    Leave(1);
    return address;
}

Result CThreadPool::Release()
{
    Leave(1);
    return Ossira::S_OK;
}

std::int32_t CThreadPool::GetThreadCount()
{
    return mThreadCount;
}

void CThreadPool::Run(void* parameter)
{
    CWorkerSlot& slot = *static_cast<CWorkerSlot*>(parameter);
    std::atomic<std::uintptr_t>& mark = mWorkers[static_cast<std::size_t>(&slot - mSlots.data())];
    mark = ThreadMark();
    slot.Ready.Set();
    while (slot.IsToRun())
    {
        CMessage::RunNext(slot);
        slot.Await([&] { return slot.HasCopies() || !slot.IsToRun(); });
    }
    mark = 0;
}

// The workers see the state of their thread.
void CThreadPool::RequestStop()
{
}

std::int32_t CThreadPool::CurrentWorker() noexcept
{
    if (!HasWorkers())
        return -1;
    const std::uintptr_t self = ThreadMark();
    std::int32_t index = mThreadCount - 1;
    while (index >= 0 && mWorkers[static_cast<std::size_t>(index)] != self)
        --index;
    return index;
}

CWorkerSlot* CThreadPool::OwnSlot() noexcept
{
    const CLockGuard guard(gPoolsLock);
    for (CThreadPool* pool = gPools.First(); pool != nullptr; pool = gPools.Next(*pool))
    {
        if (const std::int32_t worker = pool->CurrentWorker(); worker >= 0)
            return &pool->mSlots[static_cast<std::size_t>(worker)];
    }
    return nullptr;
}

std::int32_t CThreadPool::LiveCount() noexcept
{
    return gLivePools;
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
    const Use use = Enter(); // the answer is found before it is left
    CMessage message(*this, use.get_deleter().OwnsRecord, *function, abortFlag, name);
    const std::int64_t start = gStatistics != 0 ? PerformanceCounter() : NoStatistics;

    if (mThreadCount <= 1 || !HasWorkers())
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
    message.SetDoneEvent(nullptr);
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
    CWorkerSlot* const own = OwnSlot();
    if (own == nullptr && !doneEvent.Create())
    {
        (void)Complain(15, RunFailed);
        return false;
    }
    message.SetDoneEvent(own != nullptr ? &own->Wake : &doneEvent);
    message.QueueCopies(false);
    message.RunOnCaller();
    // A job that calls `Run` itself must not wait for workers that may be waiting for it.
    if (own != nullptr)
        message.TakeBackCopies();
    const std::int32_t spins = message.AwaitSleeping(own);
    if (start != NoStatistics)
    {
        DebugOutputF("CThreadPool %d threads asym job %s %s: %lld calls/s; %d Unlock-Spins\n",
                     mThreadCount, message.Name(), message.Outcome(), CallsPerSecond(start), spins);
    }
    return true;
}

CThreadPool* CreateThreadPool(std::int32_t count, Result* failure) noexcept
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
    const Result result = pool == nullptr ? Ossira::E_OUTOFMEMORY : pool->StartWorkers();
    if (!Ossira::Failed(result))
        return pool;
    delete pool;
    if (failure != nullptr)
        *failure = result;
    return nullptr;
}

} // namespace Tavrik::tSystem::tThreads
