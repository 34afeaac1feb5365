#pragma once
// The one place that turns a runtime element type (and channel count) into a template call.
// Operations write their loop body once over T (and C) and call it through these:
//
//   DQDispatchType(image.dataType, [&]<class T>() { ... });
//   DQDispatchTypeChannels(image.dataType, image.channels, [&]<class T, int C>() { ... });
//
// A combination outside the image types 0..2 or the channel counts 1..4 throws DQErr 5 (bad
// argument) before anything is called, so no operation can report "done" for an image it never
// touched. Operations whose contract is to refuse quietly, leaving the target as it was, test
// DQDispatchableType / DQDispatchableChannels first and return.
#include "image/DataType.h"
#include "image/Error.h"

#include <cstdint>
#include <type_traits>

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

// Whether the dispatch below has a member for this element type, this channel count, or both.
constexpr bool DQDispatchableType(int dataType) {
    return dataType == DQ_UCHAR || dataType == DQ_USHORT || dataType == DQ_FLOAT;
}
constexpr bool DQDispatchableChannels(int channels) {
    return channels >= 1 && channels <= 4;
}
constexpr bool DQDispatchable(int dataType, int channels) {
    return DQDispatchableType(dataType) && DQDispatchableChannels(channels);
}

template <class F>
void DQDispatchType(int dataType, F&& f) {
    switch (dataType) {
    case DQ_UCHAR:
        f.template operator()<uint8_t>();
        return;
    case DQ_USHORT:
        f.template operator()<uint16_t>();
        return;
    case DQ_FLOAT:
        f.template operator()<float>();
        return;
    default:
        DQThrow(kDQErrBadArgument);
    }
}

template <class T, class F>
void DQDispatchChannels(int channels, F&& f) {
    switch (channels) {
    case 1:
        f.template operator()<T, 1>();
        return;
    case 2:
        f.template operator()<T, 2>();
        return;
    case 3:
        f.template operator()<T, 3>();
        return;
    case 4:
        f.template operator()<T, 4>();
        return;
    default:
        DQThrow(kDQErrBadArgument);
    }
}

template <class F>
void DQDispatchTypeChannels(int dataType, int channels, F&& f) {
    // Both parts are checked before either is dispatched, so nothing runs for half a match.
    if (!DQDispatchable(dataType, channels)) DQThrow(kDQErrBadArgument);
    DQDispatchType(dataType, [&]<class T>() { DQDispatchChannels<T>(channels, f); });
}
