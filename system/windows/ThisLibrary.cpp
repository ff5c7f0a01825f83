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

namespace
{

[[nodiscard]] const IMAGE_NT_HEADERS& Headers() noexcept
{
    const auto* const dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(__ImageBase);
    return *reinterpret_cast<const IMAGE_NT_HEADERS*>(__ImageBase + dos->e_lfanew);
}

} // namespace

const AddressRange ThisLibrary = {reinterpret_cast<std::uintptr_t>(__ImageBase),
                                  Headers().OptionalHeader.SizeOfImage};

} // namespace Tavrik::tSystem
