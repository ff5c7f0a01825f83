// Where objects lie, what is kept of them, and how they are counted.
#include "ObjectMemory.h"

#include "ComServer.h"
#include "FailingMemory.h"
#include "Library.h"
#include "SampleObject.h"
#include "TestTools.h"

#include <cstring>

namespace Tavrik::Ossira::tTest
{

namespace
{

// The other tests of this program let memory fail and look at what is left of it.
const bool IsOff = (KeepObjectMemory(false), true);

struct ObjectMemory : testing::Test
{
    ObjectMemory()
    {
        KeepObjectMemory(true);
    }

    ~ObjectMemory() override
    {
        KeepObjectMemory(!IsOff);
    }
};

// Where an address lies in its cache line.
std::size_t InLine(const void* address)
{
    return reinterpret_cast<std::uintptr_t>(address) % 64;
}

template <class Part>
Part At(const void* address, std::ptrdiff_t distance)
{
    Part part;
    std::memcpy(&part, static_cast<const unsigned char*>(address) + distance, sizeof(part));
    return part;
}

template <std::size_t Size, std::size_t Alignment>
struct T_Sized : ISample, COssiraUnknown
{
    static constexpr CLSID ClassId = GUID_Null;
    OSSIRA_INTERFACES(ISample)
    alignas(Alignment) unsigned char Content[Size];
};

TEST_F(ObjectMemory, AValuesCountAndDatumFillOneCacheLineAndOtherObjectsBeginOne)
{
    for (const bool isKept : {false, true})
    {
        KeepObjectMemory(isKept);
        std::vector<ObjectPtr<IValue>> values;
        for (std::int32_t number = 1; number < 200; ++number)
        {
            const auto value = Make<IValue>(CLSID_Value);
            EXPECT_EQ(SetValueSINT32(value.Get(), number), S_OK);
            values.push_back(value);
            const void* const face = value.Get();
            EXPECT_EQ(InLine(face), 8u) << "the count and the lock come before it";
            EXPECT_EQ(At<std::int32_t>(face, -8), 2) << "the two references";
            EXPECT_EQ(At<std::int32_t>(face, 40), number) << "up to 56 bytes behind the face";
            EXPECT_EQ(InLine(MakeObject<T_Sized<1, 1>>().Get()), 0u);
        }
        const std::uint32_t before = OpenObjectCount();
        EXPECT_EQ(InLine(MakeObject<T_Sized<1, 64>>()->Content), 0u);
        const auto large = MakeObject<T_Sized<300, 16>>();
        EXPECT_EQ(InLine(large->Content) % 16, 0u);
        EXPECT_EQ(OpenObjectCount(), before + 1);
    }
}

TEST_F(ObjectMemory, IsKeptForTheNextObjectUntilTheModuleIsAskedWhetherItCanGo)
{
    GiveBackObjectMemory();
    const std::int64_t before = LiveAllocations();
    const std::uint32_t objects = OpenObjectCount();
    const int listed = tDetail::TracksObjects ? 1000 : 0; // each with memory of its own in the list
    for (int round = 0; round < 3; ++round)
    {
        std::vector<ObjectPtr<IUnknown>> many(1000);
        for (auto& object : many)
            object = Make<IUnknown>(CLSID_Value);
        EXPECT_LT(LiveAllocations() - before, listed + 100)
            << "many objects share a piece of memory";
        many.clear();
        many.shrink_to_fit();
        EXPECT_GT(LiveAllocations(), before);
        EXPECT_LE(LiveAllocations() - before, 10) << "what is kept is bounded";
        const FailingMemory none(0);
        EXPECT_TRUE(Make<IUnknown>(CLSID_Value)) << "from what was kept";
        EXPECT_EQ(new (std::nothrow) CComInstanceNoLock<T_Sample>(nullptr), nullptr);
    }
    EXPECT_EQ(OpenObjectCount(), objects);
    EXPECT_NE(ModuleServer()->CanUnloadNow(), E_FAIL);
    EXPECT_EQ(LiveAllocations(), before);
    constexpr std::size_t valueKind = 3; // of two lines, with what is seldom used in front
    EXPECT_THROW((FailingMemory(0), tDetail::TakeBlock(valueKind)), std::bad_alloc);
    DetachLibrary(false);
    const std::int64_t detached = LiveAllocations();
    for (int round = 0; round < 2; ++round)
        EXPECT_TRUE(MakeObject<T_Sample>());
    EXPECT_EQ(LiveAllocations(), detached) << "a module that is gone will not be asked any more";
    EXPECT_TRUE(AttachLibrary());
}

TEST_F(ObjectMemory, AThreadGivesBackWhatItHasAtHandAtItsNextReleaseOrWhenTheModuleGoes)
{
    std::atomic<int> step = 0; // the thread takes the odd ones
    const auto await = [&step](int number)
    {
        while (step < number)
            std::this_thread::yield();
    };
    const std::jthread thread(
        [&]
        {
            await(1);
            for (int round = 0; round < 2; ++round)
                EXPECT_TRUE(Make<IUnknown>(CLSID_Value));
            step = 2;
            await(3);
            EXPECT_TRUE(MakeObject<T_Sample>()) << "of another size";
            step = 4;
            await(5);
            for (int round = 0; round < 2; ++round)
                EXPECT_TRUE(Make<IUnknown>(CLSID_Value));
            step = 6;
            await(7);
        });
    GiveBackObjectMemory();
    const std::int64_t before = LiveAllocations();
    step = 1;
    await(2);
    EXPECT_EQ(LiveAllocations(), before + 1) << "a block lies in a piece of memory";
    GiveBackObjectMemory();
    EXPECT_LE(LiveAllocations(), before + 1) << "what is at hand";
    step = 3;
    await(4);
    GiveBackObjectMemory();
    EXPECT_EQ(LiveAllocations(), before);
    step = 5;
    await(6);
    AttachObjectMemory(false);
    EXPECT_EQ(LiveAllocations(), before);
    AttachObjectMemory(true);
    step = 7;
}

// There is one object at any time and another one each time: each thread releases what another one
// has made, when its own is alive.
TEST_F(ObjectMemory, TheNumberOfLiveObjectsIsNeverTooLow)
{
    const std::uint32_t before = OpenObjectCount();
    std::atomic<IUnknown*> place = Make<IUnknown>(CLSID_Value).Detach();
    std::atomic<int> left = 49;
    InThreads(50, // more than have stripes of their own
              [&](std::uint32_t number)
              {
                  for (int round = 0; number > 0 && round < 20'000; ++round)
                      place.exchange(Make<IUnknown>(CLSID_Value).Detach())->Release();
                  for (left -= number > 0 ? 1 : 0; number == 0 && left > 0; GiveBackObjectMemory())
                      EXPECT_GT(static_cast<std::int32_t>(OpenObjectCount() - before), 0);
              });
    EXPECT_EQ(OpenObjectCount(), before + 1);
    place.load()->Release();
    EXPECT_EQ(OpenObjectCount(), before);
}

} // namespace

} // namespace Tavrik::Ossira::tTest
