// Flow files in OpenEXR: two float channels per file, named after the direction of the motion
// the way compositing tools name their motion layers.
#pragma once

#include "image/DQImage.h"

#include <string>

namespace quelmor::cli {

// Which motion a flow is: from each frame to the next (forward) or to the one before (backward).
enum class FlowDirection { Forward, Backward };

// Writes `flow` (two float channels) as a float OpenEXR file with the channels
// "<direction>.u" and "<direction>.v". Returns 0, DQErr 2 when the file cannot be written, DQErr 5
// for an image that is not a two-channel float flow; `reason` says why.
int WriteExrFlow(const DQImage& flow, const std::string& path, FlowDirection direction,
                 std::string* reason);
// Reads the flow of an OpenEXR file: the forward motion of ReadExrMotion, else its backward
// motion. Null with `reason` set when the file cannot be read or has fewer than two channels.
DQImagePtr ReadExrFlow(const std::string& path, std::string* reason);

// Both directions of one frame's motion, as a file of a clip's vectors holds them.
struct ExrMotion {
    DQImagePtr forward;  // to the next frame; null when the file holds none
    DQImagePtr backward; // to the frame before; null when the file holds none
};

// Writes one frame's motion as a float OpenEXR file with the channels forward.u, forward.v,
// backward.u, backward.v. A null direction is written as zero motion. Written as OpenEXR whatever
// the name ends in, so that it can go to a hidden name first. Returns 0 or a DQErr code with
// `reason` set.
int WriteExrMotion(const DQImage* forward, const DQImage* backward, const std::string& path,
                   std::string* reason);
// Reads both directions of an OpenEXR file: forward.u/v and backward.u/v where present; a file
// holding neither pair gives its motion as forward: the channels u/v, else the first two channels
// of a layer named motion, vector(s) or velocity, else the file's first two channels (a renderer's
// motion pass). Channels must be whole: sizes as the header says. Null directions and `reason`
// set when the file cannot be read.
bool ReadExrMotion(const std::string& path, ExrMotion* motion, std::string* reason);
// The size of an OpenEXR (or any image) file from its header; false with `reason` set when it
// cannot be opened.
bool ImageFileSize(const std::string& path, int* width, int* height, std::string* reason);

// Makes ".exr" a kind of flow file for ReadFlow and WriteFlow (written as forward motion).
void RegisterExrFlowFiles();

} // namespace quelmor::cli
