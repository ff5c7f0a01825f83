// One run of a job by a pool.
#pragma once

#include "ThreadPool.h"

#include <array>

namespace Tavrik::tSystem::tThreads
{

// The caller's view of the run. It lives on the stack of the thread that called `Run` and only as
// long as that call, which ends when all copies are done.
class CThreadPool::CMessage
{
public:
    // `ownsRecord`: this run has the pool's record. `name` may be null.
    CMessage(CThreadPool& pool, bool ownsRecord, IThreadFunction& function, std::uint8_t* abortFlag,
             const char* name) noexcept;
    CMessage(const CMessage&) = delete;
    CMessage& operator=(const CMessage&) = delete;

    // Runs what was handed out to a worker, if there is something.
    static void RunNext(CWorkerSlot& slot) noexcept;

    // Calls the job once, whatever the flag says.
    void Run() noexcept;

    // The event to be set when the caller sleeps and a copy is done, null for a caller that never
    // sleeps; before any copy is handed out.
    void SetDoneEvent(CEvent* event) noexcept;

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

    // Of the copies that were handed out, as long as none is taken back.
    [[nodiscard]] int CountDone() const noexcept;
    [[nodiscard]] bool IsAborted() const noexcept;
    [[nodiscard]] const char* Name() const noexcept;
    [[nodiscard]] const char* Outcome() const noexcept;

private:
    static void CallJob(const CRunRecord& run) noexcept;
    static void RunCopy(const CRunRecord& run, CCopyState& state) noexcept;
    [[nodiscard]] CCopyState& FirstUndone() noexcept;
    [[nodiscard]] bool IsDone() noexcept;
    [[nodiscard]] static bool Helps(const CWorkerSlot& own) noexcept;
    static void HelpOut(CWorkerSlot* own) noexcept;

    CThreadPool& mPool;
    bool mOwnsRecord;
    CRunRecord mOwnRecord;
    CRunRecord& mRecord; // the pool's, or that one
    int mHandedOut = 0;
    std::uint64_t mUndone = 0; // the workers that have a copy which was not seen done, bit by bit
    union                      // so that nothing of it is made before it is queued
    {
        std::array<CQueuedCopy, MaxThreads> mCopies; // of a run without the pool's record
    };
};

} // namespace Tavrik::tSystem::tThreads
