#pragma once
// Bilinear reads shared by the warps, the blur along vectors and the resize: a position split into
// a cell and a fraction, a sample of an image at a fractional position, and a read of a flow.
#include "image/KernelSpace.h"
#include "warp/PixelAccess.h"

#include <cstdint>
#include <cstring>
#include <type_traits>

#ifdef __SSE4_1__
#include <immintrin.h>
#endif

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

// The left (or upper) pixel of the cell that holds a position and the fraction across it. At or
// beyond the last pixel the last cell is used at fraction 1, so the last pixel is read exactly.
// A position that is not a number lands on the first pixel.
struct Tap {
    int32_t index;
    float fraction;
};

[[gnu::always_inline]] inline Tap CellOf(float position, int32_t lastIndex) {
    Tap tap{static_cast<int32_t>(position), 0.0f};
    tap.fraction = position - static_cast<float>(tap.index);
    if (tap.index >= lastIndex) {
        tap.index = lastIndex - 1;
        tap.fraction = 1.0f;
    }
    if (tap.index < 0) {
        tap.index = 0;
        tap.fraction = 0.0f;
    }
    return tap;
}

inline float Lerp(float a, float b, float t) {
    return a + t * (b - a);
}

// Four floats in one register: a whole four-channel pixel, or two neighbouring flow vectors.
typedef float Float4 __attribute__((vector_size(16)));
typedef int32_t Int4 __attribute__((vector_size(16)));

// Four elements from memory as floats, by value.
template <class T>
inline Float4 Load4(const T* p) {
    if constexpr (std::is_floating_point_v<T>) {
        Float4 v;
        std::memcpy(&v, p, sizeof v);
        return v;
    } else {
#ifdef __SSE4_1__
        // The generic conversion below takes the bytes apart one by one; a widening load does it
        // in one instruction.
        __m128i wide;
        if constexpr (sizeof(T) == 1) {
            int32_t word;
            std::memcpy(&word, p, sizeof word);
            wide = _mm_cvtepu8_epi32(_mm_cvtsi32_si128(word));
        } else {
            wide = _mm_cvtepu16_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
        }
        return reinterpret_cast<Float4>(_mm_cvtepi32_ps(wide));
#else
        typedef T Raw __attribute__((vector_size(4 * sizeof(T))));
        Raw raw;
        std::memcpy(&raw, p, sizeof raw);
        return __builtin_convertvector(raw, Float4);
#endif
    }
}

// StoreSample on four elements at once.
template <class T>
inline void Store4(T* p, Float4 v) {
    if constexpr (std::is_floating_point_v<T>) {
        std::memcpy(p, &v, sizeof v);
    } else {
        typedef T Raw __attribute__((vector_size(4 * sizeof(T))));
        const Float4 zero = {0.0f, 0.0f, 0.0f, 0.0f};
        const Float4 top = zero + kMaxElement<T>;
        Float4 r = v + 0.5f;
        r = r > zero ? r : zero; // also sends NaN to 0
        r = r < top ? r : top;
        const Raw raw = __builtin_convertvector(__builtin_convertvector(r, Int4), Raw);
        std::memcpy(p, &raw, sizeof raw);
    }
}

// Stores the first three lanes of v as StoreSample would.
template <class T>
inline void Store3(T* p, Float4 v) {
    if constexpr (std::is_floating_point_v<T>) {
        std::memcpy(p, &v, 3 * sizeof(T));
    } else {
        T four[4];
        Store4(four, v);
        std::memcpy(p, four, 3 * sizeof(T));
    }
}

// Bilinear sample of all channels of a cell whose upper-left pixel is at `a` and lower-left pixel
// at `b`: along x on both rows, then along y. Three and four channels are one vector per pixel;
// a three-channel pixel leaves garbage in the fourth lane of `out`.
template <class T, int C>
[[gnu::always_inline]] inline void SampleAt(const T* a, const T* b, float tx, float ty,
                                            float* out) {
    if constexpr (C == 4 || C == 3) {
        Float4 a0, a1, b0, b1;
        if constexpr (C == 4) {
            a0 = Load4(a), a1 = Load4(a + 4), b0 = Load4(b), b1 = Load4(b + 4);
        } else {
            // The right pixel is read from two elements before it, so that no load leaves the
            // six elements of the pair.
            a0 = Load4(a), b0 = Load4(b);
            const Float4 ar = Load4(a + 2), br = Load4(b + 2);
            a1 = __builtin_shufflevector(ar, ar, 1, 2, 3, 3);
            b1 = __builtin_shufflevector(br, br, 1, 2, 3, 3);
        }
        const Float4 top = a0 + tx * (a1 - a0);
        const Float4 bottom = b0 + tx * (b1 - b0);
        const Float4 v = top + ty * (bottom - top);
        std::memcpy(out, &v, sizeof v);
    } else {
        for (int c = 0; c < C; ++c) {
            const float top = Lerp(static_cast<float>(a[c]), static_cast<float>(a[C + c]), tx);
            const float bottom = Lerp(static_cast<float>(b[c]), static_cast<float>(b[C + c]), tx);
            out[c] = Lerp(top, bottom, ty);
        }
    }
}

// Stores a sampled pixel of C channels as StoreSample would; `px` holds max(C, 4) floats.
template <class T, int C>
[[gnu::always_inline]] inline void StorePixel(T* target, const float* px) {
    if constexpr (C == 4 || C == 3) {
        Float4 v;
        std::memcpy(&v, px, sizeof v);
        if constexpr (C == 4)
            Store4(target, v);
        else
            Store3(target, v);
    } else {
        for (int c = 0; c < C; ++c)
            target[c] = StoreSample<T>(px[c]);
    }
}

// Bilinear sample of all channels at a cell pair. `out` has room for max(C, 4) floats.
template <class T, int C>
[[gnu::always_inline]] inline void SampleCell(const RowView<T>& image, Tap cx, Tap cy, float* out) {
    const T* a = image.Row(cy.index) + cx.index * C;
    SampleAt<T, C>(a, RowView<T>::Next(a, image.step), cx.fraction, cy.fraction, out);
}

template <class T, int C>
[[gnu::always_inline]] inline void SampleBilinear(const RowView<T>& image, float sx, float sy,
                                                  float* out) {
    SampleCell<T, C>(image, CellOf(sx, image.lastColumn), CellOf(sy, image.lastRow), out);
}

// The vector of a two-channel float flow at a cell pair, interpolated along x first. The two
// vectors of a row of the cell stand side by side, so each row is one load.
[[gnu::always_inline]] inline void ReadFlow(const RowView<float>& flow, Tap cx, Tap cy, float& u,
                                            float& v) {
    const float* a = flow.Row(cy.index) + cx.index * 2;
    const float* b = RowView<float>::Next(a, flow.step);
    const Float4 upper = Load4(a), lower = Load4(b);
    // (u, v) of the left pixels of both rows, and of the right pixels.
    const Float4 left = __builtin_shufflevector(upper, lower, 0, 1, 4, 5);
    const Float4 right = __builtin_shufflevector(upper, lower, 2, 3, 6, 7);
    const Float4 across = left + cx.fraction * (right - left);
    u = across[0] + cy.fraction * (across[2] - across[0]);
    v = across[1] + cy.fraction * (across[3] - across[1]);
}

// The body of ClipToImage, inlined into the warp's pixel loop.
[[gnu::always_inline]] inline void ClipToEdges(float& sx, float& sy, float x, float y,
                                               float lastColumn, float lastRow) {
    // Each cut lands exactly on an edge, so a handful of rounds always settles; the bound only
    // guards against values that are not numbers.
    for (int round = 0; round < 8; ++round) {
        while (sx < 0.0f) {
            const float t = x / (x - sx);
            sy = y - t * (y - sy);
            sx = 0.0f;
        }
        while (sx > lastColumn) {
            const float t = (x - lastColumn) / (x - sx);
            sy = y - t * (y - sy);
            sx = lastColumn;
        }
        if (sy < 0.0f) {
            const float t = y / (y - sy);
            sx = x - t * (x - sx);
            sy = 0.0f;
            continue;
        }
        if (sy > lastRow) {
            const float t = (y - lastRow) / (y - sy);
            sx = x - t * (x - sx);
            sy = lastRow;
            continue;
        }
        return;
    }
}

QUELMOR_KERNELS_END
} // namespace warp_detail
