// Runs this program once more, as a child that may crash, hang or exit without harm to its parent:
// code that nobody vouches for is tried there. Parent and child are the same program; the child is
// told by its arguments what to do, says what it does on a stream of its own, and the parent reads
// afterwards how far it came and how it ended.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace Tavrik::tSystem
{

enum class EChildEnd : std::uint8_t
{
    NotStarted, // by the system; the code is its error number
    Exited,     // the code is the exit code
    Crashed,    // the code is the number of the signal or of the exception
    TimedOut    // and was stopped
};

struct ChildOutcome
{
    EChildEnd End = EChildEnd::NotStarted;
    std::uint32_t Code = 0;
    std::string Reports; // what it wrote to the stream that `BecomeChild` gave it
    std::string Words;   // what else it, or the code that it tried, wrote
    std::chrono::milliseconds Duration{};

    [[nodiscard]] bool Succeeded() const noexcept
    {
        return End == EChildEnd::Exited && Code == 0;
    }
};

// Starts this program with arguments (UTF-8) and waits for its end, at most for the limit; then the
// child is stopped, with whatever it started itself. Each stream is kept up to some megabytes. May
// be called by several threads at once. Throws `std::bad_alloc`.
[[nodiscard]] ChildOutcome RunChild(const std::vector<std::string>& arguments,
                                    std::chrono::milliseconds limit);

// How it ended, as the rest of a sentence about it: "exited with code 3", "crashed: segmentation
// fault (SIGSEGV)", "did not end within 2 seconds", "could not be started: ...".
[[nodiscard]] std::string DescribeEnd(const ChildOutcome& outcome);

// To be called once, and first, by the child. It answers the stream for its reports, unbuffered;
// from then on what anybody writes to standard output is taken for words. The child leaves no
// core file, shows no message box and does not outlive its parent.
[[nodiscard]] std::FILE* BecomeChild();

// In a child: what would have been the end of the process, had the system not passed over it since
// the last call, as some do in the start-up and clean-up code of libraries; in words, or empty.
[[nodiscard]] std::string PassedOverCrash();

} // namespace Tavrik::tSystem
