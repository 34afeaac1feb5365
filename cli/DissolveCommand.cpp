// quelmor dissolve: a transition between two shots made with the flow dissolve. The last frame of
// the first shot and the first frame of the second are matched by dense flow both ways, and the
// frames between them are mixed with both pictures pulled along the flows to each moment, so that
// the first shot morphs into the second.
#include <cstdio>
#include <memory>
#include <string>

#include "cli/CommandLine.h"
#include "cli/Commands.h"
#include "cli/Media.h"
#include "cli/Progress.h"
#include "cli/Threads.h"
#include "engine/FlowDissolve.h"
#include "flow/Flow.h"
#include "image/DQImage.h"
#include "image/Error.h"
#include "sparkhost/DirectWorkers.h"

namespace quelmor::cli {

namespace {

constexpr OptionSpec kDissolveOptions[] = {
    {"frames", true}, {"mode", true}, {"overwrite", false}, {"quiet", false}, {"threads", true},
};

// Mode names in the order of the dissolve's mode numbers.
constexpr const char* kModeNames[] = {"nearest", "nearer", "plain",      "warp",
                                      "marks",   "bands",  "still-bands"};

// The flows are solved on frames halved once, as the engine's "Best" vectors are.
constexpr int kFlowReduction = 1;
constexpr int kFlowMinLevelSize = 2;

MediaFrame ReadFrame(const std::string& path, bool last) {
    auto reader = OpenMedia(path);
    if (reader->FrameCount() < 1) throw MediaError(path + " holds no frame");
    MediaFrame frame;
    reader->Read(last ? reader->FrameCount() - 1 : 0, frame);
    return frame;
}

DQImage View(MediaFrame& frame) {
    const MediaFormat& f = frame.format;
    return DQImage(frame.pixels.data(), f.width, f.height, int(f.RowBytes()), f.channels, DQ_UCHAR,
                   0);
}

} // namespace

int RunDissolve(std::span<const std::string> args) {
    const CommandLine line = ParseCommandLine("dissolve", args, kDissolveOptions);
    if (line.files.size() != 3)
        throw UsageError("quelmor dissolve wants two shots and an output, such as "
                         "a.%04d.png b.%04d.png out.%04d.png");
    const std::string& firstShot = line.files[0];
    const std::string& secondShot = line.files[1];
    const std::string& output = line.files[2];
    if (output == firstShot || output == secondShot)
        throw UsageError("the output must not be one of the shots");
    const int frames = line.Has("frames") ? ParseCount(*line.Value("frames"), "--frames") : 12;
    if (frames > 100000) throw UsageError("--frames must be 100000 or less");
    int mode = kDQDissolveMode5;
    if (auto v = line.Value("mode")) mode = ParseChoice(*v, "--mode", kModeNames);
    const int threads = ThreadsOption(line);
    SetCodecThreads(threads);

    WriteOptions options;
    options.overwrite = line.Has("overwrite");
    options.whole = FrameSpan{0, frames - 1};
    CheckOutput(output, 0, frames - 1, options);

    // The end of the first shot and the start of the second, as 8-bit RGBA.
    const MediaFrame endOfA = ReadFrame(firstShot, true);
    const MediaFrame startOfB = ReadFrame(secondShot, false);
    const MediaFormat& shape = endOfA.format;
    if (!shape.SameSize(startOfB.format))
        throw MediaError("the shots differ in size: " + std::to_string(shape.width) + "x" +
                         std::to_string(shape.height) + " and " +
                         std::to_string(startOfB.format.width) + "x" +
                         std::to_string(startOfB.format.height));
    const MediaFormat working{shape.width, shape.height, 4, SampleType::U8};
    MediaFrame a, b, mixed;
    ConvertFrame(endOfA, working, a);
    ConvertFrame(startOfB, working, b);
    mixed.Allocate(working);
    SparkHostUseWorkersDirect(threads, shape.width, shape.height);

    DQImage imageA = View(a), imageB = View(b), dest = View(mixed);
    auto writer =
        CreateMedia(output, {shape.width, shape.height, shape.channels, SampleType::U8}, options);
    Progress progress("dissolve", frames, Progress::StyleFor(stderr, line.Has("quiet")));
    try {
        DQOpticalFlowUChar flow(0, shape.width, shape.height, kFlowReduction, 0, 0,
                                kFlowMinLevelSize);
        if (flow.error) DQThrow(flow.error);
        DQImagePtr aToB = DQMakeImage(flow.width, flow.height, 2, DQ_FLOAT);
        DQImagePtr bToA = DQMakeImage(flow.width, flow.height, 2, DQ_FLOAT);
        flow.ComputeFlow(aToB.get(), &imageA, &imageB, 1, 1, 0, nullptr);
        flow.SwapImages();
        flow.SolveLoadedFlow(bToA.get(), 1, 0, nullptr);
        flow.SwapImages();

        MediaFrame frame;
        for (int i = 0; i < frames; ++i) {
            // Share of the first shot, from just below 1 to just above 0.
            const float t = 1.0f - float(i + 1) / float(frames + 1);
            DQFlowDissolve(&dest, &imageA, aToB.get(), &imageB, bToA.get(), mode, t);
            ConvertFrame(mixed, writer->Format(), frame);
            writer->Write(i, frame);
            progress.FrameDone();
        }
    } catch (DQErr code) {
        throw MediaError(code == kDQErrMemory
                             ? std::string("out of memory making the dissolve")
                             : "the dissolve failed (error " + std::to_string(int(code)) + ")");
    }
    writer->Finish();
    progress.Finish();
    return 0;
}

} // namespace quelmor::cli
