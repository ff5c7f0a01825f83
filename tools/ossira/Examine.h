// What is found out about one module file, and how: a child process looks at it and writes what it
// finds, and before each step what it is about to do, so that its parent can tell where a module
// crashed, hung or ended the process.
#pragma once

#include "Json.h"

#include <chrono>
#include <string>

namespace Tavrik::tHost
{

// The findings, as they also stand in what `--json` prints:
//   file               as it was given
//   verdict            "module", "other library" or "broken"
//   loadMilliseconds   if it was loaded
//   classes            each with id and text
//   filed              each with category, group (may be missing) and class
//   problems, notes    sentences about the file, without their subject
//   words              what the module wrote while it was looked at, if there are problems
namespace tVerdict
{
inline constexpr const char* Module = "module";
inline constexpr const char* OtherLibrary = "other library";
inline constexpr const char* Broken = "broken";
} // namespace tVerdict

// Looks at a file in a child process. `isLasting` tells whether the same file will be found to be
// the same again: what crashed or hung, or misses another file, may do better another time.
[[nodiscard]] Json ExamineFile(const std::string& path, std::chrono::milliseconds limit,
                               bool& isLasting);

} // namespace Tavrik::tHost
