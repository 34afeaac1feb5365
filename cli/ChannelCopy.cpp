#include "cli/ChannelCopy.h"

#include <algorithm>
#include <cstdint>

namespace quelmor::cli {

namespace {

// Per pixel: colour from the source (grey repeated), alpha from the source or opaque.
template <class T, int From, int To>
void CopyPixels(const T* __restrict in, T* __restrict out, std::size_t pixels, T opaque) {
    for (std::size_t i = 0; i < pixels; ++i, in += From, out += To) {
        for (int c = 0; c < 3; ++c)
            out[c] = in[From == 1 ? 0 : c];
        if constexpr (To == 4) out[3] = From == 4 ? in[3] : opaque;
    }
}

template <class T>
bool CopyAs(const MediaFrame& in, MediaFrame& out, T opaque) {
    const std::size_t pixels = std::size_t(in.format.width) * std::size_t(in.format.height);
    const T* src = reinterpret_cast<const T*>(in.pixels.data());
    T* dst = reinterpret_cast<T*>(out.pixels.data());
    switch (in.format.channels * 10 + out.format.channels) {
    case 13:
        CopyPixels<T, 1, 3>(src, dst, pixels, opaque);
        return true;
    case 14:
        CopyPixels<T, 1, 4>(src, dst, pixels, opaque);
        return true;
    case 34:
        CopyPixels<T, 3, 4>(src, dst, pixels, opaque);
        return true;
    case 43:
        CopyPixels<T, 4, 3>(src, dst, pixels, opaque);
        return true;
    }
    return false;
}

} // namespace

bool CopyChannels(const MediaFrame& in, int channels, MediaFrame& out) {
    const int from = in.format.channels;
    const bool handled = from == channels || ((from == 1 || from == 3 || from == 4) &&
                                              (channels == 3 || channels == 4) && from != channels);
    if (!handled) return false;
    MediaFormat format = in.format;
    format.channels = channels;
    out.format = format;
    out.pixels.resize(format.FrameBytes());
    if (from == channels) {
        std::copy(in.pixels.begin(), in.pixels.end(), out.pixels.begin());
        return true;
    }
    // Opaque alpha in each sample type's own units; halves as their bits.
    switch (format.sample) {
    case SampleType::U8:
        return CopyAs<std::uint8_t>(in, out, 255);
    case SampleType::U16:
        return CopyAs<std::uint16_t>(in, out, 65535);
    case SampleType::Half:
        return CopyAs<std::uint16_t>(in, out, 0x3c00);
    case SampleType::Float:
        return CopyAs<float>(in, out, 1.0f);
    }
    return false;
}

} // namespace quelmor::cli
