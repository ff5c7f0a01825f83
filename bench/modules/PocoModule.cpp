// A module for Poco's class loader, with one class.
#include "PocoModule.h"

#include <Poco/ClassLibrary.h>

namespace Tavrik::Ossira::tBench
{

class PocoGreeter final : public PocoModuleBase
{
public:
    int Describe() const override
    {
        return 1;
    }
};

} // namespace Tavrik::Ossira::tBench

POCO_BEGIN_MANIFEST(Tavrik::Ossira::tBench::PocoModuleBase)
POCO_EXPORT_CLASS(Tavrik::Ossira::tBench::PocoGreeter)
POCO_END_MANIFEST
