#pragma once
// Bilinear samples of a whole row of positions. The positions are first turned into cells all at
// once, in a loop the compiler vectorises; then each pixel reads its 2x2 neighbourhood with one
// vector per pixel, and 8-bit four-channel pixels go two at a time.
#include "image/KernelSpace.h"
#include "warp/Sampling.h"

#include <cstdint>
#include <cstring>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

// Where each pixel of a row reads: the byte offset of the upper-left pixel of its cell from row 0
// of the image, and the fractions across the cell.
struct RowTaps {
    int32_t* offset;
    float* tx;
    float* ty;
};

typedef float Float8 __attribute__((vector_size(32)));
typedef int32_t Int8 __attribute__((vector_size(32)));

// CellOf on eight positions at once. The compiler does not turn the selects of CellOf into
// vector blends by itself, so they are written on vectors.
[[gnu::always_inline]] inline void CellsOf8(Float8 s, int32_t lastIndex, Int8& index,
                                            Float8& fraction) {
    Int8 i = __builtin_convertvector(s, Int8);
    Float8 f = s - __builtin_convertvector(i, Float8);
    const Int8 high = i >= lastIndex;
    f = high ? 1.0f : f;
    i = high ? lastIndex - 1 : i;
    const Int8 low = i < 0;
    f = low ? 0.0f : f;
    i = low ? 0 : i;
    index = i;
    fraction = f;
}

// One bit per lane of a comparison result, lane 0 in bit 0.
[[gnu::always_inline]] inline unsigned LaneMask(Int8 mask) {
#ifdef __AVX__
    return static_cast<unsigned>(_mm256_movemask_ps(reinterpret_cast<__m256>(mask)));
#else
    unsigned bits = 0;
    for (int i = 0; i < 8; ++i)
        bits |= mask[i] ? 1u << i : 0u;
    return bits;
#endif
}

// CellOf for the positions (sx, sy) of `width` pixels.
inline void CellsOfRow(const float* __restrict sx, const float* __restrict sy, int width,
                       int32_t lastColumn, int32_t lastRow, int32_t pixelBytes, int32_t rowStep,
                       RowTaps taps) {
    int x = 0;
    for (; x + 8 <= width; x += 8) {
        Float8 px, py, fx, fy;
        Int8 ix, iy;
        std::memcpy(&px, sx + x, sizeof px);
        std::memcpy(&py, sy + x, sizeof py);
        CellsOf8(px, lastColumn, ix, fx);
        CellsOf8(py, lastRow, iy, fy);
        const Int8 offset = iy * rowStep + ix * pixelBytes;
        std::memcpy(taps.offset + x, &offset, sizeof offset);
        std::memcpy(taps.tx + x, &fx, sizeof fx);
        std::memcpy(taps.ty + x, &fy, sizeof fy);
    }
    for (; x < width; ++x) {
        const Tap cx = CellOf(sx[x], lastColumn);
        const Tap cy = CellOf(sy[x], lastRow);
        taps.offset[x] = cy.index * rowStep + cx.index * pixelBytes;
        taps.tx[x] = cx.fraction;
        taps.ty[x] = cy.fraction;
    }
}

typedef uint8_t Byte8 __attribute__((vector_size(8)));
typedef uint8_t Byte16 __attribute__((vector_size(16)));

// The left and right pixels of the cells of two 8-bit four-channel pixels on one image row:
// lanes 0-3 belong to the first pixel, lanes 4-7 to the second.
[[gnu::always_inline]] inline void LoadPairs(const uint8_t* first, const uint8_t* second,
                                             Float8& left, Float8& right) {
    uint64_t p0, p1;
    std::memcpy(&p0, first, sizeof p0);
    std::memcpy(&p1, second, sizeof p1);
#ifdef __AVX2__
    // The generic conversion takes the bytes apart one by one; a shuffle and two widening
    // conversions do it in a few instructions.
    const __m128i both = _mm_set_epi64x(static_cast<int64_t>(p1), static_cast<int64_t>(p0));
    const __m128i split =
        _mm_shuffle_epi8(both, _mm_setr_epi8(0, 1, 2, 3, 8, 9, 10, 11, 4, 5, 6, 7, 12, 13, 14, 15));
    left = reinterpret_cast<Float8>(_mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(split)));
    right = reinterpret_cast<Float8>(
        _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(_mm_unpackhi_epi64(split, split))));
#else
    typedef uint64_t Quad2 __attribute__((vector_size(16)));
    const Byte16 both = reinterpret_cast<Byte16>(Quad2{p0, p1});
    const Byte8 l = __builtin_shufflevector(both, both, 0, 1, 2, 3, 8, 9, 10, 11);
    const Byte8 r = __builtin_shufflevector(both, both, 4, 5, 6, 7, 12, 13, 14, 15);
    left = __builtin_convertvector(__builtin_convertvector(l, Int8), Float8);
    right = __builtin_convertvector(__builtin_convertvector(r, Int8), Float8);
#endif
}

// Bilinear samples of two 8-bit four-channel cells, whose upper-left pixels are at a0 and a1, in
// lanes 0-3 and 4-7, with the fractions fx, fy of each lane: the same operations per lane as
// SampleAt.
[[gnu::always_inline]] inline Float8 SampleTwo(const uint8_t* a0, const uint8_t* a1, int32_t step,
                                               Float8 fx, Float8 fy) {
    Float8 al, ar, bl, br;
    LoadPairs(a0, a1, al, ar);
    LoadPairs(a0 + step, a1 + step, bl, br);
    const Float8 top = al + fx * (ar - al);
    const Float8 bottom = bl + fx * (br - bl);
    return top + fy * (bottom - top);
}

// Two floats from memory, each spread over four lanes.
[[gnu::always_inline]] inline Float8 SpreadTwo(const float* p) {
#ifdef __AVX2__
    // One 8-byte load and one permutation; the generic form goes through the stack.
    const __m256 pair = _mm256_castps128_ps256(
        _mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p))));
    return reinterpret_cast<Float8>(
        _mm256_permutevar8x32_ps(pair, _mm256_setr_epi32(0, 0, 0, 0, 1, 1, 1, 1)));
#else
    return Float8{p[0], p[0], p[0], p[0], p[1], p[1], p[1], p[1]};
#endif
}

// Two floats, each spread over four lanes.
[[gnu::always_inline]] inline Float8 SpreadTwo(float a, float b) {
    return Float8{a, a, a, a, b, b, b, b};
}

// Store4 of two pixels.
[[gnu::always_inline]] inline void StoreTwo(uint8_t* target, Float8 v) {
    const Float8 zero = {};
    const Float8 white = zero + 255.0f;
    Float8 r = v + 0.5f;
#ifdef __AVX2__
    // max(r, 0) and min(r, 255) return their second operand unless the first is greater (less):
    // the same lanes as the selections below, NaN going to 0. Without AVX-512's narrowing move,
    // the generic int-to-byte conversion comes out as eight extractions and shifts; the lanes
    // already lie in 0..255, so two unsigned saturating packs give the same bytes.
    r = reinterpret_cast<Float8>(_mm256_max_ps(reinterpret_cast<__m256>(r), zero));
    r = reinterpret_cast<Float8>(_mm256_min_ps(reinterpret_cast<__m256>(r), white));
    const __m256i ints = _mm256_cvttps_epi32(reinterpret_cast<__m256>(r));
    const __m128i words =
        _mm_packus_epi32(_mm256_castsi256_si128(ints), _mm256_extracti128_si256(ints, 1));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(target), _mm_packus_epi16(words, words));
#else
    r = r > zero ? r : zero; // also sends NaN to 0
    r = r < white ? r : white;
    const Byte8 bytes = __builtin_convertvector(__builtin_convertvector(r, Int8), Byte8);
    std::memcpy(target, &bytes, sizeof bytes);
#endif
}

// Samples `width` pixels of `image` at the cells of `taps` and stores them into `target`. The
// cells of pixels further along the row are fetched into the cache ahead of their turn: their
// addresses are known, and the reads of a warp jump too much for the processor to foresee.
template <class T, int C>
void SampleRow(const RowView<T>& image, const RowTaps& taps, int width, T* __restrict target) {
    constexpr int kAhead = 64;
    const uint8_t* origin = image.origin;
    const int32_t step = image.step;
    const int32_t* offset = taps.offset;
    const float* tx = taps.tx;
    const float* ty = taps.ty;
    auto prefetch = [&](int x) {
        if (x + kAhead < width) {
            __builtin_prefetch(origin + offset[x + kAhead]);
            __builtin_prefetch(origin + offset[x + kAhead] + step);
        }
    };
    int x = 0;
    if constexpr (std::is_same_v<T, uint8_t> && C == 4) {
        for (; x + 2 <= width; x += 2) {
            prefetch(x);
            StoreTwo(target + x * C, SampleTwo(origin + offset[x], origin + offset[x + 1], step,
                                               SpreadTwo(tx + x), SpreadTwo(ty + x)));
        }
    }
    for (; x < width; ++x) {
        prefetch(x);
        const T* a = reinterpret_cast<const T*>(origin + offset[x]);
        const T* b = RowView<T>::Next(a, step);
        float px[4];
        SampleAt<T, C>(a, b, tx[x], ty[x], px);
        StorePixel<T, C>(target + x * C, px);
    }
}

QUELMOR_KERNELS_END
} // namespace warp_detail
