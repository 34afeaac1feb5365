#pragma once
// Float images for the flow suites: constant fills, images from a function, and pixel access.
#include "ImagePatterns.h"
#include "image/Image.h"

#include <memory>

namespace quelmor::test {

using FlowOwned = DQImagePtr;

// A float image of `channels` channels with every element set to `value`.
inline FlowOwned FloatImage(int w, int h, int channels, float value = 0.0f) {
    return Solid(w, h, channels, DQ_FLOAT, value);
}

// A one-channel float image whose pixel (x, y) is f(x, y).
template <class F>
FlowOwned Filled(int w, int h, F f) {
    FlowOwned image = FloatImage(w, h, 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image->Row<float>(y)[x] = f(x, y);
    return image;
}

inline float At(const DQImage* image, int x, int y, int c = 0) {
    return image->Row<float>(y)[x * image->channels + c];
}

// Sets the vector of pixel (x, y) of a two-channel flow.
inline void Put(DQImage* image, int x, int y, float u, float v) {
    image->Row<float>(y)[2 * x] = u;
    image->Row<float>(y)[2 * x + 1] = v;
}

} // namespace quelmor::test
