#include "RetimeSettings.h"

#include "SequencePattern.h"
#include "Threads.h"

namespace quelmor::cli {

namespace {

constexpr OptionSpec kRetimeOptions[] = {
    {"speed", true},   {"speed-curve", true},   {"frame-curve", true}, {"scenes", true},
    {"frames", true},  {"interpolation", true}, {"quality", true},     {"motion-blur", true},
    {"rate", true},    {"overwrite", false},    {"quiet", false},      {"timing", false},
    {"resume", false}, {"print-frames", false}, {"threads", true},
};
constexpr const char* kInterpolations[] = {"nearest", "blend", "weighted"};
constexpr const char* kQualities[] = {"none", "sloppy", "medium", "high", "best"};

} // namespace

RetimeSettings ParseRetimeSettings(std::span<const std::string> args) {
    const CommandLine line = ParseCommandLine("retime", args, kRetimeOptions);
    if (line.files.size() != 2)
        throw UsageError(
            "quelmor retime wants an input and an output, such as in.%04d.exr out.%04d.exr");
    RetimeSettings s;
    s.input = line.files[0];
    s.output = line.files[1];
    if (auto v = line.Value("speed")) s.speed = ParsePositive(*v, "--speed");
    s.speedCurve = line.Value("speed-curve");
    s.frameCurve = line.Value("frame-curve");
    s.scenes = line.Value("scenes");
    const int timings =
        int(s.speed.has_value()) + int(s.speedCurve.has_value()) + int(s.frameCurve.has_value());
    if (timings == 0)
        throw UsageError("quelmor retime needs --speed, --speed-curve or --frame-curve");
    if (timings > 1) throw UsageError("give only one of --speed, --speed-curve and --frame-curve");
    if (auto v = line.Value("frames")) s.frames = ParseFrameRange(*v);
    if (auto v = line.Value("interpolation"))
        s.interpolation = ParseChoice(*v, "--interpolation", kInterpolations);
    if (auto v = line.Value("quality")) s.vectorQuality = ParseChoice(*v, "--quality", kQualities);
    if (auto v = line.Value("motion-blur")) {
        s.motionBlur = float(ParseNonNegative(*v, "--motion-blur"));
        if (s.motionBlur > 5.0f) throw UsageError("--motion-blur must be 5 or less, got " + *v);
    }
    if (auto v = line.Value("rate")) s.rate = ParsePositive(*v, "--rate");
    s.overwrite = line.Has("overwrite");
    s.quiet = line.Has("quiet");
    s.timing = line.Has("timing");
    s.resume = line.Has("resume");
    s.printFrames = line.Has("print-frames");
    s.threads = ThreadsOption(line);
    if (s.resume && s.overwrite)
        throw UsageError("give only one of --resume (keep the frames there) and --overwrite");
    if (s.resume && !SequencePattern::Parse(s.output))
        throw UsageError("--resume needs an image sequence output such as out.%04d.exr; a video "
                         "file cannot be continued");
    if (s.input == s.output) throw UsageError("the output must not be the input");
    return s;
}

} // namespace quelmor::cli
