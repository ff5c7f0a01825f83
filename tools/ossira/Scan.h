// `ossira scan`: examines module files, each in a process of its own, and says what is wrong.
#pragma once

#include "Examine.h"

#include <string>
#include <vector>

namespace Tavrik::tHost
{

struct ScanOptions
{
    std::vector<std::string> Places; // folders and files, in UTF-8
    double LimitSeconds = 10;        // for each file
    std::size_t Jobs = 0;            // at a time; 0: as many as there are processors
    bool IsAgain = false;            // whatever is known from before
    bool IsJson = false;
    bool AreFolders = false; // no place may be a file
};

// What was found: "files" (see Examine.h), "problems" that are no single file's, and "unreadable",
// the places in which no file was found, if there are any.
[[nodiscard]] Json ScanPlaces(const ScanOptions& options);

// The classes of all the files that were found, each with id, text, module and where it is filed.
[[nodiscard]] Json ListClasses(const Json& found);

// Says on standard error what was found to be wrong; answers the exit code.
[[nodiscard]] int ComplainOf(const Json& found);

void PrintJson(const Json& json);

// Scans, and prints what was found for a person or a program to read; answers the exit code.
[[nodiscard]] int Scan(const ScanOptions& options);

} // namespace Tavrik::tHost
