// Every number in the file is taken for hostile; whatever leads out of it counts as cut short.
#include "PeFile.h"

#include "../ForeignFile.h"
#include "../Program.h"
#include "../WideText.h"

#include <windows.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

namespace Tavrik::tSystem
{

namespace
{

// The system's words, on one line; its number where it has none, as for an exception that left the
// start-up of a library.
std::string TextOfError(DWORD error)
{
    wchar_t text[512];
    DWORD size = FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
                                error, 0, text, static_cast<DWORD>(std::size(text)), nullptr);
    while (size > 0 && (text[size - 1] == L'\n' || text[size - 1] == L'\r'))
        --size;
    return size > 0 ? ToUtf8(std::wstring_view(text, size)) : "error " + std::to_string(error);
}

std::string CannotBeLoaded(DWORD error)
{
    return "cannot be loaded: " + TextOfError(error);
}

class CFileContent
{
public:
    explicit CFileContent(const std::wstring& path)
    {
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                        nullptr, OPEN_EXISTING, 0, nullptr);
        mError = file == INVALID_HANDLE_VALUE ? GetLastError() : 0;
        if (mError != 0)
            return;
        LARGE_INTEGER size = {};
        mIsFile = GetFileType(file) == FILE_TYPE_DISK;
        if (mIsFile && GetFileSizeEx(file, &size) != 0 && size.QuadPart != 0)
        {
            const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
            if (mapping != nullptr)
                mView = static_cast<const char*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
            mError = mView == nullptr ? GetLastError() : 0;
            mSize = mView == nullptr ? 0 : static_cast<std::size_t>(size.QuadPart);
            if (mapping != nullptr)
                CloseHandle(mapping);
        }
        CloseHandle(file);
    }

    ~CFileContent()
    {
        if (mView != nullptr)
            UnmapViewOfFile(mView);
    }

    CFileContent(const CFileContent&) = delete;
    CFileContent& operator=(const CFileContent&) = delete;

    // The number of what keeps it from being read, or 0.
    [[nodiscard]] DWORD Error() const noexcept
    {
        return mError;
    }

    [[nodiscard]] bool IsFile() const noexcept
    {
        return mIsFile;
    }

    [[nodiscard]] std::string_view All() const noexcept
    {
        return {mView, mSize};
    }

    template <class Structure>
    [[nodiscard]] bool Read(std::uint64_t offset, Structure& to) const noexcept
    {
        if (offset > mSize || mSize - offset < sizeof to)
            return false;
        std::memcpy(&to, mView + offset, sizeof to);
        return true;
    }

private:
    const char* mView = nullptr;
    std::size_t mSize = 0;
    DWORD mError = 0;
    bool mIsFile = false;
};

constexpr tDetail::Processor Processors[] = {{IMAGE_FILE_MACHINE_ARM64, "ARM, 64 bits"},
                                             {IMAGE_FILE_MACHINE_ARMNT, "ARM, 32 bits"},
                                             {0x5064, "RISC-V"}};

struct NeededLibrary
{
    std::string Name;
    std::uint64_t Functions; // the address of what is left of the table
};

class CPeFile
{
public:
    explicit CPeFile(const std::wstring& path) : mContent(path)
    {
    }

    // What keeps it from being a library of this machine, as the rest of a sentence; empty when
    // nothing does.
    [[nodiscard]] std::string Fault()
    {
        if (mContent.Error() != 0)
            return "cannot be read: " + TextOfError(mContent.Error());
        if (!mContent.IsFile())
            return "is a pipe or a device";
        const std::string_view all = mContent.All();
        if (const char* const foreign = tDetail::NameForeignFile(all, "MZ"))
            return foreign;
        IMAGE_DOS_HEADER dos;
        if (!mContent.Read(0, dos))
            return tDetail::CutShort(all.size(), sizeof dos);
        const auto headers = static_cast<std::uint32_t>(dos.e_lfanew);
        if (!mContent.Read(headers, mHeaders))
            return tDetail::CutShort(all.size(), headers + sizeof mHeaders);
        if (mHeaders.Signature != IMAGE_NT_SIGNATURE)
            return "is a program for DOS, or damaged";
        const IMAGE_FILE_HEADER& header = mHeaders.FileHeader;
        if (header.Machine == IMAGE_FILE_MACHINE_I386)
            return tDetail::ThirtyTwoBits;
        if (header.Machine != IMAGE_FILE_MACHINE_AMD64)
            return tDetail::ForOtherProcessor(header.Machine, Processors);
        if ((header.Characteristics & IMAGE_FILE_DLL) == 0)
            return "is a program, no library";
        const std::uint64_t end = ReadSections(headers);
        return end > all.size() ? tDetail::CutShort(all.size(), end) : "";
    }

    // The libraries that it needs.
    [[nodiscard]] std::vector<NeededLibrary> Needed() const
    {
        std::vector<NeededLibrary> libraries;
        std::uint64_t at =
            mHeaders.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        IMAGE_IMPORT_DESCRIPTOR import = {};
        for (; at != 0 && mContent.Read(OffsetOf(at), import) && import.Name != 0;
             at += sizeof import)
            libraries.push_back({TextAt(import.Name), import.OriginalFirstThunk});
        return libraries;
    }

    // The next function that it needs of one by name; empty at the end.
    [[nodiscard]] std::string NextFunction(NeededLibrary& library) const
    {
        std::uint64_t function = 0;
        while (library.Functions != 0 && mContent.Read(OffsetOf(library.Functions), function) &&
               function != 0)
        {
            library.Functions += sizeof function;
            if ((function & IMAGE_ORDINAL_FLAG64) == 0)
                return TextAt(function + sizeof IMAGE_IMPORT_BY_NAME::Hint);
        }
        return {};
    }

private:
    // Where the last of them ends in the file, or the headers of those that it does not reach.
    [[nodiscard]] std::uint64_t ReadSections(std::uint64_t headers)
    {
        std::uint64_t at = headers + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                           mHeaders.FileHeader.SizeOfOptionalHeader;
        std::uint64_t end = 0;
        mSections.resize(mHeaders.FileHeader.NumberOfSections);
        for (IMAGE_SECTION_HEADER& section : mSections)
        {
            if (!mContent.Read(at, section))
                return at + sizeof section;
            end = std::max(end, std::uint64_t{section.PointerToRawData} + section.SizeOfRawData);
            at += sizeof section;
        }
        return end;
    }

    // Empty for what does not come from the file.
    [[nodiscard]] std::string TextAt(std::uint64_t address) const
    {
        const std::string_view all = mContent.All();
        const std::uint64_t begin = OffsetOf(address);
        return begin < all.size() ? std::string(all.substr(begin, all.find('\0', begin) - begin))
                                  : "";
    }

    // Behind the file for an address that does not come from it.
    [[nodiscard]] std::uint64_t OffsetOf(std::uint64_t address) const noexcept
    {
        for (const IMAGE_SECTION_HEADER& section : mSections)
        {
            if (address >= section.VirtualAddress &&
                address - section.VirtualAddress < section.SizeOfRawData)
                return section.PointerToRawData + (address - section.VirtualAddress);
        }
        return mContent.All().size();
    }

    CFileContent mContent;
    IMAGE_NT_HEADERS64 mHeaders = {};
    std::vector<IMAGE_SECTION_HEADER> mSections;
};

[[nodiscard]] bool IsFile(const std::wstring& path)
{
    return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// What is missing for a library of that folder; empty when nothing is known to be.
[[nodiscard]] std::string MissingLibrary(const CPeFile& file, const std::wstring& folder, int level)
{
    constexpr int levelLimit = 4;
    for (const NeededLibrary& needed : file.Needed())
    {
        const std::wstring name = FromUtf8(needed.Name);
        // Names of this form stand for whatever library of the system has the functions.
        if (needed.Name.starts_with("api-ms-") || needed.Name.starts_with("ext-ms-") ||
            GetModuleHandleW(name.c_str()) != nullptr)
            continue;
        std::string fault;
        if (IsFile(folder + name))
        {
            CPeFile neighbour(folder + name);
            fault = neighbour.Fault();
            if (fault.empty() && level < levelLimit)
                fault = MissingLibrary(neighbour, folder, level + 1);
        }
        else if (SearchPathW(nullptr, name.c_str(), nullptr, 0, nullptr, nullptr) == 0)
        {
            fault = "is not found";
        }
        if (!fault.empty())
            return "needs \"" + needed.Name + "\", which " + fault;
    }
    return {};
}

// The same of a library whose own libraries are all there. Loading them does nothing that its own
// load would not do.
[[nodiscard]] std::string MissingFunction(const CPeFile& file, const std::wstring& folder)
{
    for (NeededLibrary& needed : file.Needed())
    {
        const std::wstring name = FromUtf8(needed.Name);
        const bool isNeighbour = IsFile(folder + name);
        const HMODULE library =
            LoadLibraryExW((isNeighbour ? folder + name : name).c_str(), nullptr,
                           isNeighbour ? LOAD_WITH_ALTERED_SEARCH_PATH : 0);
        if (library == nullptr)
            return "needs \"" + needed.Name + "\", which " + CannotBeLoaded(GetLastError());
        std::string function = file.NextFunction(needed);
        while (!function.empty() && GetProcAddress(library, function.c_str()) != nullptr)
            function = file.NextFunction(needed);
        FreeLibrary(library);
        if (!function.empty())
            return "needs \"" + function + "\" of \"" + needed.Name +
                   "\", which does not have it (undefined symbol)";
    }
    return {};
}

// Empty where nothing is seen in the file, or a bare name does not tell which one it is.
[[nodiscard]] std::string FaultOf(const std::wstring& path, bool withFunctions)
{
    const std::wstring folder = path.substr(0, path.find_last_of(L"\\/") + 1);
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
    {
        const DWORD error = GetLastError();
        const bool isMissing = error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
        return isMissing && !folder.empty() ? "does not exist" : "";
    }
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        return "is a folder";
    CPeFile file(path);
    std::string fault = file.Fault();
    if (fault.empty())
        fault = MissingLibrary(file, folder, 0);
    return fault.empty() && withFunctions ? MissingFunction(file, folder) : fault;
}

} // namespace

std::string WhyNotLoaded(const std::wstring& path, unsigned long error)
{
    const std::string fault = FaultOf(path, error == ERROR_PROC_NOT_FOUND);
    return fault.empty() ? CannotBeLoaded(error) : fault;
}

std::string HiddenLibraryFault(const std::wstring& path)
{
    return FaultOf(path, true);
}

} // namespace Tavrik::tSystem
