// "Inverse + Smart Blend" through the engine: every interpolation renders, nothing is left
// uncovered, the borders that a pan uncovers come from the frame that sees them, and the result
// does not depend on the worker count.
#include "PanClip.h"

using namespace quelmor::test;

namespace {

constexpr int kW = 128;
constexpr int kH = 96;
constexpr int kInverse = 0;
constexpr int kSmart = 1;

// Pixels whose alpha is not full: what neither frame covered and nothing filled.
int Unfilled(const DQImage& image) {
    int count = 0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            count += At(image, x, y, 3) != 255.0f;
    return count;
}

// The pan of the clip goes right and down, so that at an in-between moment a strip along each
// border is seen by one frame only, and two corners by neither.
struct SmartRoad : PanClipTest<kW, kH> {
    int Render(float sourceTime, int warping, long interpolation) {
        engine.warpingMode = warping;
        engine.ResetMotion();
        return RenderAt(sourceTime, {.interpolation = interpolation});
    }
};

// A band of `width` pixels along the picture's edges.
auto Border(int width) {
    return quelmor::test::Border(kW, kH, width);
}

TEST_F(SmartRoad, EveryInterpolationRendersTheMomentWithNothingLeftUncovered) {
    struct Case {
        const char* name;
        long interpolation;
        float time;
        double mostError, mostBorderError; // mean absolute, of 255
    };
    const Case cases[] = {
        {"Nearest, nearer to A", 0, 2.25f, 2.0, 5.0},
        {"Nearest, nearer to B", 0, 2.75f, 2.0, 5.0},
        {"Blend", 1, 2.5f, 2.0, 5.0},
        {"Blend, off the middle", 1, 3.3f, 2.0, 5.0},
        {"Weighted Energy Blend", 2, 2.5f, 2.0, 5.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(Render(c.time, kSmart, c.interpolation), 0);
        const DQImage& out = *result.Pixels();
        EXPECT_EQ(Unfilled(out), 0);
        DQImagePtr truth = Truth(c.time);
        EXPECT_LT(MeanError(out, *truth, Everywhere()), c.mostError);
        EXPECT_LT(MeanError(out, *truth, Border(6)), c.mostBorderError);
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_EQ(engine.returnedChanged, 0);
    }
}

TEST_F(SmartRoad, CornersThatNeitherFrameSeesAreFilledFromTheirSurroundings) {
    // The pan goes right and down: at mid-interval frame A has nothing for the left and top
    // strips, frame B nothing for the right and bottom ones, so the bottom-left and top-right
    // corners are seen by neither. They are filled, and close to the pixels next to them.
    ASSERT_EQ(Render(2.5f, kSmart, 1), 0);
    const DQImage& out = *result.Pixels();
    DQImagePtr truth = Truth(2.5);
    auto corners = [](int x, int y) { return (x < 3 && y >= kH - 3) || (x >= kW - 3 && y < 3); };
    EXPECT_EQ(Unfilled(out), 0);
    EXPECT_LT(MeanError(out, *truth, corners), 20.0);
}

TEST_F(SmartRoad, BordersComeFromTheFrameThatSeesThem) {
    // Plain inverse warping stretches the edge of the frame over the strip it does not see; with
    // smart blend the strip comes from the other frame, which does see it.
    for (long interpolation : {1L, 2L}) {
        SCOPED_TRACE(testing::Message() << "interpolation " << interpolation);
        DQImagePtr truth = Truth(2.5);
        ASSERT_EQ(Render(2.5f, kInverse, interpolation), 0);
        const double inverse = MeanError(*result.Pixels(), *truth, Border(4));
        ASSERT_EQ(Render(2.5f, kSmart, interpolation), 0);
        const double smart = MeanError(*result.Pixels(), *truth, Border(4));
        EXPECT_LT(smart, 0.7 * inverse) << "inverse " << inverse << ", smart " << smart;
    }
}

TEST_F(SmartRoad, InsideThePictureItIsThePlainInverseBlend) {
    // The warps' coverage only falls below full where a vector leaves the picture: everywhere
    // else both frames cover, the mix is the dissolve and nothing is filled, so the pixels are
    // those of plain inverse warping, bit for bit. Objects that uncover background inside the
    // picture are not told apart by this mode.
    for (long interpolation : {0L, 1L, 2L}) {
        SCOPED_TRACE(testing::Message() << "interpolation " << interpolation);
        ASSERT_EQ(Render(2.4f, kInverse, interpolation), 0);
        DQImagePtr inverse = Duplicate(*result.Pixels());
        ASSERT_EQ(Render(2.4f, kSmart, interpolation), 0);
        int differing = 0, borderDiffering = 0;
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x) {
                bool same = true;
                for (int c = 0; c < 4; ++c)
                    same = same && At(*inverse, x, y, c) == At(*result.Pixels(), x, y, c);
                (Border(10)(x, y) ? borderDiffering : differing) += !same;
            }
        EXPECT_EQ(differing, 0);
        EXPECT_GT(borderDiffering, 0) << "the border strip is where the modes part";
    }
}

TEST_F(SmartRoad, ResultDoesNotDependOnTheWorkerCount) {
    for (long interpolation : {0L, 1L, 2L}) {
        SCOPED_TRACE(testing::Message() << "interpolation " << interpolation);
        ExpectSameForWorkerCounts([&] { return Render(2.4f, kSmart, interpolation); });
    }
}

TEST_F(SmartRoad, AnUnknownWarpingIsRefusedBeforeAnyFetch) {
    for (int warping : {-1, 4}) {
        engine.fetches.clear();
        std::string printed =
            PrintedBy([&] { EXPECT_EQ(Render(2.5f, warping, 1), kDQErrBadArgument); });
        EXPECT_NE(printed.find("not available"), std::string::npos);
        EXPECT_TRUE(engine.fetches.empty());
        EXPECT_EQ(engine.Outstanding(), 0);
    }
}

} // namespace
