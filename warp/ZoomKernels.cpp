// The filter kernels of the zoom and their table by name.
#include "warp/LirpedTable.h"
#include "warp/Zoom.h"

#include <cmath>

namespace {

// pi as the kernels use it.
constexpr double kPi = 3.14159265359;

// sin(x) from the four basic operations, so that a kernel's weights are the same on every
// processor (the C library picks its sine by processor). Accurate to a few units in the last
// place of double for the small arguments the kernels pass.
double PortableSin(double x) {
    constexpr double kTwoPi = 6.283185307179586477;
    constexpr double kHalfPi = 1.5707963267948966192;
    // Into -pi .. pi, then into -pi/2 .. pi/2 by sin(pi - x) = sin(x).
    x -= kTwoPi * std::floor(x / kTwoPi + 0.5);
    if (x > kHalfPi) x = 2.0 * kHalfPi - x;
    if (x < -kHalfPi) x = -2.0 * kHalfPi - x;
    const double x2 = x * x;
    // Taylor series to x^25, summed from the smallest term up.
    double sum = 1.0;
    for (int k = 25; k >= 3; k -= 2)
        sum = 1.0 - sum * x2 / (static_cast<double>(k) * static_cast<double>(k - 1));
    return x * sum;
}

float Sinc(float t) {
    if (t == 0.0f) return 1.0f;
    const float angle = static_cast<float>(kPi) * t;
    return static_cast<float>(PortableSin(angle)) / angle;
}

const DQZoomFilter kFilters[kDQZoomFilterCount] = {
    {"hermite", HermiteKernel, 1.0f},
    {"triangle", TriangleKernel, 1.0f},
    {"quadratic", QuadraticBSplineKernel, 1.5f},
    {"bspline", CubicBSplineKernel, 2.0f},
    {"bspline-table", TabulatedCubicBSplineKernel, 2.0f},
    {"lanczos", LanczosKernel, 3.0f},
    {"mitchell", MitchellKernel, 2.0f},
};

} // namespace

float HermiteKernel(float x) {
    const float a = std::fabs(x);
    if (a < 1.0f) return (2.0f * a - 3.0f) * a * a + 1.0f;
    return 0.0f;
}

float TriangleKernel(float x) {
    const float a = std::fabs(x);
    if (a < 1.0f) return 1.0f - a;
    return 0.0f;
}

float QuadraticBSplineKernel(float x) {
    const float a = std::fabs(x);
    if (a < 0.5f) return 0.75f - a * a;
    if (a < 1.5f) {
        const float b = a - 1.5f;
        return 0.5f * b * b;
    }
    return 0.0f;
}

float TabulatedCubicBSplineKernel(float x) {
    const float a = std::fabs(x);
    if (!(a <= 2.0f)) return 0.0f;
    const LirpedTable& table = CubicBSplineTable();
    return table.values[static_cast<int>((a - table.first) * table.perUnit + 0.5f)];
}

float LanczosKernel(float x) {
    const float a = std::fabs(x);
    if (a < 3.0f) return Sinc(a) * Sinc(a / 3.0f);
    return 0.0f;
}

float MitchellKernel(float x) {
    const float a = std::fabs(x);
    if (a < 1.0f) return (7.0f * a * a * a - 12.0f * a * a + 16.0f / 3.0f) / 6.0f;
    if (a < 2.0f)
        return (-7.0f / 3.0f * a * a * a + 12.0f * a * a - 20.0f * a + 32.0f / 3.0f) / 6.0f;
    return 0.0f;
}

const DQZoomFilter* DQZoomFilters() {
    return kFilters;
}

const DQZoomFilter* DQFindZoomFilter(std::string_view name) {
    for (const DQZoomFilter& filter : kFilters)
        if (name == filter.name) return &filter;
    return nullptr;
}

const DQZoomFilter& DQDefaultZoomFilter() {
    return kFilters[4];
}
