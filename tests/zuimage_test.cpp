#include "TestSupport.h"

#include <cstdlib>
#include <tuple>
#include <vector>

namespace {
// An allocator that refuses everything, to make the bridge allocation fail.
void* Refuse(void*, size_t) {
    return nullptr;
}
void Release(void*, void* pointer) {
    std::free(pointer);
}
} // namespace

TEST(ZUImageBridge, ResetGivesAFreshOwnedBridge) {
    ZUImage image;
    ASSERT_EQ(ZUImageReset(&image), 0);
    ASSERT_NE(image.internal, nullptr);
    EXPECT_EQ(image.ownsInternal, 1);
    EXPECT_EQ(image.internal->data, nullptr);
    ASSERT_EQ(ZUImageReset(&image), 0); // the first bridge is deleted, not leaked

    ZUMemSetAllocator(nullptr, Refuse, Release);
    const int result = ZUImageReset(&image);
    ZUMemSetAllocator(nullptr, nullptr, nullptr);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(image.internal, nullptr);
    EXPECT_EQ(image.ownsInternal, 0);
}

TEST(ZUImageBridge, InitialisersSetLayoutAndPublicCopies) {
    using Init = int (*)(ZUImage*, void*, int, int, int, int, int);
    struct Case {
        int channels;
        Init init;
        std::tuple<int, int, int, int, int, int> roles; // straight, alpha, r, g, b, a indices
    };
    const Init rgba = [](ZUImage* i, void* p, int w, int h, int rb, int o, int t) {
        return ZUImageInitRGBA(i, p, w, h, rb, o, t, 1, 1, 0, 1, 2, 3);
    };
    // The alpha and straight flags count only when exactly 1.
    const Init oddFlags = [](ZUImage* i, void* p, int w, int h, int rb, int o, int t) {
        return ZUImageInitRGBA(i, p, w, h, rb, o, t, 2, 7, 3, 2, 1, 0);
    };
    const Case cases[] = {
        {1, ZUImageInitGray, {1, 0, 0, 0, 0, 0}}, {2, ZUImageInitTwoChannel, {1, 0, 0, 1, 0, 0}},
        {3, ZUImageInitRGB, {1, 0, 0, 1, 2, 0}},  {4, rgba, {1, 1, 0, 1, 2, 3}},
        {4, oddFlags, {0, 0, 3, 2, 1, 0}},
    };
    std::vector<float> pixels(64 * 64 * 4);
    for (const Case& c : cases) {
        for (int origin : {0, 1}) {
            SCOPED_TRACE(::testing::Message() << c.channels << " ch, origin " << origin);
            ZUImage image;
            ASSERT_EQ(ZUImageReset(&image), 0);
            const int rowBytes = 64 * 16; // a pitch wider than the pixels
            ASSERT_EQ(c.init(&image, pixels.data(), 10, 7, rowBytes, origin, 2), 0);
            const ZUImageInternal* b = image.internal;
            EXPECT_EQ(std::tuple(b->channels, b->dataType, b->bottomUp, b->rowBytes),
                      std::tuple(c.channels, int(DQ_FLOAT), origin == 1 ? 0 : 1, rowBytes));
            EXPECT_EQ(std::tuple(b->straightFlag, b->hasAlpha, b->redIndex, b->greenIndex,
                                 b->blueIndex, b->alphaIndex),
                      c.roles);
            EXPECT_EQ(std::tuple(image.width, image.height, image.pixelBytes, image.lastRow,
                                 image.lastColumn, image.origin, image.pixelType, image.rowStep),
                      std::tuple(10, 7, 4 * c.channels, 6, 9, origin, 2, b->rowStep));
            EXPECT_EQ(ZUImageGetDQImage(&image), b);
        }
    }
}

TEST(ZUImageBridge, WithoutABridge) {
    uint8_t pixels[4] = {};
    ZUImage image;
    EXPECT_EQ(ZUImageInitGray(&image, pixels, 2, 2, 2, 1, 0), kDQErrBadArgument);
    EXPECT_EQ(ZUImageInitRGB(&image, pixels, 1, 1, 3, 1, 0), kDQErrBadArgument);
    try {
        ZUImageSyncFields(&image, 1, 0);
        ADD_FAILURE() << "syncing without a bridge must throw";
    } catch (DQErr code) {
        EXPECT_EQ(code, kDQErrBadArgument);
    }
    EXPECT_EQ(ZUImageGetDQImage(&image), nullptr);
    EXPECT_EQ(ZUImageGetDQImage(nullptr), nullptr);
    EXPECT_THROW(ZUImagePixelTypeToDataType(3), DQErr);
    EXPECT_THROW(ZUImageOriginToBottomUp(2), DQErr);
    // A bridge over an image of zero size counts as none.
    ASSERT_EQ(ZUImageReset(&image), 0);
    ZUImageInitGray(&image, pixels, 0, 2, 2, 1, 0);
    EXPECT_EQ(ZUImageGetDQImage(&image), nullptr);
}

TEST(ZUImageBridge, WrappingADQImageViewsItsPixels) {
    for (int channels : {1, 2, 3, 4}) {
        for (int bottomUp : {0, 1}) {
            SCOPED_TRACE(::testing::Message() << channels << " ch, bottom-up " << bottomUp);
            DQImage source(6, 5, channels, DQ_USHORT, bottomUp);
            source.Clear();
            source.SetChannelFloat(4, 3, channels - 1, 777.0f);
            ZUImage image;
            ZUImageFromDQImage(&image, &source);
            DQImage* bridge = ZUImageGetDQImage(&image);
            ASSERT_NE(bridge, nullptr);
            EXPECT_EQ(std::tuple(image.data, image.origin, image.pixelType, bridge->channels),
                      std::tuple(source.data, bottomUp ? 0 : 1, 1, channels));
            float v = 0;
            bridge->GetChannelFloat(4, 3, &v, channels - 1);
            EXPECT_EQ(v, 777.0f) << "the bridge sees the same picture";
        }
    }
    // A bridge object is borrowed as it is, and outlives the descriptor.
    DQImage pixels(3, 3, 4, DQ_UCHAR, 0);
    ZUImageInternal own(pixels);
    {
        ZUImage image;
        ZUImageFromDQImage(&image, &own);
        EXPECT_EQ(image.internal, &own);
        EXPECT_EQ(image.ownsInternal, 0);
        EXPECT_EQ(own.alphaIndex, 3);
    }
    EXPECT_EQ(own.width, 3);
}
