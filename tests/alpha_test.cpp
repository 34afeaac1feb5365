#include "ImagePatterns.h"
#include "TestSupport.h"

using namespace quelmor::test;

namespace {
// One pixel: three colour channels and alpha.
struct Rgba {
    float r, g, b, a;
};

void SetPixel(DQImage& image, Rgba p) {
    const float values[4] = {p.r, p.g, p.b, p.a};
    for (int c = 0; c < 4; ++c)
        image.SetChannelFloat(0, 0, c, values[c]);
}

void ExpectPixel(const DQImage& image, Rgba expected) {
    EXPECT_FLOAT_EQ(At(image, 0, 0, 0), expected.r);
    EXPECT_FLOAT_EQ(At(image, 0, 0, 1), expected.g);
    EXPECT_FLOAT_EQ(At(image, 0, 0, 2), expected.b);
    EXPECT_FLOAT_EQ(At(image, 0, 0, 3), expected.a);
}

} // namespace

class Alpha : public quelmor::test::ParallelTest {};

TEST_F(Alpha, PremultiplyEveryEightBitPair) {
    // Every colour value against every alpha, checked against the rule: c * (a * 0.003921569),
    // plus 0.5, truncated.
    DQImage image(256, 256, 4, DQ_UCHAR, 1);
    for (int a = 0; a < 256; ++a)
        for (int c = 0; c < 256; ++c) {
            uint8_t* p = image.PixelAddress(c, a);
            p[0] = static_cast<uint8_t>(c);
            p[1] = static_cast<uint8_t>(255 - c);
            p[2] = static_cast<uint8_t>(c ^ 0x55);
            p[3] = static_cast<uint8_t>(a);
        }
    image.Premultiply();
    auto rule = [](int c, int a) {
        const float alpha = a * 0.003921569f;
        return static_cast<int>(static_cast<double>(c * alpha) + 0.5);
    };
    for (int a = 0; a < 256; ++a)
        for (int c = 0; c < 256; ++c) {
            const uint8_t* p = image.PixelAddress(c, a);
            ASSERT_EQ(p[0], rule(c, a)) << "c " << c << " a " << a;
            ASSERT_EQ(p[1], rule(255 - c, a)) << "c " << 255 - c << " a " << a;
            ASSERT_EQ(p[2], rule(c ^ 0x55, a)) << "c " << (c ^ 0x55) << " a " << a;
            ASSERT_EQ(p[3], a);
        }
}

TEST_F(Alpha, EdgeValuesPerOperationAndType) {
    enum Op { Pre, Unpre, KeepHue, Replace };
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
        {"uchar half", Pre, DQ_UCHAR, {128, 255, 1, 128}, {64, 128, 1, 128}},
        {"ushort opaque white", Pre, DQ_USHORT, {65535, 65535, 1, 65535}, {65535, 65535, 1, 65535}},
        {"ushort transparent", Pre, DQ_USHORT, {65535, 300, 1, 0}, {0, 0, 0, 0}},
        {"ushort half", Pre, DQ_USHORT, {32768, 65535, 2, 32768}, {16384, 32768, 1, 32768}},
        {"float half", Pre, DQ_FLOAT, {0.5f, 1, 0, 0.5f}, {0.25f, 0.5f, 0, 0.5f}},
        {"float beyond white unclamped", Pre, DQ_FLOAT, {2, -1, 4, 0.5f}, {1, -0.5f, 2, 0.5f}},

        {"uchar alpha 0 leaves the colour", Unpre, DQ_UCHAR, {37, 200, 255, 0}, {37, 200, 255, 0}},
        {"uchar rounds half up", Unpre, DQ_UCHAR, {64, 1, 0, 128}, {128, 2, 0, 128}},
        {"uchar clips at white", Unpre, DQ_UCHAR, {200, 101, 255, 100}, {255, 255, 255, 100}},
        {"uchar opaque", Unpre, DQ_UCHAR, {255, 3, 0, 255}, {255, 3, 0, 255}},
        {"ushort alpha 0 leaves", Unpre, DQ_USHORT, {9, 65535, 0, 0}, {9, 65535, 0, 0}},
        {"ushort never over white",
         Unpre,
         DQ_USHORT,
         {40000, 9, 30000, 30000},
         {65535, 20, 65535, 30000}},
        {"ushort rounds", Unpre, DQ_USHORT, {16384, 1, 0, 32768}, {32768, 2, 0, 32768}},
        {"float divides", Unpre, DQ_FLOAT, {0.25f, 0.1f, 0, 0.5f}, {0.5f, 0.2f, 0, 0.5f}},
        {"tiny alpha leaves", Unpre, DQ_FLOAT, {0.3f, 0.2f, 0, 5e-8f}, {0.3f, 0.2f, 0, 5e-8f}},
        {"float is not clamped", Unpre, DQ_FLOAT, {0.8f, 0, 0, 0.5f}, {1.6f, 0, 0, 0.5f}},

        // Keep-hue scales the whole colour by one factor when it would pass white.
        {"uchar over white", KeepHue, DQ_UCHAR, {200, 100, 50, 100}, {255, 128, 64, 100}},
        {"uchar within white as plain", KeepHue, DQ_UCHAR, {50, 25, 0, 100}, {128, 64, 0, 100}},
        {"uchar alpha 0 leaves", KeepHue, DQ_UCHAR, {50, 25, 7, 0}, {50, 25, 7, 0}},
        {"ushort over", KeepHue, DQ_USHORT, {30000, 10000, 0, 20000}, {65535, 21845, 0, 20000}},
        {"ushort small colours", KeepHue, DQ_USHORT, {10, 20, 30, 65535}, {10, 20, 30, 65535}},
        {"float over white", KeepHue, DQ_FLOAT, {0.8f, 0.4f, 0.2f, 0.5f}, {1, 0.5f, 0.25f, 0.5f}},
        {"float within", KeepHue, DQ_FLOAT, {0.2f, 0.1f, 0.05f, 0.5f}, {0.4f, 0.2f, 0.1f, 0.5f}},

        // Replace moves the colour to the alpha of the second image.
        {"uchar halves", Replace, DQ_UCHAR, {100, 51, 0, 200}, {50, 26, 0, 100}, 100},
        {"uchar doubles", Replace, DQ_UCHAR, {100, 50, 1, 100}, {200, 100, 2, 200}, 200},
        {"uchar equal alpha passes", Replace, DQ_UCHAR, {100, 50, 1, 100}, {100, 50, 1, 100}, 100},
        {"uchar old alpha 0 passes", Replace, DQ_UCHAR, {100, 50, 1, 0}, {100, 50, 1, 0}, 100},
        {"ushort", Replace, DQ_USHORT, {30000, 0, 65535, 65535}, {15000, 0, 32768, 32768}, 32768},
        {"float", Replace, DQ_FLOAT, {0.5f, 0.25f, 0, 0.5f}, {1, 0.5f, 0, 1}, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage image(1, 1, 4, c.type, 0);
        SetPixel(image, c.in);
        DQImage alpha(1, 1, 4, c.type, 0);
        SetPixel(alpha, {0, 0, 0, c.newAlpha});
        switch (c.op) {
        case Pre:
            image.Premultiply();
            break;
        case Unpre:
            image.Unpremultiply();
            break;
        case KeepHue:
            image.UnpremultiplyKeepHue();
            break;
        case Replace:
            image.ReplaceAlphaScale(&alpha);
            break;
        }
        ExpectPixel(image, c.out);
    }
}

TEST_F(Alpha, OtherLayoutsAreLeftAlone) {
    struct Case {
        const char* name;
        int type, channels;
        float whitePoint; // 0: the type's own
    };
    const Case cases[] = {
        {"float with white 255", DQ_FLOAT, 4, 255.0f},
        {"three channels", DQ_UCHAR, 3, 0},
        {"two channels", DQ_USHORT, 2, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
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
