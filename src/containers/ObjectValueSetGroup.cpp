// The value set group and its merged view. The group is a dictionary of its layers; the view is a
// value set like every other, over what the layers show together and under the group's lock. The
// lock is not re-entrant, so a group that came to lie among its own layers, by way of views of
// other groups too, would never return: such a ring is refused when it would be closed.
#include "DictionaryViews.h"
#include "LayerTable.h"
#include "Library.h"
#include "MergedLayers.h"
#include "OssiraClasses.h"
#include "ValueSetOperations.h"

#include <mutex>
#include <vector>

namespace Tavrik::Ossira
{
namespace
{

constexpr IID IID_IMergedView = {
    0xF313B176, 0x72D4, 0x4228, {0x9F, 0x52, 0x35, 0x15, 0x44, 0xD6, 0xA7, 0xCC}};

// By this a group knows a value set that is a view of a group.
struct IMergedView : IUnknown
{
    using Extends = IUnknown;
    static constexpr IID Iid = IID_IMergedView;

    // Borrowed; the view keeps it alive.
    virtual IValueSetGroup* Group() = 0;

    // Hands out a layer with a reference, or answers `E_NOT_FOUND`.
    virtual Result GetLayer(std::int32_t index, IValueSet** ppLayer) = 0;

protected:
    ~IMergedView() = default;
};

// The lock of another object.
class CBorrowedLock
{
public:
    void Bind(CSpinLock& lock) noexcept
    {
        mLock = &lock;
    }

    void lock() noexcept
    {
        mLock->lock();
    }

    void unlock() noexcept
    {
        mLock->unlock();
    }

private:
    CSpinLock* mLock = nullptr;
};

// In reports it is a value set.
struct MergedViewTraits : ValueSetText
{
    using LockType = CBorrowedLock;
    static constexpr CLSID ClassId = CLSID_ValueSetGroup; // in the list of live objects
    static constexpr std::string_view ClassName = "ValueSet";
};

class CMergedView : public CValueSetOperations<MergedViewTraits, CUnique>, public IMergedView
{
public:
    OSSIRA_INTERFACES(IValueSet, IObjectName, IMergedView)

    CMergedView(IValueSetGroup* group, CManager& layers, CSpinLock& lock)
        : mGroup(group), mLayers(layers)
    {
        mLock.Bind(lock);
        mStorage.Bind(layers, lock);
    }

    IValueSetGroup* Group() override
    {
        return mGroup.Get();
    }

    Result GetLayer(std::int32_t index, IValueSet** ppLayer) override
    {
        const tSystem::CLockGuard guard(mLock);
        if (index >= mLayers.Count())
            return E_NOT_FOUND;
        *ppLayer = ObjectPtr(mLayers.At(index).ValueSet).Detach();
        return S_OK;
    }

private:
    ObjectPtr<IValueSetGroup> mGroup;
    CManager& mLayers; // the group's
};

struct GroupTraits
{
    using LockType = CSpinLock;
    static constexpr CLSID ClassId = CLSID_ValueSetGroup;
    static constexpr std::string_view ClassName = "ValueSetGroup";
    static constexpr const char* AddText = "AddGUID not supported by IValueSetGroup";
    static constexpr const std::string_view& EnumeratorClass = KeyEnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_KeyEnumerator";
};

class T_ValueSetGroup : public CViewedCollection<GroupTraits, IValueSetGroup, CManager>
{
public:
    OSSIRA_INTERFACES(IValueSetGroup, IObjectName, IObjectIdentity)

    Result SetValueGUID(const GUID& key, IUnknown* value) override;
    Result GetValueSet(IValueSet** pValueSet) override;
    Result InsertValueSet(std::int32_t index, IValueSet* valueSet, const GUID* id,
                          std::uint32_t flags) override;
    Result SetValueSetAccessFlagsAt(std::int32_t index, std::uint32_t flags) override;
    Result GetValueSetAt(std::int32_t index, const IID& riid, void** pValueSet) override;
    Result GetValueSetIDAt(std::int32_t index, GUID* pID) override;
    Result GetValueSetAccessFlagsAt(std::int32_t index, std::uint32_t* pAccessFlags) override;
    Result IndexOfValueSet(IValueSet* valueSet) override;

private:
    static constexpr const char* NoValueSetText = "value must be IValueSet";

    void Insert(std::int32_t index, IValueSet* valueSet, const GUID* id, std::uint32_t flags);
};

// Whether a view is one of a group, or has such a view behind it.
bool LeadsTo(const IValueSetGroup* target, const ObjectPtr<IMergedView>& view)
{
    std::vector<ObjectPtr<IMergedView>> views = {view}; // one for each group
    for (std::size_t at = 0; at < views.size(); ++at)
    {
        const ObjectPtr<IMergedView> visited = views[at];
        if (visited->Group() == target)
            return true;
        ObjectPtr<IValueSet> layer;
        for (std::int32_t index = 0; Succeeded(visited->GetLayer(index, layer.Put())); ++index)
        {
            ObjectPtr<IMergedView> behind;
            const auto isSameGroup = [&behind](const auto& known)
            {
                return known->Group() == behind->Group();
            };
            if (Succeeded(layer.QueryTo(behind)) &&
                std::none_of(views.begin(), views.end(), isSameGroup))
                views.push_back(behind);
        }
    }
    return false;
}

// A view is inserted under the process-wide lock: two threads could otherwise close a ring of two
// groups, neither of them seeing it.
void T_ValueSetGroup::Insert(std::int32_t index, IValueSet* valueSet, const GUID* id,
                             std::uint32_t flags)
{
    OSSIRA_CHECK_POINTER(valueSet);
    const ObjectPtr<IValueSet> layer(valueSet);
    ObjectPtr<IMergedView> view;
    std::unique_lock<tSystem::CCriticalSection> rings;
    bool closesRing = false;
    if (Succeeded(layer.QueryTo(view)))
    {
        rings = std::unique_lock(GlobalCriticalSection());
        closesRing = LeadsTo(this, view);
    }
    const tSystem::CLockGuard guard(mLock);
    mStorage.CheckInsertion(index, id);
    OSSIRA_CHECK(!closesRing, E_INVALIDARG, "valueSet leads back to this group");
    mStorage.Insert(index, layer, id, flags);
}

Result T_ValueSetGroup::SetValueGUID(const GUID& key, IUnknown* value)
try
{
    OSSIRA_CHECK_POINTER(value);
    ObjectPtr<IValueSet> valueSet;
    OSSIRA_CHECK_CALL_TWICE(value->QueryInterface(IID_IValueSet, valueSet.PutVoid()),
                            NoValueSetText);
    OSSIRA_CHECK(valueSet, E_NOINTERFACE, NoValueSetText);
    Insert(CManager::OnTop, valueSet.Get(), &key, 0);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::InsertValueSet(std::int32_t index, IValueSet* valueSet, const GUID* id,
                                       std::uint32_t flags)
try
{
    Insert(index, valueSet, id, flags);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::GetValueSet(IValueSet** pValueSet)
try
{
    OSSIRA_CHECK_POINTER(pValueSet);
    auto view = TryMakeObject<CMergedView>(this, mStorage, mLock);
    OSSIRA_CHECK(view, E_OUTOFMEMORY, "new T_ValueSet");
    *pValueSet = view.Detach();
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::SetValueSetAccessFlagsAt(std::int32_t index, std::uint32_t flags)
try
{
    const tSystem::CLockGuard guard(mLock);
    mStorage.At(index).AccessFlags = flags;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::GetValueSetAt(std::int32_t index, const IID& riid, void** pValueSet)
try
{
    OSSIRA_CHECK_POINTER(pValueSet);
    ObjectPtr<IValueSet> layer;
    {
        const tSystem::CLockGuard guard(mLock);
        layer = mStorage.At(index).ValueSet;
    }
    return layer->QueryInterface(riid, pValueSet);
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::GetValueSetIDAt(std::int32_t index, GUID* pID)
try
{
    OSSIRA_CHECK_POINTER(pID);
    const tSystem::CLockGuard guard(mLock);
    *pID = mStorage.At(index).ID;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::GetValueSetAccessFlagsAt(std::int32_t index, std::uint32_t* pAccessFlags)
try
{
    OSSIRA_CHECK_POINTER(pAccessFlags);
    const tSystem::CLockGuard guard(mLock);
    *pAccessFlags = mStorage.At(index).AccessFlags;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::IndexOfValueSet(IValueSet* valueSet)
try
{
    OSSIRA_CHECK_POINTER(valueSet);
    const tSystem::CLockGuard guard(mLock);
    return mStorage.IndexOf(valueSet);
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_ValueSetGroup, "ValueSetGroup")

} // namespace Tavrik::Ossira
