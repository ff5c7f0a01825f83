// A library calls the heap of the C run-time library through its import table, whose entries are
// changed here. One that brings a run-time library of its own has no such entries.
#include "../AllocationHook.h"

#include "../AllocationWatch.h"

#include <windows.h>

#include <array>
#include <cstdlib>
#include <malloc.h>
#include <utility>

namespace Tavrik::tSystem
{

const bool ExceptionsNeedMemory = true; // the reserve has a lock, which is made at its first use

bool IsLoaded(const wchar_t* path)
{
    return GetModuleHandleW(path) != nullptr;
}

namespace
{

void* Malloc(std::size_t size)
{
    return IsToFail() ? nullptr : NoteAllocated(std::malloc(size));
}

void* Calloc(std::size_t count, std::size_t size)
{
    return IsToFail() ? nullptr : NoteAllocated(std::calloc(count, size));
}

void* Realloc(void* memory, std::size_t size)
{
    if (IsToFail())
        return nullptr;
    void* const moved = std::realloc(memory, size);
    return memory == nullptr ? NoteAllocated(moved) : moved;
}

void Free(void* memory)
{
    if (memory == nullptr)
        return;
    NoteFreed(memory, _msize(memory));
    std::free(memory);
}

// What stands in the import table for a function, and what is to stand there.
using Replacements = std::array<std::pair<void*, void*>, 4>;

Replacements FindReplacements()
{
    const HMODULE library = GetModuleHandleW(L"msvcrt.dll");
    const auto find = [library](const char* name)
    {
        return library == nullptr ? nullptr
                                  : reinterpret_cast<void*>(GetProcAddress(library, name));
    };
    return {{{find("malloc"), reinterpret_cast<void*>(&Malloc)},
             {find("calloc"), reinterpret_cast<void*>(&Calloc)},
             {find("realloc"), reinterpret_cast<void*>(&Realloc)},
             {find("free"), reinterpret_cast<void*>(&Free)}}};
}

void Write(void** entry, void* value)
{
    DWORD former = 0;
    if (VirtualProtect(static_cast<void*>(entry), sizeof *entry, PAGE_READWRITE, &former) == 0)
        return;
    *entry = value;
    VirtualProtect(static_cast<void*>(entry), sizeof *entry, former, &former);
}

} // namespace

bool HookAllocations(const wchar_t* path)
{
    const auto base = reinterpret_cast<char*>(GetModuleHandleW(path));
    if (base == nullptr)
        return false;
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
    const auto* const headers = reinterpret_cast<const IMAGE_NT_HEADERS64*>(base + dos->e_lfanew);
    const DWORD imports =
        headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
    if (imports == 0)
        return false;
    const Replacements replacements = FindReplacements();
    bool isHooked = false;
    for (auto* import = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports);
         import->Name != 0; ++import)
    {
        for (auto* entry = reinterpret_cast<void**>(base + import->FirstThunk); *entry != nullptr;
             ++entry)
        {
            for (const auto& [from, to] : replacements)
            {
                if (*entry == from && from != nullptr)
                    Write(entry, to);
                isHooked = isHooked || *entry == to;
            }
        }
    }
    return isHooked;
}

} // namespace Tavrik::tSystem
