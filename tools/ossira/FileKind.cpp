// A file is read into memory only as far as its headers go; the imports of a file that has the
// looks of a library may lie anywhere, so that one is read whole.
#include "FileKind.h"

#include "Program.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <string_view>

namespace Tavrik::tHost
{

namespace
{

namespace fs = std::filesystem;

class CBytes
{
public:
    CBytes() = default;
    explicit CBytes(std::string bytes) : mBytes(std::move(bytes))
    {
    }

    // The little-endian number at an offset; 0 beyond the end.
    template <class Number>
    [[nodiscard]] Number At(std::uint64_t offset) const
    {
        Number number = 0;
        if (offset <= mBytes.size() && sizeof number <= mBytes.size() - offset)
            std::memcpy(&number, mBytes.data() + offset, sizeof number);
        return number;
    }

    // The text up to its zero.
    [[nodiscard]] std::string TextAt(std::uint64_t offset) const
    {
        const std::size_t begin = std::min<std::uint64_t>(offset, mBytes.size());
        const std::size_t end = std::min(mBytes.find('\0', begin), mBytes.size());
        return mBytes.substr(begin, end - begin);
    }

    [[nodiscard]] bool StartsWith(std::string_view start) const
    {
        return mBytes.starts_with(start);
    }

    [[nodiscard]] bool IsText() const
    {
        return std::none_of(mBytes.begin(), mBytes.end(),
                            [](char c)
                            {
                                const auto code = static_cast<unsigned char>(c);
                                return code < 0x20 && c != '\n' && c != '\r' && c != '\t';
                            });
    }

private:
    std::string mBytes;
};

CBytes ReadHead(std::ifstream& file, std::uintmax_t size)
{
    std::string head(std::min<std::uintmax_t>(size, 64U << 10U), '\0');
    file.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(file.gcount()));
    return CBytes(std::move(head));
}

std::string CutShort(std::uintmax_t size, std::uint64_t wanted)
{
    return size >= wanted ? ""
                          : "is cut short: it has " + std::to_string(size) +
                                " bytes, and its header speaks of " + std::to_string(wanted);
}

struct Machine
{
    std::uint16_t Elf;
    std::uint16_t Pe;
    const char* Name;
};

constexpr Machine Machines[] = {{3, 0x014C, "x86, 32 bits"},
                                {183, 0xAA64, "ARM, 64 bits"},
                                {40, 0x01C4, "ARM, 32 bits"},
                                {243, 0x5064, "RISC-V"}};

std::string OtherMachine(std::uint16_t number, std::uint16_t Machine::*column)
{
    const auto found = std::find_if(std::begin(Machines), std::end(Machines),
                                    [&](const Machine& each) { return each.*column == number; });
    return std::string("is built for another processor: ") +
           (found == std::end(Machines) ? "number " + std::to_string(number)
                                        : std::string(found->Name));
}

std::string WhyNoElf(const CBytes& head, std::uintmax_t size)
{
    constexpr std::uint16_t x86_64 = 62;
    constexpr std::uint16_t sharedObject = 3;
    constexpr std::uint64_t headerSize = 64;
    if (size < headerSize)
        return CutShort(size, headerSize);
    if (head.At<std::uint8_t>(4) == 1)
        return "is a 32-bit library, and this is a 64-bit program";
    if (!tSystem::LibrariesAreElf)
        return "is a library for Linux (ELF)";
    if (head.At<std::uint16_t>(18) != x86_64)
        return OtherMachine(head.At<std::uint16_t>(18), &Machine::Elf);
    if (head.At<std::uint16_t>(16) != sharedObject)
        return "is an object file or a program (ELF), not a shared library";
    const std::uint64_t sections = head.At<std::uint64_t>(40);
    const auto count = head.At<std::uint16_t>(60);
    return CutShort(size, count == 0
                              ? headerSize
                              : sections + std::uint64_t{count} * head.At<std::uint16_t>(58));
}

// Where a file of the Windows format has what its headers tell of.
struct PeLayout
{
    std::uint64_t Header;
    std::uint64_t Sections;
    std::uint16_t SectionCount;

    explicit PeLayout(const CBytes& bytes)
        : Header(bytes.At<std::uint32_t>(0x3C)),
          Sections(Header + 24 + bytes.At<std::uint16_t>(Header + 20)),
          SectionCount(bytes.At<std::uint16_t>(Header + 6))
    {
    }

    [[nodiscard]] std::uint64_t Section(std::uint64_t index) const
    {
        return Sections + index * 40;
    }

    // The offset in the file of what is loaded at an address; empty for what is nowhere.
    [[nodiscard]] std::optional<std::uint64_t> Offset(const CBytes& bytes,
                                                      std::uint64_t address) const
    {
        for (std::uint64_t index = 0; index < SectionCount; ++index)
        {
            const std::uint64_t begin = bytes.At<std::uint32_t>(Section(index) + 12);
            const std::uint64_t size = bytes.At<std::uint32_t>(Section(index) + 16);
            if (address >= begin && address - begin < size)
                return bytes.At<std::uint32_t>(Section(index) + 20) + (address - begin);
        }
        return std::nullopt;
    }
};

std::string WhyNoPe(const CBytes& head, std::uintmax_t size)
{
    constexpr std::uint32_t signature = 0x00004550; // "PE\0\0"
    constexpr std::uint16_t x86_64 = 0x8664;
    constexpr std::uint16_t isLibrary = 0x2000;
    const PeLayout layout(head);
    if (size < layout.Section(0))
        return CutShort(size, layout.Section(0));
    if (head.At<std::uint32_t>(layout.Header) != signature)
        return "is a program for DOS";
    const auto machine = head.At<std::uint16_t>(layout.Header + 4);
    if (machine == 0x014C)
        return "is a 32-bit library, and this is a 64-bit program";
    if (tSystem::LibrariesAreElf)
        return "is a library for Windows (PE)";
    if (machine != x86_64)
        return OtherMachine(machine, &Machine::Pe);
    if ((head.At<std::uint16_t>(layout.Header + 22) & isLibrary) == 0)
        return "is a program, not a library";
    std::uint64_t end = 0;
    for (std::uint64_t index = 0; index < layout.SectionCount; ++index)
        end = std::max<std::uint64_t>(
            end, std::uint64_t{head.At<std::uint32_t>(layout.Section(index) + 20)} +
                     head.At<std::uint32_t>(layout.Section(index) + 16));
    return CutShort(size, end);
}

std::string WhyNoRegularFile(const fs::path& path)
{
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    switch (status.type())
    {
    case fs::file_type::regular:
        return "";
    case fs::file_type::directory:
        return "is a folder";
    case fs::file_type::fifo:
        return "is a named pipe";
    case fs::file_type::socket:
        return "is a socket";
    case fs::file_type::block:
    case fs::file_type::character:
        return "is a device";
    case fs::file_type::not_found:
        break;
    default:
        return "cannot be read: " + error.message();
    }
    if (!fs::is_symlink(fs::symlink_status(path, error)))
        return "does not exist";
    const std::u8string target = fs::read_symlink(path, error).u8string();
    return "is a broken link: it leads to \"" + std::string(target.begin(), target.end()) +
           "\", which does not exist";
}

} // namespace

fs::path FilePath(const std::string& path)
{
    std::u8string text(path.begin(), path.end());
    std::replace(text.begin(), text.end(), u8'\\', u8'/');
    return {text};
}

std::string WhyNoLibrary(const fs::path& path)
{
    if (std::string reason = WhyNoRegularFile(path); !reason.empty())
        return reason;
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::string("cannot be read: ") + std::strerror(errno == 0 ? EIO : errno);
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    if (size == 0)
        return "is empty";
    const CBytes head = ReadHead(file, size);
    if (head.StartsWith("\x7F"
                        "ELF"))
        return WhyNoElf(head, size);
    if (head.StartsWith("MZ"))
        return WhyNoPe(head, size);
    return head.IsText() ? "is a text file, no library" : "is no library: it begins like none";
}

std::vector<Import> ReadImports(const fs::path& path)
{
    std::vector<Import> imports;
    if (tSystem::LibrariesAreElf)
        return imports;
    std::ifstream file(path, std::ios::binary);
    const CBytes bytes(std::string(std::istreambuf_iterator<char>(file), {}));
    const PeLayout layout(bytes);
    constexpr std::uint64_t limit = 10'000; // of anything in a table, so that it ends
    constexpr std::uint64_t byNumber = std::uint64_t{1} << 63U;
    const std::uint64_t directory = layout.Header + 24 + 120;
    const auto table = layout.Offset(bytes, bytes.At<std::uint32_t>(directory));
    for (std::uint64_t entry = 0; table && entry < limit; ++entry)
    {
        const std::uint64_t at = *table + entry * 20;
        const auto name = layout.Offset(bytes, bytes.At<std::uint32_t>(at + 12));
        if (bytes.At<std::uint32_t>(at + 12) == 0 || !name)
            break;
        const std::string library = bytes.TextAt(*name);
        imports.push_back({library, {}});
        const auto names = layout.Offset(bytes, bytes.At<std::uint32_t>(at));
        for (std::uint64_t index = 0; names && index < limit; ++index)
        {
            const auto function = bytes.At<std::uint64_t>(*names + index * 8);
            if (function == 0)
                break;
            const auto text = layout.Offset(bytes, function);
            if ((function & byNumber) == 0 && text)
                imports.push_back({library, bytes.TextAt(*text + 2)});
        }
    }
    return imports;
}

} // namespace Tavrik::tHost
