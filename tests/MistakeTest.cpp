// What a person reads who made a mistake: a warning that names the file or the class, and the
// cause.
#include "ServiceTools.h"

#include "Platform.h"

#include <cstring>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

const bool gIsWindows = tSystem::PathSeparator == L'\\';

// A module that is right, with one thing changed.
std::string Changed(std::string_view from, std::string_view to)
{
    std::string image = ReadFile(ModuleFile("dependent", "Dependent"));
    for (std::size_t at = 0; (at = image.find(from, at)) != image.npos; at += to.size())
        image.replace(at, to.size(), to);
    return image;
}

// The module for another processor: its number stands at different places.
std::string For(std::uint16_t elfMachine, std::uint16_t peMachine, char elfClass = 2)
{
    std::string image = ReadFile(ModuleFile("raw", "Decent"));
    std::uint32_t at = 18;
    if (gIsWindows)
        std::memcpy(&at, &image[0x3C], sizeof at);
    else
        image[4] = elfClass;
    std::memcpy(&image[gIsWindows ? at + 4 : at], gIsWindows ? &peMachine : &elfMachine, 2);
    return image;
}

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
    const std::string image = ReadFile(ModuleFile("raw", "Decent"));
    const std::string helper = ReadFile(ModuleFile("dependent", "Helper"));
    folder.Write("Helper.dll", helper);
    create_directory(folder.Path() / "folder.dll");
    std::error_code noLinks;
    create_symlink("nowhere", folder.Path() / "link.dll", noLinks);
    const std::tuple<const char*, std::string, const char*> files[] = {
        {"text.dll", "This is no module.", "it is a text file, no library"},
        {"empty.dll", "", "it is empty"},
        {"short.dll", image.substr(0, image.size() / 2), "it is cut short or damaged: it has "},
        {"noise.dll", std::string(1000, '\x01'), "it is no library: it begins like none"},
        {"old.dll", For(3, 0x14C, 1), "it is a 32-bit library"},
        {"arm.dll", For(183, 0xAA64), "it is built for another processor: ARM, 64 bits"},
        {"foreign.dll",
         (gIsWindows ? "\x7F"
                       "ELF"
                     : "MZ") +
             image,
         "it is a library or program for "},
        {"alone.dll", Changed("Helper.dll", "Hxlper.dll"), "Hxlper.dll"},
        {"unlike.dll", Changed("HelperAnswer", "HelperAnswXr"), "HelperAnswXr"},
        {"library.dll", helper,
         "it is no component module: it has no DllGetClassObject, DllCanUnloadNow"},
        {"lacking.dll", ReadFile(ModuleFile("raw", "WithoutDLLGetClassCount")),
         ": it is no component module: it has no DLLGetClassCount"},
        {"refusing.dll", ReadFile(ModuleFile("raw", "NeverAttached")), "its start-up failed"},
        {"classless.dll", ReadFile(ModuleFile("raw", "NoClasses")), "is OSSIRA_CLASS missing?"},
        {"double.dll", ReadFile(ModuleFile("raw", "SameIdTwice")),
         "as \"first\" and as \"second\""},
        {"folder.dll", "", "it is a folder"},
        {"link.dll", "", "it is a broken link: it leads to \"nowhere\""},
        {"absent.dll", "", "it does not exist"}};
    for (const auto& [name, content, cause] : files)
    {
        // Wine puts a stub in the place of a function that is not there, and makes no links.
        const std::string_view text = cause;
        if (gIsWindows && (text == "HelperAnswXr" || text.starts_with("it is a broken link")))
            continue;
        if (!content.empty() || text == "it is empty")
            folder.Write(name, content);
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
    ExpectWarning("scan", scan, "arm.dll\"", "it is built for another processor: ARM, 64 bits");
}

TEST(Mistakes, AClassThatTwoModulesHaveIsNamedWithBoth)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto read = [&]
    {
        for (const char* module : {"Decent", "EndlessText"})
            EXPECT_EQ(RegisterModule(ModuleFile("raw", module), nullptr, factory.Get()), S_OK);
    };
    ExpectWarning("two modules", read, Text(CLSID_RawFirst) + " is in two modules: it is taken",
                  "Decent.dll\", and not from \"");
}

TEST(Mistakes, AFileThatIsTriedAgainAtUseIsNamed)
{
    const auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const auto read = [&]
    {
        EXPECT_EQ(factory->RegisterClass(CLSID_RawFirst, L"./nowhere.dll", ""), S_OK);
    };
    ExpectWarning("RegisterClass", read, "nowhere.dll\" is not used: ", "");
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

TEST(Mistakes, AClassThatFailsToStartIsNamedWithItsModuleAndTheCode)
{
    const auto trace = Make<IValueSet>(CLSID_ValueSet);
    const auto bootstrap = Make<IMasterBootstrap>(CLSID_MasterBootstrap);
    EXPECT_EQ(SetModuleFolders(nullptr, {L"."}), E_POINTER);
    EXPECT_EQ(
        SetModuleFolders(bootstrap.Get(), std::vector{ModuleFolder("failing-bootstrap").wstring()}),
        S_OK);
    const auto start = [&]
    {
        EXPECT_TRUE(Failed(bootstrap->Startup(trace.Get())));
    };
    ExpectWarning("start-up", start, "BootstrapFailing.dll\" failed: 0x8",
                  "Startup BootstrapRegistryStartup_Level0: class \"Y\" ");
    const auto cleanUp = [&]
    {
        EXPECT_TRUE(Failed(bootstrap->Cleanup(trace.Get())));
    };
    ExpectWarning("clean-up", cleanUp, "BootstrapFailing.dll\" failed: 0x8", "Cleanup ");
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
