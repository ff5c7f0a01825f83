// What reports are made of, with their members in the order in which they are set.
#pragma once

#include <nlohmann/json.hpp>

namespace Tavrik::tHost
{

using Json = nlohmann::ordered_json;

} // namespace Tavrik::tHost
