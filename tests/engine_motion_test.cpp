// The single-layer road with motion: how often flow is computed and what is kept, where a moving
// object lands in the in-between frames, motion from the tracking sequence, geometry seeds,
// progress and the give-back of every frame on every path.
#include "ImagePatterns.h"
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "engine/EngineInternal.h"
#include "flow/Flow.h"

#include <algorithm>
#include <cmath>
#include <string>

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
    DQImagePtr image = DQMakeImage(kW, kH, 4, DQ_UCHAR);
    const int ox = kStartX + int(kStepX) * n;
    const int oy = kStartY + int(kStepY) * n;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            uint8_t* p = image->PixelAddress(x, y);
            const bool inside = x >= ox && x < ox + kSide && y >= oy && y < oy + kSide;
            const double gx = backgroundMoves ? x - kStepX * n : x;
            const double gy = backgroundMoves ? y - kStepY * n : y;
            const uint8_t v = inside ? object(x - ox, y - oy) : ground(gx, gy);
            p[0] = v;
            p[1] = uint8_t(255 - v);
            p[2] = inside ? kMarker : kGround;
            p[3] = 255;
        }
    return image;
}

// Where the marked object lies in a picture: the top-left corner of a square of its size with
// the same centroid as its marker, and the area of fully marked pixels over the square's area.
// A dissolve of two places leaves the centroid between them but the full area shrinks to their
// overlap; a warp keeps the object whole.
struct Placement {
    float x = 0.0f, y = 0.0f;
    float fullShare = 0.0f;
};

Placement Locate(const DQImage& image) {
    double sum = 0.0, sx = 0.0, sy = 0.0;
    int full = 0;
    for (int y = 0; y < image.height; ++y)
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
        WorkerScope::Set(2, kW, kH);
        for (int n = 0; n < 8; ++n)
            engine.frames.push_back(MovingObjectFrame(n));
        ASSERT_EQ(engine.Init(), 0);
    }
    void TearDown() override { WorkerScope::Set(1, 0, 0); }

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
    bool NoFlowKept() {
        ZUQuelmor4Internal& s = State();
        bool none = !s.opticalFlow && !s.morphFlow && !s.flowBtoA && !s.flowAtoB && !s.workingA &&
                    !s.workingB;
        for (int i = 0; i < kMaxLayers; ++i)
            none = none && !s.layerFlowAtoB[i] && !s.layerFlowBtoA[i];
        return none;
    }

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
        const char* name;
        long interpolation;
        long cache;
        std::vector<Step> steps;
    };
    const Scenario scenarios[] = {
        {"blend: one interval pays once, a new frame A pays again",
         1,
         1,
         {{2.25f, 2, true},
          {2.5f, 2, true},
          {2.75f, 2, true},
          {2.4f, 2, true}, // backwards within the interval reuses as well
          {3.25f, 4, true},
          {3.0f, 4, false}, // on a source time: none computed, none kept
          {3.5f, 6, true}}},
        {"weighted energy blend ties both flows to frame A",
         2,
         1,
         {{4.3f, 2, true}, {4.7f, 2, true}, {5.1f, 4, true}}},
        {"nearest: one flow toward the nearer frame, again past the middle",
         0,
         1,
         {{2.25f, 1, true},
          {2.4f, 1, true},
          {2.5f, 1, true}, // weightA 0.5 is still nearer to A
          {2.6f, 2, true},
          {2.9f, 2, true},
          {2.2f, 3, true}}},
        {"cache off: every frame computes and nothing survives",
         1,
         0,
         {{2.25f, 2, false}, {2.5f, 4, false}, {2.75f, 6, false}}},
        {"nearest with cache off", 0, 0, {{5.25f, 1, false}, {5.3f, 2, false}}},
    };
    for (const Scenario& s : scenarios) {
        engine.ResetMotion();
        const int64_t before = Runs();
        for (const Step& step : s.steps) {
            const std::string where = std::string(s.name) + " at " + std::to_string(step.time);
            ASSERT_EQ(Render(step.time, {.interpolation = s.interpolation, .cache = s.cache}), 0)
                << where;
            EXPECT_EQ(Runs() - before, step.runs) << where;
            EXPECT_EQ(!NoFlowKept(), step.kept) << where;
            EXPECT_EQ(engine.Outstanding(), 0) << where;
            EXPECT_EQ(engine.returnedChanged, 0) << where;
        }
    }
}

TEST_F(MotionClip, BlendKeepsBothDirectionsNearestOnlyTheOneItWarpsWith) {
    ASSERT_EQ(Render(1.5f), 0);
    ZUQuelmor4Internal& s = State();
    ASSERT_NE(s.flowBtoA, nullptr);
    ASSERT_NE(s.opticalFlow, nullptr);
    EXPECT_EQ(s.flowAtoB, s.opticalFlow->flowLevels[0]) << "flowAtoB borrows the object's output";
    EXPECT_EQ(s.flowBtoA->width, kW / 2) << "Best holds flow at half size";
    EXPECT_EQ(s.flowBtoA->height, kH / 2);
    engine.ResetMotion();
    ASSERT_EQ(Render(1.5f, {.interpolation = 0}), 0);
    EXPECT_EQ(s.flowBtoA, nullptr) << "nearest keeps no engine-owned flow";
    EXPECT_NE(s.opticalFlow, nullptr);
}

TEST_F(MotionClip, MovingObjectLandsWhereItIsAtTheRequestedMoment) {
    struct Case {
        const char* name;
        long interpolation;
        bool backgroundMoves;
        float tolerance; // of the position, in pixels
        float leastFull; // least share of the object left whole
    };
    // Inverse warps read the flow at the destination pixel. On a still background the one warped
    // frame of "Nearest" therefore drags a trailing strip of the object along, which the two
    // frames of the blends cancel; "Nearest" is held to one motion of every pixel.
    const Case cases[] = {
        {"nearest, one motion everywhere", 0, true, 0.3f, 0.85f},
        {"blend, one motion everywhere", 1, true, 0.3f, 0.85f},
        {"weighted energy blend, one motion everywhere", 2, true, 0.3f, 0.85f},
        {"blend, object on a still background", 1, false, 0.6f, 0.75f},
        {"weighted energy blend, object on a still background", 2, false, 0.6f, 0.75f},
    };
    for (const Case& c : cases) {
        for (int n = 0; n < 8; ++n)
            engine.frames[n] = MovingObjectFrame(n, c.backgroundMoves);
        for (float t : {0.25f, 0.5f, 0.75f}) {
            const std::string where = std::string(c.name) + " at t " + std::to_string(t);
            engine.ResetMotion();
            ASSERT_EQ(Render(2.0f + t, {.interpolation = c.interpolation}), 0) << where;
            const Placement at = Locate(*result.Pixels());
            EXPECT_NEAR(at.x, kStartX + kStepX * (2.0f + t), c.tolerance) << where;
            EXPECT_NEAR(at.y, kStartY + kStepY * (2.0f + t), c.tolerance) << where;
            EXPECT_GT(at.fullShare, c.leastFull) << where;
            EXPECT_LT(at.fullShare, 1.1f) << where;
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
        const char* name;
        long flowFromSequence;
        float shift; // expected motion of the object, in source frames of the tracking clip
    };
    const Case cases[] = {{"tracked on the other clip", 0, 0.5f},
                          {"tracked on the clip itself", 1, 0.0f}};
    for (const Case& c : cases) {
        engine.ResetMotion();
        engine.fetches.clear();
        ASSERT_EQ(Render(0.5f, {.interpolation = 0, .flowFromSequence = c.flowFromSequence}), 0)
            << c.name;
        const float expectX = kStartX + kStepX * c.shift;
        const float expectY = kStartY + kStepY * c.shift;
        const Placement at = Locate(*result.Pixels());
        EXPECT_NEAR(at.x, expectX, 0.3f) << c.name;
        EXPECT_NEAR(at.y, expectY, 0.3f) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
        std::vector<FetchRecord> expected;
        if (c.flowFromSequence == 0)
            expected = {{true, 0}, {true, 1}, {false, 0}, {false, 1}};
        else
            expected = {{false, 0}, {false, 1}};
        EXPECT_EQ(engine.fetches, expected) << c.name;
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
        std::vector<std::pair<float, float>> times; // (timeA, timeB) of each request, in order
    };
    const Case cases[] = {
        {"nearest warping A asks for the pair (B, A)", 0, 0, 3.25f, {{4, 3}, {4, 3}}},
        {"nearest warping B asks for the pair (A, B)", 0, 0, 3.75f, {{3, 4}, {3, 4}}},
        {"blend asks for (B, A) then (A, B)", 1, 0, 3.5f, {{4, 3}, {4, 3}, {3, 4}, {3, 4}}},
        // Fields in: source time 3.25 is field 6.5, fields 6 and 7, frame times 3 and 3.5.
        {"fields in halve the frame numbers", 0, 1, 3.25f, {{3.5f, 3.0f}, {3.5f, 3.0f}}},
    };
    for (const Case& c : cases) {
        engine.ResetMotion();
        engine.geometryRequests.clear();
        engine.fieldsMayChange = c.fieldsIn != 0;
        ASSERT_EQ(Render(c.sourceTime, {.fieldsIn = c.fieldsIn, .interpolation = c.interpolation}),
                  0)
            << c.name;
        ASSERT_EQ(engine.geometryRequests.size(), c.times.size()) << c.name;
        for (size_t i = 0; i < c.times.size(); ++i) {
            EXPECT_EQ(engine.geometryRequests[i].timeA, c.times[i].first) << c.name << " " << i;
            EXPECT_EQ(engine.geometryRequests[i].timeB, c.times[i].second) << c.name << " " << i;
            EXPECT_EQ(engine.geometryRequests[i].index, i % 2) << c.name;
        }
        EXPECT_EQ(engine.pointsLent, engine.pointsReleased) << c.name;
        ASSERT_NE(State().opticalFlow, nullptr) << c.name;
        DQImage* weight = State().opticalFlow->GetSeedWeight();
        ASSERT_NE(weight, nullptr) << c.name << ": the flow object was made with seeds";
        float total = 0.0f;
        for (int y = 0; y < weight->height; ++y)
            for (int x = 0; x < weight->width; ++x)
                total += weight->Row<float>(y)[x];
        EXPECT_GT(total, 0.0f) << c.name;
    }
    engine.fieldsMayChange = false;

    // A failing geometry source fails the frame with its code and leaves nothing behind.
    engine.ResetMotion();
    engine.geometryFailCode = kDQErrFetch;
    EXPECT_EQ(Render(3.5f), kDQErrFetch);
    EXPECT_EQ(engine.Outstanding(), 0);
    EXPECT_TRUE(NoFlowKept());
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
        {"smart blend is refused before any fetch", -1, 1, 1, kDQErrBadArgument, 0},
        {"forward warping is refused before any fetch", -1, 1, 2, kDQErrBadArgument, 0},
        {"forward alone is refused", -1, 1, 3, kDQErrBadArgument, 0},
        {"external vectors are refused", -1, 1, 0, kDQErrBadArgument, 0, 1},
        {"motion from geometry alone is refused", -1, 1, 0, kDQErrBadArgument, 0, 0, false},
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
        engine.checkedOut = engine.givenBack = 0;
        std::string printed = PrintedBy(
            [&] { EXPECT_EQ(Render(2.5f, {.flowFromSequence = c.flowFromSequence}), c.expected); });
        EXPECT_EQ(engine.fetches.size(), c.fetched) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
        EXPECT_TRUE(NoFlowKept()) << c.name;
        if (c.expected == kDQErrBadArgument) {
            EXPECT_NE(printed.find("not available"), std::string::npos) << c.name;
        }
    }
    engine.failFrame = -1;
    engine.warpingMode = 0;
    engine.externalVectors = 0;
    engine.backgroundOpticalFlow = true;
    EXPECT_EQ(Render(2.5f), 0) << "the engine recovers";
}

// Records every fraction that reaches the end of the chain.
class RecordingProgress : public ZUIdleAndProgressClass {
public:
    void ReportProgress(float fraction) override {
        ZUIdleAndProgressClass::ReportProgress(fraction);
        seen.push_back(fraction);
    }
    std::vector<float> seen;
};

TEST_F(MotionClip, ProgressStaysInRangeAndInterruptionLeavesNothing) {
    struct Case {
        const char* name;
        long interpolation;
        float lastFlowFrom; // the last flow reports above this share
    };
    const Case cases[] = {{"blend: second flow in the upper half", 1, 0.5f},
                          {"nearest: one flow over the whole pass", 0, 0.0f}};
    for (const Case& c : cases) {
        engine.ResetMotion();
        RecordingProgress progress;
        ASSERT_EQ(Render(2.5f, {.interpolation = c.interpolation, .progress = &progress}), 0)
            << c.name;
        ASSERT_FALSE(progress.seen.empty()) << c.name;
        float previous = 0.0f;
        for (float f : progress.seen) {
            EXPECT_GE(f, previous - 1e-6f) << c.name << ": progress went back";
            EXPECT_LE(f, 1.0f) << c.name;
            previous = f;
        }
        EXPECT_GT(progress.seen.back(), c.lastFlowFrom) << c.name;
    }
    RecordingProgress interrupted;
    interrupted.SetInterrupted(true);
    engine.ResetMotion();
    EXPECT_EQ(Render(2.5f, {.progress = &interrupted}), kDQErrInterrupted);
    EXPECT_EQ(engine.Outstanding(), 0);
    EXPECT_TRUE(NoFlowKept());
}

TEST_F(MotionClip, MotionBlurFollowsTheSpanOfTheOutputFrame) {
    // Reference: the plain nearest frame at source time 3 is frame 3 itself.
    const DQImage& frame3 = *engine.frames[3];
    struct Case {
        const char* name;
        float span, blur;
        bool copy; // the output is frame 3 byte for byte
    };
    const Case cases[] = {
        {"span 1 with motion blur on is a plain copy", 1.0f, 1.0f, true},
        {"span 3 blurs", 3.0f, 1.0f, false},
        {"span 0.25 sharpens", 0.25f, 1.0f, false},
        {"amount under the threshold does nothing", 3.0f, 0.004f, true},
    };
    for (const Case& c : cases) {
        engine.ResetMotion();
        const int64_t before = Runs();
        ASSERT_EQ(Render(3.0f, {.motionBlur = c.blur, .interpolation = 0}, c.span), 0) << c.name;
        EXPECT_EQ(SamePixels(*result.Pixels(), frame3), c.copy) << c.name;
        // With motion blur on, a source time is no longer a frame without motion.
        EXPECT_EQ(Runs() - before, c.blur > 0.005f ? 1 : 0) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
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

// The marker's centroid over the rows of one parity, as the corner of the object.
float CornerXOnRows(const DQImage& image, int parity) {
    double sum = 0.0, sx = 0.0;
    for (int y = parity; y < image.height; y += 2)
        for (int x = 0; x < image.width; ++x) {
            const double w = std::max(0, int(image.PixelAddress(x, y)[2]) - int(kGround));
            sum += w;
            sx += w * x;
        }
    return sum > 0.0 ? float(sx / sum) - (kSide - 1) * 0.5f : -1.0f;
}

TEST_F(MotionClip, FieldsOutWeaveTwoMomentsWithMotion) {
    for (int n = 0; n < 8; ++n)
        engine.frames[n] = MovingObjectFrame(n, true);
    struct Case {
        const char* name;
        int fieldsOut;
        int secondParity; // rows (from the top) that show the second moment
    };
    // kH is even, so lastRow is odd: code 3 (upper first) takes the even rows from the second
    // moment, code 2 (lower first) the odd rows.
    const Case cases[] = {{"upper field first", 1, 0}, {"lower field first", 2, 1}};
    for (const Case& c : cases) {
        engine.ResetMotion();
        const int64_t before = Runs();
        // Output frame 5 spans source 2.5 to 3.0: the two moments are 2.5 and 2.75.
        engine.timeCurve = [](float t) { return 0.5f * t; };
        OwnedFrame second(kW, kH, 4, DQ_UCHAR);
        ASSERT_EQ(engine.Render(result.Image(), {.fieldsOut = c.fieldsOut,
                                                 .timeBegin = 5.0f,
                                                 .timeEnd = 6.0f,
                                                 .secondField = second.Image()}),
                  0)
            << c.name;
        const DQImage& woven = *result.Pixels();
        EXPECT_NEAR(CornerXOnRows(woven, 1 - c.secondParity), kStartX + kStepX * 2.5f, 0.3f)
            << c.name << ": first moment";
        EXPECT_NEAR(CornerXOnRows(woven, c.secondParity), kStartX + kStepX * 2.75f, 0.3f)
            << c.name << ": second moment";
        // The second pass has the same frames but inherits the need for motion of the first.
        EXPECT_EQ(Runs() - before, 4) << c.name;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
    }
}

// A copy of an 8-bit RGBA frame in another element type and channel count, on the same scale.
DQImagePtr Converted(const DQImage& source, int type, int channels) {
    DQImagePtr image = DQMakeImage(source.width, source.height, channels, type);
    const float scale = type == DQ_UCHAR ? 1.0f : type == DQ_USHORT ? 257.0f : 1.0f / 255.0f;
    for (int y = 0; y < source.height; ++y)
        for (int x = 0; x < source.width; ++x)
            for (int c = 0; c < channels; ++c)
                image->SetChannelFloat(x, y, c, source.PixelAddress(x, y)[c] * scale);
    return image;
}

TEST_F(MotionClip, EveryElementTypeAndChannelCountMovesTheObject) {
    struct Case {
        const char* name;
        int type, channels;
        long interpolation;
        float motionBlur;
    };
    const Case cases[] = {
        {"16 bits, blend", DQ_USHORT, 4, 1, 0.0f},
        {"float, blend", DQ_FLOAT, 4, 1, 0.0f},
        {"float, weighted energy blend", DQ_FLOAT, 4, 2, 0.0f},
        {"16 bits, nearest with compensation", DQ_USHORT, 4, 0, 0.5f},
        {"8 bits, three channels, blend", DQ_UCHAR, 3, 1, 0.0f},
        {"float, three channels, weighted energy blend", DQ_FLOAT, 3, 2, 0.0f},
        {"16 bits, three channels, nearest with compensation", DQ_USHORT, 3, 0, 0.5f},
    };
    for (const Case& c : cases) {
        MemoryClipEngine typed;
        for (int n = 0; n < 4; ++n)
            typed.frames.push_back(Converted(*MovingObjectFrame(n, true), c.type, c.channels));
        ASSERT_EQ(typed.Init(), 0);
        OwnedFrame out(kW, kH, c.channels, c.type);
        // Span 0.5 per output frame: half speed, so a motion blur amount compensates.
        typed.timeCurve = [](float t) { return 1.5f + 0.5f * t; };
        const std::string printed = PrintedBy([&] {
            ASSERT_EQ(typed.Render(out.Image(),
                                   {.motionBlur = c.motionBlur, .interpolation = c.interpolation}),
                      0)
                << c.name;
        });
        EXPECT_EQ(printed, "") << c.name;
        const Placement at = Locate(*out.Pixels());
        EXPECT_NEAR(at.x, kStartX + kStepX * 1.5f, 0.3f) << c.name;
        EXPECT_NEAR(at.y, kStartY + kStepY * 1.5f, 0.3f) << c.name;
        EXPECT_EQ(typed.Outstanding(), 0) << c.name;
        EXPECT_EQ(typed.returnedChanged, 0) << c.name;
    }
}

} // namespace
