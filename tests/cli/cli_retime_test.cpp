// quelmor retime end to end: bit depth and frame count through each image format,
// chunks that join without a seam, video files, and every refusal of bad input.
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

// Vector quality of the renders whose pictures are checked: motion vectors at their best.
constexpr const char* kQuality = "best";

class RetimeTest : public test::FolderTest {
protected:
    // A small synthetic clip of `frames` frames, numbered from `first`.
    void Synth(const std::string& pattern, int frames, SampleType sample, int width = 48,
               int first = 0) {
        test::WriteSynthClip(In(pattern), frames, sample, width, 32, first);
    }
};

TEST_F(RetimeTest, SlowMotionKeepsDepthAndFrameCount) {
    struct Case {
        const char* input;
        SampleType depth;
        const char* output;
        SampleType expected;
    } cases[] = {
        {"png.%04d.png", SampleType::U8, "png_out.%04d.png", SampleType::U8},
        {"tif.%04d.tif", SampleType::U16, "tif_out.%04d.tif", SampleType::U16},
        {"exr.%04d.exr", SampleType::Half, "exr_out.%04d.exr", SampleType::Half},
    };
    for (const Case& c : cases) {
        Synth(c.input, 4, c.depth);
        const auto r = RunQuelmor(
            {"retime", In(c.input), In(c.output), "--speed", "0.5", "--quality", kQuality});
        ASSERT_EQ(r.status, 0) << c.output << ": " << r.err;
        EXPECT_NE(r.err.find("retime: 8 frames"), std::string::npos) << r.err;
        auto out = OpenMedia(In(c.output));
        EXPECT_EQ(out->FrameCount(), 8) << c.output;
        EXPECT_EQ(out->Format().sample, c.expected) << c.output;
        EXPECT_EQ(out->Format().width, 48) << c.output;
        // Even output frames lie on source frames and reproduce them.
        EXPECT_GT(FramePsnr(In(c.input), 1, In(c.output), 2), 45.0) << c.output;
    }
}

TEST_F(RetimeTest, MotionVectorsBeatThePlainBlendAgainstTheTrueFrames) {
    // The synthetic clip with its true in-between frames, slowed to half speed both ways.
    ASSERT_EQ(RunQuelmor({"synth", In("s.%04d.png"), "--frames", "6", "--size", "96x64", "--steps",
                          "2", "--quiet"})
                  .status,
              0);
    struct Case {
        const char* name;
        const char* quality;
    } cases[] = {{"motion", kQuality}, {"plain", "none"}};
    double psnr[2] = {};
    for (int i = 0; i < 2; ++i) {
        const std::string out = In(std::string(cases[i].name) + ".%04d.png");
        const auto r = RunQuelmor({"retime", In("s.%04d.png"), out, "--speed", "0.5", "--quality",
                                   cases[i].quality, "--interpolation", "blend", "--quiet"});
        ASSERT_EQ(r.status, 0) << cases[i].name << ": " << r.err;
        psnr[i] = ScoreClips(*OpenMedia(out), *OpenMedia(In("true_s.%04d.png"))).psnr;
    }
    EXPECT_GT(psnr[0], psnr[1] + 1.5)
        << "motion " << psnr[0] << " dB, plain blend " << psnr[1] << " dB";
}

TEST_F(RetimeTest, ChunksJoinWithoutASeam) {
    Synth("c.%04d.png", 4, SampleType::U8);
    ASSERT_EQ(RunQuelmor({"retime", In("c.%04d.png"), In("whole.%04d.png"), "--speed", "0.4",
                          "--quality", kQuality, "--quiet"})
                  .status,
              0);
    for (const char* chunk : {"0-3", "4-6", "7-9"}) {
        const auto r = RunQuelmor({"retime", In("c.%04d.png"), In("parts.%04d.png"), "--speed",
                                   "0.4", "--frames", chunk, "--quality", kQuality, "--quiet"});
        ASSERT_EQ(r.status, 0) << chunk << ": " << r.err;
    }
    ExpectSameFrames(In("whole.%04d.png"), In("parts.%04d.png"), "chunks against whole");
}

TEST_F(RetimeTest, VideoFilesRoundTrip) {
    Synth("c.%04d.png", 4, SampleType::U8);
    struct Case {
        const char* video;
        double rate;
    } cases[] = {{"slow.mp4", 25.0}, {"slow.mov", 24.0}};
    for (const Case& c : cases) {
        const auto r =
            RunQuelmor({"retime", In("c.%04d.png"), In(c.video), "--speed", "0.5", "--rate",
                        std::to_string(c.rate), "--quality", kQuality, "--quiet"});
        ASSERT_EQ(r.status, 0) << c.video << ": " << r.err;
        auto video = OpenMedia(In(c.video));
        EXPECT_EQ(video->FrameCount(), 8) << c.video;
        EXPECT_NEAR(video->FrameRate(), c.rate, 1e-3) << c.video;
        // Back from the video to frames at the same speed: a copy through the codec.
        const auto back = RunQuelmor(
            {"retime", In(c.video), In("back.%04d.png"), "--speed", "1", "--overwrite", "--quiet"});
        ASSERT_EQ(back.status, 0) << c.video << ": " << back.err;
        EXPECT_EQ(OpenMedia(In("back.%04d.png"))->FrameCount(), 8) << c.video;
        EXPECT_GT(FramePsnr(In("c.%04d.png"), 2, In("back.%04d.png"), 4), 30.0) << c.video;
    }
}

TEST_F(RetimeTest, BadInputIsRefusedAndLosesNothing) {
    Synth("c.%04d.png", 3, SampleType::U8);
    Synth("size.%04d.png", 1, SampleType::U8);
    Synth("size.%04d.png", 1, SampleType::U8, 40, 1); // frame 1 is narrower
    fs::create_directories(In("out"));
    fs::permissions(In("out"), fs::perms(0755));
    Synth("out/taken.%04d.png", 1, SampleType::U8);
    std::ofstream(In("secret.mov")) << "private";
    fs::permissions(In("secret.mov"), fs::perms(0600));
    std::ofstream(In("noise.mov")) << "this is no video";
    const test::RunLimits none, fullDisk{1000, false}, nobody{-1, true};
    struct Case {
        const char* name;
        std::vector<std::string> args;
        const char* message;
        test::RunLimits limits;
    } cases[] = {
        {"missing input",
         {In("gone.%04d.png"), In("out/r.%04d.png"), "--speed", "0.5"},
         "no input frames match",
         none},
        {"missing video",
         {In("gone.mov"), In("out/r.%04d.png"), "--speed", "0.5"},
         "does not exist",
         none},
        {"unreadable input",
         {In("secret.mov"), In("out/r.%04d.png"), "--speed", "0.5"},
         "is not readable",
         nobody},
        {"not a video",
         {In("noise.mov"), In("out/r.%04d.png"), "--speed", "0.5"},
         "cannot open",
         none},
        {"frames of two sizes",
         {In("size.%04d.png"), In("out/r.%04d.png"), "--speed", "0.5"},
         "must have one size",
         none},
        {"unsupported input",
         {In("c.%04d.xyz"), In("out/r.%04d.png"), "--speed", "0.5"},
         "unsupported image format",
         none},
        {"unsupported output",
         {In("c.%04d.png"), In("out/r.%04d.xyz"), "--speed", "0.5"},
         "unsupported output format",
         none},
        {"speed of zero",
         {In("c.%04d.png"), In("out/r.%04d.png"), "--speed", "0"},
         "--speed must be above 0",
         none},
        {"negative speed",
         {In("c.%04d.png"), In("out/r.%04d.png"), "--speed", "-1"},
         "--speed must be above 0",
         none},
        {"output exists",
         {In("c.%04d.png"), In("out/taken.%04d.png"), "--speed", "0.5"},
         "already exists; use --overwrite",
         none},
        {"frames outside the output",
         {In("c.%04d.png"), In("out/r.%04d.png"), "--speed", "0.5", "--frames", "3-9"},
         "lies outside the output frames 0-5",
         none},
        {"unwritable folder",
         {In("c.%04d.png"), In("out/r.%04d.png"), "--speed", "0.5"},
         "is not writable",
         nobody},
        {"full disk",
         {In("c.%04d.png"), In("out/r.%04d.png"), "--speed", "0.5", "--quality", kQuality,
          "--quiet"},
         "cannot write",
         fullDisk},
    };
    for (const Case& c : cases) {
        std::vector<std::string> args = {"retime"};
        args.insert(args.end(), c.args.begin(), c.args.end());
        const auto before = FolderState(dir_);
        const auto r = RunQuelmor(args, c.limits);
        EXPECT_NE(r.status, 0) << c.name;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.name << ": " << r.err;
        EXPECT_EQ(FolderState(dir_), before) << c.name;
    }
}

} // namespace
} // namespace quelmor::cli
