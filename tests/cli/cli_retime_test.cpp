// quelmor retime end to end: bit depth and frame count through each image format, pictures
// better than a plain blend, chunks that join without a seam, and video files.
#include <gtest/gtest.h>

#include "CliTestSupport.h"

namespace quelmor::cli {
namespace {
using test::FramePsnr;

class RetimeTest : public test::FolderTest {};

TEST_F(RetimeTest, SlowMotionKeepsDepthAndFrameCount) {
    struct Case {
        const char* input;
        SampleType depth;
        const char* output;
    } cases[] = {
        {"png.%04d.png", SampleType::U8, "png_out.%04d.png"},
        {"tif.%04d.tif", SampleType::U16, "tif_out.%04d.tif"},
        {"exr.%04d.exr", SampleType::Half, "exr_out.%04d.exr"},
    };
    for (const Case& c : cases) {
        test::WriteSynthClip(In(c.input), 4, c.depth);
        const auto r = Run("retime @" + std::string(c.input) + " @" + c.output +
                           " --speed 0.5 --quality best");
        // Off a terminal, progress comes as plain lines, then the summary.
        EXPECT_NE(r.err.find("retime 8/8 frames"), std::string::npos) << r.err;
        EXPECT_EQ(r.err.find('\r'), std::string::npos) << r.err;
        EXPECT_NE(r.err.find("retime: 8 frames, "), std::string::npos) << r.err;
        auto out = OpenMedia(In(c.output));
        EXPECT_EQ(out->FrameCount(), 8) << c.output;
        EXPECT_EQ(out->Format().sample, c.depth) << c.output;
        EXPECT_EQ(out->Format().width, 48) << c.output;
        // Even output frames lie on source frames and reproduce them.
        EXPECT_GT(FramePsnr(In(c.input), 1, In(c.output), 2), 45.0) << c.output;
    }
}

TEST_F(RetimeTest, MotionVectorsBeatThePlainBlendAgainstTheTrueFrames) {
    // The synthetic clip with its true in-between frames, slowed to half speed both ways.
    Run("synth @s.%04d.png --frames 6 --size 96x64 --steps 2 --quiet");
    double psnr[2] = {};
    for (const char* quality : {"best", "none"}) {
        const std::string out = std::string(quality) + ".%04d.png";
        Run("retime @s.%04d.png @" + out + " --speed 0.5 --interpolation blend --quiet --quality " +
            quality);
        psnr[quality[0] == 'n'] =
            ScoreClips(*OpenMedia(In(out)), *OpenMedia(In("true_s.%04d.png"))).psnr;
    }
    EXPECT_GT(psnr[0], psnr[1] + 1.5) << "motion " << psnr[0] << " dB, plain " << psnr[1] << " dB";
}

TEST_F(RetimeTest, ChunksJoinWithoutASeam) {
    test::WriteSynthClip(In("c.%04d.png"), 4, SampleType::U8);
    Run("retime @c.%04d.png @whole.%04d.png --speed 0.4 --quality best --quiet");
    for (const char* chunk : {"0-4", "5-9"})
        Run("retime @c.%04d.png @parts.%04d.png --speed 0.4 --quality best --quiet --frames " +
            std::string(chunk));
    test::ExpectSameFrames(In("whole.%04d.png"), In("parts.%04d.png"), "chunks against whole");
}

TEST_F(RetimeTest, VideoFilesRoundTrip) {
    // Both codecs are tested by the media suite; here the command's path through a video file.
    test::WriteSynthClip(In("c.%04d.png"), 4, SampleType::U8);
    Run("retime @c.%04d.png @slow.mov --speed 0.5 --rate 24 --quality best --quiet");
    auto video = OpenMedia(In("slow.mov"));
    EXPECT_EQ(video->FrameCount(), 8);
    EXPECT_NEAR(video->FrameRate(), 24.0, 1e-3);
    // Back from the video to frames at the same speed: a copy through the codec.
    Run("retime @slow.mov @back.%04d.png --speed 1 --quiet");
    EXPECT_EQ(OpenMedia(In("back.%04d.png"))->FrameCount(), 8);
    EXPECT_GT(FramePsnr(In("c.%04d.png"), 2, In("back.%04d.png"), 4), 30.0);
}

} // namespace
} // namespace quelmor::cli
