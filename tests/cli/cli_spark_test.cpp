// quelmor spark end to end: the plug-in run as its host runs it gives the pixels of
// the direct path, keeps its panel in a setup file, and follows key curves.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "CliTestSupport.h"
#include "cli/Media.h"
#include "cli/Score.h"
#include "cli/Synth.h"

namespace quelmor::cli {
namespace {
namespace fs = std::filesystem;
using test::ExpectSameFrames;
using test::FolderState;
using test::FramePsnr;
using test::RunQuelmor;
using test::RunResult;

class SparkTest : public test::FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        test::WriteSynthClip(In("c.%04d.png"), 4, SampleType::U8);
    }
    RunResult Run(std::vector<std::string> args) {
        auto r = RunQuelmor(args);
        EXPECT_EQ(r.status, 0) << args[0] << " " << args[2] << ": " << r.err;
        return r;
    }
};

TEST_F(SparkTest, PlugInAndDirectPathMakeTheSamePixels) {
    struct Case {
        const char* name;
        std::vector<std::string> settings;
    } cases[] = {
        {"none_blend", {"--speed", "0.5", "--quality", "none", "--interpolation", "blend"}},
        {"none_weighted", {"--speed", "0.75", "--quality", "none", "--interpolation", "weighted"}},
        {"none_nearest", {"--speed", "0.5", "--quality", "none", "--interpolation", "nearest"}},
        {"speed_up", {"--speed", "2", "--quality", "none"}},
        {"best_blend", {"--speed", "0.5", "--quality", "best", "--interpolation", "blend"}},
        {"best_nearest", {"--speed", "0.4", "--quality", "best", "--interpolation", "nearest"}},
        {"high_weighted", {"--speed", "0.75", "--quality", "high", "--interpolation", "weighted"}},
    };
    for (const Case& c : cases) {
        std::vector<std::string> spark = {"spark", In("c.%04d.png"),
                                          In(std::string("s_") + c.name + ".%04d.png"), "--quiet"};
        std::vector<std::string> retime = {"retime", In("c.%04d.png"),
                                           In(std::string("r_") + c.name + ".%04d.png"), "--quiet"};
        spark.insert(spark.end(), c.settings.begin(), c.settings.end());
        retime.insert(retime.end(), c.settings.begin(), c.settings.end());
        Run(spark);
        Run(retime);
        ExpectSameFrames(In(std::string("s_") + c.name + ".%04d.png"),
                         In(std::string("r_") + c.name + ".%04d.png"), c.name);
    }
}

TEST_F(SparkTest, TimingSplitsBothPathsIntoStages) {
    struct Case {
        const char* command;
        const char* engineRow;
    } cases[] = {{"spark", "plug-in (engine, its conversions)"}, {"retime", "engine"}};
    for (const Case& c : cases) {
        const auto r = Run({c.command, In("c.%04d.png"), In(std::string(c.command) + ".%04d.png"),
                            "--speed", "0.5", "--quality", "none", "--quiet", "--timing"});
        EXPECT_NE(r.err.find("timing of 8 frames"), std::string::npos) << c.command << r.err;
        for (const char* row : {"decode source frames", "convert source frames", c.engineRow,
                                "wait for the writer", "outside the engine", "encode and write"})
            EXPECT_NE(r.err.find("\n  " + std::string(row) + " "), std::string::npos)
                << c.command << ": no row " << row << " in\n"
                << r.err;
        EXPECT_EQ(r.err.find("frames per second"), std::string::npos)
            << "--quiet drops the summary";
    }
}

TEST_F(SparkTest, KeepsThePanelInTheSetupFile) {
    Run({"spark", In("c.%04d.png"), In("a.%04d.png"), "--speed", "0.5", "--quality", "best",
         "--setup", In("panel.setup"), "--quiet"});
    std::ifstream setup(In("panel.setup"));
    ASSERT_TRUE(setup.good());
    std::string text((std::istreambuf_iterator<char>(setup)), {});
    EXPECT_NE(text.find("SparkFloat2 0.5"), std::string::npos) << text;
    // A second run without --speed takes the speed from the setup.
    Run({"spark", In("c.%04d.png"), In("b.%04d.png"), "--setup", In("panel.setup"), "--quiet"});
    EXPECT_EQ(OpenMedia(In("b.%04d.png"))->FrameCount(), 8);
    ExpectSameFrames(In("a.%04d.png"), In("b.%04d.png"), "speed from the setup");
}

TEST_F(SparkTest, CurveModeFollowsTheKeyFiles) {
    // A slowing speed, and scenes that ask for blends and then for the nearest frame.
    std::ofstream(In("speed.txt")) << "0 0.5\n3 0.25\n";
    std::ofstream(In("scenes.txt")) << "0 5\n2 4\n";
    Run({"spark", In("c.%04d.png"), In("curve.%04d.png"), "--speed-curve", In("speed.txt"),
         "--scenes", In("scenes.txt"), "--quiet"});
    Run({"retime", In("c.%04d.png"), In("direct.%04d.png"), "--speed-curve", In("speed.txt"),
         "--scenes", In("scenes.txt"), "--quiet"});
    // Speeds 0.5, 0.4167, 0.3333, then 0.25 held: source time 1.25 after three frames and 4
    // after eleven more.
    EXPECT_EQ(OpenMedia(In("curve.%04d.png"))->FrameCount(), 14);
    ExpectSameFrames(In("curve.%04d.png"), In("direct.%04d.png"), "curve mode");
    // Output frame 1 (source time 0.5) is a blend, not a copy of either source frame.
    EXPECT_LT(FramePsnr(In("curve.%04d.png"), 1, In("c.%04d.png"), 0), 45.0);
    EXPECT_LT(FramePsnr(In("curve.%04d.png"), 1, In("c.%04d.png"), 1), 45.0);
}

TEST_F(SparkTest, RefusesWhatItCannotRun) {
    struct Case {
        const char* name;
        std::vector<std::string> args;
        const char* message;
    } cases[] = {
        {"missing plug-in",
         {"--speed", "0.5", "--plugin", In("none.so")},
         "cannot load the plug-in"},
        {"setup name", {"--speed", "0.5", "--setup", In("panel.txt")}, "ending in .setup"},
        {"speed of zero", {"--speed", "0"}, "--speed must be above 0"},
        {"speed twice", {"--speed", "1", "--speed-curve", In("s.txt")}, "give only one of"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"spark", In("c.%04d.png"), In("out.%04d.png")};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const auto before = FolderState(dir_);
        const auto r = RunQuelmor(args);
        EXPECT_NE(r.status, 0) << c.name;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.name << ": " << r.err;
        EXPECT_EQ(FolderState(dir_), before) << c.name;
    }
}

} // namespace
} // namespace quelmor::cli
