#pragma once
// Images for the suites of the filters and warps: filled from a function of (x, y, channel), read
// back as floats, and compared element by element.
#include "image/Image.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <functional>
#include <string>

namespace quelmor::test {

using PixelFunction = std::function<double(int x, int y, int c)>;

inline double ElementAt(const DQImage& image, int x, int y, int c) {
    const uint8_t* p = image.PixelAddress(x, y) + c * image.elementBytes;
    if (image.dataType == DQ_UCHAR) return *p;
    if (image.dataType == DQ_USHORT) return *reinterpret_cast<const uint16_t*>(p);
    return *reinterpret_cast<const float*>(p);
}

inline void SetElement(DQImage& image, int x, int y, int c, double v) {
    uint8_t* p = image.PixelAddress(x, y) + c * image.elementBytes;
    if (image.dataType == DQ_UCHAR)
        *p = static_cast<uint8_t>(v);
    else if (image.dataType == DQ_USHORT)
        *reinterpret_cast<uint16_t*>(p) = static_cast<uint16_t>(v);
    else
        *reinterpret_cast<float*>(p) = static_cast<float>(v);
}

inline DQImagePtr MakeImage(int width, int height, int channels, int dataType,
                            const PixelFunction& f, int bottomUp = 0) {
    DQImagePtr image(new DQImage(width, height, channels, dataType, bottomUp));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                SetElement(*image, x, y, c, f(x, y, c));
    return image;
}

// Every element `value`.
inline PixelFunction Fill(double value) {
    return [value](int, int, int) { return value; };
}

// A two-channel float flow of the given vectors.
inline DQImagePtr MakeFlow(int width, int height,
                           const std::function<void(int x, int y, float& u, float& v)>& f) {
    DQImagePtr flow(new DQImage(width, height, 2, DQ_FLOAT, 0));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            float* p = flow->Row<float>(y) + 2 * x;
            f(x, y, p[0], p[1]);
        }
    return flow;
}

// A flow of one vector everywhere.
inline DQImagePtr ConstantFlow(int width, int height, float u, float v) {
    return MakeFlow(width, height, [&](int, int, float& fu, float& fv) { fu = u, fv = v; });
}

// A deterministic pattern with detail in both directions, within 0..white.
inline PixelFunction Pattern(int dataType) {
    const double white = dataType == DQ_UCHAR ? 255.0 : dataType == DQ_USHORT ? 65535.0 : 1.0;
    return [white](int x, int y, int c) {
        const double t = 0.5 + 0.45 * std::sin(0.37 * x + 0.23 * y + 1.3 * c) *
                                   std::cos(0.11 * x * (c + 1) - 0.29 * y);
        return white == 1.0 ? t : std::floor(t * white);
    };
}

// Largest difference between two images of the same layout; infinity if the layouts differ.
inline double MaxDifference(const DQImage& a, const DQImage& b) {
    if (a.width != b.width || a.height != b.height || a.channels != b.channels ||
        a.dataType != b.dataType)
        return INFINITY;
    double worst = 0.0;
    for (int y = 0; y < a.height; ++y)
        for (int x = 0; x < a.width; ++x)
            for (int c = 0; c < a.channels; ++c)
                worst = std::max(worst, std::fabs(ElementAt(a, x, y, c) - ElementAt(b, x, y, c)));
    return worst;
}

inline std::string Describe(int dataType, int channels) {
    return std::string(dataType == DQ_UCHAR    ? "uchar"
                       : dataType == DQ_USHORT ? "ushort"
                                               : "float") +
           " x" + std::to_string(channels);
}

// The DQErr code that `body` throws, or -1 when it returns.
template <class Body>
int ThrownBy(Body&& body) {
    try {
        body();
    } catch (DQErr code) {
        return code;
    }
    return -1;
}

} // namespace quelmor::test
