// One run of a job by a pool.
#pragma once

#include "ThreadPool.h"

#include <array>

namespace Tavrik::tSystem::tThreads
{

// The record of the run. It lives on the stack of the thread that called `Run` and only as long as
// that call: what a worker tells the caller last, it tells without touching the record afterwards.
class CThreadPool::CMessage
{
public:
    // `name` may be null.
    CMessage(CThreadPool& pool, IThreadFunction& function, std::uint8_t* abortFlag,
             const char* name) noexcept;
    CMessage(const CMessage&) = delete;
    CMessage& operator=(const CMessage&) = delete;

    // Calls the job once. What it throws ends here, raises the flag and is told in a line.
    void Run() noexcept;

    // Runs the copy at the front of a worker's queue; false when there is none.
    static bool RunNext(CWorkerSlot& slot) noexcept;

    // --- For the caller of the run

    // The event to be set when the last copy was done; before any copy is queued.
    void SetDoneEvent(CEvent& event) noexcept;

    // Hands copies to the workers, one after the other, until the flag is raised. With `breakEarly`
    // also until those handed out so far are done: there is no work left. False after such a break.
    bool QueueCopies(bool breakEarly) noexcept;

    // The calling thread's own copy, unless the job is over already.
    void RunOnCaller() noexcept;

    // Takes back the copies that no worker has begun.
    void TakeBackCopies() noexcept;

    // Return when all copies are done, and answer the number of looks that it took. `own` is the
    // slot of the caller if that is a worker of any pool; null otherwise.
    std::int32_t AwaitSpinning() noexcept;
    std::int32_t AwaitSleeping(CWorkerSlot* own) noexcept;

    [[nodiscard]] std::int32_t CountDone() const noexcept;
    [[nodiscard]] bool IsAborted() const noexcept;
    [[nodiscard]] const char* Name() const noexcept;
    [[nodiscard]] const char* Outcome() const noexcept;

private:
    void RunOnWorker() noexcept;
    [[nodiscard]] bool IsDone() const noexcept;
    [[nodiscard]] static bool Helps(const CWorkerSlot& own) noexcept;
    static bool HelpOut(CWorkerSlot& own) noexcept;

    CThreadPool& mPool;
    IThreadFunction& mFunction;
    std::uint8_t* mAbortFlag;
    const char* mName;
    CEvent* mDoneEvent = nullptr;
    std::int32_t mQueued = 0;            // the caller's; workers read mExpected
    std::atomic<std::int32_t> mExpected; // whose copy is this one sets the event
    std::atomic<std::int32_t> mDone = 0;
    std::atomic<std::int32_t> mBusy = 0; // workers that will still touch the event or this record
    std::array<CQueuedCopy, MaxThreads> mCopies;
};

} // namespace Tavrik::tSystem::tThreads
