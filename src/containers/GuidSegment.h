// One piece of a table from GUID to a movable value: entries scattered by hash over an array of
// slots, beside which one byte a slot tells whether it is taken, and by a key of which hash,
// roughly. A search runs over these bytes, dozens of which share a cache line, and touches one slot
// as a rule. Everything lies in one block of memory: the bytes upwards from this header and the
// slots downwards, so that both are found from its address alone.
//
// Whoever searches knows the number of slots already and hands in `mask`, that number less one, so
// that this header need not be fetched.
#pragma once

#include "GuidHash.h"

#include <cstring>
#include <memory>
#include <new>
#include <utility>

namespace Tavrik::Ossira
{

template <class Value>
class alignas(16) CGuidSegment
{
public:
    struct Entry
    {
        GUID Key = GUID_Null;
        Value Content = {};
    };
    static_assert(alignof(Entry) <= 16);

    struct Deleter
    {
        void operator()(CGuidSegment* segment) const noexcept
        {
            segment->ForEach([](Entry& entry) { std::destroy_at(&entry); });
            ::operator delete(&segment->At(segment->SlotCount - 1));
        }
    };
    using Owner = std::unique_ptr<CGuidSegment, Deleter>;

    // A number of slots that is a multiple of 16. Throws `std::bad_alloc`.
    [[nodiscard]] static Owner Make(std::size_t slotCount, std::uint32_t depth)
    {
        return MakeIn(::operator new(BlockSize(slotCount)), slotCount, depth);
    }

    // Null when memory is short.
    [[nodiscard]] static Owner TryMake(std::size_t slotCount, std::uint32_t depth) noexcept
    {
        void* const block = ::operator new(BlockSize(slotCount), std::nothrow);
        return block != nullptr ? MakeIn(block, slotCount, depth) : Owner();
    }

    CGuidSegment(const CGuidSegment&) = delete;
    CGuidSegment& operator=(const CGuidSegment&) = delete;

    // The entry of a key, or null.
    [[gnu::always_inline]] [[nodiscard]] Entry* Find(const CHashedGuid& key,
                                                     std::size_t mask) noexcept
    {
        const std::uint8_t* const marks = Marks();
        const std::uint8_t mark = Mark(key.Hash);
        std::size_t at = key.Hash & mask;
        while (marks[at] != mark || !SameGuid(At(at).Key, key.Key))
            [[unlikely]]
            {
                if (marks[at] == 0)
                    return nullptr;
                at = (at + 1) & mask;
            }
        return &At(at);
    }

    // Enters a key that is not there; a slot must be free beyond it, which is what ends a search.
    Entry& Enter(Entry&& entry, std::uint64_t hash) noexcept
    {
        const std::size_t mask = SlotCount - 1;
        std::size_t at = hash & mask;
        while (Marks()[at] != 0)
            at = (at + 1) & mask;
        Marks()[at] = Mark(hash);
        ++Count;
        return *std::construct_at(&At(at), std::move(entry));
    }

    // Frees the slot of an entry, and moves those behind it up that would no longer be found: so
    // removals leave nothing behind that later searches would have to step over.
    void Remove(Entry& entry) noexcept
    {
        const std::size_t mask = SlotCount - 1;
        auto hole = static_cast<std::size_t>(reinterpret_cast<Entry*>(this) - &entry) - 1;
        for (std::size_t at = (hole + 1) & mask; Marks()[at] != 0; at = (at + 1) & mask)
        {
            const std::size_t home = CHashedGuid(At(at).Key).Hash & mask;
            if (((at - home) & mask) < ((at - hole) & mask))
                continue;
            Marks()[hole] = Marks()[at];
            At(hole) = std::move(At(at));
            hole = at;
        }
        Marks()[hole] = 0;
        std::destroy_at(&At(hole));
        --Count;
    }

    template <class Visit>
    void ForEach(Visit visit) noexcept
    {
        for (std::size_t at = 0; at < SlotCount; ++at)
        {
            if (Marks()[at] != 0)
                visit(At(at));
        }
    }

    const std::uint32_t SlotCount;
    std::uint32_t Count = 0;
    std::uint32_t Depth; // so many leading bits of the hash are the same for all keys in here

private:
    CGuidSegment(std::size_t slotCount, std::uint32_t depth) noexcept
        : SlotCount(static_cast<std::uint32_t>(slotCount)), Depth(depth)
    {
        std::memset(Marks(), 0, slotCount);
    }

    [[nodiscard]] static Owner MakeIn(void* block, std::size_t slotCount, std::uint32_t depth)
    {
        return Owner(new (static_cast<Entry*>(block) + slotCount) CGuidSegment(slotCount, depth));
    }

    [[nodiscard]] static std::size_t BlockSize(std::size_t slotCount) noexcept
    {
        return sizeof(CGuidSegment) + slotCount * (1 + sizeof(Entry));
    }

    // Never 0, which marks a free slot. Of the hash it takes bits that choose neither the slot nor
    // the segment.
    [[nodiscard]] static std::uint8_t Mark(std::uint64_t hash) noexcept
    {
        return static_cast<std::uint8_t>(0x80 | (hash >> 20));
    }

    [[nodiscard]] std::uint8_t* Marks() noexcept
    {
        return reinterpret_cast<std::uint8_t*>(this + 1);
    }

    // The slot of a number.
    [[nodiscard]] Entry& At(std::size_t slot) noexcept
    {
        return reinterpret_cast<Entry*>(this)[static_cast<std::ptrdiff_t>(~slot)];
    }
};

} // namespace Tavrik::Ossira
