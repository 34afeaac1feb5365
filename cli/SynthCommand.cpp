#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "CommandLine.h"
#include "Commands.h"
#include "Media.h"
#include "Progress.h"
#include "SequencePattern.h"
#include "StopSignals.h"
#include "Synth.h"
#include "Threads.h"

namespace quelmor::cli {

namespace {

constexpr OptionSpec kSynthOptions[] = {
    {"frames", true},     {"size", true},   {"steps", true},   {"depth", true},
    {"overwrite", false}, {"quiet", false}, {"threads", true}, {"points", true},
};
constexpr const char* kDepthNames[] = {"8", "16", "half", "float"};

// Writes the true motion of points of the scene beside the clip, whole or not at all.
void WritePointsFile(const std::string& path, const SynthSettings& settings) {
    const std::string part = path + ".part";
    {
        std::ofstream out(part, std::ios::trunc);
        out << SynthPointsText(settings);
        out.close();
        if (!out) {
            std::filesystem::remove(part);
            throw MediaError("cannot write the points file " + path);
        }
    }
    std::error_code error;
    std::filesystem::rename(part, path, error);
    if (error) {
        std::filesystem::remove(part);
        throw MediaError("cannot write the points file " + path + ": " + error.message());
    }
}

// The matte of every foreground object at `time`: white where one covers the pixel's centre, in
// the clip's sample type. `labels` is scratch.
void RenderSynthMatte(const SynthSettings& settings, double time, MediaFrame& labels,
                      MediaFrame& out) {
    RenderSynthLabels(settings, time, labels);
    for (std::uint8_t& v : labels.pixels)
        v = v != 0 ? 255 : 0;
    ConvertFrame(labels, MediaFormat{settings.width, settings.height, 1, settings.sample}, out);
}

} // namespace

int RunSynth(std::span<const std::string> args) {
    const CommandLine line = ParseCommandLine("synth", args, kSynthOptions);
    const int threads = ThreadsOption(line);
    if (line.files.size() != 1)
        throw UsageError("quelmor synth wants one output, such as synth/clip.%04d.png");
    const std::string output = line.files[0];
    const auto pattern = SequencePattern::Parse(output);
    if (!pattern)
        throw UsageError(
            "the output of quelmor synth must be an image sequence such as synth/clip.%04d.png");

    SynthSettings settings;
    if (auto v = line.Value("frames")) settings.frames = ParseCount(*v, "--frames");
    if (auto v = line.Value("steps")) settings.truthSteps = ParseCount(*v, "--steps");
    if (auto v = line.Value("size")) {
        const Size s = ParseSize(*v);
        settings.width = s.width;
        settings.height = s.height;
    }
    const std::string ext = ExtensionOf(output);
    settings.sample = ext == "exr" ? SampleType::Half : SampleType::U8;
    if (auto v = line.Value("depth"))
        settings.sample = SampleType(ParseChoice(*v, "--depth", kDepthNames));

    const SequencePattern truth = pattern->WithNamePrefix("true_");
    const SequencePattern matte = pattern->WithNamePrefix("matte_");
    WriteOptions options;
    options.overwrite = line.Has("overwrite");
    const std::int64_t truthCount = std::int64_t(settings.frames) * settings.truthSteps;
    if (truthCount > kMostFramesPerRun)
        throw UsageError("--frames " + std::to_string(settings.frames) + " with --steps " +
                         std::to_string(settings.truthSteps) + " makes " +
                         std::to_string(truthCount) + " true frames; at most " +
                         std::to_string(kMostFramesPerRun));
    const int truthFrames = int(truthCount);
    WriteOptions truthOptions = options;
    options.whole = FrameSpan{0, settings.frames - 1};
    truthOptions.whole = FrameSpan{0, truthFrames - 1};
    CheckOutput(pattern->Text(), 0, settings.frames - 1, options);
    CheckOutput(truth.Text(), 0, truthFrames - 1, truthOptions);
    const std::optional<std::string> points = line.Value("points");
    if (points && !options.overwrite && std::filesystem::exists(*points))
        throw UsageError(*points + " exists; give --overwrite to replace it");
    CheckOutput(matte.Text(), 0, settings.frames - 1, options);

    const MediaFormat format{settings.width, settings.height, 3, settings.sample};
    // A stop signal ends the run between frames, and the writers remove what they wrote.
    const StopSignals signals;
    auto stopWhenAsked = [] {
        if (const int signal = StopSignals::Received())
            throw Interrupted(signal,
                              "interrupted by " + StopSignals::Name(signal) + ": no frame written");
    };
    auto source = CreateMedia(pattern->Text(), format, options);
    auto truthWriter = CreateMedia(truth.Text(), format, truthOptions);
    const MediaFormat matteFormat{settings.width, settings.height, 1, settings.sample};
    auto matteWriter = CreateMedia(matte.Text(), matteFormat, options);
    Progress progress("synth", settings.frames + truthFrames,
                      Progress::StyleFor(stderr, line.Has("quiet")));
    // Source frames, then true frames, one frame a job on every thread; the writers take frames
    // from several threads at once and in any order.
    const int jobs = settings.frames + truthFrames;
    std::atomic<int> next{0};
    std::mutex mutex; // guards the progress and the failure
    std::exception_ptr failure;
    int failedJob = jobs;
    auto work = [&] {
        MediaFrame frame, labels, matteFrame;
        for (int job = next++; job < jobs; job = next++) {
            try {
                if (job < settings.frames) {
                    RenderSynthFrame(settings, job, frame);
                    source->Write(job, frame);
                    RenderSynthMatte(settings, job, labels, matteFrame);
                    matteWriter->Write(job, matteFrame);
                } else {
                    const int k = job - settings.frames;
                    RenderSynthFrame(settings, double(k) / settings.truthSteps, frame);
                    truthWriter->Write(k, frame);
                }
            } catch (...) {
                std::lock_guard lock(mutex);
                if (job < failedJob) {
                    failure = std::current_exception();
                    failedJob = job;
                }
                next = jobs; // the other threads stop after their frame in hand
                return;
            }
            std::lock_guard lock(mutex);
            progress.FrameDone();
            if (StopSignals::Received()) next = jobs; // every thread stops after its frame
        }
    };
    {
        std::vector<std::jthread> helpers;
        for (int i = 1; i < std::min(threads, jobs); ++i)
            helpers.emplace_back(work);
        work();
    }
    if (failure) std::rethrow_exception(failure);
    stopWhenAsked();
    source->Finish();
    truthWriter->Finish();
    matteWriter->Finish();
    if (points) WritePointsFile(*points, settings);
    progress.Finish();
    if (!line.Has("quiet"))
        std::printf("source frames: %s (%d frames)\ntrue frames:   %s (%d frames, %d per source "
                    "frame)\nmattes:        %s (the foreground objects at each source frame)\n",
                    pattern->Text().c_str(), settings.frames, truth.Text().c_str(), truthFrames,
                    settings.truthSteps, matte.Text().c_str());
    if (points && !line.Has("quiet")) std::printf("true motion:   %s\n", points->c_str());
    return 0;
}

} // namespace quelmor::cli
