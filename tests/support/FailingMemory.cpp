// The allocation operators of the program, which other libraries and sanitizers leave to it; those
// for arrays call these.
#include "FailingMemory.h"

#include "AllocationHook.h"

#include <cstdlib>
#include <new>

using namespace Tavrik;

// Nothing is left to be hooked.
bool tSystem::HookAllocations(const wchar_t*)
{
    return true;
}

static const bool IsWatching = tSystem::WatchAllocations(L"");

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    return tSystem::IsToFail() ? nullptr
                               : tSystem::NoteAllocated(std::malloc(size == 0 ? 1 : size));
}

void* operator new(std::size_t size)
{
    void* const memory = operator new(size, std::nothrow);
    return memory != nullptr ? memory : throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    if (memory != nullptr)
        tSystem::NoteFreed(memory, 0);
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

// For arrays too: a sanitizer has operators of its own for them, which do not come here.

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    return operator new(size, std::nothrow);
}

void* operator new[](std::size_t size)
{
    return operator new(size);
}

void operator delete[](void* memory) noexcept
{
    operator delete(memory);
}

void operator delete[](void* memory, std::size_t) noexcept
{
    operator delete(memory);
}
