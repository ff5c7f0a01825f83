// The services that the runtime offers beside creating objects, each at a small task.
#pragma once

#include "OssiraServices.h"

#include <span>
#include <string>

namespace Tavrik::tHost
{

struct ServiceAtWork
{
    const char* Name;

    // Does the task, says what came of it, and lets go of everything. An operation that fails
    // throws a `CFailure`.
    std::string (*Work)(Ossira::ISingleton& singletons);
};

[[nodiscard]] std::span<const ServiceAtWork> ServicesAtWork();

} // namespace Tavrik::tHost
