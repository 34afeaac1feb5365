// Motion from geometry alone on the several-layer road: a layer whose engine answers that it
// wants no optical flow is moved by the morph flow of its own points, beside layers whose flow is
// measured; a layer without flow and without geometry stays where it is.
#include "LayeredScene.h"

#include <array>
#include <vector>

namespace quelmor::test {
namespace {

// Per layer, points that follow that layer's motion (positions given at time 0), and whether the
// layer's motion is measured or built from its points.
class LayeredGeometryEngine : public LayeredClipEngine {
public:
    std::array<bool, 2> opticalFlow = {true, true}; // square, background
    std::array<std::vector<std::array<float, 2>>, 2> tracked;
    struct Request {
        int layer;
        float timeA, timeB;
        bool operator==(const Request&) const = default;
    };
    std::vector<Request> requests;

    void GetDoOpticalFlow(bool* doFlow, int layer, float) override { *doFlow = opticalFlow[layer]; }
    void GetBackgroundLayerDoOpticalFlow(bool* doFlow, float) override { *doFlow = opticalFlow[1]; }
    unsigned long GetNumGeometries(int layer, float, float) override {
        return tracked[layer].empty() ? 0 : 1;
    }
    int GetGeometryPoints(int layer, unsigned long index, float timeA, float timeB,
                          unsigned long* count, float** xA, float** yA, float** xB,
                          float** yB) override {
        requests.push_back({layer, timeA, timeB});
        const float speed = layer == 0 ? kSquareSpeed : kBackgroundSpeed;
        geometryPoints.clear();
        for (const auto& p : tracked[layer])
            geometryPoints.push_back({p[0] + speed * timeA, p[1], p[0] + speed * timeB, p[1]});
        return MemoryClipEngine::GetGeometryPoints(layer, index, timeA, timeB, count, xA, yA, xB,
                                                   yB);
    }
};

// A grid of points inside the square at time 0, and one spread over the background.
std::vector<std::array<float, 2>> SquarePoints() {
    std::vector<std::array<float, 2>> points;
    for (float dy : {4.0f, 14.0f, 24.0f})
        for (float dx : {4.0f, 14.0f, 24.0f})
            points.push_back({kSquareX + dx, kSquareY + dy});
    return points;
}
std::vector<std::array<float, 2>> BackgroundPoints() {
    std::vector<std::array<float, 2>> points;
    for (float y : {8.0f, 48.0f, 88.0f})
        for (float x : {12.0f, 64.0f, 116.0f})
            points.push_back({x, y});
    return points;
}

RenderSettings AtMoment(float t, long interpolation) {
    RenderSettings s;
    s.timeBegin = t;
    s.timeEnd = t + 1.0f;
    s.interpolation = interpolation;
    return s;
}

using LayerMorphTest = LayerRoadTest;

TEST_F(LayerMorphTest, ALayerWithoutFlowIsMovedByItsPoints) {
    struct Kinds {
        const char* name;
        bool squareFlow, backgroundFlow;
    };
    const Kinds kinds[] = {{"square by points", false, true},
                           {"background by points", true, false},
                           {"both by points", false, false}};
    struct Mode {
        long interpolation;
        int warping;
    };
    const Mode modes[] = {{0, 0}, {0, 2}, {1, 0}, {1, 1}, {1, 2}, {2, 0}, {2, 3}};
    const float t = 0.5f;
    DQImagePtr truth = Scene(t);
    for (const Kinds& k : kinds)
        for (const Mode& m : modes) {
            SCOPED_TRACE(::testing::Message() << k.name << ", interpolation " << m.interpolation
                                              << ", warping " << m.warping);
            LayeredGeometryEngine engine;
            LoadClip(engine);
            engine.opticalFlow = {k.squareFlow, k.backgroundFlow};
            engine.tracked = {SquarePoints(), BackgroundPoints()};
            engine.warpingMode = m.warping;
            OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
            ASSERT_EQ(engine.RenderLayers(result.Image(), AtMoment(t, m.interpolation)), 0);
            const DQImage& got = *result.Pixels();
            EXPECT_LT(MeanError(got, *truth, Inside(t, 3)), 4.0) << "the square";
            EXPECT_LT(MeanError(got, *truth, OpenBackground(t)), 4.0) << "the background";
            // Kept for the interval: one flow object of each kind that a layer asked for.
            const ZUQuelmor4Internal& s = *engine.internal;
            EXPECT_EQ(s.opticalFlow != nullptr, k.squareFlow || k.backgroundFlow);
            EXPECT_NE(s.morphFlow, nullptr);
            EXPECT_EQ(engine.pointsLent, engine.pointsReleased);
            EXPECT_EQ(engine.mattesOut, engine.mattesBack);
            EXPECT_EQ(engine.Outstanding(), 0);
        }
}

TEST_F(LayerMorphTest, ALayerWithoutFlowAndWithoutGeometryStaysWhereItIs) {
    // The square has neither: its motion is zero, so "Nearest" at 0.25 shows it where frame 0
    // has it, while the background still moves by its measured flow.
    const float t = 0.25f;
    LayeredGeometryEngine engine;
    LoadClip(engine);
    engine.opticalFlow = {false, true};
    OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
    ASSERT_EQ(engine.RenderLayers(result.Image(), AtMoment(t, 0)), 0);
    const DQImage& got = *result.Pixels();
    DQImagePtr still = Scene(0.0f);
    DQImagePtr truth = Scene(t);
    EXPECT_LT(MeanError(got, *still, Inside(0.0f, 2)), 1.0) << "the square where it stood";
    EXPECT_GT(MeanError(got, *truth, Inside(t, 2)), 10.0) << "not where it is at the moment";
    EXPECT_LT(MeanError(got, *truth,
                        [&](int x, int y) {
                            return x >= 8 && x < kWidth - 8 && !Inside(0.0f, -4)(x, y) &&
                                   !Inside(t, -4)(x, y);
                        }),
              4.0)
        << "the background";
    EXPECT_TRUE(engine.requests.empty());
    EXPECT_EQ(engine.mattesOut, engine.mattesBack);
    EXPECT_EQ(engine.Outstanding(), 0);
    // The blends mix the square's two places where they stand.
    ASSERT_EQ(engine.RenderLayers(result.Image(), AtMoment(0.5f, 1)), 0);
    EXPECT_EQ(engine.Outstanding(), 0);
}

TEST_F(LayerMorphTest, NearestBuildsTheOneFlowItsWarpingAsksFor) {
    // The geometry pair asked for is the direction of the flow: (A, B) or (B, A). A layer from
    // points runs A to B when the nearer frame is B and the warp is plain inverse, or when the
    // nearer frame is A and the warp is any other.
    struct Case {
        float t;
        int warping;
        float timeA, timeB;
    };
    const Case cases[] = {{0.25f, 0, 1, 0}, {0.75f, 0, 0, 1}, {0.25f, 1, 0, 1}, {0.75f, 1, 1, 0},
                          {0.25f, 2, 0, 1}, {0.75f, 2, 1, 0}, {0.25f, 3, 0, 1}, {0.75f, 3, 1, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << "at " << c.t << ", warping " << c.warping);
        LayeredGeometryEngine engine;
        LoadClip(engine);
        engine.opticalFlow = {false, true};
        engine.tracked[0] = SquarePoints();
        engine.warpingMode = c.warping;
        OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
        ASSERT_EQ(engine.RenderLayers(result.Image(), AtMoment(c.t, 0)), 0);
        std::vector<LayeredGeometryEngine::Request> square;
        for (const auto& r : engine.requests)
            if (r.layer == 0) square.push_back(r);
        EXPECT_EQ(square, (std::vector<LayeredGeometryEngine::Request>{{0, c.timeA, c.timeB}}));
    }
}

TEST_F(LayerMorphTest, AFailingGeometrySourceGivesEverythingBack) {
    for (bool squareFlow : {false, true}) {
        SCOPED_TRACE(squareFlow ? "square measured, background by points" : "square by points");
        LayeredGeometryEngine engine;
        LoadClip(engine);
        engine.opticalFlow = {squareFlow, !squareFlow};
        engine.tracked = {SquarePoints(), BackgroundPoints()};
        engine.geometryFailCode = kDQErrFetch;
        OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
        EXPECT_EQ(engine.RenderLayers(result.Image(), AtMoment(0.5f, 1)), kDQErrFetch);
        EXPECT_EQ(engine.mattesOut, engine.mattesBack);
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_TRUE(engine.KeepsNoFlow());
        engine.geometryFailCode = 0;
        EXPECT_EQ(engine.RenderLayers(result.Image(), AtMoment(0.5f, 1)), 0) << "it recovers";
    }
}

} // namespace
} // namespace quelmor::test
