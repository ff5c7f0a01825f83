// The datatypes service: installation, registration, and providers that fail, lie and come from
// modules.
#include "Colour.h"
#include "OssiraDatatypes.h"
#include "ServiceTools.h"

#include <atomic>
#include <barrier>
#include <cstring>
#include <sstream>
#include <thread>

namespace Tavrik::Ossira
{

using namespace tTest;
using Samples::DATATYPE_Colour;

namespace
{

// A provider of the given datatypes and its own enumerator. It does what it is told, and fails the
// test when somebody keeps a reference on it.
class TestProvider final : public IDatatypes, public IEnumeratorGUID
{
public:
    explicit TestProvider(std::vector<GUID> types) : mTypes(std::move(types))
    {
    }

    ~TestProvider()
    {
        EXPECT_EQ(mReferences, 0u);
    }

    TestProvider(const TestProvider&) = delete;
    TestProvider& operator=(const TestProvider&) = delete;

    // Which operation fails, after how many calls, how often.
    std::string_view Failing;
    int CallsBefore = 0;
    int Failures = 1000;
    bool HasEnumerator = true;
    std::ostringstream Asked;

    Result QueryInterface(const IID& iid, void** out) override
    {
        *out = nullptr;
        if (SameGuid(iid, IID_IEnumeratorGUID))
            *out = static_cast<IEnumeratorGUID*>(this);
        else if (SameGuid(iid, IID_IDatatypes) || SameGuid(iid, IID_IUnknown))
            *out = static_cast<IDatatypes*>(this);
        return *out != nullptr ? static_cast<Result>(AddRef(), S_OK) : E_NOINTERFACE;
    }

    std::uint32_t AddRef() override
    {
        return ++mReferences;
    }

    std::uint32_t Release() override
    {
        return --mReferences;
    }

    Result GetEnumerator(const IID& riid, void** ppv) override
    {
        mAt = -1;
        *ppv = nullptr;
        return HasEnumerator ? Answer("GetEnumerator", QueryInterface(riid, ppv)) : S_OK;
    }

    Result Reset() override
    {
        return E_NOTIMPL;
    }

    Result MoveNext() override
    {
        const bool more = ++mAt < static_cast<int>(mTypes.size());
        return Answer("MoveNext", more ? S_OK : S_FALSE);
    }

    Result GetCurrentGUID(GUID* pguid) override
    {
        *pguid = mTypes[static_cast<std::size_t>(mAt)];
        return Answer("GetCurrentGUID", S_OK);
    }

    Result Contains(const GUID& dataType) override
    {
        const auto isIt = [&dataType](const GUID& type)
        {
            return SameGuid(type, dataType);
        };
        return Answer("Contains", std::any_of(mTypes.begin(), mTypes.end(), isIt) ? S_OK : S_FALSE);
    }

    Result GetCharacteristics(const GUID&, DatatypeCharacteristics* pInfo) override
    {
        std::memset(pInfo, 'n', sizeof(*pInfo)); // a name without an end
        return Answer("GetCharacteristics", S_OK);
    }

    Result ValueCompare(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                        const void* dataB, std::uint32_t sizeB, std::int32_t* result) override
    {
        Asked << Text(dataType) << dataA << sizeA << dataB << sizeB << result;
        return Answer("ValueCompare", S_FALSE);
    }

    Result ValueLerp(const GUID& dataType, const void* dataA, std::uint32_t sizeA,
                     const void* dataB, std::uint32_t sizeB, double t, void* dataR,
                     std::uint32_t sizeR) override
    {
        Asked << Text(dataType) << dataA << sizeA << dataB << sizeB << t << dataR << sizeR;
        return Answer("ValueLerp", 77);
    }

private:
    [[nodiscard]] Result Answer(std::string_view operation, Result answer)
    {
        if (operation != Failing || CallsBefore-- > 0)
            return answer;
        return Failures-- > 0 ? E_ABORT : answer;
    }

    std::vector<GUID> mTypes;
    int mAt = -1;
    std::atomic<std::uint32_t> mReferences = 0;
};

constexpr GUID TypeA = Numbered(1);
constexpr GUID TypeB = Numbered(2);
constexpr GUID TypeC = Numbered(3);

ObjectPtr<IDatatypesService> NewService()
{
    return Make<IDatatypesService>(CLSID_DatatypesService);
}

constexpr std::size_t IntrinsicCount = 8;

std::size_t CountTypes(IDatatypes& types)
{
    ObjectPtr<IEnumeratorGUID> enumerator;
    EXPECT_EQ(types.GetEnumerator(IID_IEnumeratorGUID, enumerator.PutVoid()), S_OK);
    std::size_t count = 0;
    while (enumerator->MoveNext() == S_OK)
        ++count;
    return count;
}

std::vector<Result> Contained(IDatatypes& types, const std::vector<GUID>& dataTypes)
{
    std::vector<Result> answers;
    for (const GUID& dataType : dataTypes)
        answers.push_back(types.Contains(dataType));
    return answers;
}

using Answers = std::vector<Result>;

TEST(DatatypesService, InstallsTheIntrinsicDatatypesAtTheFirstQuestion)
{
    ObjectPtr<IUnknown> object;
    DatatypeCharacteristics info;
    std::int8_t datum = 0;
    std::int32_t order = 0;
    using Service = IDatatypesService;
    const GUID type = DATATYPE_SINT8;
    const std::function<Result(Service&)> questions[] = {
        [&](Service& service) { return service.Contains(type); },
        [&](Service& service) { return service.GetEnumerator(IID_IUnknown, object.PutVoid()); },
        [&](Service& service) { return service.GetCharacteristics(type, &info); },
        [&](Service& s) { return s.ValueCompare(type, &datum, 1, &datum, 1, &order); },
        [&](Service& s) { return s.ValueLerp(type, &datum, 1, &datum, 1, 0, &datum, 1) - 1; },
        [&](Service& service)
        {
            return service.GetDatatype(type, reinterpret_cast<IDatatypes**>(object.Put()));
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
        EXPECT_EQ(capture.CountLinesWith("Register \""), IntrinsicCount);
    }
}

TEST(DatatypesService, TheFirstProviderOfADatatypeKeepsIt)
{
    TestProvider early({DATATYPE_SINT8, TypeA});
    TestProvider late({TypeA, TypeB});
    const auto service = NewService();
    const ObserverMaskScope mask(PRINT_TRACE | PRINT_WARN | PRINT_ERROR);
    const DiagnosticsCapture capture;
    EXPECT_EQ(service->RegisterDatatypes(&early), S_OK);
    EXPECT_EQ(capture.CountLinesWith("Intrinsic"), 0u) << "registering installs nothing";
    EXPECT_EQ(service->RegisterDatatypes(&late), S_OK);
    EXPECT_EQ(service->RegisterDatatype(TypeB, &late), S_OK);

    const auto providerOf = [&service](const GUID& dataType)
    {
        ObjectPtr<IDatatypes> provider;
        EXPECT_EQ(service->GetDatatype(dataType, provider.Put()), S_OK);
        return provider.Get();
    };
    EXPECT_EQ(providerOf(DATATYPE_SINT8), &early) << "before the intrinsic one";
    EXPECT_EQ(providerOf(TypeA), &early);
    EXPECT_EQ(providerOf(TypeB), &late);
    EXPECT_EQ(CountTypes(*service), IntrinsicCount + 2);
    const std::string name(47, 'n'); // as much of the endless name as a record holds
    for (const GUID& dataType : {TypeA, TypeB})
        EXPECT_EQ(capture.CountLinesWith("-WARN- Datatype \"" + name + "\" already registerd [" +
                                         Text(dataType) + "]"),
                  1u);

    EXPECT_EQ(service->UnregisterDatatypes(&late), S_OK) << "whoever provides them";
    EXPECT_EQ(service->UnregisterDatatype(TypeA), S_OK);
    EXPECT_EQ(capture.CountLinesWith("]  Unregister \"" + name + "\" Datatype [" + Text(TypeA)),
              1u);
    EXPECT_EQ(capture.CountLinesWith("-WARN- Datatype " + Text(TypeA) + " already unregistered"),
              1u);
    EXPECT_EQ(Contained(*service, {TypeA, TypeB, DATATYPE_SINT8}),
              Answers({S_FALSE, S_FALSE, S_OK}));
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
        Result Code;
        const char* Line;
        Answers Registered;
    } cases[] = {{"GetEnumerator", 0, E_ABORT, "GetEnumerator", {S_FALSE, S_FALSE}},
                 {"MoveNext", 0, E_ABORT, "MoveNext", {S_FALSE, S_FALSE}},
                 {"MoveNext", 1, E_ABORT, "MoveNext", {S_OK, S_FALSE}},
                 {"GetCurrentGUID", 1, E_ABORT, "GetCurrentGUID", {S_OK, S_FALSE}},
                 {"Contains", 1, E_INVALIDARG, "Could not find dataType in pType", {S_OK, S_FALSE}},
                 {"GetCharacteristics", 1, E_ABORT, "GetCharacteristics", {S_OK, S_FALSE}}};
    for (const auto& [operation, callsBefore, code, line, registered] : cases)
    {
        TestProvider failing({TypeA, TypeC});
        failing.Failing = operation;
        failing.CallsBefore = callsBefore;
        const auto fresh = NewService();
        {
            const ObserverMaskScope mask(PRINT_TRACE | PRINT_ERROR); // prints descriptions
            FAILS(fresh->RegisterDatatypes(&failing), code, line);
        }
        EXPECT_EQ(Contained(*fresh, {TypeA, TypeC}), registered) << operation;
    }
    other.Failing = "MoveNext";
    FAILS(s.UnregisterDatatypes(&other), E_ABORT, "MoveNext");
    other.HasEnumerator = false;
    FAILS(s.UnregisterDatatypes(&other), E_NOINTERFACE, "GetEnumerator");
    EXPECT_EQ(s.Contains(TypeA), S_OK);
}

TEST(DatatypesService, HandsQuestionsAndAnswersOnAsTheyAre)
{
    TestProvider provider({TypeA});
    const auto service = NewService();
    EXPECT_EQ(service->RegisterDatatypes(&provider), S_OK);
    auto ask = [data = std::array<int, 3>{}](IDatatypes& types) mutable
    {
        return Answers{
            types.ValueCompare(TypeA, &data[0], 0xFFFFFFFF, &data[1], 6, nullptr),
            types.ValueLerp(TypeA, &data[0], 3, nullptr, 0x80000001, -1e300, &data[2], 5)};
    };
    EXPECT_EQ(ask(*service), Answers({S_FALSE, 77}));
    const std::string byService = std::exchange(provider.Asked, {}).str();
    EXPECT_EQ(ask(provider), Answers({S_FALSE, 77}));
    EXPECT_EQ(byService, provider.Asked.str());

    for (const char* operation : {"ValueCompare", "ValueLerp"})
    {
        provider.Failing = operation;
        provider.Failures = 1; // the repeat goes well
        EXPECT_EQ(ask(*service), Answers({S_FALSE, 77})) << operation;
        provider.Failures = 2;
        const DiagnosticsCapture capture;
        EXPECT_NE(ask(*service), Answers({S_FALSE, 77}));
        EXPECT_EQ(capture.CountLinesWith("0x80004004 " + std::string(operation) + ": "), 1u);
    }
}

TEST(DatatypesService, InstallsNothingOnceItWasCleared)
{
    TestProvider provider({TypeA, TypeB});
    for (const bool isAsked : {true, false})
    {
        const auto service = NewService();
        EXPECT_EQ(service->RegisterDatatypes(&provider), S_OK);
        EXPECT_TRUE(!isAsked || service->Contains(DATATYPE_SINT8) == S_OK);
        const ObserverMaskScope mask(PRINT_TRACE | PRINT_ERROR);
        const DiagnosticsCapture capture;
        EXPECT_EQ(service->ClearDatatypes(), S_OK);
        EXPECT_EQ(capture.CountLinesWith("]  ClearDatatypes"), 1u);
        EXPECT_EQ(service->RegisterDatatype(TypeB, &provider), S_OK);
        EXPECT_EQ(Contained(*service, {DATATYPE_SINT8, TypeA, TypeB}),
                  Answers({S_FALSE, S_FALSE, S_OK}));
    }
}

// --- Modules ------------------------------------------------------------------------------------

TEST(DatatypesService, InstallsProvidersOfModulesUntilOneCannotBeCreated)
{
    const auto registry = Singleton<IClsidRegistry>(CLSID_ClsidRegistry);
    ASSERT_EQ(RegisterModule(ModuleFile("datatypes", "Datatypes")), S_OK);
    for (const CLSID& clsid : {CLSID_AskingDatatypes, CLSID_LateDatatypes})
        ASSERT_EQ(registry->RegisterClass(REGCAT_Datatypes, clsid), S_OK);
    const auto service = Singleton<IDatatypesService>(CLSID_DatatypesService);
    DatatypeCharacteristics info;
    EXPECT_EQ(service->GetCharacteristics(DATATYPE_Asking, &info), S_OK)
        << "the one that asks the service while it is created";
    EXPECT_STREQ(info.Name, "a name of which there is much more than fits in");
    EXPECT_EQ(info.Size, 3u);
    EXPECT_EQ(info.IsFixedSize + info.CanCompare + info.CanLerp, 0);
    EXPECT_EQ(service->Contains(DATATYPE_Late), S_OK);
    std::int32_t order = 0;
    FAILS(service->ValueCompare(DATATYPE_Late, &info, 1, &info, 9, &order), E_NOT_SUPPORTED,
          "ValueCompare");
    FAILS(service->ValueLerp(DATATYPE_Late, &info, 1, &info, 9, 0, &info, 3), E_NOT_SUPPORTED,
          "ValueLerp");

    ASSERT_EQ(registry->RegisterClass(REGCAT_Datatypes, CLSID_UnbuildableDatatypes), S_OK);
    const auto fresh = NewService();
    const DiagnosticsCapture capture;
    EXPECT_EQ(Contained(*fresh, {DATATYPE_FLOAT32, DATATYPE_Asking, DATATYPE_Late}),
              Answers({S_OK, S_OK, S_FALSE}));
    EXPECT_EQ(capture.CountLinesWith(" Could not create Datatypes-Object: "), 1u);
}

TEST(DatatypesService, AnswersForADatatypeThatAModuleFiled)
{
    const auto registry = Singleton<IClsidRegistry>(CLSID_ClsidRegistry);
    ASSERT_EQ(RegisterModule(ModuleFile("datatypes", "Colour"), registry.Get()), S_OK);
    const auto service = Singleton<IDatatypesService>(CLSID_DatatypesService);
    const std::array<float, 4> a = {0, 1, 0.5f, 1};
    const std::array<float, 4> b = {1, 0, 0.5f, 1};
    std::array<float, 4> mixed = {};
    std::int32_t order = 0;
    EXPECT_EQ(service->ValueLerp(DATATYPE_Colour, &a, 16, &b, 16, 0.25, &mixed, 16), 16);
    EXPECT_EQ(mixed, (std::array<float, 4>{0.25f, 0.75f, 0.5f, 1}));
    EXPECT_EQ(service->ValueCompare(DATATYPE_Colour, &mixed, 16, &a, 16, &order), S_OK);
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
        {
            std::vector<std::jthread> threads;
            for (int number = 0; number < threadCount; ++number)
                threads.emplace_back(
                    [&, number]
                    {
                        start.arrive_and_wait();
                        EXPECT_TRUE(number % 2 == 0 ||
                                    service->RegisterDatatypes(&provider) == S_OK);
                        EXPECT_GE(service->Contains(DATATYPE_SINT8), S_OK);
                    });
        }
        EXPECT_EQ(CountTypes(*service), IntrinsicCount + 1);
        EXPECT_EQ(capture.CountLinesWith("--- Register Intrinsic-Datatypes ---"), 1u);
        EXPECT_EQ(capture.CountLinesWith("-ERROR-"), 0u);
    }
}

// A singleton that registers its datatypes while it is created holds the process-wide lock.
TEST(DatatypesService, ConcurrentInstallationDoesNotLockOutASingletonThatRegisters)
{
    TestProvider provider({TypeA});
    const auto service = NewService();
    const auto section = Make<ICriticalSection>(CLSID_GlobalCriticalSection);
    EXPECT_EQ(section->Lock(), S_OK);
    std::jthread asking([&] { EXPECT_EQ(service->Contains(DATATYPE_SINT8), S_OK); });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(service->RegisterDatatypes(&provider), S_OK);
    EXPECT_EQ(section->Unlock(), S_OK);
    asking.join();
    EXPECT_EQ(CountTypes(*service), IntrinsicCount + 1);
}

} // namespace

} // namespace Tavrik::Ossira
