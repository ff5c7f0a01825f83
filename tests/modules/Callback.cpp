// Calls back into the services from every place where a module's code runs.
#include "OssiraClasses.h"
#include "OssiraFrame.h"
#include "OssiraServices.h"
#include "OssiraValue.h"
#include "TestModules.h"

namespace Tavrik::Ossira::tTest
{

namespace
{

// A dying object is counted no longer, so its module must not be flushed while it dies.
enum class Flushing
{
    Allowed,
    Forbidden
};

// Enters and takes out a class, looks at others and creates an object.
Result UseServices(Flushing flushing = Flushing::Allowed)
try
{
    ObjectPtr<ISingleton> singletons;
    OSSIRA_CHECK_RESULT(CreateObject(CLSID_GlobalSingleton, singletons), "singletons");
    ObjectPtr<IObjectFactory> factory;
    OSSIRA_CHECK_RESULT(singletons->GetClassObject(CLSID_GlobalObjectFactory, IID_IObjectFactory,
                                                   factory.PutVoid()),
                        "factory");
    ObjectPtr<IClsidRegistry> registry;
    OSSIRA_CHECK_RESULT(singletons->GetClassObject(CLSID_ClsidRegistry, IID_IClsidRegistry,
                                                   registry.PutVoid()),
                        "registry");

    OSSIRA_CHECK_RESULT(factory->RegisterClass(CLSID_Value, nullptr, "Value"), "RegisterClass");
    ObjectPtr<IValue> value;
    OSSIRA_CHECK_RESULT(factory->GetClassObject(CLSID_Value, IID_IValue, value.PutVoid()),
                        "GetClassObject");
    ObjectPtr<IList> modules;
    OSSIRA_CHECK_RESULT(factory->GetModules(IID_IList, modules.PutVoid()), "GetModules");
    if (flushing == Flushing::Allowed)
        OSSIRA_CHECK_RESULT(factory->FlushModules(), "FlushModules");
    OSSIRA_CHECK_RESULT(factory->UnregisterClass(CLSID_Value), "UnregisterClass");
    OSSIRA_CHECK_RESULT(registry->RegisterClass(IID_ICallback, CLSID_Callback), "RegisterClass");
    OSSIRA_CHECK_RESULT(registry->UnregisterClass(IID_ICallback, CLSID_Callback), "Unregister");
    return S_OK;
}
OSSIRA_CATCH_RETURN

struct ModuleState
{
    CallbackResults Own = {UseServices(), E_PENDING, E_PENDING, E_PENDING, E_PENDING};
    CallbackResults* Results = &Own;

    // Only when somebody waits for it: at the end of the process nobody does.
    ~ModuleState()
    {
        if (Results != &Own)
            Results->ModuleEnd = UseServices();
    }
};

ModuleState gState;

class T_Callback : public ICallback, public IBootstrap, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Callback;
    OSSIRA_INTERFACES(ICallback, IBootstrap)

    T_Callback()
    {
        gState.Results->Construction = UseServices();
    }

    ~T_Callback() override
    {
        gState.Results->Destruction = UseServices(Flushing::Forbidden);
    }

    Result ReportTo(CallbackResults* results) override
    {
        *results = *gState.Results;
        gState.Results = results;
        return S_OK;
    }

    Result Startup(IUnknown*) override
    {
        return gState.Results->Startup = UseServices();
    }

    Result Cleanup(IUnknown*) override
    {
        return S_OK;
    }
};

OSSIRA_CLASS(T_Callback, "Callback")
OSSIRA_BOOTSTRAP(CLSID_Callback, BootstrapRegistryStartup_Level1, GUID_Null, "Callback")

} // namespace

} // namespace Tavrik::Ossira::tTest
