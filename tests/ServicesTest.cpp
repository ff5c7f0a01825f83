// The memory allocator and its segments, the modified service and the object cache stack, and how
// the services do without memory.
#include "FailingMemory.h"
#include "OssiraDatatypes.h"
#include "ServiceTools.h"
#include "TestItem.h"

#include <algorithm>
#include <future>
#include <map>
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

using Statistics = std::vector<std::int64_t>; // bytes, blocks, most blocks, least and greatest size

Statistics StatisticsOf(ICommonMemoryAllocator32& allocator)
{
    std::uint64_t bytes = 1;
    std::int32_t count = 1, peak = 1;
    std::uint32_t least = 1, greatest = 1;
    EXPECT_EQ(allocator.GetStatistics(&bytes, &count, &peak, &least, &greatest), S_OK);
    return {static_cast<std::int64_t>(bytes), count, peak, least, greatest};
}

TEST(Memory, SegmentsAreAlignedAndZeroedAndTheirSizesMultiplesOfTheAlignment)
{
    const auto allocator = Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    ObjectPtr<IMemorySegment32> segment;
    for (std::uint32_t alignment = 0; alignment <= 1024; ++alignment)
    {
        const std::uint32_t unit = std::bit_ceil(std::max(alignment, 1u));
        for (const std::uint32_t size : {1u, 1025u, alignment < 1024 ? 10u : 99999999u})
        {
            segment.Reset();
            ASSERT_EQ(Allocate(*allocator, size, alignment, segment), S_OK);
            const std::uint32_t usable = segment->GetSize();
            ASSERT_EQ(usable, (size + unit - 1) / unit * unit);
            ASSERT_EQ(StatisticsOf(*allocator)[0], usable + unit - 1);
            auto* const first = static_cast<std::uint8_t*>(segment->GetAddress());
            ASSERT_EQ(reinterpret_cast<std::uintptr_t>(first) % unit, 0u);
            ASSERT_EQ(std::count(first, first + usable, 0), usable);
            std::fill_n(first, usable, std::uint8_t{0xA5}); // the next one may find this
        }
    }
}

TEST(Memory, WhatCannotBeAllocatedIsRefusedAndWhatIsAllocatedCountsUntilItIsGivenBack)
{
    auto allocator = Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    ObjectPtr<IMemorySegment32> segment;
    void *raw = nullptr, *address = nullptr;
    std::uint32_t rawSize = 0, size = 0;
    const auto allocateBlock = [&](std::uint32_t byteSize, std::uint32_t alignment)
    {
        return allocator->AllocMemoryBlock(byteSize, alignment, 0, &raw, &rawSize, &address, &size);
    };
    FAILS(allocateBlock(100000000, 1), E_INVALIDARG, "byteSize >= 0 && byteSize < 100000000");
    FAILS(allocateBlock(1, 1025), E_INVALIDARG, "aligment >= 0 && aligment <= 1024");
    const ObserverMaskScope warnings(PRINT_ERROR | PRINT_WARN);
    const DiagnosticsCapture capture;
    EXPECT_EQ(allocateBlock(0, 16), E_INVALIDARG);
    EXPECT_EQ(Allocate(*allocator, 0, 1, segment), E_INVALIDARG); // which is tried a second time
    EXPECT_EQ(capture.CountLinesWith("-WARN- Alloc Mememory Block with Size = 0"), 3u);

    EXPECT_EQ(Allocate(*allocator, 10, 64, segment), S_OK);
    EXPECT_EQ(segment->Attach32(allocator.Get(), nullptr, 0, nullptr, 0), E_ACCESSDENIED);
    EXPECT_EQ(allocateBlock(10, 3), S_OK);
    EXPECT_EQ(StatisticsOf(*allocator), (Statistics{142, 2, 2, 15, 127}));
    allocator.Reset();
    EXPECT_EQ(segment->GetAllocator32(allocator.Put()), S_OK) << "kept alive";
    segment.Reset();
    EXPECT_EQ(StatisticsOf(*allocator), (Statistics{15, 1, 2, 15, 127}));
    allocator = Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    EXPECT_EQ(capture.CountLinesWith("-ERROR- Memory Leak: Outstanding Size: 15 Count: 1"), 1u);
    EXPECT_EQ(allocator->FreeBlock(nullptr, 50), S_OK);
    EXPECT_EQ(allocator->FreeBlock(raw, rawSize), S_OK);
}

// --- Modified service ----------------------------------------------------------------------------

TEST(ModifiedService, DependantsMayChangeTheChainWhileTouchedAndNobodyAfterDisposal)
{
    struct
    {
        std::string Chain;
        std::string Removed; // by 0 when it is first touched; x: the last reference on the service
        std::string Touched;
    } const cases[] = {{"102", "0", "102"}, {"120", "0", "120"},  {"012", "1", "02"},
                       {"102", "1", "102"}, {"102", "210", "10"}, {"011", "1", "01"},
                       {"101", "1", "101"}, {"010", "0", "010"},  {"021", "x", "021"}};
    for (const auto& [chain, removed, touched] : cases)
    {
        const Result answers[] = {S_OK, E_ABORT, E_PENDING};
        auto service = Make<IModifiedService>(CLSID_ModifiedService);
        std::string log;
        std::map<char, ObjectPtr<TestItem>> probes;
        for (const char name : {'0', '1', '2'})
        {
            probes[name] = TestItem::New();
            probes[name]->OnTouch = [&, name]
            {
                log += name;
                if (name != '0' || std::ranges::count(log, name) > 1)
                    return answers[name - '0'];
                FAILS(As<ITouchModifiedChain>(*service)->Touch(), E_UNEXPECTED,
                      "Possible Touch-Ring by ITouchModifiedChain detected: "
                      "Touch(ObjA) -> Touch(ObjB) -> Touch(ObjA)");
                FAILS(service->AddTouchModified(probes['1'].Get()), E_UNEXPECTED,
                      "Inner Ring: Touch(ObjA) -> Touch(ObjB) -> ObjA.AddTouchModified()");
                FAILS(As<IDisposable>(*service)->Dispose(), E_UNEXPECTED,
                      "Possible Ring-Disposing: Touch(ObjA) -> Touch(ObjB) -> Dispose(ObjA)");
                for (const char each : removed)
                {
                    if (each == 'x')
                        service.Reset();
                    else
                        EXPECT_EQ(service->RemoveTouchModified(probes[each].Get()), S_OK);
                }
                return S_OK;
            };
        }
        for (const char each : chain)
            EXPECT_EQ(service->AddTouchModified(probes[each].Get()), S_OK);
        const Result firstFailure = answers[touched[touched.find_first_of("12")] - '0'];
        EXPECT_EQ(service.Get()->TouchModified(), firstFailure);
        EXPECT_EQ(log, touched) << removed << " removed from " << chain;
        if (!service)
            continue;
        std::uint32_t counter = 0;
        EXPECT_EQ(service->GetModifiedCounter(&counter), S_OK);
        EXPECT_EQ(counter, 1u) << "no refusal counts";
        FAILS(service->AddTouchModified(As<ITouchModifiedChain>(*service).Get()), E_UNEXPECTED,
              "'this' for pTouch is not allowed");
        FAILS(As<IDisposable>(*service)->Dispose(), S_OK, ""); // the touch is over
        EXPECT_EQ(ReferencesOn(*probes['1']), 1u);
    }
}

// Nor does the touch or the disposal need any memory.
TEST(ConcurrentModifiedService, NoTouchOfAnotherThreadCallsADependantThatIsRemoved)
{
    for (int round = 0; round < 300; ++round)
    {
        const auto service = Make<IModifiedService>(CLSID_ModifiedService);
        const auto dependant = TestItem::New();
        std::atomic<bool> isRemoved = false;
        std::atomic<int> missing = 3;
        dependant->OnTouch = [&]
        {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            EXPECT_FALSE(isRemoved);
            return S_OK;
        };
        for (int entry = 0; entry < 2; ++entry)
            EXPECT_EQ(service->AddTouchModified(dependant.Get()), S_OK);
        const auto remove = [&]
        {
            Meet(missing);
            std::this_thread::sleep_for(std::chrono::microseconds(round % 200));
            EXPECT_EQ(service->RemoveTouchModified(dependant.Get()), S_OK);
        };
        std::jthread toucher(
            [&]
            {
                Meet(missing);
                FailingMemory memory(0, Shortage::FromThenOn);
                EXPECT_EQ(service->TouchModified(), S_OK);
            });
        std::jthread other(remove);
        remove();
        other.join();
        isRemoved = true;
        EXPECT_EQ(ReferencesOn(*dependant), 1u);
        toucher.join();
        FailingMemory memory(0, Shortage::FromThenOn);
        EXPECT_EQ(As<IDisposable>(*service)->Dispose(), S_OK);
    }
}

// --- Object cache stack --------------------------------------------------------------------------

ObjectPtr<IUnknown> Pop(IStack& stack)
{
    ObjectPtr<IUnknown> item;
    EXPECT_EQ(stack.Pop(IID_IUnknown, item.PutVoid()), S_OK);
    return item;
}

TEST(ObjectCacheStack, HandsOutWhatCameInFirstAndMakesNoMoreObjectsThanItMay)
{
    // +: pops a new object; !: pops none; A: pushes the first one; a: pops it; -: clears.
    const std::map<std::uint32_t, std::string> cases = {{2, "++!AaBAba!AABaab!AAa-++!C-+"},
                                                        {0x80000000, "+++AaBC-+++"},
                                                        {0, std::string(100, '+')}};
    for (const auto& [limit, steps] : cases)
    {
        const auto stack = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
        EXPECT_EQ(stack->Create(CLSID_Value, IID_IUnknown, limit, 0), S_OK);
        std::vector<ObjectPtr<IUnknown>> made;
        ObjectPtr<IUnknown> item;
        for (const char step : steps)
        {
            const auto number = static_cast<std::size_t>(step) % 32 - 1;
            if (step == '+')
                made.push_back(Pop(*stack));
            else if (step == '!')
                FAILS(stack->Pop(IID_IUnknown, item.PutVoid()), E_FAIL,
                      "Too many objects - see maxObjectCount at Create()");
            else if (step == '-')
                EXPECT_EQ(stack->Clear(), S_OK);
            else if (step < 'a')
                EXPECT_EQ(stack->Push(made[number].Get()), S_OK);
            else
                EXPECT_EQ(Pop(*stack).Get(), made[number].Get()) << steps;
        }
    }
}

TEST(ObjectCacheStack, MisuseIsRefused)
{
    const auto stack = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
    const auto lock = As<IObjectLock>(*stack);
    const auto value = Make<IValue>(CLSID_Value); // a foreign object
    ObjectPtr<IUnknown> item;
    FAILS(stack->Create(CLSID_Value, IID_IValue, 5, 0), S_OK, "");
    FAILS(stack->Create(CLSID_Value, IID_IValue, 5, 0), E_ACCESSDENIED, "Already created");
    FAILS(stack->Push(lock.Get()), E_NOINTERFACE, "value must support the IID defined at Create()");
    FAILS(stack->Push(value.Get()), S_OK, "");
    FAILS(stack->Pop(IID_IList, item.PutVoid()), E_NOINTERFACE, "GetItemAt");
    FAILS(stack->IsEmpty(), S_FALSE, ""); // it stayed
    FAILS(As<IDisposable>(*stack)->Dispose(), S_OK, "");
    EXPECT_EQ(ReferencesOn(*value), 1u);
}

TEST(ObjectCacheStack, CachedObjectsAreDisposedWhereAskedForAndMayCallBackWhileTheyGo)
{
    for (const std::uint8_t asked : {std::uint8_t{0}, std::uint8_t{1}})
    {
        int deaths = 0;
        const auto value = Make<IValue>(CLSID_Value);
        const auto stack = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
        EXPECT_EQ(stack->Create(CLSID_ModifiedService, IID_IUnknown, 1, asked), S_OK);
        const auto service = Pop(*stack);
        const auto onDeath = [&]
        {
            ++deaths;
            // Another thread waits for ever if the lock is held.
            std::jthread([&] { EXPECT_EQ(stack->Push(value.Get()), S_OK); });
        };
        EXPECT_EQ(As<IModifiedService>(*service)->AddTouchModified(TestItem::New(onDeath).Get()),
                  S_OK);
        EXPECT_EQ(stack->Push(service.Get()), S_OK);
        EXPECT_EQ(stack->Push(TestItem::New(onDeath).Get()), S_OK);
        EXPECT_EQ(stack->Clear(), S_OK);
        EXPECT_EQ(deaths, 1 + asked);
        EXPECT_EQ(As<IDisposable>(*service)->IsDisposed(), asked != 0 ? S_OK : S_FALSE);
    }
}

TEST(ConcurrentObjectCacheStack, NoObjectIsInTwoHandsAndAHeldLockKeepsOthersOut)
{
    const auto stack = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
    EXPECT_EQ(stack->Create(CLSID_Value, IID_IValue, 8, 0), S_OK);
    const auto work = [&](std::uint32_t thread)
    {
        const auto own = static_cast<std::int32_t>(thread);
        for (int round = 0; round < 500; ++round)
        {
            const auto item = As<IValue>(*Pop(*stack));
            std::int32_t holder = 0;
            EXPECT_EQ(SetValueSINT32(item.Get(), own), S_OK);
            std::this_thread::yield();
            EXPECT_TRUE(GetValueSINT32(item.Get(), &holder) == S_OK && holder == own);
            EXPECT_EQ(stack->Push(item.Get()), S_OK);
        }
    };
    InThreads(8, work);
    EXPECT_EQ(As<IObjectLock>(*stack)->Lock(0), S_OK);
    auto popped = std::async(std::launch::async, [&] { return Pop(*stack); });
    EXPECT_EQ(popped.wait_for(std::chrono::milliseconds(20)), std::future_status::timeout);
    EXPECT_EQ(As<IObjectLock>(*stack)->Unlock(), S_OK);
}

TEST(ConcurrentObjectCacheStack, DisposalWaitsForTheLockNeedsNoMemoryAndLeavesNothingInside)
{
    for (int round = 0; round < 60; ++round)
    {
        const auto value = Make<IValue>(CLSID_Value);
        const auto stack = Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
        const auto lock = As<IObjectLock>(*stack);
        EXPECT_EQ(stack->Create(CLSID_Value, IID_IValue, 1, 1), S_OK);
        const bool holds = round % 10 == 0;
        std::atomic<int> missing = 2;
        const Result locked = holds ? lock->Lock(0) : S_OK;
        std::jthread disposer(
            [&]
            {
                Meet(missing);
                FailingMemory memory(0, Shortage::FromThenOn);
                EXPECT_EQ(As<IDisposable>(*stack)->Dispose(), S_OK);
            });
        Meet(missing);
        Result pushed = S_OK;
        while (pushed == S_OK)
            pushed = stack->Push(value.Get());
        EXPECT_EQ(pushed, E_DISPOSED);
        EXPECT_EQ(locked, S_OK);
        EXPECT_EQ(holds ? lock->Unlock() : S_OK, S_OK);
        disposer.join();
        FAILS(lock->Unlock(), E_DISPOSED, "UnlockObject");
        EXPECT_EQ(ReferencesOn(*value), 1u);
    }
}

} // namespace

} // namespace Tavrik::Ossira
