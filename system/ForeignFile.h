// For the platforms' loaders: what a file is that is no library of this platform at all.
#pragma once

#include <algorithm>
#include <string_view>

namespace Tavrik::tSystem::tDetail
{

// Null for a file that begins with the platform's own mark.
[[nodiscard]] inline const char* NameForeignFile(std::string_view head,
                                                 std::string_view ownMark) noexcept
{
    using namespace std::string_view_literals;
    if (head.starts_with(ownMark))
        return nullptr;
    if (head.empty())
        return "empty";
    if (head.starts_with("MZ"sv))
        return "a file for Windows";
    if (head.starts_with("\x7F"
                         "ELF"sv))
        return "a file for Linux";
    const bool isText =
        std::all_of(head.begin(), head.begin() + std::min(head.size(), std::size_t{64}),
                    [](char c)
                    {
                        const auto code = static_cast<unsigned char>(c);
                        return code >= ' ' || (code >= '\t' && code <= '\r');
                    });
    return isText ? "text, and no library" : "no library of any kind";
}

} // namespace Tavrik::tSystem::tDetail
