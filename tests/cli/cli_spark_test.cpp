// quelmor spark end to end: the plug-in run as its host runs it gives the pixels of
// the direct path, keeps its panel in a setup file, and follows key curves.
#include <gtest/gtest.h>

#include <fstream>

#include "CliTestSupport.h"

namespace quelmor::cli {
namespace {
using test::ExpectSameFrames;

class SparkTest : public test::FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        test::WriteSynthClip(In("c.%04d.png"), 4, SampleType::U8);
    }
};

TEST_F(SparkTest, PlugInAndDirectPathMakeTheSamePixels) {
    // Every interpolation, two vector qualities, slow motion by whole and odd ratios, speed-up.
    const struct {
        const char* name;
        const char* settings;
    } cases[] = {
        {"best_blend", "--speed 0.5 --quality best --interpolation blend"},
        {"high_nearest", "--speed 0.4 --quality high --interpolation nearest"},
        {"speed_up_weighted", "--speed 2 --quality none --interpolation weighted"},
    };
    for (const auto& c : cases) {
        for (const std::string command : {"spark", "retime"}) {
            const auto r = Run(command + " @c.%04d.png @" + command + c.name +
                               ".%04d.png --quiet --timing " + c.settings);
            // Each path splits its time into stages; --quiet drops the progress and the summary.
            for (const char* row :
                 {"decode source frames", "wait for the frame read ahead", "wait for the writers",
                  "decode and convert ahead", "encode and write", "outside the engine: "})
                EXPECT_NE(r.err.find("\n  " + std::string(row)), std::string::npos)
                    << command << ": no row " << row << " in\n"
                    << r.err;
            EXPECT_EQ(r.err.find(" frames"), r.err.find(" frames over")) << command << r.err;
        }
        ExpectSameFrames(In(std::string("spark") + c.name + ".%04d.png"),
                         In(std::string("retime") + c.name + ".%04d.png"), c.name);
    }
}

TEST_F(SparkTest, KeepsThePanelInTheSetupFile) {
    Run("spark @c.%04d.png @a.%04d.png --speed 0.5 --quality best --setup @panel.setup --quiet");
    std::ifstream setup(In("panel.setup"));
    const std::string text((std::istreambuf_iterator<char>(setup)), {});
    EXPECT_NE(text.find("SparkFloat2 0.5"), std::string::npos) << text;
    // A second run without --speed takes the speed from the setup.
    Run("spark @c.%04d.png @b.%04d.png --setup @panel.setup --quiet");
    EXPECT_EQ(OpenMedia(In("b.%04d.png"))->FrameCount(), 8);
    ExpectSameFrames(In("a.%04d.png"), In("b.%04d.png"), "speed from the setup");
}

TEST_F(SparkTest, CurveModeFollowsTheKeyFiles) {
    // A slowing speed, and scenes that ask for blends and then for the nearest frame.
    std::ofstream(In("speed.txt")) << "0 0.5\n3 0.25\n";
    std::ofstream(In("scenes.txt")) << "0 5\n2 4\n";
    for (const std::string command : {"spark", "retime"})
        Run(command + " @c.%04d.png @" + command +
            ".%04d.png --speed-curve @speed.txt --scenes @scenes.txt --quiet");
    // Speeds 0.5, 0.4167, 0.3333, then 0.25 held: source time 1.25 after three frames and 4
    // after eleven more.
    EXPECT_EQ(OpenMedia(In("spark.%04d.png"))->FrameCount(), 14);
    ExpectSameFrames(In("spark.%04d.png"), In("retime.%04d.png"), "curve mode");
    // Output frame 1 (source time 0.5) is a blend, not a copy of either source frame.
    EXPECT_LT(test::FramePsnr(In("spark.%04d.png"), 1, In("c.%04d.png"), 0), 45.0);
    EXPECT_LT(test::FramePsnr(In("spark.%04d.png"), 1, In("c.%04d.png"), 1), 45.0);
}

} // namespace
} // namespace quelmor::cli
