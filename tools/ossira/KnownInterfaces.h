// The interfaces of the contract by name; the table is generated from its description.
#pragma once

#include "OssiraBase.h"

#include <span>

namespace Tavrik::tHost
{

struct KnownInterface
{
    const char* Name;
    IID Id;
};

extern const std::span<const KnownInterface> KnownInterfaces;

} // namespace Tavrik::tHost
