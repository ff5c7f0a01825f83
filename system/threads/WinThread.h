// One thread of the platform, as the pool and others use it.
#pragma once

#include "Event.h"
#include "OssiraThreads.h"

#include <memory>

namespace Tavrik::tSystem::tThreads
{

class WinThread final : public IThread
{
public:
    // A new object, owned by the caller, or null when memory is exhausted. No thread yet.
    [[nodiscard]] static WinThread* Create() noexcept;

    ~WinThread();
    WinThread(const WinThread&) = delete;
    WinThread& operator=(const WinThread&) = delete;

    void* DeletingDestructor(std::uint32_t flags) override;
    void Release() override;
    std::uint8_t Start(IThreadFunction* function, void* parameter) override;
    std::uint8_t Stop() override;
    std::int32_t GetState() override;
    std::uint8_t Suspend() override;
    std::uint8_t Resume() override;
    void Wait() override;
    std::uint32_t GetThreadId() override;

    // As `Start`, which answers whether this succeeds: `S_OK`, `E_OUTOFMEMORY`, or `E_FAIL` when it
    // is refused or there are no threads to be had.
    [[nodiscard]] Result TryStart(IThreadFunction* function, void* parameter) noexcept;

    // As `Wait`, with a time-out; answers whether the function has returned. It never will when the
    // thread is gone, which is the same here.
    bool WaitFor(std::uint32_t milliseconds) noexcept;

    // The objects of this class that live in the process.
    [[nodiscard]] static std::int32_t LiveCount() noexcept;

    // What the thread holds of its run.
    struct CRun;
    struct DropRun
    {
        void operator()(CRun* run) const noexcept;
    };
    using RunPtr = std::unique_ptr<CRun, DropRun>;

private:
    WinThread() noexcept;

    [[nodiscard]] bool IsFinished() const noexcept;
    [[nodiscard]] bool IsFinishedOrGone() noexcept;

    std::atomic<std::int32_t> mState = ThreadNotStarted;
    CNativeThread mThread;
    IThreadFunction* mFunction = nullptr; // until it was asked to stop
    RunPtr mRun;                          // null until the first start
};

} // namespace Tavrik::tSystem::tThreads
