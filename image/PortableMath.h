#pragma once
// Logarithm and power of two from the four basic operations alone. The C library chooses among
// implementations of log, pow and exp by processor when a program starts (with FMA or without),
// and those may differ in the last bit; pixel values computed from these helpers are the same on
// every x86-64 processor.
#include <cmath>
#include <limits>

// Base-2 logarithm of a positive finite x, within one unit in the last place of double; 0 gives
// minus infinity, a negative number or NaN gives NaN, infinity gives infinity.
inline double DQPortableLog2(double x) {
    if (!(x > 0.0))
        return x == 0.0 ? -std::numeric_limits<double>::infinity()
                        : std::numeric_limits<double>::quiet_NaN();
    if (x == std::numeric_limits<double>::infinity()) return x;
    int exponent = 0;
    double m = std::frexp(x, &exponent); // exact: x = m 2^exponent, m in [0.5, 1)
    if (m < 0.70710678118654752) {
        m *= 2.0;
        --exponent;
    }
    // ln m = 2 atanh(s) = 2 (s + s^3/3 + s^5/5 + ...) with |s| < 0.172: eleven terms reach
    // 1e-17. Summed from the smallest term up.
    const double s = (m - 1.0) / (m + 1.0);
    const double s2 = s * s;
    double series = 0.0;
    for (int k = 21; k >= 1; k -= 2)
        series = series * s2 + 1.0 / k;
    constexpr double kLog2E = 1.4426950408889634074;
    return static_cast<double>(exponent) + 2.0 * s * series * kLog2E;
}

// 2 to the power t, within a few units in the last place of double; exact where t is a whole
// number. Below -1074 it is 0, above 1023 infinity.
inline double DQPortableExp2(double t) {
    if (t != t) return t;
    if (t < -1100.0) return 0.0;
    if (t > 1024.0) return std::numeric_limits<double>::infinity();
    const double whole = std::floor(t);
    const double f = (t - whole) * 0.69314718055994530942; // ln 2^(t - whole), in [0, ln 2)
    // e^f by its Taylor series, summed from the smallest term up: 20 terms reach 1e-19.
    double sum = 1.0;
    for (int k = 20; k >= 1; --k)
        sum = 1.0 + sum * f / k;
    return std::ldexp(sum, static_cast<int>(whole));
}
