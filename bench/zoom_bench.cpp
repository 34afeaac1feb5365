// Speed and quality of the zoom beside cv::resize on the same real pictures: a frame of the
// shared clip enlarged to 3840x2160 and reduced to 1920x1080, and the frame at 960x540 enlarged to
// 1920x1080, 8-bit RGBA. Ours runs with the Lanczos kernel, the Mitchell cubic and the default
// tabulated B-spline; OpenCV with INTER_LANCZOS4 and INTER_CUBIC. Each benchmark reports the time
// per image and, as the counter roundtrip_dB, the PSNR (R, G, B) of the source against the image
// taken to the other size and back with the same method.
//
//   zoom_bench [--benchmark_filter=...]
//
// Arguments: case (0: 3840x2160 to 1920x1080, 1: 960x540 to 1920x1080), method, workers. OpenCV
// is given the same worker count. Without the data folder or OpenImageIO the benchmarks say so.
#include "FlowBenchSupport.h"
#include "ImageMetrics.h"
#include "warp/Zoom.h"

#include <benchmark/benchmark.h>

#ifdef QUELMOR_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

using namespace quelmor::bench;

struct Case {
    int sourceWidth, sourceHeight, destWidth, destHeight;
};
constexpr Case kCases[] = {{3840, 2160, 1920, 1080}, {960, 540, 1920, 1080}};
const char* const kOurFilters[] = {"lanczos", "mitchell", "bspline-table"};

void UseWorkers(int workers) {
    SparkHostUseWorkersDirect(workers, 1920, 1080);
#ifdef QUELMOR_HAVE_OPENCV
    cv::setNumThreads(workers);
#endif
}

#ifdef QUELMOR_HAVE_OPENCV
cv::Mat View(const DQImage& image) {
    return cv::Mat(image.height, image.width, CV_8UC4, image.RowAddress(0),
                   static_cast<size_t>(image.rowBytes));
}

// The first frame of the clip brought to the case's source size with OpenCV's Lanczos (the
// enlargement is the same input for every method measured).
const DQImage* Source(int index) {
    static Owned sources[std::size(kCases)];
    Owned& source = sources[index];
    if (!source) {
        const Owned frame = ReadRGBA(DataDir() / "clip" / "000.png");
        if (!frame) return nullptr;
        const Case& c = kCases[index];
        source.reset(new DQImage(c.sourceWidth, c.sourceHeight, 4, DQ_UCHAR, 0));
        cv::Mat out = View(*source);
        cv::resize(View(*frame), out, out.size(), 0, 0, cv::INTER_LANCZOS4);
    }
    return source.get();
}
#else
const DQImage* Source(int) {
    return nullptr;
}
#endif

Owned Blank(int width, int height) {
    Owned image(new DQImage(width, height, 4, DQ_UCHAR, 0));
    image->Clear();
    return image;
}

void BM_Zoom(benchmark::State& state) {
    const int index = static_cast<int>(state.range(0));
    const DQZoomFilter& filter = *DQFindZoomFilter(kOurFilters[state.range(1)]);
    UseWorkers(static_cast<int>(state.range(2)));
    const DQImage* source = Source(index);
    if (!source) {
        state.SkipWithError("needs ../shared/data/clip, OpenImageIO and OpenCV");
        return;
    }
    const Case& c = kCases[index];
    Owned dest = Blank(c.destWidth, c.destHeight);
    Owned back = Blank(c.sourceWidth, c.sourceHeight);
    DQZoomTempStorage storage;
    DQImage* in = const_cast<DQImage*>(source);
    for (auto _ : state) {
        Zoom(dest.get(), in, filter, &storage);
        benchmark::ClobberMemory();
    }
    Zoom(back.get(), dest.get(), filter, &storage);
    state.SetLabel(filter.name);
    state.counters["roundtrip_dB"] = Psnr(*source, *back);
}

#ifdef QUELMOR_HAVE_OPENCV
constexpr int kOpenCVModes[] = {cv::INTER_LANCZOS4, cv::INTER_CUBIC};
const char* const kOpenCVNames[] = {"INTER_LANCZOS4", "INTER_CUBIC"};

void BM_OpenCVResize(benchmark::State& state) {
    const int index = static_cast<int>(state.range(0));
    const int mode = kOpenCVModes[state.range(1)];
    UseWorkers(static_cast<int>(state.range(2)));
    const DQImage* source = Source(index);
    if (!source) {
        state.SkipWithError("needs ../shared/data/clip and OpenImageIO");
        return;
    }
    const Case& c = kCases[index];
    Owned dest = Blank(c.destWidth, c.destHeight);
    Owned back = Blank(c.sourceWidth, c.sourceHeight);
    cv::Mat in = View(*source), out = View(*dest), home = View(*back);
    for (auto _ : state) {
        cv::resize(in, out, out.size(), 0, 0, mode);
        benchmark::ClobberMemory();
    }
    cv::resize(out, home, home.size(), 0, 0, mode);
    state.SetLabel(kOpenCVNames[state.range(1)]);
    state.counters["roundtrip_dB"] = Psnr(*source, *back);
}
BENCHMARK(BM_OpenCVResize)
    ->ArgsProduct({{0, 1}, {0, 1}, {1, 2}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);
#endif

} // namespace

BENCHMARK(BM_Zoom)
    ->ArgsProduct({{0, 1}, {0, 1, 2}, {1, 2}})
    ->UseRealTime()
    ->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
