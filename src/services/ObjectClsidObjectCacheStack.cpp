// A bounded pool of objects of one class. The cached objects stand in a linked list, so that taking
// one out, putting one in and emptying the whole cost the same however many there are, and nothing
// but a new place needs memory: that is had before the lock is taken.
//
// The cache's lock is re-entrant, because callers can hold it as well. While it is held here
// nothing of an object is called but `AddRef`.
#include "DisposeStatus.h"
#include "OssiraCacheStack.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"
#include "OssiraFrame.h"
#include "Platform.h"

#include <list>

namespace Tavrik::Ossira
{

namespace
{

constexpr const char* NotCreated = "ClsidObjectCacheStack-Object not created - see Create()";

class T_ClsidObjectCacheStack : public IClsidObjectCacheStack,
                                public CObjectIdentity<T_ClsidObjectCacheStack>,
                                public IObjectLock,
                                public CDisposeStatus,
                                public CObjectName,
                                public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_ClsidObjectCacheStack;
    static constexpr std::string_view ClassName = "ClsidObjectCacheStack";

    OSSIRA_INTERFACES(IClsidObjectCacheStack, IObjectIdentity, IObjectLock, IDisposable,
                      IObjectName)

    Result IsEmpty() override;
    Result Clear() override;
    Result Pop(const IID& iid, void** out) override;
    Result Push(IUnknown* value) override;
    Result Create(const CLSID& clsid, const IID& iid, std::uint32_t maxObjectCount,
                  std::uint8_t disposeItems) override;

    Result Lock(std::uint32_t mode) OSSIRA_TAKES(mLock) override;
    Result Unlock() override;

    Result Dispose() override;

private:
    using Items = std::list<ObjectPtr<IUnknown>>; // each by its identity

    [[nodiscard]] ObjectPtr<IUnknown> First();
    [[nodiscard]] bool TryRemoveFirst(const ObjectPtr<IUnknown>& first);
    [[nodiscard]] bool MayCreate() const noexcept;
    [[nodiscard]] bool
    LeaveCallersLock() noexcept OSSIRA_UNCHECKED_GUARDS; // leaves what somebody else took
    void EmptyCache();

    tSystem::CCriticalSection mLock;
    Items mItems OSSIRA_GUARDED_BY(mLock);
    std::uint32_t mCallersDepth OSSIRA_GUARDED_BY(mLock) = 0; // how often callers hold the lock

    std::atomic<bool> mIsCreated = false; // what follows is set and stays, but for the last
    CLSID mClassId = GUID_Null;
    IID mInterfaceId = GUID_Null;
    std::uint32_t mMaxObjectCount = 0;
    bool mDisposeItems = false;
    std::atomic<std::int32_t> mCreatedCount = 0;
};

Result T_ClsidObjectCacheStack::IsEmpty()
try
{
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "IsEmpty");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);
    const tSystem::CLockGuard guard(mLock);
    return mItems.empty() ? S_OK : S_FALSE;
}
OSSIRA_CATCH_RETURN

Result T_ClsidObjectCacheStack::Clear()
try
{
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "Clear");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);
    EmptyCache();
    return S_OK;
}
OSSIRA_CATCH_RETURN

// The object whose turn it is, which stays where it is; null when there is none.
ObjectPtr<IUnknown> T_ClsidObjectCacheStack::First()
{
    const tSystem::CLockGuard guard(mLock);
    return mItems.empty() ? ObjectPtr<IUnknown>() : mItems.front();
}

// False when it is not the first any more.
bool T_ClsidObjectCacheStack::TryRemoveFirst(const ObjectPtr<IUnknown>& first)
{
    Items removed; // whose reference goes after the lock was left
    const tSystem::CLockGuard guard(mLock);
    if (mItems.empty() || mItems.front().Get() != first.Get())
        return false;
    removed.splice(removed.begin(), mItems, mItems.begin());
    return true;
}

// An object is asked for the interface before it leaves the cache, since it stays if it has none.
// When another thread takes it meanwhile, the next one is asked.
Result T_ClsidObjectCacheStack::Pop(const IID& iid, void** out)
try
{
    OSSIRA_CHECK_POINTER(out);
    OSSIRA_CHECK_REFERENCE(iid);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "Pop");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);

    ObjectPtr<IUnknown> item;
    ObjectPtr<IUnknown> first;
    do
    {
        first = First();
        if (!first)
            break;
        tSystem::CheckForeignCall();
        OSSIRA_CHECK_CALL_TWICE(first->QueryInterface(iid, item.PutVoid()), "GetItemAt");
    } while (!TryRemoveFirst(first));

    if (!first)
    {
        OSSIRA_CHECK(MayCreate(), E_FAIL, "Too many objects - see maxObjectCount at Create()");
        OSSIRA_CHECK_CALL_TWICE(CreateClassObject(&mClassId, &iid, item.PutVoid()),
                                "ClsidObjectCacheStack CreateClassObject(clsid, iid, )");
        mCreatedCount.fetch_add(1);
    }
    *out = item.Detach();
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidObjectCacheStack::Push(IUnknown* value)
try
{
    OSSIRA_CHECK_POINTER(value);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "Push");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);
    ObjectPtr<IUnknown> item;
    tSystem::CheckForeignCall();
    OSSIRA_CHECK_CALL_TWICE(value->QueryInterface(mInterfaceId, item.PutVoid()),
                            "value must support the IID defined at Create()");
    OSSIRA_CHECK(item, E_POINTER, "Add");
    Items added(1);
    OSSIRA_CHECK_CALL_TWICE(item->QueryInterface(IID_IUnknown, added.front().PutVoid()), "Add");
    OSSIRA_CHECK(added.front(), E_POINTER, "Add");
    {
        const tSystem::CLockGuard guard(mLock);
        if (!IsClosed())
            mItems.splice(mItems.end(), added);
    }
    OSSIRA_CHECK(added.empty(), E_DISPOSED, "Push"); // since the cache was emptied for good
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidObjectCacheStack::Create(const CLSID& clsid, const IID& iid,
                                       std::uint32_t maxObjectCount, std::uint8_t disposeItems)
try
{
    OSSIRA_CHECK_REFERENCE(clsid);
    OSSIRA_CHECK_REFERENCE(iid);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "Create"); // at once, whoever holds the lock
    const tSystem::CLockGuard guard(mLock);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "Create");
    OSSIRA_CHECK(!mIsCreated, E_ACCESSDENIED, "Already created");
    OSSIRA_CHECK(!SameGuid(clsid, GUID_Null) && !SameGuid(iid, GUID_Null), E_INVALIDARG,
                 "clsid and iid cannot be GUID_Null");
    mClassId = clsid;
    mInterfaceId = iid;
    mMaxObjectCount = maxObjectCount;
    mDisposeItems = disposeItems != 0;
    mIsCreated = true;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidObjectCacheStack::Lock(std::uint32_t)
try
{
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "LockObject");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);
    mLock.lock();
    ++mCallersDepth;
    return S_OK;
}
OSSIRA_CATCH_RETURN

// Whether this thread had it from `Lock`: the lock can be had again here, and callers hold it.
bool T_ClsidObjectCacheStack::LeaveCallersLock() noexcept
{
    if (!mLock.try_lock())
        return false;
    const bool isHeld = mCallersDepth > 0;
    if (isHeld)
    {
        --mCallersDepth;
        mLock.unlock();
    }
    mLock.unlock();
    return isHeld;
}

// Whoever holds the lock leaves it whatever became of the cache: the one who disposes of it may be
// waiting for that.
Result T_ClsidObjectCacheStack::Unlock()
try
{
    if (LeaveCallersLock())
        return S_OK;
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "UnlockObject");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidObjectCacheStack::Dispose()
try
{
    OSSIRA_CHECK(BeginDisposal(), E_DISPOSED, "Dispose");
    EmptyCache();
    EndDisposal();
    return S_OK;
}
OSSIRA_CATCH_RETURN

// Read as a signed number the limit is none from 0x80000000 on; nor is 0.
bool T_ClsidObjectCacheStack::MayCreate() const noexcept
{
    const auto limit = static_cast<std::int32_t>(mMaxObjectCount);
    return limit < 1 || mCreatedCount < limit;
}

// No item is disposed or released while the lock is held: they may call back.
void T_ClsidObjectCacheStack::EmptyCache()
{
    Items items;
    {
        const tSystem::CLockGuard guard(mLock);
        items.swap(mItems);
        mCreatedCount = 0;
    }
    if (!mDisposeItems)
        return;
    for (const ObjectPtr<IUnknown>& item : items)
    {
        ObjectPtr<IDisposable> disposable;
        if (Succeeded(item.QueryTo(disposable)))
            disposable->Dispose();
    }
}

} // namespace

OSSIRA_CLASS(T_ClsidObjectCacheStack, "ClsidObjectCacheStack")

} // namespace Tavrik::Ossira
