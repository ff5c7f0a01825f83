// The process-wide place of the diagnostics observer, and the exports that read and swap it. The
// spin word is held for the pointer only: an observer is released after it was left, so that its
// destruction may print.
#include "FastCriticalSection.h"
#include "OssiraDiagnostics.h"
#include "OssiraPointer.h"

#include <mutex>

using namespace Tavrik::Ossira;

namespace
{

constinit Tavrik::tSystem::CFastCriticalSection gObserverLock;
constinit IObserverPrint* gObserver = nullptr; // owns one reference

} // namespace

namespace Tavrik::Ossira
{

// Under the lock and without a reference, because this stands in the way of every creation.
std::uint32_t CurrentLevelMask() noexcept
{
    const std::lock_guard guard(gObserverLock);
    return gObserver == nullptr ? 0 : gObserver->GetLevelMask();
}

} // namespace Tavrik::Ossira

Result GetGlobalObserver(IObserverPrint** out)
{
    if (out == nullptr)
        return E_POINTER;
    const std::lock_guard guard(gObserverLock);
    *out = gObserver;
    if (gObserver != nullptr)
        gObserver->AddRef();
    return S_OK;
}

Result SetGlobalObserver(IObserverPrint* observer)
{
    ObjectPtr<IObserverPrint> former(observer);
    {
        const std::lock_guard guard(gObserverLock);
        former = ObjectPtr<IObserverPrint>::Adopt(std::exchange(gObserver, former.Detach()));
    }
    return S_OK;
}
