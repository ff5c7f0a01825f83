// The runtime's own datatypes: their formulas beside arithmetic in single rounded steps, and the
// manners of their provider and of its enumerator.
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

// Extremes, small numbers and patterns of bits.
template <class Scalar>
Scalar Draw(std::mt19937_64& random)
{
    static const std::vector<Scalar> extremes = Extremes<Scalar>();
    const std::uint64_t bits = random();
    Scalar scalar;
    std::memcpy(&scalar, &bits, sizeof(scalar));
    if (bits >> 62 == 0)
        scalar = extremes[bits % extremes.size()];
    else if (bits >> 62 == 1)
        scalar = static_cast<Scalar>(static_cast<double>(bits % 4001) / 50 - 0.5);
    return scalar;
}

// Checks a table of extremes and 30,000 random cases of a datatype, which is one number, or two
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
    for (const double t : Extremes<double>())
        for (const Scalar first : Extremes<Scalar>())
            for (const Scalar second : Extremes<Scalar>())
            {
                a.fill(second);
                b.fill(first);
                std::swap(a[0], b[0]);
                check(a, b, t);
            }
    std::mt19937_64 random(20061);
    for (int round = 0; round < 30'000 && !testing::Test::HasFailure(); ++round)
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

    const char* const text = "wrong sizeA or/and sizeB";
    const GUID other = Numbered(1);
    FAILS(p.ValueCompare(other, x, 8, x, 8, nullptr), E_POINTER, "result, dataA, dataB");
    FAILS(p.ValueCompare(other, x, 8, x, 8, &order), E_NOT_SUPPORTED, "dataType");
    FAILS(p.ValueCompare(type, x, 8, x, 9, &order), E_INVALIDARG, text);
    FAILS(p.ValueLerp(type, x, 7, x, 8, 0, x, 8), E_INVALIDARG, text);
    FAILS(p.ValueLerp(type, x, 8, x, 8, 0, x, 7), E_INVALIDARG, text);
}

} // namespace

} // namespace Tavrik::Ossira
