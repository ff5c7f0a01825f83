// A map from GUID to a movable value, made for reading, in which no call takes long because of the
// size: whatever grows or shrinks does so in small steps. The table has no lock of its own; its
// owner guards every call.
//
//   Find            constant; one slot and a few bytes beside it are touched as a rule
//   Insert, Take    constant, and O(log n) for the order; at most about a thousand entries move
//   First           constant
//   Next            constant from a position that was settled since the last change, else O(log n)
//   Size, Swap      constant
//   destruction     linear
//
// Up to eight entries lie densely and are compared one by one. More of them lie in segments (see
// GuidSegment.h), which a directory finds by the leading bits of the hash. A single segment grows
// to 1,024 slots; from then on a segment that is two thirds full is split by the next bit, and two
// that differ in their last bit alone become one again when together they fill a quarter. When a
// bit more is needed the directory doubles, which copies a pointer for several hundred keys. The
// keys' order is kept beside them (see OrderedKeys.h). Memory follows the content; that a removal
// may shrink something takes a small allocation, without which things stay as they are.
//
// Who looks for a key hands its hash in with it; see GuidHash.h.
//
// Order is that of the 16 stored bytes. A walk goes from key to key, never from entry to entry:
// whoever walks holds a copy of a key and asks for the least greater one, so removals, of the
// current key too, cannot disturb it. A walk reads only.
#pragma once

#include "GuidHash.h"
#include "GuidSegment.h"
#include "OrderedKeys.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <span>
#include <type_traits>
#include <vector>

namespace Tavrik::Ossira
{

template <class Value>
class CGuidTable
{
    static_assert(std::is_nothrow_move_constructible_v<Value> &&
                  std::is_nothrow_move_assignable_v<Value>);

public:
    CGuidTable() noexcept
    {
        CHashSeed::Draw();
    }

    CGuidTable(const CGuidTable&) = delete;
    CGuidTable& operator=(const CGuidTable&) = delete;

    ~CGuidTable()
    {
        DeleteSegments();
    }

    [[nodiscard]] std::size_t Size() const noexcept
    {
        return mSize;
    }

    // The value of a key, or null. Good until the next insertion or removal.
    [[gnu::always_inline]] [[nodiscard]] Value* Find(const CHashedGuid& key) noexcept
    {
        Entry* const entry = FindEntry(key);
        return entry != nullptr ? &entry->Content : nullptr;
    }

    [[gnu::always_inline]] [[nodiscard]] const Value* Find(const CHashedGuid& key) const noexcept
    {
        return const_cast<CGuidTable*>(this)->Find(key);
    }

    // Enters a key that is not there. Throws `std::bad_alloc`, also when the count would no longer
    // fit into 32 bits; table and value are then as they were.
    Value& Insert(const CHashedGuid& key, Value&& value)
    {
        if (mSize >= MaximumSize)
            throw std::bad_alloc();
        Entry& entry = mSize < ScannedSize && !mDirectory ? mFew.emplace_back() : Place(key);
        entry.Key = key.Key;
        entry.Content = std::move(value);
        ++mSize;
        return entry.Content;
    }

    // Removes a key and hands its value out, so that it can die where no lock is held.
    [[nodiscard]] std::optional<Value> Take(const CHashedGuid& key) noexcept
    {
        Entry* const entry = FindEntry(key);
        if (entry == nullptr)
            return std::nullopt;
        std::optional<Value> value(std::move(entry->Content));
        --mSize;
        if (mDirectory)
        {
            SegmentOf(key.Hash)->Remove(*entry);
            mOrder.Remove(key.Key);
            Shrink(key.Hash);
        }
        else
        {
            *entry = std::move(mFew.back());
            mFew.pop_back();
        }
        return value;
    }

    void Swap(CGuidTable& other) noexcept
    {
        std::swap(mSize, other.mSize);
        mFew.swap(other.mFew);
        mDirectory.swap(other.mDirectory);
        std::swap(mIndex, other.mIndex);
        mOrder.Swap(other.mOrder);
    }

    // To the least key; false, and `at` as it was, in an empty table.
    [[nodiscard]] bool First(CGuidPosition& at) const noexcept
    {
        return mDirectory ? mOrder.First(at) : LeastOfFew(nullptr, at);
    }

    // To the least key that is greater than the one in `at`, whether that is still there or not;
    // false, and `at` as it was, when there is none. A position belongs to the table that gave it.
    [[nodiscard]] bool Next(CGuidPosition& at) const noexcept
    {
        const GUID key = at.Key;
        return mDirectory ? mOrder.Next(at) : LeastOfFew(&key, at);
    }

private:
    using Segment = CGuidSegment<Value>;
    using Owner = typename Segment::Owner;
    using Entry = typename Segment::Entry;

    static constexpr std::size_t MaximumSize = std::numeric_limits<std::int32_t>::max();
    static constexpr std::size_t ScannedSize = 8; // so many entries are compared one by one
    static constexpr std::uint32_t FirstSlotCount = 32;
    static constexpr std::uint32_t LastSlotCount = 1024;
    static constexpr std::uint32_t DepthLimit = 32; // the bits behind it choose slot and mark

    // How keys find their places in the directory and in a segment; as a first directory needs it.
    struct Index
    {
        std::size_t Mask = FirstSlotCount - 1; // of the slots of every segment
        std::uint32_t Shift = 63;  // brings the bits of the hash that choose a place down
        std::uint32_t Deepest = 0; // how many segments have one place alone
    };

    [[gnu::always_inline]] [[nodiscard]] Segment*& SegmentOf(std::uint64_t hash) const noexcept
    {
        return mDirectory[hash >> mIndex.Shift];
    }

    // Inline, as what it calls: it is most of what a reader waits for.
    [[gnu::always_inline]] [[nodiscard]] Entry* FindEntry(const CHashedGuid& key) noexcept
    {
        if (mDirectory) [[likely]]
            return SegmentOf(key.Hash)->Find(key, mIndex.Mask);
        for (Entry& entry : mFew)
        {
            if (SameGuid(entry.Key, key.Key))
                return &entry;
        }
        return nullptr;
    }

    // The entry of a new key, in its segment and in the order.
    [[nodiscard]] Entry& Place(const CHashedGuid& key)
    {
        if (!mDirectory)
            MakeDirectory();
        Segment* segment = SegmentOf(key.Hash);
        while ((segment->Count + 1) * 3 > segment->SlotCount * 2)
        {
            if (segment->SlotCount < LastSlotCount)
                Resize(Segment::Make(segment->SlotCount * 2, 0));
            else
                Split(*segment, key.Hash);
            segment = SegmentOf(key.Hash);
        }
        mOrder.Insert(key.Key);
        return segment->Enter({key.Key, {}}, key.Hash);
    }

    // Leaves the dense entries for a first segment. The directory begins with two places, of the
    // same segment.
    void MakeDirectory()
    {
        COrderedKeys order;
        for (const Entry& entry : mFew)
            order.Insert(entry.Key);
        Owner segment = Segment::Make(FirstSlotCount, 0);
        mDirectory.reset(new Segment* [2] {});
        mIndex = {};
        for (Entry& entry : mFew)
        {
            const std::uint64_t hash = CHashedGuid(entry.Key).Hash;
            segment->Enter(std::move(entry), hash);
        }
        std::fill_n(mDirectory.get(), 2, segment.release());
        mOrder.Swap(order);
        std::vector<Entry>().swap(mFew);
    }

    // Puts another one in the only segment's place.
    void Resize(Owner fresh) noexcept
    {
        const Owner old(mDirectory[0]);
        MoveEntries(*old, [&fresh](std::uint64_t) -> Segment& { return *fresh; });
        mIndex.Mask = fresh->SlotCount - 1;
        std::fill_n(mDirectory.get(), DirectorySize(), fresh.release());
    }

    void Split(Segment& full, std::uint64_t hash)
    {
        if (full.Depth == DepthLimit)
            throw std::bad_alloc();
        const std::uint32_t depth = full.Depth + 1;
        Owner halves[] = {Segment::Make(LastSlotCount, depth), Segment::Make(LastSlotCount, depth)};
        if (depth > Depth())
            DoubleDirectory();
        const Owner old(&full);
        MoveEntries(full,
                    [&](std::uint64_t h) -> Segment& { return *halves[(h >> (64 - depth)) & 1]; });
        const std::size_t width = Width(depth);
        Segment** const first =
            mDirectory.get() + (hash >> mIndex.Shift) / (2 * width) * (2 * width);
        for (std::size_t half = 0; half < 2; ++half)
            std::fill_n(first + half * width, width, halves[half].release());
        if (depth == Depth())
            mIndex.Deepest += 2;
    }

    void DoubleDirectory()
    {
        const std::size_t size = DirectorySize();
        std::unique_ptr<Segment*[]> directory(new Segment*[size * 2]);
        std::size_t at = 0;
        for (Segment*& place : std::span(directory.get(), size * 2))
            place = mDirectory[at++ / 2];
        mDirectory.swap(directory);
        --mIndex.Shift;
        mIndex.Deepest = 0;
    }

    // Gives back what the segment of a removed key no longer needs.
    void Shrink(std::uint64_t hash) noexcept
    {
        const std::size_t at = hash >> mIndex.Shift;
        while (mDirectory[at]->Depth > 0 && TryMerge(at))
            continue;
        while (mIndex.Deepest == 0 && mIndex.Shift < 63 && TryHalveDirectory())
            continue;
        const Segment& segment = *SegmentOf(hash);
        if (mSize <= ScannedSize / 2)
            TryLeaveDirectory();
        else if (segment.SlotCount > FirstSlotCount && segment.Depth == 0 &&
                 segment.Count < segment.SlotCount / 8)
        {
            if (Owner fresh = Segment::TryMake(segment.SlotCount / 4, 0); fresh)
                Resize(std::move(fresh));
        }
    }

    // Moves the entries of the segment at a place of the directory to the one that differs in the
    // last bit, if they are few.
    [[nodiscard]] bool TryMerge(std::size_t at) noexcept
    {
        Segment& from = *mDirectory[at];
        const std::size_t width = Width(from.Depth);
        Segment& to = *mDirectory[at ^ width];
        if (from.Count > LastSlotCount / 8 || from.Depth != to.Depth ||
            from.Count + to.Count > LastSlotCount / 4)
            return false;
        const Owner old(&from);
        MoveEntries(from, [&to](std::uint64_t) -> Segment& { return to; });
        if (to.Depth-- == Depth())
            mIndex.Deepest -= 2;
        std::fill_n(mDirectory.get() + at / width * width, width, &to);
        return true;
    }

    // Where no segment needs the directory's last bit. Then one needs all others where the next
    // pair of places holds another one.
    [[nodiscard]] bool TryHalveDirectory() noexcept
    {
        const std::size_t size = DirectorySize() / 2;
        std::unique_ptr<Segment*[]> directory(new (std::nothrow) Segment*[size]);
        if (!directory)
            return false;
        std::size_t at = 0;
        for (Segment*& place : std::span(directory.get(), size))
        {
            place = mDirectory[at];
            mIndex.Deepest += place != mDirectory[at ^ 2] ? 1U : 0U;
            at += 2;
        }
        mDirectory.swap(directory);
        ++mIndex.Shift;
        return true;
    }

    // Back to dense entries.
    void TryLeaveDirectory() noexcept
    try
    {
        std::vector<Entry> few;
        few.reserve(ScannedSize);
        ForEachSegment([&few](Segment& segment)
                       { segment.ForEach([&few](Entry& e) { few.push_back(std::move(e)); }); });
        DeleteSegments();
        mFew.swap(few);
        COrderedKeys().Swap(mOrder);
    }
    catch (const std::bad_alloc&)
    {
    }

    template <class Choose>
    void MoveEntries(Segment& from, Choose choose) noexcept
    {
        from.ForEach(
            [&](Entry& entry)
            {
                const std::uint64_t hash = CHashedGuid(entry.Key).Hash;
                choose(hash).Enter(std::move(entry), hash);
            });
    }

    void DeleteSegments() noexcept
    {
        ForEachSegment([](Segment& segment) { Owner(&segment).reset(); });
        mDirectory.reset();
    }

    template <class Visit>
    void ForEachSegment(Visit visit)
    {
        for (std::size_t at = 0; mDirectory && at < DirectorySize();)
        {
            Segment& segment = *mDirectory[at];
            at += Width(segment.Depth);
            visit(segment);
        }
    }

    // To the least of the dense entries, or the least above `bound`.
    [[nodiscard]] bool LeastOfFew(const GUID* bound, CGuidPosition& at) const noexcept
    {
        const Entry* least = nullptr;
        for (const Entry& entry : mFew)
        {
            const COrderedKey key(entry.Key);
            if ((bound == nullptr || key > COrderedKey(*bound)) &&
                (least == nullptr || key < COrderedKey(least->Key)))
                least = &entry;
        }
        if (least != nullptr)
            at.Key = least->Key;
        return least != nullptr;
    }

    [[nodiscard]] std::uint32_t Depth() const noexcept
    {
        return 64 - mIndex.Shift;
    }

    [[nodiscard]] std::size_t DirectorySize() const noexcept
    {
        return std::size_t{1} << Depth();
    }

    // How many places of the directory a segment of a depth has.
    [[nodiscard]] std::size_t Width(std::uint32_t depth) const noexcept
    {
        return std::size_t{1} << (Depth() - depth);
    }

    std::size_t mSize = 0;
    std::unique_ptr<Segment*[]> mDirectory; // null while the entries are few
    Index mIndex;
    std::vector<Entry> mFew;
    COrderedKeys mOrder;
};

} // namespace Tavrik::Ossira
