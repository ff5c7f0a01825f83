// Races that want all threads at one place at one time; whatever else any thread may call at any
// time is left to the hammer.
#include "ServiceTools.h"

#include <set>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr std::uint32_t ThreadCount = 8;

TEST(Concurrency, RacingRequestsForASingletonGetOneObject)
{
    ASSERT_EQ(RegisterModule(ModuleFile("good", "Counter")), S_OK);
    for (int round = 0; round < 1000; ++round)
    {
        std::atomic<Result> sum = 0;
        InThreads(ThreadCount,
                  [&](std::uint32_t) { sum += Singleton<ICounter>(CLSID_Counter)->Count(); });
        EXPECT_EQ(sum, ThreadCount * (ThreadCount + 1) / 2) << "all counted in one object";
        EXPECT_EQ(SingletonRegistry()->UnregisterObject(CLSID_Counter), S_OK);
    }
}

// What a thread leaves behind in a module, the state of an exception for one, goes with either; and
// a module that said that it may go is wanted before it is gone.
TEST(Concurrency, AModuleThatIsBeingUnloadedServesWhoComesInTimeWhileThreadsThatUsedItEnd)
{
    const ObserverMaskScope silence(0);
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const std::filesystem::path files[] = {ModuleFile("good", "Counter"),
                                           ModuleFile("raw", "CreatorThrows")};
    for (const auto& file : files)
        ASSERT_EQ(RegisterModule(file, nullptr, factory.Get()), S_OK);
    for (int round = 0; round < 300; ++round)
    {
        std::atomic<int> missing = ThreadCount;
        ObjectPtr<ICounter> late;
        InThreads(ThreadCount,
                  [&](std::uint32_t number)
                  {
                      ObjectPtr<IUnknown> none;
                      auto counter = ObjectOf<ICounter>(*factory, CLSID_Counter);
                      EXPECT_EQ(
                          factory->GetClassObject(CLSID_RawFirst, IID_IUnknown, none.PutVoid()),
                          E_UNEXPECTED);
                      EXPECT_EQ(counter->Count(), 1);
                      counter.Reset(); // the last one is not given back beside a flush
                      Meet(missing);
                      if (number == 1)
                          late = ObjectOf<ICounter>(*factory, CLSID_Counter);
                      EXPECT_EQ(number == 0 ? factory->FlushModules() : S_OK, S_OK);
                  });
        ASSERT_EQ(late->Count(), 1);
        late.Reset();
        EXPECT_EQ(factory->FlushModules(), S_OK);
        EXPECT_FALSE(IsMapped(files[0]) || IsMapped(files[1]));
    }
}

TEST(Concurrency, ThreadsThatShareAnEnumeratorComeToEachItemOnce)
{
    const auto list = Make<IList>(CLSID_NodeList);
    constexpr int itemCount = 100'000;
    const auto item = Make<IValue>(CLSID_Value);
    for (int at = 0; at < itemCount; ++at)
        ASSERT_EQ(list->Add(item.Get()), S_OK);
    const auto walk = Walk<IEnumerator>(*list);
    std::atomic<int> steps = 0;
    InThreads(ThreadCount,
              [&](std::uint32_t)
              {
                  while (walk->MoveNext() == S_OK)
                      ++steps;
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
                  for (int round = 0; round < 3000; ++round)
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
