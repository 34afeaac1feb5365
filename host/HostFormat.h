#pragma once
// The host's frame formats as traits: how one host element widens into an image element and
// narrows back. Host frames are dense packed RGB; images are interleaved with 1 or 4 channels.
#include "host/HalfFloat.h"

#include <cstdint>

// Depth codes 24 and 25: bytes.
struct MyHost8 {
    using Host = uint8_t;
    using Image = uint8_t;
    static constexpr Image kWhite = 255;
    static Image Widen(Host h) { return h; }
    static Host Narrow(Image v, Host /*old*/) { return v; }
    static Image Invert(Image v) { return Image(~v); }
};

// Depth codes 48 and 64: 12 significant bits at the top of 16-bit words. Narrowing keeps the low
// nibble of the word it overwrites.
struct MyHost12 {
    using Host = uint16_t;
    using Image = uint16_t;
    static constexpr Image kWhite = 4095;
    static Image Widen(Host h) { return Image(h >> 4); }
    static Host Narrow(Image v, Host old) { return Host((old & 15) | (unsigned(v) * 16)); }
    static Image Invert(Image v) { return Image(4095 - v); }
};

// Depth code 49: half floats.
struct MyHostHalf {
    using Host = uint16_t;
    using Image = float;
    static constexpr Image kWhite = 1.0f;
    static Image Widen(Host h) { return MyHalfToFloat(h); }
    static Host Narrow(Image v, Host /*old*/) { return MyFloatToHalf(v); }
    static Image Invert(Image v) { return 1.0f - v; }
};

// The one switch from a depth code to its traits; returns false for any other depth.
template <class F>
bool MyDispatchHostDepth(int depth, F&& f) {
    switch (depth) {
    case 24:
    case 25:
        f.template operator()<MyHost8>();
        return true;
    case 48:
    case 64:
        f.template operator()<MyHost12>();
        return true;
    case 49:
        f.template operator()<MyHostHalf>();
        return true;
    default:
        return false;
    }
}

// True for the five depth codes the plug-in accepts.
inline bool MyIsSupportedDepth(int depth) {
    return depth == 24 || depth == 25 || depth == 48 || depth == 64 || depth == 49;
}

// Bytes of one image element for a depth code (1, 2 or 4), 0 for an unsupported depth.
inline int MyElementBytesForDepth(int depth) {
    int bytes = 0;
    MyDispatchHostDepth(depth, [&]<class H>() { bytes = int(sizeof(typename H::Image)); });
    return bytes;
}
