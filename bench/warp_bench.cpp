// Speed of the pixel workhorses of the retime beside OpenCV's equivalents on the same data:
// the inverse warp of a 1080p RGBA frame by a half-size flow against cv::remap on the equivalent
// full-size map (8-bit with edges extended or faded, and float), the blur along the same flow, the
// Gaussian of radius 7 on a 960x540 RGB float image against cv::sepFilter2D with the same taps, and
// the 2:1 bilinear resize of a float plane against cv::resize. Each benchmark takes the worker
// count as its argument; OpenCV is given the same count.
#include "image/Image.h"
#include "sparkhost/DirectWorkers.h"
#include "warp/Warp.h"
#include "warp/WarpForward.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#ifdef QUELMOR_HAVE_OPENCV
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#endif

namespace {

constexpr int kFrameWidth = 1920;
constexpr int kFrameHeight = 1080;

void UseWorkers(int workers) {
    SparkHostUseWorkersDirect(workers, kFrameWidth, kFrameHeight);
#ifdef QUELMOR_HAVE_OPENCV
    cv::setNumThreads(workers);
#endif
}

template <class T>
DQImagePtr Picture(int width, int height, int channels, int dataType, float white) {
    DQImagePtr image = DQMakeImage(width, height, channels, dataType);
    for (int y = 0; y < height; ++y) {
        T* row = image->Row<T>(y);
        for (int x = 0; x < width; ++x)
            for (int c = 0; c < channels; ++c) {
                const float t = 0.5f + 0.45f * std::sin(0.013f * x * (c + 1) + 0.021f * y) *
                                           std::cos(0.007f * y - 0.011f * x);
                row[x * channels + c] = static_cast<T>(t * white);
            }
    }
    return image;
}

// A smooth field of vectors of up to about 12 flow pixels, as between two frames of a pan with
// some local motion.
DQImagePtr Flow(int width, int height) {
    DQImagePtr flow = DQMakeImage(width, height, 2, DQ_FLOAT);
    for (int y = 0; y < height; ++y) {
        float* row = flow->Row<float>(y);
        for (int x = 0; x < width; ++x) {
            row[2 * x] = 6.0f + 6.0f * std::sin(0.01f * x + 0.02f * y);
            row[2 * x + 1] = -3.0f + 5.0f * std::cos(0.015f * x - 0.01f * y);
        }
    }
    return flow;
}

struct WarpData {
    explicit WarpData(int dataType = DQ_UCHAR)
        : source(dataType == DQ_FLOAT
                     ? Picture<float>(kFrameWidth, kFrameHeight, 4, DQ_FLOAT, 1.0f)
                     : Picture<uint8_t>(kFrameWidth, kFrameHeight, 4, DQ_UCHAR, 255.0f)),
          dest(DQMakeImage(kFrameWidth, kFrameHeight, 4, dataType)),
          weight(DQMakeImage(kFrameWidth, kFrameHeight, 1, DQ_UCHAR)) {}
    DQImagePtr source;
    DQImagePtr dest;
    DQImagePtr weight;
    DQImagePtr flow = Flow(kFrameWidth / 2, kFrameHeight / 2);
};

// Both forms the retime uses: edges extended, and edges faded with the weight image.
void WarpInverse(benchmark::State& state, int dataType, bool fade) {
    UseWorkers(static_cast<int>(state.range(0)));
    WarpData data(dataType);
    for (auto _ : state) {
        DQWarpInverse(data.dest.get(), data.source.get(), data.flow.get(), fade ? 0 : 1,
                      fade ? data.weight.get() : nullptr, 1, 1.0f);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kFrameWidth * kFrameHeight);
}

void BM_WarpInverse(benchmark::State& state) {
    WarpInverse(state, DQ_UCHAR, false);
}
void BM_WarpInverseFade(benchmark::State& state) {
    WarpInverse(state, DQ_UCHAR, true);
}
void BM_WarpInverseFloat(benchmark::State& state) {
    WarpInverse(state, DQ_FLOAT, false);
}
BENCHMARK(BM_WarpInverse)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WarpInverseFade)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WarpInverseFloat)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

// The forward warp on the same data: every pixel a vertex of a mesh of two triangles per cell,
// pushed along its vector. "Weight" is the form of the retime's forward modes, which take the
// holes; without it the transparent margins would be skipped (this source has none).
void WarpForward(benchmark::State& state, bool withWeight) {
    UseWorkers(static_cast<int>(state.range(0)));
    WarpData data;
    for (auto _ : state) {
        DQWarpForward(data.dest.get(), data.source.get(), data.flow.get(), nullptr,
                      withWeight ? data.weight.get() : nullptr, 1.0f);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kFrameWidth * kFrameHeight);
}

void BM_WarpForward(benchmark::State& state) {
    WarpForward(state, false);
}
void BM_WarpForwardWeight(benchmark::State& state) {
    WarpForward(state, true);
}
BENCHMARK(BM_WarpForward)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_WarpForwardWeight)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

// The motion blur of a retimed frame: each pixel of a 1080p RGBA frame is the mean of samples
// along its vector of the half-size flow. There is no OpenCV equivalent; cv::remap above is the
// yardstick, as one sample per pixel.
void BM_BlurAlongFlow(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    WarpData data;
    for (auto _ : state) {
        DQBlurAlongFlow(data.dest.get(), data.source.get(), data.flow.get(), 1, nullptr, 0, 0.5f);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kFrameWidth * kFrameHeight);
}
BENCHMARK(BM_BlurAlongFlow)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

constexpr float kGaussRadius = 7.0f;
constexpr int kBlurWidth = 960;
constexpr int kBlurHeight = 540;

void BM_BlurGauss(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    DQImagePtr image = Picture<float>(kBlurWidth, kBlurHeight, 3, DQ_FLOAT, 1.0f);
    for (auto _ : state) {
        BlurGauss(image.get(), 0, kGaussRadius);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBlurWidth * kBlurHeight);
}
BENCHMARK(BM_BlurGauss)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_ResizeBilinear(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    DQImagePtr source = Picture<float>(kFrameWidth, kFrameHeight, 1, DQ_FLOAT, 1.0f);
    DQImagePtr dest = DQMakeImage(kFrameWidth / 2, kFrameHeight / 2, 1, DQ_FLOAT);
    for (auto _ : state) {
        ResizeBilinear(dest.get(), source.get());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * (kFrameWidth / 2) * (kFrameHeight / 2));
}
BENCHMARK(BM_ResizeBilinear)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

#ifdef QUELMOR_HAVE_OPENCV

cv::Mat Wrap(const DQImage& image, int type) {
    return cv::Mat(image.height, image.width, type, image.RowAddress(0), image.rowBytes);
}

// The full-size map that the half-size flow stands for: each pixel reads the flow bilinearly at
// its place in the flow and scales the vector by the ratio of last columns and rows.
void RemapMaps(const DQImage& flow, cv::Mat& mapX, cv::Mat& mapY) {
    const float fx = static_cast<float>(flow.lastColumn) / (kFrameWidth - 1);
    const float fy = static_cast<float>(flow.lastRow) / (kFrameHeight - 1);
    mapX.create(kFrameHeight, kFrameWidth, CV_32FC1);
    mapY.create(kFrameHeight, kFrameWidth, CV_32FC1);
    for (int y = 0; y < kFrameHeight; ++y)
        for (int x = 0; x < kFrameWidth; ++x) {
            float u, v;
            flow.GetFlowBilinear(&u, &v, 0, x * fx, y * fy);
            mapX.at<float>(y, x) = x + u / fx;
            mapY.at<float>(y, x) = y + v / fy;
        }
}

void OpenCVRemap(benchmark::State& state, int dataType, int border) {
    UseWorkers(static_cast<int>(state.range(0)));
    WarpData data(dataType);
    cv::Mat mapX, mapY;
    RemapMaps(*data.flow, mapX, mapY);
    const int type = dataType == DQ_FLOAT ? CV_32FC4 : CV_8UC4;
    cv::Mat source = Wrap(*data.source, type);
    cv::Mat dest = Wrap(*data.dest, type);
    for (auto _ : state) {
        cv::remap(source, dest, mapX, mapY, cv::INTER_LINEAR, border);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kFrameWidth * kFrameHeight);
}

void BM_OpenCVRemap(benchmark::State& state) {
    OpenCVRemap(state, DQ_UCHAR, cv::BORDER_REPLICATE);
}
// The faded edges correspond to a constant border.
void BM_OpenCVRemapConstant(benchmark::State& state) {
    OpenCVRemap(state, DQ_UCHAR, cv::BORDER_CONSTANT);
}
void BM_OpenCVRemapFloat(benchmark::State& state) {
    OpenCVRemap(state, DQ_FLOAT, cv::BORDER_REPLICATE);
}
BENCHMARK(BM_OpenCVRemap)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCVRemapConstant)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_OpenCVRemapFloat)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_OpenCVSepFilter2D(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    DQImagePtr image = Picture<float>(kBlurWidth, kBlurHeight, 3, DQ_FLOAT, 1.0f);
    DQFilterKernel half;
    DQMakeGaussKernel(half, kGaussRadius);
    cv::Mat taps(1, 2 * half.n - 1, CV_32F);
    for (int k = 0; k < half.n; ++k) {
        taps.at<float>(0, half.n - 1 + k) = half.w[k];
        taps.at<float>(0, half.n - 1 - k) = half.w[k];
    }
    cv::Mat mat = Wrap(*image, CV_32FC3);
    for (auto _ : state) {
        cv::sepFilter2D(mat, mat, -1, taps, taps, cv::Point(-1, -1), 0.0, cv::BORDER_REPLICATE);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kBlurWidth * kBlurHeight);
}
BENCHMARK(BM_OpenCVSepFilter2D)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_OpenCVResize(benchmark::State& state) {
    UseWorkers(static_cast<int>(state.range(0)));
    DQImagePtr source = Picture<float>(kFrameWidth, kFrameHeight, 1, DQ_FLOAT, 1.0f);
    cv::Mat from = Wrap(*source, CV_32FC1);
    cv::Mat to(kFrameHeight / 2, kFrameWidth / 2, CV_32FC1);
    for (auto _ : state) {
        cv::resize(from, to, to.size(), 0.0, 0.0, cv::INTER_LINEAR);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * (kFrameWidth / 2) * (kFrameHeight / 2));
}
BENCHMARK(BM_OpenCVResize)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond);

#endif

} // namespace

BENCHMARK_MAIN();
