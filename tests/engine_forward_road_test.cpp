// "Forward" warping through the engine: each frame pushed along its own flow, for every
// interpolation; with the holes filled ("Forward") and left empty (forward alone); and the result
// does not depend on the worker count.
#include "ImagePatterns.h"
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "WarpTestImages.h"

#include <algorithm>
#include <cmath>

using namespace quelmor::test;

namespace {

constexpr int kW = 128;
constexpr int kH = 96;
// The whole picture pans by this much per source frame.
constexpr double kPanX = 8.0;
constexpr double kPanY = 6.0;
constexpr int kInverse = 0;
constexpr int kForward = 2;
constexpr int kForwardAlone = 3;

double Texture(double x, double y, int c) {
    const double v = 128.0 + 40.0 * std::sin(0.21 * x + 0.07 * y + c) +
                     30.0 * std::sin(0.05 * x - 0.17 * y + 2.0 * c) +
                     20.0 * std::cos(0.11 * (x + y) + 0.5 * c);
    return std::clamp(v, 0.0, 255.0);
}

DQImagePtr PanFrame(double time) {
    return MakeImage(kW, kH, 4, DQ_UCHAR, [=](int x, int y, int c) -> double {
        if (c == 3) return 255.0;
        return std::floor(Texture(x - kPanX * time, y - kPanY * time, c) + 0.5);
    });
}

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

// Pixels that nothing landed on and nothing filled: the forward warp leaves them all 0.
template <class Select>
int Empty(const DQImage& image, Select inside) {
    int count = 0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            count += inside(x, y) && At(image, x, y, 3) == 0.0f;
    return count;
}

// Pixels of less than full alpha.
template <class Select>
int Translucent(const DQImage& image, Select inside) {
    int count = 0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            count += inside(x, y) && At(image, x, y, 3) < 255.0f;
    return count;
}

auto Everywhere() {
    return [](int, int) { return true; };
}

// A band of `width` pixels along the picture's edges, and what lies inside it.
auto Border(int width) {
    return [width](int x, int y) {
        return x < width || y < width || x >= kW - width || y >= kH - width;
    };
}
auto Inside(int width) {
    return [width](int x, int y) {
        return x >= width && y >= width && x < kW - width && y < kH - width;
    };
}

struct ForwardRoad : ::testing::Test {
    void SetUp() override {
        for (int n = 0; n < 6; ++n)
            engine.frames.push_back(PanFrame(n));
        ASSERT_EQ(engine.Init(), 0);
    }

    int Render(float sourceTime, int warping, long interpolation) {
        engine.warpingMode = warping;
        engine.timeCurve = [=](float) { return sourceTime; };
        engine.ResetMotion();
        return engine.Render(
            result.Image(),
            {.timeBegin = 100.0f, .timeEnd = 101.0f, .interpolation = interpolation});
    }

    WorkerScope workers{2, kW, kH};
    MemoryClipEngine engine;
    OwnedFrame result{kW, kH, 4, DQ_UCHAR};
};

// Each row pushes the frame that the interpolation asks for with the flow that starts at it: a
// frame pushed with the other frame's flow would move the wrong way and miss the moment by
// twice the pan.
TEST_F(ForwardRoad, EveryInterpolationRendersTheMomentWithTheHolesFilled) {
    struct Case {
        const char* name;
        long interpolation;
        float time;
        double mostBorderError; // mean absolute, of 255
    };
    // "Nearest" moves one frame, so its border strips are filled from their surroundings; the
    // blends take them from the other frame.
    const Case cases[] = {
        {"Nearest, nearer to A", 0, 2.25f, 10.0},
        {"Nearest, nearer to B", 0, 2.75f, 10.0},
        {"Nearest, at the middle", 0, 2.5f, 10.0},
        {"Blend", 1, 2.5f, 6.0},
        {"Blend, off the middle", 1, 3.3f, 6.0},
        {"Weighted Energy Blend", 2, 2.5f, 6.0},
        {"Weighted Energy Blend, off the middle", 2, 2.2f, 6.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(Render(c.time, kForward, c.interpolation), 0);
        const DQImage& out = *result.Pixels();
        EXPECT_EQ(Empty(out, Everywhere()), 0);
        DQImagePtr truth = PanFrame(c.time);
        EXPECT_LT(MeanError(out, *truth, Everywhere()), 2.5);
        EXPECT_LT(MeanError(out, *truth, Border(6)), c.mostBorderError);
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_EQ(engine.returnedChanged, 0);
    }
}

// Forward alone fills nothing: the strips along the edges that a pushed frame does not reach stay
// empty, or, mixed with the other frame, partly transparent; the rest shows the moment.
TEST_F(ForwardRoad, ForwardAloneLeavesTheHolesEmpty) {
    struct Case {
        const char* name;
        long interpolation;
        float time;
    };
    const Case cases[] = {{"Nearest", 0, 2.25f}, {"Blend", 1, 2.5f}, {"Weighted", 2, 2.5f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(Render(c.time, kForwardAlone, c.interpolation), 0);
        const DQImage& out = *result.Pixels();
        // Pushed by at least 2 and 1.5 pixels, frame A leaves the first column and row.
        const int holes = Translucent(out, [](int x, int y) { return x == 0 || y == 0; });
        EXPECT_GT(holes, kW / 2);
        EXPECT_EQ(Translucent(out, Inside(8)), 0);
        EXPECT_LT(MeanError(out, *PanFrame(c.time), Inside(8)), 2.5);
        EXPECT_EQ(engine.Outstanding(), 0);
    }
}

TEST_F(ForwardRoad, BordersComeFromTheFrameThatSeesThem) {
    // Inverse warping stretches the edge of each frame over the strip it does not see; pushed
    // forward, a frame leaves that strip as a hole, which the other frame covers.
    for (long interpolation : {1L, 2L}) {
        SCOPED_TRACE(testing::Message() << "interpolation " << interpolation);
        DQImagePtr truth = PanFrame(2.5);
        ASSERT_EQ(Render(2.5f, kInverse, interpolation), 0);
        const double inverse = MeanError(*result.Pixels(), *truth, Border(4));
        ASSERT_EQ(Render(2.5f, kForward, interpolation), 0);
        const double forward = MeanError(*result.Pixels(), *truth, Border(4));
        EXPECT_LT(forward, 0.7 * inverse) << "inverse " << inverse << ", forward " << forward;
    }
}

TEST_F(ForwardRoad, ResultDoesNotDependOnTheWorkerCount) {
    for (int warping : {kForward, kForwardAlone})
        for (long interpolation : {0L, 1L, 2L}) {
            SCOPED_TRACE(testing::Message()
                         << "warping " << warping << ", interpolation " << interpolation);
            DQImagePtr first;
            ForWorkerCounts(
                [&](int) {
                    ASSERT_EQ(Render(2.4f, warping, interpolation), 0);
                    if (!first)
                        first = Duplicate(*result.Pixels());
                    else
                        EXPECT_TRUE(SamePixels(*first, *result.Pixels()));
                },
                {1, 3});
        }
}

} // namespace
