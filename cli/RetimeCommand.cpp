#include <algorithm>
#include <chrono>
#include <cstdio>
#include <optional>
#include <thread>

#include "cli/Commands.h"
#include "cli/Keyframes.h"
#include "cli/Media.h"
#include "cli/Progress.h"
#include "cli/RetimeEngine.h"
#include "cli/RetimeSettings.h"
#include "cli/StageClock.h"
#include "cli/Timing.h"
#include "cli/WriteBehind.h"
#include "image/Parallel.h"
#include "sparkhost/DirectWorkers.h"

namespace quelmor::cli {

namespace {

Timing TimingOf(const RetimeSettings& s) {
    if (s.speedCurve) return Timing::SpeedCurve(Keyframes::Load(*s.speedCurve));
    if (s.frameCurve) return Timing::FrameCurve(Keyframes::Load(*s.frameCurve));
    return Timing::Constant(*s.speed);
}

// Workers for the row loop: every core, within the slot table's limit.
void SetWorkers(int width, int height) {
    const int workers = std::clamp(int(std::thread::hardware_concurrency()), 1, 64);
    SparkHostUseWorkersDirect(workers, width, height);
}

} // namespace

int RunRetime(std::span<const std::string> args) {
    using Clock = std::chrono::steady_clock;
    const auto started = Clock::now();
    const RetimeSettings s = ParseRetimeSettings(args);
    auto source = OpenMedia(s.input);
    const Timing timing = TimingOf(s);
    std::optional<SparkCurve> scenes;
    if (s.scenes) scenes = SceneCurve(Keyframes::Load(*s.scenes));

    const int count = timing.OutputFrameCount(source->FrameCount());
    if (count <= 0)
        throw MediaError("this timing makes no output frame from the " +
                         std::to_string(source->FrameCount()) + " input frames");
    const int first = source->FirstNumber();
    int from = first, to = LastFrameNumber(first, count);
    if (s.frames) {
        if (s.frames->first < from || s.frames->last > to)
            throw MediaError("--frames " + std::to_string(s.frames->first) + "-" +
                             std::to_string(s.frames->last) + " lies outside the output frames " +
                             std::to_string(from) + "-" + std::to_string(to));
        from = s.frames->first;
        to = s.frames->last;
    }
    WriteOptions options;
    options.overwrite = s.overwrite;
    options.frameRate = s.rate > 0 ? s.rate : source->FrameRate() > 0 ? source->FrameRate() : 25.0;
    CheckOutput(s.output, from, to, options);

    const MediaFormat& format = source->Format();
    SetWorkers(format.width, format.height);
    auto writer = CreateMedia(s.output, format, options);
    StageClock clock;
    CliQuelmor engine(*source, timing, scenes ? &*scenes : nullptr, &clock);
    const EngineSettings settings{s.interpolation, s.vectorQuality, s.motionBlur};

    Progress progress("retime", to - from + 1, Progress::StyleFor(stderr, s.quiet));
    WriteBehind output(*writer, &clock);
    clock.Add(Stage::Start, std::chrono::duration<double>(Clock::now() - started).count());
    for (int number = from; number <= to; ++number) {
        MediaFrame frame;
        {
            const auto timed = TimeStage(&clock, Stage::Engine);
            engine.Render(number - first, settings, frame);
        }
        output.Write(number, std::move(frame));
        progress.FrameDone();
    }
    output.Finish();
    progress.Finish();

    const StageClock::Totals totals{to - from + 1,
                                    std::chrono::duration<double>(Clock::now() - started).count(),
                                    ProcessCpuSeconds()};
    if (!s.quiet) std::fputs(clock.Summary("retime", totals, "the engine").c_str(), stderr);
    if (s.timing) std::fputs(clock.Report(totals, "engine").c_str(), stderr);
    return 0;
}

} // namespace quelmor::cli
