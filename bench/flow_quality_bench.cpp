// Quality of a rebuilt middle frame on the Middlebury pairs: both flows at "Best" (reduction 1)
// with sensitivity 0.7, each frame pulled half-way by the inverse warp and the two mixed 50/50,
// scored by PSNR and SSIM (luma) against the true in-between frame beside a plain 50/50 blend.
// With OpenCV, the flows of DIS (medium preset) go through the same warp and mix, so that the
// flows are compared on equal terms: "dis" at full size, "dis_half" on the frames reduced as
// "Best" reduces them, its flows at half size like ours and read by the warp through the size
// ratio, so that the two methods meet at equal flow size.
//
// psnrY_* is the PSNR of luma alone. Where it ranks the methods differently from the colour PSNR,
// the flow puts the detail in place but the colour of the true frame does not follow it (Walking:
// its fine colour detail matches the two frames laid over each other, as a blend has it, better
// than either frame moved half-way).
//
//   flow_quality_bench          one row per sequence, then the means
#include "FlowBenchSupport.h"
#include "ImageMetrics.h"

#include <benchmark/benchmark.h>

#include <string>

#ifdef QUELMOR_HAVE_OPENCV
#include "DisReference.h"
#endif

namespace {

using namespace quelmor::bench;

void Mix(DQImage* out, const DQImage* a, const DQImage* b) {
    for (int y = 0; y < out->height; ++y)
        for (int x = 0; x < 4 * out->width; ++x)
            out->Row<uint8_t>(y)[x] = static_cast<uint8_t>(
                (int(a->Row<uint8_t>(y)[x]) + int(b->Row<uint8_t>(y)[x]) + 1) / 2);
}

// The middle frame from a pair of flows: at the middle pixel x, A(x + 0.5 backward(x)) and
// B(x + 0.5 forward(x)), mixed 50/50.
void MiddleFrame(DQImage* out, DQImage* a, DQImage* b, DQImage* forward, DQImage* backward) {
    Owned fromA(new DQImage(a->width, a->height, 4, DQ_UCHAR, 0));
    Owned fromB(new DQImage(a->width, a->height, 4, DQ_UCHAR, 0));
    DQWarpInverse(fromA.get(), a, backward, 1, nullptr, 1, 0.5f);
    DQWarpInverse(fromB.get(), b, forward, 1, nullptr, 1, 0.5f);
    Mix(out, fromA.get(), fromB.get());
}

const char* const kSequences[] = {"Beanbags", "Dimetrodon", "DogDance",   "Grove2",
                                  "Grove3",   "Hydrangea",  "MiniCooper", "RubberWhale",
                                  "Urban2",   "Urban3",     "Venus",      "Walking"};

// Scores of the sequences run so far, for the mean row.
struct QualityTotals {
    ScoreMean blend, flow, dis, disHalf;
} gTotals;

void Report(benchmark::State& state, const char* name, const FrameScore& s) {
    state.counters[std::string("psnr_") + name] = s.psnr;
    state.counters[std::string("psnrY_") + name] = s.psnrLuma;
    state.counters[std::string("ssim_") + name] = s.ssimLuma;
}

#ifdef QUELMOR_HAVE_OPENCV
// A frame reduced once as the flow object reduces its input at "Best": the binomial filter, then
// the bilinear resize to half the size.
Owned HalfSize(const DQImage& frame) {
    Owned smoothed(new DQImage(frame.width, frame.height, 4, DQ_UCHAR, 0));
    smoothed->CopyWhole(&frame);
    Blur5(smoothed.get());
    Owned half(new DQImage(frame.width / 2, frame.height / 2, 4, DQ_UCHAR, 0));
    ResizeBilinear(half.get(), smoothed.get());
    return half;
}

// Scores the middle frame made with a pair of DIS flows under `name`.
void ScoreDis(benchmark::State& state, const char* name, const DisFlows& flows, DQImage* a,
              DQImage* b, const DQImage& truth, DQImage* mixed, ScoreMean* total) {
    Owned forward = ToFlowImage(flows.aToB), backward = ToFlowImage(flows.bToA);
    MiddleFrame(mixed, a, b, forward.get(), backward.get());
    const FrameScore score = Score(*mixed, truth);
    Report(state, name, score);
    total->Add(score);
}
#endif

void BM_MiddleburyQuality(benchmark::State& state) {
    const std::filesystem::path dir = DataDir() / "middlebury" / kSequences[state.range(0)];
    Owned a = ReadRGBA(dir / "frame10.png"), b = ReadRGBA(dir / "frame11.png");
    Owned truth = ReadRGBA(dir / "frame10i11.png");
    if (!a || !b || !truth) {
        state.SkipWithError("Middlebury frames not found");
        return;
    }
    state.SetLabel(kSequences[state.range(0)]);
    const int w = a->width, h = a->height;
    SetWorkers(w, h);
    Owned blend(new DQImage(w, h, 4, DQ_UCHAR, 0)), mixed(new DQImage(w, h, 4, DQ_UCHAR, 0));
    for (auto _ : state) {
        DQOpticalFlowUChar flow(0, w, h, 1, 0, 0, 2);
        flow.SetSensitivity(0.7f);
        Owned forward(new DQImage(flow.width, flow.height, 2, DQ_FLOAT, 0));
        Owned backward(new DQImage(flow.width, flow.height, 2, DQ_FLOAT, 0));
        TwoFlows(flow, a.get(), b.get(), forward.get(), backward.get());
        MiddleFrame(mixed.get(), a.get(), b.get(), forward.get(), backward.get());
    }
    Mix(blend.get(), a.get(), b.get());
    const FrameScore scoreBlend = Score(*blend, *truth), scoreFlow = Score(*mixed, *truth);
    Report(state, "blend", scoreBlend);
    Report(state, "flow", scoreFlow);
    gTotals.blend.Add(scoreBlend);
    gTotals.flow.Add(scoreFlow);
#ifdef QUELMOR_HAVE_OPENCV
    ScoreDis(state, "dis", ComputeDisFlows(*a, *b), a.get(), b.get(), *truth, mixed.get(),
             &gTotals.dis);
    ScoreDis(state, "dis_half", ComputeDisFlows(*HalfSize(*a), *HalfSize(*b)), a.get(), b.get(),
             *truth, mixed.get(), &gTotals.disHalf);
#endif
}
BENCHMARK(BM_MiddleburyQuality)->DenseRange(0, 11)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_MiddleburyQualityMean(benchmark::State& state) {
    for (auto _ : state) {
    }
    if (gTotals.flow.count == 0) {
        state.SkipWithError("no sequence was run");
        return;
    }
    state.SetLabel(std::to_string(gTotals.flow.count) + " sequences");
    Report(state, "blend", gTotals.blend.Mean());
    Report(state, "flow", gTotals.flow.Mean());
#ifdef QUELMOR_HAVE_OPENCV
    Report(state, "dis", gTotals.dis.Mean());
    Report(state, "dis_half", gTotals.disHalf.Mean());
#endif
}
BENCHMARK(BM_MiddleburyQualityMean)->Iterations(1);

} // namespace

BENCHMARK_MAIN();
