// Everything at once, from more threads than there are processors: each thread makes random steps
// on objects that all share, until the time is over. Each step checks what must hold whatever the
// others do, and in the end nothing may be lost. A sanitizer watches for races, the check of the
// lock order for locks that could meet. OSSIRA_HAMMER_SECONDS and OSSIRA_HAMMER_SEED make it longer
// and other.
#include "RandomProgram.h"

#include "OssiraMemory.h"
#include "OssiraModified.h"
#include "OssiraThreads.h"
#include "OssiraValueSetGroup.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <functional>
#include <span>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr std::uint32_t HammerThreads = 6;

// Asks with `get(data, size)` until nobody comes between the size and the bytes, which are all the
// same in a datum that was not torn: `S_OK` for a whole one, `E_UNEXPECTED` for a torn one, or what
// is refused.
[[nodiscard]] Result ReadWhole(auto get)
{
    for (;;)
    {
        const Result size = get(nullptr, 0);
        std::string bytes(static_cast<std::size_t>(std::max(size, 1)), '#');
        const Result read = Failed(size) ? size : get(bytes.data(), size);
        if (Succeeded(read))
            return bytes.find_first_not_of(bytes[0]) == bytes.npos ? S_OK : E_UNEXPECTED;
        if (Failed(size) || read != E_INVALIDARG)
            return read;
    }
}

// As a statement, since the assertions of the framework are not to be branches.
void Check(Result result, Result expected = S_OK)
{
    EXPECT_EQ(result, expected);
}

// Walks to the end, or until somebody changes what is walked.
template <class Enumerator>
void WalkAlong(auto& items, auto atEach)
{
    const auto walk = Walk<Enumerator>(items);
    Result moved = S_OK;
    while ((moved = walk->MoveNext()) == S_OK)
        atEach(*walk);
    EXPECT_TRUE(moved == S_FALSE || moved == E_ACCESSDENIED) << moved;
}

struct Step
{
    std::mt19937& Random;
    std::uint32_t Thread;

    [[nodiscard]] std::uint32_t Below(std::uint32_t bound) const
    {
        return tTest::Below(Random, bound);
    }
};

class Hammer
{
public:
    Hammer()
    {
        for (const auto& value : {Value, OtherValue})
            EXPECT_EQ(value->SetValue(DATATYPE_GUID, "aaaaaaaa", 8), S_OK);
        for (std::uint32_t layer = 0; layer < 3; ++layer)
        {
            Layers.push_back(Make<IValueSet>(CLSID_ValueSet));
            EXPECT_EQ(Group->InsertValueSet(-1, Layers[layer].Get(), nullptr, 0), S_OK);
        }
        EXPECT_EQ(SetValueSINT32(Layers[0].Get(), BottomKey, 1), S_OK);
        EXPECT_EQ(Group->GetValueSet(View.Put()), S_OK);
        EXPECT_EQ(RegisterModule(ModuleFile("good", "Counter"), nullptr, Factory.Get()), S_OK);
        EXPECT_EQ(RegisterModule(ModuleFile("good", "Counter")), S_OK);
        EXPECT_GE(RegisterModule(ModuleFile("raw", "CreatorFails")), S_OK);
        LastCounter = ObjectOf<ICounter>(*Factory, CLSID_Counter);
        for (ObjectPtr<ICommonThreadPoolBox>& box : Boxes)
        {
            box = Make<ICommonThreadPoolBox>(CLSID_CommonThreadPoolBox);
            EXPECT_EQ(box->Create(2), S_OK);
        }
    }

    void ListItems(Step step)
    {
        const auto item = Make<IValue>(CLSID_Value);
        auto& [items, expected] = Lists[step.Below(2)];
        IList& list = *items;
        EXPECT_EQ(step.Below(2) != 0 ? list.Add(item.Get()) : list.Insert(0, item.Get()), S_OK);
        ++expected;
        const std::int32_t count = list.GetCount();
        ObjectPtr<IValue> found;
        const Result got =
            list.GetItemAt(static_cast<std::int32_t>(step.Below(100)), IID_IValue, found.PutVoid());
        EXPECT_TRUE(got == S_OK || got == E_INVALIDARG) << got;
        if (step.Below(8) == 0)
            WalkAlong<IEnumerator>(list, [&](IEnumerator& walk)
                                   { (void)walk.GetCurrent(IID_IValue, found.PutVoid()); });
        if (count > 50 || step.Below(3) != 0)
        {
            const Result removed = step.Below(2) != 0 ? list.Remove(item.Get()) : list.RemoveAt(0);
            EXPECT_TRUE(removed == S_OK || removed == E_INVALIDARG) << removed;
            expected -= removed == S_OK ? 1 : 0;
        }
    }

    // What all write and remove under a key holds that key.
    void Dictionaries(Step step)
    {
        IDictionaryGUID& items = step.Below(2) != 0 ? *Dictionary : *Set;
        const GUID own = Numbered(step.Below(40), static_cast<std::uint16_t>(100 + step.Thread));
        const GUID common = Numbered(step.Below(20), 99);
        const auto keyed = Make<IValue>(CLSID_Value);
        EXPECT_EQ(SetValueGUID(keyed.Get(), common), S_OK);
        EXPECT_EQ(items.SetValueGUID(common, keyed.Get()), S_OK);
        EXPECT_EQ(items.SetValueGUID(own, Value.Get()), S_OK);
        ObjectPtr<IValue> found;
        EXPECT_EQ(items.GetValueGUID(own, IID_IValue, found.PutVoid()), S_OK);
        EXPECT_EQ(found.Get(), Value.Get());
        for (std::uint32_t number = 0; number < 20; ++number)
        {
            GUID key = Numbered(number, 99);
            const Result got = items.GetValueGUID(key, IID_IValue, found.PutVoid());
            EXPECT_EQ(got == S_OK ? GetValueGUID(found.Get(), &key) : S_OK, S_OK);
            EXPECT_TRUE(SameGuid(key, Numbered(number, 99)));
        }
        EXPECT_EQ(items.RemoveGUID(step.Below(2) != 0 ? own : common), S_OK);
        GUID last = GUID_Null;
        const auto isInOrder = [&](IEnumeratorGUID& walk)
        {
            GUID key = {};
            EXPECT_TRUE(walk.GetCurrentGUID(&key) != S_OK ||
                        std::memcmp(&last, &key, sizeof key) < 0);
            last = key;
        };
        if (step.Below(8) == 0)
            WalkAlong<IEnumeratorGUID>(items, isInOrder);
    }

    void Values(Step step)
    {
        IValue& value = step.Below(2) != 0 ? *Value : *OtherValue;
        IValue& other = step.Below(2) != 0 ? *Value : *OtherValue;
        // Of two sizes, one of which a value keeps outside of itself.
        const std::string datum(step.Below(2) != 0 ? 160 : 8, static_cast<char>(step.Below(10)));
        const auto length = static_cast<std::int32_t>(datum.size());
        const GUID key = Numbered(step.Below(5));
        EXPECT_EQ(value.SetValue(DATATYPE_GUID, datum.data(), length), S_OK);
        EXPECT_EQ(Set->SetValueData(key, DATATYPE_GUID, datum.data(), length), S_OK);
        const Result got = ReadWhole([&](void* data, std::int32_t size)
                                     { return Set->GetValueData(key, DATATYPE_GUID, data, size); });
        EXPECT_TRUE(got == S_OK || got == E_NOT_FOUND) << got; // another thread's removal
        if (step.Below(10) == 0)
            Check(Set->RemoveGUID(key));
        const auto read = [](IValue& from)
        {
            return ReadWhole([&](void* data, std::int32_t size)
                             { return from.GetValue(DATATYPE_GUID, data, size); });
        };
        EXPECT_EQ(read(other), S_OK);
        ObjectPtr<IValue> clone;
        EXPECT_EQ(As<ICloneable>(value)->Clone(IID_IValue, clone.PutVoid()), S_OK);
        EXPECT_EQ(read(*clone), S_OK);
        std::int32_t order = 0;
        EXPECT_EQ(As<IComparable>(value)->Compare(&other, &order), S_OK);
        EXPECT_EQ(As<IComparable>(value)->Compare(&value, &order), S_OK);
    }

    void Groups(Step step)
    {
        std::int32_t number = 0;
        EXPECT_EQ(GetValueSINT32(View.Get(), BottomKey, &number), S_OK);
        EXPECT_EQ(View->ContainsGUID(BottomKey), S_OK);
        EXPECT_GT(View->GetCount(), 0);
        const GUID key = Numbered(step.Below(30), 1);
        IValueSet& layer = *Layers[step.Below(3)];
        EXPECT_EQ(SetValueSINT32(&layer, key, 7), S_OK);
        EXPECT_EQ(layer.RemoveGUID(Numbered(step.Below(30), 1)), S_OK);
        (void)SetValueSINT32(View.Get(), BottomKey, 2);
        WalkAlong<IEnumeratorGUID>(*View, [](auto&) {});
    }

    void Factories(Step step)
    {
        const CLSID own = Numbered(step.Below(9), static_cast<std::uint16_t>(50 + step.Thread));
        const auto counter = ObjectOf<ICounter>(*Factory, CLSID_Counter);
        EXPECT_EQ(counter->Count(), 1);
        const std::size_t known = ModulesOf(*Factory).size();
        const std::wstring file = L"no file " + std::to_wstring(step.Below(9));
        (void)Factory->RegisterClass(own, step.Below(2) != 0 ? file.c_str() : nullptr, "own");
        EXPECT_GE(ModulesOf(*Factory).size(), known);
        (void)CountClasses(*Factory);
        EXPECT_EQ(Factory->UnregisterClass(own), S_OK);
        if (step.Below(4) == 0)
            Check((step.Below(2) != 0 ? Factory : GlobalFactory())->FlushModules());
        EXPECT_EQ(counter->Count(), 2);
        if (step.Below(20) == 0)
            Check(RegisterModule(ModuleFile("bootstrap", "BootstrapInner"), Registry.Get(),
                                 Factory.Get()));
    }

    void Registries(Step step)
    {
        const CLSID own = Numbered(step.Below(9), static_cast<std::uint16_t>(50 + step.Thread));
        EXPECT_EQ(Registry->RegisterGroupClass(Numbered(1), Numbered(step.Thread), own), S_OK);
        EXPECT_EQ(Registry->ContainsGroupClass(Numbered(1), Numbered(step.Thread), own), S_OK);
        EXPECT_EQ(Registry->UnregisterGroupClass(Numbered(1), Numbered(step.Thread), own), S_OK);
    }

    void Singletons(Step step)
    {
        EXPECT_GE(Singleton<ICounter>(CLSID_Counter)->Count(), 1);
        const auto singletons = SingletonRegistry();
        EXPECT_EQ(singletons->RegisterObject(Numbered(step.Thread), Value.Get()), S_OK);
        EXPECT_EQ(singletons->UnregisterObject(Numbered(step.Thread)), S_OK);
        if (step.Below(4) == 0)
            (void)singletons->UnregisterObject(CLSID_Counter);
        // Loaded for each request and, having no object, unloaded by whoever flushes next.
        void* out = nullptr;
        if (step.Below(4) == 0)
            Check(singletons->GetClassObject(CLSID_RawFirst, IID_IUnknown, &out), E_NOINTERFACE);
        // Its start-up code asks for singletons and for the factory.
        if (step.Below(10) == 0)
            Check(RegisterModule(ModuleFile("callback", "Callback"), nullptr, Factory.Get()));
    }

    void Changes(Step)
    {
        const auto isWanted = std::make_shared<std::atomic<bool>>(true);
        const auto dependant = TestItem::New();
        dependant->OnTouch = [this, isWanted]
        {
            EXPECT_FALSE(mIsTouched.exchange(true)) << "touches overlap";
            std::this_thread::sleep_for(std::chrono::microseconds(20));
            EXPECT_TRUE(*isWanted) << "touched after it was removed";
            mIsTouched = false;
            return S_OK;
        };
        const Result added = Modified->AddTouchModified(dependant.Get());
        EXPECT_TRUE(added == S_OK || added == E_UNEXPECTED) << added; // being touched
        const Result touched = Modified->TouchModified();
        EXPECT_TRUE(touched == S_OK || touched == E_UNEXPECTED) << touched;
        mTouches += touched == S_OK ? 1 : 0;
        EXPECT_EQ(Modified->RemoveTouchModified(dependant.Get()), S_OK);
        *isWanted = false;
    }

    void Memory(Step step)
    {
        const std::uint32_t asked = step.Below(2) != 0 ? 10 : 59;
        ObjectPtr<IMemorySegment32> segment;
        EXPECT_EQ(
            Allocator->AllocMemorySegment32(asked, 4, 0, IID_IMemorySegment32, segment.PutVoid()),
            S_OK);
        auto* const bytes = static_cast<std::uint8_t*>(segment->GetAddress());
        const std::span all(bytes, segment->GetSize());
        std::ranges::fill(all, step.Thread);
        void *raw = nullptr, *address = nullptr;
        std::uint32_t rawSize = 0, size = 0;
        for (int round = 0; round < 200; ++round)
        {
            Check(Allocator->AllocMemoryBlock(16, 1, 0, &raw, &rawSize, &address, &size));
            Check(Allocator->FreeBlock(raw, rawSize));
        }
        EXPECT_EQ(std::ranges::count(all, step.Thread), std::ssize(all));
    }

    // Jobs that lead from pool to pool and back. Bit by bit: whether the first pool's runs, and the
    // second one's, are symmetric.
    void Pools(Step step)
    {
        const std::uint32_t modes = step.Below(4);
        const std::size_t deepest = 2 + step.Thread % 2;
        const std::function<void(std::size_t)> run = [&](std::size_t depth)
        {
            std::atomic<int> begun = 0, ended = 0;
            tSystem::tThreads::CThreadJob job(
                [&](auto)
                {
                    ++begun;
                    if (depth > 0)
                        run(depth - 1);
                    ++ended;
                });
            tSystem::tThreads::IThreadPool* pool = nullptr;
            EXPECT_EQ(Boxes[depth % 2]->GetThreadPool(&pool), S_OK);
            const auto symmetric = static_cast<std::uint8_t>(modes >> depth % 2 & 1);
            EXPECT_EQ(pool->Run(&job, nullptr, symmetric, "job"), 0);
            EXPECT_EQ(begun, ended) << "left too early";
            EXPECT_GE(begun, depth == deepest && symmetric == 0 ? 2 : 1);
        };
        run(deepest);
    }

    // When all threads have ended.
    void ExpectNothingLost()
    {
        for (const auto& [items, expected] : Lists)
            EXPECT_EQ(items->GetCount(), expected);
        EXPECT_EQ(KeysOf(*Dictionary).size(), static_cast<std::size_t>(Dictionary->GetCount()));
        EXPECT_EQ(KeysOf(*View).size(), static_cast<std::size_t>(View->GetCount()));
        EXPECT_EQ(Registry->ContainsCategory(Numbered(1)), S_FALSE);
        EXPECT_EQ(CountClasses(*Factory), 3u) << "of Counter, BootstrapInner and Callback";
        std::uint32_t touches = 0;
        EXPECT_EQ(Modified->GetModifiedCounter(&touches), S_OK);
        EXPECT_EQ(touches, mTouches);
        const std::int64_t peak = StatisticsOf(*Allocator)[2];
        EXPECT_EQ(StatisticsOf(*Allocator), (Statistics{0, 0, peak, 15, 63}));
        EXPECT_TRUE(peak >= 2 && peak <= std::int64_t{2 * HammerThreads}) << peak;
        LastCounter.Reset();
        EXPECT_EQ(Set->Clear(), S_OK);
        EXPECT_EQ(Dictionary->Clear(), S_OK);
        EXPECT_EQ(ReferencesOn(*Value), 1u);
        EXPECT_EQ(ReferencesOn(*OtherValue), 1u);
        (void)SingletonRegistry()->UnregisterObject(CLSID_Counter);
        EXPECT_EQ(Factory->FlushModules(), S_OK);
        EXPECT_EQ(GlobalFactory()->FlushModules(), S_OK);
        EXPECT_FALSE(IsMapped(ModuleFile("good", "Counter")));
    }

private:
    const GUID BottomKey = Numbered(1, 2);
    std::pair<const ObjectPtr<IList>, std::atomic<std::int32_t>> Lists[2] = {
        {Make<IList>(CLSID_NodeList), 0}, {Make<IList>(CLSID_LockableNodeList), 0}};
    const ObjectPtr<IDictionaryGUID> Dictionary = Make<IDictionaryGUID>(CLSID_DictionaryGUID);
    const ObjectPtr<IValue> Value = Make<IValue>(CLSID_Value);
    const ObjectPtr<IValue> OtherValue = Make<IValue>(CLSID_Value);
    const ObjectPtr<IValueSet> Set = Make<IValueSet>(CLSID_ValueSet);
    const ObjectPtr<IValueSetGroup> Group = Make<IValueSetGroup>(CLSID_ValueSetGroup);
    std::vector<ObjectPtr<IValueSet>> Layers;
    ObjectPtr<IValueSet> View;
    const ObjectPtr<IObjectFactory> Factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    ObjectPtr<ICounter> LastCounter; // a module's last object is not given back beside a flush
    const ObjectPtr<IClsidRegistry> Registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const ObjectPtr<IModifiedService> Modified = Make<IModifiedService>(CLSID_ModifiedService);
    std::array<ObjectPtr<ICommonThreadPoolBox>, 2> Boxes;
    const ObjectPtr<ICommonMemoryAllocator32> Allocator =
        Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    std::atomic<bool> mIsTouched = false;
    std::atomic<std::uint32_t> mTouches = 0;
};

// How often each is drawn: steps that load modules take a thousand times as long as others.
constexpr struct
{
    void (Hammer::*Work)(Step);
    std::uint32_t Share;
} Jobs[] = {{&Hammer::ListItems, 30}, {&Hammer::Dictionaries, 30}, {&Hammer::Values, 30},
            {&Hammer::Groups, 10},    {&Hammer::Factories, 2},     {&Hammer::Registries, 5},
            {&Hammer::Singletons, 2}, {&Hammer::Changes, 20},      {&Hammer::Pools, 5},
            {&Hammer::Memory, 20}};

TEST(ConcurrentHammer, MixedStepsOnSharedObjectsLoseNothing)
{
    const std::uint32_t seconds = Setting("OSSIRA_HAMMER_SECONDS", 4);
    const std::uint32_t seed = Setting("OSSIRA_HAMMER_SEED", 20261121);
    std::printf("seed %u, %u threads, %u seconds\n", seed, HammerThreads, seconds);
    std::vector<void (Hammer::*)(Step)> draw;
    for (const auto& job : Jobs)
        draw.insert(draw.end(), job.Share, job.Work);

    const ObserverMaskScope silence(0); // most refusals are part of the game
    std::atomic<std::uint64_t> steps = 0;
    {
        Hammer hammer;
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        InThreads(HammerThreads,
                  [&](std::uint32_t thread)
                  {
                      std::mt19937 random(seed + thread);
                      for (; std::chrono::steady_clock::now() < end && !testing::Test::HasFailure();
                           ++steps)
                          (hammer.*draw[Below(random, draw.size())])({random, thread});
                  });
        hammer.ExpectNothingLost();
    }
    std::printf("%llu steps\n", static_cast<unsigned long long>(steps));
}

} // namespace

} // namespace Tavrik::Ossira
