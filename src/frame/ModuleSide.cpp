// The frame's side towards the runtime in a component module: the module asks the runtime's
// exports for what the runtime itself has at hand.
#include "Library.h"
#include "OssiraClasses.h"

namespace Tavrik::Ossira
{

std::uint32_t CurrentLevelMask()
{
    ObjectPtr<IObserverPrint> observer;
    GetGlobalObserver(observer.Put());
    return LevelMaskOf(observer.Get());
}

Result CreateGlobalSingleton(const IID& iid, void** out)
{
    return CreateClassObject(&CLSID_GlobalSingleton, &iid, out);
}

Result OnAttached() noexcept
{
    return S_OK;
}

void OnDetaching() noexcept
{
}

bool IsHeldByLibrary(IUnknown* /*object*/) noexcept
{
    // The singleton that it holds is the runtime's.
    return false;
}

bool CanReleaseForeignObjects() noexcept
{
    // The runtime, which a module depends on, is torn down after it.
    return true;
}

} // namespace Tavrik::Ossira
