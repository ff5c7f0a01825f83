// The process-wide place of the diagnostics observer, and the exports that read and swap it. The
// spin word is held for the pointer only: an observer is released after it was left, so that its
// destruction may print.
#include "GlobalObserver.h"

#include "FastCriticalSection.h"
#include "OssiraDiagnostics.h"
#include "OssiraPointer.h"

#include <atomic>
#include <mutex>

using namespace Tavrik::Ossira;

namespace
{

constinit Tavrik::tSystem::CFastCriticalSection gObserverLock;
constinit IObserverPrint* gObserver = nullptr; // owns one reference

// The mask of the observer in place, if that one tells it; else `Untold`. Written with the lock
// held, read without it.
constexpr std::uint64_t Untold = std::uint64_t{1} << 32;
constinit std::atomic<std::uint64_t> gToldMask = 0;

} // namespace

namespace Tavrik::Ossira
{

// This stands in the way of every creation: without a reference, and for the runtime's own observer
// without the lock.
std::uint32_t CurrentLevelMask() noexcept
{
    if (const std::uint64_t told = gToldMask.load(std::memory_order_relaxed); told != Untold)
        return static_cast<std::uint32_t>(told);
    const Tavrik::tSystem::CLockGuard guard(gObserverLock);
    return gObserver == nullptr ? 0 : gObserver->GetLevelMask();
}

void TellLevelMask(IObserverPrint& observer) noexcept
{
    const Tavrik::tSystem::CLockGuard guard(gObserverLock);
    if (gObserver == &observer)
        gToldMask.store(observer.GetLevelMask(), std::memory_order_relaxed);
}

bool IsGlobalObserver(const IObserverPrint* observer) noexcept
{
    const std::unique_lock guard(gObserverLock, std::try_to_lock);
    return guard.owns_lock() && gObserver == observer;
}

} // namespace Tavrik::Ossira

Result GetGlobalObserver(IObserverPrint** out)
{
    if (out == nullptr)
        return E_POINTER;
    const Tavrik::tSystem::CLockGuard guard(gObserverLock);
    *out = gObserver;
    if (gObserver != nullptr)
        gObserver->AddRef();
    return S_OK;
}

Result SetGlobalObserver(IObserverPrint* observer)
{
    ObjectPtr<IObserverPrint> former(observer);
    {
        const Tavrik::tSystem::CLockGuard guard(gObserverLock);
        gToldMask.store(observer == nullptr ? 0 : Untold, std::memory_order_relaxed);
        former = ObjectPtr<IObserverPrint>::Adopt(std::exchange(gObserver, former.Detach()));
    }
    return S_OK;
}
