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

TEST(Concurrency, ADictionaryServesThreadsWithKeysOfTheirOwnAndKeysInCommon)
{
    for (const CLSID& clsid : {CLSID_DictionaryGUID, CLSID_LockableDictionaryGUID})
    {
        const auto dictionary = Make<IDictionaryGUID>(clsid);
        const auto value = Make<IValue>(CLSID_Value);
        InThreads(ThreadCount,
                  [&](std::uint32_t thread)
                  {
                      for (std::uint32_t round = 0; round < 2000; ++round)
                      {
                          ObjectPtr<IValue> found;
                          const GUID own = Numbered(100 * thread + round % 50);
                          EXPECT_EQ(dictionary->SetValueGUID(own, value.Get()), S_OK);
                          (void)dictionary->SetValueGUID(Numbered(round % 7, 1), value.Get());
                          (void)dictionary->RemoveGUID(Numbered(round % 5, 1));
                          EXPECT_EQ(dictionary->GetValueGUID(own, IID_IValue, found.PutVoid()),
                                    S_OK);
                      }
                  });
        const auto count = static_cast<std::uint32_t>(dictionary->GetCount());
        EXPECT_TRUE(count >= 402 && count <= 407) << count;
        EXPECT_EQ(ReferencesOn(*value), count + 1);
    }
}

// The values change between two datatypes and sizes; a copy with bytes of both would be torn.
TEST(Concurrency, ValuesAreComparedCrosswiseAndClonedWhileTheyAreWritten)
{
    const ObjectPtr<IValue> values[] = {Make<IValue>(CLSID_Value), Make<IValue>(CLSID_Value)};
    const auto write = [](IValue& value, bool isLong)
    {
        const std::string text(isLong ? 3000 : 30, isLong ? 'l' : 's');
        EXPECT_EQ(value.SetValue(isLong ? DATATYPE_UniString : DATATYPE_CharString, text.data(),
                                 static_cast<std::int32_t>(text.size())),
                  S_OK);
    };
    write(*values[0], true);
    write(*values[1], false);
    InThreads(4,
              [&](std::uint32_t number)
              {
                  IValue& one = *values[number % 2];
                  IValue& other = *values[1 - number % 2];
                  for (int round = 0; round < 3000; ++round)
                  {
                      std::int32_t order = 0;
                      EXPECT_EQ(As<IComparable>(one)->Compare(&other, &order), S_OK);
                      EXPECT_EQ(As<IComparable>(one)->Compare(&one, &order), S_OK);
                      write(one, round % 2 == 0);
                      ObjectPtr<IValue> clone;
                      GUID type = GUID_Null;
                      EXPECT_EQ(As<ICloneable>(other)->Clone(IID_IValue, clone.PutVoid()), S_OK);
                      EXPECT_EQ(clone->GetType(&type), S_OK);
                      const bool isLong = SameGuid(type, DATATYPE_UniString);
                      std::string text(isLong ? 3000 : 30, '?');
                      EXPECT_EQ(clone->GetValue(type, text.data(),
                                                static_cast<std::int32_t>(text.size())),
                                static_cast<Result>(text.size()));
                      EXPECT_EQ(text, std::string(text.size(), isLong ? 'l' : 's'));
                  }
              });
}

// Nothing fails, and a key that the bottom layer has all the time is always found.
TEST(Concurrency, AMergedViewServesReadersBesideThreadsThatUseItsLayersDirectly)
{
    const ObserverMaskScope silence(0); // enumerators that end are reported
    const auto group = Make<IValueSetGroup>(CLSID_ValueSetGroup);
    const Values layers[] = {Make<IValueSet>(CLSID_ValueSet), Make<IValueSet>(CLSID_ValueSet)};
    Values view;
    for (const auto& layer : layers)
        EXPECT_EQ(group->InsertValueSet(-1, layer.Get(), nullptr, 0), S_OK);
    for (std::uint32_t number = 0; number < 100; ++number)
        EXPECT_EQ(SetValueSINT32(layers[0].Get(), Numbered(number), 1), S_OK);
    EXPECT_EQ(group->GetValueSet(view.Put()), S_OK);
    InThreads(4,
              [&](std::uint32_t number)
              {
                  for (std::uint32_t round = 0; round < 3000; ++round)
                  {
                      const GUID key = Numbered(round % 100);
                      std::int32_t value = 0;
                      if (number == 0)
                      {
                          EXPECT_EQ(SetValueSINT32(layers[0].Get(), key, 1), S_OK);
                          EXPECT_EQ(SetValueSINT32(layers[1].Get(), key, 1), S_OK);
                          EXPECT_EQ(layers[1]->RemoveGUID(key), S_OK);
                          EXPECT_EQ(layers[1]->RemoveGUID(Numbered(50)), S_OK);
                          EXPECT_EQ(SetValueSINT32(layers[1].Get(), Numbered(50), 1), S_OK);
                          continue;
                      }
                      EXPECT_EQ(GetValueSINT32(view.Get(), Numbered(50), &value), S_OK);
                      EXPECT_EQ(view->ContainsGUID(key), S_OK);
                      EXPECT_EQ(view->GetCount(), 100);
                      const std::size_t shown = round % 20 == 0 ? KeysOf(*view).size() : 100;
                      EXPECT_EQ(shown, 100u);
                  }
              });
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
