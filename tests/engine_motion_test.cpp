// The single-layer road with motion: how often flow is computed and what is kept, where a moving
// object lands in the in-between frames, motion from the tracking sequence, geometry seeds,
// progress and the give-back of every frame on every path.
#include "ImagePatterns.h"
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EngineInternal.h"
#include "flow/Flow.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <tuple>

using namespace quelmor::test;

namespace {

constexpr int kW = 128;
constexpr int kH = 96;
constexpr int kSide = 28;      // side of the moving object
constexpr float kStepX = 6.0f; // its motion per source frame
constexpr float kStepY = 4.0f;
constexpr int kStartX = 14; // its top-left corner in frame 0
constexpr int kStartY = 16;
constexpr uint8_t kMarker = 230; // blue of the object; the background keeps blue low
constexpr uint8_t kGround = 20;

// A smooth texture of a few waves of several orientations and lengths, defined everywhere.
class Waves {
public:
    explicit Waves(unsigned seed) {
        for (int i = 0; i < kCount; ++i) {
            seed = seed * 1664525u + 1013904223u;
            const double angle = 6.2831853 * (seed >> 8) / double(1u << 24);
            seed = seed * 1664525u + 1013904223u;
            const double wavelength = 6.0 + 30.0 * (seed >> 8) / double(1u << 24);
            seed = seed * 1664525u + 1013904223u;
            phase_[i] = 6.2831853 * (seed >> 8) / double(1u << 24);
            kx_[i] = 6.2831853 * std::cos(angle) / wavelength;
            ky_[i] = 6.2831853 * std::sin(angle) / wavelength;
        }
    }
    uint8_t operator()(double x, double y) const {
        double v = 128.0;
        for (int i = 0; i < kCount; ++i)
            v += 22.0 * std::sin(kx_[i] * x + ky_[i] * y + phase_[i]);
        return uint8_t(std::clamp(v, 0.0, 255.0));
    }

private:
    static constexpr int kCount = 8;
    double kx_[kCount], ky_[kCount], phase_[kCount];
};

// A textured background with a textured square whose blue channel marks it. The square moves by
// (kStepX, kStepY) per frame; the background stands still or, with `backgroundMoves`, moves
// along with it, so that every pixel shares one motion.
DQImagePtr MovingObjectFrame(int n, bool backgroundMoves = false) {
    static const Waves ground(11), object(29);
    const int ox = kStartX + int(kStepX) * n, oy = kStartY + int(kStepY) * n;
    const int shift = backgroundMoves ? n : 0;
    return MakeImage(kW, kH, 4, DQ_UCHAR, [=](int x, int y, int c) -> double {
        const bool inside = x >= ox && x < ox + kSide && y >= oy && y < oy + kSide;
        const uint8_t v =
            inside ? object(x - ox, y - oy) : ground(x - kStepX * shift, y - kStepY * shift);
        const double values[4] = {double(v), 255.0 - v, double(inside ? kMarker : kGround), 255.0};
        return values[c];
    });
}

// Where the marked object lies in a picture: the top-left corner of a square of its size with
// the same centroid as its marker, and the area of fully marked pixels over the square's area.
// A dissolve of two places leaves the centroid between them but the full area shrinks to their
// overlap; a warp keeps the object whole. Rows from `firstRow` in steps of `rowStep` count.
struct Placement {
    float x = 0.0f, y = 0.0f;
    float fullShare = 0.0f;
};

Placement Locate(const DQImage& image, int firstRow = 0, int rowStep = 1) {
    double sum = 0.0, sx = 0.0, sy = 0.0;
    int full = 0;
    for (int y = firstRow; y < image.height; y += rowStep)
        for (int x = 0; x < image.width; ++x) {
            // Blue on the 8-bit scale, whatever the element type.
            const double blue = At(image, x, y, 2) * 255.0 / image.whitePoint;
            const double w = std::max(0.0, blue - kGround);
            sum += w;
            sx += w * x;
            sy += w * y;
            full += blue >= kMarker - 20;
        }
    if (sum <= 0.0) return {};
    const float half = (kSide - 1) * 0.5f;
    return {float(sx / sum) - half, float(sy / sum) - half, float(full) / (kSide * kSide)};
}

struct MotionClip : ::testing::Test {
    void SetUp() override {
        for (int n = 0; n < 8; ++n)
            engine.frames.push_back(MovingObjectFrame(n));
        ASSERT_EQ(engine.Init(), 0);
    }

    // Renders the output frame from 100 to 101 at source time `sourceTime`, spanning `span`
    // source frames.
    int Render(float sourceTime, RenderSettings settings = {}, float span = 1.0f) {
        engine.timeCurve = [=](float t) { return sourceTime + (t - 100.0f) * span; };
        settings.timeBegin = 100.0f;
        settings.timeEnd = 101.0f;
        return engine.Render(result.Image(), settings);
    }
    ZUQuelmor4Internal& State() { return *engine.internal; }
    int64_t Runs() { return State().flowRuns; }

    WorkerScope workers{2, kW, kH};
    MemoryClipEngine engine;
    OwnedFrame result{kW, kH, 4, DQ_UCHAR};
};

TEST_F(MotionClip, FlowIsComputedOncePerNeedAndKeptOnlyWithCache) {
    struct Step {
        float time;
        int runs; // flows computed so far in the scenario
        bool kept;
    };
    struct Scenario {
        long interpolation, cache;
        std::vector<Step> steps;
    };
    // Blend: backwards within the interval reuses; on a source time none is computed or kept.
    // Nearest: weightA 0.5 is still nearer to A. Weighted energy blend ties both flows to A.
    const Scenario scenarios[] = {
        {1, 1, {{2.25, 2, true}, {2.4, 2, true}, {3.25, 4, true}, {3.0, 4, false}, {3.5, 6, true}}},
        {2, 1, {{4.3, 2, true}, {4.7, 2, true}, {5.1, 4, true}}},
        {0, 1, {{2.25, 1, true}, {2.5, 1, true}, {2.6, 2, true}, {2.9, 2, true}, {2.2, 3, true}}},
        {1, 0, {{2.25, 2, false}, {2.5, 4, false}}},
        {0, 0, {{5.25, 1, false}, {5.3, 2, false}}}};
    for (const Scenario& s : scenarios) {
        engine.ResetMotion();
        const int64_t before = Runs();
        for (const Step& step : s.steps) {
            SCOPED_TRACE(testing::Message() << "interpolation " << s.interpolation << ", cache "
                                            << s.cache << " at " << step.time);
            ASSERT_EQ(Render(step.time, {.interpolation = s.interpolation, .cache = s.cache}), 0);
            EXPECT_EQ(Runs() - before, step.runs);
            EXPECT_EQ(!engine.KeepsNoFlow(), step.kept);
            EXPECT_EQ(engine.Outstanding(), 0);
            EXPECT_EQ(engine.returnedChanged, 0);
        }
    }
}

TEST_F(MotionClip, BlendKeepsBothDirectionsNearestOnlyTheOneItWarpsWith) {
    ASSERT_EQ(Render(1.5f), 0);
    ZUQuelmor4Internal& s = State();
    ASSERT_NE(s.flowBtoA, nullptr);
    ASSERT_NE(s.opticalFlow, nullptr);
    EXPECT_EQ(s.flowAtoB, s.opticalFlow->flowLevels[0]) << "flowAtoB borrows the object's output";
    engine.ResetMotion();
    ASSERT_EQ(Render(1.5f, {.interpolation = 0}), 0);
    EXPECT_EQ(s.flowBtoA, nullptr) << "nearest keeps no engine-owned flow";
    EXPECT_NE(s.opticalFlow, nullptr);
}

TEST_F(MotionClip, MovingObjectLandsWhereItIsAtTheRequestedMoment) {
    struct Case {
        long interpolation;
        bool backgroundMoves;
        float tolerance, leastFull; // of the position in pixels; least share of the object whole
    };
    // Inverse warps read the flow at the destination pixel. On a still background the one warped
    // frame of "Nearest" therefore drags a trailing strip of the object along, which the two
    // frames of the blends cancel; "Nearest" is held to one motion of every pixel.
    const Case cases[] = {{0, true, 0.3f, 0.85f},
                          {1, true, 0.3f, 0.85f},
                          {1, false, 0.6f, 0.75f},
                          {2, false, 0.6f, 0.75f}};
    for (const Case& c : cases) {
        for (int n = 0; n < 8; ++n)
            engine.frames[n] = MovingObjectFrame(n, c.backgroundMoves);
        for (float t : {0.25f, 0.5f, 0.75f}) {
            SCOPED_TRACE(testing::Message()
                         << "interpolation " << c.interpolation << ", ground "
                         << (c.backgroundMoves ? "moves" : "still") << ", t " << t);
            engine.ResetMotion();
            ASSERT_EQ(Render(2.0f + t, {.interpolation = c.interpolation}), 0);
            const Placement at = Locate(*result.Pixels());
            EXPECT_NEAR(at.x, kStartX + kStepX * (2.0f + t), c.tolerance);
            EXPECT_NEAR(at.y, kStartY + kStepY * (2.0f + t), c.tolerance);
            EXPECT_GT(at.fullShare, c.leastFull);
            EXPECT_LT(at.fullShare, 1.1f);
        }
    }
}

TEST_F(MotionClip, MotionFromTheTrackingSequenceMovesTheWarpedFrames) {
    // The tracking clip holds the moving object; the clip to warp stands still, with the object
    // where it is in frame 0. Motion measured on the tracking clip must move it.
    engine.trackingFrames.clear();
    for (int n = 0; n < 8; ++n)
        engine.trackingFrames.push_back(MovingObjectFrame(n, true));
    for (auto& frame : engine.frames)
        frame = MovingObjectFrame(0, true);
    struct Case {
        long flowFromSequence;
        float shift; // expected motion of the object, in source frames of the tracking clip
        std::vector<FetchRecord> fetches;
    };
    const Case cases[] = {{0, 0.5f, {{true, 0}, {true, 1}, {false, 0}, {false, 1}}},
                          {1, 0.0f, {{false, 0}, {false, 1}}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.flowFromSequence);
        engine.ResetMotion();
        engine.fetches.clear();
        ASSERT_EQ(Render(0.5f, {.interpolation = 0, .flowFromSequence = c.flowFromSequence}), 0);
        const Placement at = Locate(*result.Pixels());
        EXPECT_NEAR(at.x, kStartX + kStepX * c.shift, 0.3f);
        EXPECT_NEAR(at.y, kStartY + kStepY * c.shift, 0.3f);
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_EQ(engine.fetches, c.fetches);
    }
}

TEST_F(MotionClip, GeometryReachesTheFlowObjectAsSeeds) {
    engine.geometries = 2;
    engine.geometryPoints = {{20.0f, 16.0f, 26.0f, 20.0f}, {40.0f, 30.0f, 46.0f, 34.0f}};
    struct Case {
        const char* name;
        long interpolation;
        int fieldsIn;
        float sourceTime;
        std::vector<MemoryClipEngine::GeometryRequest> requests; // (index, timeA, timeB)
    };
    // Fields in: source time 3.25 is field 6.5, fields 6 and 7, frame times 3 and 3.5.
    const Case cases[] = {
        {"nearest warping A asks for the pair (B, A)", 0, 0, 3.25f, {{0, 4, 3}, {1, 4, 3}}},
        {"nearest warping B asks for the pair (A, B)", 0, 0, 3.75f, {{0, 3, 4}, {1, 3, 4}}},
        {"blend asks for (B, A) then (A, B)",
         1,
         0,
         3.5f,
         {{0, 4, 3}, {1, 4, 3}, {0, 3, 4}, {1, 3, 4}}},
        {"fields in halve the frame numbers", 0, 1, 3.25f, {{0, 3.5f, 3.0f}, {1, 3.5f, 3.0f}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        engine.ResetMotion();
        engine.geometryRequests.clear();
        engine.fieldsMayChange = c.fieldsIn != 0;
        ASSERT_EQ(Render(c.sourceTime, {.fieldsIn = c.fieldsIn, .interpolation = c.interpolation}),
                  0);
        EXPECT_EQ(engine.geometryRequests, c.requests);
        EXPECT_EQ(engine.pointsLent, engine.pointsReleased);
        ASSERT_NE(State().opticalFlow, nullptr);
        DQImage* weight = State().opticalFlow->GetSeedWeight();
        ASSERT_NE(weight, nullptr) << "the flow object was made with seeds";
        float total = 0.0f;
        for (int y = 0; y < weight->height; ++y)
            for (int x = 0; x < weight->width; ++x)
                total += weight->Row<float>(y)[x];
        EXPECT_GT(total, 0.0f);
    }
    engine.fieldsMayChange = false;

    // A failing geometry source fails the frame with its code and leaves nothing behind.
    engine.ResetMotion();
    engine.geometryFailCode = kDQErrFetch;
    EXPECT_EQ(Render(3.5f), kDQErrFetch);
    EXPECT_EQ(engine.Outstanding(), 0);
    EXPECT_TRUE(engine.KeepsNoFlow());
    EXPECT_EQ(engine.pointsLent, engine.pointsReleased);
}

TEST_F(MotionClip, EveryPathGivesEveryFrameBack) {
    struct Case {
        const char* name;
        int failFrame;
        long flowFromSequence;
        int warping;
        int expected;
        size_t fetched; // frames asked for before the road stopped
        int externalVectors = 0;
        bool opticalFlow = true;
    };
    const Case cases[] = {
        {"tracking frame B fails", 3, 1, 0, kDQErrFetch, 2},
        {"frame to warp fails after tracking", 3, 0, 0, kDQErrFetch, 4},
        {"smart blend: tracking frame B fails", 3, 1, 1, kDQErrFetch, 2},
        {"forward: tracking frame B fails", 3, 1, 2, kDQErrFetch, 2},
        {"forward alone: frame to warp fails after tracking", 3, 0, 3, kDQErrFetch, 4},
        {"an unknown warping is refused before any fetch", -1, 1, 4, kDQErrBadArgument, 0},
        {"motion from geometry alone fetches only frames to warp", 3, 1, 0, kDQErrFetch, 2, 0,
         false},
    };
    engine.trackingFrames.clear();
    for (int n = 0; n < 8; ++n)
        engine.trackingFrames.push_back(MovingObjectFrame(n));
    for (const Case& c : cases) {
        engine.ResetMotion();
        engine.failFrame = c.failFrame;
        engine.failTracking = c.flowFromSequence != 0;
        engine.warpingMode = c.warping;
        engine.externalVectors = c.externalVectors;
        engine.backgroundOpticalFlow = c.opticalFlow;
        engine.fetches.clear();
        SCOPED_TRACE(c.name);
        std::string printed = PrintedBy(
            [&] { EXPECT_EQ(Render(2.5f, {.flowFromSequence = c.flowFromSequence}), c.expected); });
        EXPECT_EQ(engine.fetches.size(), c.fetched);
        EXPECT_EQ(engine.Outstanding(), 0);
        EXPECT_TRUE(engine.KeepsNoFlow());
        EXPECT_EQ(printed.find("not available") != std::string::npos,
                  c.expected == kDQErrBadArgument);
    }
    engine.failFrame = -1;
    engine.warpingMode = 0;
    engine.externalVectors = 0;
    engine.backgroundOpticalFlow = true;
    EXPECT_EQ(Render(2.5f), 0) << "the engine recovers";
}

TEST_F(MotionClip, ProgressStaysInRangeAndInterruptionLeavesNothing) {
    // Blend reports its second flow in the upper half; nearest one flow over the whole pass.
    for (auto [interpolation, lastFlowFrom] : {std::pair{1L, 0.5f}, std::pair{0L, 0.0f}}) {
        SCOPED_TRACE(interpolation);
        engine.ResetMotion();
        RecordingProgress progress;
        ASSERT_EQ(Render(2.5f, {.interpolation = interpolation, .progress = &progress}), 0);
        ASSERT_FALSE(progress.seen.empty());
        EXPECT_TRUE(std::is_sorted(progress.seen.begin(), progress.seen.end())) << "went back";
        EXPECT_LE(progress.seen.back(), 1.0f);
        EXPECT_GT(progress.seen.back(), lastFlowFrom);
    }
    RecordingProgress interrupted;
    interrupted.SetInterrupted(true);
    engine.ResetMotion();
    EXPECT_EQ(Render(2.5f, {.progress = &interrupted}), kDQErrInterrupted);
    EXPECT_EQ(engine.Outstanding(), 0);
    EXPECT_TRUE(engine.KeepsNoFlow());
}

TEST_F(MotionClip, MotionBlurFollowsTheSpanOfTheOutputFrame) {
    // Reference: the plain nearest frame at source time 3 is frame 3 itself.
    const DQImage& frame3 = *engine.frames[3];
    struct Case {
        float span, blur;
        bool copy; // the output is frame 3 byte for byte
    };
    // Span 1 is a plain copy; span 3 blurs; span 0.25 sharpens; an amount under the threshold
    // does nothing.
    const Case cases[] = {
        {1.0f, 1.0f, true}, {3.0f, 1.0f, false}, {0.25f, 1.0f, false}, {3.0f, 0.004f, true}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "span " << c.span << " blur " << c.blur);
        engine.ResetMotion();
        const int64_t before = Runs();
        ASSERT_EQ(Render(3.0f, {.motionBlur = c.blur, .interpolation = 0}, c.span), 0);
        EXPECT_EQ(SamePixels(*result.Pixels(), frame3), c.copy);
        // With motion blur on, a source time is no longer a frame without motion.
        EXPECT_EQ(Runs() - before, c.blur > 0.005f ? 1 : 0);
        EXPECT_EQ(engine.Outstanding(), 0);
    }
    // Blur spreads the marker of the moving object along the motion: more pixels carry some.
    auto markedPixels = [](const DQImage& image) {
        int n = 0;
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x)
                n += image.PixelAddress(x, y)[2] > kGround + 10;
        return n;
    };
    engine.ResetMotion();
    ASSERT_EQ(Render(3.0f, {.motionBlur = 1.0f, .interpolation = 0}, 3.0f), 0);
    EXPECT_GT(markedPixels(*result.Pixels()), markedPixels(frame3) + kSide);
}

TEST_F(MotionClip, FieldsOutWeaveTwoMomentsWithMotion) {
    for (int n = 0; n < 8; ++n)
        engine.frames[n] = MovingObjectFrame(n, true);
    // kH is even, so lastRow is odd: code 3 (upper first, fieldsOut 1) takes the even rows from
    // the second moment, code 2 (lower first, fieldsOut 2) the odd rows.
    for (auto [fieldsOut, secondParity] : {std::pair{1, 0}, std::pair{2, 1}}) {
        SCOPED_TRACE(fieldsOut);
        engine.ResetMotion();
        const int64_t before = Runs();
        // Output frame 5 spans source 2.5 to 3.0: the two moments are 2.5 and 2.75.
        engine.timeCurve = [](float t) { return 0.5f * t; };
        OwnedFrame second(kW, kH, 4, DQ_UCHAR);
        ASSERT_EQ(engine.Render(result.Image(), {.fieldsOut = fieldsOut,
                                                 .timeBegin = 5.0f,
                                                 .timeEnd = 6.0f,
                                                 .secondField = second.Image()}),
                  0);
        const DQImage& woven = *result.Pixels();
        EXPECT_NEAR(Locate(woven, 1 - secondParity, 2).x, kStartX + kStepX * 2.5f, 0.3f)
            << "first moment";
        EXPECT_NEAR(Locate(woven, secondParity, 2).x, kStartX + kStepX * 2.75f, 0.3f)
            << "second moment";
        // The second pass has the same frames but inherits the need for motion of the first.
        EXPECT_EQ(Runs() - before, 4);
        EXPECT_EQ(engine.Outstanding(), 0);
    }
}

// A copy of an 8-bit RGBA frame in another element type and channel count, on the same scale.
DQImagePtr Converted(const DQImage& source, int type, int channels) {
    const float scale = type == DQ_UCHAR ? 1.0f : type == DQ_USHORT ? 257.0f : 1.0f / 255.0f;
    return MakeImage(source.width, source.height, channels, type,
                     [&](int x, int y, int c) { return source.PixelAddress(x, y)[c] * scale; });
}

TEST_F(MotionClip, EveryElementTypeAndChannelCountMovesTheObject) {
    // Element type, channels, interpolation and motion blur (nearest compensates with it).
    const std::tuple<int, int, long, float> cases[] = {{DQ_USHORT, 4, 1, 0.0f},
                                                       {DQ_FLOAT, 4, 2, 0.0f},
                                                       {DQ_UCHAR, 3, 1, 0.0f},
                                                       {DQ_USHORT, 3, 0, 0.5f}};
    for (const auto& [type, channels, interpolation, motionBlur] : cases) {
        SCOPED_TRACE(testing::Message() << "type " << type << ", " << channels << " channels, "
                                        << "interpolation " << interpolation);
        MemoryClipEngine typed;
        for (int n = 0; n < 4; ++n)
            typed.frames.push_back(Converted(*MovingObjectFrame(n, true), type, channels));
        ASSERT_EQ(typed.Init(), 0);
        OwnedFrame out(kW, kH, channels, type);
        // Span 0.5 per output frame: half speed, so a motion blur amount compensates.
        typed.timeCurve = [](float t) { return 1.5f + 0.5f * t; };
        EXPECT_EQ(PrintedBy([&] {
                      EXPECT_EQ(typed.Render(out.Image(), {.motionBlur = motionBlur,
                                                           .interpolation = interpolation}),
                                0);
                  }),
                  "");
        const Placement at = Locate(*out.Pixels());
        EXPECT_NEAR(at.x, kStartX + kStepX * 1.5f, 0.3f);
        EXPECT_NEAR(at.y, kStartY + kStepY * 1.5f, 0.3f);
        EXPECT_EQ(typed.Outstanding(), 0);
        EXPECT_EQ(typed.returnedChanged, 0);
    }
}

} // namespace
