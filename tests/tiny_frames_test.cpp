// Frames and flows too small for a 2x2 cell: the flow object refuses them, and the engine retimes
// such frames without motion, at every quality and interpolation, instead of reading outside them.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/Flow.h"

using namespace quelmor::test;

namespace {

class TinyFrames : public ParallelTest {};

DQImagePtr Frame(int w, int h, int n) {
    return MakeImage(w, h, 4, DQ_UCHAR, [n](int x, int y, int c) {
        return c == 3 ? 255.0 : 10.0 + 40 * n + (7 * x + 3 * y) % 30 + c;
    });
}

} // namespace

TEST_F(TinyFrames, FlowObjectRefusesALevelUnderTwoPixels) {
    // Input size and reduction; level 0 is the input halved `reduction` times.
    const struct {
        int w, h, reduction;
        bool accepted;
    } cases[] = {{1, 48, 0, false}, {48, 1, 0, false}, {3, 5, 1, false}, {2, 2, 1, false},
                 {0, 0, 0, false},  {2, 2, 0, true},   {3, 5, 0, true},  {4, 4, 1, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " reduced " << c.reduction);
        DQOpticalFlowUChar flow(0, c.w, c.h, c.reduction, 1, 1, 2);
        EXPECT_EQ(flow.error, c.accepted ? 0 : int(kDQErrBadArgument));
        EXPECT_EQ(flow.numLevels >= 1, c.accepted);
        if (c.accepted || c.w < 1 || c.h < 1) continue;
        DQImagePtr a = Frame(c.w, c.h, 0), b = Frame(c.w, c.h, 1);
        int code = -1;
        try {
            flow.ComputeFlow(nullptr, a.get(), b.get(), 1, 1, 0, nullptr, false);
        } catch (DQErr e) {
            code = e;
        }
        EXPECT_EQ(code, kDQErrBadArgument);
    }
}

TEST_F(TinyFrames, RetimeWithoutMotionWhereNoCellFits) {
    // Sizes and qualities whose frame or flow is under 2x2 take the road without motion, so the
    // frame equals the render with no vectors; the others must still succeed.
    const struct {
        int w, h, quality;
        bool withoutMotion;
    } cases[] = {{1, 48, 4, true}, {48, 1, 4, true}, {2, 2, 4, true},  {3, 5, 4, true},
                 {1, 1, 5, true},  {3, 5, 1, true},  {2, 2, 5, false}, {3, 5, 5, false},
                 {4, 4, 4, false}, {9, 6, 4, false}};
    for (const auto& c : cases)
        for (long interpolation : {0L, 1L, 2L}) {
            SCOPED_TRACE(testing::Message() << c.w << "x" << c.h << " quality " << c.quality
                                            << " interpolation " << interpolation);
            MemoryClipEngine engine;
            for (int n = 0; n < 3; ++n)
                engine.frames.push_back(Frame(c.w, c.h, n));
            ASSERT_EQ(engine.Init(), 0);
            OwnedFrame moved(c.w, c.h, 4, DQ_UCHAR), still(c.w, c.h, 4, DQ_UCHAR);
            for (float t : {0.25f, 0.5f, 1.75f}) {
                RenderSettings s{.vectorQuality = c.quality,
                                 .timeBegin = t,
                                 .timeEnd = t + 1.0f,
                                 .interpolation = interpolation};
                ASSERT_EQ(engine.Render(moved.Image(), s), 0) << "time " << t;
                s.vectorQuality = 0;
                ASSERT_EQ(engine.Render(still.Image(), s), 0) << "time " << t;
                if (c.withoutMotion) {
                    EXPECT_TRUE(SamePixels(*moved.Pixels(), *still.Pixels())) << "time " << t;
                }
                EXPECT_EQ(engine.Outstanding(), 0);
            }
            FrameRequirements needs;
            ASSERT_EQ(engine.Requirements(&needs, moved.Image(),
                                          {.vectorQuality = c.quality,
                                           .timeBegin = 0.5f,
                                           .timeEnd = 1.5f,
                                           .interpolation = interpolation,
                                           .flowFromSequence = 0}),
                      0);
            bool tracking = false;
            for (int i = 0; i < needs.count; ++i)
                tracking = tracking || needs.kind[i] == kTrackingFrame;
            EXPECT_EQ(tracking, !c.withoutMotion) << "tracking frames are read only for motion";
        }
}

TEST_F(TinyFrames, FrameBeyondTwoGibibytesIsRefusedBeforeItIsTouched) {
    // A float frame of 16384 x 8200 x 4 channels is 2.15 GB; the descriptor points at a few bytes
    // only, so any write to it would fault.
    MemoryClipEngine engine;
    engine.frames.push_back(Frame(4, 4, 0));
    engine.frames.push_back(Frame(4, 4, 1));
    ASSERT_EQ(engine.Init(), 0);
    float bytes[16] = {};
    ZUImage huge;
    ASSERT_EQ(ZUImageReset(&huge), 0);
    ZUImageInitRGBA(&huge, bytes, 16384, 8200, 16384 * 16, 1, 2, 1, 1, 0, 1, 2, 3);
    for (int quality : {0, 4})
        EXPECT_EQ(engine.Render(&huge, {.vectorQuality = quality}), kDQErrBadArgument);
    EXPECT_EQ(bytes[0], 0.0f);
    EXPECT_EQ(engine.checkedOut, 0);

    const struct {
        int w, h, pixelBytes, quality;
        bool fits;
    } sizes[] = {
        {16384, 8200, 16, 0, false}, {16384, 8191, 16, 0, true},  {16384, 8192, 16, 0, false},
        {32768, 32768, 1, 0, false}, {23170, 23170, 4, 0, true},  {23170, 23170, 3, 0, true},
        {23170, 23171, 3, 0, false}, {16384, 16384, 4, 5, false}, {16384, 16384, 4, 4, true}};
    for (const auto& s : sizes)
        EXPECT_EQ(ZUQuelmor4::FrameFits(s.w, s.h, s.pixelBytes, s.quality, 1), s.fits)
            << s.w << "x" << s.h << " of " << s.pixelBytes << " bytes, quality " << s.quality;
}

TEST(ImageSize, OwnedImagesBeyondTwoGibibytesAreNotMade) {
    DQImage big(0, 16384, 8200, 4, DQ_FLOAT, 0);
    EXPECT_EQ(big.errorCode, kDQErrMemory);
    EXPECT_EQ(big.data, nullptr);
    int code = -1;
    try {
        DQImage thrown(16384, 8200, 4, DQ_FLOAT, 0);
    } catch (DQErr e) {
        code = e;
    }
    EXPECT_EQ(code, kDQErrMemory);
}
