// The frame renderer on the road without motion: time mapping, source-frame test, scene rule,
// rates, failed fetches, give-back, channel order, and the frames a render reads.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "engine/EngineInternal.h"

#include <cmath>
#include <cstring>
#include <limits>

using namespace quelmor::test;

namespace {

constexpr int kW = 16;
constexpr int kH = 12;

// Colour channel c of frame n: 20 + 9 n + 3 c; alpha full.
float FrameValue(int n, int channel) {
    return channel == 3 ? 255.0f : 20.0f + 9.0f * n + 3.0f * channel;
}

DQImagePtr MakeFrame(int n) {
    DQImagePtr image = DQMakeImage(kW, kH, 4, DQ_UCHAR);
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x)
            for (int c = 0; c < 4; ++c)
                image->PixelAddress(x, y)[c] = uint8_t(FrameValue(n, c));
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

    // Renders the frame at source time `sourceTime`.
    int Render(float sourceTime, RenderSettings settings) {
        engine.timeCurve = [=](float) { return sourceTime; };
        return engine.Render(result.Image(), settings);
    }
    void ExpectUniform(const float expected[4], const char* name) {
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                for (int c = 0; c < 4; ++c)
                    ASSERT_EQ(result.Pixels()->PixelAddress(x, y)[c], uint8_t(expected[c]))
                        << name << " at " << x << "," << y << " channel " << c;
    }
    // The frame a (1 - t) + b t with rounding.
    void ExpectMix(int a, int b, float t, const char* name) {
        float expected[4];
        for (int c = 0; c < 4; ++c) {
            const float va = FrameValue(a, c), vb = FrameValue(b, c);
            expected[c] = std::floor((vb - va) * t + va + 0.5f);
        }
        ExpectUniform(expected, name);
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

TEST_F(Clip, OutputTimesOnAndBetweenSourceFrames) {
    struct Case {
        const char* name;
        float sourceTime;
        long interpolation;
        int vectorQuality;
        float t; // share of frame 11 in the expected picture
    };
    const Case cases[] = {
        {"exact frame, nearest", 10.0f, 0, 0, 0.0f},
        {"10.004 blend shows frame 10 unchanged", 10.004f, 1, 4, 0.0f},
        {"10.004 weighted shows frame 10", 10.004f, 2, 4, 0.0f},
        {"10.996 nearest shows frame 11", 10.996f, 0, 4, 1.0f},
        {"10.996 blend shows frame 11", 10.996f, 1, 4, 1.0f},
        {"weightA 0.5 is nearer to A", 10.5f, 0, 0, 0.0f},
        {"weightA below 0.5 takes B", 10.75f, 0, 0, 1.0f},
        {"quarter dissolve", 10.25f, 1, 0, 0.25f},
        {"weighted blend without flow dissolves", 10.25f, 2, 0, 0.25f},
    };
    for (const Case& c : cases) {
        ASSERT_EQ(Render(c.sourceTime,
                         {.vectorQuality = c.vectorQuality, .interpolation = c.interpolation}),
                  0)
            << c.name;
        ExpectMix(10, 11, c.t, c.name);
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
        EXPECT_EQ(engine.returnedChanged, 0) << c.name;
        EXPECT_TRUE(NoFlowKept()) << c.name;
        ASSERT_GE(engine.fetches.size(), 2u);
        EXPECT_EQ(engine.fetches.end()[-2], (FetchRecord{false, 10})) << c.name;
        EXPECT_EQ(engine.fetches.end()[-1], (FetchRecord{false, 11})) << c.name;
    }
}

TEST_F(Clip, NegativeSourceTimeTruncatesTowardZeroAndExtrapolates) {
    // t0 = -0.25: frame A is 0, above t0, and weightA is 1.25.
    ASSERT_EQ(Render(-0.25f, {.vectorQuality = 0, .interpolation = 0}), 0);
    ExpectMix(0, 1, 0.0f, "nearest");
    EXPECT_EQ(engine.fetches.back(), (FetchRecord{false, 1}));
    // a + (a - b) 0.25 through the alpha-limited blend: colours move away from frame 1.
    ASSERT_EQ(Render(-0.25f, {.vectorQuality = 0}), 0);
    ExpectMix(0, 1, -0.25f, "extrapolated blend");
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
    for (const Case& c : cases) {
        engine.scene = c.scene;
        // Vector quality 4 would need flow; the scene rule must turn it off.
        ASSERT_EQ(Render(10.25f, {.interpolation = c.interpolation}), 0) << c.name;
        const bool motion = c.t < 0.0f;
        // Within a scene the frame is drawn with motion, and the flow is kept.
        if (!motion) ExpectMix(10, 11, c.t, c.name);
        EXPECT_EQ(NoFlowKept(), !motion) << c.name;
        EXPECT_EQ(engine.internal->vectorQuality, motion ? 4 : 0) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
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
    const float zero[4] = {0, 0, 0, 0};
    for (const Case& c : cases) {
        for (int y = 0; y < kH; ++y)
            std::memset(result.Pixels()->RowAddress(y), 99, kW * 4);
        EXPECT_EQ(Render(10.0f, {.vectorQuality = 0, .inputRate = c.in, .outputRate = c.out}),
                  kDQErrBadArgument)
            << c.name;
        ExpectUniform(zero, c.name);
        EXPECT_EQ(engine.checkedOut, 0) << c.name;
    }
    EXPECT_EQ(Render(10.0f, {.vectorQuality = 0, .inputRate = 0.011f, .outputRate = 0.01f}), 0)
        << "rates just inside the limits";
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
        engine.checkedOut = engine.givenBack = 0;
        EXPECT_EQ(Render(c.sourceTime, {.vectorQuality = 0}), c.expected) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
        EXPECT_TRUE(NoFlowKept()) << c.name;
    }
    engine.failFrame = -1;
    EXPECT_EQ(Render(10.25f, {.vectorQuality = 0}), 0) << "the engine recovers after a failure";
}

TEST_F(Clip, ChannelOrderIsCanonicalInsideAndRestoredOutside) {
    // Frames stored as B, G, R, A; the result too. A nearest copy must come out byte for byte.
    engine.channelOrder = {2, 1, 0, 3};
    engine.timeCurve = [](float) { return 7.0f; };
    const RenderSettings nearest{.vectorQuality = 0, .interpolation = 0};
    OwnedFrame bgrResult(kW, kH, 4, DQ_UCHAR, {2, 1, 0, 3});
    ASSERT_EQ(engine.Render(bgrResult.Image(), nearest), 0);
    EXPECT_TRUE(SamePixels(*bgrResult.Pixels(), *engine.frames[7]));
    EXPECT_EQ(engine.returnedChanged, 0);

    // Frames in B, G, R, A and the result in R, G, B, A: red and blue swap places.
    OwnedFrame rgbResult(kW, kH, 4, DQ_UCHAR);
    ASSERT_EQ(engine.Render(rgbResult.Image(), nearest), 0);
    const uint8_t* p = rgbResult.Pixels()->PixelAddress(2, 2);
    const uint8_t* s = engine.frames[7]->PixelAddress(2, 2);
    EXPECT_EQ((std::array<uint8_t, 4>{p[0], p[1], p[2], p[3]}),
              (std::array<uint8_t, 4>{s[2], s[1], s[0], s[3]}));
    // Fields out without a second frame to draw into fail cleanly.
    EXPECT_EQ(engine.Render(rgbResult.Image(), {.fieldsOut = 1, .vectorQuality = 0}),
              kDQErrBadArgument);
}

TEST_F(Clip, RequirementsListTheFramesThatARenderReads) {
    struct Case {
        const char* name;
        float sourceTime;
        RenderSettings settings;
    };
    const Case cases[] = {
        {"between frames", 10.25f, {.vectorQuality = 0}},
        {"on a frame", 10.0f, {.vectorQuality = 0, .interpolation = 0}},
        {"nearest past the middle", 3.75f, {.vectorQuality = 0, .interpolation = 0}},
        {"fields in", 4.25f, {.fieldsIn = 1, .vectorQuality = 0}},
        {"blend with motion on the clip itself", 2.5f, {}},
        {"blend tracked on the other clip", 6.5f, {.flowFromSequence = 0}},
        {"nearest tracked on the other clip", 4.8f, {.interpolation = 0, .flowFromSequence = 0}},
    };
    engine.fieldsMayChange = true;
    for (const Case& c : cases) {
        engine.timeCurve = [&](float) { return c.sourceTime; };
        engine.ResetMotion();
        FrameRequirements req;
        ASSERT_EQ(engine.Requirements(&req, result.Image(), c.settings), 0) << c.name;
        engine.fetches.clear();
        ASSERT_EQ(engine.Render(result.Image(), c.settings), 0) << c.name;
        ASSERT_EQ(req.count, int(engine.fetches.size())) << c.name;
        EXPECT_EQ(req.sequenceFrames, req.count) << c.name;
        EXPECT_EQ(req.matteFrames, 0) << c.name;
        for (int i = 0; i < req.count; ++i) {
            EXPECT_EQ(req.kind[i] == kTrackingFrame, engine.fetches[i].tracking)
                << c.name << " entry " << i;
            EXPECT_EQ(req.frame[i], engine.fetches[i].frame) << c.name << " entry " << i;
            EXPECT_EQ(req.layer[i], -1) << c.name;
        }
    }
    // Bad rates are reported as success with nothing listed.
    FrameRequirements req;
    ASSERT_EQ(engine.Requirements(&req, result.Image(), {.outputRate = 0.001f}), 0);
    EXPECT_EQ(req.count, 0);
}

TEST(EngineEntries, WithoutInitEveryEntryReportsOne) {
    MemoryClipEngine engine;
    OwnedFrame result(4, 4, 4, DQ_UCHAR);
    FrameRequirements req;
    EXPECT_EQ(engine.GetFrame(result.Image(), 0, 0.0f, 1.0f, 0.0f, 0, 1, 1, 1, 0, nullptr), 1);
    EXPECT_EQ(engine.Requirements(&req, result.Image(), {}), 1);
    engine.ResetMotion(); // nothing to reset, nothing to crash
    EXPECT_EQ(engine.Init(), 0);
    ZUQuelmor4Internal* first = engine.internal;
    EXPECT_EQ(engine.Init(), 0);
    EXPECT_EQ(engine.internal, first) << "a second Init keeps the state";
    engine.ResetMotion();
}

} // namespace
