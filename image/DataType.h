#pragma once
// Element types of images and their per-element readers and writers. Only the first three are
// used for whole images; the rest exist for the element converters.
#include <cstdint>
#include <type_traits>

enum DQDataType : int32_t {
    DQ_UCHAR = 0,
    DQ_USHORT = 1,
    DQ_FLOAT = 2,
    DQ_CHAR = 3,
    DQ_SHORT = 4,
    DQ_FIX16S = 5,
    DQ_FIX16U = 6,
    DQ_DOUBLE = 7,
    DQ_LONG = 8,
};

constexpr int kDQDataTypeCount = 9;

// Bytes per element. DQ_LONG declares 4 although its reader and writer move 8 bytes: images of it
// are never made, and the asymmetry is kept as it stands.
inline constexpr int32_t kElementBytes[kDQDataTypeCount] = {1, 2, 4, 1, 2, 2, 2, 8, 4};

// Value of full white for the three image types.
inline constexpr float kWhitePoint[3] = {255.0f, 65535.0f, 1.0f};

using DQElementReader = void (*)(float* destination, const void* element);
using DQElementWriter = void (*)(void* element, float value);

// Reader and writer of a type; null for a type beyond DQ_LONG.
DQElementReader DQGetElementReader(int dataType);
DQElementWriter DQGetElementWriter(int dataType);

// Maps a value in element units to an element with rounding and clamping (value + 0.5, clamped
// to [0, white]) for integer types; floats are stored as they are.
template <class T>
inline T DQStoreRounded(double value, double white) {
    if constexpr (std::is_floating_point_v<T>) {
        return static_cast<T>(value);
    } else {
        double v = value + 0.5;
        if (v < 0.0) v = 0.0;
        if (v > white) v = white;
        return static_cast<T>(v);
    }
}
