// Speed of the two hole fills on a 1920x1080 RGBA 8-bit frame with about 10% of its pixels in
// holes, scattered discs of radius 2 to 24 placed with a fixed seed, as a forward warp leaves
// them: DQVoronoiFill (nearest valid colour) and FillHoles (smooth coarse-to-fine fill of every
// channel), the latter also in its whole-frame form and on a frame with one hole of about 200
// pixels. Each benchmark takes the worker count as its argument. Both fills cost the same
// whatever the pixel values, so the frame is filled again in place on every iteration.
// Beside the wall clock each reports cpu_ms, the processor time of all workers per fill: on a
// shared machine the wall clock mostly measures the wait for a core.
// For scale, OpenCV's nearest-pixel labelling (distanceTransform with pixel labels) runs on the
// same mask with the same worker count.
#include "flow/Flow.h"
#include "image/Image.h"
#include "sparkhost/DirectWorkers.h"
#include "warp/Warp.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdio>
#include <ctime>
#include <random>

#ifdef QUELMOR_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr int kFrameWidth = 1920;
constexpr int kFrameHeight = 1080;
constexpr double kHoleShare = 0.10;

void UseWorkers(int workers) {
    SparkHostUseWorkersDirect(workers, kFrameWidth, kFrameHeight);
#ifdef QUELMOR_HAVE_OPENCV
    cv::setNumThreads(workers);
#endif
}

struct FillData {
    FillData()
        : image(DQMakeImage(kFrameWidth, kFrameHeight, 4, DQ_UCHAR)),
          holes(DQMakeImage(kFrameWidth, kFrameHeight, 1, DQ_UCHAR)) {
        for (int y = 0; y < kFrameHeight; ++y) {
            uint8_t* row = image->Row<uint8_t>(y);
            for (int x = 0; x < kFrameWidth; ++x)
                for (int c = 0; c < 4; ++c)
                    row[4 * x + c] = static_cast<uint8_t>(
                        127.5 + 120.0 * std::sin(0.013 * x * (c + 1) + 0.021 * y) *
                                    std::cos(0.007 * y - 0.011 * x));
        }
        holes->Clear();
        std::mt19937 random(20261125u);
        std::uniform_int_distribution<int> px(0, kFrameWidth - 1), py(0, kFrameHeight - 1),
            pr(2, 24);
        const int64_t target = static_cast<int64_t>(kHoleShare * kFrameWidth * kFrameHeight);
        int64_t count = 0;
        while (count < target) {
            const int cx = px(random), cy = py(random), r = pr(random);
            for (int y = std::max(0, cy - r); y <= std::min(kFrameHeight - 1, cy + r); ++y) {
                uint8_t* row = holes->Row<uint8_t>(y);
                for (int x = std::max(0, cx - r); x <= std::min(kFrameWidth - 1, cx + r); ++x)
                    if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r && row[x] == 0) {
                        row[x] = 255;
                        ++count;
                    }
            }
        }
        share = static_cast<double>(count) / (kFrameWidth * kFrameHeight);
    }
    DQImagePtr image;
    DQImagePtr holes;
    double share = 0.0;
};

double ProcessCpuMs() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return 1000.0 * static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) / 1e6;
}

// Runs `fill` once per iteration and reports the processor time per fill and the hole share.
template <class Fill>
void RunFill(benchmark::State& state, const FillData& data, Fill fill) {
    const double cpuStart = ProcessCpuMs();
    for (auto _ : state) {
        fill();
        benchmark::DoNotOptimize(data.image->data);
    }
    state.counters["cpu_ms"] =
        (ProcessCpuMs() - cpuStart) / static_cast<double>(std::max<int64_t>(state.iterations(), 1));
    state.counters["holes%"] = 100.0 * data.share;
}

FillData& Data() {
    static FillData data;
    return data;
}

void BM_VoronoiFill(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    FillData& data = Data();
    RunFill(state, data, [&] { DQVoronoiFill(data.image.get(), data.holes.get()); });
}

void BM_FillHoles(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    FillData& data = Data();
    RunFill(state, data, [&] { FillHoles(data.image.get(), data.holes.get(), nullptr); });
}

// The same fill computed over the whole frame at every level, for comparison.
void BM_FillHolesFullFrame(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    FillData& data = Data();
    RunFill(state, data, [&] { FillHolesFullFrame(data.image.get(), data.holes.get(), nullptr); });
}

// One hole of about 200 pixels (a disc of radius 8) in the middle of the frame, as an inverse
// warp leaves where neither frame sees: both forms of FillHoles.
FillData& OneHoleData() {
    static FillData data = [] {
        FillData d;
        d.holes->Clear();
        int64_t count = 0;
        for (int y = -8; y <= 8; ++y)
            for (int x = -8; x <= 8; ++x)
                if (x * x + y * y <= 64) {
                    d.holes->Row<uint8_t>(kFrameHeight / 2 + y)[kFrameWidth / 2 + x] = 255;
                    ++count;
                }
        d.share = static_cast<double>(count) / (kFrameWidth * kFrameHeight);
        return d;
    }();
    return data;
}

void BM_FillHolesOneHole(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    FillData& data = OneHoleData();
    RunFill(state, data, [&] { FillHoles(data.image.get(), data.holes.get(), nullptr); });
}

void BM_FillHolesOneHoleFullFrame(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    FillData& data = OneHoleData();
    RunFill(state, data, [&] { FillHolesFullFrame(data.image.get(), data.holes.get(), nullptr); });
}

BENCHMARK(BM_VoronoiFill)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FillHoles)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FillHolesFullFrame)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FillHolesOneHole)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FillHolesOneHoleFullFrame)
    ->Arg(1)
    ->Arg(2)
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

#ifdef QUELMOR_HAVE_OPENCV
// Nearest valid pixel of every hole by OpenCV's two-pass labelled distance transform (the same
// question the Voronoi sweeps answer, without the colour copy).
void BM_OpenCVNearestLabels(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    FillData& data = Data();
    cv::Mat holes(kFrameHeight, kFrameWidth, CV_8UC1, data.holes->data, data.holes->rowBytes);
    cv::Mat valid;
    cv::compare(holes, 0, valid, cv::CMP_NE);
    cv::Mat distance, labels;
    RunFill(state, data, [&] {
        cv::distanceTransform(valid, distance, labels, cv::DIST_L2, cv::DIST_MASK_5,
                              cv::DIST_LABEL_PIXEL);
        benchmark::DoNotOptimize(labels.data);
    });
}
BENCHMARK(BM_OpenCVNearestLabels)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
#endif

} // namespace

BENCHMARK_MAIN();
