// What a dictionary or a value set holds: counted references by GUID, and the stamp that every
// change moves. The operations are called with the collection's lock held, and hand out what they
// remove, so that it dies after the lock was left.
//
// A collection knows its storage by these operations only, and a value set by those of ValueTable.h
// besides. The layers of a value set group, and what they show together, stand in this one's place
// as other storages.
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
    using Removed = CGuidTable<ObjectPtr<Item>>;

    [[nodiscard]] std::uint32_t Stamp() const noexcept
    {
        return mStamp;
    }

    // The only operation that needs no lock.
    [[nodiscard]] std::int32_t Count() const noexcept
    {
        return mCount.load(std::memory_order_relaxed);
    }

    [[nodiscard]] bool Contains(const GUID& key) const noexcept
    {
        return Find(key) != nullptr;
    }

    // Asks the item under a key for an interface; `E_NOT_FOUND` without one.
    [[nodiscard]] Result Ask(const GUID& key, const IID& riid, void** ppv) const
    {
        Item* const item = Find(key);
        return item != nullptr ? item->QueryInterface(riid, ppv) : E_NOT_FOUND;
    }

    // The item under a key, or null; borrowed.
    [[nodiscard]] Item* Find(const GUID& key) const noexcept
    {
        const auto* const item = mTable.Find(key);
        return item != nullptr ? item->Get() : nullptr;
    }

    // Enters an item and leaves the one that was there in its place. Throws `std::bad_alloc`.
    void Put(const GUID& key, ObjectPtr<Item>& item)
    {
        if (auto* const place = mTable.Find(key); place != nullptr)
            std::swap(*place, item);
        else
            mTable.Insert(key, std::move(item));
        MarkChanged();
    }

    // Empty when the key is absent, which moves the stamp all the same.
    [[nodiscard]] ObjectPtr<Item> Take(const GUID& key) noexcept
    {
        auto item = mTable.Take(key);
        MarkChanged();
        return item ? std::move(*item) : ObjectPtr<Item>();
    }

    void TakeAll(Removed& removed) noexcept
    {
        mTable.Swap(removed);
        MarkChanged();
    }

    [[nodiscard]] bool First(CGuidPosition& at)
    {
        return mTable.First(at);
    }

    [[nodiscard]] bool Next(CGuidPosition& at)
    {
        return mTable.Next(at);
    }

    // The item under a key was changed in place.
    void MarkChanged() noexcept
    {
        ++mStamp;
        mCount.store(static_cast<std::int32_t>(mTable.Size()), std::memory_order_relaxed);
    }

private:
    CGuidTable<ObjectPtr<Item>> mTable;
    std::atomic<std::int32_t> mCount = 0;
    std::uint32_t mStamp = 0;
};

} // namespace Tavrik::Ossira
