// Every number in the file is taken for hostile; whatever leads out of it counts as cut short.
#include "PeFile.h"

#include "../ForeignFile.h"
#include "../WideText.h"

#include <windows.h>

#include <cstring>
#include <vector>

namespace Tavrik::tSystem
{

namespace
{

// Null where the file cannot be opened, or is no file.
class CFileContent
{
public:
    explicit CFileContent(const std::wstring& path)
    {
        const HANDLE file = CreateFileW(path.c_str(), GENERIC_READ,
                                        FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                        nullptr, OPEN_EXISTING, 0, nullptr);
        LARGE_INTEGER size = {};
        if (file == INVALID_HANDLE_VALUE)
            return;
        mIsOpen = GetFileSizeEx(file, &size) != 0;
        const HANDLE mapping = CreateFileMappingW(file, nullptr, PAGE_READONLY, 0, 0, nullptr);
        if (mapping != nullptr)
        {
            mView = static_cast<const char*>(MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0));
            mSize = mView == nullptr ? 0 : static_cast<std::size_t>(size.QuadPart);
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

    [[nodiscard]] bool IsOpen() const noexcept
    {
        return mIsOpen;
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
    bool mIsOpen = false;
};

class CPeFile
{
public:
    explicit CPeFile(const std::wstring& path) : mContent(path)
    {
    }

    // What keeps it from being a library of this machine; empty when nothing does.
    [[nodiscard]] std::string Fault()
    {
        if (!mContent.IsOpen())
            return "cannot be read";
        if (const char* const foreign = tDetail::NameForeignFile(mContent.All(), "MZ"))
            return foreign;
        IMAGE_DOS_HEADER dos;
        const char* const cutShort = "cut short, or damaged";
        if (!mContent.Read(0, dos) ||
            !mContent.Read(static_cast<std::uint32_t>(dos.e_lfanew), mHeaders) ||
            mHeaders.Signature != IMAGE_NT_SIGNATURE)
            return cutShort;
        if (mHeaders.FileHeader.Machine == IMAGE_FILE_MACHINE_I386)
            return "a 32-bit library";
        if (mHeaders.FileHeader.Machine != IMAGE_FILE_MACHINE_AMD64)
            return "built for another processor";
        if ((mHeaders.FileHeader.Characteristics & IMAGE_FILE_DLL) == 0)
            return "a program, and no library";
        return ReadSections(static_cast<std::uint32_t>(dos.e_lfanew)) ? "" : cutShort;
    }

    // The libraries that it needs.
    [[nodiscard]] std::vector<std::string> Needed() const
    {
        std::vector<std::string> names;
        std::uint64_t at =
            mHeaders.OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
        IMAGE_IMPORT_DESCRIPTOR import = {};
        for (; at != 0 && mContent.Read(OffsetOf(at), import) && import.Name != 0;
             at += sizeof import)
        {
            const std::string_view all = mContent.All();
            const std::uint64_t name = OffsetOf(import.Name);
            if (name < all.size())
                names.emplace_back(all.substr(name, all.find('\0', name) - name));
        }
        return names;
    }

private:
    [[nodiscard]] bool ReadSections(std::uint64_t headers)
    {
        std::uint64_t at = headers + offsetof(IMAGE_NT_HEADERS64, OptionalHeader) +
                           mHeaders.FileHeader.SizeOfOptionalHeader;
        mSections.resize(mHeaders.FileHeader.NumberOfSections);
        for (IMAGE_SECTION_HEADER& section : mSections)
        {
            if (!mContent.Read(at, section) || section.PointerToRawData > mContent.All().size() ||
                section.SizeOfRawData > mContent.All().size() - section.PointerToRawData)
                return false;
            at += sizeof section;
        }
        return true;
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
[[nodiscard]] std::string MissingOf(const CPeFile& file, const std::wstring& folder, int level)
{
    constexpr int levelLimit = 4;
    for (const std::string& needed : file.Needed())
    {
        const std::wstring name = FromUtf8(needed);
        // Names of this form stand for whatever library of the system has the functions.
        if (needed.starts_with("api-ms-") || needed.starts_with("ext-ms-") ||
            GetModuleHandleW(name.c_str()) != nullptr)
            continue;
        if (IsFile(folder + name))
        {
            CPeFile neighbour(folder + name);
            std::string fault = neighbour.Fault();
            if (fault.empty() && level < levelLimit)
                fault = MissingOf(neighbour, folder, level + 1);
            if (!fault.empty())
                return "needs \"" + needed + "\": " + fault;
        }
        else if (SearchPathW(nullptr, name.c_str(), nullptr, 0, nullptr, nullptr) == 0)
        {
            return "needs \"" + needed + "\", which is not found";
        }
    }
    return {};
}

} // namespace

std::string WhyNotLoaded(const std::wstring& path, const std::string& systemsWords)
{
    const DWORD attributes = GetFileAttributesW(path.c_str());
    if (attributes == INVALID_FILE_ATTRIBUTES)
        return systemsWords;
    std::string fault = "a folder";
    if ((attributes & FILE_ATTRIBUTE_DIRECTORY) == 0)
    {
        CPeFile file(path);
        fault = file.Fault();
        if (fault.empty())
            fault = MissingOf(file, path.substr(0, path.find_last_of(L"\\/") + 1), 0);
    }
    return fault.empty() ? systemsWords : fault + " (" + systemsWords + ")";
}

} // namespace Tavrik::tSystem
