// A module of ordinary size: two classes, one of which is started with the process.
#include "BenchModule.h"

#include "OssiraFrame.h"
#include "OssiraServices.h"

namespace Tavrik::Ossira::tBench
{

namespace
{

class T_First : public CObjectName, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_BenchFirst;
    OSSIRA_INTERFACES(IObjectName)
};

class T_Second : public IBootstrap, public CObjectName, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_BenchSecond;
    OSSIRA_INTERFACES(IBootstrap, IObjectName)

    Result Startup(IUnknown* /*param*/) override
    {
        return S_OK;
    }

    Result Cleanup(IUnknown* /*param*/) override
    {
        return S_OK;
    }
};

} // namespace

OSSIRA_CLASS(T_First, "First")
OSSIRA_CLASS(T_Second, "Second")
OSSIRA_BOOTSTRAP(CLSID_BenchSecond, BootstrapRegistryStartup_Level1, GUID_Null, "Second")

} // namespace Tavrik::Ossira::tBench
