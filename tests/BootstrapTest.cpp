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

} // namespace

} // namespace Tavrik::Ossira
