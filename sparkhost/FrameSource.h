#pragma once
// Where the stand-in host takes the frames of a clip from. A source delivers whole frames in the
// host's packed format (Width x Height x 3 elements of the depth's size); sparkGetFrame copies
// them into the plug-in's buffer.
#include <cstddef>
#include <cstdint>
#include <vector>

class SparkFrameSource {
public:
    virtual ~SparkFrameSource() = default;
    virtual int Width() const = 0;
    virtual int Height() const = 0;
    virtual int Depth() const = 0;
    virtual int FrameCount() const = 0;
    // Copies frame `frame` into `buffer` of `bytes` bytes; false when there is no such frame or
    // it cannot be read.
    virtual bool ReadFrame(int frame, void* buffer, size_t bytes) = 0;
};

// Bytes of one packed host frame, 0 for an unknown depth code.
size_t SparkHostFrameBytes(int width, int height, int depth);

// A clip held in memory, frame by frame.
class SparkMemoryFrameSource : public SparkFrameSource {
public:
    SparkMemoryFrameSource(int width, int height, int depth)
        : width_(width), height_(height), depth_(depth) {}

    int Width() const override { return width_; }
    int Height() const override { return height_; }
    int Depth() const override { return depth_; }
    int FrameCount() const override { return int(frames_.size()); }
    bool ReadFrame(int frame, void* buffer, size_t bytes) override;

    // Appends a frame; its size must be SparkHostFrameBytes of the source's format.
    void AddFrame(std::vector<uint8_t> pixels) { frames_.push_back(std::move(pixels)); }
    // Appends a frame of one colour; `rgb` holds host elements (bytes, 12-bit words, halves).
    void AddSolidFrame(const uint16_t rgb[3]);

private:
    int width_, height_, depth_;
    std::vector<std::vector<uint8_t>> frames_;
};
