// Arguments are bytes, terminals take UTF-8, and the debug output is standard error: little is left
// to do.
#include "Program.h"

#include <cstdlib>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace Tavrik::tSystem
{

std::vector<std::string> ProgramArguments(int argc, char** argv)
{
    return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

std::string HiddenLibraryFault(const std::wstring& /*path*/)
{
    return {};
}

// A stream that was closed would be the next file's number.
void PrepareOutput()
{
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
    {
        if (fcntl(stream, F_GETFD) < 0)
            static_cast<void>(open("/dev/null", stream == STDERR_FILENO ? O_WRONLY : O_RDONLY));
    }
}

bool IsTerminal(std::FILE* stream) noexcept
{
    return isatty(fileno(stream)) != 0 && EnvironmentText("TERM") != "dumb";
}

std::string EnvironmentText(const char* name)
{
    const char* const value = std::getenv(name);
    return value == nullptr ? "" : value;
}

std::string UserCacheFolder()
{
    if (std::string folder = EnvironmentText("XDG_CACHE_HOME"); folder.starts_with('/'))
        return folder;
    const std::string home = EnvironmentText("HOME");
    return home.empty() ? "" : home + "/.cache";
}

} // namespace Tavrik::tSystem
