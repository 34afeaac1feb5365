#pragma once
// Plain pixel-by-pixel reads for the reference warps of the tests: a bilinear sample written
// straight from the rules (cell, fraction 1 of the last cell at the far edge, along x first),
// the integer store, and a comparison that counts the elements that differ.
#include "WarpTestImages.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace quelmor::test {

// Cell and fraction of a position: the last cell at fraction 1 at or past the last pixel.
inline void Cell(float position, int lastIndex, int& index, float& fraction) {
    index = static_cast<int>(position);
    fraction = position - static_cast<float>(index);
    if (index >= lastIndex) {
        index = lastIndex - 1;
        fraction = 1.0f;
    }
}

inline std::vector<float> SampleAt(const DQImage& image, float sx, float sy) {
    int ix, iy;
    float tx, ty;
    Cell(sx, image.lastColumn, ix, tx);
    Cell(sy, image.lastRow, iy, ty);
    std::vector<float> out(static_cast<size_t>(image.channels));
    for (int c = 0; c < image.channels; ++c) {
        auto at = [&](int dx, int dy) {
            return static_cast<float>(ElementAt(image, ix + dx, iy + dy, c));
        };
        const float top = at(0, 0) + tx * (at(1, 0) - at(0, 0));
        const float bottom = at(0, 1) + tx * (at(1, 1) - at(0, 1));
        out[c] = top + ty * (bottom - top);
    }
    return out;
}

inline double Stored(int dataType, double v) {
    if (dataType == DQ_FLOAT) return v;
    const double top = dataType == DQ_UCHAR ? 255.0 : 65535.0;
    const double r = std::floor(v + 0.5);
    return r < 0.0 ? 0.0 : r > top ? top : r;
}

// Largest difference and the number of elements that differ by more than `tolerance`.
struct Difference {
    double worst = 0.0;
    int beyond = 0, differing = 0, elements = 0;
};

inline Difference Compare(const DQImage& a, const DQImage& b, double tolerance) {
    Difference d;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x)
            for (int c = 0; c < a.channels; ++c) {
                const double e = std::fabs(ElementAt(a, x, y, c) - ElementAt(b, x, y, c));
                d.worst = std::max(d.worst, e);
                if (e > tolerance) ++d.beyond;
                if (e > 0.0) ++d.differing;
                ++d.elements;
            }
    return d;
}

// A row pipeline against its plain reference: floats within 1e-5; integers within one step, and
// on at most 1% of the elements, since sums in another order or a fused multiply-add may differ in
// their last bit and send an integer store the other way.
inline void ExpectCloseToReference(const DQImage& fast, const DQImage& slow) {
    const bool floats = fast.dataType == DQ_FLOAT;
    const Difference d = Compare(fast, slow, floats ? 1e-5 : 1.0);
    EXPECT_EQ(d.beyond, 0) << "worst " << d.worst;
    if (!floats) {
        EXPECT_LE(d.differing * 100, d.elements);
    }
}

} // namespace quelmor::test
