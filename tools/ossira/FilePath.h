// Paths between the command line and the file system.
#pragma once

#include <algorithm>
#include <filesystem>
#include <string>

namespace Tavrik::tHost
{

// A path as the file system takes it, from UTF-8 or, where names are bytes, from those. Slash and
// backslash separate, everywhere.
[[nodiscard]] inline std::filesystem::path FilePath(const std::string& path)
{
    std::u8string text(path.begin(), path.end());
    std::replace(text.begin(), text.end(), u8'\\', u8'/');
    return {text};
}

} // namespace Tavrik::tHost
