// A fresh in-between frame from vectors supplied to the engine against one whose vectors the
// engine computes.
//
//   BM_InBetweenFromVectors/W/H/I  the in-between frame t = 0.5 of the clip's first two frames
//                              with interpolation I and "Best" vectors, rendered in turn with
//                              fresh computed flows and from external vectors (the engine's own
//                              flows of the pair at frame size, lent through the vector slots
//                              as four float channels, as a reader of vector files lends them),
//                              in alternating order so that both meet the same load. Counters:
//                              computed_ms, vectors_ms and their ratio, and the same in processor
//                              time of all workers (computed_cpu_ms, vectors_cpu_ms, cpu_ratio).
//
// Workers: one per core. Without the clip (or OpenImageIO) the benchmark skips.
#include "FlowBenchSupport.h"
#include "RetimeBenchSupport.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <ctime>

namespace {

using namespace quelmor::bench;
using Clock = std::chrono::steady_clock;

double ProcessCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// The clip engine that, when `external` is set, takes its motion from the vector images
// `next[frame]` (to the next frame) and `previous[frame]` (to the frame before).
class VectorClipEngine final : public ClipEngine {
public:
    using ClipEngine::ClipEngine;
    bool external = false;
    std::vector<DQImage*> next, previous;

    int UsesExternalVectors() override { return external ? 1 : 0; }
    int GetNextFrameVectors(ZUImage** vectors, float* scale, int frame) override {
        return Lend(next, vectors, scale, frame);
    }
    int GetPreviousFrameVectors(ZUImage** vectors, float* scale, int frame) override {
        return Lend(previous, vectors, scale, frame);
    }
    int ReleaseNextFrameVectors(ZUImage* vectors) override {
        delete vectors;
        return 0;
    }
    int ReleasePreviousFrameVectors(ZUImage* vectors) override {
        delete vectors;
        return 0;
    }

private:
    static int Lend(const std::vector<DQImage*>& from, ZUImage** vectors, float* scale, int frame) {
        *vectors = nullptr;
        *scale = 1.0f;
        if (frame < 0 || frame >= int(from.size()) || !from[frame]) return kDQErrBadArgument;
        auto view = std::make_unique<ZUImage>();
        ZUImageFromDQImage(view.get(), from[frame]);
        *vectors = view.release();
        return 0;
    }
};

// A flow as the four float channels of a vector image: x, y, 0 and an alpha of 1.
Owned VectorImage(const DQImage& flow) {
    Owned image(new DQImage(flow.width, flow.height, 4, DQ_FLOAT, 0));
    for (int y = 0; y < flow.height; ++y)
        for (int x = 0; x < flow.width; ++x) {
            float* out = image->Row<float>(y) + 4 * x;
            out[0] = flow.Row<float>(y)[2 * x];
            out[1] = flow.Row<float>(y)[2 * x + 1];
            out[2] = 0.0f;
            out[3] = 1.0f;
        }
    return image;
}

Owned ClipFrame(int index, int width, int height) {
    char name[16];
    std::snprintf(name, sizeof name, "%03d.png", index);
    Owned frame = ReadRGBA(DataDir() / "clip" / name);
    if (!frame || (frame->width == width && frame->height == height)) return frame;
    Owned scaled(new DQImage(width, height, 4, DQ_UCHAR, 0));
    ResizeBilinear(scaled.get(), frame.get());
    return scaled;
}

void BM_InBetweenFromVectors(benchmark::State& state) {
    const int width = int(state.range(0)), height = int(state.range(1));
    Owned frames[2] = {ClipFrame(0, width, height), ClipFrame(1, width, height)};
    if (!frames[0] || !frames[1]) {
        state.SkipWithError("clip not found (or built without OpenImageIO)");
        return;
    }
    SetWorkers(width, height);
    VectorClipEngine engine({frames[0].get(), frames[1].get()});
    RetimeSettings settings; // "Best" vectors, "Blend": both flows are computed and kept
    Owned out(new DQImage(width, height, 4, DQ_UCHAR, 0));
    // The vectors lent are the engine's own flows of the pair, at frame size.
    Owned atoB(new DQImage(width, height, 2, DQ_FLOAT, 0));
    Owned btoA(new DQImage(width, height, 2, DQ_FLOAT, 0));
    if (RenderFrame(engine, out.get(), 0.5f, settings) != 0 ||
        engine.GetPairFlows(atoB.get(), btoA.get(), nullptr) != 0) {
        state.SkipWithError("the engine failed to render the frame");
        return;
    }
    const Owned next = VectorImage(*atoB), previous = VectorImage(*btoA);
    engine.next = {next.get(), nullptr};
    engine.previous = {nullptr, previous.get()};
    settings.interpolation = long(state.range(2));

    double seconds[2] = {}, cpu[2] = {};
    int64_t round = 0;
    for (auto _ : state) {
        for (int k = 0; k < 2; ++k) {
            // Alternating which goes first, so that neither always follows the other.
            const int which = int((round + k) % 2); // 0 computed, 1 vectors
            engine.external = which == 1;
            engine.ResetMotion();
            const double cpuStart = ProcessCpuSeconds();
            const auto start = Clock::now();
            if (RenderFrame(engine, out.get(), 0.5f, settings) != 0)
                state.SkipWithError("the engine failed to render the frame");
            seconds[which] += std::chrono::duration<double>(Clock::now() - start).count();
            cpu[which] += ProcessCpuSeconds() - cpuStart;
        }
        ++round;
    }
    const double n = double(state.iterations());
    state.counters["computed_ms"] = 1000.0 * seconds[0] / n;
    state.counters["vectors_ms"] = 1000.0 * seconds[1] / n;
    state.counters["ratio"] = seconds[0] / seconds[1];
    state.counters["computed_cpu_ms"] = 1000.0 * cpu[0] / n;
    state.counters["vectors_cpu_ms"] = 1000.0 * cpu[1] / n;
    state.counters["cpu_ratio"] = cpu[0] / cpu[1];
    state.counters["workers"] = ZUMPGetNumThreads();
}
BENCHMARK(BM_InBetweenFromVectors)
    ->ArgsProduct({{1920}, {1080}, {0, 1, 2}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(6);

} // namespace

BENCHMARK_MAIN();
