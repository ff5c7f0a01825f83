// How the host writes to a person: headings, and tables whose columns line up. Everything goes to
// standard output in UTF-8 and is flushed at once, so that it stands in order with the diagnostics
// lines on standard error.
#pragma once

#include "OssiraBase.h"

#include <string>
#include <string_view>
#include <vector>

namespace Tavrik::tHost
{

// What a line means; a terminal shows it by a colour, unless the user wants none (NO_COLOR).
enum class ETone : std::uint8_t
{
    Plain,
    Good,
    Note,
    Bad
};

void PrintLine(std::string_view text, ETone tone = ETone::Plain);

// As it stands, for programs to read.
void PrintRaw(std::string_view text);

// A line that begins a section.
void PrintHeading(std::string_view text);

class CTable
{
public:
    void AddRow(std::vector<std::string> cells);

    void Print(std::size_t indent) const;

private:
    std::vector<std::vector<std::string>> mRows;
};

// "Not Found (0x80500001)".
[[nodiscard]] std::string CodeText(Ossira::Result code);

// "{86B24C4B-FE4D-4361-9986-E40DCAAA0D0F}".
[[nodiscard]] std::string BracedGuid(const GUID& guid);

// "1 class", "2 classes".
[[nodiscard]] std::string Counted(std::size_t count, std::string_view one, std::string_view many);

} // namespace Tavrik::tHost
