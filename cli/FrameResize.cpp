#include "cli/FrameResize.h"

#include <cstdint>

#include "image/DQImage.h"
#include "image/Error.h"
#include "warp/Zoom.h"

namespace quelmor::cli {

namespace {

// 16-bit samples are carried on the zoom's scale of 0 .. 255.
constexpr float kWordsToZoom = 255.0f / 65535.0f;
constexpr float kZoomToWords = 65535.0f / 255.0f;

int DataTypeOf(SampleType sample) {
    switch (sample) {
    case SampleType::U8:
        return DQ_UCHAR;
    case SampleType::Float:
        return DQ_FLOAT;
    default:
        throw MediaError(std::string("frames of ") + SampleTypeName(sample) +
                         " samples cannot be resized; convert them to float first");
    }
}

void Run(DQImage& dest, DQImage& source, const DQZoomFilter& filter, DQZoomTempStorage& storage) {
    try {
        Zoom(&dest, &source, filter, &storage);
    } catch (DQErr code) {
        throw MediaError(code == kDQErrMemory ? "out of memory resizing a frame"
                                              : "the frame could not be resized (error " +
                                                    std::to_string(int(code)) + ")");
    }
}

} // namespace

const DQZoomFilter& ZoomFilterNamed(const std::string& name, const std::string& what) {
    if (const DQZoomFilter* filter = DQFindZoomFilter(name)) return *filter;
    std::string known;
    for (int i = 0; i < kDQZoomFilterCount; ++i)
        known += std::string(i ? ", " : "") + DQZoomFilters()[i].name;
    throw UsageError(what + " must be one of " + known + ", got \"" + name + "\"");
}

FrameResizer::FrameResizer(const DQZoomFilter& filter, Size size)
    : filter_(filter), size_(size), storage_(new DQZoomTempStorage) {}

FrameResizer::~FrameResizer() = default;

MediaFormat FrameResizer::Resized(const MediaFormat& format) const {
    MediaFormat f = format;
    f.width = size_.width;
    f.height = size_.height;
    return f;
}

void FrameResizer::Resize(const MediaFrame& in, MediaFrame& out) {
    const MediaFormat& from = in.format;
    out.Allocate(Resized(from));
    const int channels = from.channels;
    if (from.sample != SampleType::U16) {
        const int type = DataTypeOf(from.sample);
        DQImage source(const_cast<std::uint8_t*>(in.pixels.data()), from.width, from.height,
                       int(from.RowBytes()), channels, type, 0);
        DQImage dest(out.pixels.data(), size_.width, size_.height, int(out.format.RowBytes()),
                     channels, type, 0);
        Run(dest, source, filter_, *storage_);
        return;
    }
    const std::size_t inCount = std::size_t(from.width) * from.height * channels;
    const std::size_t outCount = std::size_t(size_.width) * size_.height * channels;
    sourceFloats_.resize(inCount);
    destFloats_.resize(outCount);
    const auto* words = reinterpret_cast<const std::uint16_t*>(in.pixels.data());
    for (std::size_t i = 0; i < inCount; ++i)
        sourceFloats_[i] = float(words[i]) * kWordsToZoom;
    DQImage source(sourceFloats_.data(), from.width, from.height, channels, DQ_FLOAT, 0);
    DQImage dest(destFloats_.data(), size_.width, size_.height, channels, DQ_FLOAT, 0);
    Run(dest, source, filter_, *storage_);
    auto* target = reinterpret_cast<std::uint16_t*>(out.pixels.data());
    for (std::size_t i = 0; i < outCount; ++i) {
        // The zoom has limited every value to 0 .. 255 already.
        target[i] = std::uint16_t(destFloats_[i] * kZoomToWords + 0.5f);
    }
}

} // namespace quelmor::cli
