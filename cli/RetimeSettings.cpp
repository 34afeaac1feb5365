#include "RetimeSettings.h"

#include <cmath>
#include <cstdlib>

#include "EngineOptions.h"
#include "FrameResize.h"
#include "SequencePattern.h"
#include "Threads.h"
#include "warp/Zoom.h"

namespace quelmor::cli {

namespace {

constexpr const char* kMotionNames[] = {"flow", "points"};
constexpr const char* kAlphaNames[] = {"premultiplied", "straight"};
constexpr OptionSpec kAlphaOption{.name = "alpha", .takesValue = true, .choices = kAlphaNames};
// Frame rates as --rate takes them.
constexpr OptionSpec kFpsOption{
    .name = "fps", .takesValue = true, .min = 0, .minExcluded = true, .max = 1000};
constexpr OptionSpec kInputFpsOption{
    .name = "input-fps", .takesValue = true, .min = 0, .minExcluded = true, .max = 1000};

// clang-format off
constexpr OptionSpec kRetimeOptions[] = {
    kSpeedOption,      {"speed-curve", true},   {"frame-curve", true}, {"scenes", true},
    {"frames", true},  kInterpolationOption,    kDirectQualityOption,  kMotionBlurOption,
    kRateOption,       {"overwrite", false},    {"quiet", false},      {"timing", false},
    {"resume", false}, {"print-frames", false}, {"threads", true},
    {"channel-mix", true}, kAlphaOption, kFpsOption, kInputFpsOption,
    kWarpingOption,
    {"points", true}, {.name = "motion", .takesValue = true, .choices = kMotionNames},
    {"show-geometry", false},
    {"matte", true}, kMatteShrinkOption, kLayerSensitivityOption, kDrawOption,
    {"resize", true}, {"filter", true},
    {"vectors", true}, {"vector-scale", true},
};
// clang-format on

} // namespace

std::vector<std::string> JoinPairOption(std::span<const std::string> args,
                                        const std::string& name) {
    std::vector<std::string> out;
    const std::string option = "--" + name;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--") {
            out.insert(out.end(), args.begin() + std::ptrdiff_t(i), args.end());
            break;
        }
        out.push_back(args[i]);
        if (args[i] != option) continue;
        if (i + 2 >= args.size()) throw UsageError(option + " needs two numbers, X and Y");
        out.push_back(args[i + 1] + " " + args[i + 2]);
        i += 2;
    }
    return out;
}

void ParseNumberPair(const std::string& text, const std::string& what, float pair[2]) {
    const char* at = text.c_str();
    for (int k = 0; k < 2; ++k) {
        while (*at == ' ' || (k == 1 && *at == ','))
            ++at;
        char* end = nullptr;
        const double v = std::strtod(at, &end);
        if (end == at || !std::isfinite(v) || std::fabs(v) > 1e6)
            throw UsageError(what + " wants two numbers X and Y, got \"" + text + "\"");
        pair[k] = float(v);
        at = end;
    }
    if (*at != '\0') throw UsageError(what + " wants two numbers X and Y, got \"" + text + "\"");
}

RetimeSettings ParseRetimeSettings(std::span<const std::string> given) {
    const std::vector<std::string> args = JoinPairOption(given, "vector-scale");
    const CommandLine line = ParseCommandLine("retime", args, kRetimeOptions);
    if (line.files.size() != 2)
        throw UsageError(
            "quelmor retime wants an input and an output, such as in.%04d.exr out.%04d.exr");
    RetimeSettings s;
    s.input = line.files[0];
    s.output = line.files[1];
    s.speed = line.Number("speed");
    s.speedCurve = line.Value("speed-curve");
    s.frameCurve = line.Value("frame-curve");
    s.scenes = line.Value("scenes");
    s.fps = line.Number("fps");
    s.inputFps = line.Number("input-fps");
    const int timings = int(s.speed.has_value()) + int(s.speedCurve.has_value()) +
                        int(s.frameCurve.has_value()) + int(s.fps.has_value());
    if (timings == 0)
        throw UsageError("quelmor retime needs --speed, --fps, --speed-curve or --frame-curve");
    if (timings > 1)
        throw UsageError("give only one of --speed, --fps, --speed-curve and --frame-curve");
    if (s.fps && line.Has("rate"))
        throw UsageError("give only one of --fps (the output's rate, at the input's pace) and "
                         "--rate");
    if (auto v = line.Value("frames")) s.frames = ParseFrameRange(*v);
    s.interpolation = line.Choice("interpolation").value_or(s.interpolation);
    s.vectorQuality = line.Choice("quality").value_or(s.vectorQuality);
    s.warping = line.Choice("warping").value_or(s.warping);
    s.motionBlur = float(line.Number("motion-blur").value_or(s.motionBlur));
    s.rate = line.Number("rate").value_or(s.rate);
    s.mattes = line.Values("matte");
    if (s.mattes.size() > kMostForegroundLayers)
        throw UsageError("at most " + std::to_string(kMostForegroundLayers) +
                         " --matte options: the engine holds ten layers with the background");
    s.matteShrink = float(line.Number("matte-shrink").value_or(s.matteShrink));
    s.layerSensitivity = float(line.Number("layer-sensitivity").value_or(s.layerSensitivity));
    s.draw = line.Choice("draw").value_or(s.draw);
    if (s.mattes.empty())
        for (const char* layered : {"matte-shrink", "layer-sensitivity", "draw"})
            if (line.Has(layered))
                throw UsageError(std::string("--") + layered +
                                 " needs a foreground layer: give it with --matte");
    s.overwrite = line.Has("overwrite");
    s.quiet = line.Has("quiet");
    s.timing = line.Has("timing");
    s.resume = line.Has("resume");
    s.printFrames = line.Has("print-frames");
    s.threads = ThreadsOption(line);
    s.points = line.Value("points");
    s.pointsOnly = line.Choice("motion").value_or(0) == 1;
    s.showGeometry = line.Has("show-geometry");
    if (!s.points && s.pointsOnly)
        throw UsageError("--motion points needs the points to move by: give --points FILE");
    if (!s.points && s.showGeometry)
        throw UsageError("--show-geometry draws the points of --points FILE: give that too");
    if (auto v = line.Value("channel-mix")) s.channelMix = ParseChannelMix(*v);
    if (auto v = line.Choice("alpha")) s.straightAlpha = *v == 1;
    if (s.resume && s.overwrite)
        throw UsageError("give only one of --resume (keep the frames there) and --overwrite");
    if (s.resume && !SequencePattern::Parse(s.output))
        throw UsageError("--resume needs an image sequence output such as out.%04d.exr; a video "
                         "file cannot be continued");
    if (auto v = line.Value("resize")) s.resize = ParseSize(*v, "--resize");
    if (auto v = line.Value("filter")) {
        if (!s.resize)
            throw UsageError("--filter chooses the kernel of --resize; give --resize too");
        s.filter = ZoomFilterNamed(*v, "--filter").name;
    }
    s.vectors = line.Value("vectors");
    if (auto v = line.Value("vector-scale")) {
        if (!s.vectors)
            throw UsageError(
                "--vector-scale scales the vectors of --vectors PATTERN; give that too");
        ParseNumberPair(*v, "--vector-scale", s.vectorScale);
    }
    if (s.vectors && s.points)
        throw UsageError("give only one of --vectors (motion from files) and --points");
    if (s.input == s.output) throw UsageError("the output must not be the input");
    return s;
}

} // namespace quelmor::cli
