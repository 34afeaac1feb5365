// The matte choke: a Gaussian smoothing, a threshold taken from the cumulative response of the
// same filter to a straight edge, and a rescale of what lies above it.

#include "flow/MatteChoke.h"

#include "image/Parallel.h"
#include "warp/Filters.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

// Values so near 1 after a step or an inversion count as fully inside.
constexpr double kNearWhiteAfterStep = 0.0001;
constexpr float kNearWhiteAfterInvert = 0.999f;
// A step whose smoothing radius would land within this of a whole number is widened by it, so
// that the edge threshold never falls exactly between two taps.
constexpr double kLeastFraction = 0.01;

template <class Op>
void ForEachValue(DQImage* image, Op op) {
    ZUMPForRows(image->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* __restrict row = image->Row<float>(y);
            for (int x = 0; x < image->width; ++x)
                row[x] = op(row[x]);
        }
    });
}

// 1 - v, with values that land just below 1 taken as 1.
void InvertMatte(DQImage* matte) {
    ForEachValue(matte, [](float v) {
        const float inverted = 1.0f - v;
        return inverted > kNearWhiteAfterInvert ? 1.0f : inverted;
    });
}

// The level that a straight edge smoothed by the step's filter has at the step's distance inside
// the matte: the tail sums of the normalised taps from index 2 and 3, mixed by the fraction.
double EdgeThreshold(double c, double p) {
    const int taps = int(2.0 * c) + 1;
    std::vector<double> w(taps);
    const double sigma = c / 3.0;
    double sum = 0.0;
    for (int j = 0; j < taps; ++j) {
        const double d = double(j) - c;
        w[j] = std::pow(2.0, -(d * d) / (sigma * sigma));
        sum += w[j];
    }
    double s2 = 0.0, s3 = 0.0;
    for (int j = 2; j < taps; ++j)
        s2 += w[j] / sum;
    for (int j = 3; j < taps; ++j)
        s3 += w[j] / sum;
    return s3 + (s2 - s3) * p;
}

} // namespace

void ChokeStep(DQImage* matte, double r) {
    if (r == 0.0) return;
    double c = std::ceil(r + 1.0);
    double e = c - (r + 1.0);
    if (e < kLeastFraction) {
        r += kLeastFraction;
        c = std::ceil(r + 1.0);
        e = c - (r + 1.0);
    }
    const double p = 1.0 - e;
    BlurGauss(matte, 0, float(c + p));
    const double t = EdgeThreshold(c, p);
    ForEachValue(matte, [t](float v) {
        if (v < t) return 0.0f;
        const double out = (double(v) - t) / (1.0 - t);
        return std::fabs(out - 1.0) <= kNearWhiteAfterStep ? 1.0f : float(out);
    });
}

void DQMatteChoke(DQImage* matte, float amount) {
    if (!matte || !matte->data || matte->dataType != DQ_FLOAT || matte->channels != 1) {
        std::fputs("DQMatte Choke, invalid input\n", stderr);
        return;
    }
    const bool grow = amount < 0.0f;
    double a = grow ? -double(amount) : double(amount);
    if (grow) InvertMatte(matte);
    const double lo = std::floor(a);
    const double hi = std::ceil(a);
    if (lo == hi) {
        ChokeStep(matte, lo);
    } else {
        DQImagePtr copy = DQMakeImage(matte->width, matte->height, 1, DQ_FLOAT, matte->bottomUp);
        copy->CopyWhole(matte);
        ChokeStep(matte, lo);
        ChokeStep(copy.get(), hi);
        const float f = float(a - lo);
        ZUMPForRows(matte->height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y) {
                float* __restrict v = matte->Row<float>(y);
                const float* __restrict c = copy->Row<float>(y);
                for (int x = 0; x < matte->width; ++x)
                    v[x] = std::min(1.0f, v[x] + (c[x] - v[x]) * f);
            }
        });
    }
    if (grow) InvertMatte(matte);
    ForEachValue(matte, [](float v) { return std::clamp(v, 0.0f, 1.0f); });
}
