// The engine's own vectors on the several-layer road: each layer is moved by the vectors limited
// to what is visible of it, a missing direction is derived from the other, and every lent vector
// image, matte and frame is given back on every path.
#include "LayeredScene.h"
#include "VectorLoans.h"
#include "WarpTestImages.h"

namespace quelmor::test {
namespace {

// Lends the scene's true motion at frame size: from frame f toward f + 1 through the next-frame
// slot, toward f - 1 through the previous-frame slot. The square's pixels move with the square,
// all others with the background, so a layer gets the right vectors only where it is visible.
class LayeredVectorEngine : public LayeredClipEngine {
public:
    int previousCode = 0, nextCode = 0; // answers of the two slots; 5 means none
    int vectorWidth = kWidth;
    VectorLoans loans;
    std::vector<int> nextFrames, previousFrames;

    LayeredVectorEngine() { externalVectors = 1; }
    int GetNextFrameVectors(ZUImage** vectors, float* scale, int frame) override {
        nextFrames.push_back(frame);
        return Lend(vectors, scale, nextCode, frame, 1.0f);
    }
    int GetPreviousFrameVectors(ZUImage** vectors, float* scale, int frame) override {
        previousFrames.push_back(frame);
        return Lend(vectors, scale, previousCode, frame, -1.0f);
    }
    int ReleaseNextFrameVectors(ZUImage* vectors) override { return loans.Release(vectors); }
    int ReleasePreviousFrameVectors(ZUImage* vectors) override { return loans.Release(vectors); }

private:
    int Lend(ZUImage** vectors, float* scale, int code, int frame, float sign) {
        *vectors = nullptr;
        if (code != 0) return code;
        *scale = 1.0f;
        DQImagePtr pixels =
            MakeImage(vectorWidth, kHeight, 4, DQ_FLOAT, [&](int x, int y, int c) -> double {
                if (c == 3) return 1.0;
                if (c == 1) return 0.0;
                return sign * (InSquare(x, y, float(frame)) ? kSquareSpeed : kBackgroundSpeed);
            });
        loans.Lend(vectors, *pixels);
        return 0;
    }
};

using LayerVectorsTest = LayerRoadTest;

RenderSettings AtMoment(float t, long interpolation = 1) {
    RenderSettings s;
    s.timeBegin = t;
    s.timeEnd = t + 1.0f;
    s.interpolation = interpolation;
    return s;
}

TEST_F(LayerVectorsTest, EachLayerMovesWithItsVisibleVectorsUnderEveryWarpingAndInterpolation) {
    // At 0.5 "Nearest" moves frame A, which an inverse warp pulls with the vectors from B to A
    // and a forward warp pushes with those from A to B.
    const float t = 0.5f;
    DQImagePtr truth = Scene(t);
    for (int warping = 0; warping <= 3; ++warping)
        for (long interpolation = 0; interpolation <= 2; ++interpolation) {
            SCOPED_TRACE(::testing::Message()
                         << "warping " << warping << " interpolation " << interpolation);
            LayeredVectorEngine engine;
            LoadClip(engine);
            engine.warpingMode = warping;
            OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
            ASSERT_EQ(engine.RenderLayers(result.Image(), AtMoment(t, interpolation)), 0);
            const DQImage& got = *result.Pixels();
            EXPECT_LT(MeanError(got, *truth, Inside(t, 3)), 3.0) << "the square";
            EXPECT_LT(MeanError(got, *truth, EdgeBand(t, 3)), 6.0) << "around the square's edge";
            EXPECT_LT(MeanError(got, *truth, OpenBackground(t)), 2.0) << "the background";
            // Both layers ask for both directions of the pair, and nothing is computed.
            EXPECT_EQ(engine.nextFrames, (std::vector<int>{0, 0}));
            EXPECT_EQ(engine.previousFrames, (std::vector<int>{1, 1}));
            EXPECT_EQ(engine.internal->flowRuns, 0);
            EXPECT_EQ(engine.internal->opticalFlow, nullptr);
            EXPECT_EQ(engine.internal->morphFlow, nullptr);
            EXPECT_EQ(engine.loans.lent, 4);
            EXPECT_EQ(engine.loans.released, 4);
            EXPECT_EQ(engine.mattesOut, engine.mattesBack);
            EXPECT_EQ(engine.Outstanding(), 0);
        }
}

TEST_F(LayerVectorsTest, TheBackgroundUnderTheSquareMovesWithTheBackground) {
    // The vectors of the square's pixels are the square's; limited to the background's visible
    // matte and filled, the background layer moves as the background does there too, so what the
    // square uncovers is repaired from the other frame.
    const float t = 0.5f;
    DQImagePtr truth = Scene(t, 1);
    for (const RepairCase& c : kRepairCases) {
        SCOPED_TRACE(c.name);
        LayeredVectorEngine engine;
        LoadClip(engine);
        engine.drawStart = engine.drawEnd = 1;
        engine.warpingMode = c.warping;
        OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
        ASSERT_EQ(engine.RenderLayers(result.Image(), AtMoment(t, c.interpolation)), 0);
        EXPECT_LT(MeanError(*result.Pixels(), *truth, SeenOnce(t)), 3.0);
        // Hidden in both frames, the middle of the square's place is only filled.
        EXPECT_LT(MeanError(*result.Pixels(), *truth, Inside(t, 0)), 25.0);
    }
}

TEST_F(LayerVectorsTest, EveryLoanComesBackOnEveryPath) {
    struct Case {
        const char* name;
        int vectorWidth = kWidth;
        int previousCode = 0;
        int nextCode = 0;
        bool interrupt = false;
        int expected = 0;
        int lent = 4;
    };
    const Case cases[] = {
        {.name = "both directions"},
        {.name = "no vectors toward the frame before",
         .previousCode = kDQErrBadArgument,
         .lent = 2},
        {.name = "no vectors toward the frame after", .nextCode = kDQErrBadArgument, .lent = 2},
        {.name = "none",
         .previousCode = kDQErrBadArgument,
         .nextCode = kDQErrBadArgument,
         .lent = 0},
        {.name = "wrong size", .vectorWidth = kWidth - 1, .expected = kDQErrBadArgument, .lent = 1},
        {.name = "slot fails", .nextCode = kDQErrFetch, .expected = kDQErrFetch, .lent = 0},
        {.name = "second slot fails",
         .previousCode = kDQErrMemory,
         .expected = kDQErrMemory,
         .lent = 1},
        {.name = "interrupted", .interrupt = true, .expected = kDQErrInterrupted, .lent = 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LayeredVectorEngine engine;
        LoadClip(engine);
        engine.vectorWidth = c.vectorWidth;
        engine.previousCode = c.previousCode;
        engine.nextCode = c.nextCode;
        ZUIdleAndProgressClass progress;
        progress.SetInterrupted(c.interrupt);
        RenderSettings s = AtMoment(0.5f);
        s.progress = &progress;
        OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
        EXPECT_EQ(engine.RenderLayers(result.Image(), s), c.expected);
        EXPECT_EQ(engine.loans.lent, c.lent);
        EXPECT_EQ(engine.loans.released, c.lent);
        EXPECT_EQ(engine.mattesOut, engine.mattesBack);
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_TRUE(engine.KeepsNoFlow()) << "vectors are never kept from render to render";
    }
}

TEST_F(LayerVectorsTest, AMissingDirectionIsDerivedFromTheOther) {
    const struct {
        const char* name;
        int previousCode, nextCode;
    } cases[] = {{"toward the frame before", kDQErrBadArgument, 0},
                 {"toward the frame after", 0, kDQErrBadArgument}};
    const float t = 0.5f;
    DQImagePtr truth = Scene(t);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LayeredVectorEngine engine;
        LoadClip(engine);
        engine.previousCode = c.previousCode;
        engine.nextCode = c.nextCode;
        OwnedFrame result(kWidth, kHeight, 4, DQ_UCHAR);
        ASSERT_EQ(engine.RenderLayers(result.Image(), AtMoment(t)), 0);
        EXPECT_LT(MeanError(*result.Pixels(), *truth, Inside(t, 3)), 3.0);
        EXPECT_LT(MeanError(*result.Pixels(), *truth, OpenBackground(t)), 2.0);
        // Without vectors the pair is a dissolve of the layers where they stand.
        LayeredVectorEngine none;
        LoadClip(none);
        none.previousCode = none.nextCode = kDQErrBadArgument;
        ASSERT_EQ(none.RenderLayers(result.Image(), AtMoment(t)), 0);
        EXPECT_GT(MeanError(*result.Pixels(), *truth, Inside(t, 3)), 10.0);
    }
}

} // namespace
} // namespace quelmor::test
