// The value set group and its merged view. The group is a dictionary of its layers; the view is a
// value set that holds nothing itself: reads go to the topmost layer that has the key, writes to
// the layer that the access flags choose. The group's word guards which layers there are; layers
// are called without it, with references. A group that came to lie among its own layers, by way of
// views of other groups too, would ask itself for ever: such a ring is refused when it would be
// closed.
#include "DictionaryViews.h"
#include "Library.h"
#include "MergedWalk.h"
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

// How many keys the layers showed together when they were last counted.
struct CMergedCount
{
    CKeysSeen Seen;
    std::int32_t Count = 0;
};

// What all views of a group share.
struct GroupContent
{
    CLayerTable& Layers;
    CSpinLock& Lock;
    CMergedCount& Count;
};

// In reports it is a value set.
struct MergedViewTraits : ValueSetText
{
    static constexpr CLSID ClassId = CLSID_ValueSetGroup; // in the list of live objects
    static constexpr std::string_view ClassName = "ValueSet";
};

class CMergedView : public CWithoutViews<MergedViewTraits, IValueSet>,
                    public CObjectName,
                    public IMergedView,
                    public ILayerKeys,
                    public COssiraUnknown
{
    struct EnumeratorTraits
    {
        using Owner = CMergedWalk;
        using Primary = CMergedWalk;
        using Position = CGuidPosition;
        static constexpr std::string_view ReportedClass =
            ReportedNested<MergedViewTraits, EnumeratorName>;
        static constexpr bool OffersGuids = true;
        static constexpr bool ReportsEnd = false;
    };

public:
    static constexpr CLSID ClassId = MergedViewTraits::ClassId;
    static constexpr std::string_view OssiraReportedClass = ReportedClass<MergedViewTraits>;

    OSSIRA_INTERFACES(IValueSet, IObjectName, IMergedView, ILayerKeys)

    CMergedView(IValueSetGroup* group, const GroupContent& content) noexcept
        : mGroup(group), mContent(content)
    {
    }

    Result GetEnumerator(const IID& riid, void** ppv) override;
    Result GetCount() override;
    Result Clear() override;
    Result IsReadOnly() override;
    Result AddGUID(const GUID& key) override;
    Result RemoveGUID(const GUID& key) override;
    Result ContainsGUID(const GUID& key) override;
    Result GetValueGUID(const GUID& key, const IID& riid, void** ppv) override;
    Result SetValueGUID(const GUID& key, IUnknown* value) override;
    Result GetValueData(const GUID& key, const GUID& type, void* data, std::int32_t size) override;
    Result SetValueData(const GUID& key, const GUID& type, const void* data,
                        std::int32_t size) override;
    Result GetDataType(const GUID& key, GUID* type) override;

    IValueSetGroup* Group() override
    {
        return mGroup.Get();
    }

    Result GetLayer(std::int32_t index, IValueSet** ppLayer) override
    {
        const tSystem::CLockGuard guard(mContent.Lock);
        if (index >= mContent.Layers.Count())
            return E_NOT_FOUND;
        *ppLayer = ObjectPtr(mContent.Layers.At(index).ValueSet).Detach();
        return S_OK;
    }

    // There is none that stays the same when one layer takes the place of another.
    std::uint64_t KeysStamp() const noexcept override
    {
        return 0;
    }

    std::size_t KeysAbove(const GUID* above, std::span<GUID> keys) override
    {
        const MergedKeys merged(Take().All(), above);
        const std::size_t count = std::min(keys.size(), merged.Keys.size());
        std::copy_n(merged.Keys.begin(), count, keys.begin());
        return count;
    }

private:
    // Ends enumerations when it goes, after something was written or removed.
    class CChange
    {
    public:
        explicit CChange(const GroupContent& content) noexcept : mContent(content)
        {
        }
        CChange(const CChange&) = delete;
        CChange& operator=(const CChange&) = delete;
        ~CChange()
        {
            const tSystem::CLockGuard guard(mContent.Lock);
            mContent.Layers.MarkContentChanged();
        }

    private:
        const GroupContent& mContent;
    };

    static constexpr const char* NotWriteableText = "ValueSetGroup without writeable ValueSets";

    [[nodiscard]] TakenLayers Take() const
    {
        return {mContent.Layers, mContent.Lock};
    }

    // Asks the topmost visible layer that holds the key. When the key has gone from it meanwhile,
    // one below may have it.
    template <class Ask>
    [[nodiscard]] Result AskHolder(const GUID& key, Ask ask) const
    {
        const TakenLayers taken = Take();
        auto layers = taken.All();
        while (const Layer* const holder = FindHolder(layers, key))
        {
            if (const Result answer = ask(*holder->ValueSet); answer != E_NOT_FOUND)
                return answer;
            layers = layers.first(static_cast<std::size_t>(holder - layers.data()));
        }
        return E_NOT_FOUND;
    }

    // Upwards from where the key is. A new key is refused by a read-only layer on top; otherwise it
    // goes downwards, and there a read-only layer does take it. Null when there is none.
    [[nodiscard]] static IValueSet* FindLayerToWrite(std::span<const Layer> layers, const GUID& key)
    {
        if (const Layer* const holder = FindHolder(layers, key); holder != nullptr)
        {
            const auto above = layers.subspan(static_cast<std::size_t>(holder - layers.data()));
            for (const Layer& layer : above)
            {
                if (layer.HasNoneOf(LAYER_READONLY | LAYER_HIDDEN))
                    return layer.ValueSet.Get();
            }
        }
        else if (!layers.empty() && layers.back().HasNoneOf(LAYER_READONLY))
        {
            const auto layer = std::find_if(layers.rbegin(), layers.rend(),
                                            [](const Layer& each) { return each.IsVisible(); });
            if (layer != layers.rend())
                return layer->ValueSet.Get();
        }
        return nullptr;
    }

    ObjectPtr<IValueSetGroup> mGroup;
    GroupContent mContent; // the group's
};

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

    CMergedCount mMergedCount;
};

Result CMergedView::GetEnumerator(const IID& riid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    OSSIRA_CHECK_REFERENCE(riid);
    const ObjectPtr walk(new (std::nothrow)
                             CMergedWalk(mGroup.Get(), mContent.Layers, mContent.Lock));
    OSSIRA_CHECK(walk, E_OUTOFMEMORY, MergedViewTraits::NewEnumeratorText);
    const auto enumerator = TryMakeObject<CGuidKeyEnumerator<EnumeratorTraits>>(walk.Get());
    OSSIRA_CHECK(enumerator, E_OUTOFMEMORY, MergedViewTraits::NewEnumeratorText);
    return enumerator->QueryInterface(riid, ppv);
}
OSSIRA_CATCH_RETURN

// What was counted is kept while it can be told that it is still true.
Result CMergedView::GetCount()
try
{
    {
        const tSystem::CLockGuard guard(mContent.Lock);
        if (mContent.Count.Seen.IsStillTrueOf(mContent.Layers))
            return mContent.Count.Count;
    }
    const TakenLayers layers = Take();
    const CMergedCount counted = {CKeysSeen(layers), CountMergedKeys(layers.All())};
    const tSystem::CLockGuard guard(mContent.Lock);
    mContent.Count = counted;
    return counted.Count;
}
OSSIRA_CATCH_RETURN

Result CMergedView::Clear()
try
{
    const TakenLayers layers = Take();
    for (const Layer& layer : layers.All())
    {
        OSSIRA_CHECK(layer.HasNoneOf(LAYER_READONLY) || !layer.IsVisible(), E_ACCESSDENIED,
                     NotWriteableText);
    }
    const CChange change(mContent);
    for (const Layer& layer : layers.All())
    {
        if (layer.IsVisible())
            OSSIRA_CHECK_CALL_TWICE(layer.ValueSet->Clear(), "{ValueSet of Group}->Clear");
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result CMergedView::IsReadOnly()
{
    return 0;
}

Result CMergedView::AddGUID(const GUID&)
try
{
    OSSIRA_THROW(E_NOTIMPL, MergedViewTraits::AddText);
}
OSSIRA_CATCH_RETURN

Result CMergedView::RemoveGUID(const GUID& key)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    const TakenLayers layers = Take();
    for (const Layer& layer : layers.All())
    {
        OSSIRA_CHECK(layer.HasNoneOf(LAYER_READONLY) || !HoldsKey(layer, key), E_ACCESSDENIED,
                     NotWriteableText);
    }
    const CChange change(mContent);
    for (const Layer& layer : layers.All())
    {
        if (HoldsKey(layer, key))
            OSSIRA_CHECK_CALL_TWICE(layer.ValueSet->RemoveGUID(key),
                                    "{ValueSet of Group}->RemoveGUID");
    }
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result CMergedView::ContainsGUID(const GUID& key)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    return FindHolder(Take().All(), key) != nullptr ? S_OK : S_FALSE;
}
OSSIRA_CATCH_RETURN

Result CMergedView::GetValueGUID(const GUID& key, const IID& riid, void** ppv)
try
{
    OSSIRA_CHECK_POINTER(ppv);
    OSSIRA_CHECK_REFERENCE(key);
    OSSIRA_CHECK_REFERENCE(riid);
    return AskHolder(key, [&](IValueSet& layer) { return layer.GetValueGUID(key, riid, ppv); });
}
OSSIRA_CATCH_RETURN

// What a value must be is for the layer to say.
Result CMergedView::SetValueGUID(const GUID& key, IUnknown* value)
try
{
    OSSIRA_CHECK_POINTER(value);
    OSSIRA_CHECK_REFERENCE(key);
    const TakenLayers layers = Take();
    IValueSet* const target = FindLayerToWrite(layers.All(), key);
    OSSIRA_CHECK(target != nullptr, E_ACCESSDENIED, NotWriteableText);
    OSSIRA_CHECK_CALL_TWICE(target->SetValueGUID(key, value), "{ValueSet of Group}->SetValueGUID");
    const CChange change(mContent);
    return S_OK;
}
OSSIRA_CATCH_RETURN

Result CMergedView::GetValueData(const GUID& key, const GUID& type, void* data, std::int32_t size)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    OSSIRA_CHECK_REFERENCE(type);
    return AskHolder(key,
                     [&](IValueSet& layer) { return layer.GetValueData(key, type, data, size); });
}
OSSIRA_CATCH_RETURN

Result CMergedView::SetValueData(const GUID& key, const GUID& type, const void* data,
                                 std::int32_t size)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    OSSIRA_CHECK_REFERENCE(type);
    const TakenLayers layers = Take();
    IValueSet* const target = FindLayerToWrite(layers.All(), key);
    OSSIRA_CHECK(target != nullptr, E_ACCESSDENIED, NotWriteableText);
    Result result = S_OK;
    OSSIRA_CHECK_CALL_TWICE(result = target->SetValueData(key, type, data, size),
                            "{ValueSet of Group}->SetValueData");
    const CChange change(mContent);
    return result;
}
OSSIRA_CATCH_RETURN

Result CMergedView::GetDataType(const GUID& key, GUID* type)
try
{
    OSSIRA_CHECK_REFERENCE(key);
    return AskHolder(key, [&](IValueSet& layer) { return layer.GetDataType(key, type); });
}
OSSIRA_CATCH_RETURN

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
