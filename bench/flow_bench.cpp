// Dense flow: speed of the two flows of a frame pair at "Best" (reduction 1), with the time split
// per solver step, beside OpenCV's DIS and Farneback on the same frames. The counters ms_* are
// wall-clock milliseconds per pair spent in each step, cpu_ms the processor time of the pair.
#include "FlowBenchSupport.h"
#include "flow/FlowTiming.h"

#include <benchmark/benchmark.h>

#include <string>

#ifdef QUELMOR_HAVE_OPENCV
#include <opencv2/imgproc.hpp>
#include <opencv2/video/tracking.hpp>
#endif

namespace {

using namespace quelmor::bench;

// A frame pair of the given size: two neighbouring clip frames stretched to it.
struct FramePair {
    Owned a, b;
};

FramePair LoadPair(int width, int height) {
    FramePair pair;
    const std::filesystem::path clip = DataDir() / "clip";
    Owned a = ReadRGBA(clip / "000.png"), b = ReadRGBA(clip / "001.png");
    if (!a || !b) return pair;
    if (a->width == width && a->height == height) {
        pair.a = std::move(a);
        pair.b = std::move(b);
        return pair;
    }
    SetWorkers(width, height);
    pair.a.reset(new DQImage(width, height, 4, DQ_UCHAR, 0));
    pair.b.reset(new DQImage(width, height, 4, DQ_UCHAR, 0));
    ResizeBilinear(pair.a.get(), a.get());
    ResizeBilinear(pair.b.get(), b.get());
    return pair;
}

void BM_SpeedQuelmorTwoFlows(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    FramePair pair = LoadPair(width, height);
    if (!pair.a) {
        state.SkipWithError("clip frames not found");
        return;
    }
    SetWorkers(width, height);
    DQOpticalFlowUChar flow(0, width, height, 1, 0, 0, 2);
    flow.SetSensitivity(0.7f);
    Owned forward(new DQImage(flow.width, flow.height, 2, DQ_FLOAT, 0));
    Owned backward(new DQImage(flow.width, flow.height, 2, DQ_FLOAT, 0));
    DQFlowStepTimes times;
    DQFlowSetStepTimes(&times);
    for (auto _ : state) {
        TwoFlows(flow, pair.a.get(), pair.b.get(), forward.get(), backward.get());
        benchmark::DoNotOptimize(forward->data);
    }
    DQFlowSetStepTimes(nullptr);
    double cpu = 0.0;
    for (int step = 0; step < kDQFlowStepCount; ++step) {
        state.counters[std::string("ms_") + kDQFlowStepNames[step]] =
            1000.0 * times.seconds[step] / static_cast<double>(state.iterations());
        cpu += times.cpuSeconds[step];
    }
    // Processor time of all workers together, waiting included: under a loaded machine the wall
    // time grows while this stays near the work done.
    state.counters["cpu_ms"] = 1000.0 * cpu / static_cast<double>(state.iterations());
}
BENCHMARK(BM_SpeedQuelmorTwoFlows)
    ->Args({1920, 1080})
    ->Args({960, 540})
    ->Args({960, 507})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

#ifdef QUELMOR_HAVE_OPENCV
cv::Mat Grey(const DQImage* image, int width, int height) {
    cv::Mat rgba(image->height, image->width, CV_8UC4, image->data, image->rowBytes), grey;
    cv::cvtColor(rgba, grey, cv::COLOR_RGBA2GRAY);
    if (grey.cols != width) cv::resize(grey, grey, cv::Size(width, height), 0, 0, cv::INTER_AREA);
    return grey;
}

// OpenCV's two flows of the same pair; range(2) 1 runs at half size like "Best", 0 at full size.
template <bool kDis>
void BM_SpeedOpenCV(benchmark::State& state) {
    const int width = static_cast<int>(state.range(0)), height = static_cast<int>(state.range(1));
    const bool half = state.range(2) != 0;
    FramePair pair = LoadPair(width, height);
    if (!pair.a) {
        state.SkipWithError("clip frames not found");
        return;
    }
    const int w = half ? width / 2 : width, h = half ? height / 2 : height;
    cv::Ptr<cv::DISOpticalFlow> dis = cv::DISOpticalFlow::create(cv::DISOpticalFlow::PRESET_MEDIUM);
    cv::Mat forward, backward;
    for (auto _ : state) {
        const cv::Mat a = Grey(pair.a.get(), w, h), b = Grey(pair.b.get(), w, h);
        if constexpr (kDis) {
            dis->calc(a, b, forward);
            dis->calc(b, a, backward);
        } else {
            cv::calcOpticalFlowFarneback(a, b, forward, 0.5, 5, 15, 3, 5, 1.2, 0);
            cv::calcOpticalFlowFarneback(b, a, backward, 0.5, 5, 15, 3, 5, 1.2, 0);
        }
        benchmark::DoNotOptimize(forward.data);
    }
}
BENCHMARK(BM_SpeedOpenCV<true>)
    ->Name("BM_SpeedOpenCVDisMedium")
    ->Args({1920, 1080, 0})
    ->Args({1920, 1080, 1})
    ->Args({960, 507, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
BENCHMARK(BM_SpeedOpenCV<false>)
    ->Name("BM_SpeedOpenCVFarneback")
    ->Args({1920, 1080, 0})
    ->Args({1920, 1080, 1})
    ->Args({960, 507, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();
#endif

} // namespace

BENCHMARK_MAIN();
