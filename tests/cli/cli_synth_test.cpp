// The synthetic clip: motion that is really there, true in-between frames that
// agree with the source frames, and the synth and score commands end to end.
#include <gtest/gtest.h>

#include <filesystem>

#include "CliTestSupport.h"
#include "cli/Media.h"
#include "cli/Score.h"
#include "cli/Synth.h"

namespace quelmor::cli {
namespace {
namespace fs = std::filesystem;
using test::FolderState;
using test::RunQuelmor;

SynthSettings Small() {
    SynthSettings s;
    s.width = 96;
    s.height = 54;
    s.frames = 4;
    s.truthSteps = 2;
    return s;
}

TEST(SynthTest, ObjectsMoveSmoothlyBetweenFrames) {
    MediaFrame f0, f1, fHalf, again;
    const SynthSettings s = Small();
    RenderSynthFrame(s, 0.0, f0);
    RenderSynthFrame(s, 1.0, f1);
    RenderSynthFrame(s, 0.5, fHalf);
    RenderSynthFrame(s, 0.0, again);
    EXPECT_EQ(f0.pixels, again.pixels) << "rendering must be deterministic";
    // Consecutive frames differ clearly, and the half-way frame differs from both:
    // a retime that repeats frames scores worse than one that finds the motion.
    EXPECT_LT(Psnr(f0, f1), 30.0);
    EXPECT_LT(Psnr(fHalf, f0), 40.0);
    EXPECT_LT(Psnr(fHalf, f1), 40.0);
    // Smaller steps in time change less: the motion is continuous.
    MediaFrame fTenth;
    RenderSynthFrame(s, 0.1, fTenth);
    EXPECT_GT(Psnr(fTenth, f0), Psnr(fHalf, f0));
}

TEST(SynthTest, RendersEveryDepth) {
    struct Case {
        SampleType sample;
    } cases[] = {{SampleType::U8}, {SampleType::U16}, {SampleType::Half}, {SampleType::Float}};
    SynthSettings s = Small();
    MediaFrame reference;
    RenderSynthFrame(s, 2.0, reference);
    for (const Case& c : cases) {
        s.sample = c.sample;
        MediaFrame f;
        RenderSynthFrame(s, 2.0, f);
        EXPECT_EQ(f.format.sample, c.sample) << SampleTypeName(c.sample);
        EXPECT_EQ(f.format.channels, 3) << SampleTypeName(c.sample);
        EXPECT_GT(Psnr(f, reference), 45.0) << SampleTypeName(c.sample);
    }
}

class SynthCommandTest : public test::FolderTest {
protected:
};

TEST_F(SynthCommandTest, WritesSourceAndTrueFramesThatAgree) {
    const auto r =
        RunQuelmor({"synth", In("c.%04d.png"), "--frames", "3", "--size", "64x36", "--steps", "4"});
    ASSERT_EQ(r.status, 0) << r.err;
    auto source = OpenMedia(In("c.%04d.png"));
    auto truth = OpenMedia(In("true_c.%04d.png"));
    EXPECT_EQ(source->FrameCount(), 3);
    EXPECT_EQ(truth->FrameCount(), 12);
    EXPECT_EQ(source->Format().width, 64);
    MediaFrame a, b;
    for (int i = 0; i < 3; ++i) {
        source->Read(i, a);
        truth->Read(4 * i, b);
        EXPECT_EQ(Psnr(a, b), 99.0) << "true frame " << 4 * i << " is source frame " << i;
    }
    // The score command reports a perfect match for a clip against itself.
    const auto score = RunQuelmor({"score", In("c.%04d.png"), In("c.%04d.png")});
    EXPECT_EQ(score.status, 0) << score.err;
    EXPECT_NE(score.out.find("PSNR 99.00 dB over 3 frames"), std::string::npos) << score.out;
}

TEST_F(SynthCommandTest, RefusesBadRequestsAndLeavesTheFolderAlone) {
    ASSERT_EQ(RunQuelmor({"synth", In("c.%04d.png"), "--frames", "2", "--size", "32x18", "--quiet"})
                  .status,
              0);
    fs::create_directories(In("locked"));
    struct Case {
        const char* name;
        std::vector<std::string> args;
        int status;
        const char* message;
        test::RunLimits limits;
    } cases[] = {
        {"existing output",
         {"synth", In("c.%04d.png"), "--frames", "2"},
         1,
         "already exists; use --overwrite",
         {}},
        {"not a sequence", {"synth", In("c.png")}, 2, "must be an image sequence", {}},
        {"unknown format", {"synth", In("d.%04d.xyz")}, 1, "unsupported output format", {}},
        {"missing folder", {"synth", In("no/d.%04d.png")}, 1, "does not exist", {}},
        {"bad size", {"synth", In("d.%04d.png"), "--size", "0x10"}, 2, "--size", {}},
        {"unknown option", {"synth", In("d.%04d.png"), "--fast"}, 2, "unknown option --fast", {}},
        {"unknown command", {"warp", In("d.%04d.png")}, 2, "unknown command \"warp\"", {}},
        {"full disk",
         {"synth", In("d.%04d.png"), "--size", "64x36", "--quiet"},
         1,
         "cannot write",
         {2000, false}},
        {"unwritable folder", {"synth", In("locked/d.%04d.png")}, 1, "not writable", {-1, true}},
    };
    for (const Case& c : cases) {
        if (c.limits.asUnprivileged && geteuid() == 0)
            fs::permissions(In("locked"), fs::perms(0755));
        if (c.limits.asUnprivileged && geteuid() != 0)
            fs::permissions(In("locked"), fs::perms(0555));
        const auto before = FolderState(dir_);
        const auto r = RunQuelmor(c.args, c.limits);
        EXPECT_EQ(r.status, c.status) << c.name << ": " << r.err;
        EXPECT_NE(r.err.find(c.message), std::string::npos) << c.name << ": " << r.err;
        EXPECT_EQ(FolderState(dir_), before) << c.name;
    }
    fs::permissions(In("locked"), fs::perms(0755));
}

} // namespace
} // namespace quelmor::cli
