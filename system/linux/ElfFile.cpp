// Every number in the file is taken for hostile: offsets and sizes are compared without adding
// them, and a read beyond the end is refused before it is made.
#include "ElfFile.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

namespace Tavrik::tSystem
{

CElfFile::CElfFile(const char* path) noexcept
{
    // Not blocking, for the sake of a pipe that has a library's name.
    mFile = open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    mIsComplete = mFile >= 0 && ReadHeaders() && CheckSegments();
    if (mIsComplete)
        ReadDynamicSection();
}

CElfFile::~CElfFile()
{
    if (mFile >= 0)
        close(mFile);
}

bool CElfFile::ReadNeeded(std::size_t index, char (&name)[NameLimit]) noexcept
{
    if (index >= mNeededCount || mNames == 0)
        return false;
    if (mNeeded[index] >= mFileSize - mNames)
        return false;
    const std::uint64_t offset = mNames + mNeeded[index];
    const std::size_t size = std::min<std::uint64_t>(NameLimit, mFileSize - offset);
    return Read(offset, name, size) && std::memchr(name, '\0', size) != nullptr && name[0] != '\0';
}

bool CElfFile::ReadHeaders() noexcept
{
    struct stat status;
    if (fstat(mFile, &status) != 0 || !S_ISREG(status.st_mode))
        return false;
    mFileSize = static_cast<std::uint64_t>(status.st_size);
    const std::size_t headSize = std::min<std::uint64_t>(sizeof mHead, mFileSize);
    const ssize_t read = pread(mFile, mHead, headSize, 0);
    if (read != static_cast<ssize_t>(headSize))
        return false;
    mHeadSize = headSize;
    if (!Read(0, &mHeader, sizeof mHeader))
        return false;

    const unsigned char* ident = mHeader.e_ident;
    const bool isOurs = std::memcmp(ident, ELFMAG, SELFMAG) == 0 && ident[EI_CLASS] == ELFCLASS64 &&
                        ident[EI_DATA] == ELFDATA2LSB && ident[EI_VERSION] == EV_CURRENT &&
                        mHeader.e_machine == EM_X86_64 && mHeader.e_type == ET_DYN;
    if (!isOurs || mHeader.e_phentsize != sizeof(Elf64_Phdr) || mHeader.e_phnum == 0)
        return false;
    // The sections are not mapped, but they end the file: without them it was cut short.
    const std::uint64_t sectionsSize = std::uint64_t(mHeader.e_shnum) * mHeader.e_shentsize;
    return IsInFile(mHeader.e_phoff, std::uint64_t(mHeader.e_phnum) * sizeof(Elf64_Phdr)) &&
           (mHeader.e_shoff == 0 || IsInFile(mHeader.e_shoff, sectionsSize));
}

bool CElfFile::CheckSegments() noexcept
{
    bool isLoadable = false;
    for (std::size_t index = 0; index < mHeader.e_phnum; ++index)
    {
        Elf64_Phdr segment;
        if (!ReadSegment(index, segment))
            return false;
        const bool isLoaded = segment.p_type == PT_LOAD;
        if (!isLoaded && segment.p_type != PT_DYNAMIC)
            continue;
        if (!IsInFile(segment.p_offset, segment.p_filesz))
            return false;
        isLoadable = isLoadable || isLoaded;
        if (!isLoaded)
            mDynamic = segment;
    }
    return isLoadable && mDynamic.p_type == PT_DYNAMIC;
}

void CElfFile::ReadDynamicSection() noexcept
{
    Elf64_Dyn entries[64];
    const std::uint64_t end = mDynamic.p_filesz / sizeof(Elf64_Dyn);
    for (std::uint64_t first = 0; first < end; first += std::size(entries))
    {
        const std::size_t count = std::min<std::uint64_t>(std::size(entries), end - first);
        if (!Read(mDynamic.p_offset + first * sizeof(Elf64_Dyn), entries, count * sizeof *entries))
            return;
        for (std::size_t index = 0; index < count; ++index)
        {
            const Elf64_Dyn& entry = entries[index];
            if (entry.d_tag == DT_NULL)
                return;
            if (entry.d_tag == DT_NEEDED && mNeededCount < NeededLimit)
                mNeeded[mNeededCount++] = entry.d_un.d_val;
            if (entry.d_tag == DT_STRTAB && !FindInFile(entry.d_un.d_ptr, mNames))
                mNames = 0;
        }
    }
}

bool CElfFile::ReadSegment(std::size_t index, Elf64_Phdr& segment) noexcept
{
    return Read(mHeader.e_phoff + index * sizeof segment, &segment, sizeof segment);
}

bool CElfFile::FindInFile(std::uint64_t address, std::uint64_t& offset) noexcept
{
    for (std::size_t index = 0; index < mHeader.e_phnum; ++index)
    {
        Elf64_Phdr segment;
        if (!ReadSegment(index, segment))
            return false;
        if (segment.p_type != PT_LOAD || address < segment.p_vaddr ||
            address - segment.p_vaddr >= segment.p_filesz)
            continue;
        offset = segment.p_offset + (address - segment.p_vaddr);
        return true;
    }
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
    return pread(mFile, to, size, static_cast<off_t>(offset)) == static_cast<ssize_t>(size);
}

} // namespace Tavrik::tSystem
