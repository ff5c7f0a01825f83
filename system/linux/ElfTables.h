// The check of what a library's dynamic section points to.
#pragma once

#include "ElfFile.h"

#include <optional>

namespace Tavrik::tSystem
{

// Sees to it that the system's loader finds what it goes by: names, symbols, relocations, versions
// and the functions that start and end the library, all in the file, with indices and offsets
// within their tables. Whether code and data are the right ones nobody can tell.
class CElfTables
{
public:
    explicit CElfTables(CElfFile& file) noexcept : mFile(file)
    {
    }

    [[nodiscard]] bool AreComplete() noexcept;

private:
    // Functions that the loader calls; each place must be filled by a relocation.
    struct Functions
    {
        std::uint64_t Address = 0;
        std::uint64_t Size = 0;
        std::uint64_t Filled = 0; // with a function, as far as can be told
    };

    [[nodiscard]] std::optional<std::uint64_t> Find(std::int64_t tag) const noexcept;
    [[nodiscard]] std::uint64_t Value(std::int64_t tag) const noexcept
    {
        return Find(tag).value_or(0);
    }

    template <class Entry, class Visit>
    bool ForEach(std::uint64_t address, std::uint64_t count, Visit visit) noexcept;
    template <class Entry>
    bool Read(std::uint64_t address, Entry& entry) noexcept;
    [[nodiscard]] bool IsName(std::uint64_t offset) const noexcept;
    [[nodiscard]] bool IsCode(std::uint64_t address) const noexcept;

    bool CheckNames() noexcept;
    bool CheckHash() noexcept;
    bool CheckGnuHash() noexcept;
    bool CheckRelocations() noexcept;
    bool CheckRelocation(const Elf64_Rela& relocation, bool mustBeRelative) noexcept;
    bool CheckPackedRelocations() noexcept;
    bool CheckPackedRelocation(std::uint64_t address) noexcept;
    bool CheckFunctions() noexcept;
    bool CheckSymbols() noexcept;
    bool CheckVersions() noexcept;
    bool IsOfNeeded(std::uint64_t name) noexcept;
    Functions* FunctionsAt(std::uint64_t address) noexcept;

    CElfFile& mFile;
    std::uint64_t mNamesSize = 0;
    std::uint64_t mSymbolCount = 1; // as far as the others refer to them
    bool mWritesEverywhere = false;
    Functions mFunctions[2]; // at the start, at the end
};

} // namespace Tavrik::tSystem
