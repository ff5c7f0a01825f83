// What a platform supplies for threads. Each platform defines in its folder, in Threads.cpp, what
// is declared here; above it there is no platform header and no #ifdef.
#pragma once

#include "Platform.h"

namespace Tavrik::tSystem::tThreads
{

// Where threads sleep until a word changes.
class CParkingPlace
{
public:
    CParkingPlace() noexcept = default;
    ~CParkingPlace();
    CParkingPlace(const CParkingPlace&) = delete;
    CParkingPlace& operator=(const CParkingPlace&) = delete;

    // Call it before the others. False when the platform has no place left; later calls do nothing.
    [[nodiscard]] bool Create() noexcept;

    // Sleeps if `word` is `value`, until a wake-up or the time-out. It may return for no reason.
    // A wake-up that comes after the word was seen is not lost.
    void Park(const std::atomic<std::uint32_t>& word, std::uint32_t value,
              std::uint32_t milliseconds) noexcept;

    // Wakes one thread that sleeps on `word`. It may be remembered for the next one to sleep.
    void Wake(std::atomic<std::uint32_t>& word) noexcept;

    // Forgets remembered wake-ups.
    void Clear() noexcept;

private:
    void* mHandle = nullptr; // for a platform that needs one
};

// A thread of the platform.
class CNativeThread
{
public:
    CNativeThread() noexcept = default;
    ~CNativeThread();
    CNativeThread(const CNativeThread&) = delete;
    CNativeThread& operator=(const CNativeThread&) = delete;

    enum class EStart : std::uint8_t
    {
        Started,
        NoMemory,
        NoThreads
    };

    // Runs `RunNativeThread(argument)` on a new thread with the platform's default stack.
    [[nodiscard]] EStart Start(void* argument) noexcept;

    // Stops it where it is and lets it go on. False where the platform cannot do that soundly.
    [[nodiscard]] bool Suspend() noexcept;
    void Resume() noexcept;

    // Whether there is no such thread any more, also when it did not come to the end of its
    // function: the process may be ending without it, or be the copy of one that had it.
    [[nodiscard]] bool IsGone() const noexcept;

    // Lets go of the thread. One that is about to end (`isEnding`) has left the library's code when
    // this returns, so that the library may be unloaded; another one runs on.
    void Close(bool isEnding) noexcept;

private:
    void* mHandle = nullptr;
    void* mState = nullptr; // for the platform
};

// Where a process can be copied with but the one thread that asks for it: begins to notice that.
// False when memory is exhausted. And the number of copies between the first process and this one,
// 0 elsewhere.
[[nodiscard]] bool WatchForks() noexcept;
[[nodiscard]] std::uint32_t CountForks() noexcept;

// What runs on a new thread; it is defined above the platform.
void RunNativeThread(void* argument) noexcept;

// The platform's identifier of this thread, never 0.
[[nodiscard]] std::uint32_t CurrentThreadId() noexcept;

// The processors that this process may use, at least 1.
[[nodiscard]] std::int32_t CountProcessors() noexcept;

// Lets other threads run that wait for this processor.
void GiveWay() noexcept;

// A steady clock and its ticks per second.
[[nodiscard]] std::int64_t PerformanceCounter() noexcept;
[[nodiscard]] std::int64_t PerformanceFrequency() noexcept;

} // namespace Tavrik::tSystem::tThreads
