// Sums, products and conversions of floating-point numbers in single steps: what they must be, to
// the last bit, where every step is rounded to nearest once. Numbers of single precision are passed
// as doubles of the same value; twice their precision and more, those round as if at once.
#pragma once

#include <cmath>
#include <cstdint>

namespace Tavrik::Ossira::tTest::tExact
{

enum Format
{
    Single,
    Double
};

// Whatever the compiler would like to fuse or to keep more precisely goes through memory.
[[nodiscard]] inline double Rounded(double x, Format format)
{
    const volatile double whole = x;
    const volatile float half = static_cast<float>(x);
    return std::isfinite(x) && format == Single ? half : whole;
}

// Of two NaNs the first one is handed on.
[[nodiscard]] inline double Product(double a, double b)
{
    return Rounded(std::isnan(a) ? a + a : a * b, Double);
}

[[nodiscard]] inline double Sum(double a, double b, Format format = Double)
{
    return Rounded(std::isnan(a) ? a + a : a + b, format);
}

[[nodiscard]] inline double Difference(double a, double b, Format format = Double)
{
    return Sum(a, std::isnan(b) ? b : -b, format);
}

[[nodiscard]] inline double FromInteger(std::int64_t x)
{
    return static_cast<double>(x);
}

// Toward zero; what does not fit into so many bits becomes the lowest integer of them.
[[nodiscard]] inline std::int64_t Truncated(double x, int bitCount)
{
    const double limit = std::ldexp(1, bitCount - 1);
    return static_cast<std::int64_t>(std::trunc(x) < limit && std::trunc(x) >= -limit ? x : -limit);
}

} // namespace Tavrik::Ossira::tTest::tExact
