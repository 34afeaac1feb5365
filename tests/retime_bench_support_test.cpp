// The in-memory engine of the retime benchmarks: its renders must be the engine's own pictures at
// the requested source time, every frame it hands out must come back, and a missing frame must
// fail cleanly.
#include "TestSupport.h"
#include "bench/RetimeBenchSupport.h"
#include "engine/EngineInternal.h"
#include "flow/Flow.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

namespace {

using namespace quelmor::bench;
using quelmor::test::WorkerScope;

constexpr int kW = 48, kH = 32;

// Frame i: a gradient whose level grows by 40 per frame, so a mix of two frames tells its weights.
DQImagePtr Frame(int i) {
    DQImagePtr image(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < kW; ++x) {
            uint8_t* px = image->Row<uint8_t>(y) + 4 * x;
            px[0] = uint8_t(10 + 40 * i + x);
            px[1] = uint8_t(20 + 40 * i + y);
            px[2] = uint8_t(5 + 40 * i);
            px[3] = 255;
        }
    return image;
}

struct Clip {
    std::vector<DQImagePtr> owned;
    ClipEngine engine;
    explicit Clip(int frames) {
        for (int i = 0; i < frames; ++i) {
            owned.push_back(Frame(i));
            engine.frames.push_back(owned.back().get());
        }
    }
};

// Largest difference over the colour channels between `image` and frames a and b mixed with
// share `weightA` of a.
int MixError(const DQImage& image, const DQImage& a, const DQImage& b, double weightA) {
    int worst = 0;
    for (int y = 0; y < kH; ++y)
        for (int x = 0; x < 4 * kW; ++x) {
            if (x % 4 == 3) continue;
            const double want =
                weightA * a.Row<uint8_t>(y)[x] + (1.0 - weightA) * b.Row<uint8_t>(y)[x];
            worst = std::max(worst, int(std::lround(std::abs(want - image.Row<uint8_t>(y)[x]))));
        }
    return worst;
}

TEST(RetimeBenchSupport, RendersTheSourceTimeOfTheCurve) {
    WorkerScope workers(2, kW, kH);
    struct Case {
        const char* name;
        float outputTime;
        float slowDown; // output frames per source frame
        long interpolation;
        int frameA;
        double weightA;
    };
    const Case cases[] = {
        {"blend at a quarter", 0.25f, 1.0f, 1, 0, 0.75},
        {"blend half-way, later pair", 2.5f, 1.0f, 1, 2, 0.5},
        {"4x slow motion, frame 5", 5.0f, 4.0f, 1, 1, 0.75},
        {"4x slow motion, frame 7", 7.0f, 4.0f, 1, 1, 0.25},
        {"2x, a dropped frame", 3.0f, 2.0f, 1, 1, 0.5},
        {"nearest before the middle", 1.4f, 1.0f, 0, 1, 1.0},
        {"nearest past the middle", 1.6f, 1.0f, 0, 1, 0.0},
    };
    for (const Case& c : cases) {
        Clip clip(4);
        const float slowDown = c.slowDown;
        clip.engine.timeCurve = [slowDown](float t) { return t / slowDown; };
        DQImagePtr out(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
        RetimeSettings settings;
        settings.vectorQuality = 0;
        settings.interpolation = c.interpolation;
        ASSERT_EQ(RenderFrame(clip.engine, out.get(), c.outputTime, settings), 0) << c.name;
        EXPECT_LE(MixError(*out, *clip.owned[c.frameA], *clip.owned[c.frameA + 1], c.weightA), 1)
            << c.name;
        EXPECT_GT(clip.engine.checkedOut, 0) << c.name;
        EXPECT_EQ(clip.engine.checkedOut, clip.engine.givenBack) << c.name;
    }
}

TEST(RetimeBenchSupport, HandsOutFramesWithoutCopyingOrChangingThem) {
    WorkerScope workers(2, kW, kH);
    Clip clip(2);
    ZUImage* image = nullptr;
    ASSERT_EQ(clip.engine.GetToBeWarpedSequenceImage(&image, 1), 0);
    EXPECT_EQ(ZUImageGetDQImage(image)->data, clip.owned[1]->data);
    clip.engine.CleanUpCheckedOutImage(image);

    DQImagePtr before = Frame(0);
    DQImagePtr out(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
    RetimeSettings settings;
    settings.vectorQuality = 0;
    ASSERT_EQ(RenderFrame(clip.engine, out.get(), 0.5f, settings), 0);
    for (int y = 0; y < kH; ++y)
        ASSERT_EQ(std::memcmp(before->RowAddress(y), clip.owned[0]->RowAddress(y), 4 * kW), 0);
}

TEST(RetimeBenchSupport, AMissingFrameFailsAndGivesEverythingBack) {
    WorkerScope workers(2, kW, kH);
    struct Case {
        const char* name;
        float outputTime;
    };
    // A clip of two frames: any source time from 1 on needs a frame B that is not there.
    const Case cases[] = {{"past the end", 1.5f}, {"far past the end", 7.25f}};
    for (const Case& c : cases) {
        Clip clip(2);
        DQImagePtr out(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
        RetimeSettings settings;
        settings.vectorQuality = 0;
        EXPECT_EQ(RenderFrame(clip.engine, out.get(), c.outputTime, settings), kDQErrBadArgument)
            << c.name;
        EXPECT_EQ(clip.engine.checkedOut, clip.engine.givenBack) << c.name;
    }
    ZUImage* image = reinterpret_cast<ZUImage*>(&workers);
    Clip clip(1);
    EXPECT_EQ(clip.engine.GetTrackingSequenceImage(&image, -1), kDQErrBadArgument);
    EXPECT_EQ(image, nullptr);
}

// The motion road as the benchmarks drive it: the panel's percent reaches the flow object as a
// fraction, and a 4x slow motion with "Cache Last Motion" computes both flows on the first
// in-between frame of each source interval only; the speed benchmark sorts frames by that.
TEST(RetimeBenchSupport, SlowMotionComputesFlowOncePerSourceInterval) {
    WorkerScope workers(2, kW, kH);
    struct Case {
        const char* name;
        float sensitivity;
    };
    const Case cases[] = {{"default sensitivity", 70.f}, {"half sensitivity", 50.f}};
    for (const Case& c : cases) {
        Clip clip(3);
        clip.engine.timeCurve = [](float t) { return t / 4.0f; };
        RetimeSettings settings;
        settings.sensitivity = c.sensitivity;
        DQImagePtr out(new DQImage(kW, kH, 4, DQ_UCHAR, 0));
        std::vector<int64_t> runs;
        for (int n = 0; n < 8; ++n) {
            const int64_t before = clip.engine.internal ? clip.engine.internal->flowRuns : 0;
            ASSERT_EQ(RenderFrame(clip.engine, out.get(), float(n), settings), 0)
                << c.name << ", frame " << n;
            runs.push_back(clip.engine.internal->flowRuns - before);
            if (n % 4 != 0) {
                ASSERT_NE(clip.engine.internal->opticalFlow, nullptr) << c.name;
                EXPECT_FLOAT_EQ(clip.engine.internal->opticalFlow->sensitivity,
                                c.sensitivity / 100.f)
                    << c.name;
            }
        }
        EXPECT_EQ(runs, (std::vector<int64_t>{0, 2, 0, 0, 0, 2, 0, 0})) << c.name;
        EXPECT_EQ(clip.engine.checkedOut, clip.engine.givenBack) << c.name;
    }
}

} // namespace
