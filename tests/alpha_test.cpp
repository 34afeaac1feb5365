#include "ImagePatterns.h"
#include "TestSupport.h"

#include <array>

using namespace quelmor::test;

class Alpha : public quelmor::test::ParallelTest {};

TEST_F(Alpha, EdgeValuesPerOperationAndType) {
    using Op = void (*)(DQImage&, DQImage&);
    const Op Pre = [](DQImage& i, DQImage&) { i.Premultiply(); };
    const Op Unpre = [](DQImage& i, DQImage&) { i.Unpremultiply(); };
    const Op KeepHue = [](DQImage& i, DQImage&) { i.UnpremultiplyKeepHue(); };
    const Op Replace = [](DQImage& i, DQImage& a) { i.ReplaceAlphaScale(&a); };
    using Rgba = std::array<float, 4>;
    struct Case {
        const char* name;
        Op op;
        int type;
        Rgba in, out;
        float newAlpha = 0; // Replace: the alpha of the second image
    };
    const Case cases[] = {
        {"uchar opaque white", Pre, DQ_UCHAR, {255, 255, 255, 255}, {255, 255, 255, 255}},
        {"uchar transparent", Pre, DQ_UCHAR, {255, 17, 1, 0}, {0, 0, 0, 0}},
        {"uchar half rounds", Pre, DQ_UCHAR, {128, 255, 1, 128}, {64, 128, 1, 128}},
        {"ushort opaque white", Pre, DQ_USHORT, {65535, 65535, 1, 65535}, {65535, 65535, 1, 65535}},
        {"ushort half", Pre, DQ_USHORT, {32768, 65535, 2, 32768}, {16384, 32768, 1, 32768}},
        {"float beyond white unclamped", Pre, DQ_FLOAT, {2, -1, 4, 0.5f}, {1, -0.5f, 2, 0.5f}},
        {"uchar alpha 0 leaves the colour", Unpre, DQ_UCHAR, {37, 200, 255, 0}, {37, 200, 255, 0}},
        {"uchar rounds half up", Unpre, DQ_UCHAR, {64, 1, 0, 128}, {128, 2, 0, 128}},
        {"uchar clips at white", Unpre, DQ_UCHAR, {200, 101, 255, 100}, {255, 255, 255, 100}},
        {"ushort clips", Unpre, DQ_USHORT, {40000, 9, 30000, 30000}, {65535, 20, 65535, 30000}},
        {"ushort rounds", Unpre, DQ_USHORT, {16384, 1, 0, 32768}, {32768, 2, 0, 32768}},
        {"tiny alpha leaves", Unpre, DQ_FLOAT, {0.3f, 0.2f, 0, 5e-8f}, {0.3f, 0.2f, 0, 5e-8f}},
        {"float is not clamped", Unpre, DQ_FLOAT, {0.8f, 0.1f, 0, 0.5f}, {1.6f, 0.2f, 0, 0.5f}},
        // Keep-hue scales the whole colour by one factor when it would pass white.
        {"uchar over white", KeepHue, DQ_UCHAR, {200, 100, 50, 100}, {255, 128, 64, 100}},
        {"uchar within white as plain", KeepHue, DQ_UCHAR, {50, 25, 0, 100}, {128, 64, 0, 100}},
        {"uchar alpha 0 leaves", KeepHue, DQ_UCHAR, {50, 25, 7, 0}, {50, 25, 7, 0}},
        {"ushort over", KeepHue, DQ_USHORT, {30000, 10000, 0, 20000}, {65535, 21845, 0, 20000}},
        {"float over white", KeepHue, DQ_FLOAT, {0.8f, 0.4f, 0.2f, 0.5f}, {1, 0.5f, 0.25f, 0.5f}},
        // Replace moves the colour to the alpha of the second image.
        {"uchar halves", Replace, DQ_UCHAR, {100, 51, 0, 200}, {50, 26, 0, 100}, 100},
        {"uchar doubles", Replace, DQ_UCHAR, {100, 50, 1, 100}, {200, 100, 2, 200}, 200},
        {"uchar old alpha 0 passes", Replace, DQ_UCHAR, {100, 50, 1, 0}, {100, 50, 1, 0}, 100},
        {"ushort", Replace, DQ_USHORT, {30000, 0, 65535, 65535}, {15000, 0, 32768, 32768}, 32768},
        {"float", Replace, DQ_FLOAT, {0.5f, 0.25f, 0, 0.5f}, {1, 0.5f, 0, 1}, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage image(1, 1, 4, c.type, 0);
        DQImage alpha(1, 1, 4, c.type, 0);
        for (int ch = 0; ch < 4; ++ch) {
            image.SetChannelFloat(0, 0, ch, c.in[ch]);
            alpha.SetChannelFloat(0, 0, ch, ch == 3 ? c.newAlpha : 0.0f);
        }
        c.op(image, alpha);
        for (int ch = 0; ch < 4; ++ch)
            EXPECT_FLOAT_EQ(At(image, 0, 0, ch), c.out[ch]) << "channel " << ch;
    }
}

TEST_F(Alpha, OtherLayoutsAreLeftAlone) {
    // A float image with white 255, three channels, two channels: every alpha operation passes.
    const struct {
        int type, channels;
        float whitePoint; // 0: the type's own
    } cases[] = {{DQ_FLOAT, 4, 255.0f}, {DQ_UCHAR, 3, 0}, {DQ_USHORT, 2, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.type << ", " << c.channels << " ch");
        auto image = PatternImage(20, 40, c.channels, c.type, 4);
        if (c.whitePoint) image->whitePoint = c.whitePoint;
        auto before = Duplicate(*image);
        image->Premultiply();
        image->Unpremultiply();
        image->UnpremultiplyKeepHue();
        image->ReplaceAlphaScale(before.get());
        EXPECT_TRUE(SamePixels(*image, *before));
    }
}

TEST_F(Alpha, EightBitRoundTripRestoresPremultipliedColour) {
    // Colour already premultiplied (c <= a) survives unpremultiply then premultiply.
    DQImage image(256, 256, 4, DQ_UCHAR, 0);
    for (int a = 0; a < 256; ++a)
        for (int c = 0; c < 256; ++c) {
            uint8_t* p = image.PixelAddress(c, a);
            p[0] = p[1] = p[2] = static_cast<uint8_t>(c <= a ? c : a);
            p[3] = static_cast<uint8_t>(a);
        }
    auto before = Duplicate(image);
    image.Unpremultiply();
    image.Premultiply();
    for (int a = 1; a < 256; ++a)
        for (int c = 0; c < 256; ++c)
            ASSERT_EQ(image.PixelAddress(c, a)[0], before->PixelAddress(c, a)[0])
                << "c " << c << " a " << a;
}
