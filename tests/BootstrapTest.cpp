// The class register service, the directory service and the master bootstrap, as a host sees them.
#include "ServiceTools.h"
#include "TestItem.h"

#include <array>
#include <map>
#include <stdexcept>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using Strings = std::vector<std::string>;
using WideStrings = std::vector<std::wstring>;

// --- Class register service ---------------------------------------------------------------------

TEST(ClassRegisterService, SaysWhatItReadsFromAModule)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const auto file = ModuleFile("bootstrap", "BootstrapInner");
    const ObserverMaskScope mask(PRINT_TRACE);
    const DiagnosticsCapture capture;
    EXPECT_EQ(RegisterModule(file, registry.Get(), factory.Get()), S_OK);
    EXPECT_EQ(RegisterModule(file / "none", registry.Get(), factory.Get()), E_FAIL);
    char address[16];
    std::snprintf(address, sizeof address, "0x%x",
                  static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(factory.Get())));
    const Strings messages = Messages(capture);
    const Strings first = {"Library \"" + file.string() + "\" opened",
                           "Register Classes from Library \"" + file.string() +
                               "\" [#1] [f:" + address + "]:",
                           "Register Classes Finished"};
    ASSERT_GT(messages.size(), first.size());
    EXPECT_EQ(Strings(messages.begin(), messages.begin() + 3), first);
    EXPECT_EQ(messages.back(), "Cannot open Library \"" + (file / "none").string() + "\"");
    EXPECT_EQ(registry->ContainsClass(BootstrapRegistryStartup_Level0, CLSID_BootstrapB), S_OK);
    EXPECT_EQ(CountClasses(*factory), 1u);
}

TEST(ClassRegisterService, FillsTheFactoryThatWasSetAndLendsIt)
{
    const auto service = Make<IClassRegisterService>(CLSID_ClassRegisterService);
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    IObjectFactory* lent = factory.Get();
    EXPECT_EQ(service->GetFactory(&lent), S_OK);
    EXPECT_EQ(lent, nullptr);
    const auto file = ModuleFile("good", "Counter").wstring();
    EXPECT_EQ(service->RegisterModule(file.c_str(), nullptr, nullptr), S_OK);
    EXPECT_EQ(CountClasses(*GlobalFactory()), 1u);
    for (int repeat = 0; repeat < 2; ++repeat)
        EXPECT_EQ(service->SetFactory(factory.Get()), S_OK);
    EXPECT_EQ(service->GetFactory(&lent), S_OK);
    EXPECT_EQ(lent, factory.Get());
    EXPECT_EQ(ReferencesOn(*factory), 2u) << "the service's and this test's";
    EXPECT_EQ(service->RegisterModule(file.c_str(), nullptr, nullptr), S_OK);
    EXPECT_EQ(CountClasses(*factory), 1u);

    FAILS(service->GetFactory(nullptr), E_POINTER, "ppv");
    FAILS(service->RegisterModule(nullptr, nullptr, nullptr), E_POINTER, "fileName");
    FAILS(service->RegisterModule(L"TAVRIKossira.dLL", nullptr, nullptr), E_INVALIDARG,
          "Cannot register base-dll");
    FAILS(service->RegisterFolder(nullptr, nullptr, nullptr, nullptr), E_POINTER, "path");
    FAILS(service->RegisterFolder(L"no such folder", nullptr, nullptr, nullptr), E_FAIL,
          "Directory.ScanDirectory()");
    EXPECT_EQ(service->SetFactory(nullptr), S_OK);
    EXPECT_EQ(ReferencesOn(*factory), 1u);
}

TEST(ClassRegisterService, JoinsNamesToAFolderHoweverTheFolderEnds)
{
    const TempFolder folder;
    const std::string image = ReadFile(ModuleFile("good", "Counter"));
    folder.Write("One.dll", image);
    folder.Write("Two.mod", image);
    folder.Write("tavrikOSSIRA.dll", image);
    const std::wstring path = folder.Path().wstring();
    const std::wstring separator(1, std::filesystem::path::preferred_separator);
    const struct
    {
        std::wstring Folder;
        const wchar_t* Pattern;
        WideStrings Modules;
    } cases[] = {{path, nullptr, {path + separator + L"One.dll"}},
                 {path + L"/", nullptr, {path + L"/One.dll"}},
                 {path + L"\\", nullptr, {path + L"\\One.dll"}},
                 {path, L"*.MOD", {path + separator + L"Two.mod"}},
                 {path, L"", {path + separator + L"One.dll", path + separator + L"Two.mod"}}};
    for (const auto& one : cases)
    {
        const auto service = Make<IClassRegisterService>(CLSID_ClassRegisterService);
        const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
        EXPECT_EQ(service->SetFactory(factory.Get()), S_OK);
        EXPECT_EQ(service->RegisterFolder(one.Folder.c_str(), one.Pattern, nullptr, nullptr), S_OK);
        EXPECT_EQ(ModulesOf(*factory), one.Modules);
        ObjectPtr<ICounter> counter;
        EXPECT_EQ(factory->GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid()), S_OK);
    }
}

// --- Directory service --------------------------------------------------------------------------

ObjectPtr<IValueSet> ScanParameters(const std::wstring& path, const wchar_t* pattern)
{
    auto parameters = Make<IValueSet>(CLSID_ValueSet);
    EXPECT_EQ(SetValueUniString(parameters.Get(), DirectoryServiceParam_Path, path), S_OK);
    if (pattern != nullptr)
    {
        EXPECT_EQ(SetValueUniString(parameters.Get(), DirectoryServiceParam_Pattern, pattern),
                  S_OK);
    }
    return parameters;
}

TEST(DirectoryService, ListsFilesAndFoldersThatMatchByTheirBareNames)
{
    const TempFolder folder;
    std::filesystem::create_directory(folder.Path() / "b.folder");
    for (const char* name : {"a.dll", "C.DLL", "d", "e.txt"})
        folder.Write(name, "");
    folder.Write(std::filesystem::path(L"b.folder") / L"inner.dll", "");
    const auto service = Singleton<IDirectoryService>(CLSID_DirectoryService);
    const std::wstring path = folder.Path().wstring();
    const WideStrings everything = {L"a.dll", L"b.folder", L"C.DLL", L"d", L"e.txt"};
    const struct
    {
        std::wstring Path;
        const wchar_t* Pattern;
        WideStrings Names; // empty: a failure
    } cases[] = {{path, nullptr, everything},     {path + L"\\", L"", everything},
                 {path + L"/", L"*", everything}, {path, L"*.dll", {L"a.dll", L"C.DLL"}},
                 {path, L"B.*", {L"b.folder"}},   {path, L"*.none", {}},
                 {path + L"\\none", nullptr, {}}, {path + L"\\d", nullptr, {}}};
    for (const auto& one : cases)
    {
        SCOPED_TRACE(testing::PrintToString(one.Path) + testing::PrintToString(one.Pattern));
        const DiagnosticsCapture capture;
        ObjectPtr<ICollection> list;
        EXPECT_EQ(service->GetDirectoryCollection(ScanParameters(one.Path, one.Pattern).Get(),
                                                  IID_ICollection, list.PutVoid()),
                  one.Names.empty() ? E_FAIL : S_OK);
        EXPECT_EQ(capture.Text(), "") << "an empty folder is no error to report";
        EXPECT_EQ(static_cast<bool>(list), !one.Names.empty());
        if (list)
        {
            EXPECT_EQ(TextsOf(*list, &DirectoryServiceParam_Path), one.Names);
        }
    }

    const ObserverMaskScope mask(PRINT_TRACE);
    const DiagnosticsCapture capture;
    ObjectPtr<ICollection> list;
    for (const wchar_t* pattern : {L"?.dll", L"*.none"})
        (void)service->GetDirectoryCollection(ScanParameters(path, pattern).Get(), IID_ICollection,
                                              list.PutVoid());
    const std::string shown = folder.Path().string() + "\\";
    EXPECT_EQ(Messages(capture),
              (Strings{"Scan Path \"" + shown + "?.dll\"", "  \"a.dll\"", "  \"C.DLL\"",
                       "Scan Path \"" + shown + "*.none\" failed: LastError: 2"}));
}

TEST(DirectoryService, RefusesWhatIsNoRequest)
{
    const auto service = Singleton<IDirectoryService>(CLSID_DirectoryService);
    const auto empty = Make<IValueSet>(CLSID_ValueSet);
    const auto numbers = ScanParameters(L"", nullptr);
    EXPECT_EQ(SetValueSINT32(numbers.Get(), DirectoryServiceParam_Pattern, 1), S_OK);
    const auto good = ScanParameters(L"", nullptr); // the current folder
    ObjectPtr<IUnknown> list;
    const auto scan = [&](IValueSet* parameters, const IID& iid)
    {
        return service->GetDirectoryCollection(parameters, iid, list.PutVoid());
    };
    FAILS(scan(nullptr, IID_IList), E_POINTER, "param");
    FAILS(service->GetDirectoryCollection(good.Get(), IID_IList, nullptr), E_POINTER, "ppv");
    FAILS(scan(empty.Get(), IID_IList), E_NOT_FOUND,
          "GetValueUniString(param, DirectoryServiceParam_Path, &Path)");
    FAILS(scan(numbers.Get(), IID_IList), E_INVALIDARG,
          "GetValueUniString(param, DirectoryServiceParam_Pattern, &Pattern)");
    FAILS(scan(good.Get(), IID_ICounter), E_NOINTERFACE, "List->QueryInterface(riid, ppv)");
    EXPECT_EQ(scan(good.Get(), IID_IList), S_OK);
}

// --- Master bootstrap ---------------------------------------------------------------------------

// A class whose operations a test writes.
struct Script
{
    std::function<Result()> Startup = []
    {
        return S_OK;
    };
    std::function<Result()> Cleanup = []
    {
        return S_OK;
    };
};

class ScriptedClass final : public IBootstrap
{
public:
    explicit ScriptedClass(Script script) : mScript(std::move(script))
    {
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        const bool known = SameGuid(iid, IID_IUnknown) || SameGuid(iid, IID_IBootstrap);
        *out = known ? this : nullptr;
        return known ? static_cast<Result>(AddRef(), S_OK) : E_NOINTERFACE;
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

    Result Startup(IUnknown*) override
    {
        return mScript.Startup();
    }

    Result Cleanup(IUnknown*) override
    {
        return mScript.Cleanup();
    }

private:
    std::uint32_t mCount = 0;
    Script mScript;
};

// A factory of scripted classes, on the stack of its test. A class without a script exists, but has
// nothing to show.
class ScriptedFactory final : public IObjectFactory
{
public:
    std::map<std::uint32_t, Script> Scripts;
    std::uint32_t Unknown = 0; // a class that cannot be created

    Result GetClassObject(const CLSID& clsid, const IID& iid, void** ppv) override
    {
        *ppv = nullptr;
        if (clsid.Data1 == Unknown)
            return E_ABORT;
        const auto script = Scripts.find(static_cast<std::uint32_t>(clsid.Data1));
        if (script == Scripts.end())
            return S_OK;
        return ObjectPtr<ScriptedClass>(new ScriptedClass(script->second))
            ->QueryInterface(iid, ppv);
    }

    Result QueryInterface(const IID&, void** out) override
    {
        *out = nullptr;
        return E_NOINTERFACE;
    }

    // clang-format off
    std::uint32_t AddRef() override { return 2; }
    std::uint32_t Release() override { return 1; }
    Result RegisterClass(const CLSID&, const wchar_t*, const char*) override { return S_FALSE; }
    Result UnregisterClass(const CLSID&) override { return S_FALSE; }
    Result GetClassValue(const CLSID&, const IID&, void**) override { return E_NOTIMPL; }
    Result FlushModules() override { return S_OK; }
    Result GetModuleValue(const wchar_t*, const IID&, void**) override { return E_NOTIMPL; }
    Result GetClasses(const IID&, void**) override { return E_NOTIMPL; }
    Result GetModules(const IID&, void**) override { return E_NOTIMPL; }
    // clang-format on
};

// A master bootstrap with these module folders in place of the current one.
ObjectPtr<IMasterBootstrap> NewBootstrap(const std::vector<std::filesystem::path>& folders)
{
    auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
    ObjectPtr<IList> list;
    EXPECT_EQ(bootstrap->GetModuleFolders(list.PutVoid()), S_OK);
    EXPECT_EQ(TextsOf(*list), WideStrings{L".\\"});
    EXPECT_EQ(list->Clear(), S_OK);
    for (const std::filesystem::path& folder : folders)
        EXPECT_EQ(list->Add(WideValue(folder.wstring()).Get()), S_OK);
    return bootstrap;
}

TEST(MasterBootstrap, StartsLevelsInOrderAndCleansUpInReverseOnceEach)
{
    const auto bootstrap = NewBootstrap({ModuleFolder("bootstrap"), ModuleFolder("good")});
    const auto trace = Make<IValueSet>(CLSID_ValueSet);
    EXPECT_EQ(bootstrap->Startup(trace.Get()), S_OK);
    EXPECT_TRUE(Make<ICounter>(CLSID_Counter)) << "the global factory knows the modules";
    {
        const DiagnosticsCapture capture;
        EXPECT_EQ(bootstrap->Startup(trace.Get()), E_FAIL);
        EXPECT_EQ(capture.CountLinesWith(" Startup already called: "), 1u);
    }
    ObjectPtr<IBootstrap> same;
    EXPECT_EQ(bootstrap.QueryTo(same), S_OK);
    EXPECT_EQ(same->Cleanup(trace.Get()), S_OK);
    EXPECT_FALSE(IsMapped(ModuleFile("good", "Counter"))) << "the singletons were cleared";
    EXPECT_EQ(same->Cleanup(trace.Get()), S_OK);
    EXPECT_EQ(same->Startup(trace.Get()), E_FAIL);
    EXPECT_EQ(TextOf(*trace, BootstrapTrace), BootstrapFullTrace);
}

TEST(MasterBootstrap, AFailingClassEndsStartUpButNotCleanUp)
{
    const auto bootstrap = NewBootstrap({ModuleFolder("failing-bootstrap")});
    const auto trace = Make<IValueSet>(CLSID_ValueSet);
    {
        const DiagnosticsCapture capture;
        EXPECT_EQ(bootstrap->Startup(trace.Get()), E_ABORT);
        EXPECT_EQ(capture.CountLinesWith(" BootstrapRegistryStartup_Level0: "), 1u);
    }
    EXPECT_EQ(TextOf(*trace, BootstrapTrace), "X+Y+");
    EXPECT_EQ(bootstrap->Cleanup(trace.Get()), S_OK) << "each level answers for its last class";
    EXPECT_EQ(TextOf(*trace, BootstrapTrace), "X+Y+Z-X-Y-Z-");
}

// Start-up and clean-up over scripted classes, without modules.
class ScriptedBootstrap : public testing::Test
{
protected:
    ScriptedBootstrap()
    {
        EXPECT_EQ(mBootstrap->SetFactory(&mFactory), S_OK);
        EXPECT_EQ(mBootstrap->SetClsidRegistry(mRegistry.Get()), S_OK);
    }

    // Enrols a class, at start-up under `startup` and at clean-up under `cleanup`.
    void Enrol(std::uint32_t number, const GUID* startup, const GUID* cleanup)
    {
        for (const GUID* category : {startup, cleanup})
        {
            if (category != nullptr)
            {
                EXPECT_EQ(mRegistry->RegisterClass(*category, Numbered(number)), S_OK);
            }
        }
    }

    ScriptedFactory mFactory;
    const ObjectPtr<IClsidRegistry> mRegistry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const ObjectPtr<IMasterBootstrap> mBootstrap = NewBootstrap({});
};

TEST_F(ScriptedBootstrap, SaysEverythingThatItDoes)
{
    const auto fails = []
    {
        return E_ABORT;
    };
    const auto throws = []() -> Result
    {
        throw std::runtime_error("thrown");
    };
    mFactory.Scripts[1] = {};
    mFactory.Scripts[2] = {fails, fails};
    mFactory.Scripts[3] = {fails, throws};
    mFactory.Unknown = 4;
    Enrol(1, &BootstrapRegistryStartup_Level0, &BootstrapRegistryCleanup_Level2);
    Enrol(2, &BootstrapRegistryStartup_Level1, &BootstrapRegistryCleanup_Level2);
    Enrol(3, &BootstrapRegistryStartup_Level1, &BootstrapRegistryCleanup_Level2);
    Enrol(4, nullptr, &BootstrapRegistryCleanup_Level2);
    Enrol(5, nullptr, &BootstrapRegistryCleanup_Level2);
    Enrol(2, nullptr, &BootstrapRegistryCleanup_Level0);
    const auto id = [](std::uint32_t number)
    {
        return Text(Numbered(number));
    };
    const std::string dashes(36, '-');

    const ObserverMaskScope mask(PRINT_TRACE | PRINT_PROGRESS | PRINT_WARN);
    const auto lines = [](const DiagnosticsCapture& capture)
    {
        Strings messages = Messages(capture);
        std::erase_if(messages,
                      [](const std::string& message) { return message.starts_with("Singleton "); });
        return messages;
    };
    {
        const DiagnosticsCapture capture;
        EXPECT_EQ(mBootstrap->Cleanup(nullptr), S_OK);
        EXPECT_EQ(mBootstrap->Startup(nullptr), E_ABORT);
        EXPECT_EQ(lines(capture),
                  (Strings{"Skip Cleanup(), because Startup() was never called", "",
                           "Performing MasterBootstrap::Startup:", dashes,
                           "Startup BootstrapRegistryStartup_Level0:",
                           "Startup BootstrapRegistryStartup_Level0 finished",
                           "Startup BootstrapRegistryStartup_Level1:",
                           "Startup BootstrapRegistryStartup_Level1: Startup() of " + id(2) +
                               " failed: Operation aborted",
                           "Startup BootstrapRegistryStartup_Level1 finished"}));
    }
    const DiagnosticsCapture capture;
    EXPECT_EQ(mBootstrap->Cleanup(nullptr), E_POINTER) << "the first level's last class";
    EXPECT_EQ(mBootstrap->Cleanup(nullptr), S_OK) << "a second one does nothing";
    const std::string level = "Cleanup BootstrapRegistryCleanup_Level2: ";
    EXPECT_EQ(lines(capture),
              (Strings{"", "Performing MasterBootstrap::Cleanup:", dashes,
                       "Cleanup BootstrapRegistryCleanup_Level2:",
                       level + "Cleanup() of " + id(2) + " failed: Operation aborted",
                       level + "Cleanup() of " + id(3) + " failed: Catastrophic failure",
                       level + "CreateClassObject(" + id(4) + ") failed: Operation aborted",
                       level + "Object " + id(5) + " not supports IBootstrap: Invalid pointer",
                       "Cleanup BootstrapRegistryCleanup_Level2 finished",
                       "Cleanup-Category BootstrapRegistryCleanup_Level1 is empty",
                       "Cleanup BootstrapRegistryCleanup_Level0:",
                       "Cleanup BootstrapRegistryCleanup_Level0: Cleanup() of " + id(2) +
                           " failed: Operation aborted",
                       "Cleanup BootstrapRegistryCleanup_Level0 finished",
                       "Cleanup of MasterBootstrap also cleans all singleton object", dashes,
                       "MasterBootstrap::Cleanup finished", ""}));
}

TEST_F(ScriptedBootstrap, SaysLittleWithoutTrace)
{
    const ObserverMaskScope mask(PRINT_PROGRESS);
    const DiagnosticsCapture capture;
    EXPECT_EQ(mBootstrap->Startup(nullptr), S_OK) << "empty categories are no failure";
    EXPECT_EQ(mBootstrap->Cleanup(nullptr), S_OK);
    EXPECT_EQ(Messages(capture), (Strings{"Performing MasterBootstrap-Startup",
                                          "Performing MasterBootstrap Cleanup"}));
}

TEST_F(ScriptedBootstrap, AClassMayEnrolOthersWhileItIsStarted)
{
    Strings started;
    mFactory.Scripts[1].Startup = [&]
    {
        Enrol(3, &BootstrapRegistryStartup_Level0, nullptr);
        Enrol(4, &BootstrapRegistryStartup_Level1, nullptr);
        started.push_back("one");
        return S_OK;
    };
    mFactory.Scripts[2].Startup = [&]
    {
        started.push_back("two");
        return S_OK;
    };
    mFactory.Scripts[4].Startup = [&]
    {
        started.push_back("four");
        return S_OK;
    };
    Enrol(1, &BootstrapRegistryStartup_Level0, nullptr);
    Enrol(2, &BootstrapRegistryStartup_Level0, nullptr);
    EXPECT_EQ(mBootstrap->Startup(nullptr), S_OK);
    EXPECT_EQ(started, (Strings{"one", "two", "four"})) << "its own level had been listed before";
}

TEST_F(ScriptedBootstrap, ABadFolderIsPassedOverUnlessItIsTheLast)
{
    const auto set = ScanParameters(ModuleFolder("good").wstring(), nullptr);
    const auto item = TestItem::New();
    const auto nothing = WideValue(L"");
    const auto missing = WideValue(L"no such folder");
    const struct
    {
        std::vector<IUnknown*> Folders;
        Result Code;
        std::size_t BadLines;
        std::size_t EmptyLines;
        const char* Error;
    } cases[] = {
        {{set.Get()}, S_OK, 0, 0, nullptr},
        {{item.Get(), nothing.Get(), set.Get()}, S_OK, 1, 1, nullptr},
        {{set.Get(), nothing.Get()}, S_OK, 0, 1, nullptr},
        {{set.Get(), item.Get()}, E_NOINTERFACE, 1, 0, nullptr},
        {{missing.Get(), set.Get()}, E_FAIL, 0, 0, " RegisterService->RegisterFolder(): "}};
    for (const auto& one : cases)
    {
        const auto bootstrap = NewBootstrap({});
        EXPECT_EQ(bootstrap->SetFactory(&mFactory), S_OK);
        ObjectPtr<IList> folders;
        EXPECT_EQ(bootstrap->GetModuleFolders(folders.PutVoid()), S_OK);
        for (IUnknown* const folder : one.Folders)
            EXPECT_EQ(folders->Add(folder), S_OK);
        const ObserverMaskScope mask(PRINT_WARN | PRINT_ERROR);
        const DiagnosticsCapture capture;
        EXPECT_EQ(bootstrap->Startup(nullptr), one.Code);
        EXPECT_EQ(capture.CountLinesWith("Cannot get path-string from Folder-Collection: "
                                         "No such interface supported"),
                  one.BadLines);
        EXPECT_EQ(capture.CountLinesWith("Empty path-string at Folder-Collection"), one.EmptyLines);
        EXPECT_EQ(capture.CountLinesWith(" RegisterFolder: "), one.Code == S_OK ? 0u : 1u);
        if (one.Error != nullptr)
        {
            EXPECT_EQ(capture.CountLinesWith(one.Error), 1u);
        }
    }
}

TEST(MasterBootstrap, KeepsWhatItIsGivenAndHandsItOutAgain)
{
    const auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    ObjectPtr<IObjectFactory> gotFactory;
    ObjectPtr<IClsidRegistry> gotRegistry;
    EXPECT_EQ(bootstrap->GetFactory(gotFactory.PutVoid()), S_OK);
    EXPECT_EQ(bootstrap->GetClsidRegistry(gotRegistry.PutVoid()), S_OK);
    EXPECT_FALSE(gotFactory || gotRegistry);
    for (int repeat = 0; repeat < 2; ++repeat)
    {
        EXPECT_EQ(bootstrap->SetFactory(factory.Get()), S_OK);
        EXPECT_EQ(bootstrap->SetClsidRegistry(registry.Get()), S_OK);
    }
    EXPECT_EQ(bootstrap->GetFactory(gotFactory.PutVoid()), S_OK);
    EXPECT_EQ(bootstrap->GetClsidRegistry(gotRegistry.PutVoid()), S_OK);
    EXPECT_EQ(gotFactory.Get(), factory.Get());
    EXPECT_EQ(gotRegistry.Get(), registry.Get());
    EXPECT_EQ(ReferencesOn(*factory), 3u);
    EXPECT_EQ(ReferencesOn(*registry), 3u);
    FAILS(bootstrap->GetFactory(nullptr), E_POINTER, "ppv");
    FAILS(bootstrap->GetClsidRegistry(nullptr), E_POINTER, "ppv");
    FAILS(bootstrap->GetModuleFolders(nullptr), E_POINTER, "ppv");
}

} // namespace

} // namespace Tavrik::Ossira
