// Key files, the output-to-source time map and scene codes.
#include <gtest/gtest.h>

#include <string>

#include "cli/Keyframes.h"
#include "cli/MediaFrame.h"
#include "cli/Timing.h"

namespace quelmor::cli {
namespace {

TEST(KeyframesTest, ReadsKeysAndRefusesBadLines) {
    const Keyframes k =
        Keyframes::Parse("# speed ramp\n0 1.0\n\n10 0.25  # slow down\n  20\t0.5\n", "ramp.txt");
    ASSERT_EQ(k.Keys().size(), 3u);
    EXPECT_EQ(k.Keys()[2].frame, 20);
    EXPECT_EQ(k.Keys()[2].value, 0.5);

    struct Case {
        const char* text;
        const char* message;
    } cases[] = {
        {"0 1\n3\n", "ramp.txt line 2: expected \"frame value\", got \"3\""},
        {"0 1 2\n", "ramp.txt line 1: expected \"frame value\""},
        {"5 1\n5 2\n", "ramp.txt line 2: frame 5.000000 is not after the frame before it"},
        {"# nothing\n\n", "ramp.txt holds no keys"},
        {"0 nan\n", "ramp.txt line 1: expected \"frame value\""},
    };
    for (const Case& c : cases) {
        try {
            Keyframes::Parse(c.text, "ramp.txt");
            ADD_FAILURE() << c.text << " accepted";
        } catch (const MediaError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(c.message, 0), 0u) << e.what();
        }
    }
}

TEST(TimingTest, MapsOutputTimeToSourceTime) {
    const Timing quarter = Timing::Constant(0.25);
    const Timing ramp = Timing::SpeedCurve(Keyframes::Parse("0 1\n4 0.5\n", "ramp"));
    const Timing frames = Timing::FrameCurve(Keyframes::Parse("0 10\n10 0\n", "frames"));
    struct Case {
        const char* name;
        const Timing& timing;
        float output, source;
    } cases[] = {
        {"quarter speed, between frames", quarter, 9.5f, 2.375f},
        // Speeds 1, 0.875, 0.75, 0.625 then 0.5 held: a running sum.
        {"ramp after four frames", ramp, 4, 3.25f},
        {"ramp after six frames", ramp, 6, 4.25f},
        {"ramp half a frame in", ramp, 1.5f, 1.4375f},
        {"keyed frames backwards", frames, 4, 6},
        {"keyed frames held after the last key", frames, 12, 0},
    };
    for (const Case& c : cases)
        EXPECT_FLOAT_EQ(c.timing.SourceTime(c.output), c.source) << c.name;
}

TEST(TimingTest, CountsOutputFrames) {
    struct Case {
        const char* name;
        Timing timing;
        int sourceFrames, expected;
    } cases[] = {
        {"quarter speed", Timing::Constant(0.25), 12, 48},
        {"same speed", Timing::Constant(1.0), 68, 68},
        {"double speed", Timing::Constant(2.0), 9, 4},
        {"faster than the clip", Timing::Constant(10.0), 5, 0},
        {"keyed speed", Timing::SpeedCurve(Keyframes::Parse("0 0.5\n", "s")), 3, 6},
        {"keyed frames", Timing::FrameCurve(Keyframes::Parse("0 0\n9.5 3\n", "f")), 4, 10},
    };
    for (const Case& c : cases)
        EXPECT_EQ(c.timing.OutputFrameCount(c.sourceFrames), c.expected) << c.name;
    EXPECT_THROW(Timing::SpeedCurve(Keyframes::Parse("0 1\n5 0\n", "s")), MediaError);
    EXPECT_THROW(Timing::FrameCurve(Keyframes::Parse("-5 1\n-1 0\n", "f")), MediaError);
}

TEST(TimingTest, GivesSceneCodesFromHeldMenuNumbers) {
    const SparkCurve cuts =
        SceneCurve(Keyframes::Parse("0 1\n10 2\n20 3\n30 4\n40 5\n50 6\n", "cuts"));
    struct Case {
        float time;
        int scene;
    } cases[] = {{0, 0}, {9.9f, 0}, {10, 1}, {19.5f, 1}, {20, 2}, {35, 3}, {45, 4}, {50, 0}};
    for (const Case& c : cases)
        EXPECT_EQ(SceneAt(&cuts, c.time), c.scene) << "time " << c.time;
    EXPECT_EQ(SceneAt(nullptr, 33), 0);
}

} // namespace
} // namespace quelmor::cli
