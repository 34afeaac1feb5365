#include "sparkhost/FrameSource.h"

#include <cstring>

size_t SparkHostFrameBytes(int width, int height, int depth) {
    size_t elementBytes = 0;
    switch (depth) {
    case 24:
    case 25:
        elementBytes = 1;
        break;
    case 48:
    case 64:
    case 49:
        elementBytes = 2;
        break;
    default:
        return 0;
    }
    if (width <= 0 || height <= 0) return 0;
    return size_t(width) * size_t(height) * 3 * elementBytes;
}

bool SparkMemoryFrameSource::ReadFrame(int frame, void* buffer, size_t bytes) {
    if (frame < 0 || frame >= FrameCount() || !buffer) return false;
    const auto& pixels = frames_[size_t(frame)];
    if (pixels.size() != bytes) return false;
    memcpy(buffer, pixels.data(), bytes);
    return true;
}

void SparkMemoryFrameSource::AddSolidFrame(const uint16_t rgb[3]) {
    const size_t bytes = SparkHostFrameBytes(width_, height_, depth_);
    std::vector<uint8_t> pixels(bytes);
    const size_t count = size_t(width_) * size_t(height_);
    if (depth_ == 24 || depth_ == 25) {
        for (size_t i = 0; i < count; ++i)
            for (int c = 0; c < 3; ++c)
                pixels[i * 3 + c] = uint8_t(rgb[c]);
    } else if (bytes) {
        auto* words = reinterpret_cast<uint16_t*>(pixels.data());
        for (size_t i = 0; i < count; ++i)
            for (int c = 0; c < 3; ++c)
                words[i * 3 + c] = rgb[c];
    }
    frames_.push_back(std::move(pixels));
}
