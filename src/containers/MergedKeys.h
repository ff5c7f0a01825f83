// The keys that the layers of a value set group show together: merged, found, counted. Everything
// here calls layers, so no lock is held; it works on the layers of one moment, with references.
#pragma once

#include "LayerTable.h"
#include "LockPolicy.h"

#include <algorithm>
#include <array>
#include <vector>

namespace Tavrik::Ossira
{

// What the layers of a group are at one moment.
struct TakenLayers
{
    TakenLayers(const CLayerTable& layers, CSpinLock& lock)
    {
        const tSystem::CLockGuard guard(lock);
        Version = layers.Version();
        for (const Layer& layer : layers.Layers())
        {
            Stamps[Count] = layer.Keys != nullptr ? layer.Keys->KeysStamp() : 0;
            Items[Count++] = layer;
        }
    }

    [[nodiscard]] std::span<const Layer> All() const noexcept
    {
        return {Items.data(), Count};
    }

    std::array<Layer, CLayerTable::ItemMaximum> Items;
    std::array<std::uint64_t, CLayerTable::ItemMaximum> Stamps = {}; // of their keys, just before
    std::uint64_t Version = 0;
    std::size_t Count = 0;
};

// By it what was found out about the keys of a group's layers is known to be still true: as long as
// the layers are the same and all of them can tell that no key has come or gone.
class CKeysSeen
{
public:
    CKeysSeen() noexcept = default;
    explicit CKeysSeen(const TakenLayers& layers) noexcept
        : mVersion(layers.Version), mStamps(layers.Stamps), mIsKnown(true)
    {
        for (std::size_t at = 0; at < layers.Count; ++at)
            mCanTellKeys &= !layers.Items[at].IsVisible() || mStamps[at] != 0;
    }

    // Whether all visible layers can.
    [[nodiscard]] bool CanTellKeys() const noexcept
    {
        return mCanTellKeys;
    }

    // The following with the group's lock held.

    [[nodiscard]] bool IsVersionOf(const CLayerTable& layers) const noexcept
    {
        return mIsKnown && layers.Version() == mVersion;
    }

    [[nodiscard]] bool IsStillTrueOf(const CLayerTable& layers) const noexcept
    {
        if (!mCanTellKeys || !IsVersionOf(layers))
            return false;
        const auto all = layers.Layers();
        for (std::size_t at = 0; at < all.size(); ++at)
        {
            if (all[at].IsVisible() && all[at].Keys->KeysStamp() != mStamps[at])
                return false;
        }
        return true;
    }

private:
    std::uint64_t mVersion = 0;
    std::array<std::uint64_t, CLayerTable::ItemMaximum> mStamps = {};
    bool mIsKnown = false;
    bool mCanTellKeys = true;
};

[[nodiscard]] inline bool HoldsKey(const Layer& layer, const GUID& key)
{
    return layer.IsVisible() && layer.ValueSet->ContainsGUID(key) == S_OK;
}

// The topmost visible layer that holds the key, or null.
[[nodiscard]] inline const Layer* FindHolder(std::span<const Layer> layers, const GUID& key)
{
    const auto holder = std::find_if(layers.rbegin(), layers.rend(),
                                     [&key](const Layer& layer) { return HoldsKey(layer, key); });
    return holder != layers.rend() ? &*holder : nullptr;
}

// A foreign value set's keys that are greater than *above, in order. Its enumerator ends when
// somebody changes it meanwhile; then it is asked for another.
class CForeignKeys
{
public:
    static std::vector<GUID> Above(const GUID* above, IValueSet& values)
    {
        std::vector<GUID> keys;
        Result answer = E_ACCESSDENIED;
        for (int tries = 0; tries < TryLimit && answer == E_ACCESSDENIED; ++tries)
            answer = TryRead(above, values, keys);
        OSSIRA_CHECK(!Failed(answer), answer, "EA->MoveNext");
        std::sort(keys.begin(), keys.end(), KeyPrecedes);
        keys.erase(std::unique(keys.begin(), keys.end(), SameGuid), keys.end());
        return keys;
    }

private:
    static constexpr int TryLimit = 1000;

    // `E_ACCESSDENIED` after a change; any other failure is thrown.
    [[nodiscard]] static Result TryRead(const GUID* above, IValueSet& values,
                                        std::vector<GUID>& keys)
    {
        ObjectPtr<IEnumeratorGUID> enumerator;
        OSSIRA_CHECK_CALL_TWICE(values.GetEnumerator(IID_IEnumeratorGUID, enumerator.PutVoid()),
                                "Values->GetEnumerator");
        OSSIRA_CHECK(enumerator, E_NOINTERFACE, "Values->GetEnumerator");
        keys.clear();
        for (;;)
        {
            const Result step = enumerator->MoveNext();
            if (step == E_ACCESSDENIED)
                return step;
            OSSIRA_CHECK(!Failed(step), step, "EA->MoveNext");
            if (step != S_OK)
                return S_OK;
            GUID key = GUID_Null;
            const Result got = enumerator->GetCurrentGUID(&key);
            if (got == E_ACCESSDENIED)
                return got;
            OSSIRA_CHECK(!Failed(got), got, "EA->GetCurrentGUID");
            if (above == nullptr || KeyPrecedes(*above, key))
                keys.push_back(key);
        }
    }
};

// So many that what it costs to begin reading is little for each.
inline constexpr std::size_t KeysAtATime = 128;

// Some of the least keys of the visible layers that are greater than *above, in order, each once.
struct MergedKeys
{
    MergedKeys() noexcept = default;

    // A foreign layer can only be read as a whole, and then all of them are.
    MergedKeys(std::span<const Layer> layers, const GUID* above)
    {
        const bool isWhole = std::any_of(layers.begin(), layers.end(),
                                         [](const Layer& layer)
                                         { return layer.IsVisible() && layer.Keys == nullptr; });
        for (const Layer& layer : layers)
        {
            if (layer.IsVisible())
                Add(layer, above, isWhole);
        }
        Keys.erase(std::unique(Keys.begin(), Keys.end(), SameGuid), Keys.end());
        if (!AreAll) // behind this key a layer may have more that were not read
            Keys.erase(std::upper_bound(Keys.begin(), Keys.end(), mBound, KeyPrecedes), Keys.end());
    }

    std::vector<GUID> Keys;
    bool AreAll = true; // there is none behind the last

private:
    void Add(const Layer& layer, const GUID* above, bool isWhole)
    {
        const auto middle = static_cast<std::ptrdiff_t>(Keys.size());
        if (layer.Keys == nullptr)
        {
            const std::vector<GUID> keys = CForeignKeys::Above(above, *layer.ValueSet);
            Keys.insert(Keys.end(), keys.begin(), keys.end());
        }
        else
        {
            std::array<GUID, KeysAtATime> some;
            std::size_t count = 0;
            do
            {
                count = layer.Keys->KeysAbove(above, some);
                Keys.insert(Keys.end(), some.begin(), some.begin() + count);
                above = &some.back();
            } while (isWhole && count == some.size());
            if (count == some.size())
                BoundBy(some.back());
        }
        std::inplace_merge(Keys.begin(), Keys.begin() + middle, Keys.end(), KeyPrecedes);
    }

    void BoundBy(const GUID& key) noexcept
    {
        if (AreAll || KeyPrecedes(key, mBound))
            mBound = key;
        AreAll = false;
    }

    GUID mBound = GUID_Null;
};

// How many keys the visible layers have together. One layer knows; of several, the keys of all
// but the largest are looked up in those that were counted before.
[[nodiscard]] inline std::int32_t CountMergedKeys(std::span<const Layer> layers)
{
    struct Sized
    {
        std::int32_t Size;
        const Layer* Of;
    };
    std::array<Sized, CLayerTable::ItemMaximum> sizes = {};
    std::size_t used = 0;
    for (const Layer& layer : layers)
    {
        if (!layer.IsVisible())
            continue;
        Result size = 0;
        OSSIRA_CHECK_CALL_TWICE(size = layer.ValueSet->GetCount(), "Values->GetCount");
        sizes[used++] = {size, &layer};
    }
    const auto largest = std::max_element(
        sizes.begin(), sizes.end(), [](const Sized& a, const Sized& b) { return a.Size < b.Size; });
    std::swap(*largest, sizes[0]);
    std::int32_t count = sizes[0].Size;
    for (std::size_t at = 1; at < used; ++at)
    {
        const auto isNew = [&](const GUID& key)
        {
            return std::none_of(sizes.begin(), sizes.begin() + at,
                                [&key](const Sized& counted)
                                { return HoldsKey(*counted.Of, key); });
        };
        MergedKeys some;
        do
        {
            some = MergedKeys(std::span(sizes[at].Of, 1),
                              some.Keys.empty() ? nullptr : &some.Keys.back());
            count +=
                static_cast<std::int32_t>(std::count_if(some.Keys.begin(), some.Keys.end(), isNew));
        } while (!some.AreAll);
    }
    return count;
}

} // namespace Tavrik::Ossira
