// Names and texts come from files and modules that nobody vouches for: control characters in them
// are written as their codes, so that they cannot steer the terminal.
#include "Print.h"

#include "OssiraDiagnostics.h"
#include "Program.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace Tavrik::tHost
{

namespace
{

void WriteLine(const std::string& line)
{
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

std::string Visible(std::string_view text)
{
    std::string visible;
    for (const char c : text)
    {
        const auto code = static_cast<unsigned char>(c);
        if (code >= 0x20 && code != 0x7F)
        {
            visible += c;
            continue;
        }
        std::array<char, 5> escape = {};
        std::snprintf(escape.data(), escape.size(), "\\x%02X", static_cast<unsigned>(code));
        visible += escape.data();
    }
    return visible;
}

// In characters: bytes that continue a UTF-8 character take no room.
std::size_t Width(std::string_view text)
{
    return static_cast<std::size_t>(
        std::count_if(text.begin(), text.end(),
                      [](char c) { return (static_cast<unsigned>(c) & 0xC0) != 0x80; }));
}

} // namespace

void PrintLine(std::string_view text, ETone tone)
{
    static const bool isColoured =
        tSystem::IsTerminal(stdout) && tSystem::EnvironmentText("NO_COLOR").empty();
    constexpr const char* colours[] = {"", "\x1B[32m", "\x1B[33m", "\x1B[31m"};
    const char* const colour = colours[static_cast<std::size_t>(tone)];
    WriteLine(isColoured && tone != ETone::Plain ? colour + Visible(text) + "\x1B[0m"
                                                 : Visible(text));
}

void PrintRaw(std::string_view text)
{
    WriteLine(std::string(text));
}

void PrintHeading(std::string_view text)
{
    WriteLine("");
    PrintLine(text);
}

void CTable::AddRow(std::vector<std::string> cells)
{
    std::transform(cells.begin(), cells.end(), cells.begin(), Visible);
    mRows.push_back(std::move(cells));
}

void CTable::Print(std::size_t indent) const
{
    std::vector<std::size_t> widths;
    for (const auto& row : mRows)
    {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t column = 0; column + 1 < row.size(); ++column)
            widths[column] = std::max(widths[column], Width(row[column]));
    }
    for (const auto& row : mRows)
    {
        std::string line(indent, ' ');
        for (std::size_t column = 0; column < row.size(); ++column)
        {
            line += row[column];
            if (column + 1 < row.size())
                line.append(widths[column] - Width(row[column]) + 2, ' ');
        }
        line.erase(line.find_last_not_of(' ') + 1);
        WriteLine(line);
    }
}

std::string CodeText(Ossira::Result code)
{
    std::array<char, 16> number = {};
    std::snprintf(number.data(), number.size(), " (0x%08X)", static_cast<std::uint32_t>(code));
    return Ossira::ErrorText(code) + std::string(number.data());
}

std::string BracedGuid(const GUID& guid)
{
    return '{' + std::string(Ossira::CGuidText(guid).Text()) + '}';
}

std::string Counted(std::size_t count, std::string_view one, std::string_view many)
{
    return std::to_string(count) + ' ' + std::string(count == 1 ? one : many);
}

} // namespace Tavrik::tHost
