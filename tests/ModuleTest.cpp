// Modules that misbehave and files that are none. Each gets its code; nothing stays loaded, nothing
// leaks, and what was registered before stays usable.
#include "ServiceTools.h"
#include "TestItem.h"

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

// A module; the results of its registration, with a registry for bootstrap classes; the number of
// classes that are registered all the same; the result of creating the first of them; the text of
// the one error line, if any, of the registration.
const std::tuple<const char*, Result, std::size_t, Result, const char*> RawCases[] = {
    {"Decent", S_OK, 2, S_OK, ""},
    {"NegativeCount", E_ABORT, 0, E_FAIL, ""},
    {"HugeCount", E_INVALIDARG, 2, S_OK, "server->GetClassObjectID()"},
    {"NoClasses", S_OK, 0, E_FAIL, ""},
    {"SecondIdFails", E_ABORT, 1, S_OK, "server->GetClassObjectID()"},
    {"SecondTextFails", E_ABORT, 1, S_OK, "server->GetClassObjectInfo()"},
    {"EndlessText", S_OK, 2, S_OK, ""},
    {"CreatorAnswersNull", S_OK, 2, E_UNEXPECTED, ""},
    {"CreatorThrows", S_OK, 2, E_UNEXPECTED, ""},
    {"CreatorRunsOutOfMemory", S_OK, 2, E_OUTOFMEMORY, ""},
    {"CanUnloadThrows", S_OK, 2, S_OK, ""},
    {"BootstrapFails", E_ABORT, 2, S_OK, ""},
    {"BootstrapThrows", E_UNEXPECTED, 2, S_OK, "unknown exception"},
    {"CountThrows", E_UNEXPECTED, 0, E_FAIL, "unknown exception"},
    {"SecondIdThrows", E_UNEXPECTED, 1, S_OK, "server->GetClassObjectID()"},
    {"NeverAttached", E_FAIL, 0, E_FAIL, ""},
    {"CountRunsOut", E_OUTOFMEMORY, 0, E_FAIL, ""},
    {"WithoutDllGetClassObject", E_FAIL, 0, E_FAIL, ""},
    {"WithoutDllCanUnloadNow", E_FAIL, 0, E_FAIL, ""},
    {"WithoutDLLGetOpenObjectCount", E_FAIL, 0, E_FAIL, ""},
    {"WithoutDLLGetClassCount", E_FAIL, 0, E_FAIL, ""},
    {"WithoutDLLGetClassObjectID", E_FAIL, 0, E_FAIL, ""},
    {"WithoutDLLGetClassObjectInfo", E_FAIL, 0, E_FAIL, ""},
    {"WithoutDLLRegisterBootstrap", S_FALSE, 2, S_OK, ""},
};

Result CreateFirst(IObjectFactory& factory)
{
    ObjectPtr<IUnknown> object;
    const Result created = factory.GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid());
    EXPECT_EQ(static_cast<bool>(object), created == S_OK);
    return created;
}

// A host's own observer, which outlives its use.
class HostObserver final : public Uncounted<IObserverPrint>
{
public:
    std::uint32_t GetLevelMask() override
    {
        return mMask;
    }

    Result SetLevelMask(std::uint32_t set, std::uint32_t clear) override
    {
        mMask = (mMask & ~clear) | set;
        return S_OK;
    }

    Result Print(std::uint32_t, const SourceLocation*, const char*, std::va_list) override
    {
        ++Lines;
        return S_OK;
    }

    std::size_t Lines = 0;

private:
    std::uint32_t mMask = 0;
};

// The first observer that a module meets, and the one that is in place then.
TEST(Modules, FollowTheLevelsOfWhicheverObserverIsInPlace)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    ASSERT_EQ(RegisterModule(ModuleFile("good", "Counter"), nullptr, factory.Get()), S_OK);
    ObjectPtr<IObserverPrint> former;
    ASSERT_EQ(GetGlobalObserver(former.Put()), S_OK);
    HostObserver host;
    IObserverPrint* const own = &host;
    for (IObserverPrint* const met : {former.Get(), own})
    {
        EXPECT_EQ(factory->FlushModules(), S_OK);
        for (IObserverPrint* const inPlace : {met, former.Get(), met, own, met})
        {
            ASSERT_EQ(SetGlobalObserver(inPlace), S_OK);
            for (const std::uint32_t mask : {0u, PRINT_TRACE, 0u})
            {
                const ObserverMaskScope scope(mask);
                const DiagnosticsCapture capture;
                host.Lines = 0;
                ObjectPtr<ICounter> counter;
                EXPECT_EQ(factory->GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid()),
                          S_OK);
                const std::size_t lines = capture.CountLinesWith(" created; ");
                EXPECT_EQ(inPlace == own ? host.Lines : lines, mask == 0 ? 0u : 1u);
            }
        }
    }
    EXPECT_EQ(SetGlobalObserver(former.Get()), S_OK);
}

TEST(Modules, EveryFaultEndsAsItsCodeAndItsLine)
{
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    for (const auto& [module, registration, classes, creation, report] : RawCases)
    {
        SCOPED_TRACE(module);
        const std::filesystem::path file = ModuleFile("raw", module);
        auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
        FAILS(RegisterModule(file, registry.Get(), factory.Get()), registration, report);
        EXPECT_EQ(CountClasses(*factory), classes);
        EXPECT_EQ(IsMapped(file), classes > 0) << "the factory's own hold";
        const ObserverMaskScope silence(0);
        EXPECT_EQ(CreateFirst(*factory), creation);
        EXPECT_EQ(factory->FlushModules(), S_OK);
        factory.Reset();
        EXPECT_FALSE(IsMapped(file));
    }
}

TEST(Modules, AScanPassesOverFaultyModulesAndFilesThatAreNone)
{
    const TempFolder folder;
    const std::string image = ReadFile(ModuleFile("raw", "Decent"));
    folder.Write("a half.dll", image.substr(0, image.size() / 2));
    folder.Write("a text.dll", "This is no module.");
    folder.Write("a thrower.dll", ReadFile(ModuleFile("raw", "SecondIdThrows")));
    folder.Write("a short one.dll", ReadFile(ModuleFile("raw", "CountRunsOut")));
    folder.Write("good.dll", image);
    std::filesystem::create_directory(folder.Path() / "a folder.dll");
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const ObserverMaskScope mask(PRINT_ERROR | PRINT_TRACE);
    const DiagnosticsCapture capture;
    const std::wstring path = folder.Path().wstring();
    EXPECT_EQ(
        RegisterService(factory.Get())->RegisterFolder(path.c_str(), nullptr, nullptr, nullptr),
        S_OK);
    EXPECT_EQ(capture.CountLinesWith("Cannot open Library \""), 3u);
    EXPECT_EQ(capture.CountLinesWith(" server->GetClassObjectID(): "), 1u);
    EXPECT_EQ(capture.CountLinesWith(" InternalRegisterModule(): "), 1u) << "its own shortage";
    EXPECT_EQ(CreateFirst(*factory), S_OK);
    EXPECT_EQ(factory->FlushModules(), S_OK); // so that the files can be removed
}

// A file that is none, and one that runs out of memory.
TEST(Modules, WhatTheGlobalFactoryCannotCreateIsRefusedByTheRuntimeToo)
{
    const auto factory = GlobalFactory();
    const ObserverMaskScope silence(0);
    for (const auto& [file, code] :
         {std::pair(std::wstring(), E_NOINTERFACE),
          {ModuleFile("raw", "CreatorRunsOutOfMemory").wstring(), E_OUTOFMEMORY}})
    {
        ObjectPtr<IUnknown> object;
        EXPECT_EQ(factory->RegisterClass(CLSID_RawFirst, file.c_str(), ""), S_OK);
        EXPECT_EQ(CreateFirst(*factory), code) << "and is not asked for ever";
        EXPECT_EQ(CreateObject(CLSID_RawFirst, object), code);
        EXPECT_EQ(
            SingletonRegistry()->GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid()),
            code);
        EXPECT_EQ(factory->UnregisterClass(CLSID_RawFirst), S_OK);
    }
}

TEST(Modules, OneThatChangesTheCurrentFolderChangesNothingForTheScan)
{
    const TempFolder folder;
    folder.Write("a.dll", ReadFile(ModuleFile("raw", "ChangesFolder")));
    folder.Write("b.dll", ReadFile(ModuleFile("good", "Counter")));
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto service = RegisterService(factory.Get());
    const auto former = std::filesystem::current_path();
    current_path(folder.Path());
    const Result result = service->RegisterFolder(L".\\", nullptr, nullptr, nullptr);
    EXPECT_NE(std::filesystem::current_path(), folder.Path());
    EXPECT_EQ(result, S_OK);
    EXPECT_EQ(ModulesOf(*factory), (std::vector<std::wstring>{L".\\a.dll", L".\\b.dll"}));
    EXPECT_EQ(factory->FlushModules(), S_OK);
    ObjectPtr<ICounter> counter;
    EXPECT_EQ(factory->GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid()), S_OK);
    current_path(former);
    counter.Reset();
    EXPECT_EQ(factory->FlushModules(), S_OK);
}

} // namespace

} // namespace Tavrik::Ossira
