// SmartBlend and SmartBlendAlphaFirst: one driver over row bands, a row function per rule, written
// once over the element type of the images and of the masks.

#include "engine/SmartBlend.h"

#include "image/Parallel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <type_traits>

namespace {

// The value at which an element counts as full: of a colour or alpha, or of a coverage mask.
template <class T>
constexpr float kWhite = std::is_same_v<T, uint8_t>    ? 255.0f
                         : std::is_same_v<T, uint16_t> ? 65535.0f
                                                       : 1.0f;

// Integer stores add 0.5, are limited to 0..white and truncated; float stores are only limited.
template <class T>
inline T StoreRounded(float v) {
    if constexpr (std::is_floating_point_v<T>)
        return std::clamp(v, 0.0f, kWhite<T>);
    else
        return T(std::clamp(v + 0.5f, 0.0f, kWhite<T>));
}

template <class T>
inline T StoreTruncated(float v) {
    return T(std::clamp(v, 0.0f, kWhite<T>));
}

// d = a + (b - a) t, stored rounded, over `count` elements: a loop the compiler vectorises.
template <class T>
void DissolveElements(T* d, const T* a, const T* b, int count, float t) {
    for (int i = 0; i < count; ++i)
        d[i] = StoreRounded<T>(float(a[i]) + (float(b[i]) - float(a[i])) * t);
}

// The picture with `front` over `back`, both premultiplied with alpha in channel 3: the back
// shows through where the front is partly transparent, and the alpha is their composite.
template <class T>
inline void Over(const T* front, const T* back, float* out) {
    const float frontAlpha = float(front[3]);
    const float backAlpha = float(back[3]);
    if (frontAlpha <= 0.0f) {
        for (int c = 0; c < 4; ++c)
            out[c] = float(back[c]);
    } else if (frontAlpha >= kWhite<T>) {
        for (int c = 0; c < 4; ++c)
            out[c] = float(front[c]);
    } else {
        const float f = frontAlpha / kWhite<T>;
        for (int c = 0; c < 3; ++c)
            out[c] = float(back[c]) * (1.0f - f) + float(front[c]);
        out[3] = (kWhite<T> - backAlpha) * f + backAlpha;
    }
}

// One premultiplied four-channel pixel, alpha last, whose own alpha is the coverage. The mix of
// "a in front" and "b in front" is lifted back to the coverage of the better of the two, so that
// a pixel that one frame covers well is not thinned by the other frame's gap.
template <class T>
inline void SmartBlendPremultipliedPixel(T* d, const T* a, const T* b, float t) {
    float inFrontA[4], inFrontB[4], m[4];
    Over<T>(a, b, inFrontA);
    Over<T>(b, a, inFrontB);
    for (int c = 0; c < 4; ++c)
        m[c] = inFrontA[c] + (inFrontB[c] - inFrontA[c]) * t;
    const float top = std::max(float(a[3]), float(b[3]));
    if (m[3] != top) {
        if (m[3] == 0.0f) {
            const float* pick = inFrontA[3] > inFrontB[3] ? inFrontA : inFrontB;
            for (int c = 0; c < 4; ++c)
                d[c] = StoreTruncated<T>(pick[c]);
            return;
        }
        const float lift = top / m[3];
        for (int c = 0; c < 3; ++c)
            m[c] *= lift;
        m[3] = top;
    }
    for (int c = 0; c < 4; ++c)
        d[c] = StoreRounded<T>(m[c]);
}

// The number of pixels from the start, at most `count`, where both a and b are opaque.
template <class T>
inline int OpaqueRun(const T* a, const T* b, int count) {
    int run = 0;
    while (run < count && float(a[4 * run + 3]) == kWhite<T> && float(b[4 * run + 3]) == kWhite<T>)
        ++run;
    return run;
}

// Where both pixels are opaque, X = a, Y = b and the pixel rule is a dissolve at full alpha; such
// pixels, the common case, go a run at a time.
template <class T>
void SmartBlendPremultipliedRow(T* d, const T* a, const T* b, int width, float t) {
    for (int x = 0; x < width;) {
        const int run = OpaqueRun(a + 4 * x, b + 4 * x, width - x);
        if (run > 0) {
            DissolveElements<T>(d + 4 * x, a + 4 * x, b + 4 * x, 4 * run, t);
            x += run;
        } else {
            SmartBlendPremultipliedPixel<T>(d + 4 * x, a + 4 * x, b + 4 * x, t);
            ++x;
        }
    }
}

// Four-channel pixels with alpha first. A frame counts only where its alpha is full: over a full
// frame the other is composited, two partial frames give nothing.
template <class T>
void SmartBlendAlphaFirstRow(T* d, const T* a, const T* b, int width, float t) {
    constexpr float full = kWhite<T>;
    for (int x = 0; x < width; ++x, d += 4, a += 4, b += 4) {
        const float alphaA = float(a[0]);
        const float alphaB = float(b[0]);
        float inFrontA[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        float inFrontB[4] = {0.0f, 0.0f, 0.0f, 0.0f};
        if (alphaB == full) {
            for (int c = 1; c < 4; ++c)
                inFrontA[c] = float(b[c]) * (1.0f - alphaA / full) + float(a[c]);
            inFrontA[0] = alphaB;
        } else if (alphaA == full) {
            for (int c = 0; c < 4; ++c)
                inFrontA[c] = float(a[c]);
        }
        if (alphaA == full) {
            for (int c = 1; c < 4; ++c)
                inFrontB[c] = float(a[c]) * (1.0f - alphaB / full) + float(b[c]);
            inFrontB[0] = alphaA;
        } else if (alphaB == full) {
            for (int c = 0; c < 4; ++c)
                inFrontB[c] = float(b[c]);
        }
        // Both pictures are full wherever either frame is; a guard on the cases above.
        if (std::max(alphaA, alphaB) == full && (inFrontA[0] != full || inFrontB[0] != full))
            std::fprintf(stderr, "What?\n");
        for (int c = 0; c < 4; ++c)
            d[c] = StoreRounded<T>(inFrontA[c] + (inFrontB[c] - inFrontA[c]) * t);
    }
}

// Any channel count, coverage from the masks: dissolve where both cover fully, a mix that leans
// to the better-covered frame where both cover partly, and the one frame where only one covers.
template <class T, class M>
void SmartBlendMaskedRow(T* d, const T* a, const T* b, const M* maskA, const M* maskB, int width,
                         int channels, float t) {
    for (int x = 0; x < width; ++x, d += channels, a += channels, b += channels) {
        const float ma = float(maskA[x]);
        const float mb = float(maskB[x]);
        if (ma == 0.0f) {
            std::copy(b, b + channels, d);
        } else if (mb == 0.0f) {
            std::copy(a, a + channels, d);
        } else if (ma == kWhite<M> && mb == kWhite<M>) {
            for (int c = 0; c < channels; ++c)
                d[c] = StoreRounded<T>(float(a[c]) + (float(b[c]) - float(a[c])) * t);
        } else {
            const float ra = 1.0f - ma / kWhite<M>;
            const float rb = 1.0f - mb / kWhite<M>;
            for (int c = 0; c < channels; ++c) {
                const float va = float(a[c]);
                const float vb = float(b[c]);
                d[c] = StoreRounded<T>((va * rb + vb) * t + (vb * ra + va) * (1.0f - t));
            }
        }
    }
}

bool ImagesAgree(const DQImage* dest, const DQImage* a, const DQImage* b) {
    if (!dest || !a || !b || !dest->data || !a->data || !b->data) return false;
    for (const DQImage* other : {a, b})
        if (other->width != dest->width || other->height != dest->height ||
            other->channels != dest->channels || other->dataType != dest->dataType)
            return false;
    return DQDispatchableType(dest->dataType) && dest->channels >= 1;
}

bool MasksFit(const DQImage* maskA, const DQImage* maskB, const DQImage* image) {
    for (const DQImage* mask : {maskA, maskB})
        if (!mask || !mask->data || mask->width != image->width || mask->height != image->height ||
            mask->channels != 1 || !DQDispatchableType(mask->dataType))
            return false;
    return maskA->dataType == maskB->dataType;
}

enum class AlphaOrder { Last, First };

void SmartBlendFamily(DQImage* dest, const DQImage* a, const DQImage* b, const DQImage* maskA,
                      const DQImage* maskB, float t, AlphaOrder order) {
    const bool byAlpha = ImagesAgree(dest, a, b) && dest->channels == 4;
    if (!ImagesAgree(dest, a, b) || !std::isfinite(t) ||
        (!byAlpha && !MasksFit(maskA, maskB, dest))) {
        DQClear(dest);
        return;
    }
    const int width = dest->width;
    // Every pixel depends only on the pixels at its own place, so the rows go in bands.
    DQDispatchType(dest->dataType, [&]<class T>() {
        if (byAlpha) {
            ZUMPForRows(dest->height, [&](int, int first, int last) {
                for (int y = first; y <= last; ++y) {
                    if (order == AlphaOrder::First)
                        SmartBlendAlphaFirstRow<T>(dest->Row<T>(y), a->Row<T>(y), b->Row<T>(y),
                                                   width, t);
                    else
                        SmartBlendPremultipliedRow<T>(dest->Row<T>(y), a->Row<T>(y), b->Row<T>(y),
                                                      width, t);
                }
            });
            return;
        }
        DQDispatchType(maskA->dataType, [&]<class M>() {
            ZUMPForRows(dest->height, [&](int, int first, int last) {
                for (int y = first; y <= last; ++y)
                    SmartBlendMaskedRow<T, M>(dest->Row<T>(y), a->Row<T>(y), b->Row<T>(y),
                                              maskA->Row<M>(y), maskB->Row<M>(y), width,
                                              dest->channels, t);
            });
        });
    });
}

} // namespace

void SmartBlend(DQImage* dest, const DQImage* a, const DQImage* b, const DQImage* maskA,
                const DQImage* maskB, float t) {
    SmartBlendFamily(dest, a, b, maskA, maskB, t, AlphaOrder::Last);
}

void SmartBlendAlphaFirst(DQImage* dest, const DQImage* a, const DQImage* b, const DQImage* maskA,
                          const DQImage* maskB, float t) {
    SmartBlendFamily(dest, a, b, maskA, maskB, t, AlphaOrder::First);
}
