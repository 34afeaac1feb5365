#include "image/DQImage.h"
#include "image/Dispatch.h"
#include "image/ElementStore.h"
#include "image/Parallel.h"

#include <algorithm>
#include <bit>
#include <cstring>

namespace {
// Alpha operations run on four-channel images of the three image types; a float image must have
// its white at 1.
bool HasAlphaLayout(const DQImage& image) {
    if (!image.data || image.width < 1 || image.channels != 4) return false;
    if (image.dataType == DQ_FLOAT) return image.whitePoint == 1.0f;
    return image.dataType == DQ_UCHAR || image.dataType == DQ_USHORT;
}

// Alpha over white as the 16-bit form applies it. The 8-bit form's factor is 0.003921569.
constexpr float kInverseWhite16 = 1.5259022e-05f;

// c * (a * 0.003921569) + 0.5, truncated, equals the exactly rounded c * a / 255 for all 8-bit c
// and a, and (x + 1 + (x >> 8)) >> 8 is x / 255 for x below 65536. A pixel is one 32-bit word
// (R in the low byte, alpha in the high one); red and blue are computed side by side in its two
// 16-bit halves, which never carry into each other. The loop is plain word arithmetic, which the
// compiler turns into vector code.
inline uint32_t PremultiplyWord(uint32_t word) {
    const uint32_t a = word >> 24;
    uint32_t rb = (word & 0x00FF00FFu) * a + 0x007F007Fu;
    rb = ((rb + 0x00010001u + ((rb >> 8) & 0x00FF00FFu)) >> 8) & 0x00FF00FFu;
    uint32_t g = ((word >> 8) & 0xFFu) * a + 0x7Fu;
    g = (g + 1 + (g >> 8)) >> 8;
    return rb | (g << 8) | (word & 0xFF000000u);
}

template <class T>
void PremultiplyRow(T* __restrict p, int width) {
    if constexpr (std::is_same_v<T, uint8_t> && std::endian::native == std::endian::little) {
        for (int x = 0; x < width; ++x, p += 4) {
            uint32_t word;
            std::memcpy(&word, p, 4);
            word = PremultiplyWord(word);
            std::memcpy(p, &word, 4);
        }
        return;
    }
    for (int x = 0; x < width; ++x, p += 4) {
        if constexpr (std::is_same_v<T, uint8_t>) {
            const uint32_t a = p[3];
            for (int c = 0; c < 3; ++c) {
                const uint32_t v = p[c] * a + 127;
                p[c] = static_cast<uint8_t>((v + 1 + (v >> 8)) >> 8);
            }
        } else if constexpr (std::is_same_v<T, uint16_t>) {
            const float a = p[3] * kInverseWhite16;
            for (int c = 0; c < 3; ++c)
                p[c] = DQStoreHalfUp<T>(p[c] * a);
        } else {
            const float a = p[3];
            p[0] *= a;
            p[1] *= a;
            p[2] *= a;
        }
    }
}

template <class T>
void UnpremultiplyRow(T* __restrict p, int width) {
    for (int x = 0; x < width; ++x, p += 4) {
        if constexpr (std::is_floating_point_v<T>) {
            if (p[3] < 1e-07f) continue;
            const float inverse = 1.0f / p[3];
            for (int c = 0; c < 3; ++c)
                p[c] *= inverse;
        } else {
            if (p[3] == 0) continue;
            constexpr double white = std::is_same_v<T, uint8_t> ? 255.0 : 65535.0;
            const double alpha = p[3];
            for (int c = 0; c < 3; ++c)
                p[c] = DQStoreHalfUp<T>(std::min(white, p[c] * white / alpha));
        }
    }
}

template <class T>
void UnpremultiplyKeepHueRow(T* __restrict p, int width) {
    constexpr double white = std::is_same_v<T, uint8_t>    ? 255.0
                             : std::is_same_v<T, uint16_t> ? 65535.0
                                                           : 1.0;
    // The 16-bit form starts its search for the largest colour from 8-bit white; the test against
    // white comes afterwards, so the start does not change the result.
    constexpr double searchStart = std::is_same_v<T, uint16_t> ? 255.0 : 0.0;
    for (int x = 0; x < width; ++x, p += 4) {
        double colour[3];
        if constexpr (std::is_floating_point_v<T>) {
            if (p[3] < 1e-07f) continue;
            const float inverse = 1.0f / p[3];
            for (int c = 0; c < 3; ++c)
                colour[c] = p[c] * inverse;
        } else {
            if (p[3] == 0) continue;
            for (int c = 0; c < 3; ++c)
                colour[c] = p[c] * white / p[3];
        }
        const double largest = std::max({searchStart, colour[0], colour[1], colour[2]});
        if (largest > white)
            for (double& c : colour)
                c *= white / largest;
        for (int c = 0; c < 3; ++c)
            p[c] = DQStoreRounded<T>(colour[c], white);
    }
}

template <class T>
void ReplaceAlphaScaleRow(T* __restrict p, const T* __restrict q, int width, double white) {
    for (int x = 0; x < width; ++x, p += 4, q += 4) {
        const T oldAlpha = p[3];
        const T newAlpha = q[3];
        if (oldAlpha == newAlpha || oldAlpha == 0) continue;
        const double factor = (static_cast<double>(newAlpha) / white) / (oldAlpha / white);
        for (int c = 0; c < 3; ++c)
            p[c] = DQStoreRounded<T>(p[c] * factor, white);
        p[3] = newAlpha;
    }
}

// Runs `row(pixels, width)` over every row of a four-channel image in bands.
template <class T, class RowFunction>
void AlphaInBands(const DQImage& image, RowFunction row) {
    ZUMPForRows(image.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            row(image.Row<T>(y), image.width);
    });
}
} // namespace

void DQImage::Premultiply() {
    if (!HasAlphaLayout(*this)) return;
    DQDispatchType(dataType, [&]<class T>() { AlphaInBands<T>(*this, PremultiplyRow<T>); });
}

void DQImage::Unpremultiply() {
    if (!HasAlphaLayout(*this)) return;
    DQDispatchType(dataType, [&]<class T>() { AlphaInBands<T>(*this, UnpremultiplyRow<T>); });
}

void DQImage::UnpremultiplyKeepHue() {
    if (!HasAlphaLayout(*this)) return;
    DQDispatchType(dataType, [&]<class T>() {
        for (int y = 0; y < height; ++y)
            UnpremultiplyKeepHueRow<T>(Row<T>(y), width);
    });
}

void DQImage::ReplaceAlphaScale(const DQImage* source) {
    if (!source || !HasAlphaLayout(*this) || !source->data || source->dataType != dataType ||
        source->channels != 4 || source->width != width || source->height != height)
        return;
    DQDispatchType(dataType, [&]<class T>() {
        const double white = whitePoint;
        ZUMPForRows(height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y)
                ReplaceAlphaScaleRow<T>(Row<T>(y), source->Row<T>(y), width, white);
        });
    });
}
