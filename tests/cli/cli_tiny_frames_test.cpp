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
    const struct {
        const char* name;
        int w, h;
    } sizes[] = {{"1x48", 1, 48}, {"48x1", 48, 1}, {"2x2", 2, 2}, {"3x5", 3, 5}};
    for (const auto& size : sizes)
        for (const char* interpolation : {"nearest", "blend", "weighted"}) {
            const std::string clip = std::string("c") + size.name + ".%04d.png";
            WriteClip(In(clip), size.w, size.h);
            const std::string tag = std::string(size.name) + interpolation;
            for (const std::string command : {"retime", "spark"})
                Run(command + " @" + clip + " @" + command + tag +
                    ".%04d.png --speed 0.4 --quality best --quiet --interpolation " +
                    interpolation);
            const std::string retimed = In("retime" + tag + ".%04d.png");
            ExpectSameFrames(retimed, In("spark" + tag + ".%04d.png"), tag);
            auto frames = OpenMedia(retimed);
            EXPECT_GE(frames->FrameCount(), 5) << tag;
            EXPECT_EQ(frames->Format().width, size.w) << tag;
            EXPECT_EQ(frames->Format().height, size.h) << tag;
        }
}

} // namespace
} // namespace quelmor::cli
