// What is said of an end is the same on every platform; only what a number stands for is not.
#include "ChildProcess.h"
#include "ChildCode.h"

#include <array>

namespace Tavrik::tSystem
{

std::string DescribeEnd(const ChildOutcome& outcome)
{
    std::array<char, 32> seconds = {};
    switch (outcome.End)
    {
    case EChildEnd::Exited:
        return "exited with code " + std::to_string(outcome.Code);
    case EChildEnd::Crashed:
        return "crashed: " + CrashText(outcome.Code);
    case EChildEnd::TimedOut:
        std::snprintf(seconds.data(), seconds.size(), "%.3g s",
                      static_cast<double>(outcome.Duration.count()) / 1000);
        return std::string("did not end within ") + seconds.data();
    default:
        return "could not be started: " + StartFailureText(outcome.Code);
    }
}

} // namespace Tavrik::tSystem
