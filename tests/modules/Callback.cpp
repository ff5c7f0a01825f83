// Calls back into the services from every place where a module's code runs.
#include "Ossira.h"
#include "TestModules.h"

using namespace Tavrik::Ossira;
using namespace Tavrik::Ossira::tTest;

namespace
{

// Creates singletons, enters and takes out classes, and unloads idle modules. A dying object is
// counted no longer, so its module must not be flushed while it dies.
void UseServices(char place)
{
    ObjectPtr<ISingleton> all;
    ObjectPtr<IObjectFactory> factory;
    ObjectPtr<IClsidRegistry> registry;
    ObjectPtr<IUnknown> trace;
    for (const Result result :
         {CreateObject(CLSID_GlobalSingleton, all),
          all->GetClassObject(CLSID_GlobalObjectFactory, IID_IObjectFactory, factory.PutVoid()),
          all->GetClassObject(CLSID_ClsidRegistry, IID_IClsidRegistry, registry.PutVoid()),
          all->GetClassObject(CLSID_ValueSet, IID_IUnknown, trace.PutVoid()),
          factory->RegisterClass(CLSID_Value, nullptr, nullptr),
          factory->UnregisterClass(CLSID_Value), place == 'd' ? S_OK : factory->FlushModules(),
          registry->RegisterClass(BootstrapRegistryStartup_Level1, CLSID_Value),
          registry->UnregisterClass(BootstrapRegistryStartup_Level1, CLSID_Value),
          place == 's'
              ? registry->UnregisterClass(BootstrapRegistryStartup_Level1, CLSID_NextTracer)
              : S_OK})
        place = result == S_OK ? place : '!';
    LeaveTrace(*trace, {place});
}

// Calls now and when what it answers is destroyed.
std::shared_ptr<void> Caller(char begin, char end)
{
    UseServices(begin);
    return {nullptr, [end](void*)
            {
                UseServices(end);
            }};
}

const std::shared_ptr<void> gModule = Caller('m', 'e');

class T_Callback : public IBootstrap, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Callback;
    OSSIRA_INTERFACES(IBootstrap)

    Result Startup(IUnknown*) override
    {
        UseServices('s');
        return CDirectoryCollection() // by a singleton, which the module holds from then on
            .ScanDirectory(L".", nullptr);
    }

    Result Cleanup(IUnknown*) override
    {
        return S_OK;
    }

private:
    const std::shared_ptr<void> mCaller = Caller('c', 'd');
};

OSSIRA_CLASS(T_Callback, "Callback")
OSSIRA_BOOTSTRAP(CLSID_Callback, BootstrapRegistryStartup_Level1, GUID_Null, "Callback")

} // namespace
