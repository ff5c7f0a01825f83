// Where this library lies, from the symbols that the linker sets at its two ends.
#include "../Platform.h"

extern "C"
{
    // NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
    [[gnu::visibility("hidden")]] extern const unsigned char __ehdr_start[];
    [[gnu::visibility("hidden")]] extern const unsigned char _end[];
    // NOLINTEND(bugprone-reserved-identifier)
}

namespace Tavrik::tSystem
{

bool IsInThisLibrary(const void* address) noexcept
{
    const auto begin = reinterpret_cast<std::uintptr_t>(__ehdr_start);
    const auto size = reinterpret_cast<std::uintptr_t>(_end) - begin;
    return reinterpret_cast<std::uintptr_t>(address) - begin < size;
}

} // namespace Tavrik::tSystem
