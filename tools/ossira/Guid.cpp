// `ossira guid`, and what other commands need of identifiers.
#include "Guid.h"

#include "Command.h"
#include "Print.h"

#include <array>
#include <cctype>
#include <cstdio>
#include <memory>
#include <random>

namespace Tavrik::tHost
{

namespace
{

struct GuidOptions
{
    int Count = 1;
    std::string GuidFormat = "all";
};

std::string Plain(const GUID& guid)
{
    const std::string braced = BracedGuid(guid);
    return braced.substr(1, braced.size() - 2);
}

std::string Definition(const GUID& guid)
{
    return "inline constexpr GUID NAME = " + GuidInitializer(guid) + ';';
}

struct GuidFormat
{
    const char* Name;
    std::string (*Text)(const GUID& guid);
};

constexpr GuidFormat GuidFormats[] = {
    {"braces", &BracedGuid}, {"plain", &Plain}, {"cpp", &Definition}};

int PrintGuids(const GuidOptions& options)
{
    for (int index = 0; index < options.Count; ++index)
    {
        const GUID guid = NewGuid();
        for (const GuidFormat& format : GuidFormats)
        {
            const bool isUsual = format.Text != &Plain;
            if (options.GuidFormat == format.Name || (options.GuidFormat == "all" && isUsual))
                PrintLine(format.Text(guid));
        }
    }
    return Exit_AllWell;
}

} // namespace

GUID NewGuid()
{
    std::random_device random;
    GUID guid = {};
    guid.Data1 = random();
    guid.Data2 = static_cast<std::uint16_t>(random());
    guid.Data3 = static_cast<std::uint16_t>((random() & 0x0FFFU) | 0x4000U); // a random one
    for (auto& byte : guid.Data4)
        byte = static_cast<std::uint8_t>(random());
    guid.Data4[0] = static_cast<std::uint8_t>((guid.Data4[0] & 0x3FU) | 0x80U);
    return guid;
}

std::string GuidInitializer(const GUID& guid)
{
    std::array<char, 96> text = {};
    const auto& end = guid.Data4;
    std::snprintf(text.data(), text.size(),
                  "{0x%08X, 0x%04X, 0x%04X, {0x%02X, 0x%02X, 0x%02X, 0x%02X, 0x%02X, 0x%02X, "
                  "0x%02X, 0x%02X}}",
                  static_cast<unsigned>(guid.Data1), guid.Data2, guid.Data3, end[0], end[1], end[2],
                  end[3], end[4], end[5], end[6], end[7]);
    return text.data();
}

std::optional<GUID> ParseGuid(std::string text)
{
    if (text.starts_with('{') && text.ends_with('}'))
        text = text.substr(1, text.size() - 2);
    constexpr std::string_view shape = "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx";
    if (text.size() != shape.size())
        return std::nullopt;
    std::string digits;
    for (std::size_t index = 0; index < shape.size(); ++index)
    {
        const bool isDigit = std::isxdigit(static_cast<unsigned char>(text[index])) != 0;
        if (shape[index] == '-' ? text[index] != '-' : !isDigit)
            return std::nullopt;
        if (isDigit)
            digits += text[index];
    }
    const auto number = [&](std::size_t at, std::size_t count)
    {
        return std::stoull(digits.substr(at, count), nullptr, 16);
    };
    GUID guid = {};
    guid.Data1 = static_cast<std::uint32_t>(number(0, 8));
    guid.Data2 = static_cast<std::uint16_t>(number(8, 4));
    guid.Data3 = static_cast<std::uint16_t>(number(12, 4));
    for (std::size_t index = 0; index < 8; ++index)
        guid.Data4[index] = static_cast<std::uint8_t>(number(16 + 2 * index, 2));
    return guid;
}

void AddGuid(CCommands& commands)
{
    const auto options = std::make_shared<GuidOptions>();
    CLI::App& command =
        commands.Add("guid", "Make a fresh identifier, for a class, an interface or a key.",
                     [options] { return PrintGuids(*options); });
    command.add_option("-n,--number", options->Count, "How many; 1 without this option")
        ->check(CLI::Range(1, 10'000))
        ->type_name("NUMBER");
    command
        .add_option("--format", options->GuidFormat,
                    "How it is written: braces, plain, cpp (a C++ definition), or all: with "
                    "braces,\nand as C++; so without this option")
        ->check(CLI::IsMember({"all", "braces", "plain", "cpp"}))
        ->type_name("FORMAT");
}

} // namespace Tavrik::tHost
