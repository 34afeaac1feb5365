#pragma once
// The general image zoom: a separable resampler with a choice of filter kernels, run as a pass
// along rows into an intermediate image and a pass down its columns, and the scratch object that
// lets repeated zooms of like size run without allocating.
#include "image/DQImage.h"
#include "image/Mem.h"
#include "warp/LirpedTable.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

// A filter kernel: even in its argument, 0 outside its radius.
using DQZoomKernel = float (*)(float);

// (2a - 3) a^2 + 1 below 1. Radius 1.
float HermiteKernel(float x);
// 1 - a below 1. Radius 1.
float TriangleKernel(float x);
// 0.75 - a^2 below 0.5, 0.5 (a - 1.5)^2 below 1.5. Radius 1.5.
float QuadraticBSplineKernel(float x);
// The cubic B-spline is CubicBSplineKernel of warp/LirpedTable.h. Radius 2.
// The cubic B-spline read from the process's table over 0..2 at the nearest entry. Radius 2.
float TabulatedCubicBSplineKernel(float x);
// sinc(a) sinc(a / 3) below 3. Radius 3.
float LanczosKernel(float x);
// The cubic with B = C = 1/3: (7a^3 - 12a^2 + 16/3) / 6 below 1,
// (-7/3 a^3 + 12a^2 - 20a + 32/3) / 6 below 2. Radius 2.
float MitchellKernel(float x);

// A kernel with its support radius and the name the command line knows it by.
struct DQZoomFilter {
    const char* name;
    DQZoomKernel kernel;
    float radius;
};

// The seven kernels, in the order of the declarations above (the cubic B-spline fourth).
inline constexpr int kDQZoomFilterCount = 7;
const DQZoomFilter* DQZoomFilters();
// The filter of that name, or null.
const DQZoomFilter* DQFindZoomFilter(std::string_view name);
// The filter ZoomDefault uses: the tabulated cubic B-spline, radius 2.
const DQZoomFilter& DQDefaultZoomFilter();

// The buffers of one zoom, kept for the next one. Each buffer only grows: when a larger one is
// needed a new one is allocated and only then the old one released, so a failed allocation
// throws DQErr 1 and leaves the storage as it was. One storage serves one zoom at a time.
class DQZoomTempStorage : public ZUMem {
public:
    DQZoomTempStorage() = default;
    virtual ~DQZoomTempStorage();
    DQZoomTempStorage(const DQZoomTempStorage&) = delete;
    DQZoomTempStorage& operator=(const DQZoomTempStorage&) = delete;

    // A block of at least `bytes`, grown as described above; its contents are not kept.
    struct Block {
        uint8_t* data = nullptr;
        size_t capacity = 0;
        void Reserve(size_t bytes);
        void Release();
    };

    Block intermediate; // dest width x source height pixels of the source's type
    Block horizontal;   // contribution table of the pass along rows
    Block vertical;     // contribution table of the pass down columns
    Block lines;        // float lines of the bands of each pass
};

// Resizes `source` to the size of `dest` with `kernel` of support `radius`. Both images must
// have the same element type (8-bit, 16-bit or float) and channel count (1 to 4); otherwise, or
// for a null image or kernel or a radius that is not positive and finite, DQErr 5 is thrown and
// `dest` is left as it was. An empty image does nothing. Sums are limited to 0 .. 255 whatever
// the element type. `storage` may be null: a local one is used and discarded. `dest` may be
// `source` when the sizes agree.
void Zoom(DQImage* dest, DQImage* source, DQZoomKernel kernel, DQZoomTempStorage* storage,
          float radius);
void Zoom(DQImage* dest, DQImage* source, const DQZoomFilter& filter,
          DQZoomTempStorage* storage = nullptr);

// Zoom with the tabulated cubic B-spline of radius 2.
void ZoomDefault(DQImage* dest, DQImage* source);
void ZoomDefault(DQImage* dest, DQImage* source, DQZoomTempStorage* storage);
