// A map from GUID to a movable value, made for reading. Up to eight entries lie densely and are
// compared one by one; more of them lie scattered by hash over an array of slots, beside which one
// byte a slot tells whether it is taken, and by a key of which hash, roughly. A search runs over
// these bytes, dozens of which share a cache line, and touches one slot as a rule: what reading
// from a large table costs is the memory that has to be fetched. The order of the keys is worked
// out only when somebody walks. The table has no lock of its own; its owner guards every call.
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
    static_assert(std::is_nothrow_default_constructible_v<Value>);
    static_assert(std::is_nothrow_move_constructible_v<Value>);
    static_assert(std::is_nothrow_move_assignable_v<Value>);

public:
    CGuidTable() noexcept = default;
    CGuidTable(const CGuidTable&) = delete;
    CGuidTable& operator=(const CGuidTable&) = delete;

    [[nodiscard]] std::size_t Size() const noexcept
    {
        return mSize;
    }

    // The value of a key, or null. Good until the next insertion or removal.
    [[nodiscard]] Value* Find(const GUID& key) noexcept
    {
        const std::size_t at = FindEntry(key);
        return at != NoEntry ? &mEntries[at].Content : nullptr;
    }

    [[nodiscard]] const Value* Find(const GUID& key) const noexcept
    {
        const std::size_t at = FindEntry(key);
        return at != NoEntry ? &mEntries[at].Content : nullptr;
    }

    // Enters a key that is not there. Throws `std::bad_alloc`, also when the count would no longer
    // fit into 32 bits; table and value are then as they were.
    Value& Insert(const GUID& key, Value&& value)
    {
        if (mSize >= MaximumSize)
            throw std::bad_alloc();
        Entry& entry = MakeRoom(key);
        entry.Key = key;
        entry.Content = std::move(value);
        ++mSize;
        mOrderIsCurrent = false;
        return entry.Content;
    }

    // Removes a key and hands its value out, so that it can die where no lock is held.
    [[nodiscard]] std::optional<Value> Take(const GUID& key) noexcept
    {
        const std::size_t at = FindEntry(key);
        if (at == NoEntry)
            return std::nullopt;
        std::optional<Value> value(std::move(mEntries[at].Content));
        if (mMarks.empty())
        {
            mEntries[at] = std::move(mEntries.back());
            mEntries.pop_back();
        }
        else
        {
            CloseHole(at);
        }
        --mSize;
        ++mRemovedFromOrder;
        return value;
    }

    void Swap(CGuidTable& other) noexcept
    {
        std::swap(mSize, other.mSize);
        mEntries.swap(other.mEntries);
        mMarks.swap(other.mMarks);
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
        GUID Key = GUID_Null;
        Value Content = {};
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

        // NOLINTNEXTLINE(modernize-use-nullptr): takes the zero of the comparison for a pointer
        auto operator<=>(const Ordered&) const noexcept = default;

        std::uint64_t High;
        std::uint64_t Low;
    };

    using Halves = std::array<std::uint64_t, 2>;
    static_assert(std::endian::native == std::endian::little);

    static constexpr std::size_t NoEntry = std::numeric_limits<std::size_t>::max();
    static constexpr std::size_t MaximumSize = std::numeric_limits<std::int32_t>::max();
    static constexpr std::size_t ScannedSize = 8; // so many entries are compared one by one
    static constexpr std::size_t FirstSlotCount = 32;

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

    [[nodiscard]] std::size_t FindEntry(const GUID& key) const noexcept
    {
        if (mMarks.empty())
        {
            for (std::size_t at = 0; at < mEntries.size(); ++at)
            {
                if (SameGuid(mEntries[at].Key, key))
                    return at;
            }
            return NoEntry;
        }
        const std::size_t mask = mMarks.size() - 1;
        const std::uint64_t hash = Hash(key);
        const std::uint8_t mark = Mark(hash);
        for (std::size_t at = hash & mask; mMarks[at] != 0; at = (at + 1) & mask)
        {
            if (mMarks[at] == mark && SameGuid(mEntries[at].Key, key)) [[likely]]
                return at;
        }
        return NoEntry;
    }

    // Never 0, which marks a free slot. Of the hash it takes bits that do not choose the slot.
    [[nodiscard]] static std::uint8_t Mark(std::uint64_t hash) noexcept
    {
        return static_cast<std::uint8_t>(0x80 | (hash >> 57));
    }

    // An empty entry at the key's place.
    [[nodiscard]] Entry& MakeRoom(const GUID& key)
    {
        if (mMarks.empty() && mSize < ScannedSize)
            return mEntries.emplace_back();
        if ((mSize + 1) * 3 > mMarks.size() * 2) // free slots are what ends a search
            Scatter(std::max(FirstSlotCount, mMarks.size() * 2));
        return mEntries[TakeSlot(mMarks, key)];
    }

    [[nodiscard]] static std::size_t TakeSlot(std::vector<std::uint8_t>& marks,
                                              const GUID& key) noexcept
    {
        const std::size_t mask = marks.size() - 1;
        const std::uint64_t hash = Hash(key);
        std::size_t at = hash & mask;
        while (marks[at] != 0)
            at = (at + 1) & mask;
        marks[at] = Mark(hash);
        return at;
    }

    void Scatter(std::size_t slotCount)
    {
        std::vector<std::uint8_t> marks(slotCount);
        std::vector<Entry> entries(slotCount);
        ForEachEntry([&](Entry& entry) { entries[TakeSlot(marks, entry.Key)] = std::move(entry); });
        mMarks.swap(marks);
        mEntries.swap(entries);
    }

    // Frees a slot whose content is gone, and moves those behind it up that would no longer be
    // found: so removals leave nothing behind that later searches would have to step over.
    void CloseHole(std::size_t hole) noexcept
    {
        const std::size_t mask = mMarks.size() - 1;
        for (std::size_t at = (hole + 1) & mask; mMarks[at] != 0; at = (at + 1) & mask)
        {
            const std::size_t home = Hash(mEntries[at].Key) & mask;
            if (((at - home) & mask) < ((at - hole) & mask))
                continue;
            mMarks[hole] = mMarks[at];
            mEntries[hole] = std::move(mEntries[at]);
            hole = at;
        }
        mMarks[hole] = 0;
        mEntries[hole] = {};
    }

    template <class Visit>
    void ForEachEntry(Visit visit)
    {
        for (std::size_t at = 0; at < mEntries.size(); ++at)
        {
            if (mMarks.empty() || mMarks[at] != 0)
                visit(mEntries[at]);
        }
    }

    // The order is a sorted copy of the keys. Removed keys stay in it until they are many.
    void BringOrderUpToDate()
    {
        if (mOrderIsCurrent && mRemovedFromOrder <= mSize)
            return;
        std::vector<Ordered> order;
        order.reserve(mSize);
        ForEachEntry([&order](const Entry& entry) { order.emplace_back(entry.Key); });
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

    std::size_t mSize = 0;
    std::vector<Entry> mEntries; // dense while there are no marks, else a power of two of slots
    std::vector<std::uint8_t> mMarks; // one a slot
    std::vector<Ordered> mOrder;
    bool mOrderIsCurrent = false; // no insertion since it was sorted
    std::size_t mRemovedFromOrder = 0;
};

} // namespace Tavrik::Ossira
