// Motion from geometry alone on the single-layer road: a layer whose engine answers that it wants
// no optical flow is moved by the morph flow of its point pairs.
#include "ImagePatterns.h"
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EngineInternal.h"
#include "flow/MorphFlow.h"

#include <algorithm>
#include <cmath>

using namespace quelmor::test;

namespace {

constexpr int kW = 96;
constexpr int kH = 64;
// Every pixel of the clip moves by this much per source frame.
constexpr int kStepX = 4;
constexpr int kStepY = -2;

// A smooth texture moved by (kStepX, kStepY) per frame, sampled at time `t` in source frames.
DQImagePtr ClipFrame(double t) {
    return MakeImage(kW, kH, 4, DQ_UCHAR, [=](int x, int y, int c) -> double {
        const double u = x - kStepX * t, v = y - kStepY * t;
        const double value = 128.0 + 50.0 * std::sin(u * 0.31 + v * 0.17 + c) +
                             40.0 * std::cos(u * 0.11 - v * 0.29 + 2.0 * c);
        return c == 3 ? 255.0 : std::clamp(value, 0.0, 255.0);
    });
}

// Mean absolute difference of the colour channels over the pixels at least `margin` from the
// edges.
double MeanDifference(const DQImage& a, const DQImage& b, int margin) {
    double sum = 0.0;
    int n = 0;
    for (int y = margin; y < a.height - margin; ++y)
        for (int x = margin; x < a.width - margin; ++x)
            for (int c = 0; c < 3; ++c, ++n)
                sum += std::fabs(At(a, x, y, c) - At(b, x, y, c));
    return sum / n;
}

// Gives, for the frame pair it is asked about, the points of `tracked` (positions in frame 0)
// at both times.
class TrackingEngine : public MemoryClipEngine {
public:
    explicit TrackingEngine(const std::vector<std::array<float, 2>>& points) : points_(points) {}
    int GetGeometryPoints(int layer, unsigned long index, float timeA, float timeB,
                          unsigned long* count, float** xA, float** yA, float** xB,
                          float** yB) override {
        geometryPoints.clear();
        for (const auto& p : points_)
            geometryPoints.push_back({p[0] + kStepX * timeA, p[1] + kStepY * timeA,
                                      p[0] + kStepX * timeB, p[1] + kStepY * timeB});
        return MemoryClipEngine::GetGeometryPoints(layer, index, timeA, timeB, count, xA, yA, xB,
                                                   yB);
    }

private:
    const std::vector<std::array<float, 2>>& points_;
};

struct MorphClip : ::testing::Test {
    void SetUp() override {
        for (int n = 0; n < 6; ++n)
            engine.frames.push_back(ClipFrame(n));
        engine.backgroundOpticalFlow = false;
        ASSERT_EQ(engine.Init(), 0);
    }
    int Render(float sourceTime, RenderSettings settings = {}) {
        engine.timeCurve = [=](float) { return sourceTime; };
        settings.timeBegin = 100.0f;
        settings.timeEnd = 101.0f;
        return engine.Render(result.Image(), settings);
    }
    // One geometry of point pairs that follow the clip's motion from frame a to frame b; the
    // engine asks for both directions, so the pairs are made for the times it asks.
    void FollowClip(std::vector<std::array<float, 2>> points) {
        engine.geometries = 1;
        tracked = std::move(points);
    }
    ZUQuelmor4Internal& State() { return *engine.internal; }

    WorkerScope workers{2, kW, kH};
    std::vector<std::array<float, 2>> tracked;
    TrackingEngine engine{tracked};
    OwnedFrame result{kW, kH, 4, DQ_UCHAR};
};

TEST_F(MorphClip, WithoutGeometryTheFramesAreDissolvedInPlace) {
    // No flow and no geometry: the motion is zero, and "Blend" mixes the frames where they lie.
    ASSERT_EQ(Render(2.25f), 0);
    const DQImage& a = *engine.frames[2];
    const DQImage& b = *engine.frames[3];
    double worst = 0.0;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
            for (int c = 0; c < 3; ++c) {
                const double expected = At(a, x, y, c) * 0.75 + At(b, x, y, c) * 0.25;
                worst = std::max(worst, std::fabs(At(*result.Pixels(), x, y, c) - expected));
            }
    EXPECT_LE(worst, 1.0);
    ASSERT_NE(State().morphFlow, nullptr);
    EXPECT_EQ(State().opticalFlow, nullptr);
    EXPECT_EQ(engine.Outstanding(), 0);
}

TEST_F(MorphClip, PointsThatFollowTheClipPlaceItWhereItIsAtTheMoment) {
    FollowClip({{20, 20}, {70, 40}, {48, 32}});
    struct Case {
        long interpolation;
        float time;
        int warping = 0;
    };
    // "Nearest" moves the nearer frame: inverse warps pull it with the flow from the other frame,
    // forward warps push it with its own.
    const Case cases[] = {{0, 2.25f},    {0, 2.75f},    {1, 2.5f},     {2, 3.25f},   {0, 2.25f, 2},
                          {0, 2.75f, 2}, {0, 2.25f, 3}, {0, 2.75f, 1}, {1, 2.5f, 2}, {2, 3.25f, 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "interpolation " << c.interpolation << " at " << c.time
                                        << " warping " << c.warping);
        engine.warpingMode = c.warping;
        engine.ResetMotion();
        engine.fetches.clear();
        ASSERT_EQ(Render(c.time, {.interpolation = c.interpolation}), 0);
        const DQImagePtr truth = ClipFrame(c.time);
        const DQImagePtr before = ClipFrame(std::floor(c.time));
        // The moved frame matches the moment; without motion it would be far off.
        EXPECT_LT(MeanDifference(*result.Pixels(), *truth, 6), 2.0);
        EXPECT_GT(MeanDifference(*before, *truth, 6), 5.0);
        // Motion from geometry reads no frame to track.
        for (const FetchRecord& fetch : engine.fetches)
            EXPECT_FALSE(fetch.tracking);
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_EQ(engine.pointsLent, engine.pointsReleased);
    }
}

TEST_F(MorphClip, BlendBuildsBothDirectionsAndKeepsThemForTheInterval) {
    FollowClip({{30, 30}});
    ASSERT_EQ(Render(1.25f), 0);
    ZUQuelmor4Internal& s = State();
    ASSERT_NE(s.morphFlow, nullptr);
    ASSERT_NE(s.flowBtoA, nullptr);
    EXPECT_EQ(s.flowAtoB, s.morphFlow->GetFlow()) << "flowAtoB borrows the morph object's output";
    // Flow sizes: "Best" works on the frame halved once, and vectors are in those pixels.
    const DQImage* atob = s.flowAtoB;
    const float sx = float(atob->width - 1) / (kW - 1), sy = float(atob->height - 1) / (kH - 1);
    EXPECT_NEAR(At(*atob, 10, 10, 0), kStepX * sx, 1e-3);
    EXPECT_NEAR(At(*atob, 10, 10, 1), kStepY * sy, 1e-3);
    EXPECT_NEAR(At(*s.flowBtoA, 10, 10, 0), -kStepX * sx, 1e-3);
    const int64_t runs = s.flowRuns;
    ASSERT_EQ(Render(1.75f), 0);
    EXPECT_EQ(s.flowRuns, runs) << "a second moment of the interval reuses both flows";
    // Back to optical flow: the morph object goes.
    engine.backgroundOpticalFlow = true;
    engine.ResetMotion();
    ASSERT_EQ(Render(1.5f), 0);
    EXPECT_EQ(s.morphFlow, nullptr);
    EXPECT_NE(s.opticalFlow, nullptr);
}

TEST_F(MorphClip, RequirementsListNoFrameToTrack) {
    engine.timeCurve = [](float) { return 2.5f; };
    FrameRequirements needs;
    const RenderSettings settings{.flowFromSequence = 0};
    ASSERT_EQ(engine.Requirements(&needs, result.Image(), settings), 0);
    ASSERT_EQ(needs.count, 2);
    EXPECT_EQ(needs.kind[0], kWarpedFrame);
    EXPECT_EQ(needs.kind[1], kWarpedFrame);
    // The fetches of the render agree.
    engine.fetches.clear();
    ASSERT_EQ(Render(2.5f, settings), 0);
    EXPECT_EQ(engine.fetches, (std::vector<FetchRecord>{{false, 2}, {false, 3}}));
    // With optical flow, the same settings track a sequence of their own first.
    engine.backgroundOpticalFlow = true;
    ASSERT_EQ(engine.Requirements(&needs, result.Image(), settings), 0);
    EXPECT_EQ(needs.count, 4);
    EXPECT_EQ(needs.kind[0], kTrackingFrame);
}

TEST_F(MorphClip, AFailingGeometrySourceFailsTheFrameAndKeepsNothing) {
    FollowClip({{30, 30}});
    engine.geometryFailCode = kDQErrFetch;
    EXPECT_EQ(Render(2.5f), kDQErrFetch);
    EXPECT_EQ(engine.Outstanding(), 0);
    EXPECT_TRUE(engine.KeepsNoFlow());
    engine.geometryFailCode = 0;
    EXPECT_EQ(Render(2.5f), 0) << "the engine recovers";
}

} // namespace
