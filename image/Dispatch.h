#pragma once
// The one place that turns a runtime element type (and channel count) into a template call.
// Operations write their loop body once over T (and C) and call it through these:
//
//   DQDispatchType(image.dataType, [&]<class T>() { ... });
//   DQDispatchTypeChannels(image.dataType, image.channels, [&]<class T, int C>() { ... });
//
// Each returns false, doing nothing, for a combination outside the image types 0..2 or the
// channel counts 1..4, so the caller decides what an unsupported image means.
#include "image/DataType.h"

#include <cstdint>

template <int D>
struct DQElementOf;
template <>
struct DQElementOf<DQ_UCHAR> {
    using type = uint8_t;
};
template <>
struct DQElementOf<DQ_USHORT> {
    using type = uint16_t;
};
template <>
struct DQElementOf<DQ_FLOAT> {
    using type = float;
};

template <class T>
inline constexpr int DQTypeCode = std::is_same_v<T, uint8_t>    ? DQ_UCHAR
                                  : std::is_same_v<T, uint16_t> ? DQ_USHORT
                                                                : DQ_FLOAT;

template <class F>
bool DQDispatchType(int dataType, F&& f) {
    switch (dataType) {
    case DQ_UCHAR:
        f.template operator()<uint8_t>();
        return true;
    case DQ_USHORT:
        f.template operator()<uint16_t>();
        return true;
    case DQ_FLOAT:
        f.template operator()<float>();
        return true;
    default:
        return false;
    }
}

template <class T, class F>
bool DQDispatchChannels(int channels, F&& f) {
    switch (channels) {
    case 1:
        f.template operator()<T, 1>();
        return true;
    case 2:
        f.template operator()<T, 2>();
        return true;
    case 3:
        f.template operator()<T, 3>();
        return true;
    case 4:
        f.template operator()<T, 4>();
        return true;
    default:
        return false;
    }
}

template <class F>
bool DQDispatchTypeChannels(int dataType, int channels, F&& f) {
    bool done = false;
    DQDispatchType(dataType, [&]<class T>() { done = DQDispatchChannels<T>(channels, f); });
    return done;
}
