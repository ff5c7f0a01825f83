// Asking an item of a collection for an interface. Nothing foreign runs under a collection's lock:
// a reference is taken on the item and the lock is left first. An object of the runtime itself only
// compares and counts in its `QueryInterface`, so it is asked right away, which spares the pair of
// counts.
#pragma once

#include "OssiraPointer.h"
#include "Platform.h"
#include "ReadersLock.h"

#include <cstring>
#include <utility>

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

// Asks a foreign item that was found under a lock, after leaving it.
template <class Hold>
[[gnu::noinline]] Result LeaveAndAsk(Hold& hold, IUnknown* item, const IID& riid, void** ppv)
    OSSIRA_GIVES(hold)
{
    const ObjectPtr<IUnknown> reference(item);
    hold.unlock();
    return item->QueryInterface(riid, ppv);
}

// The same for any item, or null, which answers `E_NOT_FOUND`.
template <class Hold>
[[gnu::always_inline]] inline Result AskFound(Hold& hold, IUnknown* item, const IID& riid,
                                              void** ppv) OSSIRA_GIVES(hold)
{
    if (item != nullptr && !IsOwnObject(item)) [[unlikely]]
        return LeaveAndAsk(hold, item, riid, ppv);
    const Result result = item != nullptr ? item->QueryInterface(riid, ppv) : E_NOT_FOUND;
    hold.unlock();
    return result;
}

template <class Lock, class Find>
[[gnu::noinline]] Result WaitAndAsk(Lock& lock, Find find, const IID& riid, void** ppv,
                                    const tSystem::LockPlace& place) OSSIRA_UNCHECKED_GUARDS
{
    auto& hold = tSystem::BeginReading(lock, place);
    return AskFound(hold, find(), riid, ppv);
}

// Asks the item that `find` answers under the lock, or answers `E_NOT_FOUND`. In the way of a
// reader of a collection, so it is the shortest there is: what is seldom called stands elsewhere,
// so that no register is saved for it. What it holds may be a part of the lock, or nothing; that
// cannot be followed.
template <class Lock, class Find>
[[gnu::always_inline]] [[nodiscard]] inline Result
AskItem(Lock& lock, Find find, const IID& riid, void** ppv,
        const tSystem::LockPlace& place = tSystem::LockPlace::current()) OSSIRA_UNCHECKED_GUARDS
{
    static_assert(noexcept(find()));
    auto* const hold = tSystem::BeginReadingAtOnce(lock, place);
    if (hold == nullptr) [[unlikely]]
        return WaitAndAsk(lock, find, riid, ppv, place);
    return AskFound(*hold, find(), riid, ppv);
}

// For longer questions: holds the lock under which an item is looked up, at the longest until the
// item is asked.
template <class Lock>
class [[nodiscard]] OSSIRA_GUARD CItemQuestion
{
public:
    explicit CItemQuestion(Lock& lock,
                           const tSystem::LockPlace& place = tSystem::LockPlace::current())
        OSSIRA_TAKES(lock)
        : mLock(&lock)
    {
        tSystem::TakeLock(lock, place);
    }

    CItemQuestion(const CItemQuestion&) = delete;
    CItemQuestion& operator=(const CItemQuestion&) = delete;

    ~CItemQuestion() OSSIRA_GIVES()
    {
        if (mLock != nullptr) [[likely]]
            mLock->unlock();
    }

    // Asks what was found under the lock; a second time too.
    [[nodiscard]] Result Ask(IUnknown* item, const IID& riid, void** ppv) OSSIRA_UNCHECKED_GUARDS
    {
        if (mLock != nullptr && !IsOwnObject(item)) [[unlikely]]
        {
            mItem = ObjectPtr(item);
            std::exchange(mLock, nullptr)->unlock();
        }
        return item->QueryInterface(riid, ppv);
    }

private:
    ObjectPtr<IUnknown> mItem; // released after the lock was left
    Lock* mLock;
};

} // namespace Tavrik::Ossira
