// What a library file says about itself, read without mapping it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <elf.h>

namespace Tavrik::tSystem
{

// The system's loader maps a file that was cut short all the same, and the process dies later, when
// it touches a page that is not there. This class sees it beforehand. It keeps one descriptor and
// takes no memory; for most files it reads twice.
class CElfFile
{
public:
    static constexpr std::size_t NameLimit = 256; // with the terminating zero

    explicit CElfFile(const char* path) noexcept;
    ~CElfFile();
    CElfFile(const CElfFile&) = delete;
    CElfFile& operator=(const CElfFile&) = delete;

    // True for a shared object of this machine whose headers and segments all lie in the file.
    [[nodiscard]] bool IsComplete() const noexcept
    {
        return mIsComplete;
    }

    // The number of libraries that a complete file depends on, as far as they are known here.
    [[nodiscard]] std::size_t NeededCount() const noexcept
    {
        return mNeededCount;
    }

    // Reads the name of one of them; false when the file holds no proper name there.
    [[nodiscard]] bool ReadNeeded(std::size_t index, char (&name)[NameLimit]) noexcept;

private:
    static constexpr std::size_t NeededLimit = 64; // those behind are left to the system's loader

    bool ReadHeaders() noexcept;
    bool CheckSegments() noexcept;
    void ReadDynamicSection() noexcept;
    bool ReadSegment(std::size_t index, Elf64_Phdr& segment) noexcept;
    bool FindInFile(std::uint64_t address, std::uint64_t& offset) noexcept;
    bool Read(std::uint64_t offset, void* to, std::size_t size) noexcept;

    [[nodiscard]] bool IsInFile(std::uint64_t offset, std::uint64_t size) const noexcept
    {
        return offset <= mFileSize && size <= mFileSize - offset;
    }

    int mFile = -1;
    bool mIsComplete = false;
    std::uint64_t mFileSize = 0;
    Elf64_Ehdr mHeader = {};
    Elf64_Phdr mDynamic = {};
    std::uint64_t mNames = 0; // offset of the names in the file; 0: not known
    std::size_t mNeededCount = 0;
    std::uint64_t mNeeded[NeededLimit];
    std::size_t mHeadSize = 0;
    unsigned char mHead[8192]; // the file's first bytes: headers, and mostly the names
};

} // namespace Tavrik::tSystem
