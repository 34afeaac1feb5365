#pragma once
// A smooth texture panning at a constant speed: the frames of a clip whose true motion and true
// in-between pictures are known, an engine fixture loaded with them, and the measures of a render
// against the truth.
#include "ImagePatterns.h"
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "WarpTestImages.h"

#include <algorithm>
#include <cmath>

namespace quelmor::test {

// The whole picture pans by this much per source frame.
inline constexpr double kPanX = 8.0;
inline constexpr double kPanY = 6.0;

// A smooth texture defined everywhere, different in each colour channel.
inline double PanTexture(double x, double y, int c) {
    const double v = 128.0 + 40.0 * std::sin(0.21 * x + 0.07 * y + c) +
                     30.0 * std::sin(0.05 * x - 0.17 * y + 2.0 * c) +
                     20.0 * std::cos(0.11 * (x + y) + 0.5 * c);
    return std::clamp(v, 0.0, 255.0);
}

// The scene at source time `time`: the texture moved by the pan, opaque.
inline DQImagePtr PanFrame(int width, int height, double time) {
    return MakeImage(width, height, 4, DQ_UCHAR, [=](int x, int y, int c) -> double {
        if (c == 3) return 255.0;
        return std::floor(PanTexture(x - kPanX * time, y - kPanY * time, c) + 0.5);
    });
}

// Mean absolute difference over the colour channels of the pixels that `inside` selects.
template <class Select>
double MeanError(const DQImage& image, const DQImage& truth, Select inside) {
    double sum = 0.0;
    int count = 0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            if (inside(x, y))
                for (int c = 0; c < 3; ++c, ++count)
                    sum += std::fabs(At(image, x, y, c) - At(truth, x, y, c));
    return count ? sum / count : 0.0;
}

inline auto Everywhere() {
    return [](int, int) { return true; };
}

// A band of `band` pixels along the edges of a picture of width x height.
inline auto Border(int width, int height, int band) {
    return [=](int x, int y) {
        return x < band || y < band || x >= width - band || y >= height - band;
    };
}

// Six frames of the pan, W x H, loaded into an initialised engine of type Engine, with a result
// frame of the same size and two workers.
template <int W, int H, class Engine = MemoryClipEngine>
struct PanClipTest : ::testing::Test {
    void SetUp() override {
        for (int n = 0; n < 6; ++n)
            engine.frames.push_back(PanFrame(W, H, n));
        ASSERT_EQ(engine.Init(), 0);
    }

    // The true picture at source time `time`.
    static DQImagePtr Truth(double time) { return PanFrame(W, H, time); }

    // Renders output frame 100 as the moment `sourceTime` of the source, with `settings`.
    int RenderAt(float sourceTime, RenderSettings settings = {}) {
        engine.timeCurve = [=](float) { return sourceTime; };
        settings.timeBegin = 100.0f;
        settings.timeEnd = 101.0f;
        return engine.Render(result.Image(), settings);
    }

    // Expects `render`() to succeed and leave the same pixels in `result` with 1 and 3 workers.
    template <class Render>
    void ExpectSameForWorkerCounts(Render&& render) {
        DQImagePtr first;
        ForWorkerCounts(
            [&](int) {
                ASSERT_EQ(render(), 0);
                if (!first)
                    first = Duplicate(*result.Pixels());
                else
                    EXPECT_TRUE(SamePixels(*first, *result.Pixels()));
            },
            {1, 3});
    }

    WorkerScope workers{2, W, H};
    Engine engine;
    OwnedFrame result{W, H, 4, DQ_UCHAR};
};

} // namespace quelmor::test
