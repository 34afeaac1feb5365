// Speed of the host path's frame conversions at 1920x1080: packed host RGB (8 bits, 12 bits in
// 16-bit words, half floats) to the engine's four-channel images and back, as each output frame
// pays them. "In" is the conversion of a fetched source frame, with the 12-bit stretch to the
// full 16-bit range; "Out" is the scale back to 12 bits and the conversion into the result and
// matte buffers. A plain copy of the same bytes gives the floor to compare with.
// Each benchmark takes the worker count as its argument.
#include "host/Conversion.h"
#include "host/MyImage.h"
#include "image/Image.h"
#include "sparkhost/DirectWorkers.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <vector>

namespace {

constexpr int kFrameWidth = 1920;
constexpr int kFrameHeight = 1080;
constexpr int kPixels = kFrameWidth * kFrameHeight;

void UseWorkers(int workers) {
    SparkHostUseWorkersDirect(workers, kFrameWidth, kFrameHeight);
}

// Host element and working element sizes of the three host depths.
struct Depth {
    int code;
    int hostBytes;
    int imageBytes;
};
constexpr Depth kEightBit{24, 1, 1};
constexpr Depth kTwelveBit{48, 2, 2};
constexpr Depth kHalf{49, 2, 4};

// A host frame and a working image of one depth, with smooth content in the host frame.
struct Frames {
    explicit Frames(const Depth& d)
        : depth(d), host(size_t(kPixels) * 3 * d.hostBytes), matte(host.size()),
          image(new uint8_t[size_t(kPixels) * 4 * d.imageBytes]) {
        for (int i = 0; i < kPixels * 3; ++i) {
            const float t = 0.5f + 0.45f * std::sin(0.0013f * float(i));
            if (d.code == 24)
                host[size_t(i)] = uint8_t(t * 255.0f);
            else {
                // 12 bits at the top of the word; halves of [0, 1) for depth 49.
                const uint16_t word = d.code == 48 ? uint16_t(uint16_t(t * 4095.0f) << 4)
                                                   : uint16_t(0x3000 + int(t * 3000));
                std::memcpy(&host[size_t(i) * 2], &word, 2);
            }
        }
        info.FrameDepth = d.code;
        info.FrameBytes = kPixels * 3 * d.hostBytes;
        view.MyInit(image, kFrameWidth, kFrameHeight, d.code, kFrameWidth * 4 * d.imageBytes, 4);
    }

    Depth depth;
    std::vector<uint8_t> host;
    std::vector<uint8_t> matte;
    uint8_t* image; // owned by `view`
    MyImage view;
    spark_info_struct info{};
};

void ConvertIn(benchmark::State& state, const Depth& depth) {
    UseWorkers(int(state.range(0)));
    Frames f(depth);
    for (auto _ : state) {
        sparkCombine4Buffers(&f.info, f.image, f.host.data(), nullptr, 0);
        if (depth.code == 48) ZUImageExpand(&f.view, kMyExpand12To16);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
    state.SetBytesProcessed(state.iterations() * kPixels *
                            (3 * depth.hostBytes + 4 * depth.imageBytes));
}

void ConvertOut(benchmark::State& state, const Depth& depth) {
    UseWorkers(int(state.range(0)));
    Frames f(depth);
    sparkCombine4Buffers(&f.info, f.image, f.host.data(), nullptr, 0);
    if (depth.code == 48) ZUImageExpand(&f.view, kMyExpand12To16);
    const std::vector<uint8_t> result(f.image, f.image + size_t(kPixels) * 4 * depth.imageBytes);
    for (auto _ : state) {
        // The scale back works in place: every round starts again from the engine's result.
        if (depth.code == 48) {
            state.PauseTiming();
            std::memcpy(f.image, result.data(), result.size());
            state.ResumeTiming();
            ZUImageScale(&f.view, kMyScale16To12, kMyMaximum12);
        }
        sparkUnCombine4Buffers(&f.info, f.host.data(), f.image, f.matte.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
    state.SetBytesProcessed(state.iterations() * kPixels *
                            (4 * depth.imageBytes + 6 * depth.hostBytes));
}

void BM_In8Bit(benchmark::State& state) {
    ConvertIn(state, kEightBit);
}
void BM_In12Bit(benchmark::State& state) {
    ConvertIn(state, kTwelveBit);
}
void BM_InHalf(benchmark::State& state) {
    ConvertIn(state, kHalf);
}
void BM_Out8Bit(benchmark::State& state) {
    ConvertOut(state, kEightBit);
}
void BM_Out12Bit(benchmark::State& state) {
    ConvertOut(state, kTwelveBit);
}
void BM_OutHalf(benchmark::State& state) {
    ConvertOut(state, kHalf);
}

// The part of the 12-bit "Out" that undoes premultiplication before the scale back.
void BM_Out12BitUnpremultiplyOnly(benchmark::State& state) {
    UseWorkers(int(state.range(0)));
    Frames f(kTwelveBit);
    sparkCombine4Buffers(&f.info, f.image, f.host.data(), nullptr, 0);
    ZUImageExpand(&f.view, kMyExpand12To16);
    for (auto _ : state) {
        ZUImageGetDQImage(&f.view)->Unpremultiply();
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
}

// The floor: copying a working image of the half-float path, the largest of the three.
void BM_CopyFloatImage(benchmark::State& state) {
    std::vector<float> from(size_t(kPixels) * 4, 0.5f), to(from.size());
    for (auto _ : state) {
        std::memcpy(to.data(), from.data(), from.size() * sizeof(float));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kPixels);
    state.SetBytesProcessed(state.iterations() * int64_t(from.size() * sizeof(float) * 2));
}

#define QUELMOR_CONVERSION_BENCH(name)                                                             \
    BENCHMARK(name)->Arg(1)->Arg(2)->UseRealTime()->Unit(benchmark::kMillisecond)
QUELMOR_CONVERSION_BENCH(BM_In8Bit);
QUELMOR_CONVERSION_BENCH(BM_In12Bit);
QUELMOR_CONVERSION_BENCH(BM_InHalf);
QUELMOR_CONVERSION_BENCH(BM_Out8Bit);
QUELMOR_CONVERSION_BENCH(BM_Out12Bit);
QUELMOR_CONVERSION_BENCH(BM_OutHalf);
QUELMOR_CONVERSION_BENCH(BM_Out12BitUnpremultiplyOnly);
BENCHMARK(BM_CopyFloatImage)->UseRealTime()->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
