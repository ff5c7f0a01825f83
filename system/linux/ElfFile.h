// What a library file says about itself, read without mapping it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <elf.h>
#include <span>
#include <string>

namespace Tavrik::tSystem
{

// The system's loader maps a file that is not all there all the same, and the process dies later,
// when it touches a page that does not exist, or follows a table that is not written yet. This
// class and `CElfTables` see it beforehand. It keeps one descriptor and, but for the words about a
// fault, takes no memory.
class CElfFile
{
public:
    static constexpr std::size_t NameLimit = 256; // with the terminating zero

    explicit CElfFile(const char* path) noexcept;
    ~CElfFile();
    CElfFile(const CElfFile&) = delete;
    CElfFile& operator=(const CElfFile&) = delete;

    // True for a shared object of this machine whose headers, segments and tables all lie in the
    // file, written to their ends.
    [[nodiscard]] bool IsComplete() const noexcept
    {
        return mIsComplete;
    }

    // The system's number of what kept the file from being read, and 0 where it is the content that
    // is not complete.
    [[nodiscard]] int Error() const noexcept
    {
        return mError;
    }

    // What is wrong with the content of a file that is not complete, as the rest of a sentence.
    [[nodiscard]] std::string Fault() const;

    // The number of libraries that a complete file depends on.
    [[nodiscard]] std::size_t NeededCount() const noexcept
    {
        return mNeededCount;
    }

    // Reads the name of one of them, by an index below that number; false when the file holds no
    // proper name there.
    [[nodiscard]] bool ReadNeeded(std::size_t index, char (&name)[NameLimit]) noexcept;

    // --- For the check of the tables -----------------------------------------------------------

    // Reads what stands at an address of the loaded library; false unless all of it comes from the
    // file.
    [[nodiscard]] bool ReadLoaded(std::uint64_t address, void* to, std::size_t size) noexcept;

    // Whether that range is in one segment that has those flags, in the part that comes from the
    // file or, with `orCleared`, in the zeros behind.
    [[nodiscard]] bool IsLoaded(std::uint64_t address, std::uint64_t size, std::uint32_t flags = 0,
                                bool orCleared = false) const noexcept;

    // The dynamic section up to its end.
    [[nodiscard]] std::span<const Elf64_Dyn> Dynamic() const noexcept
    {
        return {mDynamic, mDynamicCount};
    }

private:
    static constexpr std::size_t SegmentLimit = 64;
    static constexpr std::size_t DynamicLimit = 512;

    bool Open(const char* path) noexcept;
    bool ReadHeaders() noexcept;
    bool CheckKind() noexcept;
    bool CheckSections() noexcept;
    template <class Visit>
    bool ForEachSegment(Visit visit) noexcept;
    bool CheckSegments() noexcept;
    bool CheckLoaded(const Elf64_Phdr& segment) noexcept;
    bool ReadDynamicSection(const Elf64_Phdr& segment) noexcept;
    bool Read(std::uint64_t offset, void* to, std::size_t size) noexcept;
    [[nodiscard]] const Elf64_Phdr* SegmentOf(std::uint64_t address) const noexcept;

    [[nodiscard]] bool IsInFile(std::uint64_t offset, std::uint64_t size) noexcept;

    int mFile = -1;
    int mError = 0;
    const char* mFault = nullptr; // null: of another processor, or cut short
    bool mIsComplete = false;
    std::uint64_t mFileSize = 0;
    std::uint64_t mWantedSize = 0; // as far as what was looked for behind the end tells
    Elf64_Ehdr mHeader = {};
    std::uint64_t mNames = 0; // their address
    std::size_t mNeededCount = 0;
    std::size_t mLoadedCount = 0;
    mutable std::size_t mLastLoaded = 0; // where an address was found last: the next is near it
    std::size_t mDynamicCount = 0;
    std::uint64_t mNeeded[DynamicLimit];
    Elf64_Phdr mLoaded[SegmentLimit]; // by ascending address
    Elf64_Dyn mDynamic[DynamicLimit];
    std::size_t mHeadSize = 0;
    unsigned char mHead[16384]; // the file's first bytes: headers, and mostly the tables
};

} // namespace Tavrik::tSystem
