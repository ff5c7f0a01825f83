// Modules that misbehave and files that are none. Each gets its code; nothing stays loaded, nothing
// leaks, and what was registered before stays usable.
#include "DiagnosticsCapture.h"
#include "Ossira.h"
#include "TestModules.h"
#include "TestTools.h"

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

struct RawCase
{
    const char* Module;
    Result Registration; // with a registry for bootstrap classes
    std::size_t Classes; // that are registered all the same
    Result Creation;     // of the first class
    const char* Report;  // in the one error line; null: none is written
};

constexpr RawCase RawCases[] = {
    {"Decent", S_OK, 2, S_OK, nullptr},
    {"NegativeCount", E_ABORT, 0, E_FAIL, nullptr},
    {"HugeCount", E_INVALIDARG, 2, S_OK, "server->GetClassObjectID()"},
    {"NoClasses", S_OK, 0, E_FAIL, nullptr},
    {"SecondIdFails", E_ABORT, 1, S_OK, "server->GetClassObjectID()"},
    {"SecondTextFails", E_ABORT, 1, S_OK, "server->GetClassObjectInfo()"},
    {"EndlessText", S_OK, 2, S_OK, nullptr},
    {"CreatorFails", S_OK, 2, E_ABORT, nullptr},
    {"CreatorAnswersNull", S_OK, 2, E_UNEXPECTED, nullptr},
    {"CreatorThrows", S_OK, 2, E_UNEXPECTED, nullptr},
    {"CreatorRunsOutOfMemory", S_OK, 2, E_OUTOFMEMORY, nullptr},
    {"CanUnloadThrows", S_OK, 2, S_OK, nullptr},
    {"BootstrapFails", E_ABORT, 2, S_OK, nullptr},
    {"BootstrapThrows", E_UNEXPECTED, 2, S_OK, "Catastrophic failure"},
    {"CountThrows", E_UNEXPECTED, 0, E_FAIL, "Catastrophic failure"},
    {"SecondIdThrows", E_UNEXPECTED, 1, S_OK, "server->GetClassObjectID()"},
    {"WithoutDllGetClassObject", E_FAIL, 0, E_FAIL, nullptr},
    {"WithoutDllCanUnloadNow", E_FAIL, 0, E_FAIL, nullptr},
    {"WithoutDLLGetOpenObjectCount", E_FAIL, 0, E_FAIL, nullptr},
    {"WithoutDLLGetClassCount", E_FAIL, 0, E_FAIL, nullptr},
    {"WithoutDLLGetClassObjectID", E_FAIL, 0, E_FAIL, nullptr},
    {"WithoutDLLGetClassObjectInfo", E_FAIL, 0, E_FAIL, nullptr},
    {"WithoutDLLRegisterBootstrap", S_FALSE, 2, S_OK, nullptr},
};

class Modules : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(RegisterModule(ModuleFile("good", "Counter"), nullptr, mFactory.Get()), S_OK);
    }

    // What was registered before is as good as it was.
    void TearDown() override
    {
        ObjectPtr<ICounter> counter;
        EXPECT_EQ(mFactory->GetClassObject(CLSID_Counter, IID_ICounter, counter.PutVoid()), S_OK);
        EXPECT_EQ(counter->Count(), 1);
    }

    const ObjectPtr<IObjectFactory> mFactory = Make<IObjectFactory>(CLSID_ObjectFactory);
    const ObjectPtr<IClsidRegistry> mRegistry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
};

TEST_F(Modules, EveryFaultEndsAsItsCodeAndItsLine)
{
    for (const RawCase& fault : RawCases)
    {
        SCOPED_TRACE(fault.Module);
        const std::filesystem::path file = ModuleFile("raw", fault.Module);
        auto factory = Make<IObjectFactory>(CLSID_ObjectFactory);
        {
            const DiagnosticsCapture capture;
            EXPECT_EQ(RegisterModule(file, mRegistry.Get(), factory.Get()), fault.Registration);
            EXPECT_EQ(capture.CountLinesWith(fault.Report == nullptr ? "-ERROR-" : fault.Report),
                      fault.Report == nullptr ? 0u : 1u)
                << capture.Text();
        }
        EXPECT_EQ(CountClasses(*factory), fault.Classes);
        EXPECT_EQ(IsMapped(file), fault.Classes > 0) << "the factory's own hold";
        {
            const DiagnosticsCapture capture;
            ObjectPtr<IUnknown> object;
            EXPECT_EQ(factory->GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid()),
                      fault.Creation);
            EXPECT_EQ(static_cast<bool>(object), fault.Creation == S_OK);
        }
        EXPECT_EQ(factory->FlushModules(), S_OK);
        factory.Reset();
        EXPECT_FALSE(IsMapped(file));
        EXPECT_EQ(GetExceptionOpenCount(), 0);
    }
}

TEST_F(Modules, AScanOfAFolderOfFaultsGoesToItsEnd)
{
    const ObserverMaskScope everything(PRINT_ERROR | PRINT_TRACE);
    const DiagnosticsCapture capture;
    EXPECT_EQ(RegisterService(mFactory.Get())
                  ->RegisterFolder(ModuleFolder("raw").wstring().c_str(), nullptr, mRegistry.Get(),
                                   nullptr),
              S_OK);
    EXPECT_EQ(CountClasses(*mFactory), 3u) << "the raw modules share their two";
    EXPECT_EQ(capture.CountLinesWith("Cannot open Library \""), 6u);
    EXPECT_EQ(capture.CountLinesWith("Library \"") - capture.CountLinesWith("Cannot open") -
                  capture.CountLinesWith("Register Classes from"),
              std::size(RawCases) - 6);
    EXPECT_EQ(capture.CountLinesWith("Register Classes Finished"), std::size(RawCases) - 6 - 6);
    EXPECT_EQ(mFactory->FlushModules(), S_OK);
}

TEST_F(Modules, FilesThatAreNoModulesAreRefusedWhateverIsWrongWithThem)
{
    const TempFolder folder;
    const std::string image = ReadFile(ModuleFile("good", "Counter"));
    ASSERT_GT(image.size(), 8192u);
    std::string otherMachine = image;
    PatchMachineType(otherMachine);

    std::vector<std::filesystem::path> files = {
        folder.Path() / "missing.dll",
        folder.Path(),
        folder.Write("empty.dll", ""),
        folder.Write("text.dll", "This is no module.\r\n"),
        folder.Write("long text.dll", std::string(100'000, 'x')),
        folder.Write("zeros.dll", std::string(100'000, '\0')),
        folder.Write("other machine.dll", otherMachine),
    };
    for (const std::size_t length :
         {std::size_t{1}, std::size_t{4}, std::size_t{63}, std::size_t{64}, std::size_t{512},
          std::size_t{4096}, image.size() / 4, image.size() / 2})
    {
        files.push_back(folder.Write("cut at " + std::to_string(length) + ".dll",
                                     std::string_view(image).substr(0, length)));
    }
    for (const std::filesystem::path& file : files)
    {
        SCOPED_TRACE(file);
        EXPECT_EQ(RegisterModule(file, mRegistry.Get(), mFactory.Get()), E_FAIL);
        EXPECT_FALSE(std::filesystem::is_regular_file(file) && IsMapped(file));

        // A class may be entered for such a file; the file is tried when an object is wanted.
        EXPECT_EQ(mFactory->RegisterClass(CLSID_RawFirst, file.wstring().c_str(), nullptr), S_OK);
        const DiagnosticsCapture capture;
        ObjectPtr<IUnknown> object;
        EXPECT_EQ(mFactory->GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid()), E_FAIL);
        EXPECT_EQ(capture.CountLinesWith("DynLib.Open()"), 1u) << capture.Text();
        EXPECT_EQ(mFactory->UnregisterClass(CLSID_RawFirst), S_OK);
    }

    folder.Write("the good one.dll", ReadFile(ModuleFile("raw", "Decent")));
    EXPECT_EQ(RegisterService(mFactory.Get())
                  ->RegisterFolder(folder.Path().wstring().c_str(), nullptr, nullptr, nullptr),
              S_OK);
    ObjectPtr<IUnknown> object;
    EXPECT_EQ(mFactory->GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid()), S_OK);
    object.Reset();
    EXPECT_EQ(mFactory->FlushModules(), S_OK); // so that the file can be removed
}

TEST_F(Modules, AClassOfNoFileThatTheRuntimeLacksIsRefusedAndNotAskedForEver)
{
    const auto factory = GlobalFactory();
    EXPECT_EQ(factory->RegisterClass(CLSID_RawFirst, nullptr, "nowhere"), S_OK);
    EXPECT_EQ(mFactory->RegisterClass(CLSID_RawFirst, L"", "nowhere"), S_OK);
    const DiagnosticsCapture capture;
    ObjectPtr<IUnknown> object;
    EXPECT_LT(factory->GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid()), 0);
    EXPECT_LT(mFactory->GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid()), 0);
    EXPECT_LT(CreateObject(CLSID_RawFirst, object), 0);
    EXPECT_LT(SingletonRegistry()->GetClassObject(CLSID_RawFirst, IID_IUnknown, object.PutVoid()),
              0);
    EXPECT_FALSE(object);
    EXPECT_LE(capture.Lines().size(), 50u) << "a handful of attempts, no endless chain";
}

} // namespace

} // namespace Tavrik::Ossira
