// Frames as they come from and go to files: interleaved samples of one type,
// rows packed without padding. The command converts them to engine images.
#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace quelmor::cli {

enum class SampleType { U8, U16, Half, Float };

const char* SampleTypeName(SampleType type);
std::size_t SampleBytes(SampleType type);

struct MediaFormat {
    int width = 0;
    int height = 0;
    int channels = 0; // 1 to 4; colour order R, G, B, A
    SampleType sample = SampleType::U8;

    std::size_t RowBytes() const { return std::size_t(width) * channels * SampleBytes(sample); }
    std::size_t FrameBytes() const { return RowBytes() * std::size_t(height); }
    bool SameSize(const MediaFormat& other) const {
        return width == other.width && height == other.height;
    }
};

struct MediaFrame {
    MediaFormat format;
    std::vector<std::uint8_t> pixels;

    void Allocate(const MediaFormat& f) {
        format = f;
        pixels.assign(f.FrameBytes(), 0);
    }
    template <class T>
    T* Row(int y) {
        return reinterpret_cast<T*>(pixels.data() + std::size_t(y) * format.RowBytes());
    }
    template <class T>
    const T* Row(int y) const {
        return reinterpret_cast<const T*>(pixels.data() + std::size_t(y) * format.RowBytes());
    }
};

// Every failure of reading or writing media: the message is what the user sees.
class MediaError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace quelmor::cli
