// What Linux supplies to the tests.
#include "TestPlatform.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <malloc.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace Tavrik::Ossira::tTest
{

namespace
{

// A file descriptor that is closed with its owner.
class Descriptor
{
public:
    explicit Descriptor(int number) : mNumber(number)
    {
        if (number < 0)
            throw std::runtime_error("no file descriptor");
    }

    ~Descriptor()
    {
        close(mNumber);
    }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    [[nodiscard]] int Number() const
    {
        return mNumber;
    }

private:
    int mNumber;
};

std::string ContentOf(const Descriptor& file)
{
    std::string content;
    std::array<char, 4096> buffer;
    for (off_t at = 0;;)
    {
        const ssize_t count = pread(file.Number(), buffer.data(), buffer.size(), at);
        if (count <= 0)
            return content;
        content.append(buffer.data(), static_cast<std::size_t>(count));
        at += count;
    }
}

// Every write goes to its end: several threads, and processes, write at once, and such a file does
// not guard its position.
int OpenMemoryFile()
{
    const int file = memfd_create("ossira-test", MFD_CLOEXEC);
    fcntl(file, F_SETFL, O_APPEND);
    return file;
}

} // namespace

struct CDebugOutputTap::State
{
    Descriptor Former{dup(STDERR_FILENO)};
    Descriptor File{OpenMemoryFile()};
};

CDebugOutputTap::CDebugOutputTap() : mState(std::make_unique<State>())
{
    std::fflush(stderr);
    dup2(mState->File.Number(), STDERR_FILENO);
}

CDebugOutputTap::~CDebugOutputTap()
{
    std::fflush(stderr);
    dup2(mState->Former.Number(), STDERR_FILENO);
}

std::string CDebugOutputTap::Text() const
{
    return ContentOf(mState->File);
}

std::filesystem::path ProgramPath()
{
    return std::filesystem::read_symlink("/proc/self/exe");
}

bool IsMapped(const std::filesystem::path& library)
{
    const std::string file = std::filesystem::canonical(library).string();
    std::ifstream maps("/proc/self/maps");
    for (std::string line; std::getline(maps, line);)
    {
        if (line.ends_with(file))
            return true;
    }
    return false;
}

const bool UniqueSymbolsKeepALibraryMapped = true;

MemoryInUse MeasureMemory()
{
    MemoryInUse memory;
    const auto heap = mallinfo2();
    memory.Heap = heap.uordblks + heap.hblkhd;
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    memory.Process = pages * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    return memory;
}

ProgramResult RunProgram(const std::filesystem::path& program,
                         const std::vector<std::string>& arguments, std::chrono::seconds timeout)
{
    const Descriptor output(OpenMemoryFile());
    std::string name = program.string();
    std::vector<std::string> copies = arguments;
    std::vector<char*> values = {name.data()};
    for (std::string& copy : copies)
        values.push_back(copy.data());
    values.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output.Number(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output.Number(), STDERR_FILENO);
    pid_t child = 0;
    const int error = posix_spawn(&child, name.c_str(), &actions, nullptr, values.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::runtime_error("cannot run " + name);

    ProgramResult result;
    int status = 0;
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (waitpid(child, &status, WNOHANG) == 0)
    {
        if (std::chrono::steady_clock::now() > end)
        {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
            result.ExitCode = -1;
            result.Output = ContentOf(output);
            return result;
        }
        poll(nullptr, 0, 1);
    }
    result.ExitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
    result.Output = ContentOf(output);
    return result;
}

void PatchMachineType(std::string& image)
{
    constexpr std::size_t machineField = 18; // of the file's header
    constexpr char someOtherMachine = 8;     // MIPS
    image.at(machineField) = someOtherMachine;
}

} // namespace Tavrik::Ossira::tTest
