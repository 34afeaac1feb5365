#pragma once
// Separable smoothing filters and the bilinear resize that every multi-scale stage is built on.
// All of them run in row bands, on every channel, for 8-bit, 16-bit and float images of 1 to 4
// channels.
#include "image/DQImage.h"

#include <cstdint>

// A symmetric filter given by its centre half: w[0] is the centre tap and w[i] the pair at
// distance i, so the whole filter has 2n - 1 taps.
struct DQFilterKernel {
    static constexpr int kMaxTaps = 4096;
    int32_t n = 0;
    float w[kMaxTaps] = {};
};

// Builds the normalised Gaussian of `radius` on base 2: w[i] = 2^(-i^2 / (radius / 3)^2) for i up
// to the integer part of the radius, divided so that the two-sided filter sums to 1.
void DQMakeGaussKernel(DQFilterKernel& kernel, float radius);

// Filters `source` into `dest` (which may be the same image). `direction` 0 filters both axes, 1
// only along rows, 2 only along columns. Near the ends of a line the taps that fall outside are
// dropped and the rest renormalised, so edges keep their level. Images of other element types
// are left alone; images that do not match throw DQErr 5.
void Convolve(DQImage* dest, const DQImage* source, const DQFilterKernel& kernel, int direction);

// In-place Gaussian. `axes` 2 smooths along rows only, 3 along columns only, anything else both.
// A radius below 0.001 does nothing.
void BlurGauss(DQImage* image, int axes, float radius);

// In-place five-tap binomial filter 1/16, 1/4, 3/8, 1/4, 1/16 on both axes.
void Blur5(DQImage* image);

// In-place filter of `count` symmetric taps (count odd), `axes` 0 both, 2 rows, 3 columns, any
// other value nothing. The taps are applied as given in the interior; near the ends the taps that
// fall outside are dropped and the rest divided by their sum. `radius` is informational.
void ConvolveTaps(DQImage* image, const float* taps, int count, int axes, float radius);

// In-place box of a fractional radius: 2 * ceil(radius) + 1 taps, the two end taps weighted by
// the fractional part, every tap divided by the tap count (so a fractional box sums to less than
// one). `axes` as for ConvolveTaps; a radius below 0.001 does nothing.
void BlurBox(DQImage* image, int axes, float radius);

// In-place 0.25, 0.5, 0.25 on both axes.
void Blur3(DQImage* image);

// Bilinear resize of `source` to the size of `dest`. The first and last pixels of each row and
// column map onto each other. Element types may differ: values are scaled by the ratio of white
// points. Different channel counts throw DQErr 5.
void ResizeBilinear(DQImage* dest, const DQImage* source);
