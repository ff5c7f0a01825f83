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
                    const Result got = dictionary->GetValueGUID(shared, IID_IValue, found.PutVoid());
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

TEST(Concurrency, AListTakesEveryOperationFromEveryThread)
{
    const ObserverMaskScope silence(0);
    for (const CLSID& clsid : {CLSID_NodeList, CLSID_LockableNodeList})
    {
        const auto list = Make<IList>(clsid);
        const auto common = TestItem::New();
        RunThreads(
            [&](int)
            {
                const auto own = TestItem::New();
                EXPECT_EQ(list->Add(own.Get()), S_OK);
                for (int round = 0; round < 300; ++round)
                {
                    EXPECT_EQ(list->Insert(0, common.Get()), S_OK);
                    EXPECT_EQ(list->Contains(own.Get()), S_OK);
                    EXPECT_GE(list->IndexOf(own.Get()), 0);
                    ObjectPtr<IUnknown> item;
                    EXPECT_EQ(list->GetItemAt(0, IID_IUnknown, item.PutVoid()), S_OK);
                    ObjectPtr<IEnumerator> items;
                    EXPECT_EQ(list->GetEnumerator(IID_IEnumerator, items.PutVoid()), S_OK);
                    EXPECT_LE(Walk(*items), 2 * ThreadCount);
                    EXPECT_EQ(list->Remove(common.Get()), S_OK);
                }
                EXPECT_EQ(list->Remove(own.Get()), S_OK);
            });
        EXPECT_EQ(list->GetCount(), 0);
        EXPECT_EQ(ReferencesOn(*common), 1u);
    }
}

TEST(Concurrency, AHeldLockMakesSeveralCallsOne)
{
    const auto list = Make<IList>(CLSID_LockableNodeList);
    constexpr std::int32_t perThread = 100;
    RunThreads(
        [&](int)
        {
            ObjectPtr<IObjectLock> lock;
            ASSERT_EQ(list.QueryTo(lock), S_OK);
            for (std::int32_t round = 0; round < perThread; ++round)
            {
                ASSERT_EQ(lock->Lock(0), S_OK);
                ObjectPtr<IValue> value;
                ASSERT_EQ(CreateValue(value.Put()), S_OK);
                ASSERT_EQ(SetValueSINT32(value.Get(), list->GetCount()), S_OK);
                ASSERT_EQ(list->Add(value.Get()), S_OK);
                ASSERT_EQ(lock->Unlock(), S_OK);
            }
        });
    ASSERT_EQ(list->GetCount(), ThreadCount * perThread);
    for (std::int32_t index = 0; index < list->GetCount(); ++index)
    {
        ObjectPtr<IValue> value;
        ASSERT_EQ(list->GetItemAt(index, IID_IValue, value.PutVoid()), S_OK);
        std::int32_t number = -1;
        ASSERT_EQ(value->GetValue(DATATYPE_SINT32, &number, sizeof number), 4);
        ASSERT_EQ(number, index);
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

TEST(Concurrency, ModulesAreReadInByManyServicesAtOnce)
{
    const std::filesystem::path file = ModuleFile("good", "Counter");
    const ObserverMaskScope silence(0); // the raw modules throw
    for (int round = 0; round < 10; ++round)
    {
        const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
        const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
        RunThreads(
            [&](int number)
            {
                EXPECT_EQ(RegisterModule(file, registry.Get(), factory.Get()), S_OK);
                const char* const folders[] = {"bootstrap", "raw"};
                EXPECT_EQ(RegisterFolder(ModuleFolder(folders[number % 2]), registry.Get(),
                                         factory.Get()),
                          S_OK);
            });
        EXPECT_EQ(CountClasses(*factory), 1u + 4u + 2u);
        ObjectPtr<IValueSet> values;
        ASSERT_EQ(
            factory->GetModuleValue(file.wstring().c_str(), IID_IValueSet, values.PutVoid()),
            S_OK);
        std::int32_t count = 0;
        EXPECT_EQ(values->GetValueData(ObjectFactoryItem_ClassCount, DATATYPE_SINT32, &count, 4), 4);
        EXPECT_EQ(count, 1);
    }
}

TEST(Concurrency, TheClsidRegistryTakesEveryOperationFromEveryThread)
{
    const ObserverMaskScope silence(0);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const GUID category = Key(0);
    RunThreads(
        [&](int number)
        {
            const GUID own = Key(1 + number);
            for (int round = 0; round < 300; ++round)
            {
                EXPECT_EQ(registry->RegisterClass(category, own), S_OK);
                EXPECT_EQ(registry->RegisterGroupClass(own, category, own), S_OK);
                EXPECT_EQ(registry->ContainsClass(category, own), S_OK);
                for (const GUID& listed : {category, own})
                {
                    ObjectPtr<IEnumeratorGUID> classes;
                    EXPECT_EQ(registry->GetGroupClasses(listed, SameGuid(listed, own) ? category
                                                                                      : GUID_Null,
                                                        IID_IEnumeratorGUID, classes.PutVoid()),
                              S_OK);
                    Walk(*classes);
                }
                ObjectPtr<IEnumeratorGUID> categories;
                EXPECT_EQ(registry->GetCategories(IID_IEnumeratorGUID, categories.PutVoid()), S_OK);
                Walk(*categories);
                EXPECT_EQ(registry->UnregisterClass(category, own), S_OK);
                EXPECT_EQ(registry->UnregisterGroupClass(own, category, own), S_OK);
                EXPECT_EQ(registry->ContainsCategory(own), S_FALSE);
            }
        });
    EXPECT_EQ(registry->ContainsCategory(category), S_FALSE);
}

// --- Diagnostics ----------------------------------------------------------------------------------

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

TEST(Concurrency, LinesOfSeveralThreadsNeverMix)
{
    const ObserverMaskScope trace(PRINT_TRACE);
    constexpr int linesEach = 50;
    constexpr std::size_t length = 1500;
    const DiagnosticsCapture capture;
    RunThreads(
        [&](int number)
        {
            const std::wstring name(length, static_cast<wchar_t>(L'a' + number));
            const auto service = Make<IClassRegisterService>(CLSID_ClassRegisterService);
            for (int line = 0; line < linesEach; ++line)
                EXPECT_EQ(service->RegisterModule(name.c_str(), nullptr, nullptr), E_FAIL);
        });
    for (int number = 0; number < ThreadCount; ++number)
    {
        const std::string whole =
            "Library \"" + std::string(length, static_cast<char>('a' + number)) + "\"";
        EXPECT_EQ(capture.CountLinesWith(whole), static_cast<std::size_t>(linesEach));
    }
    for (const std::string& line : capture.Lines())
        EXPECT_EQ(line.find("[src/"), 1u) << line;
}

} // namespace

} // namespace Tavrik::Ossira
