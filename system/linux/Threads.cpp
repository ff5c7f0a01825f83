// Threads.
//
// A thread cannot be held from outside here: a signal that stopped it might find it inside the
// allocator with a lock held, and whoever then asks for memory waits for ever.
#include "../threads/PlatformThreads.h"

#include <cerrno>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tavrik::tSystem::tThreads
{

namespace
{

static_assert(sizeof(pthread_t) <= sizeof(void*));

constinit std::atomic<std::uint32_t> gForkCount = 0;

void* OnThread(void* argument)
{
    RunNativeThread(argument);
    return nullptr;
}

void OnFork()
{
    gForkCount.fetch_add(1);
}

// What a thread's state is set to when it is started: threads of another process are gone.
[[nodiscard]] void* ForkMark() noexcept
{
    return reinterpret_cast<void*>(std::uintptr_t{CountForks()});
}

} // namespace

CParkingPlace::~CParkingPlace() = default;

bool CParkingPlace::Create() noexcept
{
    return true;
}

void CParkingPlace::Park(const std::atomic<std::uint32_t>& word, std::uint32_t value,
                         std::uint32_t milliseconds) noexcept
{
    SleepOnWord(word, value, milliseconds);
}

void CParkingPlace::Wake(std::atomic<std::uint32_t>& word) noexcept
{
    WakeOnWord(word);
}

void CParkingPlace::Clear() noexcept
{
}

CNativeThread::~CNativeThread()
{
    Close(false);
}

CNativeThread::EStart CNativeThread::Start(void* argument) noexcept
{
    pthread_t thread;
    if (const int error = pthread_create(&thread, nullptr, OnThread, argument); error != 0)
        return error == ENOMEM ? EStart::NoMemory : EStart::NoThreads;
    mHandle = reinterpret_cast<void*>(thread);
    mState = ForkMark();
    return EStart::Started;
}

bool CNativeThread::Suspend() noexcept
{
    return false;
}

void CNativeThread::Resume() noexcept
{
}

bool CNativeThread::IsGone() const noexcept
{
    return mState != ForkMark();
}

void CNativeThread::Close(bool isEnding) noexcept
{
    if (mHandle == nullptr)
        return;
    const auto thread = reinterpret_cast<pthread_t>(mHandle);
    mHandle = nullptr;
    if (IsGone())
        return; // the thread library of this process has never known it
    if (isEnding)
        pthread_join(thread, nullptr);
    else
        pthread_detach(thread);
}

bool WatchForks() noexcept
{
    static const bool isWatching = pthread_atfork(nullptr, nullptr, OnFork) == 0;
    return isWatching;
}

std::uint32_t CountForks() noexcept
{
    return gForkCount.load(std::memory_order_relaxed);
}

std::uint32_t CurrentThreadId() noexcept
{
    return static_cast<std::uint32_t>(syscall(SYS_gettid));
}

std::int32_t CountProcessors() noexcept
{
    cpu_set_t usable;
    if (sched_getaffinity(0, sizeof usable, &usable) == 0)
        return CPU_COUNT(&usable);
    // A machine with more processors than the set has room for.
    const auto online = sysconf(_SC_NPROCESSORS_ONLN);
    return online < 1 ? 1 : static_cast<std::int32_t>(online);
}

void GiveWay() noexcept
{
    sched_yield();
}

std::int64_t PerformanceCounter() noexcept
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t{now.tv_sec} * PerformanceFrequency() + now.tv_nsec;
}

std::int64_t PerformanceFrequency() noexcept
{
    return 1000000000;
}

} // namespace Tavrik::tSystem::tThreads
