// Where this library lies: its headers are its first bytes, and they say how long it is.
#include "../Platform.h"

#include <windows.h>

extern "C"
{
    // NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name
    extern const unsigned char __ImageBase[];
}

namespace Tavrik::tSystem
{

bool IsInThisLibrary(const void* address) noexcept
{
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(__ImageBase);
    const auto* const headers =
        reinterpret_cast<const IMAGE_NT_HEADERS*>(__ImageBase + dos->e_lfanew);
    const auto distance =
        reinterpret_cast<std::uintptr_t>(address) - reinterpret_cast<std::uintptr_t>(__ImageBase);
    return distance < headers->OptionalHeader.SizeOfImage;
}

} // namespace Tavrik::tSystem
