// The life of a run: copies are handed out, the caller does a share of its own, and leaves when all
// of them are done or taken back. Between a caller and a worker that are both awake one cache line
// moves to and fro, that of the copy's state: the record is the same one run after the other, and
// what is written into it anew as a rule is what stands there.
#include "ThreadPoolMessage.h"

#include "OssiraDiagnostics.h"

#include <bit>
#include <memory>
#include <new>
#include <type_traits>

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

namespace
{

// A line that is not written stays in the caches of those who read it.
template <class Field>
void Put(Field& field, std::type_identity_t<Field> value) noexcept
{
    if (field != value)
        field = value;
}

} // namespace

CThreadPool::CMessage::CMessage(CThreadPool& pool, bool ownsRecord, IThreadFunction& function,
                                std::uint8_t* abortFlag, const char* name) noexcept
    : mPool(pool), mOwnsRecord(ownsRecord), mRecord(ownsRecord ? pool.mRecord : mOwnRecord)
{
    Put(mRecord.Pool, &pool);
    Put(mRecord.Function, &function);
    Put(mRecord.AbortFlag, abortFlag == nullptr ? &mRecord.OwnFlag : abortFlag);
    Put(mRecord.Name, name == nullptr ? "?" : name);
    if (IsAborted())
        CAbortFlag(mRecord.AbortFlag).Lower();
}

// What the job throws ends here, raises the flag and is told in a line.
void CThreadPool::CMessage::CallJob(const CRunRecord& run) noexcept
{
    try
    {
        run.Function->Run(run.AbortFlag);
    }
    catch (...)
    {
        const Result code = CodeOfCaught();
        CAbortFlag(run.AbortFlag).Raise();
        Ossira::DebugOutputF(
            "\aCThreadPool::CMessage::Run Thread:(%d) - Exception for %s: Code: 0x%X\n",
            run.Pool->CurrentWorker(), run.Name, static_cast<std::uint32_t>(code));
    }
}

void CThreadPool::CMessage::Run() noexcept
{
    CallJob(mRecord);
}

void CThreadPool::CMessage::RunNext(CWorkerSlot& slot) noexcept
{
    if (slot.First.Take())
        RunCopy(*slot.Record, slot.First);
    else if (CQueuedCopy* const copy = slot.Pop(); copy != nullptr && copy->State.Take())
        RunCopy(*copy->Run, copy->State);
}

// A caller that sleeps stays until this leaves; one that is awake is gone as soon as it sees the
// copy done, and the record and the event may be gone with it.
void CThreadPool::CMessage::RunCopy(const CRunRecord& run, CCopyState& state) noexcept
{
    // The copies of the other workers are waited for too, and those may wait for this processor.
    const bool givesWay = run.DoneEvent != nullptr && run.Pool->mIsCrowded;
    if (!CAbortFlag(run.AbortFlag).IsRaised())
        CallJob(run);
    if (!state.Finish())
    {
        run.DoneEvent->Set();
        state.Leave();
    }
    if (givesWay)
        GiveWay();
}

void CThreadPool::CMessage::SetDoneEvent(CEvent* event) noexcept
{
    Put(mRecord.DoneEvent, event);
}

CCopyState& CThreadPool::CMessage::FirstUndone() noexcept
{
    const auto worker = static_cast<std::size_t>(std::countr_zero(mUndone));
    return mOwnsRecord ? mPool.mSlots[worker].First : mCopies[worker].State;
}

bool CThreadPool::CMessage::QueueCopies(bool breakEarly) noexcept
{
    const auto count = static_cast<std::size_t>(mPool.mThreadCount);
    for (std::size_t worker = 0; worker < count; ++worker)
    {
        if (breakEarly && worker > 0 && IsDone())
            return false;
        if (IsAborted())
            return true;
        mUndone |= std::uint64_t{1} << worker;
        ++mHandedOut;
        CWorkerSlot& slot = mPool.mSlots[worker];
        if (mOwnsRecord)
            slot.Offer();
        else
            slot.Push(*std::construct_at(&mCopies[worker], &mRecord));
    }
    return true;
}

void CThreadPool::CMessage::RunOnCaller() noexcept
{
    if (!IsDone() && !IsAborted())
        CallJob(mRecord);
}

void CThreadPool::CMessage::TakeBackCopies() noexcept
{
    for (std::uint64_t left = mUndone; left != 0; left &= left - 1)
    {
        const auto worker = static_cast<std::size_t>(std::countr_zero(left));
        CWorkerSlot& slot = mPool.mSlots[worker];
        if (mOwnsRecord ? slot.First.TakeBack() : slot.TakeBack(mCopies[worker]))
            mUndone &= ~(std::uint64_t{1} << worker);
    }
}

// Deep enough for jobs that call each other, and far from the end of the stack. Whoever is deeper
// just waits, which is no danger: a worker waits for nothing but copies that others have begun
// after it began what it is at, so those who wait never form a circle.
bool CThreadPool::CMessage::Helps(const CWorkerSlot& own) noexcept
{
    constexpr int deepest = 8;
    return own.Helping < deepest;
}

void CThreadPool::CMessage::HelpOut(CWorkerSlot* own) noexcept
{
    if (own == nullptr || !own->HasCopies() || !Helps(*own))
        return;
    ++own->Helping;
    RunNext(*own);
    --own->Helping;
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
        HelpOut(own);
        if (spins > pauses)
            GiveWay();
    }
    return spins;
}

// It looks for a while as workers do, because waking it would cost more than many a job, and then
// sleeps until the first of the copies that are left is done.
std::int32_t CThreadPool::CMessage::AwaitSleeping(CWorkerSlot* own) noexcept
{
    const auto canHelp = [own]
    {
        return own != nullptr && own->HasCopies() && Helps(*own);
    };
    std::int32_t sleeps = 0;
    while (!IsDone())
    {
        HelpOut(own);
        if (!LookWhether([&] { return IsDone() || canHelp(); }, mPool.mIsCrowded))
        {
            CCopyState& first = FirstUndone();
            if (own != nullptr)
                own->Sleep([&] { return canHelp() || !first.Await(); });
            else if (first.Await())
                mRecord.DoneEvent->Wait();
            ++sleeps;
        }
    }
    return sleeps;
}

bool CThreadPool::CMessage::IsDone() noexcept
{
    for (; mUndone != 0; mUndone &= mUndone - 1)
    {
        if (!FirstUndone().IsDone())
            return false;
    }
    return true;
}

int CThreadPool::CMessage::CountDone() const noexcept
{
    return mHandedOut - std::popcount(mUndone);
}

bool CThreadPool::CMessage::IsAborted() const noexcept
{
    return CAbortFlag(mRecord.AbortFlag).IsRaised();
}

const char* CThreadPool::CMessage::Name() const noexcept
{
    return mRecord.Name;
}

const char* CThreadPool::CMessage::Outcome() const noexcept
{
    return IsAborted() ? "aborted" : "finished";
}

} // namespace Tavrik::tSystem::tThreads
