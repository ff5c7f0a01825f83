// The memory allocator and its segments, the modified service and the object cache stack, and how
// the services do without memory.
#include "RandomProgram.h"

#include <algorithm>
#include <array>
#include <deque>
#include <span>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

// --- Memory --------------------------------------------------------------------------------------

Result Allocate(ICommonMemoryAllocator32& allocator, std::uint32_t size, std::uint32_t alignment,
                ObjectPtr<IMemorySegment32>& segment)
{
    return allocator.AllocMemorySegment32(size, alignment, MEMORY_ZEROED, IID_IMemorySegment32,
                                          segment.PutVoid());
}

// Segments, zeroed, and bare blocks of right and wrong sizes and alignments. Each still holds, when
// it is given back, what it was filled with.
class MemoryModel final : public RandomModel
{
public:
    ~MemoryModel() override
    {
        while (!mBlocks.empty())
            Free(0);
        Check();
    }

    void Step() override
    {
        if (Below(mBlocks.size() + 20) >= 20)
            Free(Below(mBlocks.size()));
        const std::uint32_t limit = Below(4) == 0 ? 3000 : 40;
        const std::uint32_t size = Below(99) == 0 ? 100000000 : Below(limit);
        const std::uint32_t alignment = Below(50) == 0 ? 1025 : Below(Below(2) == 0 ? 1025 : 20);
        const std::uint32_t unit = std::bit_ceil(std::max(alignment, 1u));
        Block block;
        void* address = nullptr;
        std::uint32_t usable = 0;
        const bool isSegment = Below(2) == 0;
        const auto allocate = [&]
        {
            return isSegment ? Allocate(*mAllocator, size, alignment, block.Segment)
                             : mAllocator->AllocMemoryBlock(size, alignment, 0, &block.Raw,
                                                            &block.RawSize, &address, &usable);
        };
        const bool isRight = size > 0 && size < 100000000 && alignment <= 1024;
        if (!isRight && size > 0)
        {
            const ObserverMaskScope errors(PRINT_ERROR);
            FAILS(allocate(), E_INVALIDARG,
                  size < 100000000 ? "aligment >= 0 && aligment <= 1024"
                                   : "byteSize >= 0 && byteSize < 100000000");
        }
        EXPECT_EQ(Answer(allocate), isRight ? S_OK : E_INVALIDARG);
        if (!isRight)
            return;
        const std::uint32_t expected = (size + unit - 1) / unit * unit;
        if (isSegment)
        {
            address = block.Segment->GetAddress();
            usable = block.Segment->GetSize();
            block.RawSize = expected + unit - 1;
        }
        block.Bytes = {static_cast<std::uint8_t*>(address), usable};
        EXPECT_EQ(usable, expected);
        EXPECT_EQ(block.RawSize, expected + unit - 1);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(address) % unit, 0u);
        EXPECT_TRUE(!isSegment || std::ranges::count(block.Bytes, 0) == usable);
        block.Fill = static_cast<std::uint8_t>(1 + Below(255));
        std::ranges::fill(block.Bytes, block.Fill);
        mBlocks.push_back(block);
        const std::int64_t bytes = block.RawSize, count = std::ssize(mBlocks);
        mStatistics = {mStatistics[0] + bytes, count, std::max(mStatistics[2], count),
                       mStatistics[3] == 0 ? bytes : std::min(mStatistics[3], bytes),
                       std::max(mStatistics[4], bytes)};
    }

    void Check() override
    {
        EXPECT_EQ(StatisticsOf(*mAllocator), mStatistics);
    }

private:
    struct Block
    {
        ObjectPtr<IMemorySegment32> Segment;
        void* Raw = nullptr;
        std::uint32_t RawSize = 0;
        std::span<std::uint8_t> Bytes;
        std::uint8_t Fill = 0;
    };

    void Free(std::size_t at)
    {
        Block& block = mBlocks[at];
        EXPECT_EQ(std::ranges::count(block.Bytes, block.Fill), std::ssize(block.Bytes));
        EXPECT_EQ(mAllocator->FreeBlock(block.Raw, block.RawSize), S_OK); // null: none
        mStatistics[0] -= block.RawSize;
        --mStatistics[1];
        mBlocks.erase(mBlocks.begin() + static_cast<std::ptrdiff_t>(at));
    }

    const ObjectPtr<ICommonMemoryAllocator32> mAllocator =
        Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    std::vector<Block> mBlocks;
    Statistics mStatistics = Statistics(5);
};

TEST(Memory, IsAlignedAndCountedFromItsAllocationUntilItIsGivenBack)
{
    RunProgram<MemoryModel>(2000);
}

TEST(Memory, ASegmentKeepsItsAllocatorWhichTellsWhatIsLeft)
{
    auto allocator = Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    ObjectPtr<IMemorySegment32> segment;
    void *raw = nullptr, *address = nullptr;
    std::uint32_t rawSize = 0, size = 0;
    EXPECT_EQ(StatisticsOf(*allocator), Statistics(5));
    FAILS(allocator->AllocMemoryBlock(10, 3, 0, &raw, &rawSize, nullptr, &size), E_POINTER,
          "ppPhyAddr != NULL && pPhySize != NULL && ppAddr != NULL && pSize != NULL");
    EXPECT_EQ(Allocate(*allocator, 99999999, 1, segment), S_OK);
    const ObserverMaskScope warnings(PRINT_ERROR | PRINT_WARN);
    const DiagnosticsCapture capture;
    EXPECT_EQ(Allocate(*allocator, 0, 1, segment), E_INVALIDARG); // which is tried a second time
    EXPECT_EQ(capture.CountLinesWith("-WARN- Alloc Mememory Block with Size = 0"), 2u);
    EXPECT_EQ(Allocate(*allocator, 10, 64, segment), S_OK);
    EXPECT_EQ(segment->Attach32(allocator.Get(), nullptr, 0, nullptr, 0), E_ACCESSDENIED);
    EXPECT_EQ(allocator->AllocMemoryBlock(10, 3, 0, &raw, &rawSize, &address, &size), S_OK);
    allocator.Reset();
    EXPECT_TRUE(segment->GetAllocator32(allocator.Put()) == S_OK && allocator) << "kept alive";
    segment.Reset();
    allocator = Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    EXPECT_EQ(capture.CountLinesWith("-ERROR- Memory Leak: Outstanding Size: 15 Count: 1"), 1u);
    EXPECT_EQ(allocator->FreeBlock(raw, rawSize), S_OK);
}

// --- Modified service ----------------------------------------------------------------------------

// A chain, in which dependants stand more than once, fail, and remove each other while they are
// touched; at times the last reference on the service goes meanwhile.
class ChangesModel final : public RandomModel
{
public:
    ChangesModel()
    {
        for (std::size_t number = 0; number < 4; ++number)
        {
            mProbes.push_back(TestItem::New());
            mProbes.back()->OnTouch = [=, this]
            {
                return Touch(number);
            };
        }
    }

    ~ChangesModel() override
    {
        for (const auto& probe : mProbes)
            probe->OnTouch = []
            {
                return S_OK;
            };
        const auto disposable = As<IDisposable>(*mService);
        FailingMemory none(0); // neither needs any
        const Result result = mService->TouchModified() + disposable->Dispose();
        (void)none.Stop();
        EXPECT_EQ(result, S_OK);
        for (const auto& probe : mProbes)
            EXPECT_EQ(ReferencesOn(*probe), 1u);
    }

    void Step() override
    {
        const std::uint32_t die = Below(8);
        if (die < 4)
        {
            const std::size_t number = Below(mProbes.size());
            Expect([&] { return mService->AddTouchModified(mProbes[number].Get()); }, S_OK);
            mChain.push_back(number);
            const auto own = As<ITouchModifiedChain>(*mService);
            for (const auto change :
                 {&IModifiedService::AddTouchModified, &IModifiedService::RemoveTouchModified})
                Expect([&] { return (mService.Get()->*change)(own.Get()); }, E_UNEXPECTED,
                       "'this' for pTouch is not allowed");
        }
        else if (die < 6)
            Remove();
        else
        {
            mNext = 0;
            mFirst = S_OK;
            EXPECT_EQ(mService.Get()->TouchModified(), mFirst);
            EXPECT_EQ(mNext, mChain.size());
            ++mCounter;
        }
        if (mService)
            return;
        mService = Make<IModifiedService>(CLSID_ModifiedService);
        mChain.clear();
        mCounter = 0;
    }

    void Check() override
    {
        std::uint32_t counter = 0;
        EXPECT_EQ(mService->GetModifiedCounter(&counter), S_OK);
        EXPECT_EQ(counter, mCounter) << "no refusal counts";
        for (std::size_t number = 0; number < mProbes.size(); ++number)
            EXPECT_EQ(std::int64_t{ReferencesOn(*mProbes[number])},
                      1 + std::ranges::count(mChain, number));
    }

private:
    void Remove()
    {
        const std::size_t number = Below(mProbes.size());
        EXPECT_EQ(mService->RemoveTouchModified(mProbes[number].Get()), S_OK);
        const auto found = std::ranges::find(mChain, number);
        if (found == mChain.end())
            return;
        mNext -= static_cast<std::size_t>(found - mChain.begin()) < mNext ? 1u : 0u;
        mChain.erase(found);
    }

    Result Touch(std::size_t number)
    {
        EXPECT_TRUE(mNext < mChain.size() && mChain[mNext] == number);
        ++mNext;
        const std::uint32_t die = Below(30);
        if (mService && die < 8)
            Remove();
        else if (mService && die == 8)
        {
            const ObserverMaskScope errors(PRINT_ERROR);
            FAILS(mService->AddTouchModified(mProbes[number].Get()), E_UNEXPECTED,
                  "Inner Ring: Touch(ObjA) -> Touch(ObjB) -> ObjA.AddTouchModified()");
            FAILS(As<ITouchModifiedChain>(*mService)->Touch(), E_UNEXPECTED,
                  "Possible Touch-Ring by ITouchModifiedChain detected: "
                  "Touch(ObjA) -> Touch(ObjB) -> Touch(ObjA)");
            FAILS(As<IDisposable>(*mService)->Dispose(), E_UNEXPECTED,
                  "Possible Ring-Disposing: Touch(ObjA) -> Touch(ObjB) -> Dispose(ObjA)");
        }
        else if (die == 9)
            mService.Reset();
        const Result answer = std::array{S_OK, E_ABORT, E_PENDING, S_OK, S_FALSE}[Below(5)];
        mFirst = Failed(mFirst) || !Failed(answer) ? mFirst : answer;
        return answer;
    }

    ObjectPtr<IModifiedService> mService = Make<IModifiedService>(CLSID_ModifiedService);
    std::vector<ObjectPtr<TestItem>> mProbes;
    std::vector<std::size_t> mChain;
    std::size_t mNext = 0; // the dependant whose turn it is
    Result mFirst = S_OK;  // the first failure
    std::uint32_t mCounter = 0;
};

TEST(ModifiedService, TouchesItsChainInOrderWhateverDependantsDoMeanwhile)
{
    RunProgram<ChangesModel>(3000);
}

// --- Object cache stack --------------------------------------------------------------------------

// A queue with a limit on what it makes, and foreign objects among its own.
class CacheModel final : public RandomModel
{
public:
    ~CacheModel() override
    {
        EXPECT_EQ(As<IDisposable>(*mStack)->Dispose(), S_OK);
        for (const auto& item : mKnown)
            EXPECT_EQ(ReferencesOn(*item), 1u);
    }

    void Step() override
    {
        if (!mStack || Below(100) == 0)
        {
            mQueue.clear();
            mMade = 0;
            mLimit = std::array{1u, 5u, 0u, 0x80000000u}[Below(4)];
            mDisposes = Below(2) == 0;
            mStack = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
            const auto create = [this]
            {
                return mStack->Create(CLSID_ModifiedService, IID_IDisposable, mLimit, mDisposes);
            };
            Expect(create, S_OK);
            Expect(create, E_ACCESSDENIED, "Already created");
            const auto wrong = TestItem::New();
            Expect([&] { return mStack->Push(wrong.Get()); }, E_NOINTERFACE,
                   "value must support the IID defined at Create()");
        }
        const std::uint32_t die = Below(20);
        if (die == 0)
        {
            EXPECT_EQ(mStack->Clear(), S_OK);
            for (IUnknown* const item : mQueue)
                EXPECT_EQ(As<IDisposable>(*item)->IsDisposed(), mDisposes ? S_OK : S_FALSE);
            std::erase_if(mKnown, [](const auto& item)
                          { return As<IDisposable>(*item)->IsDisposed() == S_OK; });
            mQueue.clear();
            mMade = 0;
        }
        else if (die < 10 && !mKnown.empty())
        {
            const ObjectPtr<IUnknown> item = mKnown[Below(mKnown.size())];
            Expect([&] { return mStack->Push(item.Get()); }, S_OK);
            mQueue.push_back(item.Get());
        }
        else
            Pop(die < 12);
    }

    void Check() override
    {
        EXPECT_EQ(mStack->IsEmpty(), mQueue.empty() ? S_OK : S_FALSE);
    }

private:
    void Pop(bool isWrong)
    {
        ObjectPtr<IUnknown> item;
        const IID& iid = isWrong ? IID_IList : IID_IUnknown;
        const bool mayMake = mLimit == 0 || mLimit > INT32_MAX || mMade < mLimit;
        const Result expected = mQueue.empty() && !mayMake ? E_FAIL
                                : isWrong                  ? E_NOINTERFACE
                                                           : S_OK;
        Expect([&] { return mStack->Pop(iid, item.PutVoid()); }, expected,
               expected == E_FAIL ? "Too many objects - see maxObjectCount at Create()"
               : expected == S_OK ? ""
               : mQueue.empty()   ? "ClsidObjectCacheStack CreateClassObject(clsid, iid, )"
                                  : "GetItemAt");
        if (expected != S_OK || !item)
            return;
        if (mQueue.empty())
        {
            ++mMade;
            mKnown.push_back(item);
            return;
        }
        EXPECT_EQ(item.Get(), mQueue.front());
        mQueue.pop_front();
    }

    ObjectPtr<IClsidObjectCacheStack> mStack;
    std::uint32_t mLimit = 0;
    std::uint32_t mMade = 0;
    bool mDisposes = false;
    std::deque<IUnknown*> mQueue;
    std::vector<ObjectPtr<IUnknown>> mKnown;
};

TEST(ObjectCacheStack, HandsOutWhatCameInFirstAndMakesNoMoreObjectsThanItMay)
{
    RunProgram<CacheModel>(4000);
}

TEST(ObjectCacheStack, CachedObjectsMayCallBackWhileTheyAreDisposedOfAndGo)
{
    int deaths = 0;
    const auto value = Make<IValue>(CLSID_Value);
    const auto stack = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
    EXPECT_EQ(stack->Create(CLSID_ModifiedService, IID_IUnknown, 1, 1), S_OK);
    const auto onDeath = [&]
    {
        ++deaths;
        // Another thread waits for ever if the lock is held.
        std::jthread([&] { EXPECT_EQ(stack->Push(value.Get()), S_OK); });
    };
    const auto service = Make<IModifiedService>(CLSID_ModifiedService);
    EXPECT_EQ(service->AddTouchModified(TestItem::New(onDeath).Get()), S_OK);
    EXPECT_EQ(stack->Push(service.Get()), S_OK);
    EXPECT_EQ(stack->Push(TestItem::New(onDeath).Get()), S_OK);
    EXPECT_EQ(stack->Clear(), S_OK);
    EXPECT_EQ(deaths, 2);
}

// A disposal refuses others at once, and waits for who holds the lock.
TEST(ConcurrentObjectCacheStack, NoObjectIsInTwoHandsOrLeftInsideAndAHeldLockKeepsOthersOut)
{
    for (int round = 0; round < 60; ++round)
    {
        const auto stack = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
        const auto lock = As<IObjectLock>(*stack);
        EXPECT_EQ(stack->Create(CLSID_Value, IID_IValue, 8, 1), S_OK);
        ObjectPtr<IValue> last[4];
        const auto use = [&](std::uint32_t thread)
        {
            const auto own = static_cast<std::int32_t>(thread);
            std::int32_t holder = 0;
            ObjectPtr<IValue> item;
            while (stack->Pop(IID_IValue, item.PutVoid()) == S_OK)
            {
                last[thread] = item;
                EXPECT_EQ(SetValueSINT32(item.Get(), own), S_OK);
                std::this_thread::yield();
                EXPECT_TRUE(GetValueSINT32(item.Get(), &holder) == S_OK && holder == own);
                (void)stack->Push(item.Get());
            }
        };
        std::jthread users([&] { InThreads(4, use); });
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        EXPECT_EQ(lock->Lock(0) + stack->Clear(), S_OK);
        std::this_thread::sleep_for(std::chrono::microseconds(500));
        EXPECT_EQ(stack->IsEmpty(), S_OK);
        std::jthread disposer([&] { EXPECT_EQ(As<IDisposable>(*stack)->Dispose(), S_OK); });
        while (stack->IsEmpty() == S_OK)
            std::this_thread::yield();
        std::jthread([&] { EXPECT_EQ(stack->Create({}, {}, 0, 0), E_DISPOSED); }).join();
        EXPECT_EQ(lock->Unlock(), S_OK);
        disposer.join();
        EXPECT_EQ(lock->Unlock(), E_DISPOSED);
        users.join();
        for (const auto& item : last)
            EXPECT_TRUE(!item || ReferencesOn(*item) ==
                                     std::ranges::count(last, item.Get(), &ObjectPtr<IValue>::Get));
    }
}

} // namespace

} // namespace Tavrik::Ossira
