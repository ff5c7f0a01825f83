// The arguments that `main` receives have gone through the system's code page, which loses what is
// outside of it; the wide command line has not. Debug output is an exception that a debugger
// catches: a handler of the process sees it first and passes it on.
#include "Program.h"
#include "WideText.h"

#include <windows.h>

#include <shellapi.h>

#include <cstdlib>
#include <io.h>
#include <memory>

namespace Tavrik::tSystem
{

namespace
{

LONG CALLBACK CopyDebugText(EXCEPTION_POINTERS* pointers)
{
    const EXCEPTION_RECORD& record = *pointers->ExceptionRecord;
    if (record.ExceptionCode == DBG_PRINTEXCEPTION_C && record.NumberParameters >= 2)
    {
        const auto text = reinterpret_cast<const char*>(record.ExceptionInformation[1]);
        const auto size = static_cast<DWORD>(record.ExceptionInformation[0]);
        DWORD written = 0;
        if (size > 1) // the terminating zero counts
            WriteFile(GetStdHandle(STD_ERROR_HANDLE), text, size - 1, &written, nullptr);
    }
    return EXCEPTION_CONTINUE_SEARCH;
}

} // namespace

std::vector<std::string> ProgramArguments(int, char**)
{
    int count = 0;
    const std::unique_ptr<LPWSTR, decltype(&LocalFree)> arguments(
        CommandLineToArgvW(GetCommandLineW(), &count), &LocalFree);
    std::vector<std::string> texts;
    for (int index = 1; arguments && index < count; ++index)
        texts.push_back(ToUtf8(arguments.get()[index]));
    return texts;
}

void PrepareOutput()
{
    SetConsoleOutputCP(CP_UTF8);
    for (const DWORD stream : {STD_OUTPUT_HANDLE, STD_ERROR_HANDLE})
    {
        DWORD mode = 0;
        const HANDLE console = GetStdHandle(stream);
        if (GetConsoleMode(console, &mode))
            SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    }
    AddVectoredExceptionHandler(1, &CopyDebugText);
}

bool IsTerminal(std::FILE* stream) noexcept
{
    DWORD mode = 0;
    return GetConsoleMode(reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))), &mode) &&
           (mode & ENABLE_VIRTUAL_TERMINAL_PROCESSING) != 0;
}

std::string EnvironmentText(const char* name)
{
    const wchar_t* const value = _wgetenv(FromUtf8(name).c_str());
    return value == nullptr ? "" : ToUtf8(value);
}

std::string UserCacheFolder()
{
    return EnvironmentText("LOCALAPPDATA");
}

} // namespace Tavrik::tSystem
