#pragma once
// Conversions of computed values back into elements, shared by the image operations.
#include "image/DataType.h"

#include <cstdint>
#include <type_traits>

// The element writers' store: floats as they are; integers truncated toward zero, keeping the low
// bits of the result (so -10 stored as 8 bits reads back as 246).
template <class T>
inline T DQStoreTruncated(double value) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else {
        return static_cast<T>(static_cast<int64_t>(value));
    }
}

// The rounding rule of integer stores without a clamp: value + 0.5 truncated; floats as they are.
template <class T>
inline T DQStoreHalfUp(double value) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else {
        return static_cast<T>(static_cast<int64_t>(value + 0.5));
    }
}

// True when the w x h rectangle at (x, y) lies inside the image.
inline bool DQRectInside(int imageWidth, int imageHeight, int x, int y, int w, int h) {
    return x >= 0 && y >= 0 && w >= 0 && h >= 0 && x <= imageWidth - w && y <= imageHeight - h;
}
