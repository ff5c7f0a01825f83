// Every number in the file is taken for hostile: offsets and sizes are compared without adding
// them, and a read beyond the end is refused before it is made.
#include "ElfFile.h"

#include "../ForeignFile.h"
#include "ElfTables.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace Tavrik::tSystem
{

namespace
{

constexpr tDetail::Processor Processors[] = {
    {EM_AARCH64, "ARM, 64 bits"}, {EM_ARM, "ARM, 32 bits"}, {EM_RISCV, "RISC-V"}};

// Null for a file.
const char* NameNoFile(mode_t mode) noexcept
{
    return S_ISREG(mode)    ? nullptr
           : S_ISDIR(mode)  ? "is a folder"
           : S_ISFIFO(mode) ? "is a named pipe"
           : S_ISSOCK(mode) ? "is a socket"
                            : "is a device";
}

} // namespace

CElfFile::CElfFile(const char* path) noexcept
{
    mIsComplete = Open(path) && ReadHeaders() && CheckSections() && CheckSegments() &&
                  CElfTables(*this).AreComplete();
}

CElfFile::~CElfFile()
{
    if (mFile >= 0)
        close(mFile);
}

std::string CElfFile::Fault() const
{
    if (mFault != nullptr)
        return mFault;
    const bool isOurs = mHeader.e_machine == EM_X86_64 && mHeader.e_ident[EI_DATA] == ELFDATA2LSB;
    return isOurs || mHeader.e_ident[EI_CLASS] == ELFCLASSNONE
               ? tDetail::CutShort(mFileSize, mWantedSize)
               : tDetail::ForOtherProcessor(mHeader.e_machine, Processors);
}

bool CElfFile::ReadNeeded(std::size_t index, char (&name)[NameLimit]) noexcept
{
    const std::uint64_t address = mNames + mNeeded[index];
    const Elf64_Phdr* const segment = SegmentOf(address);
    if (segment == nullptr)
        return false;
    const std::uint64_t left = segment->p_filesz - (address - segment->p_vaddr);
    const std::size_t size = std::min<std::uint64_t>(NameLimit, left);
    return ReadLoaded(address, name, size) && std::memchr(name, '\0', size) != nullptr &&
           name[0] != '\0';
}

bool CElfFile::ReadLoaded(std::uint64_t address, void* to, std::size_t size) noexcept
{
    const Elf64_Phdr* const segment = SegmentOf(address);
    return segment != nullptr && IsLoaded(address, size) &&
           Read(segment->p_offset + (address - segment->p_vaddr), to, size);
}

bool CElfFile::IsLoaded(std::uint64_t address, std::uint64_t size, std::uint32_t flags,
                        bool orCleared) const noexcept
{
    const Elf64_Phdr* const segment = SegmentOf(address);
    if (segment == nullptr || (segment->p_flags & flags) != flags)
        return false;
    const std::uint64_t offset = address - segment->p_vaddr;
    const std::uint64_t end = orCleared ? segment->p_memsz : segment->p_filesz;
    return offset <= end && size <= end - offset;
}

bool CElfFile::Open(const char* path) noexcept
{
    do
    {
        // Not blocking, for the sake of a pipe that has a library's name.
        mFile = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    } while (mFile < 0 && errno == EINTR);
    mError = mFile < 0 ? errno : 0;
    struct stat status;
    if ((mFile < 0 ? stat(path, &status) : fstat(mFile, &status)) != 0)
    {
        mError = mFile < 0 ? mError : errno;
        return false;
    }
    mFault = NameNoFile(status.st_mode);
    if (mFault != nullptr)
        mError = 0;
    mFileSize = static_cast<std::uint64_t>(status.st_size);
    return mFile >= 0 && mFault == nullptr;
}

bool CElfFile::ReadHeaders() noexcept
{
    const std::size_t headSize = std::min<std::uint64_t>(sizeof mHead, mFileSize);
    if (!Read(0, mHead, headSize))
        return false;
    mHeadSize = headSize;
    return CheckKind() && mHeader.e_phentsize == sizeof(Elf64_Phdr) && mHeader.e_phnum != 0 &&
           IsInFile(mHeader.e_phoff, std::uint64_t(mHeader.e_phnum) * sizeof(Elf64_Phdr));
}

bool CElfFile::CheckKind() noexcept
{
    const std::string_view head(reinterpret_cast<const char*>(mHead), mHeadSize);
    mFault = tDetail::NameForeignFile(head, std::string_view(ELFMAG, SELFMAG));
    if (mFault != nullptr || !Read(0, &mHeader, sizeof mHeader))
        return false;
    const unsigned char* ident = mHeader.e_ident;
    if (ident[EI_CLASS] == ELFCLASS32)
        mFault = tDetail::ThirtyTwoBits;
    else if (mHeader.e_machine == EM_X86_64 && mHeader.e_type != ET_DYN)
        mFault = "is a program or an object file, no library";
    return mFault == nullptr && mHeader.e_machine == EM_X86_64 && ident[EI_DATA] == ELFDATA2LSB &&
           ident[EI_CLASS] == ELFCLASS64 && ident[EI_VERSION] == EV_CURRENT;
}

// The sections are not mapped, but their table is what linkers write at the end: where it is empty
// the file was cut short, or is being copied at its full length.
bool CElfFile::CheckSections() noexcept
{
    if (mHeader.e_shoff == 0 || mHeader.e_shnum == 0)
        return true;
    const std::uint64_t size = std::uint64_t(mHeader.e_shnum) * mHeader.e_shentsize;
    if (mHeader.e_shentsize != sizeof(Elf64_Shdr) || !IsInFile(mHeader.e_shoff, size))
        return false;
    const std::uint64_t end = mHeader.e_shoff + size;
    Elf64_Shdr last;
    return Read(end - sizeof last, &last, sizeof last) &&
           (mHeader.e_shnum == 1 || (last.sh_type != SHT_NULL && last.sh_size != 0));
}

template <class Visit>
bool CElfFile::ForEachSegment(Visit visit) noexcept
{
    Elf64_Phdr segment;
    for (std::size_t index = 0; index < mHeader.e_phnum; ++index)
    {
        if (!Read(mHeader.e_phoff + index * sizeof segment, &segment, sizeof segment) ||
            !visit(segment))
            return false;
    }
    return true;
}

bool CElfFile::CheckSegments() noexcept
{
    Elf64_Phdr dynamic = {};
    const auto load = [&](const Elf64_Phdr& segment)
    {
        if (segment.p_type == PT_DYNAMIC)
            dynamic = segment;
        return segment.p_type != PT_LOAD || CheckLoaded(segment);
    };
    // The loader reads notes, and what threads begin with, from the mapped file.
    const auto isReadable = [&](const Elf64_Phdr& segment)
    {
        const bool isRead = segment.p_type == PT_TLS || segment.p_type == PT_NOTE;
        return !isRead || segment.p_filesz == 0 || IsLoaded(segment.p_vaddr, segment.p_filesz);
    };
    return ForEachSegment(load) && ForEachSegment(isReadable) && ReadDynamicSection(dynamic);
}

bool CElfFile::CheckLoaded(const Elf64_Phdr& segment) noexcept
{
    constexpr std::uint64_t addressLimit = std::uint64_t{1} << 47;
    constexpr std::uint64_t pageMask = 0xFFF;
    const std::uint64_t end =
        mLoadedCount == 0 ? 0
                          : mLoaded[mLoadedCount - 1].p_vaddr + mLoaded[mLoadedCount - 1].p_memsz;
    if (mLoadedCount == SegmentLimit || !IsInFile(segment.p_offset, segment.p_filesz) ||
        segment.p_filesz > segment.p_memsz || segment.p_vaddr < end ||
        segment.p_vaddr > addressLimit || segment.p_memsz > addressLimit ||
        ((segment.p_vaddr ^ segment.p_offset) & pageMask) != 0)
        return false;
    mLoaded[mLoadedCount++] = segment;
    return true;
}

bool CElfFile::ReadDynamicSection(const Elf64_Phdr& segment) noexcept
{
    const std::size_t count = std::min(segment.p_filesz / sizeof(Elf64_Dyn), DynamicLimit);
    if (!ReadLoaded(segment.p_vaddr, mDynamic, count * sizeof(Elf64_Dyn)))
        return false;
    const auto end = std::ranges::find(mDynamic, mDynamic + count, DT_NULL, &Elf64_Dyn::d_tag);
    mDynamicCount = static_cast<std::size_t>(end - mDynamic);
    for (const Elf64_Dyn& entry : Dynamic())
    {
        if (entry.d_tag == DT_STRTAB)
            mNames = entry.d_un.d_ptr;
        if (entry.d_tag == DT_NEEDED)
            mNeeded[mNeededCount++] = entry.d_un.d_val;
    }
    return mDynamicCount < count && mNames != 0; // else without an end, or names
}

const Elf64_Phdr* CElfFile::SegmentOf(std::uint64_t address) const noexcept
{
    const auto holds = [address](const Elf64_Phdr& segment)
    {
        return address - segment.p_vaddr < segment.p_memsz; // else it is far behind, without a sign
    };
    if (mLastLoaded < mLoadedCount && holds(mLoaded[mLastLoaded]))
        return &mLoaded[mLastLoaded];
    for (std::size_t index = 0; index < mLoadedCount; ++index)
    {
        if (!holds(mLoaded[index]))
            continue;
        mLastLoaded = index;
        return &mLoaded[index];
    }
    return nullptr;
}

bool CElfFile::IsInFile(std::uint64_t offset, std::uint64_t size) noexcept
{
    if (offset <= mFileSize && size <= mFileSize - offset)
        return true;
    mWantedSize = size <= UINT64_MAX - offset ? offset + size : 0;
    return false;
}

bool CElfFile::Read(std::uint64_t offset, void* to, std::size_t size) noexcept
{
    if (!IsInFile(offset, size))
        return false;
    if (offset <= mHeadSize && size <= mHeadSize - offset)
    {
        std::memcpy(to, mHead + offset, size);
        return true;
    }
    for (auto* at = static_cast<char*>(to); size > 0;)
    {
        const ssize_t read = pread(mFile, at, size, static_cast<off_t>(offset));
        if (read < 0 && errno == EINTR)
            continue;
        if (read <= 0)
        {
            mError = read < 0 ? errno : 0; // the file was longer a moment ago
            return false;
        }
        at += read;
        offset += static_cast<std::uint64_t>(read);
        size -= static_cast<std::size_t>(read);
    }
    return true;
}

} // namespace Tavrik::tSystem
