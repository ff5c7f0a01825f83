// A map from GUID to a movable value, made for reading: the entries lie densely in one array, an
// index of 32-bit slots finds them by hash, and the order of the keys is worked out only when
// somebody walks. It has no lock of its own; its owner guards every call.
//
// Order is that of the 16 stored bytes. A walk goes from key to key, never from entry to entry:
// whoever walks holds a copy of a key and asks for the least greater one, so removals, of the
// current key too, cannot disturb it.
#pragma once

#include "OssiraBase.h"

#include <algorithm>
#include <bit>
#include <compare>
#include <limits>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

namespace Tavrik::Ossira
{

// Where a walk over keys stands: a copy of the key, and a guess where it lies in the order.
struct CGuidPosition
{
    GUID Key = GUID_Null;
    std::size_t Hint = 0;
};

template <class Value>
class CGuidTable
{
    static_assert(std::is_nothrow_move_constructible_v<Value>);
    static_assert(std::is_nothrow_move_assignable_v<Value>);

public:
    CGuidTable() noexcept = default;
    CGuidTable(const CGuidTable&) = delete;
    CGuidTable& operator=(const CGuidTable&) = delete;

    [[nodiscard]] std::size_t Size() const noexcept
    {
        return mEntries.size();
    }

    // The value of a key, or null. Good until the next insertion or removal.
    [[nodiscard]] Value* Find(const GUID& key) noexcept
    {
        const std::size_t entry = FindEntry(key);
        return entry != NoEntry ? &mEntries[entry].Content : nullptr;
    }

    [[nodiscard]] const Value* Find(const GUID& key) const noexcept
    {
        const std::size_t entry = FindEntry(key);
        return entry != NoEntry ? &mEntries[entry].Content : nullptr;
    }

    // Enters a key that is not there. Throws `std::bad_alloc`, also when the count would no longer
    // fit into 32 bits; table and value are then as they were.
    Value& Insert(const GUID& key, Value&& value)
    {
        if (mEntries.size() >= MaximumSize)
            throw std::bad_alloc();
        if ((mEntries.size() + 1) * 2 > mIndex.size() && mEntries.size() >= ScannedSize)
            GrowIndex();
        mEntries.emplace_back(key, std::move(value));
        if (!mIndex.empty())
            EnterIndex(mIndex, mEntries.size() - 1);
        mOrderIsCurrent = false;
        return mEntries.back().Content;
    }

    // Removes a key and hands its value out, so that it can die where no lock is held.
    [[nodiscard]] std::optional<Value> Take(const GUID& key) noexcept
    {
        const std::size_t entry = FindEntry(key);
        if (entry == NoEntry)
            return std::nullopt;

        const std::size_t last = mEntries.size() - 1;
        if (!mIndex.empty())
        {
            LeaveIndex(FindSlotOf(entry));
            if (entry != last)
                Renumber(mIndex[FindSlotOf(last)], entry);
        }
        std::optional<Value> value(std::move(mEntries[entry].Content));
        if (entry != last)
            mEntries[entry] = std::move(mEntries[last]);
        mEntries.pop_back();
        ++mRemovedFromOrder;
        return value;
    }

    void Swap(CGuidTable& other) noexcept
    {
        mEntries.swap(other.mEntries);
        mIndex.swap(other.mIndex);
        mOrder.swap(other.mOrder);
        std::swap(mOrderIsCurrent, other.mOrderIsCurrent);
        std::swap(mRemovedFromOrder, other.mRemovedFromOrder);
    }

    // To the least key; false, and `at` as it was, in an empty table. The first ordered access
    // after an insertion sorts, and may throw `std::bad_alloc`.
    [[nodiscard]] bool First(CGuidPosition& at)
    {
        BringOrderUpToDate();
        return Settle(0, at);
    }

    // To the least key that is greater than the one in `at`, whether that is still there or not;
    // false, and `at` as it was, when there is none.
    [[nodiscard]] bool Next(CGuidPosition& at)
    {
        BringOrderUpToDate();
        const Ordered key(at.Key);
        if (at.Hint < mOrder.size() && mOrder[at.Hint] == key)
            return Settle(at.Hint + 1, at);
        const auto next = std::upper_bound(mOrder.begin(), mOrder.end(), key);
        return Settle(static_cast<std::size_t>(next - mOrder.begin()), at);
    }

    // Hands every key and value to `visit(const GUID&, Value&)`, in the order of the keys. `visit`
    // may remove keys.
    template <class Visit>
    void ForEachOrdered(Visit visit)
    {
        CGuidPosition at;
        for (bool more = First(at); more; more = Next(at))
            visit(std::as_const(at.Key), *Find(at.Key));
    }

private:
    struct Entry
    {
        Entry(const GUID& key, Value&& content) noexcept : Key(key), Content(std::move(content))
        {
        }

        GUID Key;
        Value Content;
    };

    // A GUID as two big-endian numbers, which compare as its bytes do.
    struct Ordered
    {
        explicit Ordered(const GUID& key) noexcept
        {
            const auto halves = std::bit_cast<Halves>(key);
            High = BytesReversed(halves[0]);
            Low = BytesReversed(halves[1]);
        }

        [[nodiscard]] GUID Key() const noexcept
        {
            return std::bit_cast<GUID>(Halves{BytesReversed(High), BytesReversed(Low)});
        }

        auto operator<=>(const Ordered&) const noexcept = default;

        std::uint64_t High;
        std::uint64_t Low;
    };

    using Halves = std::array<std::uint64_t, 2>;
    static_assert(std::endian::native == std::endian::little);

    static constexpr std::size_t NoEntry = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t MaximumSize = std::numeric_limits<std::int32_t>::max();
    static constexpr std::size_t ScannedSize = 8; // so many keys are compared one by one
    static constexpr std::size_t FirstIndexSize = 32;

    [[nodiscard]] static std::uint64_t BytesReversed(std::uint64_t x) noexcept
    {
        x = ((x & 0x00FF00FF00FF00FF) << 8) | ((x >> 8) & 0x00FF00FF00FF00FF);
        x = ((x & 0x0000FFFF0000FFFF) << 16) | ((x >> 16) & 0x0000FFFF0000FFFF);
        return (x << 32) | (x >> 32);
    }

    // Every bit of both halves reaches every bit of the result: keys are often made by counting in
    // one of their fields.
    [[nodiscard]] static std::uint64_t Hash(const GUID& key) noexcept
    {
        const auto halves = std::bit_cast<Halves>(key);
        std::uint64_t hash = halves[0] * 0x9E3779B97F4A7C15 + halves[1];
        hash ^= hash >> 32;
        hash *= 0xD6E8FEB86659FD93;
        return hash ^ (hash >> 32);
    }

    // A slot is 0, or in its low bits an entry's number plus 1 and above them a tag of the hash
    // that is not used to find the slot. The tag keeps a search from touching entries in vain. At
    // most half of the slots are taken, so the number fits into the bits of the slot mask.
    [[nodiscard]] std::size_t FindEntry(const GUID& key) const noexcept
    {
        if (mIndex.empty())
        {
            for (std::size_t entry = 0; entry < mEntries.size(); ++entry)
            {
                if (SameGuid(mEntries[entry].Key, key))
                    return entry;
            }
            return NoEntry;
        }
        const std::size_t mask = mIndex.size() - 1;
        const std::uint64_t hash = Hash(key);
        const std::uint32_t tag = Tag(hash, mask);
        for (std::size_t at = hash & mask; mIndex[at] != 0; at = (at + 1) & mask)
        {
            const std::uint32_t slot = mIndex[at];
            if ((slot & ~mask) != tag)
                continue;
            const std::size_t entry = (slot & mask) - 1;
            if (SameGuid(mEntries[entry].Key, key)) [[likely]]
                return entry;
        }
        return NoEntry;
    }

    [[nodiscard]] static std::uint32_t Tag(std::uint64_t hash, std::size_t mask) noexcept
    {
        return static_cast<std::uint32_t>((hash >> 32) & ~mask);
    }

    [[nodiscard]] std::size_t FindSlotOf(std::size_t entry) const noexcept
    {
        const std::size_t mask = mIndex.size() - 1;
        std::size_t at = Hash(mEntries[entry].Key) & mask;
        while ((mIndex[at] & mask) != entry + 1)
            at = (at + 1) & mask;
        return at;
    }

    void Renumber(std::uint32_t& slot, std::size_t entry) const noexcept
    {
        const std::size_t mask = mIndex.size() - 1;
        slot = static_cast<std::uint32_t>((slot & ~mask) | (entry + 1));
    }

    void EnterIndex(std::vector<std::uint32_t>& index, std::size_t entry) const noexcept
    {
        const std::size_t mask = index.size() - 1;
        const std::uint64_t hash = Hash(mEntries[entry].Key);
        std::size_t at = hash & mask;
        while (index[at] != 0)
            at = (at + 1) & mask;
        index[at] = static_cast<std::uint32_t>(Tag(hash, mask) | (entry + 1));
    }

    // Empties a slot and moves those behind it up that would no longer be found: so removals leave
    // nothing behind that later searches would have to step over.
    void LeaveIndex(std::size_t hole) noexcept
    {
        const std::size_t mask = mIndex.size() - 1;
        for (std::size_t at = (hole + 1) & mask; mIndex[at] != 0; at = (at + 1) & mask)
        {
            const std::size_t home = Hash(mEntries[(mIndex[at] & mask) - 1].Key) & mask;
            if (((at - home) & mask) < ((at - hole) & mask))
                continue;
            mIndex[hole] = mIndex[at];
            hole = at;
        }
        mIndex[hole] = 0;
    }

    void GrowIndex()
    {
        std::vector<std::uint32_t> index(std::max(FirstIndexSize, mIndex.size() * 2));
        for (std::size_t entry = 0; entry < mEntries.size(); ++entry)
            EnterIndex(index, entry);
        mIndex.swap(index);
    }

    // The order is a sorted copy of the keys. Removed keys stay in it until they are many.
    void BringOrderUpToDate()
    {
        if (mOrderIsCurrent && mRemovedFromOrder <= mEntries.size())
            return;
        std::vector<Ordered> order;
        order.reserve(mEntries.size());
        for (const Entry& entry : mEntries)
            order.emplace_back(entry.Key);
        std::sort(order.begin(), order.end());
        mOrder.swap(order);
        mOrderIsCurrent = true;
        mRemovedFromOrder = 0;
    }

    // To the first key from `hint` on that is still there.
    [[nodiscard]] bool Settle(std::size_t hint, CGuidPosition& at) const noexcept
    {
        for (; hint < mOrder.size(); ++hint)
        {
            const GUID key = mOrder[hint].Key();
            if (mRemovedFromOrder != 0 && FindEntry(key) == NoEntry)
                continue;
            at = {key, hint};
            return true;
        }
        return false;
    }

    std::vector<Entry> mEntries;
    std::vector<std::uint32_t> mIndex; // empty, or a power of two of slots
    std::vector<Ordered> mOrder;
    bool mOrderIsCurrent = false; // no insertion since it was sorted
    std::size_t mRemovedFromOrder = 0;
};

} // namespace Tavrik::Ossira
