// The runtime's own datatypes: four integers, two floating-point numbers and two points. Callers
// keep what these formulas yield, so their results are the same bits on every compiler, for every
// input: integers wrap, no product and sum are rounded as one, and what the language leaves open is
// decided here the way that the machine decides it.
#include "OssiraClasses.h"
#include "OssiraDatatypeBuilder.h"
#include "OssiraValue.h"

#include <cfloat>
#include <cmath>
#include <concepts>
#include <cstring>
#include <limits>

// For the compilers that know it; the others are told on the command line.
#ifdef __clang__
#pragma STDC FP_CONTRACT OFF
#endif

namespace Tavrik::Ossira
{

namespace
{

static_assert(FLT_EVAL_METHOD == 0, "intermediate results must not be wider than their type");
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);

template <class Scalar>
struct Point
{
    Scalar X;
    Scalar Y;
};

// --- What the language leaves open --------------------------------------------------------------

template <std::signed_integral Integer>
[[nodiscard]] constexpr Integer WrappingSum(Integer a, Integer b) noexcept
{
    using Unsigned = std::make_unsigned_t<Integer>;
    return static_cast<Integer>(static_cast<Unsigned>(a) + static_cast<Unsigned>(b));
}

template <std::signed_integral Integer>
[[nodiscard]] constexpr Integer WrappingDifference(Integer a, Integer b) noexcept
{
    using Unsigned = std::make_unsigned_t<Integer>;
    return static_cast<Integer>(static_cast<Unsigned>(a) - static_cast<Unsigned>(b));
}

// Toward zero; the lowest integer for what does not fit, NaN included.
template <std::signed_integral Integer>
[[nodiscard]] constexpr Integer Truncated(double x) noexcept
{
    constexpr Integer lowest = std::numeric_limits<Integer>::lowest();
    constexpr auto limit = static_cast<double>(lowest); // a power of two, hence exact
    return x >= limit && x < -limit ? static_cast<Integer>(x) : lowest;
}

// Of two NaNs the machine hands on its first operand, and a compiler may exchange the operands of a
// product or a sum: so the first one is looked at before.

template <std::floating_point Float>
[[nodiscard]] Float Product(Float first, Float second) noexcept
{
    return std::isnan(first) ? first + first : first * second;
}

template <std::floating_point Float>
[[nodiscard]] Float Sum(Float first, Float second) noexcept
{
    return std::isnan(first) ? first + first : first + second;
}

// --- The formulas -------------------------------------------------------------------------------

// A NaN is neither less nor greater, so it equals everything.
template <class Scalar>
[[nodiscard]] std::int32_t Order(Scalar a, Scalar b) noexcept
{
    if (b > a)
        return -1;
    return a > b ? 1 : 0;
}

template <class Scalar>
[[nodiscard]] std::int32_t Order(const Point<Scalar>& a, const Point<Scalar>& b) noexcept
{
    return a.X == b.X ? Order(a.Y, b.Y) : Order(a.X, b.X);
}

[[nodiscard]] double AtDistance(double distance, double t, double a) noexcept
{
    return Sum(Product(distance, t), a);
}

// The distance of small integers is taken in 32 bits and so does not wrap; the result does.
template <std::signed_integral Integer>
[[nodiscard]] Integer Interpolated(Integer a, Integer b, double t) noexcept
{
    using Wide =
        std::conditional_t<(sizeof(Integer) < sizeof(std::int32_t)), std::int32_t, Integer>;
    const Wide distance = WrappingDifference<Wide>(b, a);
    return static_cast<Integer>(
        Truncated<Wide>(AtDistance(static_cast<double>(distance), t, static_cast<double>(a))));
}

// Single precision is rounded to once, at the end.
template <std::floating_point Float>
[[nodiscard]] Float Interpolated(Float a, Float b, double t) noexcept
{
    const Float distance = b - a;
    return static_cast<Float>(AtDistance(distance, t, a));
}

// In a point a is added after truncating, and after rounding.

[[nodiscard]] std::int32_t Moved(std::int32_t a, std::int32_t b, double t) noexcept
{
    const std::int32_t distance = WrappingDifference(b, a);
    return WrappingSum(a, Truncated<std::int32_t>(distance * t));
}

[[nodiscard]] float Moved(float a, float b, double t) noexcept
{
    const float distance = b - a;
    return Sum(a, static_cast<float>(Product(static_cast<double>(distance), t)));
}

template <class Scalar>
[[nodiscard]] Point<Scalar> Interpolated(const Point<Scalar>& a, const Point<Scalar>& b,
                                         double t) noexcept
{
    return {Moved(a.X, b.X, t), Moved(a.Y, b.Y, t)};
}

// --- The table ----------------------------------------------------------------------------------

template <class Datum>
[[nodiscard]] Datum Load(const void* data) noexcept
{
    Datum datum;
    std::memcpy(&datum, data, sizeof(Datum));
    return datum;
}

template <class Datum>
std::int32_t Compare(const void* dataA, std::uint32_t, const void* dataB, std::uint32_t)
{
    return Order(Load<Datum>(dataA), Load<Datum>(dataB));
}

template <class Datum>
Result Lerp(const void* dataA, std::uint32_t, const void* dataB, std::uint32_t, double t,
            void* dataR, std::uint32_t)
{
    const Datum result = Interpolated(Load<Datum>(dataA), Load<Datum>(dataB), t);
    std::memcpy(dataR, &result, sizeof(Datum));
    return sizeof(Datum);
}

template <class Datum>
constexpr Building::TypeRow Row(const char* name, const GUID& dataType) noexcept
{
    return {name, &dataType, sizeof(Datum), Building::FixedSize, &Compare<Datum>, &Lerp<Datum>};
}

constexpr Building::TypeRow Rows[] = {Row<std::int8_t>("SINT8", DATATYPE_SINT8),
                                      Row<std::int16_t>("SINT16", DATATYPE_SINT16),
                                      Row<std::int32_t>("SINT32", DATATYPE_SINT32),
                                      Row<std::int64_t>("SINT64", DATATYPE_SINT64),
                                      Row<float>("FLOAT32", DATATYPE_FLOAT32),
                                      Row<double>("FLOAT64", DATATYPE_FLOAT64),
                                      Row<Point<std::int32_t>>("PointSINT32", DATATYPE_PointSINT32),
                                      Row<Point<float>>("PointFLOAT32", DATATYPE_PointFLOAT32)};

struct IntrinsicTraits
{
    static constexpr CLSID ClassId = CLSID_IntrinsicDatatypes;
    static constexpr std::string_view ClassName = "IntrinsicDatatypes";
    static constexpr std::string_view ReportedClass =
        "Tavrik::Ossira::`anonymous-namespace'::T_IntrinsicDatatypes";
    static constexpr Building::TypeTable Types = Rows;
};

using T_IntrinsicDatatypes = Building::CTypeProvider<IntrinsicTraits>;

} // namespace

OSSIRA_CLASS(T_IntrinsicDatatypes, "IntrinsicDatatypes")

} // namespace Tavrik::Ossira
