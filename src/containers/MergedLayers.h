// What the layers of a value set group show together, as the storage of a value set (see
// ItemTable.h and ValueTable.h). It holds nothing itself: reads go to the topmost layer that has
// the key, writes to the layer that the access flags choose. Only for walking the keys are put
// together, at each start of a walk, because layers change without the group's knowledge.
#pragma once

#include "LayerTable.h"
#include "LockPolicy.h"

#include <optional>

namespace Tavrik::Ossira
{

class CUnique
{
public:
    using Item = IUnknown; // what a value must be is for the layers to say
    struct Removed
    {
    };

    // Must come first. `lock` is that of the layers, held in all operations but `Count`.
    void Bind(CManager& layers, CSpinLock& lock) noexcept
    {
        mLayers = &layers;
        mLock = &lock;
    }

    [[nodiscard]] std::uint32_t Stamp() const noexcept
    {
        return mLayers->ContentStamp();
    }

    [[nodiscard]] std::int32_t Count() const
    {
        const tSystem::CLockGuard guard(*mLock);
        Keys keys;
        GuidMap_Validate(keys);
        return static_cast<std::int32_t>(keys.Size());
    }

    [[nodiscard]] bool Contains(const GUID& key) const
    {
        return FindLayer(key) != nullptr;
    }

    [[nodiscard]] Result Ask(const GUID& key, const IID& riid, void** ppv) const
    {
        const Layer* const layer = FindLayer(key);
        return layer != nullptr ? layer->ValueSet->GetValueGUID(key, riid, ppv) : E_NOT_FOUND;
    }

    [[nodiscard]] Result Read(const GUID& key, const GUID& type, void* data,
                              std::int32_t size) const
    {
        const Layer* const layer = FindLayer(key);
        return layer != nullptr ? layer->ValueSet->GetValueData(key, type, data, size)
                                : E_NOT_FOUND;
    }

    [[nodiscard]] Result ReadType(const GUID& key, GUID* type) const
    {
        const Layer* const layer = FindLayer(key);
        return layer != nullptr ? layer->ValueSet->GetDataType(key, type) : E_NOT_FOUND;
    }

    // Always answers: the layer makes the value of a new key.
    [[nodiscard]] std::optional<Result> TryWrite(const GUID& key, const GUID& type,
                                                 const void* data, std::int32_t size,
                                                 const ObjectPtr<IValue>&)
    {
        IValueSet& target = FindLayerToWrite(key);
        Result result = S_OK;
        OSSIRA_CHECK_CALL_TWICE(result = target.SetValueData(key, type, data, size),
                                "{ValueSet of Group}->SetValueData");
        mLayers->MarkContentChanged();
        return result;
    }

    void Put(const GUID& key, const ObjectPtr<IUnknown>& value)
    {
        IValueSet& target = FindLayerToWrite(key);
        OSSIRA_CHECK_CALL_TWICE(target.SetValueGUID(key, value.Get()),
                                "{ValueSet of Group}->SetValueGUID");
        mLayers->MarkContentChanged();
    }

    ObjectPtr<IUnknown> Take(const GUID& key)
    {
        const auto holds = [&key](const Layer& layer)
        {
            return IsVisible(layer) && layer.ValueSet->ContainsGUID(key) == S_OK;
        };
        CheckWriteable(holds);
        mLayers->MarkContentChanged();
        for (const Layer& layer : mLayers->Layers())
        {
            if (holds(layer))
                OSSIRA_CHECK_CALL_TWICE(layer.ValueSet->RemoveGUID(key),
                                        "{ValueSet of Group}->RemoveGUID");
        }
        return {};
    }

    void TakeAll(Removed&)
    {
        CheckWriteable(IsVisible);
        mLayers->MarkContentChanged();
        for (const Layer& layer : mLayers->Layers())
        {
            if (IsVisible(layer))
                OSSIRA_CHECK_CALL_TWICE(layer.ValueSet->Clear(), "{ValueSet of Group}->Clear");
        }
    }

    [[nodiscard]] bool First(CGuidPosition& at)
    {
        Keys keys;
        GuidMap_Validate(keys);
        mKeys.Swap(keys);
        return mKeys.First(at);
    }

    // Passes over what can no longer be found.
    [[nodiscard]] bool Next(CGuidPosition& at)
    {
        CGuidPosition next = at;
        do
        {
            if (!mKeys.Next(next))
                return false;
        } while (!Contains(next.Key));
        at = next;
        return true;
    }

private:
    struct Nothing
    {
    };
    using Keys = CGuidTable<Nothing>;

    [[nodiscard]] static bool IsVisible(const Layer& layer) noexcept
    {
        return layer.HasNoneOf(LAYER_HIDDEN);
    }

    // Each key of the visible layers once.
    void GuidMap_Validate(Keys& keys) const
    {
        for (const Layer& layer : mLayers->Layers())
        {
            if (IsVisible(layer))
                AddKeysOf(*layer.ValueSet, keys);
        }
    }

    static void AddKeysOf(IValueSet& values, Keys& keys)
    {
        ObjectPtr<IEnumeratorGUID> enumerator;
        OSSIRA_CHECK_CALL_TWICE(values.GetEnumerator(IID_IEnumeratorGUID, enumerator.PutVoid()),
                                "Values->GetEnumerator");
        OSSIRA_CHECK(enumerator, E_NOINTERFACE, "Values->GetEnumerator");
        for (;;)
        {
            Result step = S_FALSE;
            OSSIRA_CHECK_CALL_TWICE(step = enumerator->MoveNext(), "EA->MoveNext");
            if (step != S_OK)
                return;
            GUID key = GUID_Null;
            OSSIRA_CHECK_CALL_TWICE(enumerator->GetCurrentGUID(&key), "EA->GetCurrentGUID");
            if (keys.Find(key) == nullptr)
                keys.Insert(key, {});
        }
    }

    // The topmost visible layer that holds the key, or null.
    [[nodiscard]] const Layer* FindLayer(const GUID& key) const
    {
        const auto layers = mLayers->Layers();
        for (auto layer = layers.rbegin(); layer != layers.rend(); ++layer)
        {
            if (IsVisible(*layer) && layer->ValueSet->ContainsGUID(key) == S_OK)
                return &*layer;
        }
        return nullptr;
    }

    // Upwards from where the key is. A new key is refused by a read-only layer on top; otherwise it
    // goes downwards, and there a read-only layer does take it.
    [[nodiscard]] IValueSet& FindLayerToWrite(const GUID& key) const
    {
        const auto layers = mLayers->Layers();
        if (const Layer* const holder = FindLayer(key); holder != nullptr)
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
            const auto layer = std::find_if(layers.rbegin(), layers.rend(), IsVisible);
            if (layer != layers.rend())
                return *layer->ValueSet;
        }
        OSSIRA_THROW(E_ACCESSDENIED, NotWriteableText);
    }

    // That no layer of which `isConcerned` is read-only.
    template <class Condition>
    void CheckWriteable(Condition isConcerned) const
    {
        for (const Layer& layer : mLayers->Layers())
        {
            OSSIRA_CHECK(layer.HasNoneOf(LAYER_READONLY) || !isConcerned(layer), E_ACCESSDENIED,
                         NotWriteableText);
        }
    }

    static constexpr const char* NotWriteableText = "ValueSetGroup without writeable ValueSets";

    CManager* mLayers = nullptr;
    CSpinLock* mLock = nullptr;
    Keys mKeys; // as they were when a walk last began
};

} // namespace Tavrik::Ossira
