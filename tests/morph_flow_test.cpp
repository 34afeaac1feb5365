// The morph flow: dense motion spread from point and curve correspondences alone, and the curve
// resampling under it.
#include "FlowTestImages.h"
#include "TestSupport.h"
#include "flow/MorphFlow.h"
#include "image/Progress.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

using quelmor::test::At;
using quelmor::test::FloatImage;
using quelmor::test::ForWorkerCounts;
using quelmor::test::PrintedBy;
using quelmor::test::WorkerScope;

// Level 0 of the object in these tests: the input is taken as is.
constexpr int kW = 128;
constexpr int kH = 64;
constexpr float kMX = kW - 1;
constexpr float kMY = kH - 1;

struct Pair {
    float x1, y1, x2, y2;
};

std::unique_ptr<DQMorphFlow> MorphOf(const std::vector<Pair>& pairs, int w = kW, int h = kH,
                                     bool spread = true, float sensitivity = 1.0f) {
    auto morph = std::make_unique<DQMorphFlow>(w, h, 0, 2);
    morph->SetSensitivity(sensitivity);
    morph->BeginGeometry();
    for (const Pair& p : pairs)
        morph->AddGeometryPoint(p.x1, p.y1, p.x2, p.y2, float(w - 1), float(h - 1));
    morph->EndGeometry();
    morph->ComputeMorph(nullptr, nullptr, spread);
    return morph;
}

// The greatest distance of any vector of the flow from (u, v); NaN counts as infinitely far.
float FarthestFrom(const DQImage* flow, float u, float v) {
    float worst = 0.0f;
    for (int y = 0; y < flow->height; ++y)
        for (int x = 0; x < flow->width; ++x) {
            const float d = std::hypot(At(flow, x, y, 0) - u, At(flow, x, y, 1) - v);
            worst = std::isnan(d) ? INFINITY : std::max(worst, d);
        }
    return worst;
}

bool SameFlow(const DQImage* a, const DQImage* b) {
    for (int y = 0; y < a->height; ++y)
        for (int x = 0; x < 2 * a->width; ++x)
            if (a->Row<float>(y)[x] != b->Row<float>(y)[x]) return false;
    return true;
}

TEST(MorphFlowLevels, LevelsHalveDownToTwoByTwo) {
    struct Case {
        int width, height, reduction;
        int levels, level0W, level0H;
        int coarseW, coarseH;
    };
    // Each level halves, held at 2, until both sides are 2: a narrow frame keeps halving its long
    // side after the short one has stopped.
    const Case cases[] = {
        {1920, 1080, 0, 11, 1920, 1080, 2, 2},
        {320, 180, 1, 7, 160, 90, 2, 2},
        {64, 4, 0, 6, 64, 4, 2, 2},
        {3, 3, 0, 2, 3, 3, 2, 2},
        {2, 2, 0, 2, 2, 2, 2, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << "x" << c.height << " /" << c.reduction);
        DQMorphFlow morph(c.width, c.height, c.reduction, 2);
        EXPECT_EQ(morph.error, 0);
        EXPECT_EQ(morph.numLevels, c.levels);
        EXPECT_EQ(morph.width, c.level0W);
        EXPECT_EQ(morph.height, c.level0H);
        ASSERT_GE(morph.numLevels, 1);
        EXPECT_EQ(morph.flowLevels[morph.numLevels - 1]->width, c.coarseW);
        EXPECT_EQ(morph.flowLevels[morph.numLevels - 1]->height, c.coarseH);
        EXPECT_EQ(morph.startLevel, morph.numLevels - 1);
        EXPECT_EQ(morph.GetFlow(), morph.flowLevels[0]);
    }
}

TEST(MorphFlowLevels, LevelZeroUnderTwoPixelsIsRefused) {
    DQMorphFlow quiet(0, 5, 40, 2, 2); // 5 halved twice is 1
    EXPECT_EQ(quiet.error, kDQErrBadArgument);
    EXPECT_EQ(quiet.GetFlow(), nullptr);
    quiet.BeginGeometry();
    quiet.AddGeometryPoint(1, 1, 2, 2, 4, 39);
    quiet.EndGeometry();
    EXPECT_THROW(quiet.ComputeMorph(nullptr, nullptr, true), DQErr);
    EXPECT_THROW(DQMorphFlow(1, 5, 40, 2, 2), DQErr);
}

TEST(MorphFlow, WithoutPointsTheFlowIsZero) {
    for (bool spread : {true, false}) {
        SCOPED_TRACE(spread ? "spread" : "plain");
        auto morph = MorphOf({}, kW, kH, spread);
        EXPECT_EQ(FarthestFrom(morph->GetFlow(), 0.0f, 0.0f), 0.0f);
    }
}

TEST(MorphFlow, OnePointPairMovesTheWholeImageAlike) {
    struct Case {
        const char* name;
        Pair pair;
    };
    const Case cases[] = {
        {"centre", {64, 32, 70, 29}},
        {"corner", {0, 0, -3, 5.5f}},
        {"last pixel", {127, 63, 120, 60}},
        {"fractional", {30.4f, 10.6f, 31.9f, 12.1f}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        auto morph = MorphOf({c.pair});
        const float u = c.pair.x2 - c.pair.x1, v = c.pair.y2 - c.pair.y1;
        EXPECT_LT(FarthestFrom(morph->GetFlow(), u, v), 1e-3f);
    }
}

TEST(MorphFlow, PointsInSourceCoordinatesAreScaledToLevelZero) {
    // A source of 256 x 128 pixels on a level 0 halved once: positions map by the ratio of the
    // last columns and rows, 127 / 255 and 63 / 127.
    DQMorphFlow morph(256, 128, 1, 2);
    morph.BeginGeometry();
    morph.AddGeometryPoint(100, 50, 108, 42, 255, 127);
    morph.EndGeometry();
    morph.ComputeMorph(nullptr, nullptr, true);
    EXPECT_LT(FarthestFrom(morph.GetFlow(), 8.0f * 127 / 255, -8.0f * 63 / 127), 1e-3f);
}

TEST(MorphFlow, TwoPairsInterpolateBetweenThem) {
    const Pair left{16, 32, 24, 32}, right{112, 32, 108, 36}; // (+8, 0) and (-4, +4)
    auto morph = MorphOf({left, right});
    const DQImage* flow = morph->GetFlow();
    // Near each point the flow is that point's own motion.
    EXPECT_NEAR(At(flow, 16, 32, 0), 8.0f, 1.0f);
    EXPECT_NEAR(At(flow, 16, 32, 1), 0.0f, 1.0f);
    EXPECT_NEAR(At(flow, 112, 32, 0), -4.0f, 1.0f);
    EXPECT_NEAR(At(flow, 112, 32, 1), 4.0f, 1.0f);
    // Between them it passes from one to the other without leaving their range.
    float lastU = INFINITY, lastV = -INFINITY;
    for (int x = 16; x <= 112; ++x) {
        const float u = At(flow, x, 32, 0), v = At(flow, x, 32, 1);
        EXPECT_LE(u, lastU + 1e-4f) << "x " << x;
        EXPECT_GE(v, lastV - 1e-4f) << "x " << x;
        EXPECT_GE(u, -4.0f - 1e-3f);
        EXPECT_LE(u, 8.0f + 1e-3f);
        lastU = u;
        lastV = v;
    }
    EXPECT_GT(At(flow, 64, 32, 0), -2.0f);
    EXPECT_LT(At(flow, 64, 32, 0), 6.0f);
    EXPECT_GT(At(flow, 64, 32, 1), 0.5f);
    EXPECT_LT(At(flow, 64, 32, 1), 3.5f);
}

TEST(MorphFlow, PlainLevelsPinThePointsOnLevelZero) {
    auto morph = MorphOf({{16, 32, 24, 32}, {112, 32, 108, 36}}, kW, kH, false);
    const DQImage* flow = morph->GetFlow();
    EXPECT_EQ(At(flow, 16, 32, 0), 8.0f);
    EXPECT_EQ(At(flow, 16, 32, 1), 0.0f);
    EXPECT_EQ(At(flow, 112, 32, 0), -4.0f);
    EXPECT_EQ(At(flow, 112, 32, 1), 4.0f);
}

TEST(MorphFlow, PairsMeetingAtOnePixelAreAveraged) {
    auto morph = MorphOf({{40, 20, 44, 20}, {40.2f, 19.8f, 40.2f, 27.8f}});
    EXPECT_LT(FarthestFrom(morph->GetFlow(), 2.0f, 4.0f), 1e-3f);
}

TEST(MorphFlow, PointsOutsideTheFrameAreDropped) {
    const Pair inside{50, 30, 53, 28};
    struct Case {
        const char* name;
        Pair outside;
    };
    const Case cases[] = {
        {"left", {-0.6f, 10, 20, 20}},       {"above", {10, -0.6f, 20, 20}},
        {"right", {127.5f, 10, 20, 20}},     {"below", {10, 63.5f, 20, 20}},
        {"far away", {-1e6f, 1e6f, 0, 0}},   {"beyond int", {3e30f, 10, 0, 0}},
        {"not a number", {NAN, 10, 20, 20}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(FarthestFrom(MorphOf({c.outside})->GetFlow(), 0.0f, 0.0f), 0.0f);
        EXPECT_LT(FarthestFrom(MorphOf({c.outside, inside})->GetFlow(), 3.0f, -2.0f), 1e-3f);
    }
}

TEST(MorphFlow, ACurveSlidingAlongItselfMovesAlongIt) {
    // The same horizontal polyline, moved 6 pixels along itself: every point of it moves (+6, 0),
    // although the two curves cover the same line. The vertices are spaced unevenly, so point i of
    // one is not point i of the other until both are resampled.
    const std::vector<float> x1 = {20, 23, 50, 51, 90, 100}, y1(6, 32.0f);
    const std::vector<float> x2 = {26, 60, 61, 70, 104, 106}, y2(6, 32.0f);
    DQMorphFlow morph(kW, kH, 0, 2);
    morph.BeginGeometry();
    morph.AddGeometryCurve(6, x1.data(), y1.data(), x2.data(), y2.data(), kMX, kMY);
    morph.EndGeometry();
    morph.ComputeMorph(nullptr, nullptr, true);
    const DQImage* flow = morph.GetFlow();
    for (int x = 20; x <= 100; x += 4) {
        SCOPED_TRACE(x);
        EXPECT_NEAR(At(flow, x, 32, 0), 6.0f, 0.05f);
        EXPECT_NEAR(At(flow, x, 32, 1), 0.0f, 0.05f);
    }
}

TEST(MorphFlow, ACurveOfOnePointOrOutsideAddsWhatItCan) {
    const float one[] = {40}, oneY[] = {20}, oneX2[] = {45}, oneY2[] = {22};
    DQMorphFlow morph(kW, kH, 0, 2);
    // A curve of one point moves that point.
    morph.BeginGeometry();
    morph.AddGeometryCurve(1, one, oneY, oneX2, oneY2, kMX, kMY);
    morph.EndGeometry();
    morph.ComputeMorph(nullptr, nullptr, true);
    EXPECT_LT(FarthestFrom(morph.GetFlow(), 5.0f, 2.0f), 1e-3f);
    // A curve that begins outside the frame adds nothing, nor one far beyond any int, nor no
    // points at all.
    const float far1[] = {3e30f, 60}, far2[] = {3e30f, 70};
    const float x1[] = {-20, 60}, y1[] = {30, 30}, x2[] = {-10, 70}, y2[] = {30, 30};
    morph.BeginGeometry();
    morph.AddGeometryCurve(2, x1, y1, x2, y2, kMX, kMY);
    morph.AddGeometryCurve(0, x1, y1, x2, y2, kMX, kMY);
    morph.AddGeometryCurve(2, far1, y1, far2, y2, kMX, kMY);
    morph.EndGeometry();
    morph.ComputeMorph(nullptr, nullptr, true);
    EXPECT_EQ(FarthestFrom(morph.GetFlow(), 0.0f, 0.0f), 0.0f);
    // More points than the working arrays hold are refused.
    std::vector<float> many(DQMorphFlow::kMaxCurvePoints + 1, 10.0f);
    EXPECT_THROW(morph.AddGeometryCurve(int(many.size()), many.data(), many.data(), many.data(),
                                        many.data(), kMX, kMY),
                 DQErr);
}

TEST(MorphFlow, ZeroPointsHoldTheImageStill) {
    DQMorphFlow morph(kW, kH, 0, 2);
    morph.BeginGeometry();
    morph.AddGeometryPoint(30, 30, 40, 30, kMX, kMY);
    morph.AddGeometryPoint(30, 30, 50, 30, kMX, kMY);
    morph.AddGeometryZeroPoint(30, 30, kMX, kMY); // replaces both at its pixel
    morph.EndGeometry();
    morph.ComputeMorph(nullptr, nullptr, true);
    EXPECT_EQ(FarthestFrom(morph.GetFlow(), 0.0f, 0.0f), 0.0f);
}

TEST(MorphFlow, SensitivityZeroGivesZeroFlowAndLowerOnesStartFiner) {
    auto still = MorphOf({{64, 32, 70, 29}}, kW, kH, true, 0.0f);
    EXPECT_EQ(FarthestFrom(still->GetFlow(), 0.0f, 0.0f), 0.0f);
    EXPECT_EQ(still->startLevel, 0);
    // 0.5 starts two levels lower with a fade of 0: the coarsest level used gives nothing, and a
    // point far from the others' reach shows less of its motion at the far end of the frame.
    auto full = MorphOf({{8, 8, 14, 8}});
    auto half = MorphOf({{8, 8, 14, 8}}, kW, kH, true, 0.5f);
    EXPECT_EQ(half->startLevel, half->numLevels - 2);
    EXPECT_NEAR(At(full->GetFlow(), 120, 56, 0), 6.0f, 1e-3f);
    EXPECT_LT(At(half->GetFlow(), 120, 56, 0), 5.0f);
}

TEST(MorphFlow, ResultImageGetsACopyAndAMisfitIsRefused) {
    DQMorphFlow morph(kW, kH, 0, 2);
    morph.BeginGeometry();
    morph.AddGeometryPoint(64, 32, 70, 29, kMX, kMY);
    morph.EndGeometry();
    auto result = FloatImage(kW, kH, 2, -99.0f);
    morph.ComputeMorph(result.get(), nullptr, true);
    EXPECT_TRUE(SameFlow(result.get(), morph.GetFlow()));
    auto narrow = FloatImage(kW - 1, kH, 2);
    auto oneChannel = FloatImage(kW, kH, 1);
    EXPECT_THROW(morph.ComputeMorph(narrow.get(), nullptr, true), DQErr);
    EXPECT_THROW(morph.ComputeMorph(oneChannel.get(), nullptr, true), DQErr);
}

TEST(MorphFlow, ProgressEndsAtOneAndInterruptionIsThrown) {
    DQMorphFlow morph(kW, kH, 0, 2);
    morph.BeginGeometry();
    morph.AddGeometryPoint(64, 32, 70, 29, kMX, kMY);
    morph.EndGeometry();
    ZUIdleAndProgressClass progress;
    morph.ComputeMorph(nullptr, &progress, true);
    EXPECT_EQ(progress.progress, 1.0f);
    progress.SetInterrupted(true);
    try {
        morph.ComputeMorph(nullptr, &progress, true);
        ADD_FAILURE() << "an interrupted run went on";
    } catch (DQErr code) {
        EXPECT_EQ(code, kDQErrInterrupted);
    }
}

TEST(MorphFlow, ResultsDoNotDependOnWorkersOrEarlierRuns) {
    const std::vector<Pair> pairs = {
        {10, 5, 14, 9}, {60, 40, 55, 41}, {100, 20, 101, 12}, {90, 60, 80, 50}, {33, 50, 40, 52}};
    DQImagePtr reference;
    ForWorkerCounts([&](int) {
        auto morph = MorphOf(pairs);
        if (!reference) {
            reference = FloatImage(kW, kH, 2);
            reference->CopyWhole(morph->GetFlow());
            return;
        }
        EXPECT_TRUE(SameFlow(morph->GetFlow(), reference.get()));
    });
    // A second run of one object, after a run with other geometry and sensitivity, gives the
    // same flow as a fresh object.
    DQMorphFlow reused(kW, kH, 0, 2);
    for (float sensitivity : {0.3f, 0.8f, 1.0f}) {
        reused.SetSensitivity(sensitivity);
        reused.BeginGeometry();
        for (const Pair& p : pairs)
            reused.AddGeometryPoint(p.x1, p.y1, p.x2, p.y2, kMX, kMY);
        reused.EndGeometry();
        reused.ComputeMorph(nullptr, nullptr, true);
    }
    EXPECT_TRUE(SameFlow(reused.GetFlow(), reference.get()));
}

// --- curves ---

float StepLength(const std::vector<float>& x, const std::vector<float>& y, int i) {
    return std::hypot(x[i + 1] - x[i], y[i + 1] - y[i]);
}

TEST(MorphCurve, WalkEndsOnTheLastPointByEachOfItsThreeEndings) {
    struct Case {
        const char* name;
        std::vector<float> x, y;
        int m;
        int ending;
    };
    const Case cases[] = {
        // Steps of 7/3 fall inside the segment, and the rounded steps leave more than one step
        // for the last: that output is replaced by the last point.
        {"last step inside a segment", {0, 7}, {0, 0}, 4, 1},
        // Steps of exactly one segment meet every input point.
        {"steps on input points", {0, 1, 2, 3}, {0, 0, 0, 0}, 4, 2},
        // Steps of 1/3 leave a little less than a step at the end: the input runs out first.
        {"input runs out", {0, 1}, {0, 0}, 4, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const int n = int(c.x.size());
        std::vector<float> x(c.m), y(c.m);
        std::string printed;
        int ending = 0;
        printed = PrintedBy(
            [&] { ending = DQWalkCurve(n, c.x.data(), c.y.data(), c.m, x.data(), y.data()); });
        EXPECT_EQ(ending, c.ending);
        EXPECT_EQ(printed, "");
        EXPECT_EQ(x[0], c.x[0]);
        EXPECT_EQ(x[c.m - 1], c.x[n - 1]);
        EXPECT_EQ(y[c.m - 1], c.y[n - 1]);
    }
}

TEST(MorphCurve, ResampledPointsAreEvenlySpacedAlongTheCurve) {
    struct Case {
        const char* name;
        std::vector<float> x, y;
        int m;
    };
    const Case cases[] = {
        {"straight line", {0, 10}, {0, 0}, 11},
        {"uneven vertices", {0, 0.5f, 7, 7.2f, 20}, {0, 0, 0, 0, 0}, 9},
        {"right angle", {0, 10, 10}, {0, 0, 10}, 21},
        {"zigzag", {0, 5, 10, 15, 20}, {0, 4, 0, 4, 0}, 30},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const int n = int(c.x.size());
        std::vector<float> x(c.m), y(c.m);
        const int rounds =
            DQResampleCurve(n, c.x.data(), c.y.data(), c.m, x.data(), y.data(), 0.99f);
        ASSERT_GE(rounds, 1);
        float least = INFINITY, greatest = 0.0f;
        for (int i = 0; i + 1 < c.m; ++i) {
            least = std::min(least, StepLength(x, y, i));
            greatest = std::max(greatest, StepLength(x, y, i));
        }
        EXPECT_GE(least / greatest, 0.99f);
        EXPECT_EQ(x.front(), c.x.front());
        EXPECT_EQ(y.front(), c.y.front());
        EXPECT_EQ(x.back(), c.x.back());
        EXPECT_EQ(y.back(), c.y.back());
    }
}

TEST(MorphCurve, TrivialResamplings) {
    const float x[] = {3, 3.0001f, 9}, y[] = {4, 4, 12};
    struct Case {
        const char* name;
        int n, m;
        std::vector<float> x, y;
    };
    // A curve shorter than 0.001 is copies of its first point; one output is the first point;
    // two are the ends.
    const Case cases[] = {
        {"too short", 2, 4, {3, 3, 3, 3}, {4, 4, 4, 4}},
        {"one output", 3, 1, {3}, {4}},
        {"two outputs", 3, 2, {3, 9}, {4, 12}},
        {"one input", 1, 3, {3, 3, 3}, {4, 4, 4}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<float> ox(c.m, -1.0f), oy(c.m, -1.0f);
        EXPECT_EQ(DQResampleCurve(c.n, x, y, c.m, ox.data(), oy.data(), 0.99f), 1);
        EXPECT_EQ(ox, c.x);
        EXPECT_EQ(oy, c.y);
    }
    float untouched = -1.0f;
    EXPECT_EQ(DQResampleCurve(0, x, y, 1, &untouched, &untouched, 0.99f), -1);
    EXPECT_EQ(untouched, -1.0f);
}

TEST(MorphCurve, MoreThanTheStackHoldsIsResampledToo) {
    const int m = DQMorphFlow::kMaxCurvePoints + 500;
    const float x[] = {0, 100, 100}, y[] = {0, 0, 50};
    std::vector<float> ox(m), oy(m);
    EXPECT_GE(DQResampleCurve(3, x, y, m, ox.data(), oy.data(), 0.9f), 1);
    EXPECT_EQ(ox.back(), 100.0f);
    EXPECT_EQ(oy.back(), 50.0f);
}

TEST(MorphExpand, CoarseVectorsAreSpreadWithoutRescaling) {
    auto coarse = FloatImage(3, 2, 2);
    auto fine = FloatImage(5, 3, 2);
    // x grows by 1 per coarse column; y is the row.
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            quelmor::test::Put(coarse.get(), x, y, float(x), float(y));
    DQMorphExpandFlow(coarse.get(), fine.get());
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x) {
            EXPECT_FLOAT_EQ(At(fine.get(), x, y, 0), x * 0.5f);
            EXPECT_FLOAT_EQ(At(fine.get(), x, y, 1), y * 0.5f);
        }
    auto wrong = FloatImage(5, 3, 1);
    EXPECT_THROW(DQMorphExpandFlow(coarse.get(), wrong.get()), DQErr);
}

} // namespace
