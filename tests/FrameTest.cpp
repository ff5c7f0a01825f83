// The component server, the module exports and the library's front door, seen from inside: these
// tests are the library, with classes of their own in its class table.
#include "BulletDirectoryService.h"
#include "ComServer.h"
#include "DiagnosticsCapture.h"
#include "DynLib.h"
#include "FailingMemory.h"
#include "Library.h"
#include "ModuleExports.h"
#include "OssiraDatatypeBuilder.h"
#include "SampleObject.h"
#include "TestItem.h"
#include "TestTools.h"

#include <regex>

#define SAMPLE "FFFFFFFF-942A-4E6C-B892-7E781AF86992"

namespace Tavrik::Ossira::tTest
{

namespace
{

constexpr GUID Nobody = {0x12345678, 0, 0, {}};

OSSIRA_CLASS(T_Sample, "Sample")
OSSIRA_CLASS_AS(T_Sample, Numbered(1, 4), "On the same line")
OSSIRA_BOOTSTRAP(T_Sample::ClassId, BootstrapRegistryStartup_Level1, Nobody, "Sample")

TEST(ModuleExports, ListTheClassesAndRefuseAWrongRange)
{
    const auto count = static_cast<std::uint32_t>(DLLGetClassCount());
    std::vector<CLSID> all(count);
    EXPECT_EQ(DLLGetClassObjectID(0, count, all.data()), S_OK);
    EXPECT_EQ(DLLGetClassObjectID(1, count, all.data()), E_INVALIDARG);
    EXPECT_EQ(DLLGetClassObjectID(0, count + 1, all.data()), E_INVALIDARG);
    EXPECT_EQ(DLLGetClassObjectID(0xFFFFFFFF, 2, all.data()), E_INVALIDARG); // wraps to 1
    EXPECT_EQ(DLLGetClassObjectID(0, 1, nullptr), E_INVALIDARG);

    char text[8] = "#######"; // the sample, the last one, has a text of six characters
    EXPECT_EQ(DLLGetClassObjectInfo(count, text, 8), E_INVALIDARG);
    EXPECT_EQ(DLLGetClassObjectInfo(count - 1, text, 0xFFFFFFFF), E_INVALIDARG);
    EXPECT_EQ(DLLGetClassObjectInfo(count - 1, nullptr, 8), E_INVALIDARG);
    EXPECT_STREQ(text, "#######");
    EXPECT_EQ(DLLGetClassObjectInfo(count - 1, text, 7), S_OK);
    EXPECT_STREQ(text, "Sample");
    for (const std::uint32_t size : {6u, 1u})
    {
        text[0] = '#';
        EXPECT_EQ(DLLGetClassObjectInfo(count - 1, text, size), S_OK);
        EXPECT_STREQ(text, "") << "a text that does not fit as a whole";
    }
}

TEST(ModuleExports, AnswerACreationWithItsCodeAndLineAndLeaveNothingBehind)
{
    const ObserverMaskScope everything(PRINT_ERROR | PRINT_WARN | PRINT_TRACE);
    const std::uint32_t before = GetObjectOpenCount();
    void* out = &out;
    REPORTS(DllGetClassObject(&CLSID_Value, &IID_IValue, nullptr), E_INVALIDARG);
    REPORTS(DllGetClassObject(nullptr, &IID_IValue, &out), E_POINTER);
    REPORTS(DllGetClassObject(&CLSID_Value, nullptr, &out), E_POINTER);
    EXPECT_EQ(out, nullptr);
    const auto createWithoutMemory = [&]
    {
        const FailingMemory none(0, false);
        return DllGetClassObject(&T_Sample::ClassId, &IID_IUnknown, &out);
    };
    REPORTS(createWithoutMemory(), E_OUTOFMEMORY,
            "] -ERROR- Create Object failed: Sample - CLSID " SAMPLE);
    REPORTS(CreateClassObject(&CLSID_Value, &IID_IValue, nullptr), E_POINTER,
            "\aOssira: CreateClassObject: invalid pointer 'ppv' [Build-DynLib]");
    out = &out;
    REPORTS(CreateClassObject(&CLSID_Value, nullptr, &out), E_POINTER,
            "\aOssira: CreateClassObject: invalid pointer 'iid' [Build-DynLib]");
    EXPECT_EQ(out, nullptr);
    REPORTS(CreateClassObject(nullptr, &IID_IValue, &out), E_POINTER,
            "\aOssira: CreateClassObject: invalid pointer 'clsid' [Build-DynLib]");
    out = &out;
    REPORTS(CreateClassObject(&CLSID_GlobalSingleton, &IID_IValue, &out), E_NOINTERFACE,
            "] -WARN- GlobalSingleton Object failed: IID 389A1174-F380-4CCA-A15E-46248F36AA4E  "
            "[Build-DynLib]");
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(GetObjectOpenCount(), before);
    REPORTS(DLLRegisterBootstrap(nullptr, nullptr), E_INVALIDARG, "-ERROR- clsidRegistry == NULL");
    const auto registry = Make<IClsidRegistry>(CLSID_ClsidRegistry);
    EXPECT_EQ(DLLRegisterBootstrap(registry.Get(), nullptr), S_OK);
    EXPECT_EQ(
        registry->ContainsGroupClass(BootstrapRegistryStartup_Level1, Nobody, T_Sample::ClassId),
        S_OK);
}

// --- Classes that misbehave while they are created ----------------------------------------------

struct T_Troubled : ISample, COssiraUnknown
{
    static constexpr CLSID ClassId = GUID_Null;
};

struct T_HoldsItself : T_Troubled
{
    OSSIRA_INTERFACES(ISample)
    T_HoldsItself()
    {
        const ObjectPtr<IUnknown> self(PrivateUnknown());
    }
};

struct T_FailsAsBuilt : T_Troubled
{
    OSSIRA_INTERFACES(ISample)
    T_FailsAsBuilt()
    {
        OSSIRA_THROW(E_ABORT, "no ground to build on");
    }
};

struct T_AnswersOtherwise : T_Troubled
{
    template <tDetail::EQuery Query>
    Result AnswerQuery(const IID& iid, void** out)
    {
        return AnswerPrivateUnknown(iid, out);
    }
};

struct T_ThrowsWhenAsked : T_HoldsItself
{
    Result InternalQueryInterface(const IID&, void**) override
    {
        OSSIRA_THROW(E_ABORT, "not to be asked");
    }
};

struct T_AnswersNothing : T_Troubled
{
    Result InternalQueryInterface(const IID&, void** out) override
    {
        *out = nullptr;
        return S_OK;
    }
};

static_assert(tDetail::HasNullClassId<T_Troubled>() && !tDetail::HasNullClassId<T_Sample>());
static_assert(
    std::is_constructible_v<BootstrapRecord, const GUID&, const GUID&, const GUID&, const char*> &&
    !std::is_constructible_v<BootstrapRecord, const GUID&, GUID, const GUID&, const char*>);

TEST(ComServer, AClassThatMisbehavesWhileItIsCreatedGetsItsCodeAndLineAndLeavesNothing)
{
    static_assert(tDetail::AnswersByList<T_Sample> && tDetail::AnswersByList<T_HoldsItself> &&
                  !tDetail::AnswersByList<T_ThrowsWhenAsked> &&
                  !tDetail::AnswersByList<T_AnswersOtherwise>);
    const std::tuple<ClassCreator, AnswerCreator, Result, const char*> cases[] = {
        {&CreateInstance<T_HoldsItself>, nullptr, S_OK, ""},
        {nullptr, &CreateAnswer<T_HoldsItself>, S_OK, ""},
        {&CreateInstance<T_FailsAsBuilt>, nullptr, E_OUTOFMEMORY, " no ground to build on: Opera"},
        {nullptr, &CreateAnswer<T_FailsAsBuilt>, E_OUTOFMEMORY, " no ground to build on: Operat"},
        {nullptr, &CreateAnswer<T_AnswersOtherwise>, E_NOINTERFACE, ""},
        {&CreateInstance<T_ThrowsWhenAsked>, nullptr, E_ABORT, " not to be asked: Operation abo"},
        {&CreateInstance<T_AnswersNothing>, nullptr, E_UNEXPECTED, ""},
    };
    const std::uint32_t before = GetObjectOpenCount();
    for (const auto& [creator, answerCreator, code, line] : cases)
    {
        ClassEntry entry = *ModuleServer()->FindClass(T_Sample::ClassId);
        entry.Creator = creator;
        entry.AnswerCreator = answerCreator;
        ObjectPtr<ISample> object;
        REPORTS(ModuleServer()->CreateObject(&entry, Nobody, ISample::Iid, object.PutVoid()), code,
                line);
        EXPECT_EQ(object ? ReferencesOn(*object) : 0u, code == S_OK ? 1u : 0u);
        EXPECT_EQ(GetObjectOpenCount(), before + (object ? 1 : 0));
    }
    EXPECT_EQ(GetExceptionOpenCount(), 0);
}

TEST(ModuleExports, DenyAccessWithoutAServer)
{
    const auto service = RegisterService(nullptr); // which looks for the global factory
    DetachLibrary(false);
    CLSID clsid = {};
    char text[8];
    void* out = nullptr;
    REPORTS(DllGetClassObject(&CLSID_Value, &IID_IUnknown, &out), E_ACCESSDENIED);
    REPORTS(DllCanUnloadNow(), E_ACCESSDENIED);
    REPORTS(DLLGetOpenObjectCount(), E_ACCESSDENIED);
    REPORTS(DLLGetClassCount(), E_ACCESSDENIED);
    REPORTS(DLLGetClassObjectID(0, 1, &clsid), E_ACCESSDENIED);
    REPORTS(DLLGetClassObjectInfo(0, text, 8), E_ACCESSDENIED);
    REPORTS(InitializeGlobalSingleton(), E_ACCESSDENIED);
    REPORTS(service->RegisterModule(L"none", nullptr, nullptr), E_NOINTERFACE);
    REPORTS(CreateClassObject(&CLSID_Value, &IID_IUnknown, &out), E_ACCESSDENIED,
            "\aOssira: CreateClassObject: gbComServer not available: Access Denied [Build-DynLib]");
    EXPECT_EQ(GetObjectOpenCount(), 0u);
    EXPECT_TRUE(AttachLibrary() && AttachLibrary());
}

TEST(DynLib, AnswersThatItIsNotOpenAndKnowsWhatWasTornDown)
{
    CDynLib closed, torn;
    EXPECT_EQ(torn.Open(ModuleFile("raw", "Decent").wstring().c_str()), S_OK);
    EXPECT_FALSE(CDynLib::AnyTornDown());
    EXPECT_EQ(torn.Open(ModuleFile("raw", "CountDenied").wstring().c_str()), S_OK);
    EXPECT_TRUE(CDynLib::AnyTornDown());
    for (const Result answer :
         {torn.AddObject(nullptr, Nobody), torn.RemoveObject(nullptr), torn.IsForeignClass(Nobody)})
        EXPECT_EQ(answer, E_NOTIMPL);
    void* out = nullptr;
    EXPECT_EQ(closed.Open(L""), E_FAIL);
    EXPECT_EQ(closed.GetClassObject(CLSID_Value, IID_IUnknown, &out), E_NOINTERFACE);
    EXPECT_EQ(closed.RegisterBootstrap(nullptr, nullptr), E_NOINTERFACE);
}

// Makes an object when it is asked for something, and lets another one die.
struct T_Restless : T_Troubled
{
    Result InternalQueryInterface(const IID& iid, void** out) override
    {
        Victim = MakeObject<T_Sample>();
        return AnswerInterfaces<ISample>(this, iid, out), S_OK;
    }

    ObjectPtr<CComInstanceNoLock<T_Sample>> Victim = MakeObject<T_Sample>();
};

// A provider by the building kit of a datatype of any size, whose name is too long.
const GUID Loose = Numbered(1, 8);
const std::string LongName(60, 'n');
const Building::TypeRow LooseRow = {
    LongName.c_str(),
    &Loose,
    4,
    0,
    [](const void*, std::uint32_t a, const void*, std::uint32_t b) { return a < b ? -1 : 1; },
    [](const void*, std::uint32_t a, const void*, std::uint32_t b, double, void*, std::uint32_t r)
    {
        return static_cast<Result>(a + b + r);
    }};

struct LooseTraits
{
    static constexpr CLSID ClassId = {8, 0, 0, {}};
    static constexpr std::string_view ClassName = "Loose", ReportedClass = "Loose";
    inline static Building::TypeTable Types{&LooseRow, 1};
};

TEST(BuiltDatatypes, MayHaveAnySizeAndAreCutToTheirRecord)
{
    const auto provider = MakeObject<Building::CTypeProvider<LooseTraits>>();
    DatatypeCharacteristics info;
    std::int32_t order = 0;
    char room[1] = {};
    EXPECT_EQ(provider->GetCharacteristics(Loose, &info), S_OK);
    EXPECT_EQ(info.Name, LongName.substr(0, 47));
    EXPECT_EQ(info.IsFixedSize, 0);
    EXPECT_EQ(provider->ValueCompare(Loose, room, 9, room, 10, &order), S_OK);
    EXPECT_EQ(order, -1);
    EXPECT_EQ(provider->ValueLerp(Loose, room, 9, room, 10, 0, room, 1), 20);
}

TEST(DirectoryCollection, HasNothingBeforeItsFirstScan)
{
    CDirectoryCollection none;
    std::wstring path;
    EXPECT_EQ(none.MoveNext(), E_FAIL);
    EXPECT_EQ(none.CurrentItemPath(&path), E_FAIL);
    EXPECT_FALSE(IsRuntimeFile(nullptr));
}

TEST(ComServer, ListsWhatIsAddedToItButNotWhatIsDyingOrWasTakenOut)
{
    TestValue values[3]; // listed in the order of their addresses
    values[0].References = 0xFFFFFFFF;
    values[1].References = 2;
    values[2].References = 2;
    auto counted = MakeObject<T_Sample>();
    const DiagnosticsCapture capture;
    for (TestValue& value : values)
        EXPECT_EQ(ModuleServer()->AddObject(&value, Numbered(7)), S_OK);
    EXPECT_EQ(ModuleServer()->RemoveObject(&values[2]), S_OK);
    EXPECT_EQ(capture.Text(), "");
    EXPECT_EQ(ModuleServer()->AddObject(&values[1], Numbered(7)), S_OK);
    DetachLibrary(false);
    counted.Reset();
    EXPECT_TRUE(AttachLibrary());
    const std::regex lines("\aCComServer::AddObject: Object already exists\n"
                           "\aComServer ALive Objects:\n(  0x[^\n]*\n)*"
                           "  0x[0-9a-f]{8}: \"\" [-0-9A-F]{36} \\(2 cnt\\)\n"
                           "(  0x[^\n]*\n)*\n");
    EXPECT_TRUE(std::regex_match(capture.Text(), lines)) << capture.Text();
    EXPECT_EQ(capture.CountLinesWith(": \"\" "), tDetail::TracksObjects ? 2u : 1u);
    EXPECT_EQ(values[1].References, 2u);
}

TEST(Library, ListsTheObjectsThatAreStillAliveAtDetach)
{
    const auto restless = MakeObject<T_Restless>();
    auto named = Make<IObjectName>(T_Sample::ClassId);
    EXPECT_EQ(named->SetObjectName("forgotten"), S_OK);
    EXPECT_EQ(named.QueryTo(named), S_OK); // which takes the answer itself
    EXPECT_EQ(ObjectPtr<IUnknown>().QueryTo(named), E_POINTER);
    const std::regex list("\aComServer ALive Objects:\n(  0x[^\n]*\n)*"
                          "  0x[0-9a-f]{8}: \"forgotten\" Sample " SAMPLE " \\(1 cnt\\)\n"
                          "(  0x[^\n]*\n)*\n");
    const DiagnosticsCapture capture;
    DetachLibrary(false);
    named.Reset(); // it dies unattended, so that the next server does not miss it
    EXPECT_TRUE(AttachLibrary());
    EXPECT_TRUE(OSSIRA_TRACK_OBJECTS == 0 || std::regex_match(capture.Text(), list))
        << capture.Text();
}

TEST(Library, ConcurrentFirstRequestsEndWithOneSingleton)
{
    for (int round = 0; round < 50; ++round)
    {
        DetachLibrary(false);
        ASSERT_TRUE(AttachLibrary());
        const std::uint32_t before = GetObjectOpenCount();
        std::vector<ObjectPtr<ISingleton>> got(8);
        InThreads(8, [&](std::uint32_t number)
                  { EXPECT_EQ(CreateObject(CLSID_GlobalSingleton, got[number]), S_OK); });
        for (const ObjectPtr<ISingleton>& one : got)
            EXPECT_EQ(one.Get(), ExistingSingleton());
        EXPECT_EQ(GetObjectOpenCount(), before + 1) << "the losers' objects are gone";
    }
}

} // namespace

} // namespace Tavrik::Ossira::tTest
