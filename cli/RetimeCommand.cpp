#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "cli/ChannelMix.h"
#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "cli/FrameResize.h"
#include "cli/Keyframes.h"
#include "cli/Media.h"
#include "cli/OutputRun.h"
#include "cli/PointTracks.h"
#include "cli/Progress.h"
#include "cli/RetimeEngine.h"
#include "cli/RetimeSettings.h"
#include "cli/SequencePattern.h"
#include "cli/StageClock.h"
#include "cli/Timing.h"
#include "cli/VideoFile.h"
#include "image/Parallel.h"
#include "sparkhost/DirectWorkers.h"

namespace quelmor::cli {

namespace {

// Frames per second of the input: given, or as the file says; 0 when neither says.
double InputRate(const RetimeSettings& s, const MediaReader& source) {
    return s.inputFps ? *s.inputFps : source.FrameRate();
}

// Source frames per output frame: given, or from the output's rate at the input's pace.
std::optional<double> ConstantSpeed(const RetimeSettings& s, const MediaReader& source) {
    if (s.speed) return s.speed;
    if (!s.fps) return std::nullopt;
    const double input = InputRate(s, source);
    if (!(input > 0))
        throw UsageError("--fps needs the input's frame rate, which " + s.input +
                         " does not hold: give it with --input-fps");
    return input / *s.fps;
}

Timing TimingOf(const RetimeSettings& s, const MediaReader& source) {
    if (s.speedCurve) return Timing::SpeedCurve(Keyframes::Load(*s.speedCurve));
    if (s.frameCurve) return Timing::FrameCurve(Keyframes::Load(*s.frameCurve));
    return Timing::Constant(*ConstantSpeed(s, source));
}

// The output frames from `from` to `to` still to render: all of them, or with `resume` those that
// are not in the output sequence yet.
std::vector<int> FramesToRender(const RetimeSettings& s, int from, int to) {
    std::vector<char> there(std::size_t(to - from + 1), 0);
    if (s.resume)
        for (int number : SequencePattern::Parse(s.output)->FindFrames())
            if (number >= from && number <= to) there[std::size_t(number - from)] = 1;
    std::vector<int> numbers;
    for (int number = from; number <= to; ++number)
        if (!there[std::size_t(number - from)]) numbers.push_back(number);
    return numbers;
}

// The points file of the run, refused when it names a frame the input does not have.
std::optional<PointTracks> LoadPoints(const RetimeSettings& s, const MediaReader& source) {
    if (!s.points) return std::nullopt;
    const int first = source.FirstNumber(), last = first + source.FrameCount() - 1;
    PointTracks tracks =
        PointTracks::Load(*s.points, {.firstNumber = first, .height = source.Format().height});
    const auto refuse = [&](int frame, int line) {
        throw MediaError(*s.points + " line " + std::to_string(line) + ": frame " +
                         std::to_string(frame) + " lies outside the input's frames " +
                         std::to_string(first) + "-" + std::to_string(last));
    };
    if (tracks.FirstFrame() < first) refuse(tracks.FirstFrame(), tracks.FirstFrameLine());
    if (tracks.LastFrame() > last) refuse(tracks.LastFrame(), tracks.LastFrameLine());
    return tracks;
}

// The matte clip of each --matte, frontmost first; null where the input's own alpha is the matte.
// A clip of another frame size, or shorter than the input, is refused before anything is written.
std::vector<std::unique_ptr<MediaReader>> OpenMattes(const RetimeSettings& s,
                                                     const MediaFormat& input) {
    std::vector<std::unique_ptr<MediaReader>> clips;
    for (const std::string& matte : s.mattes) {
        if (matte == "alpha") {
            if (input.channels != 4 && input.channels != 2)
                throw MediaError("--matte alpha needs an input with alpha; " + s.input +
                                 " has none");
            clips.push_back(nullptr);
            continue;
        }
        auto clip = OpenMedia(matte);
        if (!clip->Format().SameSize(input))
            throw MediaError("the matte " + matte + " is " + std::to_string(clip->Format().width) +
                             "x" + std::to_string(clip->Format().height) + ", the input " +
                             std::to_string(input.width) + "x" + std::to_string(input.height));
        clips.push_back(std::move(clip));
    }
    return clips;
}

// The input whose sound a video output carries: the input itself, when it has sound that the
// output's container can hold and the output plays at the input's pace (the same length, only
// another frame rate). Otherwise the sound is left out, with a note.
std::string AudioToCarry(const RetimeSettings& s, const OutputPlan& plan,
                         std::optional<double> speed) {
    if (!IsVideoPath(s.input) || !IsVideoPath(s.output)) return "";
    const std::string codec = AudioOf(s.input, s.output);
    if (codec.empty()) return "";
    const bool samePace = speed && plan.sourceRate > 0 &&
                          std::fabs(*speed * plan.frameRate / plan.sourceRate - 1.0) < 1e-6;
    const char* why = !samePace         ? "the output plays at another speed"
                      : codec[0] == '!' ? "its codec cannot go into this container"
                                        : nullptr;
    if (!why) return s.input;
    if (!s.quiet)
        std::fprintf(stderr, "retime: the sound of %s (%s) is left out: %s\n", s.input.c_str(),
                     codec.c_str() + (codec[0] == '!'), why);
    return "";
}

// The vectors of --vectors, checked before anything is written: the files must cover every pair of
// source frames that the output frames `numbers` show, at the input's size.
std::optional<VectorReader> OpenVectors(const RetimeSettings& s, const MediaReader& source,
                                        const Timing& timing, const std::vector<int>& numbers) {
    if (!s.vectors) return std::nullopt;
    VectorSequence files(*s.vectors, "--vectors");
    const int first = source.FirstNumber(), last = source.FrameCount() - 1;
    int low = last, high = 0;
    for (const int number : numbers) {
        const float t = timing.SourceTime(float(number - first));
        const int a = std::clamp(int(std::floor(t)), 0, last);
        low = std::min(low, a);
        high = std::max(high, std::min(a + 1, last));
    }
    const MediaFormat& format = source.Format();
    if (low <= high) files.CheckCovers(first + low, first + high, format.width, format.height);
    return std::optional<VectorReader>(std::in_place, std::move(files), format.width,
                                       format.height);
}

std::string ChannelList(const std::vector<std::string>& names) {
    std::string list;
    for (const std::string& name : names)
        list.append(list.empty() ? "" : ", ").append(name);
    return list;
}

} // namespace

int RunRetime(std::span<const std::string> args) {
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    const RetimeSettings s = ParseRetimeSettings(args);
    SetCodecThreads(s.threads);
    auto source = OpenMedia(s.input);
    const Timing timing = TimingOf(s, *source);
    std::optional<SparkCurve> scenes;
    if (s.scenes) scenes = SceneCurve(Keyframes::Load(*s.scenes));
    const std::optional<PointTracks> points = LoadPoints(s, *source);

    const int count = timing.OutputFrameCount(source->FrameCount());
    if (count <= 0)
        throw MediaError("this timing makes no output frame from the " +
                         std::to_string(source->FrameCount()) + " input frames");
    const int first = source->FirstNumber();
    int from = first, to = LastFrameNumber(first, count);
    const FrameSpan whole{from, to};
    if (s.frames) {
        if (s.frames->first < from || s.frames->last > to)
            throw MediaError("--frames " + std::to_string(s.frames->first) + "-" +
                             std::to_string(s.frames->last) + " lies outside the output frames " +
                             std::to_string(from) + "-" + std::to_string(to));
        from = s.frames->first;
        to = s.frames->last;
    }
    CheckEngineFrameSize(source->Format(), s.vectorQuality);
    OutputPlan plan{s.input, s.output, whole, {from, to}, s.overwrite, s.resume};
    plan.sourceRate = InputRate(s, *source);
    plan.frameRate = s.fps                 ? *s.fps
                     : s.rate > 0          ? s.rate
                     : plan.sourceRate > 0 ? plan.sourceRate
                                           : 25.0;
    // The output shows moments of the source this many times a second of its time.
    if (const auto speed = ConstantSpeed(s, *source))
        plan.captureRate = (plan.sourceRate > 0 ? plan.sourceRate : plan.frameRate) / *speed;
    if (s.printFrames) {
        CheckOutputIsNotInput(plan.input, plan.output);
        CheckOutput(s.output, from, to, plan.Options());
        std::printf("%d-%d\n", from, to);
        return 0;
    }
    plan.audioFrom = AudioToCarry(s, plan, ConstantSpeed(s, *source));
    const std::vector<int> numbers = FramesToRender(s, from, to);
    const int rendered = int(numbers.size());
    if (s.resume && !s.quiet)
        std::fprintf(stderr, "retime: %d of the %d output frames %d-%d are there, %d to render\n",
                     to - from + 1 - rendered, to - from + 1, from, to, rendered);
    if (rendered == 0) return 0;
    std::optional<VectorReader> vectors = OpenVectors(s, *source, timing, numbers);

    const MediaFormat& format = source->Format();
    const std::vector<ChannelMix> mixes = MixOfChannels(format.extras, s.channelMix);
    // The picture is mixed in the input's own alpha convention; the writer changes it where the
    // output's format holds the other.
    MediaFormat taken = format;
    if (s.straightAlpha && taken.HasAlpha())
        taken.alpha = *s.straightAlpha ? AlphaConvention::Straight : AlphaConvention::Premultiplied;
    std::optional<FrameResizer> resizer;
    if (s.resize) resizer.emplace(ZoomFilterNamed(s.filter, "--filter"), *s.resize);
    StageClock clock;
    OutputRun output(plan, resizer ? resizer->Resized(taken) : taken, &clock, s.threads);
    // Extra channels go only into EXR, and only at the input's size.
    const bool keepsExtras = ExtensionOf(s.output) == "exr" && !resizer;
    if (!format.extras.empty() && !keepsExtras && !s.quiet)
        std::fprintf(stderr, "retime: the input's channels %s are left out: %s\n",
                     ChannelList(format.extras).c_str(),
                     resizer ? "--resize zooms the picture only"
                             : "the output's format keeps only the picture");

    SparkHostUseWorkersDirect(s.threads, format.width, format.height);
    CliQuelmor engine(*source, timing, scenes ? &*scenes : nullptr, &clock);
    engine.SetChannelMix(mixes);
    engine.KeepExtraChannels(keepsExtras);
    if (points)
        engine.UseGeometry({.tracks = &*points,
                            .firstNumber = first,
                            .only = s.pointsOnly,
                            .show = s.showGeometry});
    const std::vector<std::unique_ptr<MediaReader>> matteClips = OpenMattes(s, format);
    std::vector<MediaReader*> mattes;
    for (const auto& clip : matteClips)
        mattes.push_back(clip.get());
    engine.SetMattes(std::move(mattes));
    if (vectors) engine.UseVectors(&*vectors, first, s.vectorScale[0], s.vectorScale[1]);
    const EngineSettings settings{.interpolation = s.interpolation,
                                  .vectorQuality = s.vectorQuality,
                                  .motionBlur = s.motionBlur,
                                  .warping = s.warping,
                                  .foregroundLayers = int(s.mattes.size()),
                                  .matteShrink = s.matteShrink,
                                  .layerSensitivity = s.layerSensitivity,
                                  .draw = s.draw};

    Progress progress("retime", rendered, Progress::StyleFor(stderr, s.quiet));
    clock.Add(Stage::Start, std::chrono::duration<double>(Clock::now() - started).count());
    for (const int number : numbers) {
        MediaFrame frame;
        {
            const auto timed = TimeStage(&clock, Stage::Engine);
            engine.Render(number - first, settings, frame);
            if (resizer) {
                MediaFrame resized;
                resizer->Resize(frame, resized);
                frame = std::move(resized);
            }
        }
        output.Write(number, std::move(frame));
        progress.FrameDone();
    }
    output.Finish();
    progress.Finish();

    const StageClock::Totals totals{rendered,
                                    std::chrono::duration<double>(Clock::now() - started).count(),
                                    ProcessCpuSeconds()};
    if (!s.quiet) std::fputs(clock.Summary("retime", totals, "the engine").c_str(), stderr);
    if (s.timing) std::fputs(clock.Report(totals, "engine").c_str(), stderr);
    return 0;
}

} // namespace quelmor::cli
