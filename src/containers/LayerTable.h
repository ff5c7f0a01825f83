// The layers of a value set group, as what a collection holds (see GuidCollection.h): value sets by
// identifier, kept in their order from the bottom to the top. The operations are called with the
// group's lock held, and hand out what they remove.
#pragma once

#include "GuidTable.h"
#include "LayerKeys.h"
#include "OssiraCheck.h"
#include "OssiraPointer.h"
#include "OssiraValueSetGroup.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <span>

namespace Tavrik::Ossira
{

struct Layer
{
    GUID ID = GUID_Null;
    ObjectPtr<IValueSet> ValueSet;
    std::uint32_t AccessFlags = 0;
    ILayerKeys* Keys = nullptr; // the value set's own, borrowed; null for a foreign one

    [[nodiscard]] bool IsVisible() const noexcept
    {
        return HasNoneOf(LAYER_HIDDEN);
    }

    [[nodiscard]] bool HasNoneOf(std::uint32_t flags) const noexcept
    {
        return (AccessFlags & flags) == 0;
    }
};

class CLayerTable
{
public:
    static constexpr std::int32_t ItemMaximum = 8;
    static constexpr std::int32_t OnTop = -1;

    using Item = IValueSet;
    using Key = GUID;
    using Removed = std::array<ObjectPtr<IValueSet>, ItemMaximum>;

    // The used layers, the bottom one first.
    [[nodiscard]] std::span<const Layer> Layers() const noexcept
    {
        return {mItems.data(), static_cast<std::size_t>(Count())};
    }

    // Moved when layers come and go, and when anything was changed through a merged view. Read
    // without the lock, too.
    [[nodiscard]] std::uint64_t ContentStamp() const noexcept
    {
        return mContentStamp.load(std::memory_order_acquire);
    }

    void MarkContentChanged() noexcept
    {
        mContentStamp.store(ContentStamp() + 1, std::memory_order_release);
    }

    // Moved when layers come and go or their flags change.
    [[nodiscard]] std::uint64_t Version() const noexcept
    {
        return mVersion;
    }

    // Needs no lock either.
    [[nodiscard]] std::int32_t Count() const noexcept
    {
        return mCount.load(std::memory_order_relaxed);
    }

    [[nodiscard]] const Layer& At(std::int32_t index) const
    {
        OSSIRA_CHECK(index >= 0 && index < Count(), E_INVALIDARG, IndexText);
        return mItems[static_cast<std::size_t>(index)];
    }

    void SetAccessFlagsAt(std::int32_t index, std::uint32_t flags)
    {
        OSSIRA_CHECK(index >= 0 && index < Count(), E_INVALIDARG, IndexText);
        mItems[static_cast<std::size_t>(index)].AccessFlags = flags;
        ++mVersion;
    }

    // Whether a layer can be inserted there, under that identifier.
    void CheckInsertion(std::int32_t index, const GUID* id) const
    {
        OSSIRA_CHECK(index == OnTop || (index >= 0 && index <= Count()), E_INVALIDARG, IndexText);
        OSSIRA_CHECK(id == nullptr || Find(*id) == nullptr, E_INVALIDARG, "id already exists");
        OSSIRA_CHECK(id == nullptr || !SameGuid(*id, GUID_Null), E_INVALIDARG, "id == GUID_Null");
        OSSIRA_CHECK(Count() < ItemMaximum, E_OUTOFMEMORY, "too many - item maximum");
    }

    // After that check. A layer without an identifier is given one.
    void Insert(std::int32_t index, Layer&& layer) noexcept
    {
        AdvanceUnique();
        if (SameGuid(layer.ID, GUID_Null))
            layer.ID = mUnique;
        const std::int32_t place = index == OnTop ? Count() : index;
        const auto at = mItems.begin() + place;
        std::move_backward(at, mItems.begin() + Count(), mItems.begin() + Count() + 1);
        *at = std::move(layer);
        SetCount(Count() + 1);
    }

    [[nodiscard]] std::int32_t IndexOf(const IValueSet* valueSet) const noexcept
    {
        return LastIndex([valueSet](const Layer& layer)
                         { return layer.ValueSet.Get() == valueSet; });
    }

    // --- As what a collection holds --------------------------------------------------------------

    [[nodiscard]] IValueSet* Find(const GUID& id) const noexcept
    {
        const std::int32_t index = IndexOf(id);
        return index >= 0 ? mItems[static_cast<std::size_t>(index)].ValueSet.Get() : nullptr;
    }

    // Empty when there is no such layer, which moves the content's stamp all the same.
    [[nodiscard]] ObjectPtr<IValueSet> Take(const GUID& id) noexcept
    {
        const std::int32_t index = IndexOf(id);
        if (index >= 0)
            return Remove(index);
        MarkContentChanged();
        return {};
    }

    void TakeAll(Removed& removed) noexcept
    {
        for (std::size_t index = 0; index < Layers().size(); ++index)
            removed[index] = std::move(mItems[index].ValueSet);
        SetCount(0);
    }

    [[nodiscard]] bool First(CGuidPosition& at) const noexcept
    {
        return LeastAbove(nullptr, at);
    }

    [[nodiscard]] bool Next(CGuidPosition& at) const noexcept
    {
        const GUID key = at.Key;
        return LeastAbove(&key, at);
    }

private:
    static constexpr const char* IndexText = "Index out of Range";

    template <class Condition>
    [[nodiscard]] std::int32_t LastIndex(Condition condition) const noexcept
    {
        for (std::int32_t index = Count() - 1; index >= 0; --index)
        {
            if (condition(mItems[static_cast<std::size_t>(index)]))
                return index;
        }
        return E_NOT_FOUND;
    }

    [[nodiscard]] std::int32_t IndexOf(const GUID& id) const noexcept
    {
        return LastIndex([&id](const Layer& layer) { return SameGuid(layer.ID, id); });
    }

    [[nodiscard]] ObjectPtr<IValueSet> Remove(std::int32_t index) noexcept
    {
        const auto at = mItems.begin() + index;
        ObjectPtr<IValueSet> removed = std::move(at->ValueSet);
        std::move(at + 1, mItems.begin() + Count(), at);
        SetCount(Count() - 1);
        return removed;
    }

    void SetCount(std::int32_t count) noexcept
    {
        mCount.store(count, std::memory_order_relaxed);
        ++mVersion;
        MarkContentChanged();
    }

    // What is made up must not be there, even when a caller gave it to a layer or the counter has
    // come round.
    void AdvanceUnique() noexcept
    {
        do
            ++mUnique.Data1;
        while (Find(mUnique) != nullptr);
    }

    // To the least identifier, in the order of the bytes, that is greater than the given one.
    [[nodiscard]] bool LeastAbove(const GUID* bound, CGuidPosition& at) const noexcept
    {
        const GUID* least = nullptr;
        for (const Layer& layer : Layers())
        {
            const bool isAbove = bound == nullptr || KeyPrecedes(*bound, layer.ID);
            if (isAbove && (least == nullptr || KeyPrecedes(layer.ID, *least)))
                least = &layer.ID;
        }
        if (least != nullptr)
            at.Key = *least;
        return least != nullptr;
    }

    // A number for each group of the process, so that no two make up the same identifier.
    [[nodiscard]] static GUID NewUnique() noexcept
    {
        static std::atomic<std::uint64_t> groups = 0;
        GUID unique = {0, 0x6F5C, 0x4E1B, {}};
        const std::uint64_t number = ++groups;
        std::memcpy(unique.Data4, &number, sizeof(number));
        return unique;
    }

    std::array<Layer, ItemMaximum> mItems;
    std::atomic<std::int32_t> mCount = 0;
    GUID mUnique = NewUnique();
    std::uint64_t mVersion = 0;
    std::atomic<std::uint64_t> mContentStamp = 0;
};

} // namespace Tavrik::Ossira
