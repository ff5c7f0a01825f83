// Calls back into the services from every place where a module's code runs.
#include "Ossira.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

// Enters and takes out a class, looks at others and creates an object. A dying object is counted no
// longer, so its module must not be flushed while it dies.
Result UseServices(bool mayFlush = true)
try
{
    ObjectPtr<ISingleton> singletons;
    ObjectPtr<IObjectFactory> factory;
    ObjectPtr<IClsidRegistry> registry;
    ObjectPtr<IValue> value;
    OSSIRA_CHECK_RESULT(CreateObject(CLSID_GlobalSingleton, singletons), "singletons");
    OSSIRA_CHECK_RESULT(singletons->GetClassObject(CLSID_GlobalObjectFactory, IID_IObjectFactory,
                                                   factory.PutVoid()),
                        "factory");
    OSSIRA_CHECK_RESULT(
        singletons->GetClassObject(CLSID_ClsidRegistry, IID_IClsidRegistry, registry.PutVoid()),
        "registry");
    for (const Result result :
         {factory->RegisterClass(CLSID_Value, nullptr, "Value"),
          factory->GetClassObject(CLSID_Value, IID_IValue, value.PutVoid()),
          mayFlush ? factory->FlushModules() : S_OK, factory->UnregisterClass(CLSID_Value),
          registry->RegisterClass(IID_ICallback, CLSID_Callback),
          registry->UnregisterClass(IID_ICallback, CLSID_Callback)})
        OSSIRA_CHECK_RESULT(result, "a service");
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
        gState.Results->Destruction = UseServices(false);
    }

    Result ReportTo(CallbackResults* results) override
    {
        *results = *std::exchange(gState.Results, results);
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
