// What Windows supplies to the tests.
#include "TestPlatform.h"

#include <array>
#include <mutex>
#include <string_view>

#include <windows.h>

#include <psapi.h>
#include <tlhelp32.h>

namespace Tavrik::Ossira::tTest
{

namespace
{

std::mutex gTapLock;
std::string* gTapped = nullptr;

// What finds no room is lost: this runs where memory may be made to fail, and must not throw.
LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers)
{
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode !=
        DBG_PRINTEXCEPTION_C) // what is thrown under the lock comes here too
        return EXCEPTION_CONTINUE_SEARCH;
    const std::lock_guard guard(gTapLock);
    if (gTapped == nullptr)
        return EXCEPTION_CONTINUE_SEARCH;
    const std::string_view text = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
    if (text.size() <= gTapped->capacity() - gTapped->size())
        gTapped->append(text);
    return EXCEPTION_CONTINUE_EXECUTION;
}

int CountThreads()
{
    const HANDLE threads = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
    int count = 0;
    THREADENTRY32 thread = {};
    thread.dwSize = sizeof thread;
    for (BOOL more = Thread32First(threads, &thread); more != 0;
         more = Thread32Next(threads, &thread))
        count += thread.th32OwnerProcessID == GetCurrentProcessId() ? 1 : 0;
    CloseHandle(threads);
    return count;
}

} // namespace

struct CDebugOutputTap::State
{
    std::string Text;
    void* Handler = AddVectoredExceptionHandler(1, &OnException);
};

CDebugOutputTap::CDebugOutputTap(Stream) : mState(std::make_unique<State>())
{
    mState->Text.reserve(std::size_t{1} << 20);
    const std::lock_guard guard(gTapLock);
    gTapped = &mState->Text;
}

CDebugOutputTap::~CDebugOutputTap()
{
    RemoveVectoredExceptionHandler(mState->Handler);
    const std::lock_guard guard(gTapLock);
    gTapped = nullptr;
}

std::string CDebugOutputTap::Text() const
{
    const std::lock_guard guard(gTapLock);
    return mState->Text;
}

void CDebugOutputTap::Break(bool)
{
}

void (*const EndThisThread)() = nullptr;
void (*const CancelThisThread)() = nullptr;

std::filesystem::path ProgramPath()
{
    std::array<wchar_t, 1024> path{};
    GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
    return path.data();
}

bool IsMapped(const std::filesystem::path& library)
{
    return GetModuleHandleW(library.filename().c_str()) != nullptr;
}

std::optional<int> ExitCodeInCopy(const std::function<int()>&)
{
    return std::nullopt;
}

void AwaitOtherThreads()
{
    for (int look = 0; look < 1000 && CountThreads() > 1; ++look)
        Sleep(10);
}

const bool UniqueSymbolsKeepALibraryMapped = false;

MemoryInUse MeasureMemory()
{
    MemoryInUse memory;
    std::array<HANDLE, 16> heaps{};
    const DWORD count = GetProcessHeaps(static_cast<DWORD>(heaps.size()), heaps.data());
    for (DWORD index = 0; index < count && index < heaps.size(); ++index)
    {
        PROCESS_HEAP_ENTRY entry = {};
        HeapLock(heaps[index]);
        while (HeapWalk(heaps[index], &entry) != 0)
            memory.Heap += (entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) != 0 ? entry.cbData : 0;
        HeapUnlock(heaps[index]);
    }
    PROCESS_MEMORY_COUNTERS counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters);
    memory.Process = counters.PagefileUsage;
    return memory;
}

OpenThings CountOpenThings()
{
    DWORD handles = 0;
    DWORD size = 0;
    GetProcessHandleCount(GetCurrentProcess(), &handles);
    EnumProcessModules(GetCurrentProcess(), nullptr, 0, &size);
    return {handles, static_cast<std::size_t>(CountThreads()), size / sizeof(HMODULE)};
}

} // namespace Tavrik::Ossira::tTest
