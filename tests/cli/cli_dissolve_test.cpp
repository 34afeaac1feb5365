// quelmor dissolve end to end: the frames between two shots follow the motion between them.
#include <gtest/gtest.h>

#include "CliTestSupport.h"

namespace quelmor::cli {
namespace {

class DissolveTest : public test::FolderTest {
protected:
    // One frame of the synthetic clip at `time`, as a one-frame sequence, and in memory.
    MediaFrame Shot(const std::string& pattern, double time, int width = 96, int height = 64) {
        SynthSettings s;
        s.width = width;
        s.height = height;
        MediaFrame frame;
        RenderSynthFrame(s, time, frame);
        auto writer = CreateMedia(In(pattern), frame.format, {});
        writer->Write(0, frame);
        writer->Finish();
        return frame;
    }
};

// Between frames 0 and 1 of the synthetic clip, whose objects move, the middle of a one-frame
// dissolve lies at time 0.5: the modes that pull both pictures along the flows come closer to
// the true frame there than the plain mix.
TEST_F(DissolveTest, MiddleFrameFollowsTheMotion) {
    Shot("a.%04d.png", 0.0);
    Shot("b.%04d.png", 1.0);
    SynthSettings s;
    s.width = 96;
    s.height = 64;
    MediaFrame truth;
    RenderSynthFrame(s, 0.5, truth);
    double psnr[3] = {};
    const char* modes[] = {"plain", "warp", "bands"};
    for (int m = 0; m < 3; ++m) {
        const std::string out = std::string(modes[m]) + ".%04d.png";
        Run("dissolve @a.%04d.png @b.%04d.png @" + out + " --frames 1 --quiet --mode " + modes[m]);
        auto reader = OpenMedia(In(out));
        ASSERT_EQ(reader->FrameCount(), 1);
        MediaFrame frame;
        reader->Read(0, frame);
        ASSERT_TRUE(frame.format.SameSize(truth.format));
        psnr[m] = Psnr(frame, truth);
    }
    EXPECT_GT(psnr[1], psnr[0] + 1.0) << "warp " << psnr[1] << " dB, plain " << psnr[0];
    EXPECT_GT(psnr[2], psnr[0] + 1.0) << "bands " << psnr[2] << " dB, plain " << psnr[0];
}

TEST_F(DissolveTest, FramesRunFromTheFirstShotToTheSecond) {
    const MediaFrame a = Shot("a.%04d.png", 0.0);
    const MediaFrame b = Shot("b.%04d.png", 3.0);
    Run("dissolve @a.%04d.png @b.%04d.png @out.%04d.png --frames 4 --quiet");
    auto reader = OpenMedia(In("out.%04d.png"));
    ASSERT_EQ(reader->FrameCount(), 4);
    double before = 1e9;
    for (int i = 0; i < 4; ++i) {
        MediaFrame frame;
        reader->Read(i, frame);
        const double towardsB = Psnr(frame, b) - Psnr(frame, a);
        if (i > 0) {
            EXPECT_GT(towardsB, before) << "frame " << i;
        }
        before = towardsB;
    }
}

} // namespace
} // namespace quelmor::cli
