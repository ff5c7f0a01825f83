// A pool of worker threads that run copies of one job side by side with the thread that asks for
// it. What its operations promise is said in OssiraThreads.h.
#pragma once

#include "OssiraThreads.h"
#include "WorkerSlot.h"

#include <array>

namespace Tavrik::tSystem::tThreads
{

// The pool is the function of its own workers: their `Run` is the worker loop.
class CThreadPool final : public IThreadPool, public IThreadFunction
{
public:
    static constexpr std::int32_t MaxThreads = 64;

    explicit CThreadPool(std::int32_t threadCount) noexcept;
    ~CThreadPool();
    CThreadPool(const CThreadPool&) = delete;
    CThreadPool& operator=(const CThreadPool&) = delete;

    // Starts the workers and returns when all of them run. After a failure, whose line has then
    // been written, the pool is good for destruction only.
    [[nodiscard]] bool StartWorkers() noexcept;

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

    // One line for each run of every pool of the process.
    static void SwitchStatistics(bool on) noexcept;

private:
    class CMessage;

    // `start` is when the run began, for the statistics. An asymmetric run fails when there is no
    // event to be had.
    void RunAlone(CMessage& message, std::int64_t start) noexcept;
    void RunSymmetric(CMessage& message, std::int64_t start) noexcept;
    [[nodiscard]] bool RunAsymmetric(CMessage& message, std::int64_t start) noexcept;

    [[nodiscard]] bool CreateSlots() noexcept;
    [[nodiscard]] bool StartThreads() noexcept;

    std::int32_t mThreadCount;
    std::array<CWorkerSlot, MaxThreads> mSlots; // the first mThreadCount are used
};

// A new pool, to be given up by `Release`, or null. A count above 64 is cut, with a line; below 1
// it stands for one less than the machine has processors.
[[nodiscard]] CThreadPool* CreateThreadPool(std::int32_t count) noexcept;

} // namespace Tavrik::tSystem::tThreads
