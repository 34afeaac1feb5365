// The host adapter on its own, over the stand-in host: the source-frame cache, the time and scene
// curves, the layer and warping answers, and the host images with their range stretch.
#include "host/MyImage.h"
#include "host/MyQuelmor.h"
#include "sparkhost/HostState.h"
#include "tests/TestSupport.h"

#include <memory>
#include <type_traits>

namespace {

// Images come back through calls that report a result, as the host's interface declares them.
static_assert(
    std::is_same_v<decltype(std::declval<ZUQuelmor4&>().CleanUpCheckedOutImage(nullptr)), int>);
static_assert(std::is_same_v<
              decltype(std::declval<ZUQuelmor4&>().CleanUpCheckedOutMatteImage(nullptr)), int>);

using quelmor::test::WorkerScope;

constexpr int kWidth = 5;
constexpr int kHeight = 3;

// An adapter over a clip of frames of one grey level each, level = 10 x (frame + 1).
class AdapterTest : public ::testing::Test {
protected:
    void SetUp() override {
        SparkHostReset();
        WorkerScope::Set(2, kWidth, kHeight);
        SparkHostSetFrameFormat(kWidth, kHeight, 24);
        auto clip = std::make_shared<SparkMemoryFrameSource>(kWidth, kHeight, 24);
        for (int frame = 0; frame < 8; ++frame) {
            const uint16_t grey[3] = {uint16_t(Level(frame)), uint16_t(Level(frame)), 7};
            clip->AddSolidFrame(grey);
        }
        SparkHost().clips[0] = clip;
        tempId_ = sparkMemRegisterBuffer();
        sparkMemGetBuffer(tempId_, &temp_);
        Configure(0, 0, 1);
    }
    void TearDown() override {
        quelmor_.reset();
        WorkerScope::Set(1, 0, 0);
        SparkHostReset();
    }

    static int Level(int frame) { return 10 * (frame + 1); }

    void Configure(unsigned char runMode, int stretchMethod, float speed) {
        info_ = SparkHostMakeInfo(0, 8, runMode);
        ASSERT_EQ(quelmor_->MyInit(&info_, kWidth, kHeight, 24, 0, 0, 0, stretchMethod, speed, 0, 0,
                                   1, 0, &temp_, nullptr),
                  0);
        quelmor_->cacheOn = 1;
    }

    // Checks out a frame, returns the red value of its first pixel and gives the image back.
    int FetchLevel(int frame) {
        ZUImage* image = nullptr;
        EXPECT_EQ(quelmor_->GetToBeWarpedSequenceImage(&image, frame), 0);
        if (!image) return -1;
        const int level = image->data[0];
        EXPECT_EQ(image->data[3], 255) << "alpha";
        EXPECT_EQ(quelmor_->CleanUpCheckedOutImage(image), 0);
        return level;
    }

    std::unique_ptr<MyQuelmor> quelmor_ = std::make_unique<MyQuelmor>();
    int tempId_ = 0;
    spark_membuf_struct temp_{};
    spark_info_struct info_{};
};

TEST_F(AdapterTest, CacheKeepsTheLastTwoFramesAndOverwritesTheOldest) {
    enum Before { Nothing, Clean, CacheOff };
    struct Step {
        int frame;
        int fetchesAfter; // host fetches of clip 0 so far
        int shownFrame;
        Before before = Nothing;
    };
    const Step steps[] = {
        {0, 1, 0},           {0, 1, 0},  // second request served from the cache
        {1, 2, 1},           {2, 3, 2},  // frame 2 overwrites frame 0 in slot 1
        {0, 4, 0},                       // fetched again, into slot 2 over frame 1
        {2, 4, 2},           {0, 4, 0},  // both held now
        {1, 5, 1},                       // frame 1 had been overwritten; it replaces frame 2
        {3, 6, 3},                       // frame 3 replaces frame 0
        {-3, 7, 0},          {0, 7, 0},  // a negative frame fetches and caches frame 0
        {0, 8, 0, Clean},                // CleanCache forgets both slots
        {0, 9, 0, CacheOff}, {0, 10, 0}, // with the cache off every request fetches
    };
    int index = 0;
    for (const Step& step : steps) {
        SCOPED_TRACE(::testing::Message() << "step " << index++ << ", frame " << step.frame);
        if (step.before == Clean) quelmor_->CleanCache();
        if (step.before == CacheOff) quelmor_->cacheOn = 0;
        EXPECT_EQ(FetchLevel(step.frame), Level(step.shownFrame));
        EXPECT_EQ(SparkHost().fetchCount[0], step.fetchesAfter);
    }
}

TEST_F(AdapterTest, CacheNeverServesAFrameOfAnotherHeight) {
    // The host's clip changes height at the same width, with the same frame numbers and without
    // a new adapter: row bytes and pixel type stay, only the real sizes tell the slots apart.
    struct Step {
        int height;
        int frame;
        int fetchesAfter;
    };
    const Step steps[] = {
        {kHeight, 0, 1}, {kHeight, 1, 2}, {kHeight, 0, 2}, // both frames cached at full height
        {2, 0, 3},       {2, 0, 3},       // the shorter frame is fetched, then kept
        {2, 1, 4},                        // frame 1 too
        {kHeight, 0, 5}, {kHeight, 1, 6}, // and back to the taller clip
        {kHeight, 1, 6},
    };
    int index = 0;
    for (const Step& step : steps) {
        SCOPED_TRACE(::testing::Message() << "step " << index++ << ": frame " << step.frame
                                          << " at height " << step.height);
        // Each height has a clip of its own levels.
        const int offset = step.height == kHeight ? 0 : 100;
        SparkHostSetFrameFormat(kWidth, step.height, 24);
        auto clip = std::make_shared<SparkMemoryFrameSource>(kWidth, step.height, 24);
        for (int frame = 0; frame < 2; ++frame) {
            const uint16_t grey[3] = {uint16_t(offset + Level(frame)), 0, 0};
            clip->AddSolidFrame(grey);
        }
        SparkHost().clips[0] = clip;
        sparkMemGetBuffer(tempId_, &temp_); // the host's buffers follow the format
        info_ = SparkHostMakeInfo(0, 8, 0); // and so does its record of the frame
        ASSERT_EQ(quelmor_->MyInit(&info_, kWidth, step.height, 24, 0, 0, 0, 0, 1.0f, 0, 0, 1, 0,
                                   &temp_, nullptr),
                  0);

        ZUImage* image = nullptr;
        ASSERT_EQ(quelmor_->GetToBeWarpedSequenceImage(&image, step.frame), 0);
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(image->height, step.height);
        int wrong = 0;
        for (int y = 0; y < image->height; ++y)
            for (int x = 0; x < kWidth; ++x)
                wrong += image->data[y * image->rowBytes + 4 * x] != offset + Level(step.frame);
        EXPECT_EQ(wrong, 0) << "pixels that are not the frame's own";
        EXPECT_EQ(quelmor_->CleanUpCheckedOutImage(image), 0);
        EXPECT_EQ(SparkHost().fetchCount[0], step.fetchesAfter);
    }
}

TEST_F(AdapterTest, FailedRequestsReportOneAndHandNothingOut) {
    ZUImage* image = reinterpret_cast<ZUImage*>(0x1);
    quelmor_->warpedClip = 7; // no such clip
    EXPECT_EQ(quelmor_->GetToBeWarpedSequenceImage(&image, 0), 1);
    EXPECT_EQ(image, nullptr);
    EXPECT_EQ(quelmor_->GetImage(0, nullptr, 0, 4, 0, 0, 0), 5);
    quelmor_->depth = 30;
    EXPECT_EQ(quelmor_->GetImage(0, &image, 0, 4, 0, 0, 0), 1);
    quelmor_->depth = 24;
    EXPECT_EQ(quelmor_->GetImage(0, &image, 0, 2, 0, 0, 0), 1) << "two channels";
}

TEST_F(AdapterTest, MatteIsOneChannelOfTheMatteClipAndNeverCached) {
    auto matte = std::make_shared<SparkMemoryFrameSource>(kWidth, kHeight, 24);
    const uint16_t rgb[3] = {1, 2, 3};
    matte->AddSolidFrame(rgb);
    SparkHost().clips[2] = matte;
    for (int channel : {0, 2}) {
        quelmor_->matteChannel = channel;
        ZUImage* image = nullptr;
        ASSERT_EQ(quelmor_->GetMatteLayerSequenceImage(&image, 0, 0), 0);
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(image->internal->channels, 1);
        EXPECT_EQ(image->data[kWidth * kHeight - 1], rgb[channel]) << "channel " << channel;
        EXPECT_EQ(quelmor_->CleanUpCheckedOutMatteImage(image), 0);
    }
    EXPECT_EQ(SparkHost().fetchCount[2], 2);
}

TEST_F(AdapterTest, KeyframedTimeInClipModeAddsTheFractionOncePerFrame) {
    const struct {
        float time, speed, expected;
    } cases[] = {{2.5f, 2.0f, 6.0f} /* not 5.0 */, {0.7f, 3.0f, 0.0f}, {-1.5f, 2.0f, 0.0f}};
    for (const auto& c : cases) {
        Configure(0, 1, c.speed);
        float out = -1.0f;
        EXPECT_EQ(quelmor_->GetKeyframedTime(&out, c.time), 0);
        EXPECT_FLOAT_EQ(out, c.expected) << "time " << c.time << " speed " << c.speed;
    }
    EXPECT_EQ(quelmor_->MyGetKeyFramedTimeParameter(1.0f, nullptr), 5);
    quelmor_->info = nullptr;
    float out = -1.0f;
    EXPECT_EQ(quelmor_->GetKeyframedTime(&out, 3.0f), 0);
    EXPECT_EQ(out, 0.0f);
}

TEST_F(AdapterTest, KeyframedTimeInCurveModeReadsTheCurves) {
    // Speed curve: 2 at host frame 1 rising to 4 at host frame 3.
    SparkHostCurve(32).SetKey(1, 2.0f);
    SparkHostCurve(32).SetKey(3, 4.0f);
    // Frame curve: source frame 1 at host frame 1, 21 at host frame 11.
    SparkHostCurve(25).SetKey(1, 1.0f);
    SparkHostCurve(25).SetKey(11, 21.0f);
    // Stretch 1 (speed): a running sum and a fraction of the next; 0: the frame curve; 2: none.
    const struct {
        int stretch;
        float time, expected;
    } cases[] = {{1, 0.5f, 1.0f}, {1, 2.5f, 5.0f + 0.5f * 4.0f}, {0, 4.5f, 9.0f}, {2, 4.0f, 0.0f}};
    for (const auto& c : cases) {
        Configure(1, c.stretch, 1.0f);
        float out = -1.0f;
        quelmor_->GetKeyframedTime(&out, c.time);
        EXPECT_FLOAT_EQ(out, c.expected) << c.stretch << " at " << c.time;
    }
}

TEST_F(AdapterTest, SceneComesFromTheMenuAnimCurveInCurveModeOnly) {
    const std::pair<float, int> cases[] = {{1.0f, 0}, {2.0f, 1}, {5.9f, 4}, {6.0f, 0}, {-1.0f, 0}};
    for (const auto& [curveValue, scene] : cases) {
        SparkHostCurve(15).Clear();
        SparkHostCurve(15).SetKey(4, curveValue); // host frame 4 is engine time 3
        Configure(1, 1, 1.0f);
        EXPECT_EQ(quelmor_->WhichScene(3.0f), scene) << "curve value " << curveValue;
    }
    Configure(0, 1, 1.0f);
    const int readsBefore = SparkHost().curveReadCount;
    EXPECT_EQ(quelmor_->WhichScene(3.0f), 0);
    EXPECT_EQ(SparkHost().curveReadCount, readsBefore) << "clip mode reads no curve";
}

TEST_F(AdapterTest, LayerWarpingAndEnhanceAnswers) {
    const struct {
        int useMatte, layerMode, start, end;
    } cases[] = {{0, 2, 0, 0}, {1, 1, 1, 0}, {1, 2, 1, 1}, {1, 3, 0, 0}};
    for (const auto& c : cases) {
        quelmor_->useMatte = c.useMatte;
        quelmor_->layerMode = c.layerMode;
        EXPECT_EQ(quelmor_->GetDrawStartLayer(), c.start) << c.useMatte << "/" << c.layerMode;
        EXPECT_EQ(quelmor_->GetDrawEndLayer(), c.end) << c.useMatte << "/" << c.layerMode;
    }
    const int warpings[][2] = {{-1, 0}, {1, 1}, {2, 2}, {3, 0}};
    for (const auto& w : warpings) {
        quelmor_->warping = w[0];
        EXPECT_EQ(quelmor_->UsesWhichWarping(), w[1]) << "warping " << w[0];
    }
    const int enhances[][2] = {{1, 1}, {2, 0}};
    for (const auto& e : enhances) {
        quelmor_->enhance = e[0];
        EXPECT_EQ(quelmor_->EnhanceImages(), e[1]) << "enhance " << e[0];
    }
}

} // namespace
