// The process-wide place of the diagnostics observer, and the exports that read and swap it.
//
// An observer may be anybody's, so none of its operations runs under the spin word. What the word
// guards is a few holders with a count of their own: whoever calls the observer keeps its holder
// until then, and the last one gives the observer's reference back, behind the word.
#include "GlobalObserver.h"

#include "ComServer.h"
#include "FastCriticalSection.h"
#include "Library.h"

#include <algorithm>
#include <iterator>
#include <mutex>

using namespace Tavrik::Ossira;

namespace
{

using Tavrik::tSystem::CLockGuard;

constinit Tavrik::tSystem::CFastCriticalSection gObserverLock;

struct Holder
{
    IObserverPrint* Observer = nullptr; // owns one reference; null: this holder is free
    std::uint32_t Users OSSIRA_GUARDED_BY(gObserverLock) = 0;
};

// One is in place, others are still in use by slow observers.
constinit Holder gHolders[16] OSSIRA_GUARDED_BY(gObserverLock);
constinit Holder* gInPlace OSSIRA_GUARDED_BY(gObserverLock) = nullptr;

// Written with the lock held, read without it.
constinit ToldMask gToldMask = 0;

void Drop(Holder* holder)
{
    if (holder == nullptr)
        return;
    ObjectPtr<IObserverPrint> last;
    const CLockGuard guard(gObserverLock);
    if (--holder->Users == 0)
        last = ObjectPtr<IObserverPrint>::Adopt(std::exchange(holder->Observer, nullptr));
} // released here, behind the word

// Keeps the observer in place usable.
class CObserverInUse
{
public:
    CObserverInUse() noexcept : mHolder(Keep())
    {
    }

    CObserverInUse(const CObserverInUse&) = delete;
    CObserverInUse& operator=(const CObserverInUse&) = delete;

    ~CObserverInUse()
    {
        Drop(mHolder);
    }

    [[nodiscard]] IObserverPrint* Get() const noexcept
    {
        return mHolder == nullptr ? nullptr : mHolder->Observer;
    }

private:
    [[nodiscard]] static Holder* Keep() noexcept
    {
        const CLockGuard guard(gObserverLock);
        if (gInPlace != nullptr)
            ++gInPlace->Users;
        return gInPlace;
    }

    Holder* const mHolder;
};

} // namespace

namespace Tavrik::Ossira
{

// This stands in the way of every creation: without a reference, and for the runtime's own observer
// without the lock.
std::uint32_t CurrentLevelMask()
{
    if (const std::uint64_t told = gToldMask.load(std::memory_order_relaxed); told != Untold)
        return static_cast<std::uint32_t>(told);
    const CObserverInUse observer;
    return LevelMaskOf(observer.Get());
}

void TellLevelMask(const IObserverPrint& observer, const std::atomic<std::uint32_t>& mask) noexcept
{
    const CLockGuard guard(gObserverLock);
    if (gInPlace != nullptr && gInPlace->Observer == &observer)
        gToldMask.store(mask.load(), std::memory_order_relaxed);
}

const ToldMask* GlobalToldMask() noexcept
{
    return &gToldMask;
}

bool IsGlobalObserver(const IObserverPrint* observer) noexcept OSSIRA_UNCHECKED_GUARDS // asks it
{
    const std::unique_lock guard(gObserverLock, std::try_to_lock);
    return guard.owns_lock() && gInPlace != nullptr && gInPlace->Observer == observer;
}

} // namespace Tavrik::Ossira

Result GetGlobalObserver(IObserverPrint** out)
{
    if (out == nullptr)
        return E_POINTER;
    *out = nullptr;
    if (ModuleServer() == nullptr)
        return E_ACCESSDENIED;
    Tavrik::tSystem::CheckForeignCall();
    const CObserverInUse observer;
    *out = ObjectPtr(observer.Get()).Detach();
    return S_OK;
}

Result SetGlobalObserver(IObserverPrint* observer)
{
    // Whatever is put in place while the library is not attached, nobody would take away again.
    if (observer != nullptr && ModuleServer() == nullptr)
        return E_ACCESSDENIED;
    Tavrik::tSystem::CheckForeignCall();
    ObjectPtr<IObserverPrint> taken(observer);
    Holder* former = nullptr;
    {
        const CLockGuard guard(gObserverLock);
        if (observer == (gInPlace == nullptr ? nullptr : gInPlace->Observer))
            return S_OK;
        Holder* next = nullptr;
        if (observer != nullptr)
        {
            next = std::ranges::find(gHolders, nullptr, &Holder::Observer);
            if (next == std::end(gHolders))
                return E_OUTOFMEMORY;
            *next = {taken.Detach(), 1};
        }
        gToldMask.store(observer == nullptr ? 0 : Untold, std::memory_order_relaxed);
        former = std::exchange(gInPlace, next);
    }
    Drop(former);
    return S_OK;
}
