// The component server, the module exports and the library's front door, seen from inside: these
// tests are the library, with classes of their own in its class table.
#include "ComServer.h"
#include "DiagnosticsCapture.h"
#include "Library.h"
#include "PublicUtil.h"
#include "SampleObject.h"
#include "TestTools.h"

#include <algorithm>
#include <barrier>
#include <cstring>
#include <regex>
#include <thread>

using Tavrik::Ossira::Result;

OSSIRA_API Result DllGetClassObject(const CLSID* clsid, const IID* iid, void** out);
OSSIRA_API Result DllCanUnloadNow();
OSSIRA_API Result DLLGetOpenObjectCount();
OSSIRA_API Result DLLGetClassCount();
OSSIRA_API Result DLLGetClassObjectID(std::uint32_t first, std::uint32_t count, CLSID* out);
OSSIRA_API Result DLLGetClassObjectInfo(std::uint32_t index, char* buffer, std::uint32_t size);
OSSIRA_API Result DLLRegisterBootstrap(Tavrik::Ossira::IUnknown* registry,
                                       Tavrik::Ossira::IUnknown* argument);

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

constexpr CLSID CLSID_Unbuildable = {
    0xFFFFFFFF, 0xFFFF, 0x4E6C, {0xB8, 0x92, 0x7E, 0x78, 0x1A, 0xF8, 0x69, 0x92}};
constexpr GUID Nobody = {0x12345678, 0, 0, {}};

class T_Unbuildable : public IUnknown, public COssiraUnknown
{
public:
    static constexpr CLSID ClassId = CLSID_Unbuildable;

    T_Unbuildable()
    {
        OSSIRA_THROW(E_ABORT, "cannot be built");
    }
};

OSSIRA_CLASS(T_Sample, "Sample")
OSSIRA_CLASS(T_Unbuildable, "A text of exactly forty characters......")
OSSIRA_BOOTSTRAP(T_Sample::ClassId, BootstrapRegistryStartup_Level1, Nobody, "Sample")

std::vector<CLSID> AllClasses()
{
    std::vector<CLSID> classes(static_cast<std::size_t>(DLLGetClassCount()));
    EXPECT_EQ(DLLGetClassObjectID(0, static_cast<std::uint32_t>(classes.size()), classes.data()),
              S_OK);
    return classes;
}

// The library as it is while this lives: not attached.
class Detached
{
public:
    Detached()
    {
        DetachLibrary(false);
    }

    ~Detached()
    {
        EXPECT_TRUE(AttachLibrary(nullptr));
    }

    Detached(const Detached&) = delete;
    Detached& operator=(const Detached&) = delete;
};

// --- The exports of every module
// ------------------------------------------------------------------

TEST(ComponentServer, RefusesARangeOutsideItsTable)
{
    std::vector<CLSID> out = AllClasses();
    const auto count = static_cast<std::uint32_t>(out.size());
    struct
    {
        std::uint32_t First;
        std::uint32_t Count;
        Result Answer;
    } const cases[] = {
        {0, count, S_OK},
        {count, 0, S_OK},
        {count + 1, 0, E_INVALIDARG},
        {1, count, E_INVALIDARG},
        {0, count + 1, E_INVALIDARG},
        {count, 1, E_INVALIDARG},
        {0xFFFFFFFF, 2, E_INVALIDARG}, // the sum wraps to 1
        {2, 0xFFFFFFFF, E_INVALIDARG},
        {0x80000000, 0x80000000, E_INVALIDARG},
    };
    for (const auto& [first, number, answer] : cases)
        EXPECT_EQ(DLLGetClassObjectID(first, number, out.data()), answer) << first << " " << number;
    EXPECT_EQ(DLLGetClassObjectID(0, 1, nullptr), E_INVALIDARG);
}

TEST(ComponentServer, SaysWhyThereIsNoObjectAndLeavesNoneBehind)
{
    const ObserverMaskScope everything(PRINT_ERROR | PRINT_WARN | PRINT_TRACE);
    struct
    {
        const CLSID& Class;
        const IID& Interface;
        Result Answer;
        const char* Line;
    } const cases[] = {
        {Nobody, IID_IUnknown, E_NOINTERFACE,
         "\a.*-ERROR- No such class available: CLSID 12345678-0000-0000-0000-000000000000"},
        {CLSID_Unbuildable, IID_IUnknown, E_OUTOFMEMORY,
         "\a.*-ERROR- Create Object failed: A text of exactly forty characters\\.\\.\\.\\.\\.\\. "
         "- CLSID FFFFFFFF-FFFF-4E6C-B892-7E781AF86992"},
        {T_Sample::ClassId, Nobody, E_NOINTERFACE,
         "w.*-WARN- No such interface available: Sample - "
         "CLSID 43665D41-942A-4E6C-B892-7E781AF86992, IID 12345678-0000-0000-0000-000000000000"},
        {T_Sample::ClassId, IID_IBootstrap, S_OK,
         " .*  Object 0x[0-9a-f]+ created; Sample - CLSID: 43665D41-942A-4E6C-B892-7E781AF86992 "
         "IID: 9FD18822-3AF8-4D80-AFB0-587AF0A18716"},
    };
    const std::uint32_t before = GetObjectOpenCount();
    for (const auto& [clsid, iid, answer, line] : cases)
    {
        const DiagnosticsCapture capture;
        ObjectPtr<IUnknown> object;
        EXPECT_EQ(DllGetClassObject(&clsid, &iid, object.PutVoid()), answer);
        const std::vector<std::string> lines = capture.Lines();
        ASSERT_EQ(lines.size(), 1u) << capture.Text();
        EXPECT_TRUE(std::regex_match(lines[0], std::regex(line))) << lines[0];
        EXPECT_EQ(static_cast<bool>(object), answer == S_OK);
        EXPECT_EQ(GetObjectOpenCount(), before + (object ? 1 : 0));
    }
}

TEST(ComponentServer, WithoutAServerEveryExportDeniesAccess)
{
    const Detached detached;
    const DiagnosticsCapture capture;
    CLSID clsid = {};
    char text[8];
    void* out = nullptr;
    EXPECT_EQ(DllGetClassObject(&CLSID_Value, &IID_IUnknown, &out), E_ACCESSDENIED);
    EXPECT_EQ(DllCanUnloadNow(), E_ACCESSDENIED);
    EXPECT_EQ(DLLGetOpenObjectCount(), E_ACCESSDENIED);
    EXPECT_EQ(DLLGetClassCount(), E_ACCESSDENIED);
    EXPECT_EQ(DLLGetClassObjectID(0, 1, &clsid), E_ACCESSDENIED);
    EXPECT_EQ(DLLGetClassObjectInfo(0, text, 8), E_ACCESSDENIED);
    EXPECT_EQ(GetObjectOpenCount(), 0u);
    EXPECT_EQ(InitializeGlobalSingleton(), E_ACCESSDENIED);
    EXPECT_EQ(capture.Text(), "");
    EXPECT_EQ(CreateClassObject(&CLSID_Value, &IID_IUnknown, &out), E_ACCESSDENIED);
    EXPECT_EQ(capture.Text(), "\aOssira: CreateClassObject: gbComServer not available: "
                              "Access Denied [Build-DynLib]\n");
}

// --- Attach and detach
// ----------------------------------------------------------------------------

TEST(Library, ListsTheObjectsThatAreStillAliveAtDetach)
{
    auto named = Make<IObjectName>(T_Sample::ClassId);
    EXPECT_EQ(named->SetObjectName("forgotten"), S_OK);
    ObjectPtr<IObjectName> again = named;
    auto unnamed = MakeObject<T_Sample>();

    const DiagnosticsCapture capture;
    const Detached detached;
    named.Reset(); // they die unattended, so that the next server does not miss them
    again.Reset();
    unnamed.Reset();
    if (OSSIRA_TRACK_OBJECTS == 0)
    {
        EXPECT_EQ(capture.Text(), "");
        return;
    }
    const std::vector<std::string> lines = capture.Lines();
    ASSERT_EQ(lines.size(), 4u) << capture.Text();
    EXPECT_EQ(lines[0], "\aComServer ALive Objects:");
    const std::string place = "  0x[0-9a-f]{8}: ";
    const std::string sample = " Sample 43665D41-942A-4E6C-B892-7E781AF86992 ";
    const std::regex withName(place + "\"forgotten\"" + sample + "\\(2 cnt\\)");
    const std::regex withoutName(place + "\"\"" + sample + "\\(1 cnt\\)");
    const bool inOrder = std::regex_match(lines[1], withName);
    EXPECT_TRUE(std::regex_match(lines[inOrder ? 1 : 2], withName)) << capture.Text();
    EXPECT_TRUE(std::regex_match(lines[inOrder ? 2 : 1], withoutName)) << capture.Text();
    EXPECT_EQ(lines[3], "");
}

TEST(Library, FilesItsBootstrapChainWithARegistry)
{
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    const ObserverMaskScope everything(PRINT_ERROR | PRINT_TRACE);
    {
        const DiagnosticsCapture capture;
        EXPECT_EQ(DLLRegisterBootstrap(nullptr, nullptr), E_INVALIDARG);
        EXPECT_EQ(capture.CountLinesWith("-ERROR- clsidRegistry == NULL"), 1u);
    }
    {
        const auto noRegistry = MakeObject<T_Sample>();
        const DiagnosticsCapture capture;
        EXPECT_EQ(DLLRegisterBootstrap(static_cast<ISample*>(noRegistry.Get()), nullptr),
                  E_NOINTERFACE);
        EXPECT_EQ(
            capture.CountLinesWith("clsidRegistry->QueryInterface(IID_IClsidRegistry, ) failed"),
            1u);
    }
    const DiagnosticsCapture capture;
    EXPECT_EQ(DLLRegisterBootstrap(registry.Get(), nullptr), S_OK);
    EXPECT_EQ(
        registry->ContainsGroupClass(BootstrapRegistryStartup_Level1, Nobody, T_Sample::ClassId),
        S_OK);
    EXPECT_EQ(capture.CountLinesWith("    Bootstrap Register Sample - "
                                     "Cat:F54E31DA-DBBA-49BC-8140-F1FE5D8F4E5E  "
                                     "Group:12345678-0000-0000-0000-000000000000  "
                                     "Class:43665D41-942A-4E6C-B892-7E781AF86992"),
              1u)
        << capture.Text();
}

// --- The front door
// -------------------------------------------------------------------------------

TEST(CreateClassObject, AnswersEveryWrongCallWithItsCodeAndLine)
{
    const ObserverMaskScope everything(PRINT_ERROR | PRINT_WARN);
    void* out = nullptr;
    struct
    {
        const CLSID* Class;
        const IID* Interface;
        void** Out;
        Result Answer;
        const char* Line;
    } const cases[] = {
        {&CLSID_Value, &IID_IValue, nullptr, E_POINTER,
         "\aOssira: CreateClassObject: invalid pointer 'ppv' [Build-DynLib]"},
        {nullptr, &IID_IValue, &out, E_POINTER,
         "\aOssira: CreateClassObject: invalid pointer 'clsid' [Build-DynLib]"},
        {&CLSID_Value, nullptr, &out, E_POINTER,
         "\aOssira: CreateClassObject: invalid pointer 'iid' [Build-DynLib]"},
        {&CLSID_Value, &Nobody, &out, E_NOINTERFACE, "-WARN- No such interface available: Value"},
        {&CLSID_GlobalSingleton, &IID_IValue, &out, E_NOINTERFACE,
         "GlobalSingleton Object failed: IID 389A1174-F380-4CCA-A15E-46248F36AA4E  [Build-DynLib]"},
        {&Nobody, &IID_IValue, &out, E_NOINTERFACE,
         "No such class available: CLSID 12345678-0000-0000-0000-000000000000"},
    };
    for (const auto& [clsid, iid, target, answer, line] : cases)
    {
        const DiagnosticsCapture capture;
        out = &out;
        EXPECT_EQ(CreateClassObject(clsid, iid, target), answer) << line;
        EXPECT_EQ(out, target == nullptr ? &out : nullptr) << line;
        EXPECT_EQ(capture.CountLinesWith(line), 1u) << capture.Text();
    }
}

TEST(CreateClassObject, ConcurrentFirstRequestsEndWithOneSingleton)
{
    for (int round = 0; round < 50; ++round)
    {
        {
            const Detached fresh;
        }
        ASSERT_EQ(ExistingSingleton(), nullptr);
        const std::uint32_t before = GetObjectOpenCount();
        constexpr int threads = 8;
        std::barrier start(threads);
        std::vector<ObjectPtr<ISingleton>> got(threads);
        {
            std::vector<std::jthread> running;
            for (ObjectPtr<ISingleton>& mine : got)
            {
                running.emplace_back(
                    [&]
                    {
                        start.arrive_and_wait();
                        EXPECT_EQ(CreateObject(CLSID_GlobalSingleton, mine), S_OK);
                    });
            }
        }
        for (const ObjectPtr<ISingleton>& one : got)
            EXPECT_EQ(one.Get(), ExistingSingleton());
        EXPECT_EQ(GetObjectOpenCount(), before + 1) << "the losers' objects are gone";
    }
}

} // namespace

} // namespace Tavrik::Ossira
