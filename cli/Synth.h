// A synthetic clip whose every in-between moment is known: textured objects at
// several depths that move, turn and pass in front of each other over a
// panning textured background.
#pragma once

#include "MediaFrame.h"

namespace quelmor::cli {

struct SynthSettings {
    int width = 320;
    int height = 180;
    int frames = 12;    // source frames, at times 0, 1, ... frames - 1
    int truthSteps = 4; // true frames per source frame, at times k / truthSteps
    SampleType sample = SampleType::U8;
};

// Renders the scene at `time` (in source frames, any real value) as RGB.
void RenderSynthFrame(const SynthSettings& settings, double time, MediaFrame& out);

// Number of objects in the scene; labels run from 0 (background) to this.
inline constexpr int kSynthObjects = 4;

// Where each object is at `time`: one 8-bit channel, per pixel 0 for the background or 1 + the
// index of the frontmost object (front to back) that covers the pixel's centre.
void RenderSynthLabels(const SynthSettings& settings, double time, MediaFrame& out);

} // namespace quelmor::cli
