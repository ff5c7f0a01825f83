// What a platform supplies to a program with a command line, beside what it supplies to the
// runtime (Platform.h).
#pragma once

#include <cstdio>
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
// Where standard output was closed, writing fails from then on; it never goes into a file that was
// opened meanwhile.
void PrepareOutput();

// Whether a person reads the stream, one whose screen understands control sequences.
[[nodiscard]] bool IsTerminal(std::FILE* stream) noexcept;

// The value of an environment variable, in UTF-8; empty where there is none.
[[nodiscard]] std::string EnvironmentText(const char* name);

// The folder for what programs keep for this user and can make again, in UTF-8; empty where the
// user has none. It may not exist yet.
[[nodiscard]] std::string UserCacheFolder();

// What is wrong with a library file that the system may load all the same, as the rest of a
// sentence about it; takes a full path. Empty where `CLibrary::Open` refuses such files itself.
// What the library needs is loaded meanwhile.
[[nodiscard]] std::string HiddenLibraryFault(const std::wstring& path);

} // namespace Tavrik::tSystem
