// Quality of a rebuilt middle frame on the Middlebury pairs: both flows at
// "Best" (reduction 1) with sensitivity 0.7, each frame pulled half-way by the
// inverse warp and the two mixed 50/50, scored by PSNR against the true
// in-between frame beside a plain 50/50 blend.
//
//   flow_quality_bench                       one row per sequence, then the
//   means
#include "FlowBenchSupport.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <string>

namespace {

using namespace quelmor::bench;

// PSNR over the colour channels of two 8-bit RGBA images.
double Psnr(const DQImage* a, const DQImage* b) {
    double sum = 0.0;
    for (int y = 0; y < a->height; ++y) {
        const uint8_t* p = a->Row<uint8_t>(y);
        const uint8_t* q = b->Row<uint8_t>(y);
        for (int x = 0; x < a->width; ++x)
            for (int c = 0; c < 3; ++c) {
                const double d = double(p[4 * x + c]) - double(q[4 * x + c]);
                sum += d * d;
            }
    }
    const double mse = sum / (3.0 * a->width * a->height);
    return 10.0 * std::log10(255.0 * 255.0 / std::max(mse, 1e-12));
}

void Mix(DQImage* out, const DQImage* a, const DQImage* b) {
    for (int y = 0; y < out->height; ++y)
        for (int x = 0; x < 4 * out->width; ++x)
            out->Row<uint8_t>(y)[x] = static_cast<uint8_t>(
                (int(a->Row<uint8_t>(y)[x]) + int(b->Row<uint8_t>(y)[x]) + 1) / 2);
}

const char* const kSequences[] = {"Beanbags", "Dimetrodon", "DogDance",   "Grove2",
                                  "Grove3",   "Hydrangea",  "MiniCooper", "RubberWhale",
                                  "Urban2",   "Urban3",     "Venus",      "Walking"};

// Sums over the sequences run so far, for the mean row.
struct QualityTotals {
    double blend = 0.0, flow = 0.0;
    int count = 0;
} gTotals;

// Rebuilds frame 10.5 of one sequence from both flows at "Best", sensitivity
// 0.7: each frame is pulled half-way along the flow from the other frame and
// the two are mixed 50/50.
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
    Owned fromA(new DQImage(w, h, 4, DQ_UCHAR, 0)), fromB(new DQImage(w, h, 4, DQ_UCHAR, 0));
    for (auto _ : state) {
        DQOpticalFlowUChar flow(0, w, h, 1, 0, 0, 2);
        flow.SetSensitivity(0.7f);
        Owned forward(new DQImage(flow.width, flow.height, 2, DQ_FLOAT, 0));
        Owned backward(new DQImage(flow.width, flow.height, 2, DQ_FLOAT, 0));
        TwoFlows(flow, a.get(), b.get(), forward.get(), backward.get());
        // At the middle pixel x: A(x + 0.5 backward(x)) and B(x + 0.5 forward(x)).
        DQWarpInverse(fromA.get(), a.get(), backward.get(), 1, nullptr, 1, 0.5f);
        DQWarpInverse(fromB.get(), b.get(), forward.get(), 1, nullptr, 1, 0.5f);
        Mix(mixed.get(), fromA.get(), fromB.get());
    }
    Mix(blend.get(), a.get(), b.get());
    const double psnrBlend = Psnr(blend.get(), truth.get());
    const double psnrFlow = Psnr(mixed.get(), truth.get());
    state.counters["psnr_blend"] = psnrBlend;
    state.counters["psnr_flow"] = psnrFlow;
    gTotals.blend += psnrBlend;
    gTotals.flow += psnrFlow;
    ++gTotals.count;
}
BENCHMARK(BM_MiddleburyQuality)->DenseRange(0, 11)->Iterations(1)->Unit(benchmark::kMillisecond);

void BM_MiddleburyQualityMean(benchmark::State& state) {
    for (auto _ : state) {
    }
    if (gTotals.count == 0) {
        state.SkipWithError("no sequence was run");
        return;
    }
    state.SetLabel(std::to_string(gTotals.count) + " sequences");
    state.counters["psnr_blend"] = gTotals.blend / gTotals.count;
    state.counters["psnr_flow"] = gTotals.flow / gTotals.count;
}
BENCHMARK(BM_MiddleburyQualityMean)->Iterations(1);

} // namespace

BENCHMARK_MAIN();
