// The kernel hands every process sixteen random bytes at its start. The time makes each number
// another one; the multiplications keep the bytes from being read back out of it.
#include "../Platform.h"

#include <ctime>
#include <sys/auxv.h>

#include <cstring>

namespace Tavrik::tSystem
{

std::uint64_t UnguessableNumber() noexcept
{
    std::uint64_t bytes[2] = {};
    if (const unsigned long place = getauxval(AT_RANDOM); place != 0)
        std::memcpy(bytes, reinterpret_cast<const void*>(place), sizeof(bytes));
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    const auto time = static_cast<std::uint64_t>(now.tv_sec) * 1000000000 +
                      static_cast<std::uint64_t>(now.tv_nsec);
    return MixNumbers({bytes[0], bytes[1], time, reinterpret_cast<std::uintptr_t>(&now)});
}

} // namespace Tavrik::tSystem
