// DQBlend, DQBlendParallel and Dissolve.

#include "engine/Mix.h"
#include "image/KernelSpace.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

QUELMOR_KERNELS_BEGIN

namespace {

bool SameLayout(const DQImage* a, const DQImage* b) {
    return a && b && a->width == b->width && a->height == b->height && a->channels == b->channels &&
           a->elementBytes == b->elementBytes && a->bottomUp == b->bottomUp &&
           a->dataType == b->dataType;
}

bool FloatWhiteIsOne(const DQImage* image) {
    if (image->dataType != DQ_FLOAT || image->whitePoint == 1.0f) return true;
    std::fprintf(stderr, "DQBlend: float image doesn't have 1.0 for white point\n");
    return false;
}

// Rows selected by `lines`: all, the even ones or the odd ones.
struct RowSet {
    int first;
    int stride;
    int Count(int height) const {
        return height > first ? (height - first + stride - 1) / stride : 0;
    }
};

RowSet RowsOf(int lines) {
    if (lines == 2) return {0, 2};
    if (lines == 3) return {1, 2};
    return {0, 1};
}

// Four channels, premultiplied colour: alpha mixes, colour mixes and is divided by alpha above
// white, everything is limited to 0..W and no colour may exceed the stored alpha.
template <class T>
void BlendPremultipliedRow(T* d, const T* o, int width, float k, float white) {
    for (int x = 0; x < width; ++x, d += 4, o += 4) {
        const float alpha = float(o[3]) + (float(d[3]) - float(o[3])) * k;
        const float a = alpha / white;
        if (!(a > 0.0f)) {
            d[0] = d[1] = d[2] = d[3] = T(0);
            continue;
        }
        float c[3];
        for (int i = 0; i < 3; ++i) {
            c[i] = float(o[i]) + (float(d[i]) - float(o[i])) * k;
            if (a > 1.0f) c[i] /= a;
        }
        T stored[4];
        if constexpr (std::is_same_v<T, float>) {
            for (int i = 0; i < 3; ++i)
                stored[i] = std::clamp(c[i], 0.0f, white);
            stored[3] = std::clamp(alpha, 0.0f, white);
        } else {
            for (int i = 0; i < 3; ++i)
                stored[i] = T(std::clamp(c[i], 0.0f, white) + 0.5f);
            stored[3] = T(std::clamp(alpha, 0.0f, white) + 0.5f);
        }
        for (int i = 0; i < 3; ++i)
            d[i] = std::min(stored[i], stored[3]);
        d[3] = stored[3];
    }
}

// Three channels computed directly: other (1 - k) + dest k, limited to 0..W when k is outside
// 0..1.
template <class T>
void BlendDirectRow(T* d, const T* o, int count, float k, float white) {
    const bool limit = k < 0.0f || k > 1.0f;
    for (int i = 0; i < count; ++i) {
        float v = float(o[i]) * (1.0f - k) + float(d[i]) * k;
        if constexpr (std::is_same_v<T, float>) {
            d[i] = limit ? std::clamp(v, 0.0f, white) : v;
        } else {
            v += 0.5f;
            if (limit) v = std::clamp(v, 0.0f, white);
            d[i] = T(v);
        }
    }
}

// The 8-bit three-channel table: entry [dest][other].
uint8_t gBlendTable[256][256];

void FillBlendTable(float k) {
    const bool limit = k < 0.0f || k > 1.0f;
    for (int d = 0; d < 256; ++d)
        for (int o = 0; o < 256; ++o) {
            float v = float(o) * (1.0f - k) + float(d) * k + 0.5f;
            if (limit) v = std::clamp(v, 0.0f, 255.0f);
            gBlendTable[d][o] = uint8_t(v);
        }
}

template <class T>
void BlendRow(T* d, const T* o, int width, int channels, float k, float white, bool useTable) {
    if (channels == 4) {
        BlendPremultipliedRow<T>(d, o, width, k, white);
    } else if constexpr (std::is_same_v<T, uint8_t>) {
        if (useTable) {
            for (int i = 0; i < width * 3; ++i)
                d[i] = gBlendTable[d[i]][o[i]];
            return;
        }
        BlendDirectRow<T>(d, o, width * 3, k, white);
    } else {
        BlendDirectRow<T>(d, o, width * 3, k, white);
    }
}

void CopyRows(DQImage* dest, const DQImage* other, RowSet rows, int from, int to) {
    const size_t bytes = size_t(dest->width) * dest->pixelBytes;
    for (int i = from; i <= to; ++i) {
        const int y = rows.first + i * rows.stride;
        std::memcpy(dest->RowAddress(y), other->RowAddress(y), bytes);
    }
}

int BlendRows(DQImage* dest, const DQImage* other, RowSet rows, float k, int threads,
              bool useTable) {
    if (!SameLayout(dest, other) || (dest->channels != 3 && dest->channels != 4) ||
        !DQDispatchableType(dest->dataType))
        return 0;
    if (k == 1.0f) return 1;
    if (!FloatWhiteIsOne(dest)) return 0;
    const int count = rows.Count(dest->height);
    if (k == 0.0f) {
        ZUMPForRows(threads, count, [&](int, int a, int b) { CopyRows(dest, other, rows, a, b); });
        return 1;
    }
    const float white = dest->whitePoint;
    DQDispatchType(dest->dataType, [&]<class T>() {
        ZUMPForRows(threads, count, [&](int, int a, int b) {
            for (int i = a; i <= b; ++i) {
                const int y = rows.first + i * rows.stride;
                BlendRow<T>(dest->Row<T>(y), other->Row<T>(y), dest->width, dest->channels, k,
                            white, useTable);
            }
        });
    });
    return 1;
}

// A weight of NaN or infinity has no pixel to give: every conversion of it to an element would
// be undefined.
bool WeightIsFinite(float k, const char* caller) {
    if (std::isfinite(k)) return true;
    std::fprintf(stderr, "%s: blend weight is not a finite number\n", caller);
    return false;
}

} // namespace

int DQBlend(DQImage* dest, const DQImage* other, int lines, float k) {
    if (!WeightIsFinite(k, "DQBlend")) return 0;
    const bool useTable = dest && dest->dataType == DQ_UCHAR && dest->channels == 3;
    if (useTable && SameLayout(dest, other) && k != 1.0f && k != 0.0f) FillBlendTable(k);
    return BlendRows(dest, other, RowsOf(lines), k, 1, useTable);
}

int DQBlendParallel(DQImage* dest, const DQImage* other, float k) {
    if (!dest || !WeightIsFinite(k, "DQBlendParallel")) return 0;
    return BlendRows(dest, other, RowsOf(1), k, ZUMPNumThreadsForRows(dest->height), false);
}

namespace {

// One row of Dissolve. Its own function with everything passed by value: within a lambda that
// captures by reference, every 8-bit store might change the captured weight, count or pointers,
// so the compiler reloads them per element and leaves the loop scalar.
template <class T>
void DissolveRow(T* __restrict out, const T* __restrict pa, const T* __restrict pb, int n, float t,
                 float white) {
    for (int i = 0; i < n; ++i) {
        const float v = (float(pb[i]) - float(pa[i])) * t + float(pa[i]);
        if constexpr (std::is_same_v<T, float>)
            out[i] = v;
        else
            out[i] = T(std::clamp(v + 0.5f, 0.0f, white));
    }
}

template <class T>
void DissolveRows(DQImage* dest, const DQImage* a, const DQImage* b, float t) {
    const int n = dest->width * dest->channels;
    const float white = dest->whitePoint + 0.5f;
    ZUMPForRows(dest->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            DissolveRow<T>(dest->Row<T>(y), a->Row<T>(y), b->Row<T>(y), n, t, white);
    });
}

void CopyImage(DQImage* dest, const DQImage* source) {
    dest->CopyFrom(0, 0, source, 0, 0, source->width, source->height);
}

} // namespace

void Dissolve(DQImage* dest, const DQImage* a, const DQImage* b, float t) {
    if (!std::isfinite(t)) DQThrow(kDQErrBadArgument);
    if (std::fabs(double(t)) < 0.005) return CopyImage(dest, a);
    if (std::fabs(double(t) - 1.0) < 0.005) return CopyImage(dest, b);
    if (a->channels == 4 && (t < 0.0f || t > 1.0f)) {
        CopyImage(dest, a);
        if (::QUELMOR_KERNEL_NS::DQBlend(dest, b, 1, 1.0f - t) == 0) DQThrow(kDQErrBadArgument);
        return;
    }
    DQDispatchType(dest->dataType, [&]<class T>() { DissolveRows<T>(dest, a, b, t); });
}

QUELMOR_KERNELS_END
