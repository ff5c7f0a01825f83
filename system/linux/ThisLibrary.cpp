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

const AddressRange ThisLibrary = {reinterpret_cast<std::uintptr_t>(__ehdr_start),
                                  static_cast<std::uintptr_t>(_end - __ehdr_start)};

} // namespace Tavrik::tSystem
