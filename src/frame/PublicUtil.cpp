// The global singleton for the code of this module, which throws when it cannot have it.
#include "PublicUtil.h"

namespace Tavrik::Ossira
{

ISingleton** GetSingleton(ISingleton** out)
{
    if (ExistingSingleton() == nullptr)
    {
        OSSIRA_CHECK(Succeeded(InitializeGlobalSingleton()), E_NOINTERFACE,
                     "Cannot create CLSID_GlobalSingleton");
    }
    *out = ExistingSingleton();
    return out;
}

} // namespace Tavrik::Ossira
