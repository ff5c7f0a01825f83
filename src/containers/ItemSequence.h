// A sequence of counted references, held as plain pointers, in which no call takes long because of
// the size. It has no lock of its own; its owner guards every call.
//
//   At, Replace, Size, Swap   constant
//   First, Next               constant
//   Append                    constant, and but a store as long as a block has room
//   Insert, Take              constant at both ends; in between the shorter side moves by one
//   place,
//                             as plain memory
//   Find                      linear
//   destruction               linear
//
// The places form a ring. Up to 4,096 of them are one block, which grows and shrinks by copying. A
// larger ring is made of blocks of 4,096 that a directory lists, in the order of the ring: it grows
// block by block at either end, and of its blocks only those with items in them exist. Memory
// follows the content; that a removal may shrink something takes an allocation, without which
// things stay as they are.
#pragma once

#include "OssiraPointer.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <new>
#include <optional>

namespace Tavrik::Ossira
{

class CItemSequence
{
public:
    CItemSequence() noexcept = default;
    CItemSequence(const CItemSequence&) = delete;
    CItemSequence& operator=(const CItemSequence&) = delete;

    // Releases the items, the first one first.
    ~CItemSequence()
    {
        for (std::size_t index = 0; index < mSize; ++index)
            ObjectPtr<IUnknown>::Adopt(At(index)).Reset();
    }

    [[nodiscard]] std::size_t Size() const noexcept
    {
        return mSize;
    }

    // The item at an index below the size; borrowed.
    [[nodiscard]] IUnknown* At(std::size_t index) const noexcept
    {
        return Slot(mHead + index);
    }

    // Where a walk stands, among items that lie side by side. Good until the sequence changes, but
    // for `Replace`; a change that fails is none.
    struct Place
    {
        IUnknown* const* Slot = nullptr;
        IUnknown* const* RunEnd = nullptr;
        std::size_t IndexBehindRun = 0;
    };

    // To the first item; false, and `at` as it was, when there is none.
    [[nodiscard]] bool First(Place& at) const noexcept
    {
        return BeginRun(at, 0);
    }

    // To the next item; false, and `at` as it was, when there is none. Who walks through many waits
    // for the memory of each, unless it is asked for early.
    [[nodiscard]] bool Next(Place& at) const noexcept
    {
        constexpr std::ptrdiff_t ahead = 8;
        if (at.Slot + 1 == at.RunEnd) [[unlikely]]
            return BeginRun(at, at.IndexBehindRun);
        ++at.Slot;
        if (at.RunEnd - at.Slot > ahead) [[likely]]
            __builtin_prefetch(at.Slot[ahead]);
        return true;
    }

    // Behind the last item. Throws `std::bad_alloc`; sequence and item are then as they were.
    [[gnu::always_inline]] void Append(ObjectPtr<IUnknown>& item)
    {
        if (mTail == mTailEnd) [[unlikely]]
            FindTail();
        *mTail++ = item.Detach();
        ++mSize;
    }

    // Before the item at `index`, or behind the last one. Throws as `Append` does.
    void Insert(std::size_t index, ObjectPtr<IUnknown>&& item)
    {
        ForgetTail();
        const bool isNearHead = index < mSize / 2;
        MakeRoom(isNearHead);
        if (isNearHead)
        {
            --mHead;
            MoveDown(mHead, index);
        }
        else
        {
            MoveUp(mHead + index, mSize - index);
        }
        ++mSize;
        Slot(mHead + index) = item.Detach();
    }

    // Removes the item at an index and hands it out, so that it can die where no lock is held.
    [[nodiscard]] ObjectPtr<IUnknown> Take(std::size_t index) noexcept
    {
        ForgetTail();
        auto item = ObjectPtr<IUnknown>::Adopt(At(index));
        const bool isNearHead = index < mSize / 2;
        if (isNearHead)
        {
            MoveUp(mHead, index);
            ++mHead;
        }
        else
        {
            MoveDown(mHead + index, mSize - index - 1);
        }
        --mSize;
        Shrink(isNearHead ? mHead - 1 : mHead + mSize);
        return item;
    }

    // Puts an item at an index and leaves the one that was there in its place.
    void Replace(std::size_t index, ObjectPtr<IUnknown>& item) noexcept
    {
        IUnknown*& slot = Slot(mHead + index);
        auto replaced = ObjectPtr<IUnknown>::Adopt(std::exchange(slot, item.Detach()));
        item = std::move(replaced);
    }

    // The index of the first item that is this very pointer.
    [[nodiscard]] std::optional<std::size_t> Find(const IUnknown* item) const noexcept
    {
        for (std::size_t index = 0; index < mSize;)
        {
            const std::size_t count = std::min(mSize - index, RunUpFrom(mHead + index));
            IUnknown* const* const run = &Slot(mHead + index);
            if (const auto found = std::find(run, run + count, item); found != run + count)
                return index + static_cast<std::size_t>(found - run);
            index += count;
        }
        return std::nullopt;
    }

    void Swap(CItemSequence& other) noexcept
    {
        mBlocks.swap(other.mBlocks);
        std::swap(mHead, other.mHead);
        std::swap(mSize, other.mSize);
        std::swap(mCapacity, other.mCapacity);
        std::swap(mTail, other.mTail);
        std::swap(mTailEnd, other.mTailEnd);
    }

private:
    using Block = std::unique_ptr<IUnknown*[]>;
    using Directory = std::unique_ptr<Block[]>;

    static constexpr std::size_t FirstCapacity = 8;
    static constexpr std::size_t BlockSize = 4096;

    // A place is a number that counts on without end; its remainder by the capacity is where it
    // lies.
    [[nodiscard]] IUnknown*& Slot(std::size_t place) const noexcept
    {
        place &= mCapacity - 1;
        return mBlocks[place / BlockSize][place % BlockSize];
    }

    [[nodiscard]] Block& BlockOf(std::size_t place) const noexcept
    {
        return mBlocks[(place & (mCapacity - 1)) / BlockSize];
    }

    // How many places lie side by side from one on, and how many up to one.

    [[nodiscard]] std::size_t RunUpFrom(std::size_t place) const noexcept
    {
        const std::size_t run = std::min(mCapacity, BlockSize);
        return run - place % run;
    }

    [[nodiscard]] std::size_t RunDownFrom(std::size_t place) const noexcept
    {
        return place % std::min(mCapacity, BlockSize) + 1;
    }

    [[gnu::noinline]] bool BeginRun(Place& at, std::size_t index) const noexcept
    {
        if (index >= mSize)
            return false;
        const std::size_t count = std::min(mSize - index, RunUpFrom(mHead + index));
        at.Slot = &Slot(mHead + index);
        at.RunEnd = at.Slot + count;
        at.IndexBehindRun = index + count;
        return true;
    }

    // Moves the items at `count` places from `to` + 1 on down by one, or those from `from` on up.

    void MoveDown(std::size_t to, std::size_t count) noexcept
    {
        while (count > 0)
        {
            const std::size_t run = std::min(count, RunUpFrom(to + 1));
            Slot(to) = Slot(to + 1);
            std::move(&Slot(to + 1) + 1, &Slot(to + 1) + run, &Slot(to + 1));
            to += run;
            count -= run;
        }
    }

    void MoveUp(std::size_t from, std::size_t count) noexcept
    {
        while (count > 0)
        {
            const std::size_t last = from + count - 1;
            const std::size_t run = std::min(count, RunDownFrom(last));
            Slot(last + 1) = Slot(last);
            std::move_backward(&Slot(last) - (run - 1), &Slot(last), &Slot(last) + 1);
            count -= run;
        }
    }

    // To the free places behind the last item that lie side by side; there is at least one.
    [[gnu::noinline]] void FindTail()
    {
        MakeRoom(false);
        const std::size_t place = mHead + mSize;
        mTail = &Slot(place);
        mTailEnd = mTail + std::min(RunUpFrom(place), mCapacity - mSize);
    }

    void ForgetTail() noexcept
    {
        mTail = mTailEnd = nullptr;
    }

    // Sees that there is a free place before the head, or behind the last item. Moves nothing
    // before it has all the memory that is needed.
    void MakeRoom(bool atHead)
    {
        const auto block = [&]() -> Block&
        {
            return BlockOf(atHead ? mHead - 1 : mHead + mSize);
        };
        const bool isFull = mCapacity <= BlockSize ? mSize == mCapacity : IsBlockTaken(atHead);
        Block fresh;
        if (mCapacity >= BlockSize && (isFull || !block()))
            fresh.reset(new IUnknown*[BlockSize]);
        if (isFull)
            ChangeCapacity(std::max(FirstCapacity, mCapacity * 2));
        if (!block())
            block() = std::move(fresh);
    }

    // Whether the ring has come round: a step over a block's end meets the block at the other end.
    [[nodiscard]] bool IsBlockTaken(bool atHead) const noexcept
    {
        const std::size_t edge = atHead ? mHead : mHead + mSize;
        return edge % BlockSize == 0 && BlockOf(atHead ? edge - 1 : edge) != nullptr;
    }

    // Gives back what is no longer needed after the item at a place at either end was removed.
    void Shrink(std::size_t place) noexcept
    {
        const bool isLastOfBlock =
            mSize == 0 || (place / BlockSize != mHead / BlockSize &&
                           place / BlockSize != (mHead + mSize - 1) / BlockSize);
        if (mCapacity > BlockSize && isLastOfBlock)
            BlockOf(place).reset();
        if (mCapacity <= FirstCapacity || mSize > mCapacity / 8)
            return;
        try
        {
            ChangeCapacity(std::max(FirstCapacity, mCapacity / 4));
        }
        catch (const std::bad_alloc&)
        {
        }
    }

    // To and from a single block the items are copied, otherwise only what lists the blocks.
    void ChangeCapacity(std::size_t capacity)
    {
        Directory blocks(new Block[std::max(capacity / BlockSize, std::size_t{1})]);
        if (std::min(capacity, mCapacity) <= BlockSize)
        {
            blocks[0].reset(new IUnknown*[std::min(capacity, BlockSize)]);
            for (std::size_t index = 0; index < mSize; ++index)
                blocks[0][index] = At(index);
            mHead = 0;
        }
        else
        {
            const std::size_t first = mHead % BlockSize;
            for (std::size_t at = 0; at < first + mSize; at += BlockSize)
                blocks[at / BlockSize].swap(BlockOf(mHead + at));
            mHead = first;
        }
        mBlocks.swap(blocks);
        mCapacity = capacity;
    }

    Directory mBlocks; // null while the capacity is 0
    std::size_t mHead = 0;
    std::size_t mSize = 0;
    std::size_t mCapacity = 0;  // a power of two, or 0
    IUnknown** mTail = nullptr; // where the next item goes, unless it is the end
    IUnknown** mTailEnd = nullptr;
};

} // namespace Tavrik::Ossira
