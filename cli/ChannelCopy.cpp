#include "cli/ChannelCopy.h"

#include <algorithm>
#include <cstdint>

namespace quelmor::cli {

namespace {

// Channel layouts by count: 1 grey, 2 grey and alpha, 3 RGB, 4 RGBA.
constexpr bool HasAlpha(int channels) {
    return channels == 2 || channels == 4;
}

// Per pixel: colour from the source (grey repeated to RGB, red kept as grey), alpha from the
// source or opaque, each sample through `map`.
template <class TIn, class TOut, int From, int To, class Map>
void MapPixels(const TIn* __restrict in, TOut* __restrict out, std::size_t pixels, Map map,
               TOut opaque) {
    constexpr int colours = To >= 3 ? 3 : 1;
    for (std::size_t i = 0; i < pixels; ++i, in += From, out += To) {
        for (int c = 0; c < colours; ++c)
            out[c] = map(in[From >= 3 ? c : 0]);
        if constexpr (HasAlpha(To)) out[To - 1] = HasAlpha(From) ? map(in[From - 1]) : opaque;
    }
}

bool Handled(int from, int to) {
    return from >= 1 && from <= 4 && to >= 1 && to <= 4 && from != to;
}

// The one dispatch over channel counts.
template <class TIn, class TOut, class Map>
void MapAs(const MediaFrame& in, MediaFrame& out, Map map, TOut opaque) {
    const std::size_t pixels = std::size_t(in.format.width) * std::size_t(in.format.height);
    const TIn* src = reinterpret_cast<const TIn*>(in.pixels.data());
    TOut* dst = reinterpret_cast<TOut*>(out.pixels.data());
    switch (in.format.channels * 10 + out.format.channels) {
    case 12:
        return MapPixels<TIn, TOut, 1, 2>(src, dst, pixels, map, opaque);
    case 13:
        return MapPixels<TIn, TOut, 1, 3>(src, dst, pixels, map, opaque);
    case 14:
        return MapPixels<TIn, TOut, 1, 4>(src, dst, pixels, map, opaque);
    case 21:
        return MapPixels<TIn, TOut, 2, 1>(src, dst, pixels, map, opaque);
    case 23:
        return MapPixels<TIn, TOut, 2, 3>(src, dst, pixels, map, opaque);
    case 24:
        return MapPixels<TIn, TOut, 2, 4>(src, dst, pixels, map, opaque);
    case 31:
        return MapPixels<TIn, TOut, 3, 1>(src, dst, pixels, map, opaque);
    case 32:
        return MapPixels<TIn, TOut, 3, 2>(src, dst, pixels, map, opaque);
    case 34:
        return MapPixels<TIn, TOut, 3, 4>(src, dst, pixels, map, opaque);
    case 41:
        return MapPixels<TIn, TOut, 4, 1>(src, dst, pixels, map, opaque);
    case 42:
        return MapPixels<TIn, TOut, 4, 2>(src, dst, pixels, map, opaque);
    case 43:
        return MapPixels<TIn, TOut, 4, 3>(src, dst, pixels, map, opaque);
    }
}

void Shape(const MediaFrame& in, int channels, SampleType sample, MediaFrame& out) {
    MediaFormat format = in.format;
    format.channels = channels;
    format.sample = sample;
    out.format = format;
    out.pixels.resize(format.FrameBytes());
}

constexpr std::uint16_t kHalfOne = 0x3c00;

} // namespace

bool CopyChannels(const MediaFrame& in, int channels, MediaFrame& out) {
    const int from = in.format.channels;
    if (from != channels && !Handled(from, channels)) return false;
    Shape(in, channels, in.format.sample, out);
    if (from == channels) {
        std::copy(in.pixels.begin(), in.pixels.end(), out.pixels.begin());
        return true;
    }
    const auto same = [](auto v) { return v; };
    // Opaque alpha in each sample type's own units; halves as their bits.
    switch (in.format.sample) {
    case SampleType::U8:
        MapAs<std::uint8_t, std::uint8_t>(in, out, same, std::uint8_t(255));
        break;
    case SampleType::U16:
        MapAs<std::uint16_t, std::uint16_t>(in, out, same, std::uint16_t(65535));
        break;
    case SampleType::Half:
        MapAs<std::uint16_t, std::uint16_t>(in, out, same, kHalfOne);
        break;
    case SampleType::Float:
        MapAs<float, float>(in, out, same, 1.0f);
        break;
    }
    return true;
}

bool IntegersToHalves(const MediaFrame& in, int channels, const std::uint16_t* halfOf,
                      MediaFrame& out) {
    const SampleType sample = in.format.sample;
    const bool same = in.format.channels == channels;
    if ((sample != SampleType::U8 && sample != SampleType::U16) ||
        (!same && !Handled(in.format.channels, channels)))
        return false;
    Shape(in, channels, SampleType::Half, out);
    const auto half = [halfOf](auto v) { return halfOf[v]; };
    auto* dst = reinterpret_cast<std::uint16_t*>(out.pixels.data());
    const std::size_t samples = out.pixels.size() / 2;
    if (sample == SampleType::U8) {
        if (same)
            std::transform(in.pixels.data(), in.pixels.data() + samples, dst, half);
        else
            MapAs<std::uint8_t, std::uint16_t>(in, out, half, kHalfOne);
    } else {
        const auto* src = reinterpret_cast<const std::uint16_t*>(in.pixels.data());
        if (same)
            std::transform(src, src + samples, dst, half);
        else
            MapAs<std::uint16_t, std::uint16_t>(in, out, half, kHalfOne);
    }
    return true;
}

} // namespace quelmor::cli
