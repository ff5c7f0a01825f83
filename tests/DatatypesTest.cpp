// The runtime's own datatypes: their formulas beside arithmetic in single rounded steps, and the
// manners of their provider and of its enumerator.
#include "ExactNumber.h"
#include "OssiraDatatypes.h"
#include "ServiceTools.h"

#include <cstring>
#include <limits>
#include <random>

namespace Tavrik::Ossira
{

using namespace tTest;

namespace
{

// --- What the formulas must yield ---------------------------------------------------------------

template <class Scalar>
using Point = std::array<Scalar, 2>;

template <std::signed_integral Integer>
double Distance(Integer a, Integer b)
{
    return tExact::FromInteger(
        static_cast<Integer>(static_cast<std::uint64_t>(b) - static_cast<std::uint64_t>(a)));
}

double OnLine(double distance, double t, double a)
{
    return tExact::Sum(tExact::Product(distance, t), a);
}

template <std::signed_integral Integer>
Integer Expected(Integer a, Integer b, double t)
{
    using Wide = std::conditional_t<sizeof(Integer) == 8, std::int64_t, std::int32_t>;
    const double place = OnLine(Distance<Wide>(a, b), t, tExact::FromInteger(a));
    return static_cast<Integer>(tExact::Truncated(place, sizeof(Wide) * 8));
}

double Expected(double a, double b, double t)
{
    return OnLine(tExact::Difference(b, a), t, a);
}

float Expected(float a, float b, double t)
{
    const double place = OnLine(tExact::Difference(b, a, tExact::Single), t, a);
    return static_cast<float>(tExact::Rounded(place, tExact::Single));
}

std::int32_t ExpectedMove(std::int32_t a, std::int32_t b, double t)
{
    return static_cast<std::int32_t>(a + tExact::Truncated(tExact::Product(Distance(a, b), t), 32));
}

float ExpectedMove(float a, float b, double t)
{
    const double step = tExact::Product(tExact::Difference(b, a, tExact::Single), t);
    return static_cast<float>(
        tExact::Sum(a, tExact::Rounded(step, tExact::Single), tExact::Single));
}

template <class Scalar>
Point<Scalar> Expected(const Point<Scalar>& a, const Point<Scalar>& b, double t)
{
    return {ExpectedMove(a[0], b[0], t), ExpectedMove(a[1], b[1], t)};
}

template <class Scalar>
std::int32_t ExpectedOrder(Scalar a, Scalar b)
{
    const auto order = a <=> b;
    return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

template <class Scalar>
std::int32_t ExpectedOrder(const Point<Scalar>& a, const Point<Scalar>& b)
{
    return a[0] == b[0] ? ExpectedOrder(a[1], b[1]) : ExpectedOrder(a[0], b[0]);
}

// --- What they are given ------------------------------------------------------------------------

template <class Scalar>
const std::vector<Scalar>& Extremes()
{
    static const std::vector<Scalar> extremes = []
    {
        using Limits = std::numeric_limits<Scalar>;
        std::vector<Scalar> made = {0, 1, 3, 100, Limits::max(), Limits::lowest()};
        const auto add = [&made](auto... further)
        {
            (made.push_back(static_cast<Scalar>(further)), ...);
        };
        if constexpr (Limits::is_integer)
        {
            add(-1, -3, Limits::max() - 1, Limits::lowest() + 1);
        }
        else
        {
            add(-0.0, -1, 0.1, 1.0 / 3, 2147483647.0, 2147483648.0, 1e19, -1e30);
            add(Limits::min(), Limits::denorm_min(), Limits::infinity(), -Limits::infinity());
            // NaNs that tell which of two was handed on, the last one a signalling one.
            using Bits = std::conditional_t<sizeof(Scalar) == 8, std::uint64_t, std::uint32_t>;
            const Bits infinite = std::bit_cast<Bits>(Limits::infinity());
            const Bits quiet = std::bit_cast<Bits>(Limits::quiet_NaN());
            for (const Bits bits : {quiet, Bits(quiet + 5), Bits(infinite + 9)})
                made.push_back(std::bit_cast<Scalar>(bits));
        }
        return made;
    }();
    return extremes;
}

// Draws extremes, small numbers and patterns of bits.
class Draws
{
public:
    template <class Scalar>
    void Draw(Scalar& scalar)
    {
        const std::uint64_t bits = mRandom();
        const int divisor = std::is_integral_v<Scalar> ? 32 : 2000;
        if (bits >> 62 == 0)
            scalar = Extremes<Scalar>()[bits % Extremes<Scalar>().size()];
        else if (bits >> 62 == 1)
            scalar = static_cast<Scalar>(static_cast<double>(bits % 4001) / divisor - 0.5);
        else
            std::memcpy(&scalar, &bits, sizeof(scalar));
    }

    template <class Scalar>
    void Draw(Point<Scalar>& point)
    {
        Draw(point[0]);
        Draw(point[1]);
    }

private:
    std::mt19937_64 mRandom{20061};
};

template <class DatumType, const GUID& Type>
struct Of
{
    using Datum = DatumType;
    static constexpr const GUID& DataType = Type;
};

template <class Case>
class Intrinsic : public testing::Test
{
protected:
    using Datum = typename Case::Datum;
    static constexpr std::uint32_t Size = sizeof(Datum);

    // Ends the test when the provider's answer differs in a bit.
    void Check(const Datum& a, const Datum& b, double t)
    {
        Datum result = {};
        std::int32_t order = 7;
        const Datum expected = Expected(a, b, t);
        const bool agrees =
            Provider->ValueLerp(Case::DataType, &a, Size, &b, Size, t, &result, Size) ==
                static_cast<Result>(Size) &&
            std::memcmp(&result, &expected, Size) == 0 &&
            Provider->ValueCompare(Case::DataType, &a, Size, &b, Size, &order) == S_OK &&
            order == ExpectedOrder(a, b);
        const auto& text = testing::PrintToString<Datum>;
        ASSERT_TRUE(agrees) << text(a) << ", " << text(b) << " at " << testing::PrintToString(t)
                            << " is " << text(result) << " not " << text(expected) << ", order "
                            << order;
    }

    ObjectPtr<IDatatypes> Provider = Make<IDatatypes>(CLSID_IntrinsicDatatypes);
    Draws Random;
};

using AllTypes =
    testing::Types<Of<std::int8_t, DATATYPE_SINT8>, Of<std::int16_t, DATATYPE_SINT16>,
                   Of<std::int32_t, DATATYPE_SINT32>, Of<std::int64_t, DATATYPE_SINT64>,
                   Of<float, DATATYPE_FLOAT32>, Of<double, DATATYPE_FLOAT64>,
                   Of<Point<std::int32_t>, DATATYPE_PointSINT32>,
                   Of<Point<float>, DATATYPE_PointFLOAT32>>;
TYPED_TEST_SUITE(Intrinsic, AllTypes);

template <class Scalar>
void ForEachExtreme(const Scalar&, auto work)
{
    for (const Scalar a : Extremes<Scalar>())
        for (const Scalar b : Extremes<Scalar>())
            work(a, b);
}

template <class Scalar>
void ForEachExtreme(const Point<Scalar>&, auto work)
{
    for (const Scalar a : Extremes<Scalar>())
        for (const Scalar b : Extremes<Scalar>())
            work(Point<Scalar>{a, b}, Point<Scalar>{b, a});
}

TYPED_TEST(Intrinsic, InterpolatesAndComparesLikeExactArithmetic)
{
    typename TypeParam::Datum a = {};
    typename TypeParam::Datum b = {};
    const auto checkAll = [this](const auto& from, const auto& to)
    {
        for (const double t : Extremes<double>())
            this->Check(from, to, t);
    };
    ForEachExtreme(a, checkAll);
    double t = 0;
    for (int round = 0; round < 1'000'000 && !this->HasFailure(); ++round)
    {
        this->Random.Draw(a);
        this->Random.Draw(b);
        this->Random.Draw(t);
        this->Check(a, b, t);
    }
}

// The result may take the place of an operand, and nothing need be aligned.
TYPED_TEST(Intrinsic, WritesExactlyItsSizeWhereverTheDataLie)
{
    constexpr std::uint32_t size = TestFixture::Size;
    typename TypeParam::Datum data[2];
    this->Random.Draw(data[0]);
    this->Random.Draw(data[1]);
    const auto expected = Expected(data[0], data[1], 0.25);
    for (const std::size_t place : {1u, size + 1})
    {
        std::array<unsigned char, 2 * size + 3> bytes;
        bytes.fill(0xA5);
        std::memcpy(&bytes[1], data, 2 * size);
        auto after = bytes;
        std::memcpy(&after[place], &expected, size);
        EXPECT_EQ(this->Provider->ValueLerp(TypeParam::DataType, &bytes[1], size, &bytes[1 + size],
                                            size, 0.25, &bytes[place], size + 1),
                  static_cast<Result>(size));
        EXPECT_EQ(bytes, after);
    }
}

// --- The provider's manners ---------------------------------------------------------------------

constexpr GUID UnknownType = {0x1234, 0, 0, {}};

struct KnownType
{
    const char* Name;
    GUID DataType;
    std::uint8_t Size;
};

constexpr KnownType KnownTypes[] = {{"SINT8", DATATYPE_SINT8, 1},
                                    {"SINT16", DATATYPE_SINT16, 2},
                                    {"SINT32", DATATYPE_SINT32, 4},
                                    {"SINT64", DATATYPE_SINT64, 8},
                                    {"FLOAT32", DATATYPE_FLOAT32, 4},
                                    {"FLOAT64", DATATYPE_FLOAT64, 8},
                                    {"PointSINT32", DATATYPE_PointSINT32, 8},
                                    {"PointFLOAT32", DATATYPE_PointFLOAT32, 8}};

TEST(IntrinsicDatatypes, RefuseWhatDoesNotFit)
{
    const auto provider = Make<IDatatypes>(CLSID_IntrinsicDatatypes);
    IDatatypes& p = *provider;
    const GUID& type = DATATYPE_SINT64;
    std::int64_t x = 1;
    std::int64_t r = 42;
    std::int32_t order = 42;
    const char* const compareNull = "result, dataA, dataB";
    const char* const lerpNull = "dataA, dataB, dataR";
    const char* const size = "wrong sizeA or/and sizeB";
    FAILS(p.ValueCompare(type, nullptr, 8, &x, 8, &order), E_POINTER, compareNull);
    FAILS(p.ValueCompare(type, &x, 8, nullptr, 8, &order), E_POINTER, compareNull);
    FAILS(p.ValueCompare(UnknownType, &x, 8, &x, 8, nullptr), E_POINTER, compareNull);
    FAILS(p.ValueCompare(UnknownType, &x, 8, &x, 8, &order), E_NOT_SUPPORTED, "dataType");
    FAILS(p.ValueCompare(type, &x, 4, &x, 8, &order), E_INVALIDARG, size);
    FAILS(p.ValueCompare(type, &x, 8, &x, 9, &order), E_INVALIDARG, size);
    FAILS(p.ValueLerp(type, nullptr, 8, &x, 8, 0.5, &r, 8), E_POINTER, lerpNull);
    FAILS(p.ValueLerp(type, &x, 8, nullptr, 8, 0.5, &r, 8), E_POINTER, lerpNull);
    FAILS(p.ValueLerp(UnknownType, &x, 8, &x, 8, 0.5, nullptr, 8), E_POINTER, lerpNull);
    FAILS(p.ValueLerp(UnknownType, &x, 8, &x, 8, 0.5, &r, 8), E_NOT_SUPPORTED, "dataType");
    FAILS(p.ValueLerp(type, &x, 7, &x, 8, 0.5, &r, 8), E_INVALIDARG, size);
    FAILS(p.ValueLerp(type, &x, 8, &x, 0, 0.5, &r, 8), E_INVALIDARG, size);
    FAILS(p.ValueLerp(type, &x, 8, &x, 8, 0.5, &r, 7), E_INVALIDARG, size);
    FAILS(p.ValueLerp(type, &x, 8, &x, 8, 0.5, &r, 0x80000000), E_INVALIDARG, size);
    FAILS(p.GetCharacteristics(UnknownType, nullptr), E_POINTER, "pInfo");
    FAILS(p.GetEnumerator(IID_IUnknown, nullptr), E_POINTER, "ppv");
    EXPECT_TRUE(r == 42 && order == 42);
}

TEST(IntrinsicDatatypes, AnEnumeratorStandsBeforeOnOrBehindItsTypes)
{
    auto provider = Make<IDatatypes>(CLSID_IntrinsicDatatypes);
    ObjectPtr<IEnumeratorGUID> types;
    ASSERT_EQ(provider->GetEnumerator(IID_IEnumeratorGUID, types.PutVoid()), S_OK);
    provider.Reset(); // the enumerator keeps it
    GUID guid = GUID_Null;
    const char* const offItem = "Invalid postion - see Reset(), MoveNext()";
    for (int round = 0; round < 2; ++round)
    {
        FAILS(types->GetCurrentGUID(&guid), E_FAIL, offItem);
        for (const KnownType& known : KnownTypes)
        {
            EXPECT_EQ(types->MoveNext(), S_OK);
            EXPECT_EQ(types->GetCurrentGUID(&guid), S_OK);
            EXPECT_TRUE(SameGuid(guid, known.DataType));
        }
        for (int step = 0; step < 3; ++step)
            EXPECT_EQ(types->MoveNext(), S_FALSE);
        FAILS(types->GetCurrentGUID(&guid), E_FAIL, offItem);
        FAILS(types->GetCurrentGUID(nullptr), E_POINTER, "pguid");
        EXPECT_EQ(types->Reset(), S_OK);
    }
}

} // namespace

} // namespace Tavrik::Ossira
