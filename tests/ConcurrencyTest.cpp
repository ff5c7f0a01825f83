// What any thread may call at any time, called by many at once. A sanitizer watches for races; the
// assertions, for what a race would break.
#include "OssiraMemory.h"
#include "OssiraModified.h"
#include "ServiceTools.h"
#include "TestItem.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr std::uint32_t ThreadCount = 8;

using Values = ObjectPtr<IValueSet>;

TEST(Concurrency, RacingRequestsForASingletonGetOneObjectAndItsLastReleaseDestroysItOnce)
{
    const auto singletons = SingletonRegistry();
    ASSERT_EQ(RegisterModule(ModuleFile("good", "Counter")), S_OK);
    for (int round = 0; round < 20; ++round)
    {
        std::atomic<std::uint32_t> sum = 0;
        InThreads(ThreadCount,
                  [&](std::uint32_t number)
                  {
                      sum +=
                          static_cast<std::uint32_t>(Singleton<ICounter>(CLSID_Counter)->Count());
                      for (int turn = 0; turn < 200; ++turn)
                      {
                          const auto list = Singleton<IList>(CLSID_NodeList);
                          EXPECT_EQ(singletons->RegisterObject(Numbered(number), list.Get()), S_OK);
                          EXPECT_EQ(singletons->UnregisterObject(Numbered(number)), S_OK);
                          (void)singletons->UnregisterObject(CLSID_NodeList);
                      }
                  });
        EXPECT_EQ(sum, ThreadCount * (ThreadCount + 1) / 2) << "all counted in one object";
        EXPECT_EQ(singletons->UnregisterObject(CLSID_Counter), S_OK);
    }
}

TEST(Concurrency, OneFactoryAndOneRegistryServeThreadsThatReadLoadAndUnloadModules)
{
    const ObserverMaskScope silence(0); // enumerators that end are reported
    const std::filesystem::path file = ModuleFile("good", "Counter");
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    ASSERT_EQ(RegisterModule(file, nullptr, factory.Get()), S_OK);
    for (int round = 0; round < 100; ++round)
    {
        std::vector<ObjectPtr<ICounter>> counters(ThreadCount);
        InThreads(ThreadCount,
                  [&](std::uint32_t number)
                  {
                      ObjectPtr<ICounter>& mine = counters[number];
                      if (number % 4 == 3)
                      {
                          const auto inner = ModuleFile("bootstrap", "BootstrapInner");
                          EXPECT_EQ(RegisterModule(inner, registry.Get(), factory.Get()), S_OK);
                          EXPECT_EQ(factory->FlushModules(), S_OK);
                          (void)CountClasses(*factory);
                          (void)factory->UnregisterClass(Numbered('B', 1));
                      }
                      EXPECT_EQ(registry->RegisterClass(Numbered(0), Numbered(number)), S_OK);
                      EXPECT_EQ(registry->UnregisterClass(Numbered(0), Numbered(number)), S_OK);
                      EXPECT_EQ(
                          factory->GetClassObject(CLSID_Counter, IID_ICounter, mine.PutVoid()),
                          S_OK);
                      mine->CountInModule();
                  });
        EXPECT_EQ(counters[0]->CountInModule(), 9) << "all of one loaded module";
        EXPECT_EQ(registry->ContainsCategory(Numbered(0)), S_FALSE);
        counters.clear();
        EXPECT_EQ(factory->FlushModules(), S_OK);
        ASSERT_FALSE(IsMapped(file));
    }
}

// A module that said that it may go is wanted before it is gone. Its last object is not given back
// beside a flush.
TEST(Concurrency, AModuleThatIsBeingFlushedServesWhoeverComesInTime)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    ASSERT_EQ(RegisterModule(ModuleFile("good", "Counter"), nullptr, factory.Get()), S_OK);
    for (int round = 0; round < 1500; ++round)
    {
        ObjectPtr<ICounter> counter;
        InThreads(2,
                  [&](std::uint32_t number)
                  {
                      const Result result =
                          number == 0 ? factory->FlushModules()
                                      : factory->GetClassObject(CLSID_Counter, IID_ICounter,
                                                                counter.PutVoid());
                      EXPECT_EQ(result, S_OK);
                  });
        ASSERT_EQ(counter->Count(), 1);
    }
}

TEST(Concurrency, AnAllocatorCountsWhatManyThreadsTakeAndGiveBack)
{
    const auto allocator = Make<ICommonMemoryAllocator32>(CLSID_CommonMemoryAllocator32);
    InThreads(
        ThreadCount,
        [&](std::uint32_t number)
        {
            for (std::uint32_t round = 0; round < 1000; ++round)
            {
                ObjectPtr<IMemorySegment32> segments[3];
                for (auto& segment : segments)
                {
                    EXPECT_EQ(allocator->AllocMemorySegment32(
                                  10 + round % 50, 4, 0, IID_IMemorySegment32, segment.PutVoid()),
                              S_OK);
                    std::memset(segment->GetAddress(), static_cast<int>(number),
                                segment->GetSize());
                }
                for (auto& segment : segments)
                    EXPECT_EQ(
                        std::count(static_cast<char*>(segment->GetAddress()),
                                   static_cast<char*>(segment->GetAddress()) + segment->GetSize(),
                                   static_cast<char>(number)),
                        segment->GetSize());
            }
            for (std::uint32_t round = 0; round < 10000; ++round)
            {
                void *raw = nullptr, *address = nullptr;
                std::uint32_t rawSize = 0, size = 0;
                EXPECT_EQ(allocator->AllocMemoryBlock(16, 1, 0, &raw, &rawSize, &address, &size),
                          S_OK);
                EXPECT_EQ(allocator->FreeBlock(raw, rawSize), S_OK);
            }
        });
    std::uint64_t bytes = 1;
    std::int32_t count = 1, peak = 0;
    std::uint32_t least = 0, greatest = 0;
    EXPECT_EQ(allocator->GetStatistics(&bytes, &count, &peak, &least, &greatest), S_OK);
    EXPECT_TRUE(bytes == 0 && count == 0 && least == 15 && greatest == 63);
    EXPECT_TRUE(peak >= 3 && peak <= static_cast<std::int32_t>(3 * ThreadCount)) << peak;
}

TEST(Concurrency, TouchesOfOneServiceDoNotOverlapAndEachCountsOnce)
{
    const ObserverMaskScope silence(0); // most are refused
    const auto service = Make<IModifiedService>(CLSID_ModifiedService);
    const auto dependant = TestItem::New();
    std::atomic<bool> isTouched = false;
    std::atomic<std::uint32_t> touches = 0, answers = 0;
    dependant->OnTouch = [&]
    {
        EXPECT_FALSE(isTouched.exchange(true));
        ++touches;
        isTouched = false;
        return S_OK;
    };
    EXPECT_EQ(service->AddTouchModified(dependant.Get()), S_OK);
    InThreads(ThreadCount,
              [&](std::uint32_t)
              {
                  for (int round = 0; round < 2000; ++round)
                      answers += service->TouchModified() == S_OK ? 1 : 0;
              });
    std::uint32_t counter = 0;
    EXPECT_EQ(service->GetModifiedCounter(&counter), S_OK);
    EXPECT_TRUE(counter == answers && counter == touches && counter > 0);
}

TEST(Concurrency, AFactoryTellsItsModulesWhileOthersAreEntered)
{
    const ObserverMaskScope silence(0);
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    constexpr std::uint32_t files = 60;
    InThreads(ThreadCount,
              [&](std::uint32_t number)
              {
                  std::size_t known = 0;
                  for (std::uint32_t round = 0; round < files; ++round)
                  {
                      const auto file = L"no file " + std::to_wstring(number * files + round);
                      if (number % 2 == 0)
                      {
                          EXPECT_EQ(factory->RegisterClass(Numbered(number * files + round),
                                                           file.c_str(), "of no file"),
                                    S_OK);
                      }
                      const std::size_t now = ModulesOf(*factory).size();
                      EXPECT_GE(now, known);
                      known = now;
                      EXPECT_EQ(factory->FlushModules(), S_OK);
                  }
              });
    EXPECT_EQ(ModulesOf(*factory).size(), files * ThreadCount / 2);
}

// What a thread leaves behind in a module, the state of an exception for one, goes with either.
TEST(Concurrency, ThreadsThatUsedAModuleEndWhileItIsUnloaded)
{
    const ObserverMaskScope silence(0);
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const std::filesystem::path files[] = {ModuleFile("good", "Counter"),
                                           ModuleFile("raw", "CreatorThrows")};
    for (const auto& file : files)
        ASSERT_EQ(RegisterModule(file, nullptr, factory.Get()), S_OK);
    for (int round = 0; round < 60; ++round)
    {
        std::atomic<int> missing = ThreadCount;
        InThreads(
            ThreadCount,
            [&](std::uint32_t number)
            {
                ObjectPtr<ICounter> counter;
                ObjectPtr<IUnknown> none;
                EXPECT_EQ(factory->GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid()),
                          S_OK);
                EXPECT_EQ(factory->GetClassObject(CLSID_RawFirst, IID_IUnknown, none.PutVoid()),
                          E_UNEXPECTED);
                EXPECT_EQ(counter->Count(), 1);
                counter.Reset();
                Meet(missing);
                if (number == 0)
                {
                    EXPECT_EQ(factory->FlushModules(), S_OK);
                }
            });
        EXPECT_FALSE(IsMapped(files[0]) || IsMapped(files[1]));
    }
}

TEST(Concurrency, ReadersSideBySideGetLiveObjectsOfTheirKeysWhileOneWrites)
{
    constexpr std::uint32_t keyCount = 50;
    for (const CLSID& clsid : {CLSID_DictionaryGUID, CLSID_ValueSet})
    {
        const auto items = Make<IDictionaryGUID>(clsid);
        const auto put = [&](std::uint32_t number)
        {
            const auto value = Make<IValue>(CLSID_Value);
            EXPECT_EQ(SetValueSINT32(value.Get(), static_cast<std::int32_t>(number)), S_OK);
            EXPECT_EQ(items->SetValueGUID(Numbered(number), value.Get()), S_OK);
        };
        for (std::uint32_t at = 0; at < keyCount; ++at)
            put(at);
        std::atomic<bool> isOver = false;
        std::atomic<int> reads = 0;
        InThreads(4,
                  [&](std::uint32_t thread)
                  {
                      // At first all read, and so get words of their own.
                      while (thread == 0 && reads < 5000)
                          std::this_thread::yield();
                      for (std::uint32_t at = 0; thread == 0 && at < 5000; ++at)
                      {
                          put(at % keyCount);
                          EXPECT_EQ(items->RemoveGUID(Numbered((at * 3) % keyCount)), S_OK);
                      }
                      for (std::uint32_t at = thread; thread != 0 && !isOver; ++at)
                      {
                          ObjectPtr<IValue> value;
                          std::int32_t number = -1;
                          if (items->GetValueGUID(Numbered(at % keyCount), IID_IValue,
                                                  value.PutVoid()) != S_OK)
                              continue;
                          EXPECT_EQ(GetValueSINT32(value.Get(), &number), S_OK);
                          EXPECT_EQ(number, static_cast<std::int32_t>(at % keyCount));
                          ++reads;
                      }
                      isOver = isOver || thread == 0;
                  });
        for (std::uint32_t at = 0; at < keyCount; ++at)
            put(at);
        EXPECT_EQ(items->GetCount(), static_cast<Result>(keyCount));
    }
}

TEST(Concurrency, ThreadsThatShareAnEnumeratorComeToEachItemOnce)
{
    const auto list = Make<IList>(CLSID_NodeList);
    constexpr int itemCount = 100'000;
    const auto item = Make<IValue>(CLSID_Value);
    for (int at = 0; at < itemCount; ++at)
        ASSERT_EQ(list->Add(item.Get()), S_OK);
    ObjectPtr<IEnumerator> walk;
    ASSERT_EQ(list->GetEnumerator(IID_IEnumerator, walk.PutVoid()), S_OK);
    std::atomic<int> steps = 0;
    InThreads(ThreadCount,
              [&](std::uint32_t)
              {
                  int own = 0;
                  for (; walk->MoveNext() == S_OK; ++own)
                      ;
                  steps += own;
              });
    EXPECT_EQ(steps, itemCount);
}

TEST(Concurrency, LinesStayWholeWhileTheObserverIsSwapped)
{
    ObjectPtr<IObserverPrint> former;
    ASSERT_EQ(GetGlobalObserver(former.Put()), S_OK);
    const DiagnosticsCapture capture;
    const auto value = Make<IValue>(CLSID_Value);
    InThreads(ThreadCount,
              [&](std::uint32_t number)
              {
                  for (int round = 0; round < 300; ++round)
                  {
                      const auto next = Make<IObserverPrint>(CLSID_DebugOutputObserverPrint);
                      EXPECT_EQ(SetGlobalObserver(number == 0 ? nullptr : next.Get()), S_OK);
                      EXPECT_EQ(value->GetType(nullptr), E_POINTER);
                  }
              });
    EXPECT_EQ(SetGlobalObserver(former.Get()), S_OK);
    const auto lines = capture.Lines();
    // A line that meets no observer has no place in it; there is no third kind.
    EXPECT_LE(std::set<std::string>(lines.begin(), lines.end()).size(), 2u) << capture.Text();
}

} // namespace

} // namespace Tavrik::Ossira
