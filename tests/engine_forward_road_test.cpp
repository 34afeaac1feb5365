// "Forward" warping through the engine: each frame pushed along its own flow, for every
// interpolation; with the holes filled ("Forward") and left empty (forward alone); and the result
// does not depend on the worker count.
#include "PanClip.h"

using namespace quelmor::test;

namespace {

constexpr int kW = 128;
constexpr int kH = 96;
constexpr int kInverse = 0;
constexpr int kForward = 2;
constexpr int kForwardAlone = 3;

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

// A band of `width` pixels along the picture's edges, and what lies inside it.
auto Border(int width) {
    return quelmor::test::Border(kW, kH, width);
}
auto Inside(int width) {
    return [width](int x, int y) {
        return x >= width && y >= width && x < kW - width && y < kH - width;
    };
}

struct ForwardRoad : PanClipTest<kW, kH> {
    int Render(float sourceTime, int warping, long interpolation) {
        engine.warpingMode = warping;
        engine.ResetMotion();
        return RenderAt(sourceTime, {.interpolation = interpolation});
    }
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
        DQImagePtr truth = Truth(c.time);
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
        EXPECT_LT(MeanError(out, *Truth(c.time), Inside(8)), 2.5);
        EXPECT_EQ(engine.Outstanding(), 0);
    }
}

TEST_F(ForwardRoad, BordersComeFromTheFrameThatSeesThem) {
    // Inverse warping stretches the edge of each frame over the strip it does not see; pushed
    // forward, a frame leaves that strip as a hole, which the other frame covers.
    for (long interpolation : {1L, 2L}) {
        SCOPED_TRACE(testing::Message() << "interpolation " << interpolation);
        DQImagePtr truth = Truth(2.5);
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
            ExpectSameForWorkerCounts([&] { return Render(2.4f, warping, interpolation); });
        }
}

} // namespace
