// The merged view of a value set group: a value set that holds nothing itself. Reads go to the
// topmost layer that has the key, writes to the layer that the access flags choose. The group's
// word guards which layers there are; layers are called without it, with references.
#pragma once

#include "MergedWalk.h"
#include "ValueSetOperations.h"

namespace Tavrik::Ossira
{

inline constexpr IID IID_IMergedView = {
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
    CLayerTable& Layers OSSIRA_GUARDED_BY(Lock);
    CSpinLock& Lock;
    CMergedCount& Count OSSIRA_GUARDED_BY(Lock);
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

    Result GetEnumerator(const IID& riid, void** ppv)
        OSSIRA_UNCHECKED_GUARDS override; // the walk locks what it gets
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
            EndEnumerations();
        }

    private:
        void EndEnumerations() noexcept
        {
            const tSystem::CLockGuard guard(mContent.Lock);
            mContent.Layers.MarkContentChanged();
        }

        const GroupContent& mContent;
    };

    static constexpr const char* NotWriteableText = "ValueSetGroup without writeable ValueSets";

    [[nodiscard]] TakenLayers Take() const OSSIRA_UNCHECKED_GUARDS // locked in there
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
    // goes downwards, and there a read-only layer does take it.
    [[nodiscard]] static IValueSet& FindLayerToWrite(std::span<const Layer> layers, const GUID& key)
    {
        if (const Layer* const holder = FindHolder(layers, key); holder != nullptr)
        {
            const auto above = layers.subspan(static_cast<std::size_t>(holder - layers.data()));
            for (const Layer& layer : above)
            {
                if (layer.HasNoneOf(LAYER_READONLY | LAYER_HIDDEN))
                    return *layer.ValueSet;
            }
        }
        else if (!layers.empty() && layers.back().HasNoneOf(LAYER_READONLY))
        {
            const auto layer = std::find_if(layers.rbegin(), layers.rend(),
                                            [](const Layer& each) { return each.IsVisible(); });
            if (layer != layers.rend())
                return *layer->ValueSet;
        }
        OSSIRA_THROW(E_ACCESSDENIED, NotWriteableText);
    }

    ObjectPtr<IValueSetGroup> mGroup;
    GroupContent mContent; // the group's
};

} // namespace Tavrik::Ossira
