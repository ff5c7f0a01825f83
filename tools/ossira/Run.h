// `ossira run`: the whole life of a process on the runtime, told as it happens.
#pragma once

#include "OssiraDiagnostics.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Tavrik::tHost
{

struct RunOptions
{
    std::vector<std::string> Folders;                                         // in UTF-8
    std::uint32_t DiagnosticsMask = Ossira::PRINT_WARN | Ossira::PRINT_ERROR; // the levels to print
};

// Starts the modules of the folders, creates one object of each of their classes, puts the
// runtime's services to work, cleans up, and prints what it found and did. Answers the program's
// exit code: 0 when everything worked and nothing was left over, else 1.
[[nodiscard]] int Run(const RunOptions& options);

} // namespace Tavrik::tHost
