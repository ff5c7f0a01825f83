// Debug output is the standard error stream, written around the C library's buffers: one call for
// one line is what keeps the lines of several threads, and of several processes, apart.
#include "../Platform.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Tavrik::tSystem
{

void WriteDebugText(const char* text) noexcept
{
    if (text == nullptr)
        return;
    // A line may be written between a failed call and the look at its error number.
    const int callersError = errno;
    std::size_t left = std::strlen(text);
    while (left > 0)
    {
        const ssize_t written = write(STDERR_FILENO, text, left);
        if (written > 0)
        {
            text += written;
            left -= static_cast<std::size_t>(written);
        }
        else if (written == 0 || errno != EINTR)
            break; // closed, full or never there: diagnostics must not hold up the process
    }
    errno = callersError;
}

} // namespace Tavrik::tSystem
