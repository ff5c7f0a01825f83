// Modules that misbehave and files that are none: each gets its code, nothing stays loaded, nothing
// leaks, and what was registered before stays usable. When modules are unloaded, and that unloading
// is real.
#include "Platform.h"
#include "RandomProgram.h"

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

// The first observer that a module meets, and the one that is in place then.
TEST(Modules, FollowTheLevelsOfWhicheverObserverIsInPlace)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    ASSERT_EQ(RegisterModule(ModuleFile("good", "Counter"), nullptr, factory.Get()), S_OK);
    Observer host;
    IObserverPrint *const own = &host, *const former = host.Former.Get();
    for (IObserverPrint* const met : {former, own})
    {
        EXPECT_EQ(factory->FlushModules(), S_OK);
        for (IObserverPrint* const inPlace : {met, former, met, own, met})
        {
            ASSERT_EQ(SetGlobalObserver(inPlace), S_OK);
            for (const std::uint32_t mask : {0u, PRINT_TRACE, 0u})
            {
                const ObserverMaskScope scope(mask);
                const DiagnosticsCapture capture;
                host.Heard.clear();
                host.Mask = [mask]
                {
                    return mask;
                };
                EXPECT_TRUE(ObjectOf<ICounter>(*factory, CLSID_Counter));
                const bool isTold = capture.CountLinesWith(" created; ") == 1;
                EXPECT_EQ(inPlace == own ? !host.Heard.empty() : isTold, mask != 0);
            }
        }
    }
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
    for (const char* const odd : {"NoClasses", "SameIdTwice"})
        folder.Write(odd + std::string(".dll"), ReadFile(ModuleFile("raw", odd)));
    folder.Write("good.dll", image);
    std::filesystem::create_directory(folder.Path() / "a folder.dll");
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const ObserverMaskScope mask(PRINT_ERROR | PRINT_WARN | PRINT_TRACE);
    const DiagnosticsCapture capture;
    const std::wstring path = folder.Path().wstring();
    EXPECT_EQ(
        RegisterService(factory.Get())->RegisterFolder(path.c_str(), nullptr, nullptr, nullptr),
        S_OK);
    EXPECT_EQ(capture.CountLinesWith("Cannot open Library \""), 3u);
    for (const char* const line :
         {"a text.dll\" is not used: it is a text file, no library", " stands twice in ",
          "a folder.dll\" is not used: it is a folder", " server->GetClassObjectID(): ",
          " InternalRegisterModule(): ", "SameIdTwice.dll\", as \"first\" and as \"second\"",
          "NoClasses.dll\" has no class in its table: is OSSIRA_CLASS missing?"})
        EXPECT_EQ(capture.CountLinesWith(line), 1u) << line;
    const auto absent = folder.Path() / "absent.dll";
    EXPECT_EQ(RegisterModule(absent, nullptr, factory.Get()), E_FAIL);
    EXPECT_EQ(capture.CountLinesWith(absent.string() + "\" is not used: it does not exist"), 1u);
    EXPECT_EQ(CreateFirst(*factory), S_OK);
    EXPECT_EQ(factory->FlushModules(), S_OK); // so that the files can be removed
}

// A file that is none, and one that runs out of memory.
TEST(Modules, WhatTheGlobalFactoryCannotCreateIsRefusedByTheRuntimeToo)
{
    const auto factory = GlobalFactory(), other = Make<IObjectFactory>(CLSID_ObjectFactory);
    EXPECT_EQ(other->RegisterClass(CLSID_RawFirst, nullptr, nullptr), S_OK);
    const ObserverMaskScope silence(0);
    for (const auto& [file, code] :
         {std::pair(std::wstring(), E_NOINTERFACE),
          {ModuleFile("raw", "CreatorRunsOutOfMemory").wstring(), E_OUTOFMEMORY}})
    {
        ObjectPtr<IUnknown> object;
        EXPECT_EQ(factory->RegisterClass(CLSID_RawFirst, file.c_str(), ""), S_OK);
        EXPECT_EQ(CreateFirst(*factory), code) << "and is not asked for ever";
        EXPECT_EQ(CreateFirst(*other), code) << "which asks the global one";
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
    EXPECT_TRUE(ObjectOf<ICounter>(*factory, CLSID_Counter));
    current_path(former);
    EXPECT_EQ(factory->FlushModules(), S_OK);
}

// Whatever is changed in a file, what reads it stays in it, and no file that is not all there gets
// as far as the system's loader.
class DamageModel final : public RandomModel
{
public:
    void Step() override
    {
        std::string image = mImage;
        const std::uint32_t kept = Below(image.size() - 64);
        const std::uint32_t die = Below(8);
        if (die == 0)
            image.resize(kept);
        else if (die == 1) // as a copy that is under way
            std::fill(image.begin() + kept, image.end(), '\0');
        for (std::uint32_t count = die < 2 ? 0 : 1 + Below(3); count > 0; --count)
            Change(image);
        const auto file = mFolder.Write("damaged.dll", image);
        const std::string fault = FaultOfLibrary(file);
        if (die > 1 || !tSystem::FileNamesAreBytes) // elsewhere the system's loader decides
            return;
        tSystem::CLibrary library;
        EXPECT_FALSE(library.Open(file.wstring().c_str())) << kept;
        EXPECT_EQ(library.FailureText(), fault);
        EXPECT_NE(fault, "");
        EXPECT_EQ(library.Find("free"), nullptr);
    }

    void Check() override
    {
    }

private:
    // Numbers of any size, most of them where the tables lie, change, or change places.
    void Change(std::string& image)
    {
        const std::size_t size = std::size_t{1} << Below(4);
        const std::size_t first = Below(4) == 0 ? image.size() - 4096 : 0;
        const std::size_t at = first + Below(4096 / size) * size;
        if (const std::uint32_t die = Below(4); die == 0)
            std::swap_ranges(&image[at], &image[at] + size,
                             &image[first + Below(4096 / size) * size]);
        else if (die == 1)
            std::fill_n(&image[at], size, Below(2) == 0 ? '\0' : '\xFF');
        else
            image[at] = static_cast<char>(Below(256));
    }

    const TempFolder mFolder;
    const std::string mImage = ReadFile(ModuleFile("raw", "Decent"));
};

TEST(DamagedModules, AreReadWithoutHarmAndRefusedWhenTheyAreNotAllThere)
{
    RunProgram<DamageModel>(400);
}

TEST(Libraries, AreFoundByBareNamesBesideTheProgramThenInTheWorkingFolder)
{
    const std::filesystem::path former = std::filesystem::current_path();
    tSystem::CLibrary library;
    std::filesystem::current_path(ModuleFolder("dependent")); // with another one of the name
    ASSERT_TRUE(library.Open(L"Helper.dll")) << library.FailureText();
    const auto answer =
        reinterpret_cast<std::int32_t (*)()>(library.Find("OssiraTestHelperAnswer"));
    EXPECT_EQ(answer(), -1) << "of the one beside the program";
    EXPECT_TRUE(library.Open(L"Dependent.dll")) << library.FailureText();
    EXPECT_TRUE(!library.Open(L"") && library.FailureText() == "has no name");
    std::filesystem::current_path(former);
}

// --- How long they stay --------------------------------------------------------------------------

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
            auto counter = ObjectOf<ICounter>(*factory, CLSID_Counter);
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

// A factory that knows nothing of loaders, and answers success and nothing when asked for more.
class ForeignFactory final : public Uncounted<IObjectFactory>
{
public:
    // clang-format off
    Result QueryInterface(const IID& i, void** o) override { return Uncounted::QueryInterface(i, o), S_OK; }
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
            EXPECT_EQ(RegisterModule(file, registry.Get(), factory, singletons.Get()), S_OK);
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
    auto held = ObjectOf<IUnknown>(*factory, CLSID_Counter);
    EXPECT_EQ(RegisterModule(files[1], registry.Get(), factory.Get(), held.Get()), S_OK);
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
        object = ObjectOf<IUnknown>(*factory, CLSID_RawFirst);
    };
    EXPECT_EQ(RegisterModule(file, registry.Get(), factory.Get(), TestItem::New(want).Get()), S_OK);
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
