// Threads, and sleeping on an auto-reset event of the system, which remembers a wake-up that nobody
// waited for.
#include "../threads/PlatformThreads.h"

#include <windows.h>

namespace Tavrik::tSystem::tThreads
{

namespace
{

DWORD WINAPI OnThread(void* argument)
{
    RunNativeThread(argument);
    return 0;
}

} // namespace

CParkingPlace::~CParkingPlace()
{
    if (mHandle != nullptr)
        CloseHandle(mHandle);
}

bool CParkingPlace::Create() noexcept
{
    constexpr BOOL autoReset = FALSE;
    constexpr BOOL notSignalled = FALSE;
    if (mHandle == nullptr)
        mHandle = CreateEventW(nullptr, autoReset, notSignalled, nullptr);
    return mHandle != nullptr;
}

void CParkingPlace::Park(const std::atomic<std::uint32_t>& word, std::uint32_t value,
                         std::uint32_t milliseconds) noexcept
{
    static_assert(Forever == INFINITE);
    if (word.load() == value)
        WaitForSingleObject(mHandle, milliseconds);
}

void CParkingPlace::Wake(std::atomic<std::uint32_t>&) noexcept
{
    SetEvent(mHandle);
}

void CParkingPlace::Clear() noexcept
{
    ResetEvent(mHandle);
}

CNativeThread::~CNativeThread()
{
    Close(false);
}

bool CNativeThread::Start(void* argument) noexcept
{
    mHandle = CreateThread(nullptr, 0, OnThread, argument, 0, nullptr);
    return mHandle != nullptr;
}

bool CNativeThread::Suspend() noexcept
{
    constexpr auto failed = static_cast<DWORD>(-1);
    return SuspendThread(mHandle) != failed;
}

void CNativeThread::Resume() noexcept
{
    ResumeThread(mHandle);
}

void CNativeThread::Close(bool isEnding) noexcept
{
    if (mHandle == nullptr)
        return;
    // Not for ever: while a library is detached, the system lets no thread end, and one that has
    // left our code waits until that is over.
    constexpr DWORD enoughToLeave = 20;
    if (isEnding)
        WaitForSingleObject(mHandle, enoughToLeave);
    CloseHandle(mHandle);
    mHandle = nullptr;
}

std::uint32_t CurrentThreadId() noexcept
{
    return GetCurrentThreadId();
}

std::int32_t CountProcessors() noexcept
{
    SYSTEM_INFO info = {};
    GetSystemInfo(&info);
    return info.dwNumberOfProcessors < 1 ? 1 : static_cast<std::int32_t>(info.dwNumberOfProcessors);
}

void GiveWay() noexcept
{
    Sleep(0);
}

std::int64_t PerformanceCounter() noexcept
{
    LARGE_INTEGER now = {};
    QueryPerformanceCounter(&now);
    return now.QuadPart;
}

std::int64_t PerformanceFrequency() noexcept
{
    static const std::int64_t frequency = []
    {
        LARGE_INTEGER ticks = {};
        QueryPerformanceFrequency(&ticks);
        return std::int64_t{ticks.QuadPart};
    }();
    return frequency;
}

} // namespace Tavrik::tSystem::tThreads
