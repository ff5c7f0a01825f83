// The frame's side towards the runtime in a component module: the module asks the runtime's
// exports for what the runtime itself has at hand.
#include "Library.h"
#include "OssiraClasses.h"
#include "ToldMask.h"

namespace Tavrik::Ossira
{

namespace
{

constinit const ToldMask gAskedEachTime = Untold;
constinit std::atomic<const ToldMask*> gToldMask = nullptr; // null until an observer was asked

// Once, of the first observer that this module meets; somebody else's has no such place.
void AskForPlace(const ObjectPtr<IObserverPrint>& observer)
try
{
    gToldMask.store(&gAskedEachTime, std::memory_order_relaxed); // it may create objects here
    if (ObjectPtr<IToldMask> teller; Succeeded(observer.QueryTo(teller)) && teller)
        gToldMask.store(teller->Told(), std::memory_order_relaxed);
}
catch (...)
{
    DiscardCaught();
}

[[gnu::noinline]] std::uint32_t AskLevelMask()
{
    ObjectPtr<IObserverPrint> observer;
    GetGlobalObserver(observer.Put());
    if (observer && gToldMask.load(std::memory_order_relaxed) == nullptr)
        AskForPlace(observer);
    return LevelMaskOf(observer.Get());
}

} // namespace

// This stands in the way of every creation.
std::uint32_t CurrentLevelMask()
{
    const ToldMask* const place = gToldMask.load(std::memory_order_relaxed);
    const std::uint64_t told = place == nullptr ? Untold : place->load(std::memory_order_relaxed);
    return told != Untold ? static_cast<std::uint32_t>(told) : AskLevelMask();
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
