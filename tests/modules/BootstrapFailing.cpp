// The second of three classes at one level fails to start and to clean up.
#include "BootstrapTracer.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

using T_BootstrapX = T_Tracer<CLSID_BootstrapX, 'X'>;
using T_BootstrapY = T_Tracer<CLSID_BootstrapY, 'Y', E_ABORT>;
using T_BootstrapZ = T_Tracer<CLSID_BootstrapZ, 'Z'>;

OSSIRA_CLASS(T_BootstrapX, "BootstrapX")
OSSIRA_BOOTSTRAP(CLSID_BootstrapX, BootstrapRegistryStartup_Level0, GUID_Null, "X")
OSSIRA_BOOTSTRAP(CLSID_BootstrapX, BootstrapRegistryCleanup_Level0, GUID_Null, "X")

OSSIRA_CLASS(T_BootstrapY, "BootstrapY")
OSSIRA_BOOTSTRAP(CLSID_BootstrapY, BootstrapRegistryStartup_Level0, GUID_Null, "Y")
OSSIRA_BOOTSTRAP(CLSID_BootstrapY, BootstrapRegistryCleanup_Level0, GUID_Null, "Y")

OSSIRA_CLASS(T_BootstrapZ, "BootstrapZ")
OSSIRA_BOOTSTRAP(CLSID_BootstrapZ, BootstrapRegistryStartup_Level0, GUID_Null, "Z")
OSSIRA_BOOTSTRAP(CLSID_BootstrapZ, BootstrapRegistryCleanup_Level0, GUID_Null, "Z")
OSSIRA_BOOTSTRAP(CLSID_BootstrapZ, BootstrapRegistryStartup_Level1, GUID_Null, "Z")
OSSIRA_BOOTSTRAP(CLSID_BootstrapZ, BootstrapRegistryCleanup_Level1, GUID_Null, "Z")

} // namespace

} // namespace Tavrik::Ossira::tTest
