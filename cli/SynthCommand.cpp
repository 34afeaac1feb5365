#include <cstdint>
#include <cstdio>

#include "CommandLine.h"
#include "Commands.h"
#include "Media.h"
#include "Progress.h"
#include "SequencePattern.h"
#include "Synth.h"

namespace quelmor::cli {

namespace {

constexpr OptionSpec kSynthOptions[] = {
    {"frames", true}, {"size", true},       {"steps", true},
    {"depth", true},  {"overwrite", false}, {"quiet", false},
};
constexpr const char* kDepthNames[] = {"8", "16", "half", "float"};

} // namespace

int RunSynth(std::span<const std::string> args) {
    const CommandLine line = ParseCommandLine("synth", args, kSynthOptions);
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
    WriteOptions options;
    options.overwrite = line.Has("overwrite");
    const std::int64_t truthCount = std::int64_t(settings.frames) * settings.truthSteps;
    if (truthCount > kMostFramesPerRun)
        throw UsageError("--frames " + std::to_string(settings.frames) + " with --steps " +
                         std::to_string(settings.truthSteps) + " makes " +
                         std::to_string(truthCount) + " true frames; at most " +
                         std::to_string(kMostFramesPerRun));
    const int truthFrames = int(truthCount);
    CheckOutput(pattern->Text(), 0, settings.frames - 1, options);
    CheckOutput(truth.Text(), 0, truthFrames - 1, options);

    const MediaFormat format{settings.width, settings.height, 3, settings.sample};
    auto source = CreateMedia(pattern->Text(), format, options);
    auto truthWriter = CreateMedia(truth.Text(), format, options);
    Progress progress("synth", settings.frames + truthFrames,
                      Progress::StyleFor(stderr, line.Has("quiet")));
    MediaFrame frame;
    for (int i = 0; i < settings.frames; ++i) {
        RenderSynthFrame(settings, i, frame);
        source->Write(i, frame);
        progress.FrameDone();
    }
    for (int k = 0; k < truthFrames; ++k) {
        RenderSynthFrame(settings, double(k) / settings.truthSteps, frame);
        truthWriter->Write(k, frame);
        progress.FrameDone();
    }
    source->Finish();
    truthWriter->Finish();
    progress.Finish();
    if (!line.Has("quiet"))
        std::printf(
            "source frames: %s (%d frames)\ntrue frames:   %s (%d frames, %d per source frame)\n",
            pattern->Text().c_str(), settings.frames, truth.Text().c_str(), truthFrames,
            settings.truthSteps);
    return 0;
}

} // namespace quelmor::cli
