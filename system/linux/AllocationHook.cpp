// The C library lets a program define its allocation functions; every library of the process then
// calls these. They lead to the same heap, so blocks may come from one and go to the other.
#include "../AllocationHook.h"

#include "../AllocationWatch.h"
#include "NativePath.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <dlfcn.h>
#include <link.h>
#include <malloc.h>
#include <sys/auxv.h>

namespace Tavrik::tSystem
{

const bool ExceptionsNeedMemory = false; // there is a reserve

bool IsLoaded(const wchar_t* path)
{
    void* const library = dlopen(NativePath(path).c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (library != nullptr)
        dlclose(library);
    return library != nullptr;
}

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)

bool HookAllocations(const wchar_t* /*path*/)
{
    return false;
}

} // namespace Tavrik::tSystem

#else

namespace
{

constinit std::uintptr_t gLoaderBegin = 0;
constinit std::uintptr_t gLoaderSize = 0;

int FindLoader(dl_phdr_info* library, std::size_t, void*)
{
    if (library->dlpi_addr != getauxval(AT_BASE))
        return 0;
    gLoaderBegin = library->dlpi_addr;
    for (int index = 0; index < library->dlpi_phnum; ++index)
    {
        const auto& segment = library->dlpi_phdr[index];
        if (segment.p_type == PT_LOAD)
            gLoaderSize = std::max<std::uintptr_t>(gLoaderSize, segment.p_vaddr + segment.p_memsz);
    }
    return 1;
}

void* Refuse() noexcept
{
    errno = ENOMEM;
    return nullptr;
}

} // namespace

bool HookAllocations(const wchar_t* /*path*/)
{
    dl_iterate_phdr(&FindLoader, nullptr);
    return true;
}

namespace
{

// The system's loader ends the process when it has no memory for a library's thread variables,
// which is nobody's fault here.
bool IsToFailFor(const void* caller) noexcept
{
    return reinterpret_cast<std::uintptr_t>(caller) - gLoaderBegin >= gLoaderSize && IsToFail();
}

} // namespace

} // namespace Tavrik::tSystem

// NOLINTBEGIN: the names are the C library's.
extern "C"
{
    void* __libc_malloc(std::size_t size) noexcept;
    void* __libc_calloc(std::size_t count, std::size_t size) noexcept;
    void* __libc_realloc(void* memory, std::size_t size) noexcept;
    void __libc_free(void* memory) noexcept;

    void* malloc(std::size_t size) noexcept
    {
        using namespace Tavrik::tSystem;
        return IsToFailFor(__builtin_return_address(0)) ? Refuse()
                                                        : NoteAllocated(__libc_malloc(size));
    }

    void* calloc(std::size_t count, std::size_t size) noexcept
    {
        using namespace Tavrik::tSystem;
        return IsToFailFor(__builtin_return_address(0)) ? Refuse()
                                                        : NoteAllocated(__libc_calloc(count, size));
    }

    void* realloc(void* memory, std::size_t size) noexcept
    {
        using namespace Tavrik::tSystem;
        if (IsToFailFor(__builtin_return_address(0)))
            return Refuse();
        void* const moved = __libc_realloc(memory, size);
        return memory == nullptr ? NoteAllocated(moved) : moved;
    }

    void free(void* memory) noexcept
    {
        if (memory == nullptr)
            return;
        Tavrik::tSystem::NoteFreed(memory, malloc_usable_size(memory));
        __libc_free(memory);
    }
}
// NOLINTEND

#endif
