// The memory allocator and its segments, the modified service and the object cache stack.
#include "FailingMemory.h"
#include "OssiraCacheStack.h"
#include "OssiraMemory.h"
#include "OssiraModified.h"
#include "ServiceTools.h"
#include "TestItem.h"

#include <algorithm>
#include <barrier>
#include <cstring>
#include <future>
#include <mutex>
#include <set>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr int ThreadCount = 8;

template <class Work>
void RunThreads(Work work)
{
    std::barrier start(ThreadCount);
    std::vector<std::jthread> threads;
    for (int number = 0; number < ThreadCount; ++number)
    {
        threads.emplace_back(
            [&, number]
            {
                start.arrive_and_wait();
                work(number);
            });
    }
}

// An object with interfaces of its own: what its operations do is up to the test.
class Probe final : public ITouchModifiedChain, public IDisposable
{
public:
    [[nodiscard]] static ObjectPtr<Probe> New(std::function<Result()> action = {})
    {
        return ObjectPtr<Probe>(new Probe(std::move(action)));
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        *out = nullptr;
        if (SameGuid(iid, IID_IDisposable))
            *out = static_cast<IDisposable*>(this);
        else if (SameGuid(iid, IID_IUnknown) || SameGuid(iid, IID_ITouchModifiedChain))
            *out = static_cast<ITouchModifiedChain*>(this);
        return *out == nullptr ? E_NOINTERFACE : static_cast<Result>(AddRef(), S_OK);
    }

    std::uint32_t AddRef() override
    {
        return ++mCount;
    }

    std::uint32_t Release() override
    {
        const std::uint32_t count = --mCount;
        if (count == 0)
            delete this;
        return count;
    }

    Result Touch() override
    {
        ++Touches;
        return mAction ? mAction() : S_OK;
    }

    Result Dispose() override
    {
        ++Disposals;
        return mAction ? mAction() : S_OK;
    }

    Result IsDisposed() override
    {
        return S_FALSE;
    }

    std::atomic<int> Touches = 0;
    std::atomic<int> Disposals = 0;

private:
    explicit Probe(std::function<Result()> action) : mAction(std::move(action))
    {
    }

    ~Probe() = default;

    std::atomic<std::uint32_t> mCount = 0;
    std::function<Result()> mAction;
};

template <class Interface, class Object>
ObjectPtr<Interface> As(const ObjectPtr<Object>& object)
{
    ObjectPtr<Interface> answer;
    EXPECT_EQ(object.QueryTo(answer), S_OK);
    return answer;
}

// --- Memory --------------------------------------------------------------------------------------

struct Block
{
    void* Raw = nullptr;
    std::uint32_t RawSize = 0;
    void* Address = nullptr;
    std::uint32_t Size = 0;
};

Result Allocate(ICommonMemoryAllocator32& allocator, std::uint32_t size, std::uint32_t alignment,
                std::uint32_t flags, Block& block)
{
    return allocator.AllocMemoryBlock(size, alignment, flags, &block.Raw, &block.RawSize,
                                      &block.Address, &block.Size);
}

struct Statistics
{
    std::uint64_t Bytes = 1;
    std::int32_t Count = 1;
    std::int32_t Peak = 1;
    std::uint32_t Min = 1;
    std::uint32_t Max = 1;

    bool operator==(const Statistics&) const = default;
};

Statistics StatisticsOf(ICommonMemoryAllocator32& allocator)
{
    Statistics all;
    EXPECT_EQ(allocator.GetStatistics(nullptr, nullptr, nullptr, nullptr, nullptr), S_OK);
    EXPECT_EQ(allocator.GetStatistics(&all.Bytes, &all.Count, &all.Peak, &all.Min, &all.Max), S_OK);
    return all;
}

ObjectPtr<ICommonMemoryAllocator32> MakeAllocator()
{
    return Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
}

ObjectPtr<IMemorySegment32> AllocateSegment(ICommonMemoryAllocator32& allocator, std::uint32_t size,
                                            std::uint32_t alignment)
{
    ObjectPtr<IMemorySegment32> segment;
    EXPECT_EQ(
        allocator.AllocMemorySegment32(size, alignment, 0, IID_IMemorySegment32, segment.PutVoid()),
        S_OK);
    return segment;
}

TEST(Memory, ABlockIsAlignedAndItsSizeAMultipleOfTheAlignment)
{
    struct
    {
        std::uint32_t Size;
        std::uint32_t Alignment;
        std::uint32_t Unit;
        std::uint32_t Usable;
    } const cases[] = {{1, 0, 1, 1},
                       {7, 1, 1, 7},
                       {7, 2, 2, 8},
                       {10, 3, 4, 12},
                       {10, 4, 4, 12},
                       {1, 5, 8, 8},
                       {16, 9, 16, 16},
                       {17, 16, 16, 32},
                       {1, 33, 64, 64},
                       {1, 257, 512, 512},
                       {1, 513, 1024, 1024},
                       {1025, 1024, 1024, 2048},
                       {99999999, 1, 1, 99999999},
                       {99999999, 1024, 1024, 100000768}};
    const auto allocator = MakeAllocator();
    for (const auto& [size, alignment, unit, usable] : cases)
    {
        for (const std::uint32_t flags : {0u, MEMORY_ZEROED})
        {
            Block block;
            ASSERT_EQ(Allocate(*allocator, size, alignment, flags, block), S_OK);
            EXPECT_EQ(block.Size, usable);
            EXPECT_EQ(block.RawSize, usable + unit - 1);
            EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block.Address) % unit, 0u);
            auto* const first = static_cast<std::uint8_t*>(block.Address);
            auto* const raw = static_cast<std::uint8_t*>(block.Raw);
            EXPECT_GE(first, raw);
            EXPECT_LE(first + block.Size, raw + block.RawSize);
            // The next block may find what is written here; of large ones the ends are enough.
            const std::uint32_t end = std::min(usable, 5000u);
            std::uint8_t* const parts[] = {first, first + usable - end};
            for (const std::uint8_t* const part : parts)
                EXPECT_TRUE(flags == 0 || std::count(part, part + end, 0) == end);
            for (std::uint8_t* const part : parts)
                std::memset(part, 0xA5, end);
            EXPECT_EQ(allocator->FreeBlock(block.Raw, block.RawSize), S_OK);
        }
    }
}

TEST(Memory, WhatCannotBeAllocatedIsRefused)
{
    const auto allocator = MakeAllocator();
    Block block;
    ObjectPtr<IMemorySegment32> segment;
    const auto allocateSegment =
        [&](std::uint32_t size, std::uint32_t alignment, const IID& iid = IID_IMemorySegment32)
    {
        return allocator->AllocMemorySegment32(size, alignment, 0, iid, segment.PutVoid());
    };
    struct
    {
        std::uint32_t Size;
        std::uint32_t Alignment;
        const char* Text;
    } const cases[] = {{100000000, 1, "byteSize >= 0 && byteSize < 100000000"},
                       {0xFFFFFFFF, 1, "byteSize >= 0 && byteSize < 100000000"},
                       {1, 1025, "aligment >= 0 && aligment <= 1024"},
                       {1, 0xFFFFFFFF, "aligment >= 0 && aligment <= 1024"}};
    for (const auto& [size, alignment, text] : cases)
    {
        FAILS(Allocate(*allocator, size, alignment, 0, block), E_INVALIDARG, text);
        FAILS(allocateSegment(size, alignment), E_INVALIDARG, text);
    }
    FAILS(allocateSegment(1, 1, IID_IUnknown), E_INVALIDARG, "riid == IID_IMemorySegment32");
    FAILS(allocator->AllocMemorySegment32(1, 1, 0, IID_IMemorySegment32, nullptr), E_POINTER,
          "ppv");
    for (int missing = 0; missing < 4; ++missing)
    {
        FAILS(allocator->AllocMemoryBlock(1, 1, 0, missing == 0 ? nullptr : &block.Raw,
                                          missing == 1 ? nullptr : &block.RawSize,
                                          missing == 2 ? nullptr : &block.Address,
                                          missing == 3 ? nullptr : &block.Size),
              E_POINTER,
              "ppPhyAddr != NULL && pPhySize != NULL && ppAddr != NULL && pSize != NULL");
    }
    const ObserverMaskScope warnings(PRINT_ERROR | PRINT_WARN);
    const DiagnosticsCapture capture;
    constexpr const char* sizeOfNothing = "-WARN- Alloc Mememory Block with Size = 0";
    EXPECT_EQ(Allocate(*allocator, 0, 16, 0, block), E_INVALIDARG);
    EXPECT_EQ(capture.CountLinesWith(sizeOfNothing), 1u);
    EXPECT_EQ(allocateSegment(0, 1), E_INVALIDARG);
    EXPECT_EQ(capture.CountLinesWith(sizeOfNothing), 3u) << "it is tried a second time";
    EXPECT_EQ(capture.CountLinesWith(" AllocBlock: "), 1u);
    EXPECT_EQ(StatisticsOf(*allocator), (Statistics{0, 0, 0, 0, 0})) << "none of them counts";
}

TEST(Memory, AnAllocatorTellsOfBlocksThatWereNotGivenBack)
{
    Block block;
    {
        const DiagnosticsCapture capture;
        ASSERT_EQ(Allocate(*MakeAllocator(), 10, 3, 0, block), S_OK);
        EXPECT_EQ(capture.CountLinesWith("-ERROR- Memory Leak: Outstanding Size: 15 Count: 1"), 1u);
    }
    const DiagnosticsCapture capture;
    EXPECT_EQ(MakeAllocator()->FreeBlock(block.Raw, block.RawSize), S_OK);
    EXPECT_EQ(capture.Text(), "");
}

TEST(Memory, ASegmentGivesItsBlockBackAndKeepsItsAllocatorUntilThen)
{
    const DiagnosticsCapture capture;
    auto allocator = MakeAllocator();
    auto segment = AllocateSegment(*allocator, 10, 64);
    EXPECT_EQ(segment->GetSize(), 64u);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(segment->GetAddress()) % 64, 0u);
    std::memset(segment->GetAddress(), 1, segment->GetSize());
    {
        const auto other = AllocateSegment(*allocator, 1, 1);
        EXPECT_EQ(StatisticsOf(*allocator), (Statistics{128, 2, 2, 1, 127}));
    }
    EXPECT_EQ(StatisticsOf(*allocator), (Statistics{127, 1, 2, 1, 127}));

    const std::uint32_t objects = GetObjectOpenCount();
    const ICommonMemoryAllocator32* const address = allocator.Get();
    allocator.Reset();
    EXPECT_EQ(GetObjectOpenCount(), objects);
    EXPECT_EQ(segment->GetAllocator32(allocator.Put()), S_OK);
    EXPECT_EQ(allocator.Get(), address);
    EXPECT_EQ(ReferencesOn(*allocator), 2u);
    allocator.Reset();
    segment.Reset();
    EXPECT_EQ(GetObjectOpenCount(), objects - 2);
    EXPECT_EQ(capture.Text(), "") << "nothing leaked";
}

// --- Modified service ----------------------------------------------------------------------------

constexpr const char* RingText = "Possible Touch-Ring by ITouchModifiedChain detected: "
                                 "Touch(ObjA) -> Touch(ObjB) -> Touch(ObjA)";

ObjectPtr<IModifiedService> MakeService()
{
    return Make<IModifiedService>(CLSID_ModifiedService);
}

ObjectPtr<ITouchModifiedChain> ChainOf(const ObjectPtr<IModifiedService>& service)
{
    return As<ITouchModifiedChain>(service);
}

std::uint32_t CounterOf(IModifiedService& service)
{
    std::uint32_t counter = 0xDEAD;
    EXPECT_EQ(service.GetModifiedCounter(&counter), S_OK);
    return counter;
}

TEST(ModifiedService, AChangeIsCountedAndTravelsAlongTheChain)
{
    const auto a = MakeService();
    const auto b = MakeService();
    const auto c = MakeService();
    EXPECT_EQ(CounterOf(*a), 0u);
    EXPECT_EQ(a->AddTouchModified(ChainOf(b).Get()), S_OK);
    EXPECT_EQ(a->AddTouchModified(ChainOf(c).Get()), S_OK);
    EXPECT_EQ(b->AddTouchModified(ChainOf(c).Get()), S_OK);
    EXPECT_EQ(b->AddTouchModified(ChainOf(c).Get()), S_OK); // twice
    for (int touch = 0; touch < 3; ++touch)
        EXPECT_EQ(a->TouchModified(), S_OK);
    EXPECT_EQ(ChainOf(b)->Touch(), S_OK);
    EXPECT_EQ(CounterOf(*a), 3u);
    EXPECT_EQ(CounterOf(*b), 4u);
    EXPECT_EQ(CounterOf(*c), 3u + 2u * 4u);

    EXPECT_EQ(b->RemoveTouchModified(ChainOf(c).Get()), S_OK);
    EXPECT_EQ(a->RemoveTouchModified(ChainOf(c).Get()), S_OK);
    EXPECT_EQ(a->RemoveTouchModified(ChainOf(c).Get()), S_OK); // is not there any more
    EXPECT_EQ(c->RemoveTouchModified(ChainOf(a).Get()), S_OK); // never was
    EXPECT_EQ(a->TouchModified(), S_OK);
    EXPECT_EQ(CounterOf(*c), 11u + 1u);
}

TEST(ModifiedService, ARingIsRefusedWhereItClosesAndLeavesNoTrace)
{
    const auto a = MakeService();
    const auto b = MakeService();
    EXPECT_EQ(a->AddTouchModified(ChainOf(b).Get()), S_OK);
    EXPECT_EQ(b->AddTouchModified(ChainOf(a).Get()), S_OK);
    for (std::uint32_t touch = 1; touch <= 2; ++touch)
    {
        FAILS(a->TouchModified(), E_UNEXPECTED, RingText);
        EXPECT_EQ(CounterOf(*a), touch);
        EXPECT_EQ(CounterOf(*b), touch);
    }
    EXPECT_EQ(b->RemoveTouchModified(ChainOf(a).Get()), S_OK);
    EXPECT_EQ(a->TouchModified(), S_OK);
    EXPECT_EQ(CounterOf(*b), 3u);
}

TEST(ModifiedService, MisuseIsRefused)
{
    const auto service = MakeService();
    const auto own = ChainOf(service);
    const auto probe = Probe::New();
    constexpr const char* self = "'this' for pTouch is not allowed";
    FAILS(service->GetModifiedCounter(nullptr), E_POINTER, "pCounter");
    FAILS(service->AddTouchModified(nullptr), E_POINTER, "pTouch");
    FAILS(service->RemoveTouchModified(nullptr), E_POINTER, "pTouch");
    FAILS(service->AddTouchModified(own.Get()), E_UNEXPECTED, self);
    FAILS(service->RemoveTouchModified(own.Get()), E_UNEXPECTED, self);

    const auto disposable = As<IDisposable>(service);
    EXPECT_EQ(service->AddTouchModified(probe.Get()), S_OK);
    EXPECT_EQ(disposable->IsDisposed(), S_FALSE);
    EXPECT_EQ(disposable->Dispose(), S_OK);
    EXPECT_EQ(ReferencesOn(*static_cast<ITouchModifiedChain*>(probe.Get())), 1u);
    EXPECT_EQ(disposable->IsDisposed(), S_OK);
    std::uint32_t counter = 0;
    FAILS(service->GetModifiedCounter(&counter), E_DISPOSED, "GetModifiedCounter");
    FAILS(service->TouchModified(), E_DISPOSED, "TouchModified");
    FAILS(own->Touch(), E_DISPOSED, "TouchModified");
    FAILS(service->AddTouchModified(probe.Get()), E_DISPOSED, "AddTouchModified");
    FAILS(service->RemoveTouchModified(probe.Get()), E_DISPOSED, "RemoveTouchModified");
    FAILS(disposable->Dispose(), S_OK, "");
}

TEST(ModifiedService, DependantsMayChangeTheChainWhileTheyAreTouched)
{
    struct
    {
        const char* What;
        std::vector<int> Chain;   // 0 is the one that acts at its first touch
        std::vector<int> Removed; // by it
        std::vector<int> Touches; // of 0, 1, 2
    } const cases[] = {
        {"itself", {1, 0, 2}, {0}, {1, 1, 1}},
        {"itself, at the end", {1, 2, 0}, {0}, {1, 1, 1}},
        {"the next one", {0, 1, 2}, {1}, {1, 0, 1}},
        {"the last one", {0, 1, 2}, {2}, {1, 1, 0}},
        {"the former one", {1, 0, 2}, {1}, {1, 1, 1}},
        {"all", {1, 0, 2}, {2, 1, 0}, {1, 1, 0}},
        {"one of two entries to come", {0, 1, 1}, {1}, {1, 1, 0}},
        {"the first of two entries", {1, 0, 1}, {1}, {1, 2, 0}},
        {"itself, which is in it twice", {0, 1, 0}, {0}, {2, 1, 0}},
    };
    for (const auto& [what, chain, removed, touches] : cases)
    {
        const auto service = MakeService();
        std::vector<ObjectPtr<Probe>> probes;
        bool acted = false;
        probes.push_back(Probe::New(
            [&]
            {
                for (const int number : acted ? std::vector<int>() : removed)
                    EXPECT_EQ(service->RemoveTouchModified(
                                  probes[static_cast<std::size_t>(number)].Get()),
                              S_OK);
                acted = true;
                return S_OK;
            }));
        probes.push_back(Probe::New());
        probes.push_back(Probe::New());
        for (const int number : chain)
            EXPECT_EQ(service->AddTouchModified(probes[static_cast<std::size_t>(number)].Get()),
                      S_OK);
        EXPECT_EQ(service->TouchModified(), S_OK) << what;
        for (std::size_t number = 0; number < probes.size(); ++number)
            EXPECT_EQ(probes[number]->Touches, touches[number]) << what << ", number " << number;
    }
}

// --- Object cache stack --------------------------------------------------------------------------

ObjectPtr<IClsidObjectCacheStack> MakeStack()
{
    return Make<IClsidObjectCacheStack>(CLSID_ClsidObjectCacheStack);
}

ObjectPtr<IClsidObjectCacheStack> MakeStack(std::uint32_t maxObjectCount,
                                            const CLSID& clsid = CLSID_Value,
                                            const IID& iid = IID_IUnknown, std::uint8_t dispose = 0)
{
    auto stack = MakeStack();
    EXPECT_EQ(stack->Create(clsid, iid, maxObjectCount, dispose), S_OK);
    return stack;
}

ObjectPtr<IUnknown> Pop(IStack& stack)
{
    ObjectPtr<IUnknown> item;
    EXPECT_EQ(stack.Pop(IID_IUnknown, item.PutVoid()), S_OK);
    return item;
}

TEST(ObjectCacheStack, MakesNoMoreObjectsThanItMay)
{
    const auto stack = MakeStack(2);
    ObjectPtr<IUnknown> item;
    const auto expectTooMany = [&]
    {
        FAILS(stack->Pop(IID_IUnknown, item.PutVoid()), E_FAIL,
              "Too many objects - see maxObjectCount at Create()");
    };
    const auto first = Pop(*stack);
    const auto second = Pop(*stack);
    expectTooMany();
    EXPECT_EQ(stack->Push(first.Get()), S_OK);
    EXPECT_EQ(Pop(*stack).Get(), first.Get());
    expectTooMany();
    EXPECT_EQ(stack->Push(first.Get()), S_OK);
    EXPECT_EQ(stack->Push(first.Get()), S_OK); // twice
    EXPECT_EQ(stack->Clear(), S_OK);
    EXPECT_EQ(stack->IsEmpty(), S_OK);
    EXPECT_EQ(ReferencesOn(*first), 1u);
    const auto third = Pop(*stack);
    const auto fourth = Pop(*stack);
    expectTooMany();

    for (const std::uint32_t unlimited : {0u, 0x80000000u, 0xFFFFFFFFu})
    {
        const auto other = MakeStack(unlimited);
        std::vector<ObjectPtr<IUnknown>> items;
        for (int count = 0; count < 100; ++count)
            items.push_back(Pop(*other));
    }
}

TEST(ObjectCacheStack, MisuseIsRefused)
{
    constexpr const char* notCreated = "ClsidObjectCacheStack-Object not created - see Create()";
    const auto stack = MakeStack();
    const auto value = Make<IValue>(CLSID_Value);
    const auto lock = As<IObjectLock>(stack);
    ObjectPtr<IUnknown> item;
    FAILS(stack->IsEmpty(), E_ACCESSDENIED, notCreated);
    FAILS(stack->Clear(), E_ACCESSDENIED, notCreated);
    FAILS(stack->Pop(IID_IUnknown, item.PutVoid()), E_ACCESSDENIED, notCreated);
    FAILS(stack->Push(value.Get()), E_ACCESSDENIED, notCreated);
    FAILS(lock->Lock(0), E_ACCESSDENIED, notCreated);
    FAILS(lock->Unlock(), E_ACCESSDENIED, notCreated);
    FAILS(stack->Create(GUID_Null, IID_IValue, 0, 0), E_INVALIDARG,
          "clsid and iid cannot be GUID_Null");
    FAILS(stack->Create(CLSID_Value, GUID_Null, 0, 0), E_INVALIDARG,
          "clsid and iid cannot be GUID_Null");
    FAILS(stack->Create(CLSID_Value, IID_IValue, 5, 0), S_OK, "");
    FAILS(stack->Create(CLSID_Value, IID_IValue, 5, 0), E_ACCESSDENIED, "Already created");
    FAILS(stack->Clear(), S_OK, "");
    FAILS(stack->Create(CLSID_Value, IID_IValue, 5, 0), E_ACCESSDENIED, "Already created");
    FAILS(stack->Pop(IID_IUnknown, nullptr), E_POINTER, "out");
    FAILS(stack->Pop(IID_IList, item.PutVoid()), E_NOINTERFACE,
          "ClsidObjectCacheStack CreateClassObject(clsid, iid, )");
    FAILS(stack->Push(nullptr), E_POINTER, "value");
    FAILS(stack->Push(stack.Get()), E_NOINTERFACE,
          "value must support the IID defined at Create()");
    FAILS(stack->Push(value.Get()), S_OK, "");
    FAILS(stack->Pop(IID_IList, item.PutVoid()), E_NOINTERFACE, "GetItemAt");
    EXPECT_EQ(Pop(*stack).Get(), As<IUnknown>(value).Get()) << "it stayed";

    const auto unknown = MakeStack(0, IID_IUnknown);
    FAILS(unknown->Pop(IID_IUnknown, item.PutVoid()), E_NOINTERFACE,
          "ClsidObjectCacheStack CreateClassObject(clsid, iid, )");
}

TEST(ObjectCacheStack, ADisposedStackLetsGoOfEverythingAndRefusesWork)
{
    const auto stack = MakeStack(0);
    const auto lock = As<IObjectLock>(stack);
    const auto disposable = As<IDisposable>(stack);
    const auto value = Pop(*stack);
    EXPECT_EQ(stack->Push(value.Get()), S_OK);
    EXPECT_EQ(disposable->IsDisposed(), S_FALSE);
    EXPECT_EQ(disposable->Dispose(), S_OK);
    EXPECT_EQ(disposable->IsDisposed(), S_OK);
    EXPECT_EQ(ReferencesOn(*value), 1u);
    ObjectPtr<IUnknown> item;
    FAILS(stack->IsEmpty(), E_DISPOSED, "IsEmpty");
    FAILS(stack->Clear(), E_DISPOSED, "Clear");
    FAILS(stack->Pop(IID_IUnknown, item.PutVoid()), E_DISPOSED, "Pop");
    FAILS(stack->Push(value.Get()), E_DISPOSED, "Push");
    FAILS(stack->Create(CLSID_Value, IID_IValue, 5, 0), E_DISPOSED, "Create");
    FAILS(lock->Lock(0), E_DISPOSED, "LockObject");
    FAILS(lock->Unlock(), E_DISPOSED, "UnlockObject");
    FAILS(disposable->Dispose(), E_DISPOSED, "Dispose");
    char name[22];
    const auto identity = As<IObjectIdentity>(stack);
    EXPECT_EQ(identity->GetObjectClassName(name, 22), 21);
    EXPECT_STREQ(name, "ClsidObjectCacheStack");
    EXPECT_EQ(As<IObjectName>(stack)->SetObjectName("still here"), S_OK);

    const auto fresh = As<IDisposable>(MakeStack()); // never created
    EXPECT_EQ(fresh->Dispose(), S_OK);
    EXPECT_EQ(fresh->IsDisposed(), S_OK);
}

TEST(ConcurrentObjectCacheStack, NoObjectIsInTwoHands)
{
    const ObserverMaskScope silence(0); // all but one of those who create it are refused
    constexpr std::uint32_t limit = ThreadCount;
    const auto stack = MakeStack();
    std::atomic<int> created = 0;
    std::mutex lock;
    std::set<IUnknown*> out;
    std::set<IUnknown*> all;
    RunThreads(
        [&](int)
        {
            created += stack->Create(CLSID_Value, IID_IValue, limit, 0) == S_OK;
            for (int round = 0; round < 500; ++round)
            {
                const ObjectPtr<IUnknown> item = Pop(*stack);
                {
                    const std::lock_guard guard(lock);
                    EXPECT_TRUE(out.insert(item.Get()).second);
                    all.insert(item.Get());
                }
                {
                    const std::lock_guard guard(lock);
                    out.erase(item.Get());
                }
                EXPECT_EQ(stack->Push(item.Get()), S_OK);
                EXPECT_GE(stack->IsEmpty(), S_OK);
            }
        });
    EXPECT_EQ(created, 1) << "by all who tried";
    EXPECT_LE(all.size(), limit);
}

} // namespace

} // namespace Tavrik::Ossira
