// Host frames to images and back: the half-float rules and the four conversions, run over frames
// whose size does not divide evenly among the workers so that slices start inside rows.
#include "host/Conversion.h"
#include "host/HalfFloat.h"
#include "tests/TestSupport.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace {

using quelmor::test::WorkerScope;

constexpr int kWidth = 7;
constexpr int kHeight = 5;
constexpr int kPixels = kWidth * kHeight;

spark_info_struct InfoFor(int depth, int hostElementBytes) {
    spark_info_struct info{};
    info.FrameDepth = depth;
    info.FrameBytes = kPixels * 3 * hostElementBytes;
    return info;
}

TEST(HalfFloat, WidensByTheBitRules) {
    const std::pair<uint16_t, float> cases[] = {
        {0x0000, 0.0f},
        {0x3c00, 1.0f},
        {0xc000, -2.0f},
        {0x0001, std::ldexp(1.0f, -24)},
        {0x03ff, std::ldexp(1023.0f, -24)},
        {0x0400, std::ldexp(1.0f, -14)},
        {0x7bff, 65504.0f},
        {0x7c00, INFINITY},
        {0xfc00, -INFINITY},
    };
    for (const auto& [half, expected] : cases)
        EXPECT_EQ(MyHalfToFloat(half), expected) << std::hex << half;
    EXPECT_TRUE(std::signbit(MyHalfToFloat(0x8000))) << "negative zero keeps its sign";
    EXPECT_TRUE(std::isnan(MyHalfToFloat(0x7e00))) << "not a number";
}

TEST(HalfFloat, NarrowsWithRoundingAndRangeLimits) {
    // 0.1 rounds up at bit 12; 65520 rounds over the top; too small loses even the sign.
    const std::pair<float, uint16_t> cases[] = {
        {0.1f, 0x2e66},     {65520.0f, 0x7c00},  {1.0e6f, 0x7c00},    {-1.0e6f, 0xfc00},
        {1.0e-10f, 0x0000}, {-1.0e-10f, 0x0000}, {-INFINITY, 0xfc00}, {NAN, 0x7e00},
    };
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(MyFloatToHalf(value), expected) << value;
}

TEST(HalfFloat, EveryFiniteHalfSurvivesARoundTrip) {
    for (uint32_t half = 0; half <= 0xffff; ++half) {
        if ((half & 0x7c00) == 0x7c00) continue; // infinities and not-a-numbers
        if (half == 0x8000) continue;            // negative zero narrows to plain zero
        ASSERT_EQ(MyFloatToHalf(MyHalfToFloat(uint16_t(half))), half) << std::hex << half;
    }
}

// One host pixel value, its image value and the conversions in both directions.
class ConversionTest : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override { WorkerScope::Set(GetParam(), kWidth, kHeight); }
    void TearDown() override { WorkerScope::Set(1, 0, 0); }
};

TEST_P(ConversionTest, EightBitRoundTrip) {
    std::vector<uint8_t> host(kPixels * 3), image(kPixels * 4, 0xcc), back(kPixels * 3, 0x77),
        matte(kPixels * 3, 0);
    for (int i = 0; i < kPixels * 3; ++i)
        host[i] = uint8_t(i % 3 == 1 ? 20 + i / 3 : 10 * (i % 3 + 1));
    spark_info_struct info = InfoFor(24, 1);
    EXPECT_EQ(sparkCombine4Buffers(&info, image.data(), host.data(), nullptr, 0), 1);
    for (int i = 0; i < kPixels; ++i) {
        const uint8_t expected[4] = {10, uint8_t(20 + i), 30, 255};
        ASSERT_EQ(0, memcmp(&image[i * 4], expected, 4)) << "pixel " << i;
    }
    image[4 * 3 + 3] = 128; // alpha of pixel 3 goes to the matte
    EXPECT_EQ(sparkUnCombine4Buffers(&info, back.data(), image.data(), matte.data()), 1);
    EXPECT_EQ(back, host);
    for (int i = 0; i < kPixels; ++i)
        for (int c = 0; c < 3; ++c)
            ASSERT_EQ(matte[i * 3 + c], i == 3 ? 128 : 255) << i;
}

TEST_P(ConversionTest, TwelveBitRoundTripKeepsTheLowNibble) {
    std::vector<uint16_t> host(kPixels * 3), image(kPixels * 4), back(kPixels * 3),
        matte(kPixels * 3, 0x0007);
    const uint16_t words[3] = {0xfff0, 0x1230, 0x0010};
    for (int i = 0; i < kPixels * 3; ++i) // the low nibble is not significant
        host[i] = uint16_t(words[i % 3] | (i % 3 == 1 ? (i / 3) & 15 : 0));
    spark_info_struct info = InfoFor(48, 2);
    sparkCombine4Buffers(&info, image.data(), host.data(), nullptr, 0);
    for (int i = 0; i < kPixels; ++i) {
        const uint16_t expected[4] = {4095, 0x123, 1, 4095};
        ASSERT_EQ(0, memcmp(&image[i * 4], expected, 8)) << "pixel " << i;
    }
    info.FrameDepth = 64;
    sparkUnCombine4Buffers(&info, back.data(), image.data(), matte.data());
    for (int i = 0; i < kPixels; ++i) {
        EXPECT_EQ(back[i * 3], 0xfff0) << i;
        EXPECT_EQ(back[i * 3 + 1], 0x1230) << i << ": the cleared frame has no nibble to keep";
        EXPECT_EQ(matte[i * 3 + 2], 0xfff7) << i << ": the matte keeps its low nibble";
    }
}

TEST_P(ConversionTest, HalfFloatRoundTrip) {
    std::vector<uint16_t> host(kPixels * 3), back(kPixels * 3), matte(kPixels * 3);
    std::vector<float> image(kPixels * 4);
    const uint16_t halves[3] = {0x3c00, 0x0001, 0xc000};
    for (int i = 0; i < kPixels * 3; ++i)
        host[i] = halves[i % 3];
    spark_info_struct info = InfoFor(49, 2);
    sparkCombine4Buffers(&info, image.data(), host.data(), nullptr, 0);
    const float expected[4] = {1.0f, std::ldexp(1.0f, -24), -2.0f, 1.0f};
    for (int i = 0; i < kPixels * 4; ++i)
        ASSERT_EQ(image[i], expected[i % 4]) << i;
    image[1] = 1.0e6f; // above the half range
    sparkUnCombine4Buffers(&info, back.data(), image.data(), matte.data());
    EXPECT_EQ(back[0], 0x3c00);
    EXPECT_EQ(back[1], 0x7c00);
    EXPECT_EQ(back[3 * 3 + 2], 0xc000);
    EXPECT_EQ(matte[kPixels * 3 - 1], 0x3c00);
}

TEST_P(ConversionTest, CombineModeOneMakesTwelveBitFramesWhite) {
    std::vector<uint16_t> host(kPixels * 3, 0x1230), image(kPixels * 4), aux(kPixels * 4);
    spark_info_struct info = InfoFor(48, 2);
    sparkCombine4Buffers(&info, image.data(), host.data(), aux.data(), 1);
    for (uint16_t value : image)
        ASSERT_EQ(value, 4095);
    // Without the auxiliary buffer the mode converts nothing; the image keeps the cleared start.
    std::vector<uint16_t> untouched(kPixels * 4, 0x5555);
    sparkCombine4Buffers(&info, untouched.data(), host.data(), nullptr, 1);
    EXPECT_EQ(untouched[0], 0) << "cleared by the front function";
    EXPECT_EQ(untouched.back(), 0x5555) << "beyond FrameBytes, never written";
}

TEST_P(ConversionTest, OneChannelSelectsRedGreenOrBlueOnly) {
    // Selectors other than red, green and blue convert nothing.
    const std::pair<int, uint8_t> cases[] = {{0, 11}, {1, 22}, {2, 33}, {3, 0xee}, {-1, 0xee}};
    std::vector<uint8_t> host(kPixels * 3);
    for (int i = 0; i < kPixels * 3; ++i)
        host[i] = uint8_t(11 * (i % 3 + 1));
    spark_info_struct info = InfoFor(25, 1);
    for (const auto& [channel, expected] : cases) {
        std::vector<uint8_t> matte(kPixels, 0xee);
        sparkCombine1Buffers(&info, matte.data(), host.data(), channel);
        for (uint8_t value : matte)
            ASSERT_EQ(value, expected) << "channel " << channel;
    }
}

TEST_P(ConversionTest, OneChannelBackToAllThreeHostChannels) {
    std::vector<uint16_t> image(kPixels, 0x123), host(kPixels * 3, 0x0005);
    spark_info_struct info = InfoFor(48, 2);
    sparkUnCombine1Buffers(&info, host.data(), image.data());
    for (uint16_t word : host)
        ASSERT_EQ(word, 0x1235);

    std::vector<uint8_t> bytes(kPixels, 200), host8(kPixels * 3, 1);
    info = InfoFor(24, 1);
    sparkUnCombine1Buffers(&info, host8.data(), bytes.data());
    for (uint8_t value : host8)
        ASSERT_EQ(value, 200);
}

TEST_P(ConversionTest, MissingMatteBufferIsReportedByEveryWorker) {
    std::vector<uint8_t> host(kPixels * 3, 0x44), image(kPixels * 4, 9);
    spark_info_struct info = InfoFor(24, 1);
    ::testing::internal::CaptureStdout();
    sparkUnCombine4Buffers(&info, host.data(), image.data(), nullptr);
    fflush(stdout);
    const std::string output = ::testing::internal::GetCapturedStdout();
    int reports = 0;
    for (size_t at = output.find("MISSING BUFFER"); at != std::string::npos;
         at = output.find("MISSING BUFFER", at + 1))
        ++reports;
    EXPECT_EQ(reports, GetParam());
    EXPECT_NE(output.find("uncombine 4 pixel"), std::string::npos) << output;
    for (uint8_t value : host)
        ASSERT_EQ(value, 0) << "the host frame stays cleared";
}

TEST_P(ConversionTest, UnknownDepthWritesNothing) {
    std::vector<uint8_t> host(kPixels * 3, 7), image(kPixels * 4, 0x99);
    spark_info_struct info = InfoFor(32, 1);
    sparkCombine4Buffers(&info, image.data(), host.data(), nullptr, 0);
    EXPECT_EQ(image[0], 0) << "cleared up to FrameBytes";
    EXPECT_EQ(image.back(), 0x99);
}

INSTANTIATE_TEST_SUITE_P(Workers, ConversionTest, ::testing::Values(1, 3, 4),
                         [](const auto& info) { return "workers" + std::to_string(info.param); });

} // namespace
