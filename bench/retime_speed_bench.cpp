// Speed of retiming at "Best" with "Blend" on the real clip, at its own size (960x507) and
// bilinearly upscaled to 1920x1080.
//
//   BM_FreshInBetween/W/H      one in-between frame (t = 0.5) with fresh flows: two flows, two
//                              warps, the mix. Counters: flow_ms and warp_mix_ms, the latter
//                              timed on the same frame rendered again from kept flows.
//   BM_KeptFlowInBetween/W/H   the same frame rendered again and again from kept flows.
//   BM_SlowMotion4x/W/H/N      4x slow motion of the first N source frames with "Cache Last
//                              Motion" on: per source interval, one frame on the source frame,
//                              one that computes flow and two that reuse it. Counters: output
//                              fps, flow_ms per interval, warp_mix_ms per in-between frame,
//                              copy_ms per frame on a source frame (frames are sorted by
//                              whether the engine's flow count moved).
//   BM_FreshInBetweenByWarping/W/H/I  the fresh in-between frame with interpolation I, rendered
//                              in turn with warping 0 ("Inverse") and 1 ("Inverse + Smart
//                              Blend"), in alternating order, so that both meet the same load.
//                              Counters: inverse_ms, smart_ms and their ratio, and the same in
//                              processor time (inverse_cpu_ms, smart_cpu_ms, cpu_ratio).
//   BM_FreshInBetweenForward/W/H/I  the same against warping 2 ("Forward"): forward_ms,
//                              forward_cpu_ms and the ratios.
//   BM_FreshInBetweenLayers/W/H/I  the fresh in-between frame with interpolation I, rendered in
//                              turn as one layer and with one foreground layer cut out by an
//                              elliptic matte (a third of the picture's width, soft edge) at
//                              both frames: single_ms, layers_ms, ratio, and the processor times.
//   BM_SlowMotion4xWorkerSpin/W/H/N/S  the same with the host's workers spinning S pause
//                              instructions before they sleep: a long spin against the default.
//
// Every benchmark also reports cpu_ms, the processor time of all workers per frame, and
// page_faults, the fresh pages touched per frame: on a shared machine the wall clock shows the
// wait for a core as much as the work.
//
// Workers: one per core. Without the clip (or OpenImageIO) every benchmark skips.
#include "FlowBenchSupport.h"
#include "RetimeBenchSupport.h"

#include "engine/EngineInternal.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <map>
#include <memory>
#include <string>
#include <sys/resource.h>
#include <tuple>

namespace {

using namespace quelmor::bench;
using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Minor page faults of the process so far: fresh pages that a frame touches cost a fault each.
long PageFaults() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

// Processor time of the whole process, all workers together: on a loaded machine it shows the
// work a frame costs where the wall clock shows the wait for a core.
double ProcessCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

// The first `count` frames of the clip at `width` x `height`, read once per size.
const std::vector<Owned>& ClipFrames(int width, int height, int count) {
    static std::map<std::tuple<int, int, int>, std::vector<Owned>> cache;
    auto& frames = cache[{width, height, count}];
    if (!frames.empty()) return frames;
    const auto dir = DataDir() / "clip";
    for (int i = 0; i < count; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "%03d.png", i);
        Owned frame = ReadRGBA(dir / name);
        if (!frame) break;
        if (frame->width != width || frame->height != height) {
            Owned scaled(new DQImage(width, height, 4, DQ_UCHAR, 0));
            ResizeBilinear(scaled.get(), frame.get());
            frame = std::move(scaled);
        }
        frames.push_back(std::move(frame));
    }
    if (int(frames.size()) < count) frames.clear();
    return frames;
}

std::vector<DQImage*> Borrow(const std::vector<Owned>& frames) {
    std::vector<DQImage*> out;
    for (const Owned& f : frames)
        out.push_back(f.get());
    return out;
}

RetimeSettings BestBlend() {
    RetimeSettings s;
    s.vectorQuality = 4;
    s.interpolation = 1;
    s.cacheLastMotion = 1;
    return s;
}

// Processor time and page faults of the process from its making to Report, per frame.
class WorkMeter {
public:
    WorkMeter() : cpu_(ProcessCpuSeconds()), faults_(PageFaults()) {}
    void Report(benchmark::State& state, double frames) const {
        state.counters["cpu_ms"] = 1000.0 * (ProcessCpuSeconds() - cpu_) / frames;
        state.counters["page_faults"] = double(PageFaults() - faults_) / frames;
    }

private:
    double cpu_;
    long faults_;
};

// Renders the in-between frame t = 0.5 of the clip's first two frames once per iteration, with
// fresh flows each time or from the flows kept by a first render. Returns the engine with its
// kept motion, or null when the benchmark was skipped.
std::unique_ptr<ClipEngine> TimeInBetween(benchmark::State& state, bool freshFlows,
                                          double* meanSeconds) {
    const int width = int(state.range(0)), height = int(state.range(1));
    const auto& frames = ClipFrames(width, height, 2);
    if (frames.empty()) {
        state.SkipWithError("clip not found (or built without OpenImageIO)");
        return nullptr;
    }
    SetWorkers(width, height);
    auto engine = std::make_unique<ClipEngine>(Borrow(frames));
    Owned out(new DQImage(width, height, 4, DQ_UCHAR, 0));
    const RetimeSettings settings = BestBlend();
    if (RenderFrame(*engine, out.get(), 0.5f, settings) != 0) {
        state.SkipWithError("the engine failed to render the frame");
        return nullptr;
    }
    double total = 0.0;
    const WorkMeter meter;
    for (auto _ : state) {
        if (freshFlows) engine->ResetMotion();
        const auto start = Clock::now();
        RenderFrame(*engine, out.get(), 0.5f, settings);
        const double seconds = SecondsSince(start);
        total += seconds;
        state.SetIterationTime(seconds);
    }
    meter.Report(state, double(state.iterations()));
    *meanSeconds = total / double(state.iterations());
    return engine;
}

void BM_FreshInBetween(benchmark::State& state) {
    double fresh = 0.0;
    const auto engine = TimeInBetween(state, true, &fresh);
    if (!engine) return;
    // The same frame again from the kept flows: warp and mix alone.
    Owned out(new DQImage(int(state.range(0)), int(state.range(1)), 4, DQ_UCHAR, 0));
    double warpMix = 1e30;
    for (int i = 0; i < 5; ++i) {
        const auto start = Clock::now();
        RenderFrame(*engine, out.get(), 0.5f, BestBlend());
        warpMix = std::min(warpMix, SecondsSince(start));
    }
    state.counters["flow_ms"] = 1000.0 * (fresh - warpMix);
    state.counters["warp_mix_ms"] = 1000.0 * warpMix;
    state.counters["workers"] = ZUMPGetNumThreads();
}
BENCHMARK(BM_FreshInBetween)
    ->Args({960, 507})
    ->Args({1920, 1080})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);

// The in-between frame rendered again and again from the flows kept by the first render: warp
// and mix alone, as every frame of a slow motion that reuses flow.
void BM_KeptFlowInBetween(benchmark::State& state) {
    double kept = 0.0;
    TimeInBetween(state, false, &kept);
}
BENCHMARK(BM_KeptFlowInBetween)
    ->Args({960, 507})
    ->Args({1920, 1080})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);

// One fresh render of the in-between frame: wall and processor seconds added to `wall`, `cpu`.
void TimeFreshRender(ClipEngine& engine, DQImage* out, const RetimeSettings& settings, double& wall,
                     double& cpu) {
    engine.ResetMotion();
    const double cpuStart = ProcessCpuSeconds();
    const auto start = Clock::now();
    RenderFrame(engine, out, 0.5f, settings);
    wall += SecondsSince(start);
    cpu += ProcessCpuSeconds() - cpuStart;
}

// The fresh in-between frame rendered with the two settings in turn, in alternating order, the
// engine's mattes being `mattes`; the counters name the two by `names`.
void CompareFreshRenders(benchmark::State& state, const RetimeSettings (&settings)[2],
                         const std::string (&names)[2], const std::vector<DQImage*>& mattes = {}) {
    const int width = int(state.range(0)), height = int(state.range(1));
    const auto& frames = ClipFrames(width, height, 2);
    if (frames.empty()) {
        state.SkipWithError("clip not found (or built without OpenImageIO)");
        return;
    }
    SetWorkers(width, height);
    ClipEngine engine(Borrow(frames));
    engine.mattes = mattes;
    Owned out(new DQImage(width, height, 4, DQ_UCHAR, 0));
    for (const RetimeSettings& s : settings)
        if (RenderFrame(engine, out.get(), 0.5f, s) != 0) {
            state.SkipWithError("the engine failed to render the frame");
            return;
        }
    double wall[2] = {}, cpu[2] = {};
    int64_t turn = 0;
    for (auto _ : state) {
        const int first = int(turn++ & 1);
        double pairWall = 0.0;
        for (int k : {first, 1 - first}) {
            double w = 0.0;
            TimeFreshRender(engine, out.get(), settings[k], w, cpu[k]);
            wall[k] += w;
            pairWall += w;
        }
        state.SetIterationTime(pairWall);
    }
    const double n = double(state.iterations());
    for (int k : {0, 1}) {
        state.counters[names[k] + "_ms"] = 1000.0 * wall[k] / n;
        state.counters[names[k] + "_cpu_ms"] = 1000.0 * cpu[k] / n;
    }
    state.counters["ratio"] = wall[1] / wall[0];
    state.counters["cpu_ratio"] = cpu[1] / cpu[0];
    state.counters["workers"] = ZUMPGetNumThreads();
}

// The fresh in-between frame with "Inverse" against `warping`, with the interpolation of the
// third argument; the counters name the second by `name`.
void FreshInBetweenAgainstInverse(benchmark::State& state, int warping, const std::string& name) {
    RetimeSettings inverse = BestBlend(), other = BestBlend();
    inverse.interpolation = other.interpolation = state.range(2);
    other.warping = warping;
    CompareFreshRenders(state, {inverse, other}, {"inverse", name});
}

void BM_FreshInBetweenByWarping(benchmark::State& state) {
    FreshInBetweenAgainstInverse(state, 1, "smart");
}
BENCHMARK(BM_FreshInBetweenByWarping)
    ->Args({1920, 1080, 1})
    ->Args({1920, 1080, 0})
    ->Args({1920, 1080, 2})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(4.0);

void BM_FreshInBetweenForward(benchmark::State& state) {
    FreshInBetweenAgainstInverse(state, 2, "forward");
}
BENCHMARK(BM_FreshInBetweenForward)
    ->Args({1920, 1080, 1})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(4.0);

// An elliptic matte, a third of the picture wide and half of it high, centred at (cx, cy) as
// fractions of the picture, with an edge two pixels soft.
Owned EllipseMatte(int width, int height, float cx, float cy) {
    Owned matte(new DQImage(width, height, 1, DQ_UCHAR, 0));
    const float rx = width / 6.0f, ry = height / 4.0f;
    for (int y = 0; y < height; ++y) {
        uint8_t* row = matte->Row<uint8_t>(y);
        for (int x = 0; x < width; ++x) {
            const float dx = (x - cx * width) / rx, dy = (y - cy * height) / ry;
            const float inside = (1.0f - std::sqrt(dx * dx + dy * dy)) * std::min(rx, ry) * 0.5f;
            row[x] = uint8_t(255.0f * std::clamp(inside + 0.5f, 0.0f, 1.0f));
        }
    }
    return matte;
}

void BM_FreshInBetweenLayers(benchmark::State& state) {
    const int width = int(state.range(0)), height = int(state.range(1));
    const Owned matteA = EllipseMatte(width, height, 0.48f, 0.5f);
    const Owned matteB = EllipseMatte(width, height, 0.52f, 0.5f);
    RetimeSettings single = BestBlend(), layers = BestBlend();
    single.interpolation = layers.interpolation = state.range(2);
    layers.foregroundLayers = 1;
    CompareFreshRenders(state, {single, layers}, {"single", "layers"},
                        {matteA.get(), matteB.get()});
}
BENCHMARK(BM_FreshInBetweenLayers)
    ->Args({1920, 1080, 1})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(4.0);

// Frames of a slow motion sorted by what they cost.
struct SlowMotionTimes {
    double sourceFrames = 0.0, freshFrames = 0.0, reuseFrames = 0.0;
    int sourceCount = 0, freshCount = 0, reuseCount = 0;
};

void SlowMotion4x(benchmark::State& state) {
    const int width = int(state.range(0)), height = int(state.range(1));
    const int count = int(state.range(2));
    const auto& frames = ClipFrames(width, height, count);
    if (frames.empty()) {
        state.SkipWithError("clip not found (or built without OpenImageIO)");
        return;
    }
    SetWorkers(width, height);
    const RetimeSettings settings = BestBlend();
    Owned out(new DQImage(width, height, 4, DQ_UCHAR, 0));
    const int outputFrames = 4 * (count - 1);
    SlowMotionTimes times;
    const WorkMeter meter;
    for (auto _ : state) {
        ClipEngine engine(Borrow(frames));
        engine.timeCurve = [](float t) { return t / 4.0f; };
        double seconds = 0.0;
        for (int n = 0; n < outputFrames; ++n) {
            const int64_t runsBefore = engine.internal ? engine.internal->flowRuns : 0;
            const auto start = Clock::now();
            if (RenderFrame(engine, out.get(), float(n), settings) != 0) {
                state.SkipWithError("the engine failed to render a frame");
                return;
            }
            const double t = SecondsSince(start);
            seconds += t;
            if (n % 4 == 0) {
                times.sourceFrames += t;
                ++times.sourceCount;
            } else if (engine.internal->flowRuns > runsBefore) {
                times.freshFrames += t;
                ++times.freshCount;
            } else {
                times.reuseFrames += t;
                ++times.reuseCount;
            }
        }
        state.SetIterationTime(seconds);
    }
    meter.Report(state, double(int64_t(outputFrames) * state.iterations()));
    const double reuse = times.reuseCount ? times.reuseFrames / times.reuseCount : 0.0;
    const double fresh = times.freshCount ? times.freshFrames / times.freshCount : 0.0;
    const double all = times.sourceFrames + times.freshFrames + times.reuseFrames;
    state.counters["fps"] = (times.sourceCount + times.freshCount + times.reuseCount) / all;
    state.counters["flow_ms"] = 1000.0 * (fresh - reuse);
    state.counters["warp_mix_ms"] = 1000.0 * reuse;
    state.counters["copy_ms"] =
        times.sourceCount ? 1000.0 * times.sourceFrames / times.sourceCount : 0.0;
    state.counters["fresh_frames"] = times.freshCount;
    state.counters["reused_frames"] = times.reuseCount;
    state.SetItemsProcessed(int64_t(outputFrames) * state.iterations());
}
void BM_SlowMotion4x(benchmark::State& state) {
    SlowMotion4x(state);
}
BENCHMARK(BM_SlowMotion4x)
    ->Args({960, 507, 17})
    ->Args({1920, 1080, 17})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

// The same slow motion with the stand-in host's workers spinning `spin` microseconds before they
// sleep (the fourth argument): 1000 a long spin, 1 about as short as the clock allows, beside the
// default. Meant to be run with a competing busy process on one core and random
// interleaving, so that both settings meet the same load (scripts/bench-workers.sh).
void BM_SlowMotion4xWorkerSpin(benchmark::State& state) {
    const int saved = SparkHostWorkerSpin();
    SparkHostSetWorkerSpin(int(state.range(3)));
    SlowMotion4x(state);
    state.counters["spin"] = SparkHostWorkerSpin();
    SparkHostSetWorkerSpin(saved);
}
BENCHMARK(BM_SlowMotion4xWorkerSpin)
    ->Args({1920, 1080, 5, 1000})
    ->Args({1920, 1080, 5, kSparkHostDefaultSpinMicroseconds})
    ->Args({1920, 1080, 5, 1})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

} // namespace

BENCHMARK_MAIN();
