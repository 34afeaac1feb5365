// The frame renderer on the road without motion: time mapping, source-frame test, scene rule,
// rates, failed fetches, give-back, channel order, and the frames a render reads.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
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

struct Clip : ::testing::Test {
    void SetUp() override {
        for (int n = 0; n < 24; ++n)
            engine.frames.push_back(
                MakeImage(kW, kH, 4, DQ_UCHAR, [n](int, int, int c) { return FrameValue(n, c); }));
        ASSERT_EQ(engine.Init(), 0);
    }

    // Renders the frame at source time `sourceTime`.
    int Render(float sourceTime, RenderSettings settings) {
        engine.timeCurve = [=](float) { return sourceTime; };
        return engine.Render(result.Image(), settings);
    }
    void ExpectUniform(const float e[4], const char* name) {
        EXPECT_TRUE(
            SamePixels(*result.Pixels(), *Solid(kW, kH, 4, DQ_UCHAR, {e[0], e[1], e[2], e[3]})))
            << name << ": " << At(*result.Pixels(), 0, 0, 0) << " against " << e[0];
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

    WorkerScope workers{2, kW, kH};
    MemoryClipEngine engine;
    OwnedFrame result{kW, kH, 4, DQ_UCHAR};
};

TEST_F(Clip, OutputTimesOnAndBetweenSourceFrames) {
    struct Case {
        float sourceTime;
        long interpolation;
        int vectorQuality;
        float t; // share of frame 11 in the expected picture
    };
    // 10.004 and 10.996 are source frames even where flow would be needed; weightA 0.5 is nearer
    // to A; without flow the blends dissolve.
    const Case cases[] = {{10.004f, 1, 4, 0.0f}, {10.996f, 0, 4, 1.0f}, {10.996f, 2, 4, 1.0f},
                          {10.5f, 0, 0, 0.0f},   {10.75f, 0, 0, 1.0f},  {10.25f, 1, 0, 0.25f},
                          {10.25f, 2, 0, 0.25f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.sourceTime << ", interpolation " << c.interpolation);
        ASSERT_EQ(Render(c.sourceTime,
                         {.vectorQuality = c.vectorQuality, .interpolation = c.interpolation}),
                  0);
        ExpectMix(10, 11, c.t, "");
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_EQ(engine.returnedChanged, 0);
        EXPECT_TRUE(engine.KeepsNoFlow());
        EXPECT_EQ(std::vector(engine.fetches.end() - 2, engine.fetches.end()),
                  (std::vector<FetchRecord>{{false, 10}, {false, 11}}));
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
        float t; // share of frame 11 in the picture at source time 10.25; -1: drawn with motion
    };
    auto cutAt11 = [](float s) { return s >= 11.0f ? 1 : 0; };
    const Case cases[] = {
        {"pair across a cut shows the nearer frame", cutAt11, 1, 0.0f},
        {"cut with weighted energy blend shows the nearer frame", cutAt11, 2, 0.0f},
        {"scene 3 uses nearest", [](float) { return 3; }, 1, 0.0f},
        {"scene 4 blends frames", [](float) { return 4; }, 0, 0.25f},
        {"cut elsewhere leaves motion on", [](float s) { return s >= 14.0f ? 2 : 0; }, 1, -1.0f},
    };
    for (const Case& c : cases) {
        engine.scene = c.scene;
        // Vector quality 4 would need flow; the scene rule must turn it off.
        ASSERT_EQ(Render(10.25f, {.interpolation = c.interpolation}), 0) << c.name;
        const bool motion = c.t < 0.0f;
        if (!motion) ExpectMix(10, 11, c.t, c.name);
        EXPECT_EQ(engine.KeepsNoFlow(), !motion) << c.name;
        EXPECT_EQ(engine.internal->vectorQuality, motion ? 4 : 0) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
    }
}

TEST_F(Clip, BadRatesFailWithFiveAndAClearedResult) {
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const std::pair<float, float> rates[] = {
        {30.0f, 0.005f}, {0.01f, 30.0f}, {-24.0f, 30.0f}, {30.0f, nan}};
    const float zero[4] = {0, 0, 0, 0};
    for (auto [in, out] : rates) {
        SCOPED_TRACE(testing::Message() << "in " << in << ", out " << out);
        for (int y = 0; y < kH; ++y)
            std::memset(result.Pixels()->RowAddress(y), 99, kW * 4);
        EXPECT_EQ(Render(10.0f, {.vectorQuality = 0, .inputRate = in, .outputRate = out}),
                  kDQErrBadArgument);
        ExpectUniform(zero, "cleared");
        EXPECT_EQ(engine.checkedOut, 0);
    }
    EXPECT_EQ(Render(10.0f, {.vectorQuality = 0, .inputRate = 0.011f, .outputRate = 0.01f}), 0)
        << "rates just inside the limits";
}

TEST_F(Clip, TimesAndBlurThatAreNoFiniteNumberFailWithFive) {
    // An infinite or NaN speed reaches the engine as a source time; no frame can be named from
    // it, nor from an output time or a blur of that kind.
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    const struct {
        const char* name;
        float sourceTime;
        RenderSettings settings;
    } cases[] = {
        {"NaN source time, no motion", nan, {.vectorQuality = 0}},
        {"NaN source time, motion", nan, {.vectorQuality = 4}},
        {"infinite source time", inf, {.vectorQuality = 0}},
        {"negative infinite source time", -inf, {.vectorQuality = 0}},
        {"source time beyond any frame number", 3e9f, {.vectorQuality = 0}},
        {"NaN output time", 10.5f, {.vectorQuality = 0, .timeBegin = nan}},
        {"infinite output end", 10.5f, {.vectorQuality = 0, .timeEnd = inf}},
        {"NaN blur", 10.5f, {.vectorQuality = 4, .motionBlur = nan}},
        {"infinite blur", 10.5f, {.vectorQuality = 4, .motionBlur = inf}},
        {"NaN source time, fields in", nan, {.fieldsIn = 1, .vectorQuality = 0}},
    };
    const float zero[4] = {0, 0, 0, 0};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        for (int y = 0; y < kH; ++y)
            std::memset(result.Pixels()->RowAddress(y), 99, kW * 4);
        EXPECT_EQ(Render(c.sourceTime, c.settings), kDQErrBadArgument);
        ExpectUniform(zero, "cleared");
        EXPECT_EQ(engine.Outstanding(), 0);
    }
    EXPECT_EQ(Render(10.5f, {.vectorQuality = 0, .motionBlur = 5.0f}), 0) << "finite values render";
}

TEST_F(Clip, FailedFetchReturnsItsCodeAndGivesEverythingBack) {
    struct Case {
        int failFrame, code;
        float sourceTime;
        int expected;
    };
    // Frame B, frame A, an interrupted fetch, a frame beyond the clip.
    const Case cases[] = {{11, kDQErrFetch, 10.25f, kDQErrFetch},
                          {10, kDQErrFetch, 10.25f, kDQErrFetch},
                          {11, kDQErrInterrupted, 10.25f, kDQErrInterrupted},
                          {-1, 0, 23.5f, kDQErrBadArgument}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "frame " << c.failFrame << " at " << c.sourceTime);
        engine.failFrame = c.failFrame;
        engine.failCode = c.code;
        EXPECT_EQ(Render(c.sourceTime, {.vectorQuality = 0}), c.expected);
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_TRUE(engine.KeepsNoFlow());
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
    const std::pair<float, RenderSettings> cases[] = {
        {10.0f, {.vectorQuality = 0, .interpolation = 0}},
        {3.75f, {.vectorQuality = 0, .interpolation = 0}},
        {4.25f, {.fieldsIn = 1, .vectorQuality = 0}},
        {2.5f, {}},
        {6.5f, {.flowFromSequence = 0}},
        {4.8f, {.interpolation = 0, .flowFromSequence = 0}},
    };
    engine.fieldsMayChange = true;
    for (const auto& [sourceTime, settings] : cases) {
        SCOPED_TRACE(sourceTime);
        engine.timeCurve = [&](float) { return sourceTime; };
        engine.ResetMotion();
        FrameRequirements req;
        ASSERT_EQ(engine.Requirements(&req, result.Image(), settings), 0);
        engine.fetches.clear();
        ASSERT_EQ(engine.Render(result.Image(), settings), 0);
        ASSERT_EQ(req.count, int(engine.fetches.size()));
        EXPECT_EQ(req.sequenceFrames, req.count);
        EXPECT_EQ(req.matteFrames, 0);
        for (int i = 0; i < req.count; ++i) {
            EXPECT_EQ(FetchRecord(req.kind[i] == kTrackingFrame, req.frame[i]), engine.fetches[i])
                << i;
            EXPECT_EQ(req.layer[i], -1);
        }
    }
    // Bad rates are reported as success with nothing listed.
    FrameRequirements req;
    ASSERT_EQ(engine.Requirements(&req, result.Image(), {.outputRate = 0.001f}), 0);
    EXPECT_EQ(req.count, 0);
}

TEST(EngineEntries, WithoutInitEveryEntryReportsOne) {
    WorkerScope workers{2, kW, kH};
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
