// What the CLSID registry tells the rest of the runtime beyond its interface.
#pragma once

#include <cstdint>

namespace Tavrik::Ossira
{

// How often a registry could not file a class because memory ran out. A module that is given a
// registry answers that as its own failure.
[[nodiscard]] std::uint32_t ClsidRegistryShortages() noexcept;

} // namespace Tavrik::Ossira
