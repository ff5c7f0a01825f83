// How long modules stay: when they are unloaded, that unloading is real, and that many rounds of
// start-up and clean-up leave nothing behind.
#include "DiagnosticsCapture.h"
#include "Ossira.h"
#include "TestModules.h"
#include "TestTools.h"

#include <iostream>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

class Lifetime : public testing::Test
{
protected:
    // A factory of this test's own, with Counter.dll read in.
    [[nodiscard]] ObjectPtr<IObjectFactory> FactoryWithCounter() const
    {
        auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
        EXPECT_EQ(RegisterModule(mFile, nullptr, factory.Get()), S_OK);
        return factory;
    }

    [[nodiscard]] static ObjectPtr<ICounter> NewCounter(IObjectFactory& factory)
    {
        ObjectPtr<ICounter> counter;
        EXPECT_EQ(factory.GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid()), S_OK);
        return counter;
    }

    // What the factory says of the module's live objects; -1 while it is not loaded.
    [[nodiscard]] std::int32_t ObjectsOfModule(IObjectFactory& factory) const
    {
        ObjectPtr<IValueSet> values;
        EXPECT_EQ(factory.GetModuleValue(mFile.wstring().c_str(), IID_IValueSet, values.PutVoid()),
                  S_OK);
        std::int32_t count = -1;
        values->GetValueData(ObjectFactoryItem_OpenObjectCount, DATATYPE_SINT32, &count,
                             sizeof count);
        return count;
    }

    const std::filesystem::path mFile = ModuleFile("good", "Counter");
};

TEST_F(Lifetime, AFlushedModuleIsUnmappedAndItsNextLoadStartsAfresh)
{
    const auto factory = FactoryWithCounter();
    std::int32_t unloads = 0;
    for (std::int32_t load = 1; load <= 3; ++load)
    {
        auto counter = NewCounter(*factory);
        EXPECT_EQ(counter->CountInModule(), 1) << "its static objects are new";
        EXPECT_EQ(NewCounter(*factory)->CountInModule(), 2);
        EXPECT_EQ(counter->WatchUnload(&unloads), S_OK);
        EXPECT_EQ(ObjectsOfModule(*factory), 1);

        EXPECT_EQ(factory->FlushModules(), S_OK);
        EXPECT_TRUE(IsMapped(mFile)) << "an object is alive";
        EXPECT_EQ(counter->CountInModule(), 3);

        counter.Reset();
        EXPECT_EQ(ObjectsOfModule(*factory), 0);
        EXPECT_TRUE(IsMapped(mFile)) << "nobody asked for the flush yet";
        EXPECT_EQ(factory->FlushModules(), S_OK);
        EXPECT_FALSE(IsMapped(mFile));
        EXPECT_EQ(unloads, load) << "its static objects were destroyed";
        EXPECT_EQ(ObjectsOfModule(*factory), -1);
    }
}

TEST_F(Lifetime, SingletonsOfModulesGoBeforeTheirModules)
{
    EXPECT_EQ(RegisterModule(mFile), S_OK);
    std::int32_t unloads = 0;
    {
        const auto counter = Singleton<ICounter>(CLSID_Counter);
        EXPECT_EQ(Singleton<ICounter>(CLSID_Counter)->Count(), 1);
        EXPECT_EQ(counter->Count(), 2);
        EXPECT_EQ(counter->WatchUnload(&unloads), S_OK);
    }
    EXPECT_EQ(SingletonRegistry()->ClearObjects(), S_OK);
    EXPECT_EQ(unloads, 1);
    EXPECT_FALSE(IsMapped(mFile));
}

TEST_F(Lifetime, AModuleMayCallBackFromWhereverItsCodeRuns)
{
    const auto registry = Singleton<IClsidRegistry>(CLSID_ClsidRegistry);
    const std::filesystem::path file = ModuleFile("callback", "Callback");
    ASSERT_EQ(RegisterModule(file, registry.Get()), S_OK);
    EXPECT_EQ(registry->ContainsClass(BootstrapRegistryStartup_Level1, CLSID_Callback), S_OK);

    CallbackResults results = {};
    {
        const auto callback = Singleton<ICallback>(CLSID_Callback);
        EXPECT_EQ(callback->ReportTo(&results), S_OK);
        EXPECT_EQ(results.ModuleStart, S_OK);
        EXPECT_EQ(results.Construction, S_OK);
        ObjectPtr<IBootstrap> bootstrap;
        ASSERT_EQ(callback.QueryTo(bootstrap), S_OK);
        EXPECT_EQ(bootstrap->Startup(nullptr), S_OK);
        EXPECT_EQ(results.Startup, S_OK);
        EXPECT_EQ(results.Destruction, E_PENDING);
    }
    EXPECT_EQ(SingletonRegistry()->UnregisterObject(CLSID_Callback), S_OK);
    EXPECT_EQ(results.Destruction, S_OK);
    EXPECT_EQ(results.ModuleEnd, E_PENDING);
    EXPECT_EQ(GlobalFactory()->FlushModules(), S_OK);
    EXPECT_EQ(results.ModuleEnd, S_OK);
    EXPECT_FALSE(IsMapped(file));
}

TEST_F(Lifetime, AModuleThatStaysMappedBreaksNothing)
{
    const std::filesystem::path file = ModuleFile("unique", "UniqueSymbols");
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    EXPECT_EQ(RegisterModule(file, nullptr, factory.Get()), S_OK);
    for (int round = 0; round < 3; ++round)
    {
        ObjectPtr<IUnknown> object;
        EXPECT_EQ(factory->GetClassObject(CLSID_Counter, IID_IUnknown, object.PutVoid()), S_OK);
        object.Reset();
        EXPECT_EQ(factory->FlushModules(), S_OK);
        EXPECT_EQ(IsMapped(file), UniqueSymbolsKeepALibraryMapped);
    }
}

TEST_F(Lifetime, WhatAModuleDependsOnIsTakenFromItsOwnFolder)
{
    const std::filesystem::path file = ModuleFile("dependent", "Dependent");
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    ASSERT_EQ(RegisterModule(file, nullptr, factory.Get()), S_OK);
    EXPECT_EQ(CountClasses(*factory), 2u) << "the right helper was asked for their number";
    EXPECT_EQ(RegisterModule(ModuleFile("dependent", "Helper"), nullptr, factory.Get()), E_FAIL)
        << "a library, but no module";
    EXPECT_EQ(factory->FlushModules(), S_OK);
    EXPECT_FALSE(IsMapped(ModuleFile("dependent", "Helper")));
}

// --- Round after round
// -----------------------------------------------------------------------------

void AddFolder(IList& folders, std::string_view name)
{
    ObjectPtr<IValue> folder;
    ASSERT_EQ(CreateValue(folder.Put()), S_OK);
    ASSERT_EQ(SetValueUniString(folder.Get(), ModuleFolder(name).wstring()), S_OK);
    ASSERT_EQ(folders.Add(folder.Get()), S_OK);
}

// The life of a host, from the first call to the last.
void RunOneHostsLife()
{
    const auto parameters = Make<IValueSet>(CLSID_ValueSet);
    const auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
    {
        ObjectPtr<IList> folders;
        ASSERT_EQ(bootstrap->GetModuleFolders(folders.PutVoid()), S_OK);
        ASSERT_EQ(folders->Clear(), S_OK);
        AddFolder(*folders, "bootstrap");
        AddFolder(*folders, "good");
    }
    ASSERT_EQ(bootstrap->Startup(parameters.Get()), S_OK);
    {
        ObjectPtr<ICounter> counter;
        ASSERT_EQ(CreateObject(CLSID_Counter, counter), S_OK);
        ASSERT_EQ(counter->CountInModule(), 1);
        ASSERT_EQ(CreateClassObject(&CLSID_Counter, &IID_IValue, counter.PutVoid()), E_NOINTERFACE);
        ASSERT_EQ(Singleton<ICounter>(CLSID_Counter)->CountInModule(), 2);
    }
    ASSERT_EQ(bootstrap->Cleanup(parameters.Get()), S_OK);
    ASSERT_EQ(TextOf(*parameters, BootstrapTrace), BootstrapFullTrace);
}

TEST(Rounds, OfStartUpAndCleanUpLeaveTheProcessAsItWas)
{
    // What is wrong with a creation that fails is said on the debug output, which is not of use
    // here.
    const ObserverMaskScope silence(0);
    const int rounds = CommandLineNumber("rounds", 100);
    const int warmUp = rounds / 10 + 10;
    const std::uint32_t objects = GetObjectOpenCount();
    MemoryInUse before;
    for (int round = 0; round < warmUp + rounds; ++round)
    {
        if (round == warmUp)
            before = MeasureMemory();
        RunOneHostsLife();
        if (HasFatalFailure())
            FAIL() << "in round " << round;
        ASSERT_EQ(GetObjectOpenCount(), objects);
        ASSERT_EQ(GetExceptionOpenCount(), 0);
    }
    const MemoryInUse after = MeasureMemory();
    for (const char* module : {"BootstrapOuter", "BootstrapInner"})
        EXPECT_FALSE(IsMapped(ModuleFile("bootstrap", module)));
    EXPECT_FALSE(IsMapped(ModuleFile("good", "Counter")));

    std::cout << rounds << " rounds: heap " << before.Heap << " -> " << after.Heap << ", process "
              << before.Process << " -> " << after.Process << " bytes\n";
    // Less than the smallest allocation a round, from 1,000 rounds on; the process as a whole moves
    // by pages. A sanitizer keeps what was freed, and looks for leaks itself.
    EXPECT_LT(after.Heap, before.Heap + 8 * 1024);
    if (before.Heap != 0)
    {
        EXPECT_LT(after.Process, before.Process + 1024 * 1024);
    }
}

} // namespace

} // namespace Tavrik::Ossira
