// Sums, products and conversions of floating-point numbers done with integers: what they must be,
// to the last bit, where a result is rounded to nearest once. Numbers of single precision are
// passed as doubles of the same value.
#pragma once

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>

namespace Tavrik::Ossira::tTest::tExact
{

__extension__ typedef unsigned __int128 Wide;

struct Format
{
    int Precision;      // bits of the mantissa
    int LowestExponent; // of the least bit that there is
    int HighestExponent;
};

constexpr Format Single = {24, -149, 128};
constexpr Format Double = {53, -1074, 1024};

[[nodiscard]] inline int BitCount(Wide x)
{
    const auto high = static_cast<std::uint64_t>(x >> 64);
    return 128 - (high != 0 ? std::countl_zero(high)
                            : 64 + std::countl_zero(static_cast<std::uint64_t>(x)));
}

// Mantissa times two to the exponent.
struct Number
{
    bool IsNegative;
    Wide Mantissa;
    int Exponent;

    [[nodiscard]] static Number Of(double finite)
    {
        int exponent = 0;
        const double mantissa = std::frexp(std::fabs(finite), &exponent);
        return {std::signbit(finite), static_cast<Wide>(std::ldexp(mantissa, 53)), exponent - 53};
    }

    [[nodiscard]] double RoundedTo(const Format& format) const
    {
        const int least =
            std::max(Exponent + BitCount(Mantissa) - format.Precision, format.LowestExponent);
        const int shift = least - Exponent;
        Wide kept = shift <= 0 ? Mantissa << -shift : (shift < 128 ? Mantissa >> shift : 0);
        if (shift > 0 && shift < 128)
        {
            const Wide rest = Mantissa - (kept << shift);
            const Wide half = Wide(1) << (shift - 1);
            kept += rest > half || (rest == half && (kept & 1) != 0) ? 1 : 0;
        }
        const bool isTooGreat = least + BitCount(kept) > format.HighestExponent;
        const double size =
            isTooGreat ? INFINITY : std::ldexp(static_cast<double>(kept), least); // exact
        return IsNegative ? -size : size;
    }
};

// What is rounded by no one: the machine's answer, by the rule that of two NaNs the first one is
// handed on.
template <class Operation>
[[nodiscard]] double Special(double a, double b, Operation operation)
{
    return std::isnan(a) ? a + a : operation(a, b);
}

[[nodiscard]] inline bool IsOrdinary(double x)
{
    return std::isfinite(x) && x != 0;
}

[[nodiscard]] inline double Product(double a, double b)
{
    if (!IsOrdinary(a) || !IsOrdinary(b))
        return Special(a, b, [](double x, double y) { return x * y; });
    const Number x = Number::Of(a);
    const Number y = Number::Of(b);
    return Number{x.IsNegative != y.IsNegative, x.Mantissa * y.Mantissa, x.Exponent + y.Exponent}
        .RoundedTo(Double);
}

[[nodiscard]] inline double Sum(double a, double b, const Format& format = Double)
{
    if (!IsOrdinary(a) || !IsOrdinary(b))
        return Special(a, b, [](double x, double y) { return x + y; });
    const bool isSwapped = std::fabs(a) < std::fabs(b);
    Number big = Number::Of(isSwapped ? b : a);
    Number small = Number::Of(isSwapped ? a : b);
    if (big.IsNegative != small.IsNegative && big.Mantissa == small.Mantissa &&
        big.Exponent == small.Exponent)
        return 0;
    // Room for 70 bits below; of what the smaller one loses beneath them, all that matters is
    // whether it is nothing.
    big.Mantissa <<= 70;
    big.Exponent -= 70;
    const int lost = std::clamp(big.Exponent - small.Exponent, 0, 127);
    Wide aligned = small.Mantissa >> lost;
    aligned |= (aligned << lost) != small.Mantissa ? 1 : 0;
    aligned <<= std::max(small.Exponent - big.Exponent, 0);
    big.Mantissa += big.IsNegative == small.IsNegative ? aligned : 0 - aligned;
    return big.RoundedTo(format);
}

[[nodiscard]] inline double Difference(double a, double b, const Format& format = Double)
{
    return Sum(a, std::isnan(b) ? b : -b, format);
}

[[nodiscard]] inline double Rounded(double x, const Format& format)
{
    return IsOrdinary(x) ? Number::Of(x).RoundedTo(format) : x;
}

[[nodiscard]] inline double FromInteger(std::int64_t x)
{
    const auto bits = static_cast<std::uint64_t>(x);
    return x == 0 ? 0 : Number{x < 0, x < 0 ? 0 - bits : bits, 0}.RoundedTo(Double);
}

// Toward zero; what does not fit into so many bits becomes the lowest integer of them.
[[nodiscard]] inline std::int64_t Truncated(double x, int bitCount)
{
    const Wide limit = Wide(1) << (bitCount - 1);
    const Number number = Number::Of(std::isfinite(x) ? x : 1e300);
    const int left = std::clamp(number.Exponent, 0, 70);
    const int right = std::clamp(-number.Exponent, 0, 127);
    const Wide whole = (number.Mantissa << left) >> right;
    const bool isNegative = whole >= limit || number.IsNegative;
    const auto size = static_cast<std::uint64_t>(std::min(whole, limit));
    return static_cast<std::int64_t>(isNegative ? 0 - size : size);
}

} // namespace Tavrik::Ossira::tTest::tExact
