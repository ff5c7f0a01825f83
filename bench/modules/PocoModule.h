// What classes of a module for Poco's class loader have in common.
#pragma once

namespace Tavrik::Ossira::tBench
{

struct PocoModuleBase
{
    virtual ~PocoModuleBase() = default;
    virtual int Describe() const = 0;
};

} // namespace Tavrik::Ossira::tBench
