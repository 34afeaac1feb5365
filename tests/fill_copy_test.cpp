#include "ImagePatterns.h"
#include "TestSupport.h"

#include <functional>
#include <string>
#include <vector>

using namespace quelmor::test;

class FillCopy : public quelmor::test::ParallelTest {};

TEST_F(FillCopy, FillColourPerTypeAndChannels) {
    struct Case {
        const char* name;
        int type, channels;
        std::vector<float> colour, expected;
        float whitePoint = 0; // 0: the type's own
    };
    const std::vector<float> colour = {0.5f, 0.2f, 1.0f, 0.0f};
    const Case cases[] = {
        {"uchar 1", DQ_UCHAR, 1, colour, {128}},
        {"uchar 4", DQ_UCHAR, 4, colour, {128, 51, 255, 0}},
        // 16 bits round with 0.499: half of white lands below the middle.
        {"ushort 4", DQ_USHORT, 4, colour, {32767, 13107, 65535, 0}},
        {"ushort 2", DQ_USHORT, 2, colour, {32767, 13107}},
        {"float 3", DQ_FLOAT, 3, colour, {0.5f, 0.2f, 1.0f}},
        {"out of range clamps", DQ_UCHAR, 3, {-0.5f, 2.0f, 1.0f, 0.0f}, {0, 255, 255}},
        {"float scales by its white point", DQ_FLOAT, 1, colour, {127.5f}, 255.0f},
    };
    for (const Case& c : cases) {
        for (int width : {1, 7, 33}) {
            SCOPED_TRACE(::testing::Message() << c.name << ", width " << width);
            DQImage image(width, 3, c.channels, c.type, 1);
            if (c.whitePoint) image.whitePoint = c.whitePoint;
            image.FillColour(c.colour[0], c.colour[1], c.colour[2], c.colour[3]);
            for (int y = 0; y < 3; ++y)
                for (int x = 0; x < width; ++x)
                    for (int ch = 0; ch < c.channels; ++ch)
                        ASSERT_EQ(At(image, x, y, ch), c.expected[ch]) << x << "," << y;
        }
    }
}

TEST_F(FillCopy, FillPixelCopiesEveryByteOfThePixel) {
    for (int width : {1, 5, 640}) {
        DQImage image(width, 200, 3, DQ_USHORT, 1);
        const uint16_t pixel[3] = {1, 0xABCD, 65535};
        image.FillPixel(pixel);
        for (int y = 0; y < 200; ++y)
            for (int x = 0; x < width; ++x)
                ASSERT_EQ(std::memcmp(image.PixelAddress(x, y), pixel, sizeof pixel), 0)
                    << "pixel " << x << "," << y << " of width " << width;
    }
}

TEST_F(FillCopy, PlainAndNormalisedCopiesBetweenTypes) {
    // One element copied by the plain copy (values cast as they are) and by the normalising copy
    // (scaled by the ratio of white points, integer results rounded and clamped).
    struct Case {
        const char* name;
        int from, to;
        float value, plain, normalised;
    };
    const Case cases[] = {
        {"uchar white to float", DQ_UCHAR, DQ_FLOAT, 255, 255.0f, 1.0f},
        {"uchar to float, no rounding", DQ_UCHAR, DQ_FLOAT, 1, 1.0f, 1.0f / 255.0f},
        {"uchar to ushort", DQ_UCHAR, DQ_USHORT, 128, 128, 32896},
        {"ushort to uchar rounds down", DQ_USHORT, DQ_UCHAR, 32896 + 128, 0, 128},
        {"ushort to uchar rounds up", DQ_USHORT, DQ_UCHAR, 32896 + 129, 1, 129},
        {"float half to uchar", DQ_FLOAT, DQ_UCHAR, 0.5f, 0, 128},
        {"float above white to uchar clamps", DQ_FLOAT, DQ_UCHAR, 1.5f, 1, 255},
        {"float below zero to ushort clamps", DQ_FLOAT, DQ_USHORT, -0.25f, 0, 0},
        {"float to ushort", DQ_FLOAT, DQ_USHORT, 0.25f, 0, 16384},
        {"same type", DQ_USHORT, DQ_USHORT, 1234, 1234, 1234},
    };
    for (const Case& c : cases) {
        for (int channels : {1, 2, 3, 4}) {
            SCOPED_TRACE(::testing::Message() << c.name << ", " << channels << " channels");
            DQImage source(5, 4, channels, c.from, 0);
            source.FillPixel(std::vector<uint8_t>(source.pixelBytes, 0).data());
            source.SetChannelFloat(3, 2, channels - 1, c.value);
            DQImage plain(5, 4, channels, c.to, 1);
            plain.Clear();
            plain.CopyFrom(1, 1, &source, 2, 1, 3, 2);
            EXPECT_EQ(At(plain, 2, 2, channels - 1), c.plain);
            DQImage normalised(5, 4, channels, c.to, 1);
            normalised.Clear();
            normalised.CopyFromNormalised(1, 1, &source, 2, 1, 3, 2);
            EXPECT_FLOAT_EQ(At(normalised, 2, 2, channels - 1), c.normalised);
            EXPECT_EQ(At(normalised, 0, 0, 0), 0.0f) << "written outside the rectangle";
            EXPECT_EQ(At(normalised, 4, 3, 0), 0.0f) << "written outside the rectangle";
            // The channel copies into channel 0 of a four-channel image, the others untouched.
            DQImage channel(5, 4, 4, c.to, 0);
            channel.Clear();
            channel.CopyChannelPlain(0, &source, channels - 1);
            EXPECT_EQ(At(channel, 3, 2, 0), c.plain);
            channel.CopyChannelNormalised(1, &source, channels - 1);
            EXPECT_FLOAT_EQ(At(channel, 3, 2, 1), c.normalised);
            EXPECT_EQ(At(channel, 3, 2, 2) + At(channel, 3, 2, 3), 0.0f) << "other channels stay";
        }
    }
}

TEST_F(FillCopy, CopyCentredReadsAndWritesTheMiddle) {
    struct Case {
        int sourceWidth, sourceHeight, destWidth, destHeight;
        int destX, destY, sourceX, sourceY, w, h; // the expected overlap
    };
    const Case cases[] = {
        {10, 4, 6, 4, 0, 0, 2, 0, 6, 4}, // reads from column 2
        {6, 4, 10, 4, 2, 0, 0, 0, 6, 4}, // writes from column 2
        {9, 7, 4, 4, 0, 0, 2, 1, 4, 4},  // an odd difference rounds down
        {3, 9, 8, 5, 2, 0, 0, 2, 3, 5},  // larger on one axis, smaller on the other
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.sourceWidth << "x" << c.sourceHeight << " into "
                                          << c.destWidth << "x" << c.destHeight);
        auto source = PatternImage(c.sourceWidth, c.sourceHeight, 2, DQ_UCHAR, 3, 1);
        DQImage dest(c.destWidth, c.destHeight, 2, DQ_UCHAR, 0);
        const uint8_t marker[2] = {7, 7};
        dest.FillPixel(marker);
        dest.CopyCentred(source.get());
        for (int y = 0; y < c.destHeight; ++y)
            for (int x = 0; x < c.destWidth; ++x) {
                const bool inside =
                    x >= c.destX && x < c.destX + c.w && y >= c.destY && y < c.destY + c.h;
                ASSERT_EQ(At(dest, x, y, 1),
                          inside ? At(*source, x - c.destX + c.sourceX, y - c.destY + c.sourceY, 1)
                                 : 7.0f)
                    << "pixel " << x << "," << y;
            }
    }
}

TEST_F(FillCopy, CopyCentredNormalisedScalesTheOverlap) {
    auto source = PatternImage(8, 6, 1, DQ_UCHAR, 5);
    DQImage dest(4, 4, 1, DQ_FLOAT, 1);
    dest.CopyCentredNormalised(source.get());
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x)
            ASSERT_FLOAT_EQ(At(dest, x, y, 0), At(*source, x + 2, y + 1, 0) / 255.0f);
    // Equal white points take the plain path: a float with white 255 keeps the numbers.
    DQImage same(4, 4, 1, DQ_FLOAT, 0);
    same.whitePoint = 255.0f;
    same.CopyCentredNormalised(source.get());
    EXPECT_EQ(At(same, 0, 0, 0), At(*source, 2, 1, 0));
}

TEST_F(FillCopy, CopyImagePartFromAndTranspose) {
    auto source = PatternImage(6, 5, 3, DQ_FLOAT, 11);
    DQImage dest(4, 4, 3, DQ_FLOAT, 1);
    dest.Clear();
    dest.CopyImagePartFrom(1, 2, source.get(), 2, 1, 4, 2); // the inclusive rectangle, 3 x 2
    for (int y = 0; y < 4; ++y)
        for (int x = 0; x < 4; ++x) {
            const bool inside = x >= 1 && x <= 3 && y >= 2 && y <= 3;
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(At(dest, x, y, c), inside ? At(*source, x + 1, y - 1, c) : 0.0f)
                    << x << "," << y << "," << c;
        }
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT}) {
        SCOPED_TRACE(::testing::Message() << "transpose, type " << type);
        auto wide = PatternImage(7, 3, 4, type, 2, 1);
        DQImage tall(3, 7, 4, type, 0);
        tall.CopyTranspose(wide.get());
        for (int y = 0; y < 7; ++y)
            for (int x = 0; x < 3; ++x)
                for (int c = 0; c < 4; ++c)
                    ASSERT_EQ(At(tall, x, y, c), At(*wide, y, x, c));
    }
}

TEST_F(FillCopy, MismatchesPrintTheirMessageAndLeaveTheDestination) {
    auto floats4 = PatternImage(4, 3, 4, DQ_FLOAT, 1);
    auto bytes3 = PatternImage(4, 3, 3, DQ_UCHAR, 1);
    auto tall = PatternImage(4, 5, 4, DQ_UCHAR, 1);
    const std::string incompatible = "CopyCHannelIntoCHannel: incompatible images!\n";
    const std::pair<std::function<void(DQImage&)>, std::string> cases[] = {
        {[&](DQImage& d) { d.CopyImagePartFrom(0, 0, floats4.get(), 0, 0, 1, 1); },
         "CopyImagePartFrom: incompatible images!\n"},
        {[&](DQImage& d) { d.CopyImagePartFrom(0, 0, bytes3.get(), 0, 0, 1, 1); },
         "CopyImagePartFrom: incompatible images!\n"},
        {[&](DQImage& d) { d.CopyTranspose(PatternImage(4, 3, 4, DQ_UCHAR, 1).get()); },
         "DQImage::CopyTranspose resolutions don't match\n"},
        {[&](DQImage& d) { d.CopyChannelPlain(0, tall.get(), 0); }, incompatible},
        {[&](DQImage& d) { d.CopyChannelNormalised(0, bytes3.get(), 3); }, incompatible},
        {[&](DQImage& d) { d.CopyFrom(0, 0, bytes3.get(), 0, 0, 4, 3); }, ""},
        {[&](DQImage& d) { d.CopyCentred(bytes3.get()); }, ""},
        {[&](DQImage& d) { d.CopyFromNormalised(2, 0, floats4.get(), 0, 0, 4, 3); },
         "CopyFromNormalised: rectangle outside the images\n"},
    };
    for (const auto& [op, message] : cases) {
        SCOPED_TRACE(message);
        auto dest = PatternImage(4, 3, 4, DQ_UCHAR, 9);
        auto before = Duplicate(*dest);
        EXPECT_EQ(PrintedBy([&] { op(*dest); }), message);
        EXPECT_TRUE(SamePixels(*dest, *before));
    }
}
