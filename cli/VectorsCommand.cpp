// quelmor vectors: the motion the engine finds between every pair of neighbouring source frames,
// written as vector files (cli/VectorFiles.h) or, with --show, as pictures of it.
//
// Each pair is drawn once at its middle, with the settings `retime` uses, and the engine hands
// over the two flows it computed for it at the frame's size. With flow at the frame's own size
// (--quality full) they are the engine's flows exactly, so a retime by these files makes the same
// frames as one that computes them; at other qualities they are the flows resampled to the frame.
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "cli/EngineOptions.h"
#include "cli/Keyframes.h"
#include "cli/Media.h"
#include "cli/OutputRun.h"
#include "cli/Progress.h"
#include "cli/RetimeEngine.h"
#include "cli/StopSignals.h"
#include "cli/Threads.h"
#include "cli/Timing.h"
#include "cli/VectorFiles.h"
#include "flow/FlowOverlay.h"
#include "sparkhost/DirectWorkers.h"

namespace quelmor::cli {

namespace {

constexpr OptionSpec kVectorsOptions[] = {
    kDirectQualityOption, {"show", false},   {"overwrite", false},
    {"quiet", false},     {"threads", true},
};

// Arrows of the pictures: one every this many pixels, in black.
constexpr int kArrowSpacing = 16;
constexpr uint8_t kArrowColour[4] = {0, 0, 0, 255};

// Output frame i shows the middle of source frames i and i + 1.
Timing PairMiddles(int sourceFrames) {
    const double lastPair = double(sourceFrames - 2);
    const std::string keys =
        "0 0.5\n" + std::to_string(lastPair) + " " + std::to_string(lastPair + 0.5) + "\n";
    return Timing::FrameCurve(Keyframes::Parse(keys, "the pairs of frames"));
}

// The colour wheel of `flow` with arrows over it, as an 8-bit RGBA frame.
void DrawPicture(const DQImage& flow, MediaFrame& picture) {
    picture.Allocate({flow.width, flow.height, 4, SampleType::U8});
    DQImage view(picture.pixels.data(), flow.width, flow.height, int(picture.format.RowBytes()), 4,
                 DQ_UCHAR, 0);
    DrawFlowColours(&view, &flow, 0.0f);
    DrawFlowArrows(&view, &flow, kArrowSpacing, kArrowColour);
}

} // namespace

int RunVectors(std::span<const std::string> args) {
    const CommandLine line = ParseCommandLine("vectors", args, kVectorsOptions);
    if (line.files.size() != 2)
        throw UsageError("quelmor vectors wants an input and an output, such as in.%04d.exr "
                         "vectors.%04d.exr");
    const std::string& input = line.files[0];
    const std::string& output = line.files[1];
    if (input == output) throw UsageError("the output must not be the input");
    const bool show = line.Has("show");
    const bool quiet = line.Has("quiet");
    const bool overwrite = line.Has("overwrite");
    const int quality = line.Choice("quality").value_or(4);
    if (quality == 0) throw UsageError("--quality none computes no vectors");
    const int threads = ThreadsOption(line);
    SetCodecThreads(threads);
    std::optional<VectorSequence> files;
    if (!show) files.emplace(output, "quelmor vectors");

    auto source = OpenMedia(input);
    const int count = source->FrameCount();
    if (count < 2)
        throw MediaError(input + " holds " + std::to_string(count) +
                         " frame; vectors need two frames or more");
    const MediaFormat& format = source->Format();
    CheckEngineFrameSize(format, quality);
    const int first = source->FirstNumber();
    const int last = LastFrameNumber(first, count);

    // Pictures go out as any clip does; vector files through their own writer. Both put their
    // files in place only when every pair is done.
    std::optional<OutputRun> pictures;
    std::optional<VectorWriter> writer;
    std::optional<StopSignals> signals;
    if (show) {
        OutputPlan plan{input, output, {first, last - 1}, {first, last - 1}, overwrite, false};
        pictures.emplace(plan, MediaFormat{format.width, format.height, 4, SampleType::U8}, nullptr,
                         threads);
    } else {
        CheckOutputIsNotInput(input, output);
        writer.emplace(*files, first, last, overwrite);
        signals.emplace();
    }

    SparkHostUseWorkersDirect(threads, format.width, format.height);
    const Timing timing = PairMiddles(count);
    CliQuelmor engine(*source, timing, nullptr);
    engine.KeepExtraChannels(false);
    const EngineSettings settings{.interpolation = 1, .vectorQuality = quality};
    DQImagePtr forward = DQMakeImage(format.width, format.height, 2, DQ_FLOAT);
    DQImagePtr backward = DQMakeImage(format.width, format.height, 2, DQ_FLOAT);
    DQImagePtr backwardBefore; // the backward vectors of the pair's first frame

    Progress progress("vectors", count - 1, Progress::StyleFor(stderr, quiet));
    for (int pair = 0; pair + 1 < count; ++pair) {
        MediaFrame drawn;
        engine.Render(pair, settings, drawn);
        int frameA = -1;
        const int code = engine.GetPairFlows(forward.get(), backward.get(), &frameA);
        if (code != 0 || frameA != pair)
            throw MediaError("the engine kept no vectors for frames " +
                             std::to_string(first + pair) + " and " +
                             std::to_string(first + pair + 1));
        if (pictures) {
            MediaFrame picture;
            DrawPicture(*forward, picture);
            pictures->Write(first + pair, std::move(picture));
        } else {
            if (const int signal = StopSignals::Received())
                throw Interrupted(signal, "interrupted by " + StopSignals::Name(signal) +
                                              ": no vector file written");
            writer->Write(first + pair, forward.get(), backwardBefore.get());
            if (!backwardBefore)
                backwardBefore = DQMakeImage(format.width, format.height, 2, DQ_FLOAT);
            backwardBefore->CopyWhole(backward.get());
        }
        progress.FrameDone();
    }
    if (pictures) pictures->Finish();
    if (writer) {
        writer->Write(last, nullptr, backwardBefore.get());
        writer->Finish();
    }
    progress.Finish();
    return 0;
}

} // namespace quelmor::cli
