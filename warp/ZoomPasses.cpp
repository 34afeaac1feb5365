// The passes of the zoom, over contribution tables made by the driver. Each output element is the
// sum of its taps in table order, limited to 0 .. 255 and stored in the image's element type; the
// order of the sums is the same in every copy of this unit and for every band count.
#include "warp/ZoomPasses.h"
#include "image/KernelSpace.h"

#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "warp/PixelAccess.h"
#include "warp/Sampling.h"

#include <algorithm>
#include <immintrin.h>
#include <type_traits>

using warp_detail::Float4;
using warp_detail::RowView;

QUELMOR_KERNELS_BEGIN

namespace {

// The limit of every sum, whatever the element type.
constexpr float kZoomCeiling = 255.0f;

// Limits v to 0 .. 255 (NaN gives 0) and stores it; integer types add 0.5 and truncate.
template <class T>
inline T StoreLimited(float v) {
    v = std::min(std::max(v, 0.0f), kZoomCeiling);
    if constexpr (std::is_floating_point_v<T>)
        return v;
    else
        return static_cast<T>(static_cast<int32_t>(v + 0.5f));
}

template <class T>
void LoadLine(const T* __restrict row, float* __restrict line, int elements) {
    for (int j = 0; j < elements; ++j)
        line[j] = static_cast<float>(row[j]);
}

inline Float4 LoadPixel(const float* p) {
    Float4 v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

// StoreLimited on the four elements of a pixel.
template <class T>
[[gnu::always_inline]] inline void StorePixel4(T* p, Float4 v) {
    const Float4 zero = {};
    const Float4 top = zero + kZoomCeiling;
    v = v > zero ? v : zero;
    v = v < top ? v : top;
    if constexpr (std::is_floating_point_v<T>) {
        __builtin_memcpy(p, &v, sizeof v);
    } else {
        const __m128i words = _mm_cvttps_epi32(reinterpret_cast<__m128>(v + 0.5f));
        const __m128i packed = _mm_packs_epi32(words, words);
        if constexpr (sizeof(T) == 1) {
            const int32_t bytes = _mm_cvtsi128_si32(_mm_packus_epi16(packed, packed));
            __builtin_memcpy(p, &bytes, sizeof bytes);
        } else {
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), packed);
        }
    }
}

// One output row of the pass along rows, from a row of floats.
template <class T, int C>
void SumAlongRow(const float* __restrict in, T* __restrict out, const DQZoomTable& table) {
    const int32_t stride = table.stride;
    for (int32_t o = 0; o < table.outputs; ++o) {
        const int32_t count = table.count[o];
        const int32_t* __restrict offset = table.offset + static_cast<size_t>(o) * stride;
        const float* __restrict weight = table.weight + static_cast<size_t>(o) * stride;
        T* target = out + static_cast<size_t>(o) * C;
        if constexpr (C == 4) {
            // Two outputs with the same number of taps are summed side by side: two
            // independent chains of additions, each in tap order.
            if (o + 1 < table.outputs && table.count[o + 1] == count) {
                const int32_t* __restrict offset2 = offset + stride;
                const float* __restrict weight2 = weight + stride;
                Float4 sum = {}, sum2 = {};
                for (int32_t t = 0; t < count; ++t) {
                    sum += weight[t] * LoadPixel(in + offset[t]);
                    sum2 += weight2[t] * LoadPixel(in + offset2[t]);
                }
                StorePixel4(target, sum);
                StorePixel4(target + 4, sum2);
                ++o;
                continue;
            }
            Float4 sum = {};
            for (int32_t t = 0; t < count; ++t)
                sum += weight[t] * LoadPixel(in + offset[t]);
            StorePixel4(target, sum);
        } else {
            float sum[C] = {};
            for (int32_t t = 0; t < count; ++t) {
                const float w = weight[t];
                const float* pixel = in + offset[t];
                for (int c = 0; c < C; ++c)
                    sum[c] += w * pixel[c];
            }
            for (int c = 0; c < C; ++c)
                target[c] = StoreLimited<T>(sum[c]);
        }
    }
}

template <class T, int C>
void AlongRows(DQImage* dest, const DQImage* source, const DQZoomTable& table,
               const DQZoomLines& lines, int bands) {
    const RowView<T> in(*source);
    const RowView<T> out(*dest);
    const int elements = source->width * C;
    ZUMPForRows(bands, source->height, [&](int worker, int first, int last) {
        float* line = lines.data + lines.floats * static_cast<size_t>(worker);
        for (int y = first; y <= last; ++y) {
            const float* row;
            if constexpr (std::is_floating_point_v<T>) {
                row = in.Row(y);
            } else {
                LoadLine(in.Row(y), line, elements);
                row = line;
            }
            SumAlongRow<T, C>(row, out.Row(y), table);
        }
    });
}

typedef float Float8 __attribute__((vector_size(32)));

// Eight elements from memory as floats. The integer widenings are spelled out: the generic
// vector conversion takes the bytes apart one by one.
template <class T>
[[gnu::always_inline]] inline Float8 Load8(const T* p) {
    if constexpr (std::is_floating_point_v<T>) {
        Float8 v;
        __builtin_memcpy(&v, p, sizeof v);
        return v;
    } else {
#ifdef __AVX2__
        __m256i wide;
        if constexpr (sizeof(T) == 1)
            wide = _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)));
        else
            wide = _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)));
        return reinterpret_cast<Float8>(_mm256_cvtepi32_ps(wide));
#else
        const __m128i zero = _mm_setzero_si128();
        __m128i words;
        if constexpr (sizeof(T) == 1)
            words = _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p)), zero);
        else
            words = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
        const Float4 low =
            reinterpret_cast<Float4>(_mm_cvtepi32_ps(_mm_unpacklo_epi16(words, zero)));
        const Float4 high =
            reinterpret_cast<Float4>(_mm_cvtepi32_ps(_mm_unpackhi_epi16(words, zero)));
        return __builtin_shufflevector(low, high, 0, 1, 2, 3, 4, 5, 6, 7);
#endif
    }
}

// StoreLimited on eight elements.
template <class T>
[[gnu::always_inline]] inline void Store8(T* p, Float8 v) {
    const Float8 zero = {};
    const Float8 top = zero + kZoomCeiling;
    v = v > zero ? v : zero;
    v = v < top ? v : top;
    if constexpr (std::is_floating_point_v<T>) {
        __builtin_memcpy(p, &v, sizeof v);
    } else {
        // Within 0 .. 255.5, so the truncation is the rounding store and the packs saturate
        // nothing.
        const Float8 r = v + 0.5f;
        const Float4 low = __builtin_shufflevector(r, r, 0, 1, 2, 3);
        const Float4 high = __builtin_shufflevector(r, r, 4, 5, 6, 7);
        const __m128i words = _mm_packs_epi32(_mm_cvttps_epi32(reinterpret_cast<__m128>(low)),
                                              _mm_cvttps_epi32(reinterpret_cast<__m128>(high)));
        if constexpr (sizeof(T) == 1)
            _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packus_epi16(words, words));
        else
            _mm_storeu_si128(reinterpret_cast<__m128i*>(p), words);
    }
}

// One output row of the pass down columns: the weighted rows summed element by element, in tap
// order. Blocks of 32 elements keep their sums in registers while the taps stream past.
template <class T>
void SumDownColumns(const RowView<T>& in, const int32_t* __restrict offset,
                    const float* __restrict weight, int32_t count, T* __restrict out,
                    int elements) {
    constexpr int kBlock = 32;
    int j0 = 0;
    for (; j0 + kBlock <= elements; j0 += kBlock) {
        Float8 s0 = {}, s1 = {}, s2 = {}, s3 = {};
        for (int32_t t = 0; t < count; ++t) {
            const T* row = in.Row(offset[t]) + j0;
            const float w = weight[t];
            s0 += w * Load8(row);
            s1 += w * Load8(row + 8);
            s2 += w * Load8(row + 16);
            s3 += w * Load8(row + 24);
        }
        Store8(out + j0, s0);
        Store8(out + j0 + 8, s1);
        Store8(out + j0 + 16, s2);
        Store8(out + j0 + 24, s3);
    }
    for (int j = j0; j < elements; ++j) {
        float sum = 0.0f;
        for (int32_t t = 0; t < count; ++t)
            sum += weight[t] * static_cast<float>(in.Row(offset[t])[j]);
        out[j] = StoreLimited<T>(sum);
    }
}

template <class T>
void DownColumns(DQImage* dest, const DQImage* source, const DQZoomTable& table, int bands) {
    const RowView<T> in(*source);
    const RowView<T> out(*dest);
    const int elements = source->width * source->channels;
    ZUMPForRows(bands, dest->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const size_t at = static_cast<size_t>(y) * table.stride;
            SumDownColumns(in, table.offset + at, table.weight + at, table.count[y], out.Row(y),
                           elements);
        }
    });
}

} // namespace

void DQZoomAlongRows(DQImage* dest, const DQImage* source, const DQZoomTable& table,
                     const DQZoomLines& lines, int bands) {
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class T, int C>() {
        AlongRows<T, C>(dest, source, table, lines, bands);
    });
}

void DQZoomDownColumns(DQImage* dest, const DQImage* source, const DQZoomTable& table,
                       const DQZoomLines& lines, int bands) {
    DQDispatchType(source->dataType,
                   [&]<class T>() { DownColumns<T>(dest, source, table, bands); });
}

QUELMOR_KERNELS_END
