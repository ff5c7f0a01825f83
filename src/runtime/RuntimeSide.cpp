// The frame's side towards the runtime in the runtime itself: it makes the one global singleton and
// keeps the observer in place between attach and detach.
#include "ComServer.h"
#include "DynLib.h"
#include "Library.h"
#include "OssiraClasses.h"

namespace Tavrik::Ossira
{

Result CreateGlobalSingleton(const IID& iid, void** out)
{
    return ModuleServer()->GetClassObject(CLSID_GlobalSingleton, iid, out);
}

Result OnAttached() noexcept
{
    ObjectPtr<IObserverPrint> observer;
    GetGlobalObserver(observer.Put());
    if (observer)
        return S_OK;
    const Result result = ModuleServer()->GetClassObject(CLSID_DebugOutputObserverPrint,
                                                         IID_IObserverPrint, observer.PutVoid());
    if (Failed(result))
    {
        DebugOutputF("\aOssira: Cannot create object [CLSID_DebugOutputObserverPrint] - fatal "
                     "[Build-DynLib]\n");
        return result;
    }
    return SetGlobalObserver(observer.Get());
}

void OnDetaching() noexcept
{
    SetGlobalObserver(nullptr);
}

bool CanReleaseForeignObjects() noexcept
{
    return !CDynLib::AnyTornDown();
}

} // namespace Tavrik::Ossira
