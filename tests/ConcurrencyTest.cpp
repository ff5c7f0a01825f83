// What any thread may call at any time, called by many at once. A sanitizer watches for races; the
// assertions, for what a race would break.
#include "OssiraValueSetGroup.h"
#include "ServiceTools.h"

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
