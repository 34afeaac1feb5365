// Resizing finished frames with the library's zoom: proxies and deliveries at another size made
// in the same pass as the retime.
#pragma once

#include <memory>
#include <string>

#include "cli/CommandLine.h"
#include "cli/MediaFrame.h"

struct DQZoomFilter;
class DQZoomTempStorage;

namespace quelmor::cli {

// The zoom filter of that name; UsageError naming `what` and listing the names otherwise.
const DQZoomFilter& ZoomFilterNamed(const std::string& name, const std::string& what);

// Resizes frames of 8-bit, 16-bit or float samples to one size, keeping the sample type and the
// channel count. The zoom limits its sums to 0 .. 255 whatever the element type, so 16-bit frames
// go through floats scaled onto 0 .. 255 and back; 8-bit frames are zoomed as they are, floats
// too (values above 255 are limited). The scratch memory is kept from frame to frame.
class FrameResizer {
public:
    FrameResizer(const DQZoomFilter& filter, Size size);
    ~FrameResizer();
    FrameResizer(const FrameResizer&) = delete;
    FrameResizer& operator=(const FrameResizer&) = delete;

    // The format of a resized frame of `format`.
    MediaFormat Resized(const MediaFormat& format) const;
    // `in` resized into `out`; MediaError for a sample type the zoom cannot take (halves).
    void Resize(const MediaFrame& in, MediaFrame& out);

private:
    const DQZoomFilter& filter_;
    Size size_;
    std::unique_ptr<DQZoomTempStorage> storage_;
    std::vector<float> sourceFloats_, destFloats_;
};

} // namespace quelmor::cli
