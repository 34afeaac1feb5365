// What `quelmor retime` was asked to do, read and checked from its command line.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ChannelMix.h"
#include "CommandLine.h"

namespace quelmor::cli {

struct RetimeSettings {
    std::string input;
    std::string output;
    std::optional<double> speed;
    std::optional<std::string> speedCurve; // key file of speeds per output frame
    std::optional<std::string> frameCurve; // key file of source frames per output frame
    std::optional<std::string> scenes;     // key file of scene menu numbers per source frame
    std::optional<FrameRange> frames;      // output frames as numbered in the output
    int interpolation = 1;                 // 0 nearest, 1 blend, 2 weighted energy blend
    int vectorQuality = 4;                 // 0 none to 4 best, 5 full
    int warping = 0; // 0 inverse, 1 inverse + smart blend, 2 forward, 3 forward alone
    float motionBlur = 0.0f;
    // Foreground layers, frontmost first: a matte sequence each, or "alpha" for the input's own
    // alpha. Empty: one layer.
    std::vector<std::string> mattes;
    float matteShrink = 0.0f;      // pixels by which each foreground matte is grown
    float layerSensitivity = 1.0f; // motion sensitivity of the foreground layers, 0..1
    int draw = 0;                  // 0 all layers, 1 the foreground alone, 2 the background alone
    double rate = 0.0;             // frames per second of a video output, 0: the input's
    bool overwrite = false;
    bool resume = false;      // keep the output frames already there, render the missing ones
    bool printFrames = false; // print the output frame range and stop, writing nothing
    int threads = 1;          // workers of the engine and of the writers
    bool quiet = false;
    bool timing = false;                  // print where the time went
    std::optional<std::string> points;    // correspondences given by hand (cli/PointTracks.h)
    bool pointsOnly = false;              // --motion points: the correspondences are all the motion
    bool showGeometry = false;            // draw the correspondences over the output
    std::optional<Size> resize;           // output frames zoomed to this size
    std::string filter = "bspline-table"; // zoom kernel of --resize
    std::vector<ChannelMixChoice> channelMix; // how named extra channels are mixed
    std::optional<bool> straightAlpha;        // the input's alpha convention, when given
    std::optional<double> fps;                // output frames per second, the timing following
    std::optional<double> inputFps;           // frames per second of the input, when given
    std::optional<std::string> vectors;       // vector files to retime by (cli/VectorFiles.h)
    float vectorScale[2] = {1.0f, 1.0f};      // x and y of every vector read multiplied by these
};

// The words of a command line with `--NAME A B` joined into the one value "A B", so that an
// option of two numbers goes through the parser as one.
std::vector<std::string> JoinPairOption(std::span<const std::string> args, const std::string& name);
// The two numbers of such a value, "A B" or "A,B"; throws UsageError naming `what`.
void ParseNumberPair(const std::string& text, const std::string& what, float pair[2]);

// Throws UsageError for anything missing, unknown, contradictory or out of range.
RetimeSettings ParseRetimeSettings(std::span<const std::string> args);

} // namespace quelmor::cli
