// What a platform supplies to a program with a command line, beside what it supplies to the
// runtime (Platform.h).
#pragma once

#include <string>
#include <vector>

namespace Tavrik::tSystem
{

// The arguments behind the program's own name, in UTF-8. Where file names are bytes, they are the
// bytes that were given.
[[nodiscard]] std::vector<std::string> ProgramArguments(int argc, char** argv);

// Call it once, before anything is written. From then on a console shows what is written as UTF-8,
// and diagnostics lines appear on standard error also where the platform's debug output would show
// them to a debugger only.
void PrepareOutput();

} // namespace Tavrik::tSystem
