// Out of what only this process knows at this moment: fine and coarse time, its identifier, and the
// places of its stack, its heap and this library.
#include "../Platform.h"

#include <windows.h>

namespace Tavrik::tSystem
{

std::uint64_t UnguessableNumber() noexcept
{
    LARGE_INTEGER ticks = {};
    FILETIME time = {};
    QueryPerformanceCounter(&ticks);
    GetSystemTimeAsFileTime(&time);
    return MixNumbers({static_cast<std::uint64_t>(ticks.QuadPart),
                       (static_cast<std::uint64_t>(time.dwHighDateTime) << 32) | time.dwLowDateTime,
                       GetCurrentProcessId(), reinterpret_cast<std::uintptr_t>(&ticks),
                       reinterpret_cast<std::uintptr_t>(GetProcessHeap()),
                       reinterpret_cast<std::uintptr_t>(&UnguessableNumber)});
}

} // namespace Tavrik::tSystem
