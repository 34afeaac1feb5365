// Attributes of image files carried from the source frames to the output frames: everything that
// describes the picture (colour space, chromaticities, pixel aspect, camera and lens data, the
// studio's own strings) is kept as it was; what a retime changes is rewritten: the frame number,
// the timecode (counted at the output's frame rate), the frame and capture rates and the software.
// What describes only the encoding of the source file (its compression, tiling, bit depth) is
// left to the writer.
#pragma once

#include <cstdint>
#include <memory>

#include <OpenImageIO/imageio.h>

#include "cli/MediaFrame.h"

namespace quelmor::cli {

struct FileAttributes {
    OIIO::ParamValueList values;
};

// The attributes of `header` that an output frame carries; null when there are none.
std::shared_ptr<const FileAttributes> CarriedAttributes(const OIIO::ImageSpec& header);

// Frames per second that `attributes` say the frames play at; 0 when they do not say.
double AttributeFrameRate(const FileAttributes* attributes);

// SMPTE time of day and frame, as an image file's timecode holds it.
struct Timecode {
    int hours = 0;
    int minutes = 0;
    int seconds = 0;
    int frames = 0;
    bool dropFrame = false;
};

// The timecode in the packed form of image files (binary-coded decimal, SMPTE 12M), and back.
Timecode UnpackTimecode(std::uint32_t packed);
std::uint32_t PackTimecode(const Timecode& timecode);
// Frames counted from midnight at `rate` frames per second (rounded to a whole rate), and the
// timecode of such a count; counts past a day wrap.
std::int64_t FramesOfTimecode(const Timecode& timecode, double rate);
Timecode TimecodeOfFrames(std::int64_t frames, double rate);

// What the retime changes for one output frame.
struct OutputStamp {
    int number = 0; // the frame's number
    int firstNumber =
        0; // number of the output's first frame, which shows the first source frame's time
    double rate = 25.0;      // frames per second of the output
    double sourceRate = 0.0; // frames per second of the source, for its timecode; 0: `rate`
    double captureRate =
        0.0; // moments per second of the source's time that the output shows; 0: none
};

// Writes `source`'s attributes (may be null) into `header`, updated for the frame `stamp` says.
void StampAttributes(const FileAttributes* source, const OutputStamp& stamp,
                     OIIO::ImageSpec& header);

} // namespace quelmor::cli
