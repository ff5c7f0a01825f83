// Follows the loader's own ways through the tables, in pieces of a fixed size. What it does not
// know is left to the loader, which refuses what it does not know.
#include "ElfTables.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace Tavrik::tSystem
{

namespace
{

constexpr std::uint32_t VersionMask = 0x7FFF;
constexpr std::uint64_t Address = sizeof(std::uint64_t);

} // namespace

bool CElfTables::AreComplete() noexcept
{
    mWritesEverywhere = Find(DT_TEXTREL) || (Value(DT_FLAGS) & DF_TEXTREL) != 0;
    mFunctions[0] = {Value(DT_INIT_ARRAY), Value(DT_INIT_ARRAYSZ), 0};
    mFunctions[1] = {Value(DT_FINI_ARRAY), Value(DT_FINI_ARRAYSZ), 0};
    return CheckNames() && CheckHash() && CheckGnuHash() && CheckRelocations() &&
           CheckPackedRelocations() && CheckFunctions() && CheckSymbols() && CheckVersions();
}

std::optional<std::uint64_t> CElfTables::Find(std::int64_t tag) const noexcept
{
    const auto entries = mFile.Dynamic();
    const auto found = std::ranges::find(entries, tag, &Elf64_Dyn::d_tag);
    return found == entries.end() ? std::nullopt : std::optional(found->d_un.d_val);
}

template <class Entry, class Visit>
bool CElfTables::ForEach(std::uint64_t address, std::uint64_t count, Visit visit) noexcept
{
    constexpr std::uint64_t pieceCount = 4096 / sizeof(Entry);
    Entry piece[pieceCount];
    for (std::uint64_t first = 0; first < count; first += pieceCount)
    {
        const std::size_t size = std::min(pieceCount, count - first);
        if (!mFile.ReadLoaded(address + first * sizeof(Entry), piece, size * sizeof(Entry)))
            return false;
        for (std::size_t index = 0; index < size; ++index)
        {
            if (!visit(first + index, piece[index]))
                return false;
        }
    }
    return true;
}

template <class Entry>
bool CElfTables::Read(std::uint64_t address, Entry& entry) noexcept
{
    return mFile.ReadLoaded(address, &entry, sizeof entry);
}

bool CElfTables::IsName(std::uint64_t offset) const noexcept
{
    return offset < mNamesSize;
}

bool CElfTables::IsCode(std::uint64_t address) const noexcept
{
    return mFile.IsLoaded(address, 1, PF_X);
}

// The last name ends with the table.
bool CElfTables::CheckNames() noexcept
{
    const std::uint64_t names = Value(DT_STRTAB);
    mNamesSize = Value(DT_STRSZ);
    char end;
    if (!mFile.IsLoaded(names, mNamesSize) || !Read(names + mNamesSize - 1, end) || end != '\0')
        return false;
    for (const std::int64_t tag : {DT_SONAME, DT_RPATH, DT_RUNPATH})
    {
        if (const auto name = Find(tag); name && !IsName(*name))
            return false;
    }
    char name[CElfFile::NameLimit];
    for (std::size_t index = 0; index < mFile.NeededCount(); ++index)
    {
        if (!mFile.ReadNeeded(index, name))
            return false;
    }
    return true;
}

bool CElfTables::CheckHash() noexcept
{
    const auto table = Find(DT_HASH);
    if (!table)
        return true;
    std::uint32_t counts[2]; // buckets, symbols
    if (!Read(*table, counts) || counts[0] == 0)
        return false;
    mSymbolCount = std::max<std::uint64_t>(mSymbolCount, counts[1]);
    return ForEach<std::uint32_t>(*table + sizeof counts, std::uint64_t{counts[0]} + counts[1],
                                  [&](std::uint64_t, std::uint32_t symbol)
                                  { return symbol < counts[1]; });
}

// Each chain of symbols ends with an odd number; the last symbol is where the last chain ends.
bool CElfTables::CheckGnuHash() noexcept
{
    const auto table = Find(DT_GNU_HASH);
    if (!table)
        return true;
    struct
    {
        std::uint32_t BucketCount, FirstSymbol, FilterSize, FilterShift;
    } header;
    if (!Read(*table, header) || header.BucketCount == 0 || !std::has_single_bit(header.FilterSize))
        return false;
    const std::uint64_t buckets =
        *table + sizeof header + std::uint64_t{header.FilterSize} * sizeof(std::uint64_t);
    std::uint32_t last = 0;
    const bool areBucketsSound =
        ForEach<std::uint32_t>(buckets, header.BucketCount,
                               [&](std::uint64_t, std::uint32_t symbol)
                               {
                                   last = std::max(last, symbol);
                                   return symbol == 0 || symbol >= header.FirstSymbol;
                               });
    if (!areBucketsSound || last == 0)
        return areBucketsSound;
    const std::uint64_t chains =
        buckets + std::uint64_t{header.BucketCount} * sizeof(std::uint32_t);
    for (std::uint32_t chain = 0; (chain & 1) == 0; ++last)
    {
        if (!Read(chains + std::uint64_t{last - header.FirstSymbol} * sizeof chain, chain))
            return false;
    }
    mSymbolCount = std::max<std::uint64_t>(mSymbolCount, last);
    return true;
}

bool CElfTables::CheckRelocations() noexcept
{
    const std::uint64_t relativeCount = Value(DT_RELACOUNT);
    const std::uint64_t count = Value(DT_RELASZ) / sizeof(Elf64_Rela);
    const bool isForm = (!Find(DT_RELA) || Value(DT_RELAENT) == sizeof(Elf64_Rela)) &&
                        (!Find(DT_JMPREL) || Value(DT_PLTREL) == DT_RELA);
    return isForm && relativeCount <= count &&
           ForEach<Elf64_Rela>(Value(DT_RELA), count,
                               [&](std::uint64_t index, const Elf64_Rela& relocation)
                               { return CheckRelocation(relocation, index < relativeCount); }) &&
           ForEach<Elf64_Rela>(Value(DT_JMPREL), Value(DT_PLTRELSZ) / sizeof(Elf64_Rela),
                               [&](std::uint64_t, const Elf64_Rela& relocation)
                               { return CheckRelocation(relocation, false); });
}

bool CElfTables::CheckRelocation(const Elf64_Rela& relocation, bool mustBeRelative) noexcept
{
    const std::uint64_t type = ELF64_R_TYPE(relocation.r_info);
    const std::uint64_t symbol = ELF64_R_SYM(relocation.r_info);
    const bool isRelative = type == R_X86_64_RELATIVE;
    const auto code = static_cast<std::uint64_t>(relocation.r_addend);
    if (type == R_X86_64_NONE && !mustBeRelative)
        return true;
    const std::uint64_t size = type == R_X86_64_PC32 || type == R_X86_64_32 ? 4 : Address;
    if ((mustBeRelative && !isRelative) || (type == R_X86_64_IRELATIVE && !IsCode(code)) ||
        !mFile.IsLoaded(relocation.r_offset, size, mWritesEverywhere ? 0 : PF_W, true))
        return false;
    mSymbolCount = std::max(mSymbolCount, symbol + 1);
    if (Functions* const functions = FunctionsAt(relocation.r_offset);
        functions != nullptr && (isRelative ? IsCode(code) : symbol != 0))
        ++functions->Filled;
    return true;
}

// An even entry is an address, an odd one tells which of the 63 places behind are relocated too.
bool CElfTables::CheckPackedRelocations() noexcept
{
    std::uint64_t next = 0;
    return ForEach<std::uint64_t>(
        Value(DT_RELR), Value(DT_RELRSZ) / sizeof(std::uint64_t),
        [&](std::uint64_t, std::uint64_t entry)
        {
            if ((entry & 1) == 0)
            {
                next = entry + Address;
                return CheckPackedRelocation(entry);
            }
            for (std::uint64_t place = 0, bits = entry >> 1; bits != 0; ++place, bits >>= 1)
            {
                if ((bits & 1) != 0 && !CheckPackedRelocation(next + place * Address))
                    return false;
            }
            next += 63 * Address;
            return true;
        });
}

bool CElfTables::CheckPackedRelocation(std::uint64_t address) noexcept
{
    if (!mFile.IsLoaded(address, Address, mWritesEverywhere ? 0 : PF_W, true))
        return false;
    std::uint64_t target;
    if (Functions* const functions = FunctionsAt(address);
        functions != nullptr && Read(address, target) && IsCode(target))
        ++functions->Filled;
    return true;
}

// What lies before the functions is, without a sign, far behind them.
CElfTables::Functions* CElfTables::FunctionsAt(std::uint64_t address) noexcept
{
    for (Functions& functions : mFunctions)
    {
        if (address - functions.Address < functions.Size)
            return &functions;
    }
    return nullptr;
}

bool CElfTables::CheckFunctions() noexcept
{
    for (const Functions& functions : mFunctions)
    {
        if (functions.Size % Address != 0 || functions.Filled < functions.Size / Address)
            return false;
    }
    for (const std::int64_t tag : {DT_INIT, DT_FINI})
    {
        if (const auto function = Find(tag); function && !IsCode(*function))
            return false;
    }
    return true;
}

// An empty symbol, but for the first, is one that was not written.
bool CElfTables::CheckSymbols() noexcept
{
    constexpr Elf64_Sym empty = {};
    return Value(DT_SYMENT) == sizeof(Elf64_Sym) &&
           ForEach<Elf64_Sym>(
               Value(DT_SYMTAB), mSymbolCount,
               [&](std::uint64_t index, const Elf64_Sym& symbol)
               {
                   const bool isChosenByCode = ELF64_ST_TYPE(symbol.st_info) == STT_GNU_IFUNC &&
                                               symbol.st_shndx != SHN_UNDEF;
                   return index == 0 ||
                          (std::memcmp(&symbol, &empty, sizeof empty) != 0 &&
                           IsName(symbol.st_name) && (!isChosenByCode || IsCode(symbol.st_value)));
               });
}

// The loader numbers versions as the file does, and stops the process for one whose library the
// file does not name.
bool CElfTables::CheckVersions() noexcept
{
    std::uint32_t last = 1;
    std::uint32_t left = 1U << 24; // for chains that run into each other
    for (std::uint64_t at = Value(DT_VERNEED), next = at; next != 0; at += next)
    {
        Elf64_Verneed library;
        if (!Read(at, library) || library.vn_version != 1 || !IsOfNeeded(library.vn_file))
            return false;
        std::uint64_t aux = at + library.vn_aux;
        Elf64_Vernaux version;
        do
        {
            if (left-- == 0 || !Read(aux, version) || !IsName(version.vna_name))
                return false;
            last = std::max(last, version.vna_other & VersionMask);
            aux += version.vna_next;
        } while (version.vna_next != 0);
        next = library.vn_next;
    }
    for (std::uint64_t at = Value(DT_VERDEF), next = at; next != 0; at += next)
    {
        Elf64_Verdef version;
        if (!Read(at, version) || version.vd_version != 1)
            return false;
        last = std::max(last, version.vd_ndx & VersionMask);
        next = version.vd_next;
    }
    return !Find(DT_VERSYM) || ForEach<Elf64_Half>(Value(DT_VERSYM), mSymbolCount,
                                                   [&](std::uint64_t, Elf64_Half version)
                                                   { return (version & VersionMask) <= last; });
}

bool CElfTables::IsOfNeeded(std::uint64_t name) noexcept
{
    if (!IsName(name))
        return false;
    char needed[CElfFile::NameLimit];
    char asked[CElfFile::NameLimit];
    for (std::size_t index = 0; index < mFile.NeededCount(); ++index)
    {
        if (mFile.ReadNeeded(index, needed) &&
            mFile.ReadLoaded(Value(DT_STRTAB) + name, asked, std::strlen(needed) + 1) &&
            std::strcmp(needed, asked) == 0)
            return true;
    }
    return false;
}

} // namespace Tavrik::tSystem
