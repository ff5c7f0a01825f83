// Asking an item of a collection for an interface. Nothing foreign runs under a collection's lock:
// a reference is taken on the item and the lock is left first. An object of the runtime itself only
// compares and counts in its `QueryInterface`, so it is asked right away, which spares the pair of
// counts.
#pragma once

#include "LockOrder.h"
#include "OssiraPointer.h"
#include "Platform.h"

#include <cstring>

namespace Tavrik::Ossira
{

// Whether an object's class is one of the runtime's own: its table of operations lies in this
// library. No object of such a class is part of an aggregate, because all are made without one.
[[nodiscard]] inline bool IsOwnObject(const IUnknown* object) noexcept
{
    const void* operations = nullptr;
    std::memcpy(&operations, object, sizeof(operations));
    return tSystem::IsInThisLibrary(operations);
}

// Holds the lock under which an item is looked up, at the longest until the item is asked.
template <class Lock>
class [[nodiscard]] CItemQuestion
{
public:
    explicit CItemQuestion(Lock& lock,
                           const tSystem::LockPlace& place = tSystem::LockPlace::current())
        : mLock(&lock)
    {
        if constexpr (requires { lock.lock(place); })
            lock.lock(place);
        else
            lock.lock();
    }

    CItemQuestion(const CItemQuestion&) = delete;
    CItemQuestion& operator=(const CItemQuestion&) = delete;

    ~CItemQuestion()
    {
        Leave();
    }

    // Asks what was found under the lock; a second time too.
    [[nodiscard]] Result Ask(IUnknown* item, const IID& riid, void** ppv)
    {
        if (mLock != nullptr && !IsOwnObject(item))
        {
            mItem = ObjectPtr(item);
            Leave();
        }
        return item->QueryInterface(riid, ppv);
    }

private:
    void Leave() noexcept
    {
        if (Lock* const lock = std::exchange(mLock, nullptr); lock != nullptr)
            lock->unlock();
    }

    ObjectPtr<IUnknown> mItem; // released after the lock was left
    Lock* mLock;
};

} // namespace Tavrik::Ossira
