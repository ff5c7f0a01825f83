// Where a program that has no C++ in it loads the runtime, the variables of the compiler's library
// are made by the system's loader when a thread first uses them, and the loader stops the process
// when it has no memory for them. So they are made here, and a block that was kept for it is given
// back right before.
//
// What remains: a thread whose first throw of all is that of an allocation, the standard library's
// `std::bad_alloc`, and one that loses the block's memory to another thread in between.
#include "FirstThrow.h"

#include <atomic>
#include <cstdlib>
#include <cxxabi.h>

namespace Tavrik::tSystem
{

namespace
{

// Enough for the variables and the loader's own table of them; more than what the C library keeps
// for each thread, so that what is given back can be had in other sizes.
constexpr std::size_t ReserveSize = 8192;
constinit std::atomic<void*> gReserve = nullptr;

} // namespace

bool KeepThrowReserve() noexcept
{
    std::free(gReserve.exchange(std::malloc(ReserveSize)));
    return gReserve != nullptr;
}

void DropThrowReserve() noexcept
{
    std::free(gReserve.exchange(nullptr));
}

void PrepareThrow() noexcept
{
    DropThrowReserve();
    // Volatile, or the compiler would leave out what has no use but its effect.
    [[maybe_unused]] void* volatile made = abi::__cxa_get_globals();
    static_cast<void>(KeepThrowReserve()); // where there is memory again
}

} // namespace Tavrik::tSystem
