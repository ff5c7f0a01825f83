// A class that is only started, at the level of another module's class.
#include "BootstrapTracer.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

using T_BootstrapB = T_Tracer<CLSID_BootstrapB, 'B'>;

OSSIRA_CLASS(T_BootstrapB, "BootstrapB")
OSSIRA_BOOTSTRAP(CLSID_BootstrapB, BootstrapRegistryStartup_Level0, GUID_Null, "B")

} // namespace

} // namespace Tavrik::Ossira::tTest
