// Morph flow: time to build a dense flow from point pairs alone, feeding included, for a level 0
// of the given size (1920 x 1080 is a 1080p frame at full flow size; 960 x 540 the same frame at
// "Best", which halves it). The points are scattered by a fixed generator, with smooth motion.
// Arguments: width, height, point pairs, workers (0: every core). The counter cpu_ms is the
// processor time of the whole process (all workers) per flow: on a shared machine the wall clock
// mostly measures the wait for a core.
#include "FlowBenchSupport.h"
#include "flow/MorphFlow.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <ctime>
#include <random>
#include <vector>

namespace {

using namespace quelmor::bench;

struct PointPair {
    float x1, y1, x2, y2;
};

double ProcessCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

std::vector<PointPair> ScatteredPairs(int count, int width, int height) {
    std::mt19937 random(17);
    std::uniform_real_distribution<float> x(0.0f, float(width - 1)), y(0.0f, float(height - 1));
    std::vector<PointPair> pairs;
    for (int i = 0; i < count; ++i) {
        const float px = x(random), py = y(random);
        // A slow swirl plus a pan: neighbouring points move alike.
        const float dx = 12.0f + 8.0f * std::sin(py * 0.004f), dy = -6.0f * std::cos(px * 0.003f);
        pairs.push_back({px, py, px + dx, py + dy});
    }
    return pairs;
}

void BM_MorphFlow(benchmark::State& state) {
    const int width = int(state.range(0)), height = int(state.range(1));
    const int count = int(state.range(2)), workers = int(state.range(3));
    if (workers > 0)
        SparkHostUseWorkersDirect(workers, width, height);
    else
        SetWorkers(width, height);
    const std::vector<PointPair> pairs = ScatteredPairs(count, width, height);
    DQMorphFlow morph(width, height, 0, 2);
    const double cpuBefore = ProcessCpuSeconds();
    for (auto _ : state) {
        morph.BeginGeometry();
        for (const PointPair& p : pairs)
            morph.AddGeometryPoint(p.x1, p.y1, p.x2, p.y2, float(width - 1), float(height - 1));
        morph.EndGeometry();
        morph.ComputeMorph(nullptr, nullptr, true);
        benchmark::DoNotOptimize(morph.GetFlow()->data);
    }
    state.counters["levels"] = morph.numLevels;
    state.counters["cpu_ms"] =
        1e3 * (ProcessCpuSeconds() - cpuBefore) / double(std::max<int64_t>(state.iterations(), 1));
}

BENCHMARK(BM_MorphFlow)
    ->ArgNames({"w", "h", "pairs", "workers"})
    ->Args({1920, 1080, 100, 0})
    ->Args({1920, 1080, 100, 1})
    ->Args({960, 540, 100, 0})
    ->Args({960, 540, 100, 1})
    ->Args({1920, 1080, 1000, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

} // namespace

BENCHMARK_MAIN();
