// The process's `new`: the allocator's call and one increment, the same for every contender.
#include "Allocations.h"

#include <cstdlib>
#include <new>

namespace
{

constinit thread_local std::uint64_t gAllocations = 0;

} // namespace

std::uint64_t Tavrik::Ossira::tBench::AllocationCount() noexcept
{
    return gAllocations;
}

void* operator new(std::size_t size)
{
    ++gAllocations;
    if (void* const memory = std::malloc(size)) [[likely]]
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}
