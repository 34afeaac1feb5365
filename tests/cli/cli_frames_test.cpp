// Source frames on their way in: to the engine driven from a clip in memory and to the stand-in
// host in its packed depths.
#include <gtest/gtest.h>

#include <cstring>

#include "CliTestSupport.h"
#include "cli/HostFrames.h"
#include "cli/RetimeEngine.h"
#include "cli/Score.h"
#include "sparkhost/FrameSource.h"

namespace quelmor::cli {
namespace {
using test::FramesReader;
using test::Solid;

TEST(SourceFramesTest, BothPathsHandOutFramesAndHoldTheEnds) {
    // Out of order and past either end, to the engine directly and through the host's frames.
    FramesReader reader({Solid(SampleType::U8, 3, {0.2f, 0.2f, 0.2f}),
                         Solid(SampleType::U8, 3, {0.6f, 0.6f, 0.6f}),
                         Solid(SampleType::U8, 3, {1.0f, 1.0f, 1.0f})});
    const Timing half = Timing::Constant(0.5);
    CliQuelmor engine(reader, half, nullptr);
    MediaFrameSource source(std::make_unique<FramesReader>(reader));
    EXPECT_EQ(source.Depth(), 24);
    std::vector<uint8_t> host(SparkHostFrameBytes(2, 2, 24));
    struct Case {
        int frame;
        uint8_t expected;
    } cases[] = {{-2, 51}, {0, 51}, {1, 153}, {2, 255}, {9, 255}, {1, 153}, {0, 51}};
    for (const Case& c : cases) {
        ZUImage* image = nullptr;
        ASSERT_EQ(engine.GetToBeWarpedSequenceImage(&image, c.frame), 0) << c.frame;
        EXPECT_EQ(image->width, 2);
        EXPECT_EQ(image->pixelType, 0);
        EXPECT_EQ(image->data[0], c.expected) << "engine, frame " << c.frame;
        EXPECT_EQ(image->data[3], 255) << "opaque alpha, frame " << c.frame;
        engine.CleanUpCheckedOutImage(image);
        ASSERT_TRUE(source.ReadFrame(c.frame, host.data(), host.size())) << c.frame;
        EXPECT_EQ(host[0], c.expected) << "host, frame " << c.frame;
    }
    EXPECT_FALSE(source.ReadFrame(0, host.data(), host.size() - 1)) << "a buffer of another size";
    ZUImage* matte = nullptr;
    EXPECT_EQ(engine.GetMatteLayerSequenceImage(&matte, 0, 0), 5);
    EXPECT_EQ(matte, nullptr);
    EXPECT_EQ(engine.GetToBeWarpedSequenceImage(nullptr, 0), 5);
}

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
        MediaFrame host;
        ToHostFrame(MediaFrame(frame), c.depth, host);
        ASSERT_EQ(host.pixels.size(), SparkHostFrameBytes(2, 2, c.depth)) << c.name;
        for (int i = 0; i < 3; ++i) {
            uint16_t element = 0;
            const std::size_t bytes = SampleBytes(c.sample);
            std::memcpy(&element, host.pixels.data() + i * bytes, bytes);
            EXPECT_EQ(element, c.firstPixel[size_t(i)]) << c.name << " channel " << i;
        }
        // Back from the host: the colours survive within the host's precision.
        MediaFrame back;
        UnpackHostFrame(host.pixels.data(), 2, 2, c.depth, back);
        EXPECT_EQ(back.format.channels, 3) << c.name;
        EXPECT_GT(Psnr(back, frame), 60.0) << c.name;
    }
}

} // namespace
} // namespace quelmor::cli
