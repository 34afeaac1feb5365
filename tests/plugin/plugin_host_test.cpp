// The stand-in host's own operations: curves, buffers, frame sources and messages.
#include "sparkhost/HostState.h"
#include "sparkhost/WorkerPool.h"

#include <gtest/gtest.h>

#include <cstring>

namespace {

class HostTest : public ::testing::Test {
protected:
    void SetUp() override { SparkHostReset(); }
    void TearDown() override { SparkHostReset(); }
};

TEST(SparkCurve, InterpolatesLinearlyOrHoldsBetweenKeys) {
    SparkCurve linear(SparkCurve::Mode::Linear), held(SparkCurve::Mode::Held);
    for (SparkCurve* curve : {&linear, &held}) {
        curve->SetKey(10, 2.0f);
        curve->SetKey(20, 4.0f);
        curve->SetKey(30, 1.0f);
    }
    const struct {
        double frame;
        float linear, held;
    } cases[] = {{1, 2.0f, 2.0f}, {19.5, 3.9f, 2.0f}, {25, 2.5f, 4.0f}, {99, 1.0f, 1.0f}};
    for (const auto& c : cases) {
        EXPECT_FLOAT_EQ(linear.ValueAt(c.frame), c.linear) << "linear at " << c.frame;
        EXPECT_FLOAT_EQ(held.ValueAt(c.frame), c.held) << "held at " << c.frame;
    }
    EXPECT_EQ(SparkCurve().ValueAt(5), 0.0f) << "no keys";
}

TEST_F(HostTest, BuffersFollowTheFrameFormat) {
    const struct {
        int depth;
        size_t bytes;
    } cases[] = {{25, 4 * 3 * 3}, {49, 4 * 3 * 6}, {30, 0}};
    for (const auto& c : cases) {
        SparkHostSetFrameFormat(4, 3, c.depth);
        const int temp = sparkMemRegisterBuffer();
        for (int id :
             {int(kSparkResultBufferId), int(kSparkFrontBufferId), int(kSparkBackBufferId), temp}) {
            spark_membuf_struct buffer{};
            ASSERT_EQ(sparkMemGetBuffer(id, &buffer), 1) << id;
            EXPECT_EQ(SparkHostGetBuffer(id)->storage.size(), c.bytes) << c.depth;
            EXPECT_EQ(buffer.Buffer != nullptr, c.bytes != 0) << c.depth;
            EXPECT_EQ(buffer.BufState & SPARK_MEMBUF_LOCKED, SPARK_MEMBUF_LOCKED);
            EXPECT_EQ(buffer.BufDepth, c.depth);
            EXPECT_EQ(buffer.BufWidth, 4);
        }
        EXPECT_EQ(SparkHostMakeInfo(0, 1, 0).FrameBytes, int(c.bytes)) << c.depth;
    }
    spark_membuf_struct buffer{};
    EXPECT_EQ(sparkMemGetBuffer(99, &buffer), 0) << "unknown id";
    EXPECT_NE(sparkMemRegisterBuffer(), sparkMemRegisterBuffer()) << "fresh ids";
}

TEST_F(HostTest, GetFrameCopiesFromTheClipsSource) {
    SparkHostSetFrameFormat(2, 2, 48);
    auto clip = std::make_shared<SparkMemoryFrameSource>(2, 2, 48);
    const uint16_t first[3] = {0x1230, 0x4560, 0x7890};
    clip->AddSolidFrame(first);
    SparkHost().clips[1] = clip;
    std::vector<uint16_t> buffer(12, 0);
    EXPECT_EQ(sparkGetFrame(1, 0, buffer.data()), 1);
    EXPECT_EQ(buffer[9], 0x1230);
    EXPECT_EQ(buffer[11], 0x7890);
    EXPECT_EQ(sparkGetFrame(1, 1, buffer.data()), 0) << "past the end";
    EXPECT_EQ(sparkGetFrame(0, 0, buffer.data()), 0) << "no source";
    EXPECT_EQ(sparkGetFrame(4, 0, buffer.data()), 0) << "no such clip";
    EXPECT_EQ(SparkHost().fetchCount[1], 2);

    SparkHostSetFrameFormat(2, 2, 24);
    EXPECT_EQ(sparkGetFrame(1, 0, buffer.data()), 0) << "the clip is in another format";
    EXPECT_EQ(SparkHost().errorCount, 1);
}

TEST_F(HostTest, MessagesGoToTheStatusLineAndErrorsToStderr) {
    sparkMessage("first");
    sparkMessage("second");
    EXPECT_EQ(SparkHost().statusLine, "second");
    EXPECT_EQ(SparkHost().messageCount, 2);
    ::testing::internal::CaptureStderr();
    sparkError("broken");
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), "broken\n");
    EXPECT_EQ(SparkHost().lastError, "broken");
    EXPECT_EQ(sparkSaveSetup("anything"), 0) << "no plug-in to save";
}

} // namespace
