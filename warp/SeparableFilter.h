#pragma once
// The separable filter engine under Convolve, BlurGauss, Blur5, BlurBox and Blur3: a symmetric
// filter run along rows into a float image and then down its columns, each pass in row bands.
#include "image/DQImage.h"
#include "image/KernelSpace.h"

#include <cstddef>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

struct SymmetricFilter {
    const float* w = nullptr; // w[0] centre, w[k] the pair at distance k
    int n = 0;                // half-length: the filter has 2n - 1 taps
    int edge = 0;             // samples at each end of a line that are renormalised (>= n - 1)
};

// Filters `source` into `dest` (the same image is allowed) along rows and/or columns. Returns
// without work for element types other than the three image types or channel counts outside
// 1..4; throws DQErr 5 when the two images do not match.
void FilterSeparable(DQImage* dest, const DQImage* source, const SymmetricFilter& filter, bool rows,
                     bool columns);

// One interleaved line of `length` pixels of `channels` floats, filtered from `in` to `out`.
void FilterLine(const float* in, float* out, int length, int channels,
                const SymmetricFilter& filter);

// FilterLine for the pixels [first, end) of the line alone; the others of `out` are left as they
// are. Each pixel is computed as FilterLine computes it.
void FilterLineRange(const float* in, float* out, int length, int channels, int first, int end,
                     const SymmetricFilter& filter);

// One output row of the column pass: row y of the columns of the float plane `rows` (row y at
// rows + y * stride, `elements` floats wide), into `out`. Within `edge` rows of the top or bottom
// the taps outside are dropped and the rest divided by the sum of their weights.
void FilterColumnRow(const float* rows, size_t stride, int height, int y, float* __restrict out,
                     int elements, const SymmetricFilter& f);

QUELMOR_KERNELS_END
} // namespace warp_detail

// FilterSeparable with the filter as plain values, the form every processor level's copy shares:
// Convolve and the blurs call it to reach the copy of the level in force.
void FilterSeparableTaps(DQImage* dest, const DQImage* source, const float* w, int n, int edge,
                         bool rows, bool columns);
