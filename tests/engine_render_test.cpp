// The frame renderer on the road without motion: time mapping, source-frame test, scene rule,
// rates, failed fetches, give-back, channel order, fields out and the frames a render reads.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "engine/EngineInternal.h"

#include <cmath>
#include <limits>

using namespace quelmor::test;

namespace {

constexpr int kW = 16;
constexpr int kH = 12;

// Colour channel c of frame n: 20 + 9 n + 3 c; alpha full.
float FrameValue(int n, int channel) {
    return channel == 3 ? 255.0f : 20.0f + 9.0f * n + 3.0f * channel;
}

DQImagePtr MakeFrame(int n, int channels = 4) {
    DQImagePtr image = DQMakeImage(kW, kH, channels, DQ_UCHAR);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
            for (int c = 0; c < channels; ++c)
                image->PixelAddress(x, y)[c] = uint8_t(FrameValue(n, channels == 4 ? c : c));
    return image;
}

struct Clip : ::testing::Test {
    void SetUp() override {
        WorkerScope::Set(2, kW, kH);
        for (int n = 0; n < 24; ++n)
            engine.frames.push_back(MakeFrame(n));
        ASSERT_EQ(engine.Init(), 0);
    }
    void TearDown() override { WorkerScope::Set(1, 0, 0); }

    // Renders output time `time` as one frame with the given settings.
    int Render(float time, long interpolation, int vectorQuality = 0, float inRate = 30.0f,
               float outRate = 30.0f, long cache = 1) {
        float shrink[10] = {};
        float sens[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
        return engine.GetFrame(result.Image(), nullptr, 0, 0, vectorQuality, time, time + 1.0f,
                               inRate, outRate, 0.0f, 1.0f, interpolation, 1, 1, cache, 0, shrink,
                               sens, nullptr, false);
    }
    uint8_t At(int c, int x = 3, int y = 5) { return result.Pixels()->PixelAddress(x, y)[c]; }
    void ExpectUniform(float expected[4], const char* name) {
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                for (int c = 0; c < 4; ++c)
                    ASSERT_EQ(result.Pixels()->PixelAddress(x, y)[c], uint8_t(expected[c]))
                        << name << " at " << x << "," << y << " channel " << c;
    }
    bool NoFlowKept() {
        ZUQuelmor4Internal& s = *engine.internal;
        bool none = !s.opticalFlow && !s.flowBtoA && !s.flowAtoB;
        for (int i = 0; i < kMaxLayers; ++i)
            none = none && !s.layerFlowAtoB[i] && !s.layerFlowBtoA[i];
        return none;
    }

    MemoryClipEngine engine;
    OwnedFrame result{kW, kH, 4, DQ_UCHAR};
};

// Expected pixel of a mix a (1 - t) + b t with rounding, channel c.
float Mixed(int a, int b, float t, int c) {
    const float va = FrameValue(a, c), vb = FrameValue(b, c);
    return std::floor((vb - va) * t + va + 0.5f);
}

TEST_F(Clip, OutputTimesOnAndBetweenSourceFrames) {
    struct Case {
        const char* name;
        float sourceTime;
        long interpolation;
        int vectorQuality;
        int frameA, frameB;
        float t; // share of frame B in the expected picture
    };
    const Case cases[] = {
        {"exact frame, nearest", 10.0f, 0, 0, 10, 11, 0.0f},
        {"10.004 blend shows frame 10 unchanged", 10.004f, 1, 4, 10, 11, 0.0f},
        {"10.004 weighted shows frame 10", 10.004f, 2, 4, 10, 11, 0.0f},
        {"10.996 nearest shows frame 11", 10.996f, 0, 4, 10, 11, 1.0f},
        {"10.996 blend shows frame 11", 10.996f, 1, 4, 10, 11, 1.0f},
        {"weightA 0.5 is nearer to A", 10.5f, 0, 0, 10, 11, 0.0f},
        {"weightA below 0.5 takes B", 10.75f, 0, 0, 10, 11, 1.0f},
        {"quarter dissolve", 10.25f, 1, 0, 10, 11, 0.25f},
        {"weighted blend without flow dissolves", 10.25f, 2, 0, 10, 11, 0.25f},
    };
    for (const Case& c : cases) {
        engine.timeCurve = [&](float) { return c.sourceTime; };
        ASSERT_EQ(Render(0.0f, c.interpolation, c.vectorQuality), 0) << c.name;
        float expected[4];
        for (int ch = 0; ch < 4; ++ch)
            expected[ch] = Mixed(c.frameA, c.frameB, c.t, ch);
        ExpectUniform(expected, c.name);
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
        EXPECT_EQ(engine.returnedChanged, 0) << c.name;
        EXPECT_TRUE(NoFlowKept()) << c.name;
        ASSERT_GE(engine.fetches.size(), 2u);
        const FetchRecord lastTwo[2] = {engine.fetches.end()[-2], engine.fetches.end()[-1]};
        EXPECT_EQ(lastTwo[0], (FetchRecord{false, c.frameA})) << c.name;
        EXPECT_EQ(lastTwo[1], (FetchRecord{false, c.frameB})) << c.name;
    }
}

TEST_F(Clip, NegativeSourceTimeTruncatesTowardZeroAndExtrapolates) {
    // t0 = -0.25: frame A is 0, above t0, and weightA is 1.25.
    engine.timeCurve = [](float) { return -0.25f; };
    ASSERT_EQ(Render(0.0f, 0), 0);
    float nearest[4] = {FrameValue(0, 0), FrameValue(0, 1), FrameValue(0, 2), 255};
    ExpectUniform(nearest, "nearest");
    EXPECT_EQ(engine.fetches.back(), (FetchRecord{false, 1}));

    ASSERT_EQ(Render(0.0f, 1), 0);
    // a + (a - b) 0.25 through the alpha-limited blend: colours move away from frame 1.
    float blended[4];
    for (int c = 0; c < 3; ++c)
        blended[c] = std::floor(FrameValue(0, c) - 9.0f * 0.25f + 0.5f);
    blended[3] = 255;
    ExpectUniform(blended, "extrapolated blend");
}

TEST_F(Clip, SceneRule) {
    struct Case {
        const char* name;
        std::function<int(float)> scene;
        long interpolation;
        float t; // share of frame 11 in the picture at source time 10.25
    };
    const Case cases[] = {
        {"pair across a cut shows the nearer frame", [](float s) { return s >= 11.0f ? 1 : 0; }, 1,
         0.0f},
        {"cut with weighted energy blend shows the nearer frame",
         [](float s) { return s >= 11.0f ? 1 : 0; }, 2, 0.0f},
        {"scene 3 uses nearest", [](float) { return 3; }, 1, 0.0f},
        {"scene 4 blends frames", [](float) { return 4; }, 0, 0.25f},
        {"cut elsewhere leaves motion on", [](float s) { return s >= 14.0f ? 2 : 0; }, 1, -1.0f},
    };
    engine.timeCurve = [](float) { return 10.25f; };
    for (const Case& c : cases) {
        engine.scene = c.scene;
        // Vector quality 4 would need flow; the scene rule must turn it off.
        const int code = Render(0.0f, c.interpolation, 4);
        if (c.t < 0.0f) {
            // Within a scene the frame is drawn with motion, and the flow is kept.
            EXPECT_EQ(code, 0) << c.name;
            EXPECT_EQ(engine.internal->vectorQuality, 4) << c.name;
            EXPECT_FALSE(NoFlowKept()) << c.name;
            EXPECT_EQ(engine.Outstanding(), 0) << c.name;
            continue;
        }
        ASSERT_EQ(code, 0) << c.name;
        float expected[4];
        for (int ch = 0; ch < 4; ++ch)
            expected[ch] = Mixed(10, 11, c.t, ch);
        ExpectUniform(expected, c.name);
        EXPECT_TRUE(NoFlowKept()) << c.name;
        EXPECT_EQ(engine.internal->vectorQuality, 0) << c.name;
    }
}

TEST_F(Clip, BadRatesFailWithFiveAndAClearedResult) {
    struct Case {
        const char* name;
        float in, out;
    };
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Case cases[] = {
        {"output rate 0.005", 30.0f, 0.005f},
        {"input rate 0.01", 0.01f, 30.0f},
        {"negative input rate", -24.0f, 30.0f},
        {"NaN output rate", 30.0f, nan},
    };
    for (const Case& c : cases) {
        float filled[4] = {99, 99, 99, 99};
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                std::memset(result.Pixels()->PixelAddress(x, y), 99, 4);
        (void)filled;
        EXPECT_EQ(Render(10.0f, 1, 0, c.in, c.out), kDQErrBadArgument) << c.name;
        float zero[4] = {0, 0, 0, 0};
        ExpectUniform(zero, c.name);
        EXPECT_EQ(engine.checkedOut, 0) << c.name;
    }
    EXPECT_EQ(Render(10.0f, 1, 0, 0.011f, 0.01f), 0) << "rates just inside the limits";
}

TEST_F(Clip, FailedFetchReturnsItsCodeAndGivesEverythingBack) {
    struct Case {
        const char* name;
        int failFrame;
        int code;
        float sourceTime;
        int expected;
    };
    const Case cases[] = {
        {"frame B fails to fetch", 11, kDQErrFetch, 10.25f, kDQErrFetch},
        {"frame A fails to fetch", 10, kDQErrFetch, 10.25f, kDQErrFetch},
        {"interrupted fetch", 11, kDQErrInterrupted, 10.25f, kDQErrInterrupted},
        {"frame beyond the clip", -1, 0, 23.5f, kDQErrBadArgument},
    };
    for (const Case& c : cases) {
        engine.failFrame = c.failFrame;
        engine.failCode = c.code;
        engine.timeCurve = [&](float) { return c.sourceTime; };
        engine.checkedOut = engine.givenBack = 0;
        EXPECT_EQ(Render(0.0f, 1), c.expected) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
        EXPECT_TRUE(NoFlowKept()) << c.name;
    }
    engine.failFrame = -1;
    engine.timeCurve = [](float) { return 10.25f; };
    EXPECT_EQ(Render(0.0f, 1), 0) << "the engine recovers after a failure";
}

TEST_F(Clip, ChannelOrderIsCanonicalInsideAndRestoredOutside) {
    // Frames stored as B, G, R, A; the result too. A nearest copy must come out byte for byte.
    engine.channelOrder = {2, 1, 0, 3};
    OwnedFrame bgrResult(kW, kH, 4, DQ_UCHAR, {2, 1, 0, 3});
    engine.timeCurve = [](float) { return 7.0f; };
    float shrink[10] = {}, sens[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    ASSERT_EQ(engine.GetFrame(bgrResult.Image(), nullptr, 0, 0, 0, 0.0f, 1.0f, 30, 30, 0, 1, 0, 1,
                              1, 1, 0, shrink, sens, nullptr, false),
              0);
    EXPECT_TRUE(MemoryClipEngine::SamePixels(*bgrResult.Pixels(), *engine.frames[7]));
    EXPECT_EQ(engine.returnedChanged, 0);

    // Frames in B, G, R, A and the result in R, G, B, A: red and blue swap places.
    OwnedFrame rgbResult(kW, kH, 4, DQ_UCHAR);
    ASSERT_EQ(engine.GetFrame(rgbResult.Image(), nullptr, 0, 0, 0, 0.0f, 1.0f, 30, 30, 0, 1, 0, 1,
                              1, 1, 0, shrink, sens, nullptr, false),
              0);
    const uint8_t* p = rgbResult.Pixels()->PixelAddress(2, 2);
    const uint8_t* s = engine.frames[7]->PixelAddress(2, 2);
    EXPECT_EQ(p[0], s[2]);
    EXPECT_EQ(p[1], s[1]);
    EXPECT_EQ(p[2], s[0]);
    EXPECT_EQ(p[3], s[3]);
}

TEST_F(Clip, FieldsOutWeaveTheSecondMomentOntoTheSecondField) {
    struct Case {
        const char* name;
        int fieldsOut;
        int secondRowsParity; // parity (from the top) of rows taken from the second moment
    };
    // kH is even, so lastRow is odd. Upper field first weaves rows lastRow - 1, lastRow - 3, ...
    // (the even rows) from the second moment; lower field first rows lastRow, lastRow - 2, ....
    const Case cases[] = {{"upper field first", 1, 0}, {"lower field first", 2, 1}};
    engine.timeCurve = [](float t) { return 2.0f * t; }; // pass 0 at frame 10, pass 1 at 11
    for (const Case& c : cases) {
        OwnedFrame second(kW, kH, 4, DQ_UCHAR);
        float shrink[10] = {}, sens[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
        ASSERT_EQ(engine.GetFrame(result.Image(), second.Image(), 0, c.fieldsOut, 0, 5.0f, 6.0f, 30,
                                  30, 0, 1, 0, 1, 1, 1, 0, shrink, sens, nullptr, false),
                  0)
            << c.name;
        for (int y = 0; y < kH; ++y) {
            const int frame = (y % 2 == c.secondRowsParity) ? 11 : 10;
            EXPECT_EQ(At(0, 4, y), uint8_t(FrameValue(frame, 0))) << c.name << " row " << y;
        }
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
    }
    // Without a second frame to draw into the render fails cleanly.
    float shrink[10] = {}, sens[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(engine.GetFrame(result.Image(), nullptr, 0, 1, 0, 5.0f, 6.0f, 30, 30, 0, 1, 0, 1, 1,
                              1, 0, shrink, sens, nullptr, false),
              kDQErrBadArgument);
}

TEST_F(Clip, RequirementsListTheFramesThatARenderReads) {
    struct Case {
        const char* name;
        float sourceTime;
        int fieldsIn;
        long interpolation;
    };
    const Case cases[] = {
        {"between frames", 10.25f, 0, 1},
        {"on a frame", 10.0f, 0, 0},
        {"nearest past the middle", 3.75f, 0, 0},
        {"fields in", 4.25f, 1, 1},
    };
    engine.fieldsMayChange = true;
    for (const Case& c : cases) {
        engine.timeCurve = [&](float) { return c.sourceTime; };
        float shrink[10] = {}, sens[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
        FrameRequirements req;
        ASSERT_EQ(engine.GetFrameRequirements(&req, result.Image(), c.fieldsIn, 0, 0, 0.0f, 1.0f,
                                              30, 30, 0, 1, c.interpolation, 1, 1, 1, 0, shrink,
                                              sens, nullptr, false),
                  0)
            << c.name;
        engine.fetches.clear();
        ASSERT_EQ(engine.GetFrame(result.Image(), nullptr, c.fieldsIn, 0, 0, 0.0f, 1.0f, 30, 30, 0,
                                  1, c.interpolation, 1, 1, 1, 0, shrink, sens, nullptr, false),
                  0)
            << c.name;
        ASSERT_EQ(req.count, int(engine.fetches.size())) << c.name;
        EXPECT_EQ(req.sequenceFrames, 2) << c.name;
        EXPECT_EQ(req.matteFrames, 0) << c.name;
        for (int i = 0; i < req.count; ++i) {
            EXPECT_EQ(req.kind[i], kWarpedFrame) << c.name;
            EXPECT_EQ(req.frame[i], engine.fetches[i].frame) << c.name << " entry " << i;
            EXPECT_EQ(req.layer[i], -1) << c.name;
        }
    }
}

TEST_F(Clip, RequirementsWithMotionFromTheTrackingSequence) {
    engine.timeCurve = [](float) { return 6.5f; };
    float shrink[10] = {}, sens[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    FrameRequirements req;
    ASSERT_EQ(engine.GetFrameRequirements(&req, result.Image(), 0, 0, 4, 0.0f, 1.0f, 30, 30, 0, 1,
                                          1, 1, 0, 1, 0, shrink, sens, nullptr, false),
              0);
    ASSERT_EQ(req.count, 4);
    EXPECT_EQ(req.sequenceFrames, 4);
    const int kinds[4] = {kTrackingFrame, kTrackingFrame, kWarpedFrame, kWarpedFrame};
    const int frames[4] = {6, 7, 6, 7};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(req.kind[i], kinds[i]) << "entry " << i;
        EXPECT_EQ(req.frame[i], frames[i]) << "entry " << i;
    }
    // Bad rates are reported as success with nothing listed.
    ASSERT_EQ(engine.GetFrameRequirements(&req, result.Image(), 0, 0, 4, 0.0f, 1.0f, 30, 0.001f, 0,
                                          1, 1, 1, 0, 1, 0, shrink, sens, nullptr, false),
              0);
    EXPECT_EQ(req.count, 0);
}

TEST(EngineEntries, WithoutInitEveryEntryReportsOne) {
    MemoryClipEngine engine;
    OwnedFrame result(4, 4, 4, DQ_UCHAR);
    FrameRequirements req;
    float shrink[10] = {}, sens[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(engine.GetFrame(result.Image(), 0, 0.0f, 1.0f, 0.0f, 0, 1, 1, 1, 0, nullptr), 1);
    EXPECT_EQ(engine.GetFrameRequirements(&req, result.Image(), 0, 0, 0, 0, 1, 30, 30, 0, 1, 0, 1,
                                          1, 1, 0, shrink, sens, nullptr, false),
              1);
    engine.ResetMotion(); // nothing to reset, nothing to crash
    EXPECT_EQ(engine.Init(), 0);
    ZUQuelmor4Internal* first = engine.internal;
    EXPECT_EQ(engine.Init(), 0);
    EXPECT_EQ(engine.internal, first) << "a second Init keeps the state";
    engine.ResetMotion();
}

} // namespace
