// quelmor retime --resize: output frames zoomed after the retime, at every sample depth.
#include <gtest/gtest.h>

#include "CliTestSupport.h"
#include "image/DQImage.h"
#include "warp/Zoom.h"

namespace quelmor::cli {
namespace {

class ResizeTest : public test::FolderTest {};

// Frame `i` of a clip, zoomed by the library with `filter` to w x h.
MediaFrame ZoomedFrame(const std::string& clip, int i, int w, int h, const DQZoomFilter& filter) {
    MediaFrame full, out;
    OpenMedia(clip)->Read(i, full);
    const MediaFormat& f = full.format;
    EXPECT_EQ(f.sample, SampleType::U8);
    out.Allocate({w, h, f.channels, f.sample});
    DQImage source(full.pixels.data(), f.width, f.height, f.channels, DQ_UCHAR, 0);
    DQImage dest(out.pixels.data(), w, h, f.channels, DQ_UCHAR, 0);
    Zoom(&dest, &source, filter);
    return out;
}

TEST_F(ResizeTest, OutputFramesAreTheRetimedFramesZoomed) {
    test::WriteSynthClip(In("s.%04d.png"), 3, SampleType::U8, 64, 40);
    Run("retime @s.%04d.png @full.%04d.png --speed 0.5 --quiet");
    const struct {
        const char* options;
        const char* filter;
        int w, h;
    } cases[] = {
        {"--resize 30x20", "bspline-table", 30, 20},
        {"--resize 100x72 --filter lanczos", "lanczos", 100, 72},
        {"--resize=41x17 --filter=mitchell", "mitchell", 41, 17},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.options);
        std::filesystem::remove_all(In("small"));
        std::filesystem::create_directories(In("small"));
        Run("retime @s.%04d.png @small/r.%04d.png --speed 0.5 --quiet " + std::string(c.options));
        auto out = OpenMedia(In("small/r.%04d.png"));
        ASSERT_EQ(out->FrameCount(), 6);
        for (int i = 0; i < 6; ++i) {
            MediaFrame frame;
            out->Read(i, frame);
            EXPECT_EQ(frame.format.width, c.w);
            EXPECT_EQ(frame.format.height, c.h);
            const MediaFrame expected =
                ZoomedFrame(In("full.%04d.png"), i, c.w, c.h, *DQFindZoomFilter(c.filter));
            EXPECT_EQ(frame.pixels, expected.pixels) << "frame " << i;
        }
    }
}

// The zoom limits sums to 0 .. 255 whatever the element type: 16-bit frames must be carried
// through it on that scale, not as raw words.
TEST_F(ResizeTest, SixteenBitAndFloatFramesKeepTheirRange) {
    test::WriteSynthClip(In("p.%04d.png"), 2, SampleType::U8, 64, 40);
    Run("retime @p.%04d.png @full.%04d.png --speed 0.5 --quiet");
    const MediaFrame expected = ZoomedFrame(In("full.%04d.png"), 1, 48, 30, DQDefaultZoomFilter());
    const struct {
        SampleType sample;
        const char* input;
        const char* output;
    } cases[] = {
        {SampleType::U16, "w.%04d.tif", "wr.%04d.tif"},
        {SampleType::Half, "h.%04d.exr", "hr.%04d.exr"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.input);
        test::WriteSynthClip(In(c.input), 2, c.sample, 64, 40);
        Run(std::string("retime @") + c.input + " @" + c.output + " --speed 0.5 --quiet " +
            "--resize 48x30");
        MediaFrame frame, eight;
        OpenMedia(In(c.output))->Read(1, frame);
        EXPECT_EQ(frame.format.sample, c.sample);
        ConvertFrame(frame, expected.format, eight);
        EXPECT_GT(Psnr(eight, expected), 40.0);
    }
}

} // namespace
} // namespace quelmor::cli
