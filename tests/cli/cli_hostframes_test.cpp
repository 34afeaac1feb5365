// Clips on disk seen as the stand-in host's frame source: packing into the host's
// depths and back, and frames past the ends.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "CliTestSupport.h"
#include "cli/HostFrames.h"
#include "cli/Score.h"
#include "sparkhost/FrameSource.h"

namespace quelmor::cli {
namespace {
using test::FramesReader;
using test::Solid;

TEST(HostFramesTest, PacksEachDepthAsTheHostStoresIt) {
    struct Case {
        const char* name;
        SampleType sample;
        int depth;
        std::vector<uint16_t> firstPixel; // host elements R, G, B
    } cases[] = {
        {"bytes", SampleType::U8, 24, {255, 0, 128}},
        {"twelve bits at the top of words", SampleType::U16, 48, {0xfff0, 0, 0x8080}},
        {"halves", SampleType::Half, 49, {0x3c00, 0, 0x3804}},
    };
    for (const Case& c : cases) {
        const MediaFrame frame = Solid(c.sample, 4, {1.0f, 0.0f, 128.0f / 255.0f, 0.25f});
        EXPECT_EQ(HostDepthFor(c.sample), c.depth) << c.name;
        std::vector<uint8_t> host(SparkHostFrameBytes(2, 2, c.depth));
        PackHostFrame(frame, c.depth, host.data());
        for (int i = 0; i < 3; ++i) {
            uint16_t element = 0;
            if (c.depth == 24)
                element = host[size_t(i)];
            else
                std::memcpy(&element, host.data() + 2 * i, 2);
            EXPECT_EQ(element, c.firstPixel[size_t(i)]) << c.name << " channel " << i;
        }
        // Back from the host: the colours survive within the host's precision.
        MediaFrame back;
        UnpackHostFrame(host.data(), 2, 2, c.depth, back);
        EXPECT_EQ(back.format.channels, 3) << c.name;
        EXPECT_GT(Psnr(back, frame), 60.0) << c.name;
    }
}

TEST(HostFramesTest, FramesPastTheEndsHoldTheEndFrames) {
    std::vector<MediaFrame> frames = {Solid(SampleType::U8, 3, {0.1f, 0.1f, 0.1f}),
                                      Solid(SampleType::U8, 3, {0.9f, 0.9f, 0.9f})};
    FramesReader reader(frames);
    MediaFrameSource source(reader);
    EXPECT_EQ(source.Depth(), 24);
    EXPECT_EQ(source.FrameCount(), 2);
    struct Case {
        int frame;
        uint8_t expected;
    } cases[] = {{-3, 26}, {0, 26}, {1, 230}, {7, 230}};
    std::vector<uint8_t> host(SparkHostFrameBytes(2, 2, 24));
    for (const Case& c : cases) {
        ASSERT_TRUE(source.ReadFrame(c.frame, host.data(), host.size())) << c.frame;
        EXPECT_EQ(host[0], c.expected) << "frame " << c.frame;
    }
    EXPECT_FALSE(source.ReadFrame(0, host.data(), host.size() - 1)) << "a buffer of another size";
}

} // namespace
} // namespace quelmor::cli
