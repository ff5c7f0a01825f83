// Tells what a file is before anybody loads it, from its first bytes: what keeps a file from being
// a library of this machine, in a person's words. Headers are read as numbers from a hostile hand.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace Tavrik::tHost
{

// A path as the file system takes it, from UTF-8 or, where names are bytes, from those. Slash and
// backslash separate, everywhere.
[[nodiscard]] std::filesystem::path FilePath(const std::string& path);

// "is a folder", "is a 32-bit library", "cannot be read: Permission denied"; empty for what has the
// looks of a library of this machine. It never waits for a pipe.
[[nodiscard]] std::string WhyNoLibrary(const std::filesystem::path& path);

// A function of another library that a library needs, or just the library.
struct Import
{
    std::string Library;
    std::string Function; // empty: the library as such, or by number only
};

// What a library of the Windows format needs; the system's loader does not say what it misses.
[[nodiscard]] std::vector<Import> ReadImports(const std::filesystem::path& path);

} // namespace Tavrik::tHost
