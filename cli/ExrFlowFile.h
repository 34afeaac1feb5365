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
// Reads the flow of an OpenEXR file: the channels forward.u/v, else backward.u/v, else u/v, else
// the first two channels (a renderer's motion pass in R and G). Null with `reason` set when the
// file cannot be read or has fewer than two channels.
DQImagePtr ReadExrFlow(const std::string& path, std::string* reason);

// Makes ".exr" a kind of flow file for ReadFlow and WriteFlow (written as forward motion).
void RegisterExrFlowFiles();

} // namespace quelmor::cli
