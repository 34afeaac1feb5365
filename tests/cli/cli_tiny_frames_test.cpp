// Sequences of frames too small for motion vectors retime through both paths, directly and
// through the plug-in, and give the same pixels on both.
#include <gtest/gtest.h>

#include "CliTestSupport.h"

namespace quelmor::cli {
namespace {
using test::ExpectSameFrames;

class TinyFramesTest : public test::FolderTest {
protected:
    // Three 8-bit RGB frames of w x h whose values change from frame to frame.
    void WriteClip(const std::string& pattern, int w, int h) {
        auto writer = CreateMedia(pattern, {w, h, 3, SampleType::U8}, {});
        MediaFrame frame;
        for (int n = 0; n < 3; ++n) {
            frame.Allocate({w, h, 3, SampleType::U8});
            for (int y = 0; y < h; ++y)
                for (int i = 0; i < 3 * w; ++i)
                    frame.Row<uint8_t>(y)[i] = uint8_t(20 + 60 * n + (5 * i + 11 * y) % 50);
            writer->Write(n, frame);
        }
        writer->Finish();
    }
};

TEST_F(TinyFramesTest, RetimeAndSparkAgreeOnEveryTinySize) {
    // One interpolation per size, so that each of them meets a frame without a 2x2 cell.
    const struct {
        const char* name;
        int w, h;
        const char* interpolation;
    } sizes[] = {{"1x48", 1, 48, "blend"},
                 {"48x1", 48, 1, "weighted"},
                 {"2x2", 2, 2, "nearest"},
                 {"3x5", 3, 5, "blend"}};
    for (const auto& size : sizes) {
        const std::string clip = std::string("c") + size.name + ".%04d.png";
        WriteClip(In(clip), size.w, size.h);
        for (const std::string command : {"retime", "spark"})
            Run(command + " @" + clip + " @" + command + size.name +
                ".%04d.png --speed 0.4 --quality best --quiet --interpolation " +
                size.interpolation);
        const std::string retimed = In(std::string("retime") + size.name + ".%04d.png");
        ExpectSameFrames(retimed, In(std::string("spark") + size.name + ".%04d.png"), size.name);
        auto frames = OpenMedia(retimed);
        EXPECT_GE(frames->FrameCount(), 5) << size.name;
        EXPECT_EQ(frames->Format().width, size.w) << size.name;
        EXPECT_EQ(frames->Format().height, size.h) << size.name;
    }
}

} // namespace
} // namespace quelmor::cli
