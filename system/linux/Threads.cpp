// Threads, and sleeping on a futex: the kernel compares the word with the expected value before it
// puts a thread to sleep, so that no wake-up is lost.
//
// A thread cannot be held from outside here: a signal that stopped it might find it inside the
// allocator with a lock held, and whoever then asks for memory waits for ever.
#include "../threads/PlatformThreads.h"

#include <climits>
#include <ctime>
#include <linux/futex.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Tavrik::tSystem::tThreads
{

namespace
{

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t));
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
    const timespec duration = {milliseconds / 1000, milliseconds % 1000 * std::int64_t{1000000}};
    syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value,
            milliseconds == Forever ? nullptr : &duration, nullptr, 0);
}

void CParkingPlace::Wake(std::atomic<std::uint32_t>& word) noexcept
{
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
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

void Pause() noexcept
{
    __builtin_ia32_pause();
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
