// Threads, and sleeping on an auto-reset event of the system, which remembers a wake-up that nobody
// waited for.
#include "../threads/PlatformThreads.h"

#include <new>
#include <windows.h>

extern "C" IMAGE_DOS_HEADER __ImageBase; // of this library, as the linker defines it

namespace Tavrik::tSystem::tThreads
{

namespace
{

enum class ELeaving
{
    Runs,
    OnItsOwn, // nobody will wait for it
    Leaves    // all that it does any more is to end
};

// Shared by the thread and its object; the one that comes second to its end frees it.
struct CStart
{
    void* Argument;
    std::atomic<ELeaving> State = ELeaving::Runs;
};

// The call that ends the thread must follow the mark without any other call: who sees the mark and
// then finds the thread outside of this library knows that it never comes back.
DWORD WINAPI OnThread(void* parameter)
{
    auto* const start = static_cast<CStart*>(parameter);
    RunNativeThread(start->Argument);
    ELeaving runs = ELeaving::Runs;
    if (!start->State.compare_exchange_strong(runs, ELeaving::Leaves))
        delete start;
    ExitThread(0);
}

[[nodiscard]] bool IsSignalled(HANDLE object) noexcept
{
    return WaitForSingleObject(object, 0) == WAIT_OBJECT_0;
}

[[nodiscard]] bool IsOutsideOfLibrary(HANDLE thread) noexcept
{
    constexpr auto failed = static_cast<DWORD>(-1);
    if (SuspendThread(thread) == failed)
        return false;
    CONTEXT context = {};
    context.ContextFlags = CONTEXT_CONTROL;
    const bool isKnown = GetThreadContext(thread, &context) != 0; // it has stopped by then
    ResumeThread(thread);
    MEMORY_BASIC_INFORMATION memory = {};
    return isKnown &&
           VirtualQuery(reinterpret_cast<void*>(context.Rip), &memory, sizeof memory) != 0 &&
           memory.AllocationBase != &__ImageBase;
}

// While a library is detached the system lets no thread end, and one that has left our code waits
// until that is over. So the thread's end is waited for only as long as it takes where it can end;
// from then on it is enough that it cannot come back.
void AwaitLeaving(HANDLE thread, const CStart& start) noexcept
{
    constexpr int looks = 50;
    for (int look = 0; !IsSignalled(thread); ++look)
    {
        if (look > looks && start.State == ELeaving::Leaves && IsOutsideOfLibrary(thread))
            return;
        GiveWay();
    }
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

CNativeThread::EStart CNativeThread::Start(void* argument) noexcept
{
    auto* const start = new (std::nothrow) CStart{argument};
    if (start == nullptr)
        return EStart::NoMemory;
    mHandle = CreateThread(nullptr, 0, OnThread, start, 0, nullptr);
    if (mHandle != nullptr)
    {
        mState = start;
        return EStart::Started;
    }
    const DWORD error = GetLastError();
    delete start;
    return error == ERROR_NOT_ENOUGH_MEMORY ? EStart::NoMemory : EStart::NoThreads;
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

// When a process ends, the system has stopped all threads but one, wherever they were.
bool CNativeThread::IsGone() const noexcept
{
    return mHandle == nullptr || IsSignalled(mHandle);
}

void CNativeThread::Close(bool isEnding) noexcept
{
    if (mHandle == nullptr)
        return;
    auto* const start = static_cast<CStart*>(mState);
    if (isEnding)
        AwaitLeaving(mHandle, *start);
    ELeaving runs = ELeaving::Runs;
    if (IsGone() || !start->State.compare_exchange_strong(runs, ELeaving::OnItsOwn))
        delete start;
    CloseHandle(mHandle);
    mHandle = nullptr;
}

bool WatchForks() noexcept
{
    return true;
}

std::uint32_t CountForks() noexcept
{
    return 0;
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
