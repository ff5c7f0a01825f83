// Memory for what one library throws, in place of the compiler's run-time library: that one has a
// reserve for when memory is exhausted, but makes the lock of the reserve at its first use. When
// there is no memory for the lock it throws, which needs the reserve, until the stack is used up.
//
// The reserve here has no lock and is part of the library itself, so that nothing of it is to be
// given back when the library is unloaded.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <exception>
#include <iterator>

namespace
{

// More than what the run-time library keeps right before a thrown object, or in place of one that
// is thrown once more.
constexpr std::size_t HeaderSize = 256;

struct ReservedObject
{
    alignas(std::max_align_t) unsigned char Bytes[1024];
};

ReservedObject gReserve[64];
std::atomic<bool> gIsTaken[std::size(gReserve)];

// Zero bytes at its beginning are what an exception begins with.
[[nodiscard]] void* Take(std::size_t size) noexcept
{
    void* memory = std::malloc(size);
    for (std::size_t number = 0; memory == nullptr && number < std::size(gReserve); ++number)
    {
        if (size <= sizeof(ReservedObject) && !gIsTaken[number].exchange(true))
            memory = gReserve[number].Bytes;
    }
    if (memory == nullptr)
        std::terminate(); // there is no way to report it
    return std::memset(memory, 0, HeaderSize);
}

void GiveBack(void* memory) noexcept
{
    const std::size_t offset =
        reinterpret_cast<std::uintptr_t>(memory) - reinterpret_cast<std::uintptr_t>(gReserve);
    if (offset < sizeof gReserve)
        gIsTaken[offset / sizeof(ReservedObject)] = false;
    else
        std::free(memory);
}

} // namespace

void* __cxxabiv1::__cxa_allocate_exception(std::size_t size) noexcept
{
    return static_cast<unsigned char*>(Take(HeaderSize + size)) + HeaderSize;
}

void __cxxabiv1::__cxa_free_exception(void* thrown) noexcept
{
    GiveBack(static_cast<unsigned char*>(thrown) - HeaderSize);
}

__cxxabiv1::__cxa_dependent_exception* __cxxabiv1::__cxa_allocate_dependent_exception() noexcept
{
    return static_cast<__cxa_dependent_exception*>(Take(HeaderSize));
}

void __cxxabiv1::__cxa_free_dependent_exception(__cxa_dependent_exception* thrown) noexcept
{
    GiveBack(thrown);
}
