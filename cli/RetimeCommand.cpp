#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

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
#include "image/Parallel.h"
#include "sparkhost/DirectWorkers.h"

namespace quelmor::cli {

namespace {

Timing TimingOf(const RetimeSettings& s) {
    if (s.speedCurve) return Timing::SpeedCurve(Keyframes::Load(*s.speedCurve));
    if (s.frameCurve) return Timing::FrameCurve(Keyframes::Load(*s.frameCurve));
    return Timing::Constant(*s.speed);
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
    PointTracks tracks = PointTracks::Load(*s.points);
    const int first = source.FirstNumber(), last = first + source.FrameCount() - 1;
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

} // namespace

int RunRetime(std::span<const std::string> args) {
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    const RetimeSettings s = ParseRetimeSettings(args);
    SetCodecThreads(s.threads);
    auto source = OpenMedia(s.input);
    const Timing timing = TimingOf(s);
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
    plan.frameRate = s.rate > 0 ? s.rate : source->FrameRate() > 0 ? source->FrameRate() : 25.0;
    if (s.printFrames) {
        CheckOutputIsNotInput(plan.input, plan.output);
        CheckOutput(s.output, from, to, plan.Options());
        std::printf("%d-%d\n", from, to);
        return 0;
    }
    const std::vector<int> numbers = FramesToRender(s, from, to);
    const int rendered = int(numbers.size());
    if (s.resume && !s.quiet)
        std::fprintf(stderr, "retime: %d of the %d output frames %d-%d are there, %d to render\n",
                     to - from + 1 - rendered, to - from + 1, from, to, rendered);
    if (rendered == 0) return 0;

    const MediaFormat& format = source->Format();
    std::optional<FrameResizer> resizer;
    if (s.resize) resizer.emplace(ZoomFilterNamed(s.filter, "--filter"), *s.resize);
    StageClock clock;
    OutputRun output(plan, resizer ? resizer->Resized(format) : format, &clock, s.threads);

    SparkHostUseWorkersDirect(s.threads, format.width, format.height);
    CliQuelmor engine(*source, timing, scenes ? &*scenes : nullptr, &clock);
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
