#include "cli/HostFrames.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace quelmor::cli {

int HostDepthFor(SampleType sample) {
    switch (sample) {
    case SampleType::U8:
        return 24;
    case SampleType::U16:
        return 48;
    default:
        return 49;
    }
}

namespace {

SampleType SampleForDepth(int depth) {
    return depth == 24 ? SampleType::U8 : depth == 48 ? SampleType::U16 : SampleType::Half;
}

} // namespace

void ToHostFrame(MediaFrame&& frame, int depth, MediaFrame& host) {
    const MediaFormat rgb{frame.format.width, frame.format.height, 3, SampleForDepth(depth)};
    if (frame.format.channels != 3 || frame.format.sample != rgb.sample)
        ConvertFrame(frame, rgb, host);
    else
        std::swap(host, frame);
    if (depth == 48) {
        // Twelve significant bits at the top of each word; the low nibble stays clear.
        auto* words = reinterpret_cast<uint16_t*>(host.pixels.data());
        const size_t count = host.pixels.size() / 2;
        for (size_t i = 0; i < count; ++i)
            words[i] = uint16_t(words[i] & 0xfff0u);
    }
}

void UnpackHostFrame(const void* host, int width, int height, int depth, MediaFrame& out) {
    out.Allocate({width, height, 3, SampleForDepth(depth)});
    const auto* bytes = static_cast<const uint8_t*>(host);
    std::copy(bytes, bytes + out.pixels.size(), out.pixels.begin());
}

MediaFrameSource::MediaFrameSource(std::unique_ptr<MediaReader> reader, StageClock* clock)
    : reader_(std::move(reader)), depth_(HostDepthFor(reader_->Format().sample)),
      frames_(
          *reader_,
          [depth = depth_](MediaFrame&& decoded, MediaFrame& host) {
              ToHostFrame(std::move(decoded), depth, host);
          },
          clock) {}

bool MediaFrameSource::ReadFrame(int frame, void* buffer, size_t bytes) {
    if (bytes != SparkHostFrameBytes(Width(), Height(), depth_)) return false;
    try {
        frames_.Get(std::clamp(frame, 0, reader_->FrameCount() - 1), frame_);
        std::copy(frame_.pixels.begin(), frame_.pixels.end(), static_cast<uint8_t*>(buffer));
    } catch (const std::exception& e) {
        if (failure_.empty()) failure_ = e.what();
        return false;
    }
    return true;
}

std::string MediaFrameSource::Failure() const {
    return failure_;
}

} // namespace quelmor::cli
