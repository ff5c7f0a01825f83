// What a person reads who made a mistake: a warning that names the file or the class, and the
// cause.
#include "ServiceTools.h"

#include "Platform.h"

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

// The line that `work` writes, warnings being shown and errors not.
template <class Work>
void ExpectWarning(const std::string& what, Work work, const std::string& file,
                   const std::string& cause)
{
    const ObserverMaskScope warnings(PRINT_WARN);
    const DiagnosticsCapture capture;
    work();
    bool isTold = false;
    for (const std::string& line : capture.Lines())
    {
        isTold = isTold || (line.find("-WARN-") != line.npos && line.find(file) != line.npos &&
                            line.find(cause) != line.npos);
    }
    EXPECT_TRUE(isTold) << what << ": " << file << ", " << cause << "\n" << capture.Text();
}

TEST(Mistakes, AFileThatIsNoModuleIsNamedWithTheReason)
{
    const TempFolder folder;
    const std::pair<const char*, std::string> files[] = {
        {"text.dll", "it is a text file, no library"},
        {"classless.dll", "is OSSIRA_CLASS missing?"},
        {"double.dll", "as \"first\" and as \"second\""},
        {"folder.dll", "it is a folder"},
        {"absent.dll", "it does not exist"}};
    folder.Write("text.dll", "This is no module.");
    folder.Write("classless.dll", ReadFile(ModuleFile("raw", "NoClasses")));
    folder.Write("double.dll", ReadFile(ModuleFile("raw", "SameIdTwice")));
    create_directory(folder.Path() / "folder.dll");
    for (const auto& [name, cause] : files)
    {
        const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
        const auto read = [&, file = folder.Path() / name]
        {
            (void)RegisterModule(file, nullptr, factory.Get());
        };
        ExpectWarning(name, read, std::string(name) + '"', cause);
    }
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto scan = [&]
    {
        EXPECT_EQ(RegisterService(factory.Get())
                      ->RegisterFolder(folder.Path().wstring().c_str(), nullptr, nullptr, nullptr),
                  S_OK);
    };
    ExpectWarning("scan", scan, "text.dll\"", "it is a text file, no library");
}

TEST(Mistakes, AFolderThatEndsStartUpIsNamed)
{
    const TempFolder folder;
    for (const auto& [path, cause] :
         {std::pair(folder.Path(), "has no file that matches \"*.dll\""),
          std::pair(folder.Path() / "none", "is not there, or cannot be read")})
    {
        const auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
        ObjectPtr<IList> folders;
        EXPECT_EQ(bootstrap->GetModuleFolders(folders.PutVoid()), S_OK);
        EXPECT_EQ(folders->SetItemAt(0, WideValue(path.wstring()).Get()), S_OK);
        const auto start = [&]
        {
            EXPECT_EQ(bootstrap->Startup(nullptr), E_FAIL);
        };
        ExpectWarning("folder", start, path.string() + '"', cause);
        EXPECT_EQ(bootstrap->Cleanup(nullptr), S_OK);
    }
}

TEST(Mistakes, AnObjectThatIsKeptOverCleanUpIsNamedByItsModule)
{
    tSystem::CLibrary stays; // so that the object can be given back at all
    ASSERT_TRUE(stays.Open(ModuleFile("good", "Counter").wstring().c_str()));
    ObjectPtr<ICounter> kept;
    const auto live = [&]
    {
        const auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
        EXPECT_EQ(SetModuleFolders(bootstrap.Get(), std::vector{ModuleFolder("good").wstring()}),
                  S_OK);
        EXPECT_EQ(bootstrap->Startup(nullptr), S_OK);
        EXPECT_EQ(CreateObject(CLSID_Counter, kept), S_OK);
        EXPECT_EQ(bootstrap->Cleanup(nullptr), S_OK);
    };
    ExpectWarning("kept", live, "Counter.dll\" is unloaded while 1 of its objects", "");
}

TEST(Mistakes, FoldersWithoutModulesArePassedOver)
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

} // namespace

} // namespace Tavrik::Ossira
