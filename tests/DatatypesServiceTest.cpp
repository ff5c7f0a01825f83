// The datatypes service: installation, registration, and providers that fail, lie and come from
// modules.
#include "Colour.h"
#include "OssiraDatatypes.h"
#include "ServiceTools.h"

#include <array>
#include <cstring>
#include <functional>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

#define ANSWERS(operation, parameters, answer)                                                     \
    Result operation parameters override                                                           \
    {                                                                                              \
        return Failing != #operation || CallsBefore-- > 0 ? (answer) : E_ABORT;                    \
    }

// A provider of the given datatypes and its own enumerator. It fails where it is told to, and fails
// the test when somebody keeps a reference on it.
struct TestProvider final : IDatatypes, IEnumeratorGUID
{
    explicit TestProvider(std::vector<GUID> types) : Types(std::move(types))
    {
    }

    ~TestProvider()
    {
        EXPECT_EQ(References, 0u);
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        const bool isEnumerator = SameGuid(iid, IID_IEnumeratorGUID);
        *out = isEnumerator ? static_cast<void*>(static_cast<IEnumeratorGUID*>(this)) : this;
        AddRef();
        return S_OK;
    }

    std::uint32_t AddRef() override
    {
        return ++References;
    }

    std::uint32_t Release() override
    {
        return --References;
    }

    using Bytes = const void*;
    using Size = std::uint32_t;
    ANSWERS(GetEnumerator, (const IID& riid, void** ppv), (At = -1, QueryInterface(riid, ppv)))
    ANSWERS(Reset, (), E_NOTIMPL)
    ANSWERS(MoveNext, (), ++At < static_cast<int>(Types.size()) ? S_OK : S_FALSE)
    ANSWERS(GetCurrentGUID, (GUID * guid), (*guid = Types.begin()[At], S_OK))
    ANSWERS(Contains, (const GUID&), (OnContains(), S_OK))
    ANSWERS(GetCharacteristics, (const GUID&, DatatypeCharacteristics* info),
            (std::memset(info, 'n', sizeof(*info)), S_OK)) // a name without an end
    ANSWERS(ValueCompare, (const GUID&, Bytes, Size, Bytes, Size, std::int32_t*), S_FALSE)
    ANSWERS(ValueLerp, (const GUID&, Bytes, Size, Bytes, Size, double, void*, Size), 77)

    std::function<void()> OnContains = [] {
    };
    std::string_view Failing;
    int CallsBefore = 1;
    std::vector<GUID> Types;
    int At = -1;
    std::atomic<std::uint32_t> References = 0;
};

#undef ANSWERS

constexpr GUID TypeA = Numbered(1);
constexpr GUID TypeB = Numbered(2);

TEST(DatatypesService, InstallsTheIntrinsicDatatypesAtTheFirstQuestionBehindEarlierProviders)
{
    const ObserverMaskScope mask(PRINT_WARN);
    TestProvider early({DATATYPE_SINT8, TypeA});
    TestProvider late({TypeA, TypeB});
    const auto service = Make<IDatatypesService>(CLSID_DatatypesService);
    const DiagnosticsCapture capture;
    EXPECT_EQ(service->RegisterDatatypes(&early), S_OK);
    EXPECT_EQ(service->RegisterDatatypes(&late), S_OK);
    for (const auto& [type, expected] :
         {std::pair(DATATYPE_SINT8, &early), {TypeA, &early}, {TypeB, &late}})
    {
        ObjectPtr<IDatatypes> provider;
        EXPECT_EQ(service->GetDatatype(type, provider.Put()), S_OK);
        EXPECT_EQ(provider.Get(), expected) << "the first one keeps it";
    }
    EXPECT_EQ(service->UnregisterDatatypes(&late), S_OK) << "whoever provides them";
    EXPECT_EQ(service->UnregisterDatatype(TypeA), S_OK);
    EXPECT_EQ(KeysOf(*service).size(), 8u);
    const std::string name = '"' + std::string(47, 'n') + '"'; // as much as a record holds
    EXPECT_EQ(capture.CountLinesWith("Datatype " + name + " already registerd"), 1u);
    EXPECT_EQ(service->ClearDatatypes(), S_OK);
    EXPECT_EQ(service->Contains(DATATYPE_SINT16), S_FALSE) << "nothing is installed again";
}

// Each provider fails at its second datatype: the first one stays.
TEST(DatatypesService, RefusesBadArgumentsAndProvidersThatLie)
{
    const auto service = Make<IDatatypesService>(CLSID_DatatypesService);
    IDatatypesService& s = *service;
    EXPECT_EQ(s.Contains(TypeA), S_FALSE);
    const char* const null = "GUID_Null for dataType not allowed";
    FAILS(s.RegisterDatatype(TypeA, &s), E_INVALIDARG, "this as pType not allowed");
    FAILS(s.UnregisterDatatype(GUID_Null), E_INVALIDARG, null);
    FAILS(s.ValueCompare(TypeA, &s, 0, &s, 0, nullptr), E_NOT_FOUND, "GetValueGUID( dataType )");
    const ObserverMaskScope mask(PRINT_TRACE | PRINT_ERROR); // asks for descriptions
    for (const std::string operation :
         {"MoveNext", "GetCurrentGUID", "GetCharacteristics", "Contains", ""})
    {
        TestProvider provider({TypeA, operation.empty() ? GUID_Null : TypeB});
        const bool isReal = operation != "Contains";
        provider.Failing = operation;
        FAILS(s.RegisterDatatypes(&provider), isReal && !operation.empty() ? E_ABORT : E_INVALIDARG,
              operation.empty() ? null
              : isReal          ? operation
                                : "Could not find dataType in pType");
        provider.Failing = "GetEnumerator";
        provider.CallsBefore = 0;
        EXPECT_EQ(KeysOf(s).size(), 9u);
        FAILS(s.UnregisterDatatypes(&provider), E_ABORT, "GetEnumerator");
        EXPECT_EQ(s.UnregisterDatatype(TypeA), S_OK);
    }
}

// The first provider asks the service while it is created. The one that is enrolled later is not
// known at all, and comes before the third.
TEST(DatatypesService, InstallsProvidersOfModulesUntilOneCannotBeCreated)
{
    const auto registry = Singleton<IClsidRegistry>(CLSID_ClsidRegistry);
    EXPECT_EQ(RegisterModule(ModuleFile("datatypes", "Datatypes")), S_OK);
    EXPECT_EQ(RegisterModule(ModuleFile("datatypes", "Colour"), registry.Get()), S_OK);
    EXPECT_EQ(registry->RegisterClass(REGCAT_Datatypes, CLSID_AskingDatatypes), S_OK);
    const auto service = Singleton<IDatatypesService>(CLSID_DatatypesService);
    const GUID& colour = Samples::DATATYPE_Colour;
    const std::array<float, 4> a = {0, 1, 0.5f, 1}, b = {1, 0, 0.5f, 1};
    std::array<float, 4> mixed = {};
    std::int32_t order = 0;
    EXPECT_EQ(service->ValueLerp(colour, &a, 16, &b, 16, 0.25, &mixed, 16), 16);
    EXPECT_EQ(mixed, (std::array<float, 4>{0.25f, 0.75f, 0.5f, 1}));
    FAILS(service->ValueCompare(DATATYPE_Asking, &a, 9, &b, 1, &order), E_NOT_SUPPORTED,
          "ValueCompare");

    EXPECT_EQ(registry->RegisterClass(REGCAT_Datatypes, CLSID_UnbuildableDatatypes), S_OK);
    const auto fresh = Make<IDatatypesService>(CLSID_DatatypesService);
    FAILS(fresh->Contains(DATATYPE_Asking), S_OK, "Could not create Datatypes-Object");
    EXPECT_EQ(fresh->Contains(colour), S_FALSE);
}

// One thread registers a provider that asks meanwhile, half of the times under the process-wide
// lock, as a singleton does that registers its datatypes while it is created.
TEST(DatatypesService, ConcurrentFirstQuestionsInstallOnceWhateverProvidersAskMeanwhile)
{
    const ObserverMaskScope mask(PRINT_TRACE | PRINT_ERROR);
    const auto section = Make<ICriticalSection>(CLSID_GlobalCriticalSection);
    for (int round = 0; round < 100; ++round)
    {
        TestProvider provider({TypeA});
        const DiagnosticsCapture capture;
        const auto service = Make<IDatatypesService>(CLSID_DatatypesService);
        std::atomic<int> missing = 8;
        const auto ask = [&](std::uint32_t)
        {
            Meet(missing);
            EXPECT_GE(service->Contains(DATATYPE_SINT8), S_OK);
        };
        provider.OnContains = [&]
        {
            Meet(missing);
            EXPECT_TRUE(Singleton<IClsidRegistry>(CLSID_ClsidRegistry));
            EXPECT_EQ(service->Contains(DATATYPE_SINT8), S_OK);
        };
        const bool isLocked = round % 2 == 0;
        EXPECT_EQ(isLocked ? section->Lock() : S_OK, S_OK);
        std::jthread threads([&] { InThreads(7, ask); });
        EXPECT_EQ(service->RegisterDatatypes(&provider), S_OK);
        EXPECT_EQ(isLocked ? section->Unlock() : S_OK, S_OK);
        threads.join();
        EXPECT_EQ(KeysOf(*service).size(), 9u);
        EXPECT_EQ(capture.CountLinesWith("--- Register Intrinsic-Datatypes ---"), 1u);
        EXPECT_EQ(service->ClearDatatypes(), S_OK);
    }
}

} // namespace

} // namespace Tavrik::Ossira
