// The several-layer road: a foreground square moving one way over a background moving the other
// lands each where its own motion puts it, the background is repaired where the square uncovers
// it, one layer drawn alone, several layers without motion, and every matte given back on every
// path.
#include "LayeredScene.h"

namespace quelmor::test {
namespace {

TEST_F(LayerRoadTest, EachLayerMovesWithItsOwnMotionUnderEveryWarpingAndInterpolation) {
    const float t = 0.5f;
    DQImagePtr truth = Scene(t);
    for (int warping = 0; warping <= 3; ++warping)
        for (long interpolation = 0; interpolation <= 2; ++interpolation) {
            SCOPED_TRACE(::testing::Message()
                         << "warping " << warping << " interpolation " << interpolation);
            LayeredClipEngine engine;
            LoadClip(engine);
            engine.warpingMode = warping;
            OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
            RenderSettings s;
            s.timeBegin = t;
            s.timeEnd = t + 1.0f;
            s.interpolation = interpolation;
            ASSERT_EQ(engine.RenderLayers(result.Image(), s), 0);
            EXPECT_EQ(engine.Outstanding(), 0);
            EXPECT_EQ(engine.mattesOut, engine.mattesBack);
            EXPECT_EQ(engine.mattesOut, 2);
            const DQImage& got = *result.Pixels();
            EXPECT_LT(MeanError(got, *truth, Inside(t, 3)), 4.0) << "the square";
            EXPECT_LT(MeanError(got, *truth, EdgeBand(t, 3)), 8.0) << "around the square's edge";
            EXPECT_LT(MeanError(got, *truth, OpenBackground(t)), 4.0) << "the background";
        }
}

TEST_F(LayerRoadTest, TwoLayersBeatOneAroundTheForegroundsEdge) {
    const float t = 0.5f;
    DQImagePtr truth = Scene(t);
    double error[2];
    for (int layers = 0; layers < 2; ++layers) {
        LayeredClipEngine engine;
        LoadClip(engine);
        if (layers == 0) engine.mattes.clear();
        OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
        RenderSettings s;
        s.timeBegin = t;
        s.timeEnd = t + 1.0f;
        ASSERT_EQ(engine.RenderLayers(result.Image(), s), 0);
        error[layers] = MeanError(*result.Pixels(), *truth, EdgeBand(t, 3));
    }
    // A single flow drags background along the square's edges and smears the square into it.
    EXPECT_LT(error[1] * 2.0, error[0]) << "one layer " << error[0] << ", two " << error[1];
}

TEST_F(LayerRoadTest, TheBackgroundIsRepairedWhereTheSquareUncoversIt) {
    const float t = 0.5f;
    DQImagePtr truth = Scene(t, 1);
    for (const RepairCase& c : kRepairCases) {
        LayeredClipEngine engine;
        LoadClip(engine);
        engine.drawStart = engine.drawEnd = 1;
        engine.warpingMode = c.warping;
        OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
        RenderSettings s;
        s.timeBegin = t;
        s.timeEnd = t + 1.0f;
        s.interpolation = c.interpolation;
        ASSERT_EQ(engine.RenderLayers(result.Image(), s), 0) << c.name;
        EXPECT_LT(MeanError(*result.Pixels(), *truth, SeenOnce(t)), 5.0) << c.name;
        // Where the square sits at this moment there is background, not the square.
        EXPECT_LT(MeanError(*result.Pixels(), *truth, Inside(t, 0)), 25.0) << c.name;
    }
}

TEST_F(LayerRoadTest, TheForegroundDrawnAloneIsClearAroundIt) {
    const float t = 0.5f;
    DQImagePtr truth = Scene(t, 0);
    LayeredClipEngine engine;
    LoadClip(engine);
    engine.drawStart = engine.drawEnd = 0;
    OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
    RenderSettings s;
    s.timeBegin = t;
    s.timeEnd = t + 1.0f;
    ASSERT_EQ(engine.RenderLayers(result.Image(), s), 0);
    const DQImage& got = *result.Pixels();
    EXPECT_LT(MeanError(got, *truth, Inside(t, 2)), 4.0);
    int opaqueOutside = 0, clearInside = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const bool inside = Inside(t, 2)(x, y);
            const bool outside = !Inside(t, -2)(x, y);
            opaqueOutside += outside && At(got, x, y, 3) > 0.0f;
            clearInside += inside && At(got, x, y, 3) < 255.0f;
        }
    EXPECT_EQ(opaqueOutside, 0);
    EXPECT_EQ(clearInside, 0);
}

TEST_F(LayerRoadTest, WithoutMotionSeveralLayersGiveTheFrameBack) {
    // At a source frame the layers are cut apart and laid together again where they stand.
    LayeredClipEngine engine;
    LoadClip(engine);
    OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
    RenderSettings s;
    s.timeBegin = 1.0f;
    s.timeEnd = 2.0f;
    ASSERT_EQ(engine.RenderLayers(result.Image(), s), 0);
    EXPECT_LT(MeanError(*result.Pixels(), *engine.frames[1], [](int, int) { return true; }), 0.5);

    // One layer drawn alone without motion still takes the road: the background, repaired.
    LayeredClipEngine alone;
    LoadClip(alone);
    alone.drawStart = alone.drawEnd = 1;
    s.vectorQuality = 0;
    ASSERT_EQ(alone.RenderLayers(result.Image(), s), 0);
    DQImagePtr truth = Scene(1.0f, 1);
    EXPECT_LT(MeanError(*result.Pixels(), *truth, Inside(1.0f, -100)), 2.0);
    EXPECT_GT(MeanError(*result.Pixels(), *alone.frames[1], Inside(1.0f, 0)), 20.0)
        << "the square is gone from the background";
    EXPECT_EQ(alone.mattesOut, alone.mattesBack);
}

TEST_F(LayerRoadTest, EveryMatteComesBackWhenAFetchFailsHalfWay) {
    struct Case {
        const char* name;
        int layer, frame;
    };
    const Case cases[] = {{"first matte", 0, 0},
                          {"layer 0 at B", 0, 1},
                          {"layer 2 at A", 2, 0},
                          {"last matte", 2, 1}};
    for (const Case& c : cases) {
        LayeredClipEngine engine;
        LoadClip(engine);
        engine.mattes.resize(3);
        for (int layer = 1; layer < 3; ++layer)
            for (int f = 0; f < 3; ++f)
                engine.mattes[layer].push_back(Duplicate(*engine.mattes[0][f]));
        engine.failMatteLayer = c.layer;
        engine.failMatteFrame = c.frame;
        OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
        RenderSettings s;
        s.timeBegin = 0.5f;
        EXPECT_EQ(engine.RenderLayers(result.Image(), s), kDQErrFetch) << c.name;
        EXPECT_EQ(engine.mattesOut, engine.mattesBack) << c.name;
        EXPECT_EQ(engine.mattesOut, 2 * c.layer + c.frame) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
        EXPECT_TRUE(engine.KeepsNoFlow()) << c.name;
    }
}

TEST_F(LayerRoadTest, AMatteOfTheWrongLayoutIsRefused) {
    LayeredClipEngine engine;
    LoadClip(engine);
    engine.mattes[0][1] = DQMakeImage(kWidth, kHeight, 3, DQ_UCHAR);
    engine.mattes[0][1]->Clear();
    OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
    RenderSettings s;
    s.timeBegin = 0.5f;
    EXPECT_EQ(engine.RenderLayers(result.Image(), s), kDQErrBadArgument);
    EXPECT_EQ(engine.mattesOut, engine.mattesBack);
    EXPECT_EQ(engine.Outstanding(), 0);
}

TEST_F(LayerRoadTest, AnEmptyMatteLeavesTheBackgroundWhole) {
    LayeredClipEngine engine;
    LoadClip(engine);
    for (DQImagePtr& matte : engine.mattes[0])
        matte->Clear();
    LayeredClipEngine plain;
    LoadClip(plain);
    plain.mattes.clear();
    OwnedFrame layered(kWidth, kHeight, 4, DQ_UCHAR);
    OwnedFrame single(kWidth, kHeight, 4, DQ_UCHAR);
    RenderSettings s;
    s.timeBegin = 0.5f;
    s.timeEnd = 1.5f;
    ASSERT_EQ(engine.RenderLayers(layered.Image(), s), 0);
    ASSERT_EQ(plain.RenderLayers(single.Image(), s), 0);
    // The background's flow is measured on the whole frame, as the single layer's is.
    EXPECT_LT(MeanError(*layered.Pixels(), *single.Pixels(), [](int, int) { return true; }), 1.0);
}

TEST_F(LayerRoadTest, ResultsDoNotDependOnTheWorkerCount) {
    DQImagePtr first;
    ForWorkerCounts(
        [&](int) {
            LayeredClipEngine engine;
            LoadClip(engine);
            engine.warpingMode = 1;
            engine.shrink[0] = 1.5f;
            OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
            RenderSettings s;
            s.timeBegin = 0.3f;
            s.timeEnd = 1.8f;
            s.motionBlur = 1.0f;
            ASSERT_EQ(engine.RenderLayers(result.Image(), s), 0);
            if (!first)
                first = Duplicate(*result.Pixels());
            else
                EXPECT_TRUE(SamePixels(*first, *result.Pixels()));
        },
        {1, 3});
}

} // namespace
} // namespace quelmor::test
