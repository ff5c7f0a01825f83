// The frame's side towards the runtime in the runtime itself: it makes the one global singleton and
// keeps the observer in place between attach and detach.
#include "ComServer.h"
#include "DynLib.h"
#include "FirstThrow.h"
#include "GlobalObserver.h"
#include "Library.h"
#include "OssiraClasses.h"
#include "threads/ThreadPool.h"

namespace Tavrik::Ossira
{

Result CreateGlobalSingleton(const IID& iid, void** out)
{
    return ModuleServer()->GetClassObject(CLSID_GlobalSingleton, iid, out);
}

Result OnAttached() noexcept
{
    if (!tSystem::KeepThrowReserve())
        return E_OUTOFMEMORY;
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
    SetGlobalObserver(observer.Get());   // there is room for it: nobody used one before
    return observer->SetLevelMask(0, 0); // changes nothing; the observer tells its mask
}

void OnDetaching() noexcept
{
    tSystem::tThreads::CThreadPool::EndAllWorkers(); // their code goes with the library
    SetGlobalObserver(nullptr);
    tSystem::DropThrowReserve();
}

bool IsHeldByLibrary(IUnknown* object) noexcept
{
    ObjectPtr<ISingleton> singleton;
    if (Succeeded(object->QueryInterface(IID_ISingleton, singleton.PutVoid())))
        return singleton.Get() == ExistingSingleton();
    ObjectPtr<IObserverPrint> observer;
    return Succeeded(object->QueryInterface(IID_IObserverPrint, observer.PutVoid())) &&
           IsGlobalObserver(observer.Get());
}

bool CanReleaseForeignObjects() noexcept
{
    return !CDynLib::AnyTornDown();
}

} // namespace Tavrik::Ossira
