// What a platform supplies to the tests. Each platform has a folder of sources beside this header;
// the tests themselves know no platform.
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace Tavrik::Ossira::tTest
{

enum class Stream
{
    File,
    Pipe,
    Socket
};

// Collects what this process writes to the platform's debug output, as it leaves the process: on
// Linux standard error is led into a file, or through a pipe or a socket with a little room, on
// Windows the debug-output exception is listened to. One at a time.
class CDebugOutputTap
{
public:
    explicit CDebugOutputTap(Stream stream = Stream::File);
    ~CDebugOutputTap();

    // Everything written so far.
    [[nodiscard]] std::string Text() const;

    // Leaves a pipe full, or with nobody who reads it. Nothing happens where the debug output never
    // waits.
    void Break(bool isFull);

private:
    struct State;
    const std::unique_ptr<State> mState;
};

// End the thread in the middle of a call, at once and at the next point where that may be, and
// unwind its stack; null where that is not so.
extern void (*const EndThisThread)();
extern void (*const CancelThisThread)();

// The file of the running program.
[[nodiscard]] std::filesystem::path ProgramPath();

// Whether a library file is mapped into this process.
[[nodiscard]] bool IsMapped(const std::filesystem::path& library);

// What the platform says is wrong with a library file, which is read and not loaded.
[[nodiscard]] std::string FaultOfLibrary(const std::filesystem::path& file);

// What `work` answers in a copy of the process with but the calling thread, or -1 when it does not
// answer within ten seconds; nothing where a process cannot be copied.
[[nodiscard]] std::optional<int> ExitCodeInCopy(const std::function<int()>& work);

// Returns when this process has no other thread, or after ten seconds. For the end of a program:
// Wine ends the other threads without taking the heap's lock first, and one that is just giving
// back what was its own may then hold that lock for ever.
void AwaitOtherThreads();

// Whether the platform keeps a library mapped that defines process-unique symbols.
extern const bool UniqueSymbolsKeepALibraryMapped;

// The bytes that are allocated on the process's heaps and not freed, and those of the address space
// that the process has to itself. Sanitizers have heaps of their own and make the first one 0.
struct MemoryInUse
{
    std::size_t Heap = 0;
    std::size_t Process = 0;
};
[[nodiscard]] MemoryInUse MeasureMemory();

// What this process has open and under way.
struct OpenThings
{
    std::size_t Handles = 0; // file descriptors, where they are called so
    std::size_t Threads = 0;
    std::size_t Libraries = 0;

    [[nodiscard]] bool IsWithin(const OpenThings& limit) const
    {
        return Handles <= limit.Handles && Threads <= limit.Threads && Libraries <= limit.Libraries;
    }
};
[[nodiscard]] OpenThings CountOpenThings();

[[nodiscard]] inline std::string ReadFile(const std::filesystem::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

} // namespace Tavrik::Ossira::tTest
