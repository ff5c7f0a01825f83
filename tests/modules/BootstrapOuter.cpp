// Bootstrap classes at all three levels.
#include "BootstrapTracer.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

using T_BootstrapA = T_Tracer<CLSID_BootstrapA, 'A'>;
using T_BootstrapC = T_Tracer<CLSID_BootstrapC, 'C'>;
using T_BootstrapD = T_Tracer<CLSID_BootstrapD, 'D'>;

OSSIRA_CLASS(T_BootstrapA, "BootstrapA")
OSSIRA_BOOTSTRAP(CLSID_BootstrapA, BootstrapRegistryStartup_Level0, GUID_Null, "A")
OSSIRA_BOOTSTRAP(CLSID_BootstrapA, BootstrapRegistryCleanup_Level0, GUID_Null, "A")

OSSIRA_CLASS(T_BootstrapC, "BootstrapC")
OSSIRA_BOOTSTRAP(CLSID_BootstrapC, BootstrapRegistryStartup_Level1, GUID_Null, "C")
OSSIRA_BOOTSTRAP(CLSID_BootstrapC, BootstrapRegistryCleanup_Level1, GUID_Null, "C")

OSSIRA_CLASS(T_BootstrapD, "BootstrapD")
OSSIRA_BOOTSTRAP(CLSID_BootstrapD, BootstrapRegistryStartup_Level2, GUID_Null, "D")
OSSIRA_BOOTSTRAP(CLSID_BootstrapD, BootstrapRegistryCleanup_Level2, GUID_Null, "D")

} // namespace

} // namespace Tavrik::Ossira::tTest
