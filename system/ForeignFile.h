// For the platforms' loaders: why a file is no library of this platform, as the rest of a sentence
// about the file.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace Tavrik::tSystem::tDetail
{

inline constexpr const char* ThirtyTwoBits = "is a 32-bit library, and this is a 64-bit program";

// Null for a file that begins with the platform's own mark.
[[nodiscard]] inline const char* NameForeignFile(std::string_view head,
                                                 std::string_view ownMark) noexcept
{
    using namespace std::string_view_literals;
    if (head.starts_with(ownMark))
        return nullptr;
    if (head.empty())
        return "is empty";
    if (head.starts_with("MZ"sv))
        return "is a library or program for Windows (PE)";
    if (head.starts_with("\x7F"
                         "ELF"sv))
        return "is a library or program for Linux (ELF)";
    const bool isText =
        std::all_of(head.begin(), head.begin() + std::min(head.size(), std::size_t{64}),
                    [](char c)
                    {
                        const auto code = static_cast<unsigned char>(c);
                        return code >= ' ' || (code >= '\t' && code <= '\r');
                    });
    return isText ? "is a text file, no library" : "is no library: it begins like none";
}

// Of a file whose headers speak of more than it has, or hold what none does.
[[nodiscard]] inline std::string CutShort(std::uint64_t size, std::uint64_t wanted)
{
    const std::string text = "is cut short or damaged";
    return wanted <= size ? text
                          : text + ": it has " + std::to_string(size) +
                                " bytes, and its header speaks of " + std::to_string(wanted);
}

struct Processor
{
    std::uint16_t Number;
    const char* Name;
};

[[nodiscard]] inline std::string ForOtherProcessor(std::uint16_t number,
                                                   std::span<const Processor> known)
{
    const auto found = std::find_if(known.begin(), known.end(),
                                    [&](const Processor& each) { return each.Number == number; });
    return "is built for another processor: " +
           (found == known.end() ? "number " + std::to_string(number) : std::string(found->Name));
}

} // namespace Tavrik::tSystem::tDetail
