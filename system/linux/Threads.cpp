// Threads.
//
// A thread cannot be held from outside here: a signal that stopped it might find it inside the
// allocator with a lock held, and whoever then asks for memory waits for ever.
#include "../threads/PlatformThreads.h"

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

void* OnThread(void* argument)
{
    RunNativeThread(argument);
    return nullptr;
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

bool CNativeThread::Start(void* argument) noexcept
{
    pthread_t thread;
    if (pthread_create(&thread, nullptr, OnThread, argument) != 0)
        return false;
    mHandle = reinterpret_cast<void*>(thread);
    return true;
}

bool CNativeThread::Suspend() noexcept
{
    return false;
}

void CNativeThread::Resume() noexcept
{
}

void CNativeThread::Close(bool isEnding) noexcept
{
    if (mHandle == nullptr)
        return;
    const auto thread = reinterpret_cast<pthread_t>(mHandle);
    mHandle = nullptr;
    if (isEnding)
        pthread_join(thread, nullptr);
    else
        pthread_detach(thread);
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
