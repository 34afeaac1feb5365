// Host images: initialisation from a host depth, validity, the 12-bit range stretch and copies.
#include "host/MyImage.h"
#include "tests/TestSupport.h"

#include <algorithm>

namespace {

using quelmor::test::WorkerScope;

TEST(MyImage, InitialisesFromTheHostDepth) {
    struct Case {
        const char* name;
        bool withData;
        int depth, channels, result, pixelType, valid;
    };
    const Case cases[] = {
        {"8-bit RGBA", true, 24, 4, 0, 0, 1},   {"12-bit RGBA", true, 64, 4, 0, 1, 1},
        {"half gray", true, 49, 1, 0, 2, 1},    {"null data", false, 24, 4, 1, 0, 1},
        {"two channels", true, 24, 2, 5, 0, 1}, {"unknown depth", true, 30, 4, 0, 0, 1},
    };
    for (const Case& c : cases) {
        MyImage image;
        uint8_t* pixels = c.withData ? MyAllocatePixels(4 * 4 * 3 * 4) : nullptr;
        EXPECT_EQ(image.MyInit(pixels, 4, 3, c.depth, 4 * 4 * 4, c.channels), c.result) << c.name;
        EXPECT_EQ(ZUImageIsValid(&image, 0), c.valid) << c.name;
        EXPECT_EQ(image.bufDepth, c.depth) << c.name << ": fields are stored in any case";
        EXPECT_EQ(image.buffer, pixels) << c.name << ": the image owns the pixels";
        if (c.result == 0 && c.depth != 30) {
            EXPECT_EQ(image.pixelType, c.pixelType) << c.name;
            EXPECT_EQ(image.origin, 1) << c.name;
            EXPECT_EQ(image.internal->channels, c.channels) << c.name;
        }
        if (c.depth == 30) {
            EXPECT_EQ(ZUImageGetDQImage(&image), nullptr) << c.name;
        }
    }
    EXPECT_EQ(ZUImageIsValid(nullptr, 0), 0);
}

TEST(MyImage, TwelveBitStretchConstantsAreInverse) {
    WorkerScope workers(2, 3, 1);
    MyImage image;
    uint16_t* pixels = reinterpret_cast<uint16_t*>(MyAllocatePixels(3 * 4 * 2));
    ASSERT_EQ(image.MyInit(pixels, 3, 1, 48, 3 * 8, 4), 0);
    const uint16_t start[12] = {4095, 0, 2048, 4095, 1, 4094, 100, 4095, 4095, 4095, 4095, 4095};
    std::copy(start, start + 12, pixels);
    ASSERT_EQ(ZUImageExpand(&image, kMyExpand12To16), 0);
    EXPECT_EQ(pixels[0], 65535);
    EXPECT_EQ(pixels[2], 32776) << "2048 x 16.003662109375 + 0.5";
    ASSERT_EQ(ZUImageScale(&image, kMyScale16To12, kMyMaximum12), 0);
    for (int i = 0; i < 12; ++i)
        EXPECT_EQ(pixels[i], start[i]) << "element " << i;

    EXPECT_EQ(ZUImageScale(nullptr, 1.0f, 1.0f), 5);
    EXPECT_EQ(ZUImageExpand(nullptr, 1.0f), 5);
    ASSERT_EQ(ZUImageExpand(&image, 0.0f), 0);
    EXPECT_EQ(pixels[4], 0);
    EXPECT_EQ(pixels[7], 1) << "a zero factor fills opaque black of value 1";
}

TEST(MyImage, ScaleClampsAndUnpremultipliesSixteenBitOnly) {
    WorkerScope workers(1, 2, 1);
    MyImage wide, bytes;
    uint16_t* words = reinterpret_cast<uint16_t*>(MyAllocatePixels(2 * 8));
    ASSERT_EQ(wide.MyInit(words, 2, 1, 48, 16, 4), 0);
    const uint16_t start[8] = {65535, 1000, 0, 65535, 16000, 0, 0, 32768};
    std::copy(start, start + 8, words);
    ZUImageScale(&wide, kMyScale16To12, kMyMaximum12);
    EXPECT_EQ(words[0], 4095);
    EXPECT_EQ(words[1], 62);
    // Half alpha: the colour is unpremultiplied to 31999.5 -> 32000 before scaling to 2000.
    EXPECT_EQ(words[4], 2000);
    EXPECT_EQ(words[7], 2048);

    uint8_t* pixels = MyAllocatePixels(8);
    ASSERT_EQ(bytes.MyInit(pixels, 2, 1, 24, 8, 4), 0);
    std::fill(pixels, pixels + 8, 100);
    EXPECT_EQ(ZUImageScale(&bytes, 2.0f, 255.0f), 0);
    EXPECT_EQ(ZUImageExpand(&bytes, 2.0f), 0);
    EXPECT_EQ(pixels[0], 100) << "8-bit images pass unchanged";
}

TEST(MyImage, CopyNeedsPixelsOnBothSides) {
    WorkerScope workers(1, 2, 2);
    MyImage source, destination, empty;
    uint8_t* from = MyAllocatePixels(16);
    uint8_t* to = MyAllocatePixels(16);
    std::fill(from, from + 16, 42);
    std::fill(to, to + 16, 0);
    ASSERT_EQ(source.MyInit(from, 2, 2, 24, 8, 4), 0);
    ASSERT_EQ(destination.MyInit(to, 2, 2, 24, 8, 4), 0);
    EXPECT_EQ(ZUImageCopy(&destination, &empty), 0);
    EXPECT_EQ(to[0], 0);
    EXPECT_EQ(ZUImageCopy(&destination, &source), 0);
    EXPECT_EQ(to[15], 42);
}

} // namespace
