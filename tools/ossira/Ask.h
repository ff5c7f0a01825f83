// Creates an object and lets it speak for itself.
#pragma once

#include "OssiraServices.h"

#include <string>

namespace Tavrik::tHost
{

struct Answer
{
    std::string Text;
    bool IsFailure;
};

// Creates an object of a class and asks it: for a sentence if it offers `ISample`, else for the
// name of its class. The object is released again.
[[nodiscard]] Answer AskNewObject(Ossira::IObjectFactory& factory, const CLSID& clsid);

} // namespace Tavrik::tHost
