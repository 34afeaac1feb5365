// The several-layer road: a foreground square moving one way over a background moving the other
// lands each where its own motion puts it, the background is repaired where the square uncovers
// it, one layer drawn alone, several layers without motion, and every matte given back on every
// path.
#include "LayeredClipEngine.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>

namespace quelmor::test {
namespace {

constexpr int kWidth = 128;
constexpr int kHeight = 96;
constexpr int kSquare = 28;
constexpr int kSquareX = 40; // left edge at frame 0
constexpr int kSquareY = 34;
constexpr float kSquareSpeed = 6.0f;      // pixels per frame, to the right
constexpr float kBackgroundSpeed = -4.0f; // to the left

// Smooth textures, defined everywhere, so that shifted copies are exact.
float BackgroundAt(float x, float y, int c) {
    return 128.0f + 60.0f * std::sin(0.21f * x + 0.6f * c) * std::cos(0.17f * y - 0.3f * c) +
           30.0f * std::sin(0.05f * (x + 2.0f * y));
}
float SquareAt(float x, float y, int c) {
    return 128.0f + 90.0f * std::cos(0.4f * x - 0.2f * y + 1.1f * c);
}

// The scene at time t: the square's left edge, and whether a pixel lies inside the square.
float SquareLeft(float t) {
    return kSquareX + kSquareSpeed * t;
}
bool InSquare(int x, int y, float t) {
    const float left = SquareLeft(t);
    return x >= left && x < left + kSquare && y >= kSquareY && y < kSquareY + kSquare;
}

// The true picture at time t; with `layer` 1 the background alone, with 0 the square alone.
DQImagePtr Scene(float t, int layer = -1) {
    DQImagePtr image = DQMakeImage(kWidth, kHeight, 4, DQ_UCHAR);
    image->Clear();
    for (int y = 0; y < kHeight; ++y) {
        uint8_t* p = image->Row<uint8_t>(y);
        for (int x = 0; x < kWidth; ++x, p += 4) {
            const bool square = InSquare(x, y, t);
            if (layer == 0 && !square) continue;
            const bool front = square && layer != 1;
            for (int c = 0; c < 3; ++c) {
                const float v = front ? SquareAt(x - SquareLeft(t), y - kSquareY, c)
                                      : BackgroundAt(x - kBackgroundSpeed * t, y, c);
                p[c] = uint8_t(std::lround(std::clamp(v, 0.0f, 255.0f)));
            }
            p[3] = 255;
        }
    }
    return image;
}

DQImagePtr SquareMatte(float t) {
    DQImagePtr matte = DQMakeImage(kWidth, kHeight, 1, DQ_UCHAR);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            matte->Row<uint8_t>(y)[x] = InSquare(x, y, t) ? 255 : 0;
    return matte;
}

void LoadClip(LayeredClipEngine& engine, int frames = 3) {
    ASSERT_EQ(engine.Init(), 0);
    engine.mattes.resize(1);
    for (int f = 0; f < frames; ++f) {
        engine.frames.push_back(Scene(float(f)));
        engine.mattes[0].push_back(SquareMatte(float(f)));
    }
}

// Mean absolute difference of the colour channels over the pixels that `where` selects.
double MeanError(const DQImage& got, const DQImage& want,
                 const std::function<bool(int, int)>& where) {
    double sum = 0.0;
    int count = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            if (!where(x, y)) continue;
            for (int c = 0; c < 3; ++c)
                sum += std::fabs(At(got, x, y, c) - At(want, x, y, c));
            ++count;
        }
    return count ? sum / (3.0 * count) : 0.0;
}

// Pixels within `width` of the square's edge at time t, on either side, away from the frame's
// border where a warp must invent what enters.
std::function<bool(int, int)> EdgeBand(float t, int width) {
    return [=](int x, int y) {
        if (x < 8 || x >= kWidth - 8) return false;
        bool near = false, inside = InSquare(x, y, t);
        for (int dy = -width; dy <= width && !near; ++dy)
            for (int dx = -width; dx <= width && !near; ++dx)
                near = InSquare(x + dx, y + dy, t) != inside;
        return near;
    };
}

std::function<bool(int, int)> Inside(float t, int margin) {
    return [=](int x, int y) {
        const float left = SquareLeft(t);
        return x >= left + margin && x < left + kSquare - margin && y >= kSquareY + margin &&
               y < kSquareY + kSquare - margin;
    };
}

class LayerRoadTest : public ::testing::Test {
protected:
    void SetUp() override { WorkerScope::Set(3, kWidth, kHeight); }
    void TearDown() override { WorkerScope::Set(1, 0, 0); }
};

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
            EXPECT_LT(MeanError(got, *truth,
                                [&](int x, int y) {
                                    return x >= 8 && x < kWidth - 8 && !InSquare(x, y, t) &&
                                           !EdgeBand(t, 3)(x, y);
                                }),
                      4.0)
                << "the background";
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
    struct Case {
        const char* name;
        long interpolation;
        int warping;
    };
    const Case cases[] = {
        {"blend, inverse", 1, 0}, {"blend, forward", 1, 2}, {"energy, smart", 2, 1}};
    const float t = 0.5f;
    DQImagePtr truth = Scene(t, 1);
    // Hidden in exactly one of the two frames: the other frame saw it.
    auto seenOnce = [&](int x, int y) {
        const bool hiddenA = InSquare(x + int(kBackgroundSpeed * t), y, 0.0f);
        const bool hiddenB = InSquare(x + int(kBackgroundSpeed * (t - 1.0f)), y, 1.0f);
        return hiddenA != hiddenB && Inside(t, -100)(x, y) && x > 4 && x < kWidth - 4;
    };
    for (const Case& c : cases) {
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
        EXPECT_LT(MeanError(*result.Pixels(), *truth, seenOnce), 5.0) << c.name;
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
