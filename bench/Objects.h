// The objects that the collections hold.
#pragma once

#include "Limits.h"

#include <array>

namespace Tavrik::Ossira::tBench
{

using Objects = std::vector<ObjectPtr<IUnknown>>;

using Keys = std::vector<GUID>;

// In an order without pattern, and the same ones each time.
[[nodiscard]] Keys MakeKeys(std::size_t count);

// Values of the runtime, and the limit's values, which take half the memory.
[[nodiscard]] Objects MakeObjects(std::size_t count);
[[nodiscard]] Objects MakeSmallObjects(std::size_t count);

// As large as a value of the runtime, counted by the standard library.
using StandardObject = std::shared_ptr<std::array<char, 128>>;

[[nodiscard]] inline StandardObject MakeStandardObject()
{
    return std::make_shared<std::array<char, 128>>();
}

} // namespace Tavrik::Ossira::tBench
