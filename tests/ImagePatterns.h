#pragma once
// Small images with known contents for the operation suites.
#include "image/Image.h"

#include <cstdint>
#include <cstring>
#include <gtest/gtest.h>
#include <initializer_list>
#include <string>

namespace quelmor::test {

// A deterministic pseudo-random value for element (x, y, c), spread over the type's range: all of
// 0..255 for 8 bits, all of 0..65535 for 16 bits, 0..1 for floats.
inline float PatternValue(int dataType, int x, int y, int c, uint32_t seed) {
    uint32_t h = seed * 0x9E3779B1u ^ (x * 0x85EBCA77u) ^ (y * 0xC2B2AE3Du) ^ (c * 0x27D4EB2Fu);
    h ^= h >> 15;
    h *= 0x2C1B3C6Du;
    h ^= h >> 12;
    switch (dataType) {
    case DQ_UCHAR:
        return static_cast<float>(h & 0xFF);
    case DQ_USHORT:
        return static_cast<float>(h & 0xFFFF);
    default:
        return static_cast<float>(h & 0xFFFF) / 65535.0f;
    }
}

// An owned image filled with PatternValue.
inline DQImagePtr PatternImage(int width, int height, int channels, int dataType, uint32_t seed,
                               int bottomUp = 0) {
    DQImagePtr image = DQMakeImage(width, height, channels, dataType, bottomUp);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c)
                image->SetChannelFloat(x, y, c, PatternValue(dataType, x, y, c, seed));
    return image;
}

// One element as float, whatever the type.
inline float At(const DQImage& image, int x, int y, int c) {
    float v = 0.0f;
    image.GetChannelFloat(x, y, &v, c);
    return v;
}

// True when the visible pixels of both images hold the same bytes.
inline bool SamePixels(const DQImage& a, const DQImage& b) {
    if (a.width != b.width || a.height != b.height || a.pixelBytes != b.pixelBytes) return false;
    for (int y = 0; y < a.height; ++y)
        if (std::memcmp(a.RowAddress(y), b.RowAddress(y),
                        static_cast<size_t>(a.width) * a.pixelBytes) != 0)
            return false;
    return true;
}

// An image whose every pixel holds `px`, channel by channel.
inline DQImagePtr Solid(int w, int h, int channels, int type, std::initializer_list<float> px) {
    DQImagePtr image = DQMakeImage(w, h, channels, type);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            int c = 0;
            for (float v : px)
                image->SetChannelFloat(x, y, c++, v);
        }
    return image;
}

// An image with `value` in every element.
inline DQImagePtr Solid(int w, int h, int channels, int type, float value) {
    DQImagePtr image = DQMakeImage(w, h, channels, type);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < channels; ++c)
                image->SetChannelFloat(x, y, c, value);
    return image;
}

// A deep copy with the same layout.
inline DQImagePtr Duplicate(const DQImage& image) {
    DQImagePtr copy =
        DQMakeImage(image.width, image.height, image.channels, image.dataType, image.bottomUp);
    copy->whitePoint = image.whitePoint;
    copy->CopyWhole(&image);
    return copy;
}

// Runs `op` with the standard error stream captured and returns what it printed.
template <class Op>
std::string PrintedBy(Op op) {
    testing::internal::CaptureStderr();
    op();
    return testing::internal::GetCapturedStderr();
}

} // namespace quelmor::test
