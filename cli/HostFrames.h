// Clips on disk as the stand-in host's frame source, and host frames back to media
// frames: packed RGB of bytes (depth 24), of 12 bits at the top of 16-bit words
// (depth 48) or of half floats (depth 49), chosen from the clip's own bit depth.
#pragma once

#include <memory>
#include <string>

#include "cli/Media.h"
#include "cli/ReadAhead.h"
#include "cli/StageClock.h"
#include "sparkhost/FrameSource.h"

namespace quelmor::cli {

// Host depth code for frames of `sample`: 24, 48 or 49.
int HostDepthFor(SampleType sample);

// `frame` as a host frame of `depth`: three channels of the depth's samples, whose bytes are
// those of the host's packed frame. Takes the frame's pixels when they need no conversion.
void ToHostFrame(MediaFrame&& frame, int depth, MediaFrame& host);
// Unpacks a host frame into three-channel 8-bit, 16-bit or half samples.
void UnpackHostFrame(const void* host, int width, int height, int depth, MediaFrame& out);

// The source owns its reader: the host keeps its clips for as long as it likes, and the frame
// read ahead is finished before the reader goes, whoever lets go of the source last.
class MediaFrameSource final : public SparkFrameSource {
public:
    // `clock` may be null; it gets the decoding and packing of frames, which are read ahead, and
    // must then outlive the source.
    explicit MediaFrameSource(std::unique_ptr<MediaReader> reader, StageClock* clock = nullptr);
    const MediaReader& Reader() const { return *reader_; }
    int Width() const override { return reader_->Format().width; }
    int Height() const override { return reader_->Format().height; }
    int Depth() const override { return depth_; }
    int FrameCount() const override { return reader_->FrameCount(); }
    // Frames past either end hold the end frames, as the direct path does. A frame that cannot
    // be read gives false, and its message is kept for Failure.
    bool ReadFrame(int frame, void* buffer, size_t bytes) override;
    // Why the first frame that could not be read failed; empty while every read succeeded. The
    // host hides a failed fetch from its caller (the plug-in makes a frame anyway), so whoever
    // drives the host must ask here after each frame.
    std::string Failure() const;

private:
    // Declared before the read-ahead, so that it is destroyed after the read-ahead's thread ends.
    std::unique_ptr<MediaReader> reader_;
    int depth_;
    ReadAhead frames_;
    MediaFrame frame_;
    std::string failure_;
};

} // namespace quelmor::cli
