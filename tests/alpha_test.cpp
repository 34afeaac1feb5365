#include "ImagePatterns.h"
#include "TestSupport.h"

#include <vector>

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

struct PixelCase {
    const char* name;
    int type;
    Rgba in, out;
};

template <class Op>
void RunPixelCases(const std::vector<PixelCase>& cases, Op op) {
    for (const PixelCase& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage image(1, 1, 4, c.type, 0);
        SetPixel(image, c.in);
        op(image);
        ExpectPixel(image, c.out);
    }
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

TEST_F(Alpha, PremultiplyEdgeValues) {
    RunPixelCases(
        {
            {"uchar opaque white", DQ_UCHAR, {255, 255, 255, 255}, {255, 255, 255, 255}},
            {"uchar transparent", DQ_UCHAR, {255, 17, 1, 0}, {0, 0, 0, 0}},
            {"uchar half", DQ_UCHAR, {128, 255, 1, 128}, {64, 128, 1, 128}},
            {"ushort opaque white", DQ_USHORT, {65535, 65535, 1, 65535}, {65535, 65535, 1, 65535}},
            {"ushort transparent", DQ_USHORT, {65535, 300, 1, 0}, {0, 0, 0, 0}},
            {"ushort half", DQ_USHORT, {32768, 65535, 2, 32768}, {16384, 32768, 1, 32768}},
            {"float half", DQ_FLOAT, {0.5f, 1.0f, 0.0f, 0.5f}, {0.25f, 0.5f, 0.0f, 0.5f}},
            {"float beyond white is not clamped",
             DQ_FLOAT,
             {2.0f, -1.0f, 4.0f, 0.5f},
             {1.0f, -0.5f, 2.0f, 0.5f}},
        },
        [](DQImage& image) { image.Premultiply(); });
}

TEST_F(Alpha, UnpremultiplyEdgeValues) {
    RunPixelCases(
        {
            {"uchar alpha 0 leaves the colour", DQ_UCHAR, {37, 200, 255, 0}, {37, 200, 255, 0}},
            {"uchar rounds half up", DQ_UCHAR, {64, 1, 0, 128}, {128, 2, 0, 128}},
            {"uchar clips at white", DQ_UCHAR, {200, 101, 255, 100}, {255, 255, 255, 100}},
            {"uchar opaque", DQ_UCHAR, {255, 3, 0, 255}, {255, 3, 0, 255}},
            {"ushort alpha 0 leaves the colour", DQ_USHORT, {9, 65535, 0, 0}, {9, 65535, 0, 0}},
            {"ushort never exceeds white",
             DQ_USHORT,
             {40000, 65535, 30000, 30000},
             {65535, 65535, 65535, 30000}},
            {"ushort rounds", DQ_USHORT, {16384, 1, 0, 32768}, {32768, 2, 0, 32768}},
            {"float divides", DQ_FLOAT, {0.25f, 0.1f, 0.0f, 0.5f}, {0.5f, 0.2f, 0.0f, 0.5f}},
            {"float tiny alpha leaves",
             DQ_FLOAT,
             {0.3f, 0.2f, 0.1f, 5e-8f},
             {0.3f, 0.2f, 0.1f, 5e-8f}},
            {"float is not clamped", DQ_FLOAT, {0.8f, 0.0f, 0.0f, 0.5f}, {1.6f, 0.0f, 0.0f, 0.5f}},
        },
        [](DQImage& image) { image.Unpremultiply(); });
}

TEST_F(Alpha, UnpremultiplyKeepHueScalesTheWholeColour) {
    RunPixelCases(
        {
            {"uchar over white keeps ratios", DQ_UCHAR, {200, 100, 50, 100}, {255, 128, 64, 100}},
            {"uchar within white as plain", DQ_UCHAR, {50, 25, 0, 100}, {128, 64, 0, 100}},
            {"uchar alpha 0 leaves", DQ_UCHAR, {50, 25, 7, 0}, {50, 25, 7, 0}},
            {"ushort over white", DQ_USHORT, {30000, 10000, 0, 20000}, {65535, 21845, 0, 20000}},
            {"ushort small colours are not scaled",
             DQ_USHORT,
             {10, 20, 30, 65535},
             {10, 20, 30, 65535}},
            {"float over white", DQ_FLOAT, {0.8f, 0.4f, 0.2f, 0.5f}, {1.0f, 0.5f, 0.25f, 0.5f}},
            {"float within white", DQ_FLOAT, {0.2f, 0.1f, 0.05f, 0.5f}, {0.4f, 0.2f, 0.1f, 0.5f}},
        },
        [](DQImage& image) { image.UnpremultiplyKeepHue(); });
}

TEST_F(Alpha, ReplaceAlphaScaleMovesColourToTheNewAlpha) {
    struct Case {
        const char* name;
        int type;
        Rgba in;
        float newAlpha;
        Rgba out;
    };
    const Case cases[] = {
        {"uchar halves", DQ_UCHAR, {100, 51, 0, 200}, 100, {50, 26, 0, 100}},
        {"uchar doubles", DQ_UCHAR, {100, 50, 1, 100}, 200, {200, 100, 2, 200}},
        {"uchar equal alpha passes", DQ_UCHAR, {100, 50, 1, 100}, 100, {100, 50, 1, 100}},
        {"uchar old alpha 0 passes", DQ_UCHAR, {100, 50, 1, 0}, 100, {100, 50, 1, 0}},
        {"ushort", DQ_USHORT, {30000, 0, 65535, 65535}, 32768, {15000, 0, 32768, 32768}},
        {"float", DQ_FLOAT, {0.5f, 0.25f, 0.0f, 0.5f}, 1.0f, {1.0f, 0.5f, 0.0f, 1.0f}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage image(1, 1, 4, c.type, 0);
        SetPixel(image, c.in);
        DQImage alpha(1, 1, 4, c.type, 0);
        SetPixel(alpha, {0, 0, 0, c.newAlpha});
        image.ReplaceAlphaScale(&alpha);
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
