// A pool of worker threads that run copies of one job side by side with the thread that asks for
// it. What its operations promise is said in OssiraThreads.h.
#pragma once

#include "LinkedList.h"
#include "OssiraThreads.h"
#include "WorkerSlot.h"

#include <array>

namespace Tavrik::tSystem::tThreads
{

// The pool is the function of its own workers: their `Run` is the worker loop.
class CThreadPool final : public IThreadPool,
                          public IThreadFunction,
                          public CLinkedList<CThreadPool>::CLinks
{
public:
    static constexpr std::int32_t MaxThreads = 64;

    explicit CThreadPool(std::int32_t threadCount) noexcept;
    ~CThreadPool(); // while no run is under way
    CThreadPool(const CThreadPool&) = delete;
    CThreadPool& operator=(const CThreadPool&) = delete;

    // Starts the workers and returns when all of them run. After a failure, whose line has then
    // been written, the pool is good for destruction only.
    [[nodiscard]] Result StartWorkers() noexcept;

    // Ends the workers and waits for them, also for those that are gone already. From then on runs
    // are the caller's alone.
    void EndWorkers() noexcept;

    void* DeletingDestructor(std::uint32_t flags) override;
    Result Release() override;
    Result Run(IThreadFunction* function, std::uint8_t* abortFlag, std::uint8_t symmetric,
               const char* name) override;
    std::int32_t GetThreadCount() override;

    void Run(void* slot) override;
    void RequestStop() override;

    // The index of the worker that calls this, or -1 on any other thread.
    [[nodiscard]] std::int32_t CurrentWorker() noexcept;

    // The pools that live in the process.
    [[nodiscard]] static std::int32_t LiveCount() noexcept;

    // Ends the workers of all pools of the process, which stay.
    static void EndAllWorkers() noexcept;

    // One line for each run of every pool of the process.
    static void SwitchStatistics(bool on) noexcept;

private:
    class CMessage;

    // `start` is when the run began, for the statistics. An asymmetric run fails when there is no
    // event to be had.
    void RunAlone(CMessage& message, std::int64_t start) noexcept;
    void RunSymmetric(CMessage& message, std::int64_t start) noexcept;
    [[nodiscard]] bool RunAsymmetric(CMessage& message, std::int64_t start) noexcept;

    [[nodiscard]] Result CreateSlots() noexcept;
    [[nodiscard]] Result StartThreads() noexcept;

    // The slot of the thread that calls this if it is a worker of any pool, or null.
    [[nodiscard]] static CWorkerSlot* OwnSlot() noexcept;

    // Not after they were ended, and not in a process that is a copy of theirs.
    [[nodiscard]] bool HasWorkers() const noexcept;

    // The record goes to whoever enters while nobody has it.
    static constexpr std::int32_t RecordTaken = 1 << 30;
    void Leave(std::int32_t uses) noexcept;

    // Keeps the pool. Whoever leaves last destroys it: its owner, or, when the owner gave it up
    // while jobs ran and maybe by a job itself, the thread that asked for the last run. That is
    // never one of its own workers, for what those run belongs to a run that is not over.
    struct LeavePool
    {
        void operator()(CThreadPool* pool) const noexcept
        {
            pool->Leave(OwnsRecord ? 1 + RecordTaken : 1);
        }

        bool OwnsRecord = false;
    };
    using Use = std::unique_ptr<CThreadPool, LeavePool>;
    [[nodiscard]] Use Enter() noexcept;

    std::atomic<std::int32_t> mUses = 1; // and whether the record is taken
    std::atomic<bool> mHasWorkers = false;
    std::uint32_t mForks = 0; // when they were started

    std::int32_t mThreadCount;
    bool mIsCrowded; // there are more threads than processors
    std::array<std::atomic<std::uintptr_t>, MaxThreads> mWorkers = {}; // their marks
    alignas(64) CRunRecord mRecord;                                    // of one run at a time
    std::array<CWorkerSlot, MaxThreads> mSlots; // the first mThreadCount are used
};

// A new pool, to be given up by `Release`, or null; then `failure`, if it is wanted, says whether
// it was memory that lacked, `E_OUTOFMEMORY`, or threads, `E_FAIL`. A count above 64 is cut, with a
// line; below 1 it stands for one less than the machine has processors.
[[nodiscard]] CThreadPool* CreateThreadPool(std::int32_t count, Result* failure = nullptr) noexcept;

} // namespace Tavrik::tSystem::tThreads
