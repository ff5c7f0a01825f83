// The datatypes service: installation, registration, and providers that fail, lie and come from
// modules.
#include "Colour.h"
#include "OssiraDatatypes.h"
#include "ServiceTools.h"

#include <atomic>
#include <barrier>
#include <cstring>
#include <functional>
#include <sstream>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

#define ANSWERS(operation, parameters, answer)                                                     \
    Result operation parameters override                                                           \
    {                                                                                              \
        return Answer(#operation, answer);                                                         \
    }

// A provider of the given datatypes and its own enumerator. It fails where it is told to, and fails
// the test when somebody keeps a reference on it.
struct TestProvider final : IDatatypes, IEnumeratorGUID
{
    explicit TestProvider(std::vector<GUID> types) : Types(std::move(types))
    {
    }

    TestProvider(const TestProvider&) = delete;
    TestProvider& operator=(const TestProvider&) = delete;

    ~TestProvider()
    {
        EXPECT_EQ(References, 0u);
    }

    Result QueryInterface(const IID& iid, void** out) override
    {
        const bool walks = SameGuid(iid, IID_IEnumeratorGUID);
        *out = walks ? static_cast<void*>(static_cast<IEnumeratorGUID*>(this))
                     : static_cast<IDatatypes*>(this);
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

    Result GetEnumerator(const IID& riid, void** ppv) override
    {
        At = -1;
        *ppv = nullptr;
        return HasEnumerator ? Answer("GetEnumerator", QueryInterface(riid, ppv)) : S_OK;
    }

    ANSWERS(Reset, (), E_NOTIMPL)
    ANSWERS(MoveNext, (), ++At < static_cast<int>(Types.size()) ? S_OK : S_FALSE)
    ANSWERS(GetCurrentGUID, (GUID * pguid), (*pguid = Types[static_cast<std::size_t>(At)], S_OK))
    ANSWERS(Contains, (const GUID& type), Holds(type) ? S_OK : S_FALSE)
    // A name without an end.
    ANSWERS(GetCharacteristics, (const GUID&, DatatypeCharacteristics* pInfo),
            (std::memset(pInfo, 'n', sizeof(*pInfo)), S_OK))
    ANSWERS(ValueCompare,
            (const GUID&, const void* a, std::uint32_t sizeA, const void* b, std::uint32_t sizeB,
             std::int32_t* result),
            (Asked << a << sizeA << b << sizeB << result, S_FALSE))
    ANSWERS(ValueLerp,
            (const GUID&, const void* a, std::uint32_t sizeA, const void* b, std::uint32_t sizeB,
             double t, void* r, std::uint32_t sizeR),
            (Asked << a << sizeA << b << sizeB << t << r << sizeR, 77))

    [[nodiscard]] Result Answer(std::string_view operation, Result answer)
    {
        if (operation != Failing || CallsBefore-- > 0)
            return answer;
        return Failures-- > 0 ? E_ABORT : answer;
    }

    [[nodiscard]] bool Holds(const GUID& type) const
    {
        return std::any_of(Types.begin(), Types.end(),
                           [&type](const GUID& own) { return SameGuid(own, type); });
    }

    // Which operation fails, after how many calls, how often.
    std::string_view Failing;
    int CallsBefore = 0;
    int Failures = 1000;
    bool HasEnumerator = true;
    std::ostringstream Asked;
    std::vector<GUID> Types;
    int At = -1;
    std::atomic<std::uint32_t> References = 0;
};

#undef ANSWERS

constexpr GUID TypeA = Numbered(1);
constexpr GUID TypeB = Numbered(2);
constexpr GUID TypeC = Numbered(3);
constexpr int IntrinsicCount = 8;

using Answers = std::vector<Result>;

ObjectPtr<IDatatypesService> NewService()
{
    return Make<IDatatypesService>(CLSID_DatatypesService);
}

int CountTypes(IDatatypes& types)
{
    ObjectPtr<IEnumeratorGUID> enumerator;
    EXPECT_EQ(types.GetEnumerator(IID_IEnumeratorGUID, enumerator.PutVoid()), S_OK);
    int count = 0;
    while (enumerator->MoveNext() == S_OK)
        ++count;
    return count;
}

Answers Contained(IDatatypes& types, const std::vector<GUID>& dataTypes)
{
    Answers answers;
    for (const GUID& dataType : dataTypes)
        answers.push_back(types.Contains(dataType));
    return answers;
}

TEST(DatatypesService, InstallsTheIntrinsicDatatypesAtTheFirstQuestion)
{
    const GUID type = DATATYPE_SINT8;
    const std::function<Result(IDatatypesService&)> questions[] = {
        [=](auto& s) { return s.Contains(type); },
        [=](auto& s) { return s.GetEnumerator(IID_IUnknown, ObjectPtr<IUnknown>().PutVoid()); },
        [=](auto& s) { return s.GetDatatype(type, ObjectPtr<IDatatypes>().Put()); },
        [=, info = DatatypeCharacteristics()](auto& s) mutable
        { return s.GetCharacteristics(type, &info); },
        [=, order = 0](auto& s) mutable { return s.ValueCompare(type, "a", 1, "b", 1, &order); },
        [=, out = 'r'](auto& s) mutable
        {
            return s.ValueLerp(type, "a", 1, "b", 1, 0, &out, 1) - 1;
        }};
    const ObserverMaskScope mask(PRINT_TRACE | PRINT_WARN | PRINT_ERROR);
    for (const auto& question : questions)
    {
        const DiagnosticsCapture capture;
        const auto service = NewService();
        EXPECT_EQ(question(*service), S_OK);
        EXPECT_EQ(question(*service), S_OK);
        EXPECT_EQ(CountTypes(*service), IntrinsicCount);
        for (const std::string line :
             {"--- Register Intrinsic-Datatypes ---",
              "Register \"SINT8\" Datatype [2A3D838F-4DFB-4F63-97A8-F9F51953A72E]",
              "Register \"PointFLOAT32\" Datatype [D7318E81-8620-4B8A-96F0-74A2D2BB8EC6]",
              "REGCAT_Datatypes is empty - No further registered IDatatypes"})
            EXPECT_EQ(capture.CountLinesWith("]  " + line), 1u) << line;
        EXPECT_EQ(capture.CountLinesWith("Register \""), 8u);
    }
}

TEST(DatatypesService, RefusesBadArgumentsAndProvidersThatLie)
{
    TestProvider provider({TypeA, GUID_Null, TypeB});
    TestProvider other({TypeA});
    const auto service = NewService();
    IDatatypesService& s = *service;
    EXPECT_EQ(s.Contains(TypeA), S_FALSE);
    DatatypeCharacteristics info;
    const char* const null = "GUID_Null for dataType not allowed";
    const char* const self = "this as pTypes not allowed";
    const char* const absent = "GetValueGUID( dataType )";
    FAILS(s.RegisterDatatype(TypeA, nullptr), E_POINTER, "pType");
    FAILS(s.RegisterDatatypes(nullptr), E_POINTER, "pTypes");
    FAILS(s.UnregisterDatatypes(nullptr), E_POINTER, "pTypes");
    FAILS(s.GetDatatype(TypeA, nullptr), E_POINTER, "ppType");
    FAILS(s.GetEnumerator(IID_IUnknown, nullptr), E_POINTER, "ppv");
    FAILS(s.GetCharacteristics(DATATYPE_SINT8, nullptr), E_POINTER, "pInfo");
    FAILS(s.RegisterDatatype(TypeA, &s), E_INVALIDARG, "this as pType not allowed");
    FAILS(s.RegisterDatatypes(&s), E_INVALIDARG, self);
    FAILS(s.UnregisterDatatypes(&s), E_INVALIDARG, self);
    FAILS(s.RegisterDatatype(GUID_Null, &provider), E_INVALIDARG, null);
    FAILS(s.UnregisterDatatype(GUID_Null), E_INVALIDARG, null);
    FAILS(s.RegisterDatatype(TypeC, &provider), E_INVALIDARG, "Could not find dataType in pType");
    FAILS(s.GetCharacteristics(TypeC, &info), E_NOT_FOUND, absent);
    FAILS(s.ValueCompare(TypeC, &s, 0, &s, 0, nullptr), E_NOT_FOUND, absent);
    FAILS(s.ValueLerp(TypeC, &s, 0, &s, 0, 0, &s, 0), E_NOT_FOUND, absent);
    FAILS(s.RegisterDatatypes(&provider), E_INVALIDARG, null);
    EXPECT_EQ(Contained(s, {TypeA, TypeB}), Answers({S_OK, S_FALSE})) << "as far as it came";

    const struct
    {
        const char* Operation;
        int CallsBefore;
        Result FirstIsThere;
        Result Code = E_ABORT;
        const char* Line = nullptr; // the operation's name
    } cases[] = {{"GetEnumerator", 0, S_FALSE},
                 {"MoveNext", 0, S_FALSE},
                 {"MoveNext", 1, S_OK},
                 {"GetCurrentGUID", 1, S_OK},
                 {"Contains", 1, S_OK, E_INVALIDARG, "Could not find dataType in pType"},
                 {"GetCharacteristics", 1, S_OK}};
    for (const auto& [operation, callsBefore, firstIsThere, code, line] : cases)
    {
        TestProvider failing({TypeA, TypeC});
        failing.Failing = operation;
        failing.CallsBefore = callsBefore;
        const auto fresh = NewService();
        {
            const ObserverMaskScope mask(PRINT_TRACE | PRINT_ERROR); // prints descriptions
            FAILS(fresh->RegisterDatatypes(&failing), code, line != nullptr ? line : operation);
        }
        EXPECT_EQ(Contained(*fresh, {TypeA, TypeC}), Answers({firstIsThere, S_FALSE}));
    }
    other.Failing = "MoveNext";
    FAILS(s.UnregisterDatatypes(&other), E_ABORT, "MoveNext");
    other.HasEnumerator = false;
    FAILS(s.UnregisterDatatypes(&other), E_NOINTERFACE, "GetEnumerator");
    EXPECT_EQ(s.Contains(TypeA), S_OK);
}

// --- Modules ------------------------------------------------------------------------------------

TEST(DatatypesService, AnswersForADatatypeThatAModuleFiled)
{
    const auto registry = Singleton<IClsidRegistry>(CLSID_ClsidRegistry);
    ASSERT_EQ(RegisterModule(ModuleFile("datatypes", "Colour"), registry.Get()), S_OK);
    const auto service = Singleton<IDatatypesService>(CLSID_DatatypesService);
    const GUID& type = Samples::DATATYPE_Colour;
    const std::array<float, 4> a = {0, 1, 0.5f, 1};
    const std::array<float, 4> b = {1, 0, 0.5f, 1};
    std::array<float, 4> mixed = {};
    std::int32_t order = 0;
    EXPECT_EQ(service->ValueLerp(type, &a, 16, &b, 16, 0.25, &mixed, 16), 16);
    EXPECT_EQ(mixed, (std::array<float, 4>{0.25f, 0.75f, 0.5f, 1}));
    EXPECT_EQ(service->ValueCompare(type, &mixed, 16, &a, 16, &order), S_OK);
    EXPECT_EQ(order, 1);
}

// --- Threads ------------------------------------------------------------------------------------

TEST(DatatypesService, ConcurrentFirstQuestionsInstallOnce)
{
    constexpr int threadCount = 8;
    const ObserverMaskScope mask(PRINT_TRACE | PRINT_ERROR);
    for (int round = 0; round < 20; ++round)
    {
        TestProvider provider({TypeA});
        const DiagnosticsCapture capture;
        const auto service = NewService();
        std::barrier start(threadCount);
        std::vector<std::jthread> threads;
        for (int number = 0; number < threadCount; ++number)
        {
            threads.emplace_back(
                [&, number]
                {
                    start.arrive_and_wait();
                    EXPECT_TRUE(number % 2 == 0 || service->RegisterDatatypes(&provider) == S_OK);
                    EXPECT_GE(service->Contains(DATATYPE_SINT8), S_OK);
                });
        }
        threads.clear();
        EXPECT_EQ(CountTypes(*service), IntrinsicCount + 1);
        EXPECT_EQ(capture.CountLinesWith("--- Register Intrinsic-Datatypes ---"), 1u);
        EXPECT_EQ(capture.CountLinesWith("-ERROR-"), 0u);
    }
}

} // namespace

} // namespace Tavrik::Ossira
