// How long modules stay: when they are unloaded, and that unloading is real.
#include "ServiceTools.h"
#include "TestItem.h"

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

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
            auto last = As<IUnknown>(*counter);
            counter.Reset();
            EXPECT_EQ(factory->FlushModules(), S_OK);
            EXPECT_TRUE(IsMapped(file)) << "an object is alive";
            last.Reset();
            EXPECT_TRUE(IsMapped(file)) << "nobody asked for the flush yet";
            EXPECT_EQ(factory->FlushModules(), S_OK);
            EXPECT_EQ(IsMapped(file), stays);
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
class ForeignFactory final : public Uncounted<IObjectFactory>
{
public:
    // clang-format off
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

TEST(Lifetime, AModuleThatIsWantedAfterItAgreedToGoStays)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const std::filesystem::path file = ModuleFile("raw", "HoldsUntilAsked");
    ObjectPtr<IUnknown> object;
    const auto want = [&]
    {
        EXPECT_EQ(factory->GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid()), S_OK);
    };
    EXPECT_EQ(
        RegisterService(factory.Get())
            ->RegisterModule(file.wstring().c_str(), registry.Get(), TestItem::New(want).Get()),
        S_OK);
    EXPECT_FALSE(object);
    for (const bool isWanted : {true, false})
    {
        EXPECT_EQ(factory->FlushModules(), S_OK);
        ASSERT_EQ(IsMapped(file), isWanted);
        object.Reset();
    }
}

} // namespace

} // namespace Tavrik::Ossira
