// What Linux supplies to the tests.
#include "TestPlatform.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <malloc.h>
#include <pthread.h>
#include <sstream>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace Tavrik::Ossira::tTest
{

struct CDebugOutputTap::State
{
    int Former = dup(STDERR_FILENO);
    int End = -1; // where it is read
    std::string Received;
};

CDebugOutputTap::CDebugOutputTap(Stream stream) : mState(std::make_unique<State>())
{
    int ends[2] = {-1, memfd_create("ossira-test", MFD_CLOEXEC)};
    if (stream == Stream::File)
        ends[0] = open(("/proc/self/fd/" + std::to_string(ends[1])).c_str(), O_RDONLY | O_CLOEXEC);
    else
    {
        close(ends[1]);
        if ((stream == Stream::Pipe ? pipe(ends) : socketpair(AF_UNIX, SOCK_STREAM, 0, ends)) != 0)
            std::abort();
    }
    // Every write goes to its end: several threads write at once, and a file does not guard its
    // position.
    fcntl(ends[1], F_SETFL, stream == Stream::File ? O_APPEND : 0);
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    mState->End = ends[0];
}

CDebugOutputTap::~CDebugOutputTap()
{
    dup2(mState->Former, STDERR_FILENO);
    close(mState->Former);
    close(mState->End);
}

std::string CDebugOutputTap::Text() const
{
    char text[65536];
    for (ssize_t size = 0; (size = read(mState->End, text, sizeof text)) > 0;)
        mState->Received.append(text, static_cast<std::size_t>(size));
    return mState->Received;
}

void CDebugOutputTap::Break(bool isFull)
{
    fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
    while (isFull && write(STDERR_FILENO, "x", 1) == 1)
        ;
    fcntl(STDERR_FILENO, F_SETFL, 0);
    if (!isFull)
        close(std::exchange(mState->End, -1));
}

void (*const EndThisThread)() = []
{
    pthread_exit(nullptr);
};

void (*const CancelThisThread)() = []
{
    pthread_cancel(pthread_self());
};

std::filesystem::path ProgramPath()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

namespace
{

// The mappings of files whose names end so.
std::size_t CountMappings(const std::string& name, const char* kind)
{
    std::size_t count = 0;
    std::istringstream maps(ReadFile("/proc/self/maps"));
    for (std::string line; std::getline(maps, line);)
        count += line.ends_with(name) && line.find(kind) != line.npos ? 1u : 0u;
    return count;
}

} // namespace

// As code: a sanitizer that reports something about a library maps the file to read its symbols.
bool IsMapped(const std::filesystem::path& library)
{
    return CountMappings(canonical(library).string(), " r-xp ") > 0;
}

std::optional<int> ExitCodeInCopy(const std::function<int()>& work)
{
    const pid_t copy = fork();
    if (copy == 0)
        _exit(work());
    for (int poll = 0; poll < 1000; ++poll)
    {
        int status = 0;
        if (waitpid(copy, &status, WNOHANG) == copy)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        usleep(10000);
    }
    kill(copy, SIGKILL);
    waitpid(copy, nullptr, 0);
    return -1;
}

void AwaitOtherThreads()
{
}

#ifdef __clang__ // which makes none
const bool UniqueSymbolsKeepALibraryMapped = false;
#else
const bool UniqueSymbolsKeepALibraryMapped = true;
#endif

MemoryInUse MeasureMemory()
{
    const auto heap = mallinfo2();
    const std::size_t pages = std::stoul(ReadFile("/proc/self/statm"));
    return {heap.uordblks + heap.hblkhd, pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE))};
}

OpenThings CountOpenThings()
{
    const auto count = [](const char* folder)
    {
        return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder),
                                                      std::filesystem::directory_iterator()));
    };
    return {count("/proc/self/fd"), count("/proc/self/task"), CountMappings(".dll", "")};
}

} // namespace Tavrik::Ossira::tTest
