// The value set group and its merged view. The group is a dictionary of its layers; the view is a
// value set that holds nothing itself: reads go to the topmost layer that has the key, writes to
// the layer that the access flags choose. The group's word guards which layers there are; layers
// are called without it, with references. A group that came to lie among its own layers, by way of
// views of other groups too, would ask itself for ever: such a ring is refused when it would be
// closed.
#include "DictionaryViews.h"
#include "Library.h"
#include "MergedView.h"
#include "OssiraClasses.h"

#include <mutex>
#include <vector>

namespace Tavrik::Ossira
{
namespace
{

struct GroupTraits : QuietGuids
{
    using LockType = CSpinLock;
    static constexpr CLSID ClassId = CLSID_ValueSetGroup;
    static constexpr std::string_view ClassName = "ValueSetGroup";
    static constexpr const char* AddText = "AddGUID not supported by IValueSetGroup";
    static constexpr const std::string_view& EnumeratorClass = KeyEnumeratorName;
    static constexpr const char* NewEnumeratorText = "new T_KeyEnumerator";
};

class T_ValueSetGroup : public CViewedCollection<GroupTraits, IValueSetGroup, CLayerTable>
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

    CMergedCount mMergedCount OSSIRA_GUARDED_BY(mLock);
};

// Asks for an interface that only objects of the runtime have. Others are not called: what they do
// then is their affair, and the process-wide section may be held.
template <class Interface>
[[nodiscard]] bool AskOwn(const ObjectPtr<IValueSet>& valueSet, ObjectPtr<Interface>& object)
{
    return IsOwnObject(valueSet.Get()) && Succeeded(valueSet.QueryTo(object));
}

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
            if (AskOwn(layer, behind) && std::none_of(views.begin(), views.end(), isSameGroup))
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
    Layer layer = {GUID_Null, ObjectPtr(valueSet), flags};
    if (ObjectPtr<ILayerKeys> keys; AskOwn(layer.ValueSet, keys))
        layer.Keys = keys.Get();
    ObjectPtr<IMergedView> view;
    std::unique_lock<tSystem::CCriticalSection> rings;
    bool closesRing = false;
    if (AskOwn(layer.ValueSet, view))
    {
        rings = std::unique_lock(GlobalCriticalSection());
        closesRing = LeadsTo(this, view);
    }
    const tSystem::CLockGuard guard(mLock);
    mTable.CheckInsertion(index, id);
    OSSIRA_CHECK(!closesRing, E_INVALIDARG, "valueSet leads back to this group");
    if (id != nullptr)
        layer.ID = *id;
    mTable.Insert(index, std::move(layer));
    ++mStamp;
}

Result T_ValueSetGroup::SetValueGUID(const GUID& key, IUnknown* value)
try
{
    OSSIRA_CHECK_POINTER(value);
    OSSIRA_CHECK_REFERENCE(key);
    ObjectPtr<IValueSet> valueSet;
    OSSIRA_CHECK_CALL_TWICE(value->QueryInterface(IID_IValueSet, valueSet.PutVoid()),
                            NoValueSetText);
    OSSIRA_CHECK(valueSet, E_NOINTERFACE, NoValueSetText);
    Insert(CLayerTable::OnTop, valueSet.Get(), &key, 0);
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
    auto view = TryMakeObject<CMergedView>(this, GroupContent{mTable, mLock, mMergedCount});
    OSSIRA_CHECK(view, E_OUTOFMEMORY, "new T_ValueSet");
    *pValueSet = view.Detach();
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::SetValueSetAccessFlagsAt(std::int32_t index, std::uint32_t flags)
try
{
    const tSystem::CLockGuard guard(mLock);
    mTable.SetAccessFlagsAt(index, flags);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::GetValueSetAt(std::int32_t index, const IID& riid, void** pValueSet)
try
{
    OSSIRA_CHECK_POINTER(pValueSet);
    OSSIRA_CHECK_REFERENCE(riid);
    ObjectPtr<IValueSet> layer;
    {
        const tSystem::CLockGuard guard(mLock);
        layer = mTable.At(index).ValueSet;
    }
    return layer->QueryInterface(riid, pValueSet);
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::GetValueSetIDAt(std::int32_t index, GUID* pID)
try
{
    OSSIRA_CHECK_POINTER(pID);
    const tSystem::CLockGuard guard(mLock);
    *pID = mTable.At(index).ID;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::GetValueSetAccessFlagsAt(std::int32_t index, std::uint32_t* pAccessFlags)
try
{
    OSSIRA_CHECK_POINTER(pAccessFlags);
    const tSystem::CLockGuard guard(mLock);
    *pAccessFlags = mTable.At(index).AccessFlags;
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result T_ValueSetGroup::IndexOfValueSet(IValueSet* valueSet)
try
{
    OSSIRA_CHECK_POINTER(valueSet);
    const tSystem::CLockGuard guard(mLock);
    return mTable.IndexOf(valueSet);
}
OSSIRA_CATCH_RETURN

} // namespace

OSSIRA_CLASS(T_ValueSetGroup, "ValueSetGroup")

} // namespace Tavrik::Ossira
