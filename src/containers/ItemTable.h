// What a dictionary or a value set holds: counted references by GUID, and their number. The
// operations are called with the collection's lock held, and hand out what they remove, so that it
// dies after the lock was left.
#pragma once

#include "GuidTable.h"
#include "OssiraPointer.h"

#include <atomic>

namespace Tavrik::Ossira
{

template <class ItemType>
class CItemTable
{
public:
    using Item = ItemType;
    using Key = CHashedGuid;
    using Removed = CGuidTable<ObjectPtr<Item>>;

    // The only operation that needs no lock.
    [[nodiscard]] std::int32_t Count() const noexcept
    {
        return mCount.load(std::memory_order_relaxed);
    }

    // The item under a key, or null; borrowed.
    [[gnu::always_inline]] [[nodiscard]] Item* Find(const CHashedGuid& key) const noexcept
    {
        const auto* const place = mTable.Find(key);
        if (place == nullptr) [[unlikely]]
            return nullptr;
        Item* const item = place->Get();
        if (item == nullptr)
            __builtin_unreachable(); // no key is entered without one; saves a comparison
        return item;
    }

    // A number that differs once keys have come or gone. Needs no lock either.
    [[nodiscard]] std::uint64_t KeysStamp() const noexcept
    {
        return mKeysStamp.load(std::memory_order_acquire);
    }

    // Enters an item and leaves the one that was there in its place. Throws `std::bad_alloc`.
    void Put(const CHashedGuid& key, ObjectPtr<Item>& item)
    {
        if (auto* const place = mTable.Find(key); place != nullptr)
        {
            std::swap(*place, item);
            return;
        }
        mTable.Insert(key, std::move(item));
        MarkKeysChanged();
    }

    // Empty when the key is absent.
    [[nodiscard]] ObjectPtr<Item> Take(const CHashedGuid& key) noexcept
    {
        auto item = mTable.Take(key);
        if (!item)
            return {};
        MarkKeysChanged();
        return std::move(*item);
    }

    void TakeAll(Removed& removed) noexcept
    {
        mTable.Swap(removed);
        MarkKeysChanged();
    }

    [[nodiscard]] bool First(CGuidPosition& at)
    {
        return mTable.First(at);
    }

    [[nodiscard]] bool Next(CGuidPosition& at)
    {
        return mTable.Next(at);
    }

private:
    void MarkKeysChanged() noexcept
    {
        mKeysStamp.store(KeysStamp() + 1, std::memory_order_release);
        mCount.store(static_cast<std::int32_t>(mTable.Size()), std::memory_order_relaxed);
    }

    CGuidTable<ObjectPtr<Item>> mTable;
    std::atomic<std::int32_t> mCount = 0;
    std::atomic<std::uint64_t> mKeysStamp = 1;
};

} // namespace Tavrik::Ossira
