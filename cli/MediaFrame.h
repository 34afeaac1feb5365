// Frames as they come from and go to files: interleaved samples of one type,
// rows packed without padding. The command converts them to engine images.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace quelmor::cli {

enum class SampleType { U8, U16, Half, Float };

const char* SampleTypeName(SampleType type);
std::size_t SampleBytes(SampleType type);

// One channel of an image file, in the file's order: its name, its own sample type and where its
// samples are kept in a frame (`slot` below `channels`: a channel of the picture; from
// `channels` on: extra channel slot - channels).
struct FileChannel {
    std::string name;
    SampleType sample = SampleType::U8;
    int slot = 0;
    int stored = 0; // the file's own element type, for a writer of the same family; 0: `sample`
};

// The attributes of a source file (colour space, camera data, timecode and the like), opaque
// here; the image files' side reads and writes them.
struct FileAttributes;

enum class AlphaConvention { Unsaid, Premultiplied, Straight };

struct MediaFormat {
    MediaFormat() = default;
    // A frame of samples only: no windows, names or attributes of a file.
    MediaFormat(int width_, int height_, int channels_, SampleType sample_)
        : width(width_), height(height_), channels(channels_), sample(sample_) {}

    int width = 0;
    int height = 0;
    int channels = 0; // 1 to 4; colour order R, G, B, A
    SampleType sample = SampleType::U8;
    // Where the pixels lie: the data window's origin, and the display window (the frame the
    // picture belongs in), zero in size when the format has none apart from the data.
    int x = 0;
    int y = 0;
    int displayX = 0;
    int displayY = 0;
    int displayWidth = 0;
    int displayHeight = 0;
    // Every channel of the source file in its order, when the file names them; empty otherwise.
    std::vector<FileChannel> fileChannels;
    // Channels beyond the picture's, in slot order: depth, mattes, ids, render passes.
    std::vector<std::string> extras;
    std::shared_ptr<const FileAttributes> attributes;
    // How colour relates to alpha, as the file says: multiplied by it (EXR and most formats) or
    // straight (PNG, TGA, TIFF that says so); frames made in memory leave it unsaid, and are
    // written as they are.
    AlphaConvention alpha = AlphaConvention::Unsaid;

    bool HasAlpha() const { return channels == 2 || channels == 4; }
    bool HasDisplayWindow() const { return displayWidth > 0 && displayHeight > 0; }

    std::size_t RowBytes() const { return std::size_t(width) * channels * SampleBytes(sample); }
    std::size_t FrameBytes() const { return RowBytes() * std::size_t(height); }
    bool SameSize(const MediaFormat& other) const {
        return width == other.width && height == other.height;
    }
};

struct MediaFrame {
    MediaFormat format;
    std::vector<std::uint8_t> pixels;
    // The extra channels of `format.extras` as floats, interleaved, rows packed; empty when the
    // format has none.
    std::vector<float> extra;

    void Allocate(const MediaFormat& f) {
        format = f;
        pixels.assign(f.FrameBytes(), 0);
        extra.assign(std::size_t(f.width) * std::size_t(f.height) * f.extras.size(), 0.0f);
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
