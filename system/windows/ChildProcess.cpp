// A child belongs to a job object, which takes along whatever it started, and which the system ends
// when this process ends in whatever way. It inherits the ends of its own pipes and nothing else,
// so that no other child holds them, and it has no console, which would be one more process.
#include "../ChildProcess.h"
#include "../ChildCode.h"
#include "../WideText.h"

#include <windows.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <fcntl.h>
#include <io.h>
#include <memory>

namespace Tavrik::tSystem
{

namespace
{

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

struct CloseIt
{
    void operator()(HANDLE handle) const noexcept
    {
        CloseHandle(handle);
    }
};

using Handle = std::unique_ptr<void, CloseIt>;

struct Pipe
{
    Handle Read;
    Handle Write; // can be inherited
};

bool MakePipe(Pipe& pipe)
{
    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    HANDLE read = nullptr;
    HANDLE write = nullptr;
    if (!CreatePipe(&read, &write, &inheritable, 0))
        return false;
    pipe.Read.reset(read);
    pipe.Write.reset(write);
    return SetHandleInformation(read, HANDLE_FLAG_INHERIT, 0) != 0;
}

// Takes what is there, without waiting for more; what is beyond the limit is dropped. Whether the
// pipe ends is of no interest: somebody whom the child started may have it too.
void Drain(HANDLE pipe, std::string& text)
{
    std::array<char, 16384> bytes; // NOLINT: filled by ReadFile
    DWORD size = 0;
    while (PeekNamedPipe(pipe, nullptr, 0, nullptr, &size, nullptr) && size > 0 &&
           ReadFile(pipe, bytes.data(), std::min<DWORD>(size, bytes.size()), &size, nullptr))
        text.append(bytes.data(),
                    std::min<std::size_t>(size, StreamLimit - std::min(text.size(), StreamLimit)));
}

// In quotes; a quote, and the backslashes before one, take a backslash each.
void AppendArgument(std::wstring& line, const std::wstring& argument)
{
    line += L" \"";
    std::size_t backslashes = 0;
    for (const wchar_t c : argument)
    {
        if (c == L'"')
            line.append(backslashes + 1, L'\\');
        backslashes = c == L'\\' ? backslashes + 1 : 0;
        line += c;
    }
    line.append(backslashes, L'\\');
    line += L'"';
}

std::wstring ThisProgram()
{
    std::wstring path(MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD size =
            GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
        if (size < path.size())
            return path.substr(0, size);
        path.resize(path.size() * 2);
    }
}

// The list of what a new process inherits.
class CInheritance
{
public:
    explicit CInheritance(std::array<HANDLE, 3>& handles)
    {
        SIZE_T size = 0;
        InitializeProcThreadAttributeList(nullptr, 1, 0, &size);
        mMemory = std::make_unique<char[]>(size);
        if (!InitializeProcThreadAttributeList(Get(), 1, 0, &size))
            return;
        mIsSet = UpdateProcThreadAttribute(Get(), 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST,
                                           handles.data(), sizeof handles, nullptr, nullptr);
    }
    ~CInheritance()
    {
        if (mIsSet)
            DeleteProcThreadAttributeList(Get());
    }
    CInheritance(const CInheritance&) = delete;
    CInheritance& operator=(const CInheritance&) = delete;

    [[nodiscard]] bool IsSet() const noexcept
    {
        return mIsSet;
    }

    [[nodiscard]] LPPROC_THREAD_ATTRIBUTE_LIST Get() const noexcept
    {
        return reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(mMemory.get());
    }

private:
    std::unique_ptr<char[]> mMemory;
    bool mIsSet = false;
};

// Null on failure; the error number is the thread's last. The child waits until it is in the job.
Handle Start(const std::vector<std::string>& arguments, const Pipe& reports, const Pipe& words,
             HANDLE job)
{
    std::wstring program = ThisProgram();
    std::wstring line;
    AppendArgument(line, program);
    for (const std::string& argument : arguments)
        AppendArgument(line, FromUtf8(argument));
    line.erase(0, 1);

    SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
    const Handle nothing(CreateFileW(L"NUL", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                     &inheritable, OPEN_EXISTING, 0, nullptr));
    std::array<HANDLE, 3> handles = {nothing.get(), reports.Write.get(), words.Write.get()};
    const CInheritance inheritance(handles);
    if (!inheritance.IsSet())
        return nullptr;
    STARTUPINFOEXW startup = {};
    startup.StartupInfo.cb = sizeof startup;
    startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
    startup.StartupInfo.hStdInput = handles[0];
    startup.StartupInfo.hStdOutput = handles[1];
    startup.StartupInfo.hStdError = handles[2];
    startup.lpAttributeList = inheritance.Get();
    PROCESS_INFORMATION process = {};
    if (!CreateProcessW(program.c_str(), line.data(), nullptr, nullptr, TRUE,
                        CREATE_SUSPENDED | DETACHED_PROCESS | EXTENDED_STARTUPINFO_PRESENT, nullptr,
                        nullptr, &startup.StartupInfo, &process))
        return nullptr;
    const Handle thread(process.hThread);
    AssignProcessToJobObject(job, process.hProcess);
    ResumeThread(thread.get());
    return Handle(process.hProcess);
}

Handle MakeJob()
{
    Handle job(CreateJobObjectW(nullptr, nullptr));
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags = JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE;
    SetInformationJobObject(job.get(), JobObjectExtendedLimitInformation, &limits, sizeof limits);
    return job;
}

struct CrashWords
{
    DWORD Code;
    const char* Words;
};

constexpr CrashWords Crashes[] = {
    {EXCEPTION_ACCESS_VIOLATION, "access violation"},
    {EXCEPTION_STACK_OVERFLOW, "stack overflow"},
    {EXCEPTION_ILLEGAL_INSTRUCTION, "illegal instruction"},
    {EXCEPTION_PRIV_INSTRUCTION, "privileged instruction"},
    {EXCEPTION_INT_DIVIDE_BY_ZERO, "division by zero"},
    {EXCEPTION_BREAKPOINT, "breakpoint"},
    {EXCEPTION_IN_PAGE_ERROR, "page that could not be read"},
    {EXCEPTION_DATATYPE_MISALIGNMENT, "misaligned access"},
    {0xC0000374, "damaged heap"},
    {0xC0000409, "damaged stack, or an end at once"},
    {0xC0000135, "missing library"},
    {0xC0000139, "missing function of a library"},
    {0x20474343, "C++ exception that nobody caught"},
    {0xE06D7363, "C++ exception that nobody caught"},
};

const CrashWords* FindCrash(std::uint32_t code)
{
    const auto found = std::find_if(std::begin(Crashes), std::end(Crashes),
                                    [&](const CrashWords& each) { return each.Code == code; });
    return found == std::end(Crashes) ? nullptr : found;
}

std::atomic<DWORD> gLastCrash = 0;

// Only looks on: it may well be that somebody handles it.
LONG CALLBACK NoteCrash(EXCEPTION_POINTERS* pointers)
{
    switch (const DWORD code = pointers->ExceptionRecord->ExceptionCode)
    {
    case EXCEPTION_ACCESS_VIOLATION:
    case EXCEPTION_STACK_OVERFLOW:
    case EXCEPTION_ILLEGAL_INSTRUCTION:
    case EXCEPTION_PRIV_INSTRUCTION:
    case EXCEPTION_INT_DIVIDE_BY_ZERO:
        gLastCrash = code;
        break;
    default:
        break;
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

// Without delay: a debugger that the system starts would only find out what the parent is told.
LONG WINAPI EndAtOnce(EXCEPTION_POINTERS* pointers)
{
    TerminateProcess(GetCurrentProcess(), pointers->ExceptionRecord->ExceptionCode);
    return EXCEPTION_EXECUTE_HANDLER;
}

// An exception that ends a process leaves its number as the exit code: an error of the system's, or
// one of those above.
bool IsCrash(std::uint32_t code)
{
    return (code & 0xF0000000U) == 0xC0000000U || FindCrash(code) != nullptr;
}

} // namespace

ChildOutcome RunChild(const std::vector<std::string>& arguments, milliseconds limit)
{
    ChildOutcome outcome;
    const Handle job = MakeJob();
    const Clock::time_point begin = Clock::now();
    Pipe reports;
    Pipe words;
    Handle child;
    if (MakePipe(reports) && MakePipe(words))
        child = Start(arguments, reports, words, job.get());
    if (!child)
    {
        outcome.Code = GetLastError();
        return outcome;
    }
    reports.Write.reset();
    words.Write.reset();
    const auto drain = [&]
    {
        Drain(reports.Read.get(), outcome.Reports);
        Drain(words.Read.get(), outcome.Words);
    };
    constexpr milliseconds look(10);
    bool inTime = false;
    for (milliseconds rest = limit; !inTime && rest.count() > 0;
         rest = std::chrono::ceil<milliseconds>(begin + limit - Clock::now()))
    {
        inTime =
            WaitForSingleObject(child.get(), static_cast<DWORD>(std::min(rest, look).count())) ==
            WAIT_OBJECT_0;
        drain();
    }
    DWORD code = 0;
    GetExitCodeProcess(child.get(), &code);
    TerminateJobObject(job.get(), 1);
    TerminateProcess(child.get(), 1); // where it could not be put into the job
    drain();
    outcome.Duration = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
    outcome.End = IsCrash(code) ? EChildEnd::Crashed : EChildEnd::Exited;
    outcome.Code = code;
    if (!inTime)
    {
        outcome.End = EChildEnd::TimedOut;
        outcome.Duration = limit;
    }
    return outcome;
}

std::string CrashText(std::uint32_t code)
{
    std::array<char, 16> number = {};
    std::snprintf(number.data(), number.size(), "0x%08X", code);
    const CrashWords* const crash = FindCrash(code);
    return std::string(crash == nullptr ? "exception" : crash->Words) + " (" + number.data() + ')';
}

std::string StartFailureText(std::uint32_t code)
{
    return "error " + std::to_string(code);
}

std::string PassedOverCrash()
{
    const DWORD code = gLastCrash.exchange(0);
    return code == 0 ? std::string() : CrashText(code);
}

std::FILE* BecomeChild()
{
    AddVectoredExceptionHandler(1, &NoteCrash);
    SetUnhandledExceptionFilter(&EndAtOnce);
    SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX | SEM_NOOPENFILEERRORBOX);
    _set_error_mode(_OUT_TO_STDERR);
    const int own = _dup(_fileno(stdout));
    std::FILE* const reports = own < 0 ? nullptr : _fdopen(own, "wb");
    if (reports == nullptr || _dup2(_fileno(stderr), _fileno(stdout)) != 0)
        std::abort(); // without its reports nobody learns what it finds
    std::setvbuf(reports, nullptr, _IONBF, 0);
    return reports;
}

} // namespace Tavrik::tSystem
