// The in-memory engine of the retime benchmarks: a render shows the source time of the curve,
// every frame handed out comes back, a missing frame fails cleanly, and slow motion computes
// flow once per source interval with the panel's sensitivity.
#include "TestSupport.h"
#include "bench/RetimeBenchSupport.h"
#include "engine/EngineInternal.h"
#include "flow/Flow.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

using namespace quelmor::bench;
using quelmor::test::WorkerScope;

constexpr int kW = 48, kH = 32;

// Channel c at (x, y) of the clip at source time s: frames are opaque gradients 40 levels
// brighter per frame, so a mix of two neighbours equals the clip at the time that the mix shows.
double Level(int c, int x, int y, double s) {
    return c == 3 ? 255.0 : 40.0 * s + (c == 0 ? 10 + x : c == 1 ? 20 + y : 5);
}

struct Clip {
    std::vector<DQImagePtr> owned;
    ClipEngine engine;
    explicit Clip(int frames) {
        for (int i = 0; i < frames; ++i) {
            owned.emplace_back(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
            for (int y = 0; y < kH; ++y)
                for (int x = 0; x < 4 * kW; ++x)
                    owned.back()->Row<uint8_t>(y)[x] = uint8_t(Level(x % 4, x / 4, y, i));
            engine.frames.push_back(owned.back().get());
        }
    }
};

// Largest difference between `image` and the clip at source time s.
double ShownError(const DQImage& image, double s) {
    double worst = 0.0;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < 4 * kW; ++x)
            worst = std::max(worst, std::abs(Level(x % 4, x / 4, y, s) - image.Row<uint8_t>(y)[x]));
    return worst;
}

TEST(RetimeBenchSupport, RendersTheSourceTimeOfTheCurveAndGivesFramesBack) {
    WorkerScope workers(2, kW, kH);
    struct Case {
        const char* name;
        float outputTime, slowDown; // output frames per source frame
        long interpolation;
        double shown; // source time the picture must show
        int code;
    };
    const Case cases[] = {{"4x slow motion, frame 7", 7.0f, 4.0f, 1, 1.75, 0},
                          {"nearest before the middle", 1.4f, 1.0f, 0, 1.0, 0},
                          {"nearest past the middle", 1.6f, 1.0f, 0, 2.0, 0},
                          {"frame B past the end", 3.5f, 1.0f, 1, 0.0, kDQErrBadArgument}};
    for (const Case& c : cases) {
        Clip clip(4);
        clip.engine.timeCurve = [slowDown = c.slowDown](float t) { return t / slowDown; };
        DQImagePtr out(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
        const RetimeSettings settings{0, c.interpolation}; // no motion vectors
        ASSERT_EQ(RenderFrame(clip.engine, out.get(), c.outputTime, settings), c.code) << c.name;
        if (c.code == 0) {
            EXPECT_LE(ShownError(*out, c.shown), 1.0) << c.name;
            EXPECT_GT(clip.engine.checkedOut, 0) << c.name;
        }
        EXPECT_EQ(clip.engine.checkedOut, clip.engine.givenBack) << c.name;
    }
}

// The speed benchmark sorts 4x slow-motion frames by whether they computed flow: with "Cache Last
// Motion" both flows run on the first in-between frame of each source interval only, and the
// panel's percent reaches the flow object as a fraction.
TEST(RetimeBenchSupport, SlowMotionComputesFlowOncePerSourceInterval) {
    WorkerScope workers(2, kW, kH);
    Clip clip(3);
    clip.engine.timeCurve = [](float t) { return t / 4.0f; };
    const RetimeSettings settings{4, 1, 50.f}; // "Best", "Blend", sensitivity 50
    DQImagePtr out(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
    std::vector<int64_t> runs;
    for (int n = 0; n < 8; ++n) {
        const int64_t before = clip.engine.internal ? clip.engine.internal->flowRuns : 0;
        ASSERT_EQ(RenderFrame(clip.engine, out.get(), float(n), settings), 0) << "frame " << n;
        runs.push_back(clip.engine.internal->flowRuns - before);
    }
    EXPECT_EQ(runs, (std::vector<int64_t>{0, 2, 0, 0, 0, 2, 0, 0}));
    ASSERT_NE(clip.engine.internal->opticalFlow, nullptr);
    EXPECT_FLOAT_EQ(clip.engine.internal->opticalFlow->sensitivity, 0.5f);
    EXPECT_EQ(clip.engine.checkedOut, clip.engine.givenBack);
}

// The quality benchmark's smart rows must render with "Inverse + Smart Blend", not the default.
TEST(RetimeBenchSupport, TheWarpingSettingReachesTheEngine) {
    WorkerScope workers(2, kW, kH);
    Clip clip(3);
    DQImagePtr out(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
    for (int warping : {1, 0}) {
        RetimeSettings settings;
        settings.warping = warping;
        ASSERT_EQ(RenderFrame(clip.engine, out.get(), 0.5f, settings), 0) << warping;
        EXPECT_EQ(clip.engine.internal->warping, warping);
    }
    EXPECT_EQ(clip.engine.checkedOut, clip.engine.givenBack);
}

} // namespace
