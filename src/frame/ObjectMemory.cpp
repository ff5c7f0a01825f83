// Nothing here is constructed or destroyed: static objects are made before everything else and die
// after it. No lock is taken, and no memory asked for, while a spin word is held.
#include "ObjectMemory.h"

#include "FastCriticalSection.h"
#include "LinkedList.h"
#include "OssiraInstance.h"
#include "ThreadMark.h"

#include <array>
#include <new>

namespace Tavrik::Ossira
{

namespace
{

using tDetail::BlockHeader;
using tDetail::BlockShift;
using tDetail::BlockStep;
using tSystem::CLockGuard;

constexpr std::size_t Kinds = 2 * tDetail::BlockSizes;
constexpr std::size_t SlabSize = 4080; // a page, with what the C library puts in front of it
constexpr std::uint32_t BatchSize = 32;
constexpr std::uint32_t MostKept = 2 * BatchSize;

constinit std::atomic<bool> gIsKept = KeepsByDefault;
constinit std::atomic<bool> gIsAttached = true; // or about to be
constinit std::atomic<std::uint32_t> gMostKept =
    KeepsByDefault ? MostKept : 0;                 // of one kind, by a stripe
constinit std::atomic<std::uint64_t> gFlushes = 1; // how often memory was asked back, and one more

[[nodiscard]] bool IsKeeping() noexcept
{
    return gMostKept.load(std::memory_order_relaxed) != 0;
}

class CSlab;

// The object follows its slab's address. As long as there is none its place links the blocks.
struct Block
{
    CSlab* Home;
    Block* Next;
};
static_assert(offsetof(Block, Next) == BlockHeader);

struct BlockList
{
    Block* First = nullptr;
    std::uint32_t Count = 0;

    void Push(Block* block) noexcept
    {
        block->Next = First;
        First = block;
        ++Count;
    }

    [[nodiscard]] Block* Pop() noexcept
    {
        Block* const block = First;
        First = block->Next;
        --Count;
        return block;
    }

    // Moves blocks until `to` has so many, or there are no more.
    void MoveTo(BlockList& to, std::uint32_t count) noexcept
    {
        while (First != nullptr && to.Count < count)
            to.Push(Pop());
    }
};

// The memory of some blocks.
class CSlab : public tSystem::CLinkedList<CSlab>::CLinks
{
public:
    [[nodiscard]] static CSlab* Make(std::size_t kind)
    {
        const std::size_t stride = (kind / 2 + 1) * BlockStep;
        const std::size_t count = IsKeeping() ? (SlabSize - sizeof(CSlab) - BlockStep) / stride : 1;
        auto* const slab =
            new (::operator new(sizeof(CSlab) + BlockStep + count * stride)) CSlab(count);
        const std::size_t shift = kind % 2 != 0 ? BlockShift : 0;
        const auto end = reinterpret_cast<std::uintptr_t>(slab + 1) + BlockHeader + shift;
        const auto line = (end + BlockStep - 1) / BlockStep * BlockStep;
        for (std::size_t index = count; index > 0; --index)
        {
            const std::uintptr_t at = line + (index - 1) * stride - shift - BlockHeader;
            auto* const block = reinterpret_cast<Block*>(at);
            block->Home = slab;
            slab->Free.Push(block);
        }
        return slab;
    }

    static void Delete(CSlab* slab) noexcept
    {
        ::operator delete(slab);
    }

    [[nodiscard]] bool IsUnused() const noexcept
    {
        return Free.Count == mCount;
    }

    BlockList Free;

private:
    explicit CSlab(std::size_t count) noexcept : mCount(static_cast<std::uint32_t>(count))
    {
    }

    const std::uint32_t mCount;
};

// The slabs of one kind that have free blocks.
class CSlabList
{
public:
    // Takes a batch of blocks, or fewer; at least one. Throws `std::bad_alloc`.
    [[nodiscard]] BlockList Take(std::size_t kind)
    {
        BlockList taken;
        {
            const CLockGuard guard(mLock);
            while (mSlabs.First() != nullptr && taken.Count < BatchSize)
            {
                CSlab& slab = *mSlabs.First();
                slab.Free.MoveTo(taken, BatchSize);
                if (slab.Free.Count == 0)
                    mSlabs.Leave(slab);
            }
        }
        if (taken.Count > 0)
            return taken;
        CSlab* const slab = CSlab::Make(kind);
        slab->Free.MoveTo(taken, BatchSize);
        if (slab->Free.Count > 0)
        {
            const CLockGuard guard(mLock);
            mSlabs.Enter(*slab);
        }
        return taken;
    }

    void Give(BlockList blocks) noexcept
    {
        tSystem::CLinkedList<CSlab> unused;
        {
            const CLockGuard guard(mLock);
            while (blocks.First != nullptr)
            {
                Block* const block = blocks.Pop();
                CSlab& slab = *block->Home;
                if (slab.Free.Count == 0)
                    mSlabs.Enter(slab);
                slab.Free.Push(block);
                if (slab.IsUnused())
                {
                    mSlabs.Leave(slab);
                    unused.Enter(slab);
                }
            }
        }
        while (CSlab* const slab = unused.First())
        {
            unused.Leave(*slab);
            CSlab::Delete(slab);
        }
    }

private:
    tSystem::CFastCriticalSection mLock;
    tSystem::CLinkedList<CSlab> mSlabs OSSIRA_GUARDED_BY(mLock);
};

// What threads keep, and what they count. A stripe with an owner is counted in by that thread
// alone, one of the others under its lock.
struct alignas(64) Stripe
{
    std::atomic<std::uint64_t> Births = 0;
    std::atomic<std::uint64_t> Deaths = 0;
    // A block of each kind that the owner alone puts here and takes, so that it needs neither lock
    // nor locked instruction. Most blocks pass here. It puts them only while it knows of all
    // flushes; at the first release behind one it gives back what is here.
    std::array<std::atomic<Block*>, Kinds> Ready = {};
    std::uint64_t KnownFlushes = 0; // the owner's
    tSystem::CFastCriticalSection Lock;
    std::array<BlockList, Kinds> Kept OSSIRA_GUARDED_BY(Lock);
};

constexpr std::size_t OwnerBits = 5;
constexpr std::size_t Owners = std::size_t{1} << OwnerBits;
constinit std::array<std::atomic<std::uintptr_t>, Owners> gOwners; // the marks of their threads
constinit std::array<Stripe, 2 * Owners> gStripes;                 // the owners' come first
constinit std::array<CSlabList, Kinds> gSlabs;

constexpr std::size_t Nearby = 8; // how many stripes are looked at for a thread

[[nodiscard]] std::size_t HomeOf(std::uintptr_t mark) noexcept
{
    return (mark * 0x9E3779B97F4A7C15u) >> (64 - OwnerBits);
}

// A thread's stripe is the first one from its home on that nobody else has; where all are taken,
// one without an owner, which it may share. A thread that has ended keeps its stripe, for the next
// one with its mark.
[[nodiscard]] Stripe& StripeOfThread() noexcept
{
    const std::uintptr_t mark = tSystem::ThreadMark();
    const std::size_t home = HomeOf(mark);
    for (std::size_t step = 0; step < Nearby; ++step)
    {
        const std::size_t index = (home + step) % Owners;
        std::uintptr_t owner = gOwners[index].load(std::memory_order_relaxed);
        if (owner == mark || (owner == 0 && gOwners[index].compare_exchange_strong(
                                                owner, mark, std::memory_order_relaxed)))
            return gStripes[index];
    }
    return gStripes[Owners + home];
}

// The same for most calls; null where that takes longer.
[[gnu::always_inline]] [[nodiscard]] inline Stripe* OwnStripe() noexcept
{
    const std::uintptr_t mark = tSystem::ThreadMark();
    const std::size_t home = HomeOf(mark);
    return gOwners[home].load(std::memory_order_relaxed) == mark ? &gStripes[home] : nullptr;
}

// By who may count there. A death that is seen makes the birth seen before it.
void Count(std::atomic<std::uint64_t>& number) noexcept
{
    number.store(number.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

void CountUnderLock(std::atomic<std::uint64_t> Stripe::*number) noexcept
{
    Stripe& stripe = StripeOfThread();
    const CLockGuard guard(stripe.Lock);
    Count(stripe.*number);
}

[[gnu::noinline]] void* TakeKeptBlock(std::size_t kind)
{
    Stripe& stripe = StripeOfThread();
    BlockList taken;
    for (;;)
    {
        {
            const CLockGuard guard(stripe.Lock);
            BlockList& kept = stripe.Kept[kind];
            taken.MoveTo(kept, kept.Count + taken.Count);
            if (kept.First != nullptr)
            {
                Count(stripe.Births);
                return &kept.Pop()->Next;
            }
        }
        taken = gSlabs[kind].Take(kind);
    }
}

// The death is counted when no more is to be done: the module may be unloaded then.
[[gnu::noinline]] void KeepBlock(Block* block, std::size_t kind) noexcept
{
    Stripe& stripe = StripeOfThread();
    BlockList given;
    {
        const CLockGuard guard(stripe.Lock);
        BlockList& kept = stripe.Kept[kind];
        if (kept.Count < gMostKept.load(std::memory_order_relaxed))
        {
            kept.Push(block);
            Count(stripe.Deaths);
            return;
        }
        given.Push(block);
        kept.MoveTo(given, BatchSize);
    }
    gSlabs[kind].Give(given);
    CountUnderLock(&Stripe::Deaths);
}

// The same with the word of the thread's own stripe, which has none or has room for none, held.
[[gnu::noinline]] void* LeaveAndTake(Stripe& stripe, std::size_t kind) OSSIRA_GIVES(stripe.Lock)
{
    stripe.Lock.unlock();
    return TakeKeptBlock(kind);
}

[[gnu::noinline]] void LeaveAndKeep(Stripe& stripe, Block* block, std::size_t kind) noexcept
    OSSIRA_GIVES(stripe.Lock)
{
    stripe.Lock.unlock();
    KeepBlock(block, kind);
}

[[gnu::noinline, gnu::cold]] void* WakeAndAnswer(Stripe& stripe, void* answer) noexcept
{
    stripe.Lock.WakeWaiter();
    return answer;
}

// What the owner has ready. For the owner, or while nobody creates or releases.
void GiveBackReady(Stripe& stripe) noexcept
{
    for (std::size_t kind = 0; kind < Kinds; ++kind)
    {
        Block* const block = stripe.Ready[kind].load(std::memory_order_acquire);
        if (block == nullptr)
            continue;
        stripe.Ready[kind].store(nullptr, std::memory_order_relaxed);
        BlockList given;
        given.Push(block);
        gSlabs[kind].Give(given);
    }
}

// The owner's first release behind a flush, and every one while nothing is kept.
[[gnu::noinline]] void LearnOfFlush(Stripe& stripe, Block* block, std::size_t kind) noexcept
{
    const std::uint64_t flushes = gFlushes.load(std::memory_order_acquire);
    if (IsKeeping())
    {
        stripe.KnownFlushes = flushes;
        GiveBackReady(stripe);
    }
    KeepBlock(block, kind);
}

// What lies in lists.
void GiveBackKept(Stripe& stripe) noexcept
{
    std::array<BlockList, Kinds> given = {};
    {
        const CLockGuard guard(stripe.Lock);
        given.swap(stripe.Kept);
    }
    for (std::size_t kind = 0; kind < Kinds; ++kind)
        gSlabs[kind].Give(given[kind]);
}

void UpdateKeeping() noexcept
{
    gMostKept = gIsKept && gIsAttached ? MostKept : 0;
    if (IsKeeping())
        return;
    GiveBackObjectMemory();
    for (Stripe& stripe : gStripes)
        GiveBackReady(stripe);
}

} // namespace

// Most calls need no other one, and so save no registers: a block that is ready, or else the first
// of the list. The lock is handed on, which cannot be followed.
void* tDetail::TakeBlock(std::size_t kind) OSSIRA_UNCHECKED_GUARDS
{
    Stripe* const stripe = OwnStripe();
    if (stripe == nullptr) [[unlikely]]
        return TakeKeptBlock(kind);
    if (Block* const block = stripe->Ready[kind].load(std::memory_order_acquire); block != nullptr)
    {
        stripe->Ready[kind].store(nullptr, std::memory_order_relaxed);
        Count(stripe->Births);
        return &block->Next;
    }
    if (!stripe->Lock.try_lock()) [[unlikely]]
        return TakeKeptBlock(kind);
    BlockList& kept = stripe->Kept[kind];
    if (kept.First == nullptr) [[unlikely]]
        return LeaveAndTake(*stripe, kind);
    Count(stripe->Births);
    void* const block = &kept.Pop()->Next;
    return stripe->Lock.Leave() ? WakeAndAnswer(*stripe, block) : block;
}

void tDetail::GiveBlock(void* block, std::size_t kind) noexcept OSSIRA_UNCHECKED_GUARDS
{
    auto* const given = reinterpret_cast<Block*>(static_cast<unsigned char*>(block) - BlockHeader);
    Stripe* const stripe = OwnStripe();
    if (stripe == nullptr) [[unlikely]]
        return KeepBlock(given, kind);
    if (stripe->KnownFlushes != gFlushes.load(std::memory_order_relaxed)) [[unlikely]]
        return LearnOfFlush(*stripe, given, kind);
    if (stripe->Ready[kind].load(std::memory_order_relaxed) == nullptr)
    {
        stripe->Ready[kind].store(given, std::memory_order_release);
        Count(stripe->Deaths);
        return;
    }
    if (!stripe->Lock.try_lock()) [[unlikely]]
        return KeepBlock(given, kind);
    BlockList& kept = stripe->Kept[kind];
    if (kept.Count >= gMostKept.load(std::memory_order_relaxed)) [[unlikely]]
        return LeaveAndKeep(*stripe, given, kind);
    kept.Push(given);
    Count(stripe->Deaths);
    stripe->Lock.unlock();
}

void* tDetail::TakeMemory(std::size_t size, std::size_t alignment)
{
    void* const memory = alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__
                             ? ::operator new(size, std::align_val_t(alignment))
                             : ::operator new(size);
    CountUnderLock(&Stripe::Births);
    return memory;
}

void tDetail::GiveMemory(void* memory, std::size_t alignment) noexcept
{
    if (alignment > __STDCPP_DEFAULT_NEW_ALIGNMENT__)
        ::operator delete(memory, std::align_val_t(alignment));
    else
        ::operator delete(memory);
    CountUnderLock(&Stripe::Deaths);
}

// Both numbers only grow. Take a moment between the two loops: each number of deaths was read
// before it and is no higher than then, each number of births was read behind it and is no lower.
// So the difference is at least the number of objects that were alive at that moment.
std::uint32_t OpenObjectCount() noexcept
{
    std::uint64_t deaths = 0;
    for (const Stripe& stripe : gStripes)
        deaths += stripe.Deaths.load(std::memory_order_acquire);
    std::uint64_t births = 0;
    for (const Stripe& stripe : gStripes)
        births += stripe.Births.load(std::memory_order_acquire);
    return static_cast<std::uint32_t>(births - deaths);
}

void GiveBackObjectMemory() noexcept
{
    gFlushes.fetch_add(1, std::memory_order_release);
    for (Stripe& stripe : gStripes)
    {
        if (stripe.Births != 0 || stripe.Deaths != 0) // or no thread has come here
            GiveBackKept(stripe);
    }
    if (Stripe* const own = OwnStripe(); own != nullptr)
        GiveBackReady(*own);
}

void KeepObjectMemory(bool isKept) noexcept
{
    gIsKept = isKept;
    UpdateKeeping();
}

void AttachObjectMemory(bool isAttached) noexcept
{
    gIsAttached = isAttached;
    UpdateKeeping();
}

} // namespace Tavrik::Ossira
