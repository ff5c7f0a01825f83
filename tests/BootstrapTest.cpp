// The directory service and the master bootstrap, as a host sees them.
#include "Platform.h"
#include "RandomProgram.h"

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

using namespace std::string_literals;

ObjectPtr<IValueSet> ScanParameters(const std::wstring& path, const wchar_t* pattern = nullptr)
{
    auto parameters = Make<IValueSet>(CLSID_ValueSet);
    EXPECT_EQ(SetValueUniString(parameters.Get(), DirectoryServiceParam_Path, path), S_OK);
    if (pattern != nullptr)
        (void)SetValueUniString(parameters.Get(), DirectoryServiceParam_Pattern, pattern);
    return parameters;
}

TEST(DirectoryService, ListsFilesAndFoldersThatMatchByTheirBareNames)
{
    const TempFolder folder;
    std::filesystem::create_directory(folder.Path() / "b.folder");
    for (const char* name : {"a.dll", "C.DLL", "d", "e.txt", "_", "b.folder/inner.dll"})
        folder.Write(name, "");
    folder.Write(u8"\u00e9", "");
    const auto service = Singleton<IDirectoryService>(CLSID_DirectoryService);
    const std::wstring path = folder.Path().wstring();
    ObjectPtr<ICollection> list;
    const auto scan = [&](IValueSet* parameters)
    {
        return service->GetDirectoryCollection(parameters, IID_ICollection, list.PutVoid());
    };
    const WideStrings everything = {L"a.dll", L"b.folder", L"C.DLL", L"d",
                                    L"e.txt", L"_",        L"\u00e9"};
    const std::tuple<std::wstring, const wchar_t*, WideStrings> cases[] = {
        {path, nullptr, everything},     {path + L"\\", L"", everything},
        {path + L"/", L"*", everything}, {path, L"*.dll", {L"a.dll", L"C.DLL"}},
        {path, L"B.*", {L"b.folder"}},   {path, L"*.none", {}},
        {path, L"e.?x?", {L"e.txt"}},    {path + L"/b.folder", L"*.d", {}},
        {path + L"\\none", nullptr, {}}, {path + L"\\d", nullptr, {}}};
    for (const auto& [place, pattern, names] : cases)
    {
        const auto parameters = ScanParameters(place, pattern);
        FAILS(scan(parameters.Get()), names.empty() ? E_FAIL : S_OK, "");
        EXPECT_EQ(list ? TextsOf(*list, &DirectoryServiceParam_Path) : WideStrings(), names);
        EXPECT_EQ(!list, names.empty());
    }
    const std::filesystem::path former = std::filesystem::current_path();
    std::filesystem::current_path(folder.Path());
    EXPECT_EQ(scan(ScanParameters(L"", L"*.dll").Get()), S_OK);
    EXPECT_EQ(TextsOf(*list, &DirectoryServiceParam_Path), (WideStrings{L"a.dll", L"C.DLL"}));
    std::filesystem::current_path(former);
    FAILS(scan(Make<IValueSet>(CLSID_ValueSet).Get()), E_NOT_FOUND,
          "GetValueUniString(param, DirectoryServiceParam_Path, &Path)");
    const ObserverMaskScope mask(PRINT_TRACE);
    REPORTS(scan(ScanParameters(path, L"*.none").Get()), E_FAIL,
            "Scan Path \"" + folder.Path().string() + "\\*.none\" failed: LastError: 2");
}

TEST(MasterBootstrap, RunsOnceAndItsClassesMayUseEveryService)
{
    const auto bootstrap = NewBootstrap({Item("bootstrap").Get(), Item("callback").Get()});
    const auto trace = Singleton<IValueSet>(CLSID_ValueSet);
    const std::uint32_t references = ReferencesOn(*SingletonRegistry());
    const std::wstring file = ModuleFile("callback", "Callback").wstring();
    EXPECT_EQ(GlobalFactory()->RegisterClass(CLSID_Callback, file.c_str(), "loaded here"), S_OK);
    EXPECT_EQ(bootstrap->Startup(trace.Get()), S_OK);
    FAILS(bootstrap->Startup(trace.Get()), E_FAIL, "Startup already called");
    EXPECT_EQ(GlobalFactory()->FlushModules(), S_OK);
    EXPECT_EQ(As<IBootstrap>(*bootstrap)->Cleanup(trace.Get()), S_OK);
    EXPECT_EQ(TextOf(*trace, BootstrapTrace), "mA+B+csdD+eD-C-A-B-") << "C was taken out";
    EXPECT_EQ(ReferencesOn(*SingletonRegistry()), references) << "modules gave theirs back";
}

TEST(MasterBootstrap, AFailingClassEndsStartUpButNotCleanUp)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const auto trace = Make<IValueSet>(CLSID_ValueSet);
    const auto good = ScanParameters(ModuleFolder("failing-bootstrap").wstring());
    const auto bootstrap = NewBootstrap({TestItem::New().Get(), WideValue(L"").Get(), good.Get()});
    EXPECT_EQ(bootstrap->SetFactory(factory.Get()), S_OK);
    EXPECT_EQ(bootstrap->SetClsidRegistry(registry.Get()), S_OK);
    EXPECT_EQ(factory->RegisterClass(CLSID_Value, nullptr, nullptr), S_OK);
    EXPECT_EQ(registry->RegisterClass(BootstrapRegistryCleanup_Level2, CLSID_Value), S_OK);
    EXPECT_EQ(registry->RegisterClass(BootstrapRegistryCleanup_Level2, Numbered(0)), S_OK);
    const ObserverMaskScope mask(PRINT_TRACE | PRINT_WARN | PRINT_PROGRESS);
    const DiagnosticsCapture capture;
    EXPECT_EQ(bootstrap->Cleanup(trace.Get()), S_OK);
    EXPECT_EQ(bootstrap->Startup(trace.Get()), E_ABORT);
    EXPECT_EQ(TextOf(*trace, BootstrapTrace), "X+Y+");
    EXPECT_EQ(bootstrap->Cleanup(trace.Get()), E_NOINTERFACE) << "the first level's last class";
    EXPECT_EQ(TextOf(*trace, BootstrapTrace), "X+Y+X-Y-Z-");
    for (const std::string& line :
         {"Cannot get path-string from Folder-Collection: No such interface supported"s,
          "Empty path-string at Folder-Collection"s,
          "CreateClassObject(" + Text(Numbered(0)) + ") failed: Fail; Unspecified error",
          "Object " + Text(CLSID_Value) + " not supports IBootstrap: No such interface supported"})
        EXPECT_EQ(capture.CountLinesWith(line), 1u) << line;
}

TEST(MasterBootstrap, AFolderThatEndsStartUpIsNamed)
{
    const TempFolder folder;
    const ObserverMaskScope mask(PRINT_WARN | PRINT_ERROR);
    for (const auto& [path, cause] :
         {std::pair(folder.Path(), " has no file that matches \"*.dll\""),
          std::pair(folder.Path() / "none",
                    ", which was searched for \"*.dll\", is not there, or")})
    {
        const auto bootstrap = NewBootstrap({WideValue(path.wstring()).Get(), Item("good").Get()});
        const DiagnosticsCapture capture;
        EXPECT_EQ(bootstrap->Startup(nullptr), E_FAIL);
        EXPECT_EQ(capture.CountLinesWith("-WARN- Module folder \"" + path.string() + '"' + cause),
                  2u)
            << "it is tried twice";
        EXPECT_EQ(capture.CountLinesWith(" RegisterService->RegisterFolder(): "), 1u);
        EXPECT_EQ(bootstrap->Cleanup(nullptr), S_OK);
    }
    FAILS(NewBootstrap({Item("good").Get(), TestItem::New().Get()})->Startup(nullptr),
          E_NOINTERFACE, "RegisterFolder");
}

TEST(MasterBootstrap, AnObjectThatIsKeptOverCleanUpIsNamedByItsModule)
{
    tSystem::CLibrary stays; // so that the object can be given back at all
    ASSERT_TRUE(stays.Open(ModuleFile("good", "Counter").wstring().c_str()));
    ObjectPtr<ICounter> kept;
    const auto bootstrap = NewBootstrap({Item("good").Get()});
    EXPECT_EQ(bootstrap->Startup(nullptr), S_OK);
    EXPECT_EQ(CreateObject(CLSID_Counter, kept), S_OK);
    const ObserverMaskScope warnings(PRINT_WARN);
    REPORTS(bootstrap->Cleanup(nullptr), S_OK,
            "Counter.dll\" is unloaded while 1 of its objects are alive");
}

TEST(MasterBootstrap, FoldersWithoutModulesArePassedOver)
{
    const TempFolder folder;
    create_directory(folder.Path() / "hidden");
    folder.Write("hidden/.a.dll", "");
    folder.Write("A.DLL", "");
    const std::wstring path = folder.Path().wstring();
    const auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
    const DiagnosticsCapture nothing;
    EXPECT_EQ(SetModuleFolders(nullptr, {L"."}), E_POINTER);
    EXPECT_EQ(SetModuleFolders(bootstrap.Get(), {path.c_str()}), S_OK);
    std::vector given{path + L"\\none", path + L"\\", path + L"/A.DLL"};
    if (tSystem::FileNamesAreBytes) // where a dot hides a file
        given.push_back(path + L"\\hidden");
    EXPECT_EQ(SetModuleFolders(bootstrap.Get(), given), S_FALSE);
    ObjectPtr<IList> folders;
    EXPECT_EQ(bootstrap->GetModuleFolders(folders.PutVoid()), S_OK);
    EXPECT_EQ(TextsOf(*folders), std::vector{path + L"\\"});
    EXPECT_EQ(nothing.Text(), "");
}

TEST(Rounds, OfStartUpAndCleanUpLeaveTheProcessAsItWas)
{
    const auto rounds = static_cast<int>(Setting("OSSIRA_TEST_ROUNDS", 100));
    const int warmUp = rounds / 10 + 10;
    const std::uint32_t objects = GetObjectOpenCount();
    MemoryInUse before;
    for (int round = 0; round < warmUp + rounds; ++round)
    {
        if (round == warmUp)
            before = MeasureMemory();
        {
            const auto trace = Make<IValueSet>(CLSID_ValueSet);
            const auto host = NewBootstrap({Item("bootstrap").Get(), Item("good").Get()});
            ASSERT_EQ(host->Startup(trace.Get()), S_OK);
            ASSERT_EQ(Make<ICounter>(CLSID_Counter)->CountInModule(), 1);
            ASSERT_EQ(Singleton<ICounter>(CLSID_Counter)->CountInModule(), 2);
            ASSERT_EQ(host->Cleanup(trace.Get()), S_OK);
            ASSERT_EQ(TextOf(*trace, BootstrapTrace), "A+B+C+D+D-C-A-B-");
        }
        ASSERT_FALSE(IsMapped(ModuleFile("good", "Counter")));
        ASSERT_EQ(GetObjectOpenCount(), objects);
    }
    const MemoryInUse after = MeasureMemory();
    // Less than the smallest allocation a round, from 1,000 rounds on; the process as a whole moves
    // by pages. A sanitizer keeps what was freed, and looks for leaks itself.
    EXPECT_LT(after.Heap, before.Heap + 8 * 1024);
    EXPECT_TRUE(before.Heap == 0 || after.Process < before.Process + 1024 * 1024);
}

} // namespace

} // namespace Tavrik::Ossira
