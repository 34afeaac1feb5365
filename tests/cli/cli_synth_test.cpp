// The synthetic clip: motion that is really there, true in-between frames that
// agree with the source frames, and the synth and score commands end to end.
#include <gtest/gtest.h>

#include "CliTestSupport.h"
#include "cli/Media.h"
#include "cli/Score.h"
#include "cli/Synth.h"

namespace quelmor::cli {
namespace {

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
    SynthSettings s = Small();
    MediaFrame reference;
    RenderSynthFrame(s, 2.0, reference);
    for (SampleType sample : {SampleType::U16, SampleType::Half, SampleType::Float}) {
        s.sample = sample;
        MediaFrame f;
        RenderSynthFrame(s, 2.0, f);
        EXPECT_EQ(f.format.sample, sample) << SampleTypeName(sample);
        EXPECT_EQ(f.format.channels, 3) << SampleTypeName(sample);
        EXPECT_GT(Psnr(f, reference), 45.0) << SampleTypeName(sample);
    }
}

class SynthCommandTest : public test::FolderTest {};

TEST_F(SynthCommandTest, WritesSourceAndTrueFramesThatAgree) {
    Run("synth @c.%04d.png --frames 3 --size 64x36 --steps 4 --quiet");
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
    const auto score = Run("score @c.%04d.png @c.%04d.png");
    EXPECT_NE(score.out.find("PSNR 99.00 dB over 3 frames"), std::string::npos) << score.out;
}

} // namespace
} // namespace quelmor::cli
