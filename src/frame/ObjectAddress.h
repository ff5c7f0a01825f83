// How objects are told apart in diagnostics lines.
#pragma once

#include <cstdint>

namespace Tavrik::Ossira
{

// The low 32 bits of an address, which is what lines print.
[[nodiscard]] inline std::uint32_t LowAddress(const void* object) noexcept
{
    return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(object));
}

} // namespace Tavrik::Ossira
