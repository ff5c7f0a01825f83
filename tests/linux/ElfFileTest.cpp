// A library with one number of its headers or tables changed: whatever would lead the system's
// loader out of the file is refused before, and what it may meet in a sound one is not.
#include "linux/ElfFile.h"
#include "ServiceTools.h"

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr std::uint32_t Far = 1u << 31; // behind every end
const std::string Damaged = "is cut short or damaged";

// A number of an image, and another one in its place.
struct Set
{
    template <class Number>
    Set(Number& number, std::type_identity_t<Number> value) : Place(&number)
    {
        std::memcpy(Value.data(), &value, Size = sizeof value);
    }

    void* Place;
    std::array<char, 8> Value;
    std::size_t Size;
};

// The content of a file, and what stands where in it. The last of its relocations makes room for a
// table that the file lacks.
struct Image
{
    template <class Entry>
    Entry* At(std::uint64_t offset)
    {
        return reinterpret_cast<Entry*>(Bytes.data() + offset);
    }

    Elf64_Ehdr& Header()
    {
        return *At<Elf64_Ehdr>(0);
    }

    Elf64_Phdr& Segment(std::uint32_t type, int number = 0)
    {
        auto* segment = At<Elf64_Phdr>(Header().e_phoff);
        while (segment->p_type != type || number-- > 0)
            ++segment;
        return *segment;
    }

    // Of a tag; where there is none it is added.
    std::uint64_t& Value(std::int64_t tag)
    {
        auto* entry = At<Elf64_Dyn>(Segment(PT_DYNAMIC).p_offset);
        while (entry->d_tag != tag && entry->d_tag != DT_NULL)
            ++entry;
        entry->d_tag = tag;
        return entry->d_un.d_val;
    }

    template <class Entry>
    Entry* Table(std::int64_t tag)
    {
        int number = 0;
        while (Value(tag) >= Segment(PT_LOAD, number + 1).p_vaddr && number < 2)
            ++number;
        number += Value(tag) >= Segment(PT_LOAD, 3).p_vaddr;
        const Elf64_Phdr& segment = Segment(PT_LOAD, number);
        return At<Entry>(segment.p_offset + (Value(tag) - segment.p_vaddr));
    }

    template <class Entry>
    Entry* Put(std::int64_t tag, std::initializer_list<Entry> entries)
    {
        Value(DT_RELASZ) -= sizeof(Elf64_Rela);
        Value(tag) = Value(DT_RELA) + Value(DT_RELASZ);
        std::ranges::copy(entries, Table<Entry>(tag));
        return Table<Entry>(tag);
    }

    // The first relocation of a kind.
    Elf64_Rela& Relocation(std::uint64_t kind)
    {
        auto* entry = Table<Elf64_Rela>(DT_RELA);
        while (ELF64_R_TYPE(entry->r_info) != kind)
            ++entry;
        return *entry;
    }

    // What is said of the file after each of the changes.
    void Expect(const std::string& fault, auto... changes)
    {
        for (const Set& change : {changes...})
        {
            const std::string former = Bytes;
            std::memcpy(change.Place, change.Value.data(), change.Size);
            const tSystem::CElfFile file(Folder.Write("changed.dll", Bytes).c_str());
            const std::string said = file.IsComplete() ? "" : file.Fault();
            EXPECT_EQ(said.substr(0, std::max(Damaged.size(), fault.size())), fault)
                << "changed at " << static_cast<char*>(change.Place) - Bytes.data();
            Bytes.replace(0, former.size(), former);
        }
    }

    const TempFolder Folder;
    std::string Bytes = ReadFile(ModuleFile("raw", "Decent"));
    std::uint64_t Code = Value(DT_INIT);
    std::uint64_t DataEnd = Segment(PT_LOAD, 3).p_vaddr + Segment(PT_LOAD, 3).p_memsz;
};

TEST(ElfFile, IsRefusedForAnyNumberThatLeadsTheLoaderAstray)
{
    constexpr unsigned char chosen = ELF64_ST_INFO(STB_GLOBAL, STT_GNU_IFUNC);
    Image i;
    Elf64_Ehdr& head = i.Header();
    auto* const section = i.At<Elf64_Shdr>(head.e_shoff) + head.e_shnum - 1;
    auto* const hash = i.Table<std::uint32_t>(DT_GNU_HASH);
    auto* const symbols = i.Table<Elf64_Sym>(DT_SYMTAB);
    std::size_t defined = hash[1]; // a function of the file's own
    while (ELF64_ST_TYPE(symbols[defined].st_info) != STT_FUNC)
        ++defined;
    const std::size_t count = (i.Value(DT_STRTAB) - i.Value(DT_SYMTAB)) / sizeof(Elf64_Sym);
    auto* const versions = i.Table<Elf64_Half>(DT_VERSYM);
    auto* const needed = i.Table<Elf64_Verneed>(DT_VERNEED);
    auto* const version = reinterpret_cast<Elf64_Vernaux*>(needed + 1);
    const std::uint64_t names = i.Value(DT_STRSZ), functions = i.Value(DT_INIT_ARRAY);
    Elf64_Phdr& text = i.Segment(PT_LOAD, 1);
    Elf64_Phdr& data = i.Segment(PT_LOAD, 3);
    Elf64_Rela& object = i.Relocation(R_X86_64_GLOB_DAT);
    Elf64_Rela& function = i.Relocation(R_X86_64_RELATIVE);
    i.Expect(
        Damaged, Set(head.e_phentsize, 55), Set(head.e_phnum, 0), Set(head.e_phoff, Far),
        Set(head.e_ident[EI_CLASS], 3), Set(head.e_ident[EI_VERSION], 2), Set(head.e_shentsize, 63),
        Set(head.e_shoff, Far), Set(section->sh_size, 0), Set(section->sh_type, 0),
        Set(i.Segment(PT_DYNAMIC).p_filesz, 16), Set(i.Segment(PT_DYNAMIC).p_type, PT_NULL),
        Set(i.Segment(PT_NOTE).p_vaddr, Far), Set(text.p_filesz, text.p_memsz + 1),
        Set(text.p_offset, text.p_offset + 1), Set(text.p_vaddr, 0),
        Set(data.p_memsz, std::uint64_t{3} << 46), Set(data.p_offset, data.p_offset + 0x1000000),
        Set(i.Value(DT_STRSZ), 0), Set(i.Value(DT_STRSZ), names - 1), Set(i.Value(DT_STRTAB), Far),
        Set(i.Value(DT_SONAME), names), Set(i.Value(DT_RUNPATH), names),
        Set(i.Value(DT_GNU_HASH), Far), Set(hash[0], 0), Set(hash[1], 1000), Set(hash[2], 3),
        Set(i.Value(DT_RELA), Far), Set(i.Value(DT_RELASZ), Far), Set(i.Value(DT_RELAENT), 25),
        Set(i.Value(DT_RELACOUNT), i.Value(DT_RELACOUNT) + 1), Set(i.Value(DT_RELACOUNT), Far),
        Set(object.r_offset, i.Code), Set(object.r_offset, i.DataEnd - 4),
        Set(object.r_info, R_X86_64_IRELATIVE),
        Set(object.r_info, std::uint64_t{1000} << 32 | R_X86_64_GLOB_DAT),
        Set(function.r_info, R_X86_64_NONE), Set(function.r_addend, 0),
        Set(i.Value(DT_INIT_ARRAYSZ), i.Value(DT_INIT_ARRAYSZ) + 1),
        Set(i.Value(DT_FINI_ARRAYSZ), i.Value(DT_FINI_ARRAYSZ) + 8),
        Set(i.Value(DT_INIT), functions), Set(i.Value(DT_FINI), Far), Set(i.Value(DT_SYMENT), 25),
        Set(i.Value(DT_SYMTAB), Far), Set(symbols[defined].st_name, Far),
        Set(symbols[count - 1].st_name, Far), Set(hash[4 + 2 * hash[2]], 1),
        Set(object.r_info, std::uint64_t{count} << 32 | R_X86_64_GLOB_DAT),
        Set((&i.Value(DT_NEEDED))[2], Far), Set((&i.Value(DT_STRTAB))[-1], DT_DEBUG),
        Set(needed->vn_version, 2), Set(needed->vn_file, Far), Set(needed->vn_file, 1),
        Set(needed->vn_aux, Far), Set(needed->vn_next, Far), Set(version->vna_name, Far),
        Set(versions[defined], 0x7FFF));
    i.Expect("", Set(head.e_shnum, 0), Set(head.e_shnum, 1), Set(head.e_shoff, 0),
             Set(i.Value(DT_RELASZ), i.Value(DT_RELACOUNT) * sizeof(Elf64_Rela)),
             Set(object.r_info, (std::uint64_t{count} - 1) << 32 | R_X86_64_GLOB_DAT),
             Set(i.Value(DT_RELACOUNT), 0), Set(object.r_info, R_X86_64_NONE),
             Set(object.r_offset, i.DataEnd - 8), Set(symbols[1].st_info, chosen),
             Set(symbols[defined].st_info, chosen), Set(versions[defined], 0x8001));
    i.Expect("is a program or an object file, no library", Set(head.e_type, ET_EXEC));
    i.Expect("is built for another processor", Set(head.e_ident[EI_DATA], ELFDATA2MSB));

    // With two numbers changed.
    i.Segment(PT_NOTE).p_vaddr = Far;
    i.Expect("", Set(i.Segment(PT_NOTE).p_filesz, 0));
    i.Segment(PT_NOTE).p_vaddr = i.Segment(PT_NOTE).p_offset;
    symbols[defined].st_info = chosen;
    i.Expect(Damaged, Set(symbols[defined].st_value, functions));
    symbols[1] = {};
    symbols[defined].st_name = 1;
    i.Expect(Damaged, Set(symbols[defined].st_name, 1));
    symbols[1].st_name = 1;
    object.r_info = R_X86_64_IRELATIVE;
    i.Expect("", Set(object.r_addend, static_cast<std::int64_t>(i.Code)));
    object.r_info = R_X86_64_PC32;
    i.Expect("", Set(object.r_offset, i.DataEnd - 4));
    i.Value(DT_FLAGS) |= DF_TEXTREL;
    i.Expect("", Set(object.r_offset, i.Code));
    auto* const versioned = i.Put<std::uint32_t>(DT_VERDEF, {1, 0x7FFE, 0, 0, 0});
    i.Expect("", Set(versions[defined], 0x7FFE));
    i.Expect(Damaged, Set(versioned[0], 2), Set(versioned[4], Far));
    i.Value(DT_RELACOUNT) = 0;
    i.Expect("", Set(function.r_info, std::uint64_t{defined} << 32 | R_X86_64_64));
    i.Expect(Damaged, Set(function.r_info, R_X86_64_64));
    (&i.Value(DT_VERSYM))[-1] = (&i.Value(DT_VERNEED))[-1] = DT_DEBUG; // no version names a library
    i.Expect(Damaged, Set(i.Value(DT_NEEDED), names));
}

TEST(ElfFile, IsReadInTheOtherFormsThatItsTablesMayHave)
{
    Image hashed;
    auto* const counts = hashed.Put<std::uint32_t>(DT_HASH, {1, 2, 1, 0, 0});
    hashed.Expect("", Set(counts[2], 0), Set((&hashed.Value(DT_GNU_HASH))[-1], DT_DEBUG));
    hashed.Expect(Damaged, Set(counts[0], 0), Set(counts[0], Far), Set(counts[2], 2));

    Image called;
    constexpr std::uint64_t call = std::uint64_t{1} << 32 | R_X86_64_JUMP_SLOT;
    auto* const calls = called.Put<std::uint64_t>(DT_JMPREL, {called.DataEnd - 8, call, 0});
    called.Value(DT_PLTRELSZ) = sizeof(Elf64_Rela);
    called.Value(DT_PLTREL) = DT_RELA;
    called.Expect("", Set(calls[2], 1));
    called.Expect(Damaged, Set(called.Value(DT_PLTREL), DT_REL), Set(calls[0], called.Code));

    // An even word is a place, an odd one tells which of the 63 behind it are meant.
    Image packed;
    const std::uint64_t end = packed.DataEnd, functions = packed.Value(DT_INIT_ARRAY);
    auto* const words = packed.Put<std::uint64_t>(DT_RELR, {end - 16 - 63 * 8, 1, 3});
    auto& function = *packed.Table<std::uint64_t>(DT_INIT_ARRAY);
    packed.Value(DT_RELRSZ) = 24;
    packed.Expect("", Set(words[2], 3));
    packed.Expect(Damaged, Set(words[2], 5), Set(words[0], packed.Code));
    words[0] = functions; // which nothing else fills
    packed.Value(DT_RELACOUNT) = 0;
    packed.Relocation(R_X86_64_RELATIVE).r_info = R_X86_64_NONE;
    packed.Expect("", Set(function, packed.Code));
    packed.Expect(Damaged, Set(function, functions), Set(words[0], end - 16 - 63 * 8));
}

} // namespace

} // namespace Tavrik::Ossira
