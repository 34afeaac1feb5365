#include "ImagePatterns.h"
#include "TestSupport.h"

#include <array>
#include <string>
#include <tuple>

using namespace quelmor::test;

namespace {
using Bytes = std::array<uint8_t, 4>;
} // namespace

class ColourTone : public quelmor::test::ParallelTest {};

TEST_F(ColourTone, ReordersInPlace) {
    struct Case {
        const char* name;
        void (DQImage::*op)();
        Bytes out; // from the pixel {1, 2, 3, 4}
    };
    const Case cases[] = {
        {"RGBAtoABGR", &DQImage::RGBAtoABGR, {4, 3, 2, 1}},
        {"ABGRtoRGBA", &DQImage::ABGRtoRGBA, {4, 3, 2, 1}},
        {"RGBAtoARGB", static_cast<void (DQImage::*)()>(&DQImage::RGBAtoARGB), {4, 1, 2, 3}},
        {"ARGBtoRGBA", static_cast<void (DQImage::*)()>(&DQImage::ARGBtoRGBA), {2, 3, 4, 1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage image(13, 70, 4, DQ_UCHAR, 1);
        const uint8_t pixel[4] = {1, 2, 3, 4};
        image.FillPixel(pixel);
        (image.*c.op)();
        for (int y = 0; y < 70; ++y)
            for (int x = 0; x < 13; ++x) {
                const uint8_t* p = image.PixelAddress(x, y);
                ASSERT_EQ((Bytes{p[0], p[1], p[2], p[3]}), c.out) << x << "," << y;
            }
        // Other layouts are refused with a message and left as they were.
        auto shorts = PatternImage(4, 4, 4, DQ_USHORT, 2);
        auto before = Duplicate(*shorts);
        EXPECT_EQ(PrintedBy([&] { ((*shorts).*c.op)(); }),
                  std::string(c.name) +
                      " is currently designed to only work on 4chan UChar images\n");
        EXPECT_TRUE(SamePixels(*shorts, *before));
    }
}

TEST_F(ColourTone, ReordersFromASecondImageAreInverse) {
    auto source = PatternImage(17, 40, 4, DQ_UCHAR, 6);
    DQImage argb(17, 40, 4, DQ_UCHAR, 0);
    argb.RGBAtoARGB(source.get());
    const uint8_t* s = source->PixelAddress(5, 9);
    const uint8_t* a = argb.PixelAddress(5, 9);
    EXPECT_EQ((Bytes{a[0], a[1], a[2], a[3]}), (Bytes{s[3], s[0], s[1], s[2]}));
    DQImage back(17, 40, 4, DQ_UCHAR, 1);
    back.ARGBtoRGBA(&argb);
    EXPECT_TRUE(SamePixels(back, *source));
    // A second image of three channels is refused under the name of the other direction.
    auto bytes3 = PatternImage(17, 40, 3, DQ_UCHAR, 1);
    EXPECT_EQ(PrintedBy([&] { back.ARGBtoRGBA(bytes3.get()); }),
              "RGBAtoARGB is currently designed to only work on 4chan UChar images\n");
    EXPECT_TRUE(SamePixels(back, *source));
}

TEST_F(ColourTone, GammaTables) {
    // Gamma 2 lifts the darks, 0.5 squares, black and white stay.
    const struct {
        float gamma;
        int in, out;
    } cases[] = {{2.0f, 64, 128}, {0.5f, 128, 64}, {2.2f, 0, 0}, {0.45f, 255, 255}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.gamma);
        DQImage image(3, 2, 3, DQ_UCHAR, 0);
        const uint8_t pixel[3] = {static_cast<uint8_t>(c.in), static_cast<uint8_t>(c.in), 200};
        image.FillPixel(pixel);
        image.GammaChannel(1, c.gamma);
        EXPECT_EQ(At(image, 2, 1, 0), c.in) << "other channels stay";
        EXPECT_EQ(At(image, 2, 1, 1), c.out);
        image.GammaImage(c.gamma);
        EXPECT_EQ(At(image, 0, 0, 0), c.out);
    }
    auto floats = PatternImage(2, 2, 1, DQ_FLOAT, 1);
    EXPECT_EQ(PrintedBy([&] { floats->GammaImage(2.0f); }),
              "GammaChannel is currently designed to only work on UChar images\n");
}

TEST_F(ColourTone, MakeLuminance) {
    struct Case {
        const char* name;
        int type, channels;
        std::array<float, 4> pixel;
        float expected;
    };
    const Case cases[] = {
        {"uchar rgb", DQ_UCHAR, 3, {100, 200, 50, 0}, 153.5f},
        {"uchar rgba ignores alpha", DQ_UCHAR, 4, {100, 200, 50, 9}, 153.5f},
        {"one channel is itself", DQ_UCHAR, 1, {42, 0, 0, 0}, 42.0f},
        {"two channels take channel 0", DQ_USHORT, 2, {1000, 7, 0, 0}, 1000.0f},
    };
    for (const Case& c : cases) {
        for (int bottomUp : {0, 1}) {
            SCOPED_TRACE(::testing::Message() << c.name << ", bottom-up " << bottomUp);
            DQImage image(3, 2, c.channels, c.type, 1 - bottomUp);
            image.Clear();
            for (int ch = 0; ch < c.channels; ++ch)
                image.SetChannelFloat(2, 1, ch, c.pixel[ch]);
            DQImagePtr luminance = image.MakeLuminance(bottomUp);
            ASSERT_NE(luminance, nullptr);
            EXPECT_EQ(std::tuple(luminance->channels, luminance->dataType, luminance->bottomUp),
                      std::tuple(1, int(DQ_FLOAT), bottomUp));
            EXPECT_FLOAT_EQ(At(*luminance, 2, 1, 0), c.expected);
            EXPECT_EQ(At(*luminance, 0, 0, 0), 0.0f);
        }
    }
}

TEST_F(ColourTone, CompositeSourceOver) {
    struct Case {
        const char* name;
        Bytes under, over, out;
    };
    const Case cases[] = {
        {"half over", {100, 100, 100, 100}, {200, 0, 50, 128}, {150, 50, 75, 178}},
        {"transparent leaves", {10, 20, 30, 40}, {200, 200, 200, 0}, {10, 20, 30, 40}},
        {"opaque replaces", {10, 20, 30, 40}, {200, 150, 100, 255}, {200, 150, 100, 255}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage dest(4, 4, 4, DQ_UCHAR, 0);
        dest.FillPixel(c.under.data());
        DQImage source(2, 3, 4, DQ_UCHAR, 1);
        source.FillPixel(c.over.data());
        dest.Composite(&source, -1, 2); // one column and one row fall outside
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 4; ++x) {
                const bool covered = x == 0 && y >= 2;
                const Bytes& want = covered ? c.out : c.under;
                const uint8_t* p = dest.PixelAddress(x, y);
                ASSERT_EQ((Bytes{p[0], p[1], p[2], p[3]}), want) << x << "," << y;
            }
    }
    auto floats = PatternImage(2, 2, 4, DQ_FLOAT, 1);
    DQImage source(1, 1, 4, DQ_UCHAR, 0);
    EXPECT_EQ(PrintedBy([&] { floats->Composite(&source, 0, 0); }),
              "Composite is currently designed to only work on UChar images\n");
}
