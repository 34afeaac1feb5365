#pragma once
// The host's render loops over a loaded plug-in, in the order a host calls it. The plug-in must
// have been initialised and the frame format set (SparkHostSetFrameFormat).
#include "sparkhost/PluginLoader.h"

#include <functional>

// Receives each finished output frame (in the host's format, FrameBytes bytes) with its index.
// Returning false stops the run.
using SparkHostFrameSink = std::function<bool(int outputIndex, const void* frame)>;

// Clip mode: for each input frame a start that announces how many output frames follow, then
// that many process calls. Returns the number of frames delivered, or -1 when a process call
// returned no frame.
int SparkHostRunClip(const SparkPlugin& plugin, unsigned int totalFrames,
                     const SparkHostFrameSink& sink, const char* setupName = "");

// Curve mode: output frames 0 to outputFrames - 1 by frame number, time and scene taken from the
// curves. Same result as SparkHostRunClip.
int SparkHostRunCurve(const SparkPlugin& plugin, int outputFrames, unsigned int totalFrames,
                      const SparkHostFrameSink& sink, const char* setupName = "");
