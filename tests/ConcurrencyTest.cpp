// What any thread may call at any time, called by many at once. A sanitizer watches for races; the
// assertions, for what a race would break.
#include "DiagnosticsCapture.h"
#include "Ossira.h"
#include "TestItem.h"
#include "TestModules.h"
#include "TestTools.h"

#include <barrier>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr int ThreadCount = 8;

// Runs `work` with the numbers of the threads, all of them starting at once.
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

GUID Key(int number)
{
    GUID key = {0x5EED, 0, 0, {}};
    key.Data2 = static_cast<std::uint16_t>(number);
    return key;
}

// To the end, or to where another thread's change ends it; answers the number of steps.
template <class Enumerator>
int Walk(Enumerator& enumerator)
{
    int steps = 0;
    Result moved = enumerator.MoveNext();
    for (; moved == S_OK; moved = enumerator.MoveNext())
        ++steps;
    EXPECT_TRUE(moved == S_FALSE || moved == E_ACCESSDENIED) << moved;
    return steps;
}

TEST(Concurrency, TheLastOfRacingReleasesDestroysOnce)
{
    for (int round = 0; round < 200; ++round)
    {
        const std::uint32_t before = GetObjectOpenCount();
        std::vector<ObjectPtr<IValue>> hold(ThreadCount, Make<IValue>(CLSID_Value));
        RunThreads(
            [&](int number)
            {
                ObjectPtr<IValue>& mine = hold[static_cast<std::size_t>(number)];
                ObjectPtr<IComparable> other;
                EXPECT_EQ(mine.QueryTo(other), S_OK);
                mine.Reset();
            });
        ASSERT_EQ(GetObjectOpenCount(), before);
    }
}

TEST(Concurrency, ADictionaryTakesEveryOperationFromEveryThread)
{
    const ObserverMaskScope silence(0); // the enumerators that end are reported
    for (const CLSID& clsid : {CLSID_DictionaryGUID, CLSID_LockableDictionaryGUID, CLSID_ValueSet,
                               CLSID_LockableValueSet})
    {
        const auto dictionary = Make<IDictionaryGUID>(clsid);
        const auto value = Make<IValue>(CLSID_Value);
        RunThreads(
            [&](int number)
            {
                for (int round = 0; round < 300; ++round)
                {
                    const GUID shared = Key(round % 16);
                    const GUID own = Key(100 + number);
                    EXPECT_EQ(dictionary->SetValueGUID(own, value.Get()), S_OK);
                    dictionary->SetValueGUID(shared, value.Get());
                    ObjectPtr<IValue> found;
                    const Result got =
                        dictionary->GetValueGUID(shared, IID_IValue, found.PutVoid());
                    EXPECT_TRUE(got == S_OK ? found.Get() == value.Get() : got == E_NOT_FOUND);
                    EXPECT_EQ(dictionary->ContainsGUID(own), S_OK);
                    EXPECT_EQ(dictionary->RemoveGUID(shared), S_OK);
                    ObjectPtr<IEnumeratorGUID> keys;
                    EXPECT_EQ(dictionary->GetEnumerator(IID_IEnumeratorGUID, keys.PutVoid()), S_OK);
                    Walk(*keys);
                }
            });
        EXPECT_EQ(dictionary->GetCount(), ThreadCount);
        EXPECT_EQ(ReferencesOn(*value), 1u + ThreadCount);
        EXPECT_EQ(dictionary->Clear(), S_OK);
        EXPECT_EQ(ReferencesOn(*value), 1u);
    }
}

TEST(Concurrency, RacingRequestsForASingletonGetOneObject)
{
    const auto singletons = SingletonRegistry();
    ASSERT_EQ(RegisterModule(ModuleFile("good", "Counter")), S_OK);
    for (int round = 0; round < 100; ++round)
    {
        std::vector<ObjectPtr<ICounter>> counters(ThreadCount);
        RunThreads(
            [&](int number)
            {
                ObjectPtr<ICounter>& mine = counters[static_cast<std::size_t>(number)];
                EXPECT_EQ(singletons->GetClassObject(CLSID_Counter, IID_ICounter, mine.PutVoid()),
                          S_OK);
                ObjectPtr<IUnknown> set;
                EXPECT_EQ(singletons->GetClassObject(CLSID_ValueSet, IID_IUnknown, set.PutVoid()),
                          S_OK);
                mine->Count();
            });
        for (const ObjectPtr<ICounter>& counter : counters)
            EXPECT_EQ(counter.Get(), counters[0].Get());
        EXPECT_EQ(counters[0]->Count(), ThreadCount + 1);
        counters.clear();
        EXPECT_EQ(singletons->UnregisterObject(CLSID_Counter), S_OK);
        EXPECT_EQ(singletons->UnregisterObject(CLSID_ValueSet), S_OK);
    }
}

TEST(Concurrency, AnUnloadedModuleIsLoadedOnceForAllWhoAskWhileOthersFlush)
{
    const std::filesystem::path file = ModuleFile("good", "Counter");
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    ASSERT_EQ(RegisterModule(file, nullptr, factory.Get()), S_OK);
    for (int round = 0; round < 100; ++round)
    {
        EXPECT_EQ(factory->FlushModules(), S_OK);
        ASSERT_FALSE(IsMapped(file));
        std::vector<ObjectPtr<ICounter>> counters(ThreadCount);
        RunThreads(
            [&](int number)
            {
                ObjectPtr<ICounter>& mine = counters[static_cast<std::size_t>(number)];
                if (number % 4 == 3)
                {
                    EXPECT_EQ(factory->FlushModules(), S_OK);
                    ObjectPtr<IList> modules;
                    EXPECT_EQ(factory->GetModules(IID_IList, modules.PutVoid()), S_OK);
                    ObjectPtr<IValueSet> values;
                    EXPECT_EQ(factory->GetModuleValue(file.wstring().c_str(), IID_IValueSet,
                                                      values.PutVoid()),
                              S_OK);
                    EXPECT_EQ(factory->RegisterClass(Key(number), L"", "own"), S_OK);
                    EXPECT_EQ(factory->UnregisterClass(Key(number)), S_OK);
                }
                EXPECT_EQ(factory->GetClassObject(CLSID_Counter, IID_ICounter, mine.PutVoid()),
                          S_OK);
                mine->CountInModule();
            });
        EXPECT_EQ(counters[0]->CountInModule(), ThreadCount + 1) << "all of one loaded module";
    }
}

// --- Diagnostics
// ----------------------------------------------------------------------------------

// Counts what it is asked to print, and its deaths.
class CountingObserver final : public IObserverPrint
{
public:
    explicit CountingObserver(std::atomic<int>& deaths) : mDeaths(deaths)
    {
    }

    ~CountingObserver()
    {
        ++mDeaths;
    }

    Result QueryInterface(const IID&, void** out) override
    {
        *out = nullptr;
        return E_NOINTERFACE;
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

    std::uint32_t GetLevelMask() override
    {
        return PRINT_ERROR;
    }

    Result SetLevelMask(std::uint32_t, std::uint32_t) override
    {
        return S_OK;
    }

    Result Print(std::uint32_t, const SourceLocation*, const char*, std::va_list) override
    {
        EXPECT_GT(mCount, 0u) << "it is held while it prints";
        ++mPrinted;
        return S_OK;
    }

private:
    std::atomic<std::uint32_t> mCount = 0;
    std::atomic<int> mPrinted = 0;
    std::atomic<int>& mDeaths;
};

TEST(Concurrency, TheObserverMayBeSwappedWhileOthersPrint)
{
    ObjectPtr<IObserverPrint> former;
    ASSERT_EQ(GetGlobalObserver(former.Put()), S_OK);
    std::atomic<int> deaths = 0;
    constexpr int swaps = 300;
    const auto value = Make<IValue>(CLSID_Value);
    {
        const DiagnosticsCapture capture; // a line that meets no observer goes here
        RunThreads(
            [&](int number)
            {
                for (int round = 0; round < swaps; ++round)
                {
                    if (number != 0)
                        EXPECT_EQ(value->GetType(nullptr), E_POINTER);
                    else if (round % 4 != 0)
                        EXPECT_EQ(SetGlobalObserver(new CountingObserver(deaths)), S_OK);
                    else
                        EXPECT_EQ(SetGlobalObserver(nullptr), S_OK);
                }
            });
    }
    EXPECT_EQ(SetGlobalObserver(former.Get()), S_OK);
    EXPECT_EQ(deaths, swaps * 3 / 4);
    EXPECT_EQ(ReferencesOn(*former), 2u);
}

} // namespace

} // namespace Tavrik::Ossira
