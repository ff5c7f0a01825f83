// How long modules stay: when they are unloaded, and that unloading is real.
#include "ServiceTools.h"

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

// What the factory says of the module's live objects; -1 while it is not loaded.
std::int32_t ObjectsOf(IObjectFactory& factory, const std::filesystem::path& file)
{
    ObjectPtr<IValueSet> values;
    std::int32_t count = -1;
    EXPECT_EQ(factory.GetModuleValue(file.wstring().c_str(), IID_IValueSet, values.PutVoid()),
              S_OK);
    (void)GetValueSINT32(values.Get(), ObjectFactoryItem_OpenObjectCount, &count);
    return count;
}

TEST(Lifetime, AFlushedModuleIsUnmappedAndItsNextLoadStartsAfresh)
{
    const std::filesystem::path files[] = {ModuleFile("good", "Counter"),
                                           ModuleFile("unique", "UniqueSymbols")};
    for (const std::filesystem::path& file : files)
    {
        const bool stays = file == files[1] && UniqueSymbolsKeepALibraryMapped;
        const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
        EXPECT_EQ(RegisterModule(file, nullptr, factory.Get()), S_OK);
        for (std::int32_t load = 0; load < 3; ++load)
        {
            ObjectPtr<ICounter> counter;
            EXPECT_EQ(factory->GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid()),
                      S_OK);
            EXPECT_EQ(counter->CountInModule(), stays ? load + 1 : 1) << "its static objects";
            EXPECT_EQ(ObjectsOf(*factory, file), 1);
            auto last = As<IUnknown>(*counter);
            counter.Reset();
            EXPECT_EQ(factory->FlushModules(), S_OK);
            EXPECT_TRUE(IsMapped(file)) << "an object is alive";
            last.Reset();
            EXPECT_EQ(ObjectsOf(*factory, file), 0);
            EXPECT_TRUE(IsMapped(file)) << "nobody asked for the flush yet";
            EXPECT_EQ(factory->FlushModules(), S_OK);
            EXPECT_EQ(IsMapped(file), stays);
            EXPECT_EQ(ObjectsOf(*factory, file), -1);
        }
    }
}

TEST(Lifetime, WhatAModuleDependsOnIsTakenFromItsOwnFolderAndGoesWithItsFactory)
{
    auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto helper = ModuleFile("dependent", "Helper");
    EXPECT_EQ(RegisterModule(ModuleFile("dependent", "Dependent"), nullptr, factory.Get()), S_OK);
    EXPECT_EQ(CountClasses(*factory), 2u) << "the right helper was asked for their number";
    EXPECT_TRUE(IsMapped(helper));
    factory.Reset();
    EXPECT_FALSE(IsMapped(helper));
}

// A factory that knows nothing of loaders.
class ForeignFactory final : public IObjectFactory
{
public:
    Result QueryInterface(const IID& iid, void** out) override
    {
        const bool known = SameGuid(iid, IID_IUnknown) || SameGuid(iid, IID_IObjectFactory);
        *out = known ? this : nullptr;
        return known ? S_OK : E_NOINTERFACE;
    }

    // clang-format off
    std::uint32_t AddRef() override { return 1; }
    std::uint32_t Release() override { return 1; }
    Result GetClassObject(const CLSID&, const IID&, void**) override { return E_NOTIMPL; }
    Result RegisterClass(const CLSID&, const wchar_t*, const char*) override { return S_OK; }
    Result UnregisterClass(const CLSID&) override { return E_NOTIMPL; }
    Result GetClassValue(const CLSID&, const IID&, void**) override { return E_NOTIMPL; }
    Result FlushModules() override { return S_OK; }
    Result GetModuleValue(const wchar_t*, const IID&, void**) override { return E_NOTIMPL; }
    Result GetClasses(const IID&, void**) override { return E_NOTIMPL; }
    Result GetModules(const IID&, void**) override { return E_NOTIMPL; }
    // clang-format on
};

// With classes and without, read into the runtime's own factory and into another.
TEST(Lifetime, AModuleStaysWhileWhatItsBootstrapEnteredLives)
{
    ForeignFactory foreign;
    for (const char* module : {"EntersSingleton", "FlushesAndEntersSingleton"})
    {
        for (const bool isForeign : {false, true})
        {
            SCOPED_TRACE(testing::Message() << module << (isForeign ? " elsewhere" : ""));
            const auto file = ModuleFile("raw", module);
            const auto own = Make<IObjectFactory>(CLSID_ObjectFactory);
            IObjectFactory* const factory = isForeign ? &foreign : own.Get();
            const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
            const auto singletons = Make<ISingleton>(CLSID_DebugSingleton);
            EXPECT_EQ(singletons->RegisterObject(CLSID_GlobalObjectFactory, factory), S_OK);
            EXPECT_EQ(RegisterService(factory)->RegisterModule(file.wstring().c_str(),
                                                               registry.Get(), singletons.Get()),
                      S_OK);
            const auto flush = [&]
            {
                return isForeign ? GlobalFactory()->FlushModules() : own->FlushModules();
            };
            EXPECT_EQ(flush(), S_OK);
            ASSERT_TRUE(IsMapped(file));
            EXPECT_EQ(singletons->UnregisterObject(CLSID_RawSecond), S_OK);
            EXPECT_EQ(flush(), S_OK);
            EXPECT_FALSE(IsMapped(file));
            EXPECT_EQ(ModulesOf(*own).size(), CountClasses(*own) == 0 ? 0u : 1u);
        }
    }
}

TEST(Lifetime, OneFlushUnloadsAModuleAndThoseWhoseLastObjectsItHeld)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const std::filesystem::path files[] = {ModuleFile("good", "Counter"),
                                           ModuleFile("raw", "Holds")};
    EXPECT_EQ(RegisterModule(files[0], nullptr, factory.Get()), S_OK);
    ObjectPtr<IUnknown> held;
    EXPECT_EQ(factory->GetClassObject(CLSID_Counter, IID_IUnknown, held.PutVoid()), S_OK);
    EXPECT_EQ(RegisterService(factory.Get())
                  ->RegisterModule(files[1].wstring().c_str(), registry.Get(), held.Get()),
              S_OK);
    held.Reset();
    EXPECT_EQ(factory->FlushModules(), S_OK);
    EXPECT_FALSE(IsMapped(files[0]) || IsMapped(files[1]));
}

// One creates a singleton whose module is loaded for it, one loads a module whose start-up code
// asks for singletons and flushes, one clears singletons.
TEST(Lifetime, ConcurrentLoadsAndSingletonsDoNotWaitForEachOtherForEver)
{
    const ObserverMaskScope silence(0);
    const auto all = SingletonRegistry();
    const auto factory = GlobalFactory();
    // Loaded for each request and, having no object, unloaded by whoever flushes next.
    ASSERT_GE(RegisterModule(ModuleFile("raw", "CreatorFails")), S_OK);
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(500);
    std::atomic<int> rounds[3] = {};
    InThreads(3,
              [&](std::uint32_t number)
              {
                  while (std::chrono::steady_clock::now() < until)
                  {
                      if (number == 0)
                      {
                          void* out = nullptr;
                          EXPECT_TRUE(
                              Failed(all->GetClassObject(CLSID_RawFirst, IID_IUnknown, &out)));
                          EXPECT_EQ(factory->FlushModules(), S_OK);
                      }
                      else if (number == 1)
                      {
                          const auto own = Make<IObjectFactory>(CLSID_ObjectFactory);
                          const auto file = ModuleFile("callback", "Callback");
                          EXPECT_EQ(RegisterModule(file, nullptr, own.Get()), S_OK);
                      }
                      else
                      {
                          const auto some = Make<ISingleton>(CLSID_DebugSingleton);
                          ObjectPtr<IList> list;
                          EXPECT_EQ(some->GetClassObject(CLSID_NodeList, IID_IList, list.PutVoid()),
                                    S_OK);
                          EXPECT_EQ(some->ClearObjects(), S_OK);
                      }
                      ++rounds[number];
                  }
              });
    for (const std::atomic<int>& count : rounds)
        EXPECT_GT(count, 0);
    (void)all->UnregisterObject(CLSID_ValueSet);
    EXPECT_EQ(factory->UnregisterClass(CLSID_RawFirst), S_OK);
    (void)factory->UnregisterClass(CLSID_Value);
    EXPECT_EQ(factory->FlushModules(), S_OK);
}

} // namespace

} // namespace Tavrik::Ossira
