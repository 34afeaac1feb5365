// The engine driven from a clip in memory: time, scenes, frames past the ends, and
// frames rendered without motion.
#include <gtest/gtest.h>

#include "CliTestSupport.h"
#include "cli/RetimeEngine.h"
#include "tests/TestSupport.h"

namespace quelmor::cli {
namespace {
using test::FramesReader;
using test::Solid;

class RetimeEngineTest : public ::testing::Test {
protected:
    void SetUp() override { quelmor::test::WorkerScope::Set(2, 2, 2); }
    void TearDown() override { quelmor::test::WorkerScope::Set(1, 0, 0); }

    FramesReader reader_{{Solid(SampleType::U8, 3, {0.2f, 0.2f, 0.2f}),
                          Solid(SampleType::U8, 3, {0.6f, 0.6f, 0.6f}),
                          Solid(SampleType::U8, 3, {1.0f, 1.0f, 1.0f})}};
    Timing half_ = Timing::Constant(0.5);
};

TEST_F(RetimeEngineTest, AnswersTimeAndScenes) {
    const SparkCurve cuts = SceneCurve(Keyframes::Parse("0 1\n1 3\n2 5\n", "cuts"));
    CliQuelmor engine(reader_, half_, &cuts);
    struct Case {
        float output, source;
        int scene;
    } cases[] = {{0, 0, 0}, {1, 0.5f, 0}, {2, 1, 2}, {3, 1.5f, 2}, {4, 2, 4}, {7, 3.5f, 4}};
    for (const Case& c : cases) {
        float source = -1;
        EXPECT_EQ(engine.GetKeyframedTime(&source, c.output), 0);
        EXPECT_FLOAT_EQ(source, c.source) << "output " << c.output;
        EXPECT_EQ(engine.WhichScene(source), c.scene) << "output " << c.output;
    }
    EXPECT_EQ(engine.GetKeyframedTime(nullptr, 1), 5);
}

TEST_F(RetimeEngineTest, HandsOutFramesAndHoldsTheEnds) {
    CliQuelmor engine(reader_, half_, nullptr);
    struct Case {
        int frame;
        uint8_t expected;
    } cases[] = {{-2, 51}, {0, 51}, {1, 153}, {2, 255}, {9, 255}, {1, 153}};
    for (const Case& c : cases) {
        ZUImage* image = nullptr;
        ASSERT_EQ(engine.GetToBeWarpedSequenceImage(&image, c.frame), 0) << c.frame;
        ASSERT_NE(image, nullptr);
        EXPECT_EQ(image->width, 2);
        EXPECT_EQ(image->pixelType, 0);
        EXPECT_EQ(image->data[0], c.expected) << "frame " << c.frame;
        EXPECT_EQ(image->data[3], 255) << "opaque alpha, frame " << c.frame;
        engine.CleanUpCheckedOutImage(image);
    }
    ZUImage* matte = nullptr;
    EXPECT_EQ(engine.GetMatteLayerSequenceImage(&matte, 0, 0), 5);
    EXPECT_EQ(matte, nullptr);
    EXPECT_EQ(engine.GetToBeWarpedSequenceImage(nullptr, 0), 5);
}

TEST_F(RetimeEngineTest, RendersWithoutMotion) {
    CliQuelmor engine(reader_, half_, nullptr);
    struct Case {
        const char* name;
        int output;
        EngineSettings settings;
        uint8_t expected;
    } cases[] = {
        {"on a source frame", 2, {0, 0, 0}, 153},
        {"nearest half-way takes the earlier", 3, {0, 0, 0}, 153},
        {"blend between frames", 3, {1, 0, 0}, 204},
        {"past the end", 6, {1, 0, 0}, 255},
    };
    for (const Case& c : cases) {
        MediaFrame out;
        engine.Render(c.output, c.settings, out);
        EXPECT_EQ(out.format.channels, 4) << c.name;
        EXPECT_EQ(out.format.sample, SampleType::U8) << c.name;
        EXPECT_NEAR(out.pixels[0], c.expected, 1) << c.name;
    }
}

} // namespace
} // namespace quelmor::cli
