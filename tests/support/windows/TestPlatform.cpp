// What Windows supplies to the tests.
#include "TestPlatform.h"

#include <array>
#include <cstring>
#include <fstream>
#include <mutex>
#include <stdexcept>

#include <windows.h>

#include <psapi.h>

namespace Tavrik::Ossira::tTest
{

namespace
{

// What `OutputDebugStringA` raises for a debugger to see.
constexpr DWORD DebugOutputException = 0x40010006;

std::mutex gTapLock;
std::string* gTapped = nullptr;

LONG CALLBACK OnException(EXCEPTION_POINTERS* pointers)
{
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode != DebugOutputException || record.NumberParameters < 2)
        return EXCEPTION_CONTINUE_SEARCH;
    const std::lock_guard guard(gTapLock);
    if (gTapped == nullptr)
        return EXCEPTION_CONTINUE_SEARCH;
    gTapped->append(reinterpret_cast<const char*>(record.ExceptionInformation[1]));
    return EXCEPTION_CONTINUE_EXECUTION;
}

// A handle that is closed with its owner.
class Handle
{
public:
    explicit Handle(HANDLE handle) : mHandle(handle)
    {
        if (handle == nullptr || handle == INVALID_HANDLE_VALUE)
            throw std::runtime_error("no handle");
    }

    ~Handle()
    {
        CloseHandle(mHandle);
    }

    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    [[nodiscard]] HANDLE Get() const
    {
        return mHandle;
    }

private:
    HANDLE mHandle;
};

// A file that vanishes when its last handle is closed; children inherit it.
HANDLE OpenOutputFile()
{
    std::array<wchar_t, MAX_PATH> folder{};
    std::array<wchar_t, MAX_PATH> file{};
    GetTempPathW(MAX_PATH, folder.data());
    GetTempFileNameW(folder.data(), L"oss", 0, file.data());
    SECURITY_ATTRIBUTES inherited = {sizeof inherited, nullptr, TRUE};
    return CreateFileW(file.data(), GENERIC_READ | GENERIC_WRITE,
                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, &inherited,
                       CREATE_ALWAYS, FILE_FLAG_DELETE_ON_CLOSE, nullptr);
}

std::string ContentOf(const Handle& file)
{
    std::string content;
    std::array<char, 4096> buffer;
    SetFilePointer(file.Get(), 0, nullptr, FILE_BEGIN);
    DWORD count = 0;
    while (ReadFile(file.Get(), buffer.data(), static_cast<DWORD>(buffer.size()), &count,
                    nullptr) != 0 &&
           count != 0)
        content.append(buffer.data(), count);
    return content;
}

} // namespace

struct CDebugOutputTap::State
{
    std::string Text;
    void* Handler = AddVectoredExceptionHandler(1, &OnException);
};

CDebugOutputTap::CDebugOutputTap() : mState(std::make_unique<State>())
{
    mState->Text.reserve(std::size_t{1} << 18); // so that listening needs no memory, as a rule
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
    PROCESS_MEMORY_COUNTERS_EX counters = {};
    GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&counters),
                         sizeof counters);
    memory.Process = counters.PrivateUsage;
    return memory;
}

ProgramResult RunProgram(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments, std::chrono::seconds timeout)
{
    const Handle output(OpenOutputFile());
    std::wstring line = L"\"" + program.wstring() + L"\"";
    for (const std::string& argument : arguments)
        line += L" \"" + std::filesystem::path(argument).wstring() + L"\"";

    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESTDHANDLES;
    startup.hStdOutput = output.Get();
    startup.hStdError = output.Get();
    PROCESS_INFORMATION information = {};
    if (CreateProcessW(nullptr, line.data(), nullptr, nullptr, TRUE, 0, nullptr, nullptr, &startup,
                       &information) == 0)
        throw std::runtime_error("cannot run " + program.string());
    const Handle process(information.hProcess);
    const Handle thread(information.hThread);

    ProgramResult result;
    const auto milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(timeout);
    if (WaitForSingleObject(process.Get(), static_cast<DWORD>(milliseconds.count())) != WAIT_OBJECT_0)
    {
        TerminateProcess(process.Get(), 1);
        result.ExitCode = -1;
    }
    else
    {
        DWORD code = 0;
        GetExitCodeProcess(process.Get(), &code);
        result.ExitCode = static_cast<int>(code);
    }
    result.Output = ContentOf(output);
    return result;
}

void PatchMachineType(std::string& image)
{
    std::uint32_t header = 0;
    std::memcpy(&header, image.data() + 0x3C, sizeof header);
    constexpr std::uint16_t someOtherMachine = 0x01C0; // ARM
    std::memcpy(image.data() + header + 4, &someOtherMachine, sizeof someOtherMachine);
}

} // namespace Tavrik::Ossira::tTest
