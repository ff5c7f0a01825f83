// The runtime's own datatypes: their formulas beside arithmetic in single rounded steps, and the
// manners of their provider and of its enumerator. The datatypes service: installation,
// registration, and providers that fail, lie and come from modules.
#include "Colour.h"
#include "OssiraDatatypes.h"
#include "ServiceTools.h"

#include <array>
#include <cmath>
#include <cstring>
#include <limits>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

// --- What the formulas must yield ---------------------------------------------------------------

// Whatever the compiler would like to fuse or to keep more precisely goes through memory. Of two
// NaNs the first one is handed on.
template <std::floating_point Float>
Float Step(Float first, Float result)
{
    const volatile Float rounded = std::isnan(first) ? first + first : result;
    return rounded;
}

// Toward zero; what does not fit becomes the lowest integer.
template <std::signed_integral Integer>
Integer Truncated(double x)
{
    const double limit = std::ldexp(1, sizeof(Integer) * 8 - 1);
    return static_cast<Integer>(std::trunc(x) < limit && std::trunc(x) >= -limit ? x : -limit);
}

// A point adds `a` after it has truncated or rounded the product, a number before that.
template <class Scalar>
Scalar Expected(Scalar a, Scalar b, double t, bool isPoint)
{
    if constexpr (std::is_integral_v<Scalar>)
    {
        using Wide = std::conditional_t<sizeof(Scalar) == 8, std::int64_t, std::int32_t>;
        const auto start = static_cast<std::uint64_t>(a);
        const auto distance = static_cast<Wide>(static_cast<std::uint64_t>(b) - start);
        const double way = Step(t, static_cast<double>(distance) * t);
        if (isPoint)
            return static_cast<Scalar>(start + static_cast<std::uint64_t>(Truncated<Wide>(way)));
        return static_cast<Scalar>(Truncated<Wide>(Step(way, way + static_cast<double>(a))));
    }
    else
    {
        const double distance = Step(b, b - a);
        const double way = Step(distance, distance * t);
        return isPoint ? Step(a, a + static_cast<Scalar>(way))
                       : static_cast<Scalar>(Step(way, way + a));
    }
}

// --- What they are given ------------------------------------------------------------------------

template <class Scalar>
std::vector<Scalar> Extremes()
{
    using Limits = std::numeric_limits<Scalar>;
    if constexpr (Limits::is_integer)
        return {0, 1, 3, 100, -1, -3, Limits::max(), Limits::max() - 1, Limits::min()};
    std::vector<Scalar> made = {0, 1, 3, Scalar(0.1), Scalar(2147483648.0), Scalar(1e19)};
    for (const Scalar x : {Limits::max(), Limits::min(), Limits::denorm_min(), Limits::infinity(),
                           Limits::quiet_NaN(), Limits::signaling_NaN()})
        made.push_back(x);
    for (std::size_t at = made.size(); at-- > 0;)
        made.push_back(-made[at]); // of NaNs the sign tells which of two was handed on
    return made;
}

// Extremes half of the times, else small numbers and patterns of bits.
template <class Scalar>
Scalar Draw(std::mt19937_64& random)
{
    static const std::vector<Scalar> extremes = Extremes<Scalar>();
    const std::uint64_t bits = random();
    Scalar scalar;
    std::memcpy(&scalar, &bits, sizeof(scalar));
    if (bits >> 63 == 0)
        scalar = extremes[bits % extremes.size()];
    else if (bits >> 62 == 2)
        scalar = static_cast<Scalar>(static_cast<double>(bits % 4001) / 50 - 0.5);
    return scalar;
}

// Checks 60,000 random cases of a datatype, which is one number, or two
// that make a point, to the last bit. The data are not aligned, and the result takes the place of
// each of them in turns; nothing is written beyond it.
template <class Scalar, std::size_t Count>
void CheckType(const GUID& type)
{
    using Datum = std::array<Scalar, Count>;
    constexpr std::uint32_t size = sizeof(Datum);
    const auto provider = Make<IDatatypes>(CLSID_IntrinsicDatatypes);
    std::size_t place = 1;
    const auto check = [&](const Datum& a, const Datum& b, double t)
    {
        std::array<unsigned char, 2 * size + 3> bytes;
        bytes.fill(0xA5);
        std::memcpy(&bytes[1], &a, size);
        std::memcpy(&bytes[1 + size], &b, size);
        auto after = bytes;
        place = size + 2 - place;
        for (std::size_t at = 0; at < Count; ++at)
        {
            const Scalar expected = Expected(a[at], b[at], t, Count > 1);
            std::memcpy(&after[place + at * sizeof(Scalar)], &expected, sizeof(Scalar));
        }
        const std::size_t at = a[0] == b[0] ? Count - 1 : 0;
        const std::int32_t expectedOrder = a[at] < b[at] ? -1 : (a[at] > b[at] ? 1 : 0);
        std::int32_t order = 7;
        const auto* const dataB = &bytes[1 + size];
        const Result compared = provider->ValueCompare(type, &bytes[1], size, dataB, size, &order);
        const Result written =
            provider->ValueLerp(type, &bytes[1], size, dataB, size, t, &bytes[place], size + 1);
        ASSERT_TRUE(compared == S_OK && written == size && order == expectedOrder && bytes == after)
            << Text(type) << testing::PrintToString(std::tuple(a, b, t, order, bytes, after));
    };
    Datum a = {}, b = {};
    std::mt19937_64 random(20061);
    for (int round = 0; round < 60'000 && !testing::Test::HasFailure(); ++round)
    {
        for (std::size_t at = 0; at < Count; ++at)
        {
            a[at] = Draw<Scalar>(random);
            b[at] = Draw<Scalar>(random);
        }
        check(a, b, Draw<double>(random));
    }
}

TEST(IntrinsicDatatypes, InterpolateAndCompareLikeExactArithmetic)
{
    CheckType<std::int8_t, 1>(DATATYPE_SINT8);
    CheckType<std::int16_t, 1>(DATATYPE_SINT16);
    CheckType<std::int32_t, 1>(DATATYPE_SINT32);
    CheckType<std::int64_t, 1>(DATATYPE_SINT64);
    CheckType<float, 1>(DATATYPE_FLOAT32);
    CheckType<double, 1>(DATATYPE_FLOAT64);
    CheckType<std::int32_t, 2>(DATATYPE_PointSINT32);
    CheckType<float, 2>(DATATYPE_PointFLOAT32);
}

TEST(IntrinsicDatatypes, AreListedAndDescribedAndRefuseWhatDoesNotFit)
{
    const auto provider = Make<IDatatypes>(CLSID_IntrinsicDatatypes);
    IDatatypes& p = *provider;
    ObjectPtr<IEnumeratorGUID> types;
    EXPECT_EQ(p.GetEnumerator(IID_IEnumeratorGUID, types.PutVoid()), S_OK);
    const std::pair<std::string, char> known[] = {
        {"SINT8", 1},   {"SINT16", 2},  {"SINT32", 4},      {"SINT64", 8},
        {"FLOAT32", 4}, {"FLOAT64", 8}, {"PointSINT32", 8}, {"PointFLOAT32", 8}};
    GUID type = GUID_Null;
    std::int64_t x[1] = {};
    std::int32_t order = 0;
    for (const auto& [name, size] : known)
    {
        DatatypeCharacteristics info;
        std::memset(&info, 0xA5, sizeof(info));
        std::string record = name;
        record.resize(48);
        record += {size, 0, 0, 0, 1, 1, 1, 0};
        EXPECT_EQ(types->MoveNext(), S_OK);
        EXPECT_EQ(types->GetCurrentGUID(&type), S_OK);
        EXPECT_EQ(p.GetCharacteristics(type, &info), S_OK);
        EXPECT_EQ(record, std::string(reinterpret_cast<const char*>(&info), sizeof(info)));
    }
    EXPECT_EQ(types->MoveNext(), S_FALSE);
    FAILS(types->GetCurrentGUID(&type), E_FAIL, "Invalid postion - see Reset(), MoveNext()");
    FAILS(types->GetCurrentGUID(nullptr), E_POINTER, "pguid");
    EXPECT_EQ(types->Reset(), S_OK);
    EXPECT_EQ(types->GetCurrentGUID(&type), E_FAIL);
    EXPECT_EQ(types->MoveNext(), S_OK);

    const char* const text = "wrong sizeA or/and sizeB";
    FAILS(p.ValueCompare(Numbered(1), x, 8, x, 8, &order), E_NOT_SUPPORTED, "dataType");
    FAILS(p.ValueCompare(type, x, 8, x, 9, &order), E_INVALIDARG, text);
    FAILS(p.ValueLerp(type, x, 7, x, 8, 0, x, 8), E_INVALIDARG, text);
    FAILS(p.ValueLerp(type, x, 8, x, 8, 0, x, 7), E_INVALIDARG, text);
    FAILS(p.ValueLerp(type, x, 8, x, 8, 0, nullptr, 8), E_POINTER, "dataA, dataB, dataR");
}

// --- The service ---------------------------------------------------------------------------------

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
    EXPECT_EQ(KeysOf(*Make<IDatatypesService>(CLSID_DatatypesService)).size(), 8u);
    const std::string name = '"' + std::string(47, 'n') + '"'; // as much as a record holds
    EXPECT_EQ(capture.CountLinesWith("Datatype " + name + " already registerd"), 1u);
    for (const auto& cleared : {service, Make<IDatatypesService>(CLSID_DatatypesService)})
    {
        EXPECT_EQ(cleared->ClearDatatypes(), S_OK);
        EXPECT_EQ(cleared->Contains(DATATYPE_SINT16), S_FALSE) << "nothing is installed again";
    }
}

// Each provider fails at its second datatype: the first one stays.
TEST(DatatypesService, RefusesBadArgumentsAndProvidersThatLie)
{
    const auto service = Make<IDatatypesService>(CLSID_DatatypesService);
    IDatatypesService& s = *service;
    const char* const null = "GUID_Null for dataType not allowed";
    FAILS(s.RegisterDatatype(TypeA, &s), E_INVALIDARG, "this as pType not allowed");
    FAILS(s.UnregisterDatatypes(&s), E_INVALIDARG, "this as pTypes not allowed");
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
            EXPECT_EQ(service->UnregisterDatatype(DATATYPE_SINT64), S_OK);
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
        EXPECT_EQ(KeysOf(*service).size(), 8u);
        EXPECT_EQ(capture.CountLinesWith("--- Register Intrinsic-Datatypes ---"), 1u);
        EXPECT_EQ(service->ClearDatatypes(), S_OK);
    }
}

} // namespace

} // namespace Tavrik::Ossira
