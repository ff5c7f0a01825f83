// A bounded pool of objects of one class, kept in a lockable list. Several steps on the list are
// made one by holding the list's own lock, which callers can hold as well.
#include "DisposeStatus.h"
#include "FastCriticalSection.h"
#include "OssiraCacheStack.h"
#include "OssiraClasses.h"
#include "OssiraCollections.h"
#include "OssiraFrame.h"

#include <vector>

namespace Tavrik::Ossira
{

namespace
{

constexpr const char* NotCreated = "ClsidObjectCacheStack-Object not created - see Create()";

class T_ClsidObjectCacheStack : public IClsidObjectCacheStack,
                                public CObjectIdentity<T_ClsidObjectCacheStack>,
                                public IObjectLock,
                                public IDisposable,
                                public CObjectName,
                                public COssiraUnknown,
                                private CDisposeStatus
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

    Result Lock(std::uint32_t mode) override;
    Result Unlock() override;

    Result Dispose() override;

    Result IsDisposed() override
    {
        return WasDisposed() ? S_OK : S_FALSE;
    }

private:
    using Items = std::vector<ObjectPtr<IUnknown>>;

    struct LeaveLock
    {
        void operator()(IObjectLock* lock) const
        {
            lock->Unlock();
        }
    };
    using ListLock = std::unique_ptr<IObjectLock, LeaveLock>;

    [[nodiscard]] ListLock LockList();
    [[nodiscard]] Items CollectItems();
    [[nodiscard]] bool MayCreate() const noexcept;
    void EmptyCache();

    tSystem::CFastCriticalSection mCreateLock;
    std::atomic<bool> mIsCreated = false; // what follows is set and stays, but for the last
    ObjectPtr<IList> mList;
    ObjectPtr<IObjectLock> mListLock;
    CLSID mClassId = GUID_Null;
    IID mInterfaceId = GUID_Null;
    std::uint32_t mMaxObjectCount = 0;
    bool mDisposeItems = false;
    std::atomic<std::int32_t> mCreatedCount = 0;
};

// Callers meet the list's failures where they call this.
T_ClsidObjectCacheStack::ListLock T_ClsidObjectCacheStack::LockList()
{
    constexpr std::uint32_t mode = 3;
    OSSIRA_CHECK_CALL_TWICE(mListLock->Lock(mode), "Lock.Enter");
    return ListLock(mListLock.Get());
}

Result T_ClsidObjectCacheStack::IsEmpty()
try
{
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "IsEmpty");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);
    return mList->GetCount() == 0 ? S_OK : S_FALSE;
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

Result T_ClsidObjectCacheStack::Pop(const IID& iid, void** out)
try
{
    OSSIRA_CHECK_POINTER(out);
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "Pop");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);

    ObjectPtr<IUnknown> item;
    if (const ListLock lock = LockList(); mList->GetCount() > 0)
    {
        OSSIRA_CHECK_CALL_TWICE(mList->GetItemAt(0, iid, item.PutVoid()), "GetItemAt");
        OSSIRA_CHECK_CALL_TWICE(mList->Remove(item.Get()), "Remove");
    }
    if (!item)
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
    OSSIRA_CHECK_CALL_TWICE(value->QueryInterface(mInterfaceId, item.PutVoid()),
                            "value must support the IID defined at Create()");
    OSSIRA_CHECK_CALL_TWICE(mList->Add(item.Get()), "Add");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidObjectCacheStack::Create(const CLSID& clsid, const IID& iid,
                                       std::uint32_t maxObjectCount, std::uint8_t disposeItems)
try
{
    constexpr std::uint32_t withoutLimit = 0xFFFFFFFF;
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "Create");
    OSSIRA_CHECK(!mIsCreated, E_ACCESSDENIED, "Already created");
    OSSIRA_CHECK(!SameGuid(clsid, GUID_Null) && !SameGuid(iid, GUID_Null), E_INVALIDARG,
                 "clsid and iid cannot be GUID_Null");
    ObjectPtr<IList> list;
    OSSIRA_CHECK_CALL_TWICE(CreateObject(CLSID_LockableNodeList, list), "CreateLockableNodeList");
    ObjectPtr<IObjectLock> listLock;
    OSSIRA_CHECK_CALL_TWICE(list.QueryTo(listLock), "query IObjectLock");

    const tSystem::CLockGuard guard(mCreateLock);
    OSSIRA_CHECK(!mIsCreated, E_ACCESSDENIED, "Already created"); // by another thread
    mList = std::move(list);
    mListLock = std::move(listLock);
    mClassId = clsid;
    mInterfaceId = iid;
    mMaxObjectCount = maxObjectCount == 0 ? withoutLimit : maxObjectCount;
    mDisposeItems = disposeItems != 0;
    mIsCreated = true;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidObjectCacheStack::Lock(std::uint32_t mode)
try
{
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "LockObject");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);
    OSSIRA_CHECK_CALL_TWICE(mListLock->Lock(mode), "LockObject");
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ClsidObjectCacheStack::Unlock()
try
{
    OSSIRA_CHECK(!IsClosed(), E_DISPOSED, "UnlockObject");
    OSSIRA_CHECK(mIsCreated, E_ACCESSDENIED, NotCreated);
    OSSIRA_CHECK_CALL_TWICE(mListLock->Unlock(), "UnlockObject");
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

// Read as a signed number the limit is none from 0x80000000 on.
bool T_ClsidObjectCacheStack::MayCreate() const noexcept
{
    const auto limit = static_cast<std::int32_t>(mMaxObjectCount);
    return limit < 1 || mCreatedCount < limit;
}

T_ClsidObjectCacheStack::Items T_ClsidObjectCacheStack::CollectItems()
{
    ObjectPtr<IEnumerator> enumerator;
    OSSIRA_CHECK_CALL_TWICE(mList->GetEnumerator(IID_IEnumerator, enumerator.PutVoid()),
                            "GetEnumerator");
    Items items;
    while (enumerator->MoveNext() == S_OK)
    {
        ObjectPtr<IUnknown> item;
        if (!Failed(enumerator->GetCurrent(IID_IUnknown, item.PutVoid())))
            items.push_back(std::move(item));
    }
    return items;
}

// No item is disposed or released while the lock is held: they may call back.
void T_ClsidObjectCacheStack::EmptyCache()
{
    if (!mIsCreated)
        return;
    Items items;
    ListLock lock = LockList();
    if (mDisposeItems)
        items = CollectItems();
    mCreatedCount = 0;
    if (!mDisposeItems)
        lock.reset(); // the list has a lock of its own for this, and leaves it to release items
    mList->Clear();
    lock.reset();

    for (const ObjectPtr<IUnknown>& item : items)
    {
        ObjectPtr<IDisposable> disposable;
        if (!Failed(item.QueryTo(disposable)))
            disposable->Dispose();
    }
}

} // namespace

OSSIRA_CLASS(T_ClsidObjectCacheStack, "ClsidObjectCacheStack")

} // namespace Tavrik::Ossira
