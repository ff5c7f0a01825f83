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

} // namespace

} // namespace Tavrik::Ossira
