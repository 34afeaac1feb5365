// SmartBlend and SmartBlendAlphaFirst: pixels covered by one frame, both, neither and partly, for
// every element type of the images and of the masks, and the refusal of images that do not fit.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "engine/SmartBlend.h"

#include <array>
#include <cmath>

using namespace quelmor::test;

namespace {

constexpr int kTypes[] = {DQ_UCHAR, DQ_USHORT, DQ_FLOAT};

// Values below are written on the 8-bit scale; this is their size in each element type (255 is
// exactly full in all three).
float ScaleOf(int type) {
    return type == DQ_UCHAR ? 1.0f : type == DQ_USHORT ? 257.0f : 1.0f / 255.0f;
}
float InType(float eightBit, int type) {
    return type == DQ_FLOAT ? eightBit / 255.0f : eightBit * ScaleOf(type);
}
float WhiteOf(int type) {
    return type == DQ_UCHAR ? 255.0f : type == DQ_USHORT ? 65535.0f : 1.0f;
}
// Integer stores round to the nearest step; floats keep the value.
float ToleranceOf(int type) {
    return type == DQ_FLOAT ? 1e-5f : 0.52f;
}

DQImagePtr Pixels(int type, int channels, std::initializer_list<float> eightBit) {
    std::vector<float> scaled;
    for (float v : eightBit)
        scaled.push_back(InType(v, type));
    DQImagePtr image = DQMakeImage(3, 2, channels, type);
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            for (int c = 0; c < channels; ++c)
                image->SetChannelFloat(x, y, c, scaled[c]);
    return image;
}

// The expected value, on the 8-bit scale before rounding, limited to the type's range.
void ExpectPixel(const DQImage& image, std::initializer_list<float> eightBit, const char* name) {
    int c = 0;
    for (float v : eightBit) {
        const float expected = std::clamp(InType(v, image.dataType), 0.0f, WhiteOf(image.dataType));
        for (int y = 0; y < image.height; ++y)
            for (int x = 0; x < image.width; ++x)
                EXPECT_NEAR(At(image, x, y, c), expected, ToleranceOf(image.dataType))
                    << name << ", type " << image.dataType << ", channel " << c << " at " << x
                    << "," << y;
        ++c;
    }
}

struct PixelCase {
    const char* name;
    std::initializer_list<float> a, b;
    float t;
    std::initializer_list<float> expected;
};

TEST(SmartBlend, FourChannelsMixWhatEachFrameCovers) {
    // Premultiplied colour, alpha last; t is the share of b.
    const PixelCase cases[] = {
        {"both cover: a dissolve",
         {100, 50, 0, 255},
         {200, 150, 100, 255},
         0.25f,
         {125, 75, 25, 255}},
        {"only a covers: a, whatever t",
         {200, 100, 50, 255},
         {90, 90, 90, 0},
         0.7f,
         {200, 100, 50, 255}},
        {"only b covers: b", {0, 0, 0, 0}, {10, 20, 30, 255}, 0.1f, {10, 20, 30, 255}},
        {"neither covers: nothing", {0, 0, 0, 0}, {0, 0, 0, 0}, 0.5f, {0, 0, 0, 0}},
        {"a partly, b not at all: a as it is",
         {60, 30, 0, 100},
         {0, 0, 0, 0},
         0.5f,
         {60, 30, 0, 100}},
        // a in front lets b through where a is thin; the mix keeps the better coverage, 255.
        {"a opaque, b partly",
         {200, 100, 50, 255},
         {40, 40, 40, 100},
         0.5f,
         {180.78431f, 100.39216f, 60.19608f, 255}},
        // Both composites have alpha 191.75; the result keeps 128, the colours scaled to fit.
        {"both half covered", {64, 32, 0, 128}, {0, 64, 128, 128}, 0.5f, {32, 48, 64, 128}},
        {"both partly, unequal",
         {60, 30, 0, 100},
         {100, 50, 20, 200},
         0.25f,
         {107.25664f, 53.62832f, 12.74336f, 200}},
        {"t beyond 1 extrapolates and is limited",
         {100, 100, 100, 255},
         {200, 50, 0, 255},
         1.5f,
         {250, 25, 0, 255}},
        {"t below 0 extrapolates and is limited",
         {100, 100, 100, 255},
         {200, 50, 0, 255},
         -1.5f,
         {0, 175, 250, 255}},
    };
    for (int type : kTypes)
        for (const PixelCase& c : cases) {
            DQImagePtr a = Pixels(type, 4, c.a), b = Pixels(type, 4, c.b);
            DQImagePtr dest = Solid(3, 2, 4, type, 0.5f * WhiteOf(type));
            // The masks are not read with four channels: garbage or none gives the same.
            DQImagePtr garbage = PatternImage(3, 2, 1, DQ_UCHAR, 9);
            SmartBlend(dest.get(), a.get(), b.get(), garbage.get(), nullptr, c.t);
            ExpectPixel(*dest, c.expected, c.name);
        }
}

TEST(SmartBlend, OtherChannelCountsMixByTheMasksOfEveryType) {
    struct MaskCase {
        const char* name;
        float a, b;
        float maskA, maskB; // fractions of full coverage
        float t;
        float expected;
    };
    // Partial: ra = 0.8, rb = 0.4, ((a rb + b) t) + ((b ra + a) (1 - t)).
    const MaskCase cases[] = {
        {"both full: a dissolve", 100, 200, 1, 1, 0.25f, 125},
        {"only a: a", 100, 200, 1, 0, 0.9f, 100},
        {"only b: b", 100, 200, 0, 1, 0.1f, 200},
        {"neither: b", 100, 200, 0, 0, 0.1f, 200},
        {"a partly, b not: a", 100, 200, 0.2f, 0, 0.5f, 100},
        {"both partly", 50, 100, 0.2f, 0.6f, 0.5f, 125},
        {"both partly, limited at white", 200, 250, 0.2f, 0.6f, 0.5f, 365},
        {"one full, one partly", 50, 100, 1, 0.6f, 0.5f, 85},
    };
    for (int channels : {1, 3})
        for (int type : kTypes)
            for (int maskType : kTypes)
                for (const MaskCase& c : cases) {
                    SCOPED_TRACE(testing::Message()
                                 << channels << " channels, mask type " << maskType);
                    DQImagePtr a = Solid(3, 2, channels, type, InType(c.a, type));
                    DQImagePtr b = Solid(3, 2, channels, type, InType(c.b, type));
                    DQImagePtr ma = Solid(3, 2, 1, maskType, c.maskA * WhiteOf(maskType));
                    DQImagePtr mb = Solid(3, 2, 1, maskType, c.maskB * WhiteOf(maskType));
                    DQImagePtr dest = Solid(3, 2, channels, type, 0.0f);
                    SmartBlend(dest.get(), a.get(), b.get(), ma.get(), mb.get(), c.t);
                    ExpectPixel(*dest,
                                channels == 1 ? std::initializer_list<float>{c.expected}
                                              : std::initializer_list<float>{c.expected, c.expected,
                                                                             c.expected},
                                c.name);
                }
}

TEST(SmartBlend, EachPixelFollowsItsOwnCoverage) {
    // One row: covered by both, by a, by b, by neither; the masks change pixel by pixel.
    DQImagePtr a = Solid(4, 1, 3, DQ_UCHAR, 40.0f), b = Solid(4, 1, 3, DQ_UCHAR, 200.0f);
    DQImagePtr ma = DQMakeImage(4, 1, 1, DQ_UCHAR), mb = DQMakeImage(4, 1, 1, DQ_UCHAR);
    const uint8_t coverA[] = {255, 255, 0, 0}, coverB[] = {255, 0, 255, 0};
    for (int x = 0; x < 4; ++x) {
        ma->Row<uint8_t>(0)[x] = coverA[x];
        mb->Row<uint8_t>(0)[x] = coverB[x];
    }
    DQImagePtr dest = DQMakeImage(4, 1, 3, DQ_UCHAR);
    SmartBlend(dest.get(), a.get(), b.get(), ma.get(), mb.get(), 0.5f);
    const float expected[] = {120, 40, 200, 200};
    for (int x = 0; x < 4; ++x)
        EXPECT_EQ(At(*dest, x, 0, 1), expected[x]) << "pixel " << x;
}

TEST(SmartBlendAlphaFirst, AFrameCountsOnlyWhereItsAlphaIsFull) {
    // Alpha first, then three premultiplied channels.
    const PixelCase cases[] = {
        {"both full: a dissolve",
         {255, 100, 50, 0},
         {255, 200, 150, 100},
         0.5f,
         {255, 150, 100, 50}},
        // Over the full a, b is composited in one picture; the other is a alone.
        {"a full, b partly",
         {255, 200, 100, 0},
         {128, 40, 40, 40},
         0.5f,
         {255, 169.80392f, 94.90196f, 20}},
        {"b full, a not at all", {0, 0, 0, 0}, {255, 10, 20, 30}, 0.2f, {255, 10, 20, 30}},
        {"both partly: nothing", {128, 60, 60, 60}, {200, 80, 80, 80}, 0.5f, {0, 0, 0, 0}},
        {"neither", {0, 0, 0, 0}, {0, 0, 0, 0}, 0.5f, {0, 0, 0, 0}},
    };
    for (int type : kTypes)
        for (const PixelCase& c : cases) {
            DQImagePtr a = Pixels(type, 4, c.a), b = Pixels(type, 4, c.b);
            DQImagePtr dest = Solid(3, 2, 4, type, 0.5f * WhiteOf(type));
            std::string printed = PrintedBy(
                [&] { SmartBlendAlphaFirst(dest.get(), a.get(), b.get(), nullptr, nullptr, c.t); });
            EXPECT_EQ(printed, "") << c.name;
            ExpectPixel(*dest, c.expected, c.name);
        }
}

TEST(SmartBlendAlphaFirst, OtherChannelCountsUseTheMasks) {
    DQImagePtr a = Solid(3, 2, 3, DQ_USHORT, 1000.0f), b = Solid(3, 2, 3, DQ_USHORT, 3000.0f);
    DQImagePtr ma = Solid(3, 2, 1, DQ_FLOAT, 1.0f), mb = Solid(3, 2, 1, DQ_FLOAT, 0.0f);
    DQImagePtr dest = Solid(3, 2, 3, DQ_USHORT, 0.0f);
    SmartBlendAlphaFirst(dest.get(), a.get(), b.get(), ma.get(), mb.get(), 0.5f);
    EXPECT_EQ(At(*dest, 2, 1, 2), 1000.0f);
}

TEST(SmartBlend, ImagesThatDoNotFitClearTheDestinationAndNothingElse) {
    struct Refusal {
        const char* name;
        int bType, bWidth, bChannels, maskWidth;
        bool maskB;
        int maskBType;
        float t;
        int channels;
    };
    const Refusal cases[] = {
        {"b of another element type", DQ_USHORT, 6, 4, 6, true, DQ_UCHAR, 0.5f, 4},
        {"b of another width", DQ_UCHAR, 5, 4, 6, true, DQ_UCHAR, 0.5f, 4},
        {"b of another channel count", DQ_UCHAR, 6, 3, 6, true, DQ_UCHAR, 0.5f, 4},
        {"three channels without mask b", DQ_UCHAR, 6, 3, 6, false, DQ_UCHAR, 0.5f, 3},
        {"three channels, masks of another size", DQ_UCHAR, 6, 3, 5, true, DQ_UCHAR, 0.5f, 3},
        {"three channels, masks of two types", DQ_UCHAR, 6, 3, 6, true, DQ_FLOAT, 0.5f, 3},
        {"a weight that is not a number", DQ_UCHAR, 6, 4, 6, true, DQ_UCHAR, std::nanf(""), 4},
    };
    for (bool alphaFirst : {false, true})
        for (const Refusal& c : cases) {
            DQImagePtr a = PatternImage(6, 4, c.channels, DQ_UCHAR, 1);
            DQImagePtr b = PatternImage(c.bWidth, 4, c.bChannels, c.bType, 2);
            DQImagePtr ma = Solid(c.maskWidth, 4, 1, DQ_UCHAR, 255.0f);
            DQImagePtr mb = Solid(c.maskWidth, 4, 1, c.maskBType, 1.0f);
            DQImagePtr dest = PatternImage(6, 4, c.channels, DQ_UCHAR, 3);
            DQImagePtr aBefore = Duplicate(*a), bBefore = Duplicate(*b);
            const DQImage* maskB = c.maskB ? mb.get() : nullptr;
            if (alphaFirst)
                SmartBlendAlphaFirst(dest.get(), a.get(), b.get(), ma.get(), maskB, c.t);
            else
                SmartBlend(dest.get(), a.get(), b.get(), ma.get(), maskB, c.t);
            EXPECT_TRUE(SamePixels(*dest, *Solid(6, 4, c.channels, DQ_UCHAR, 0.0f)))
                << c.name << (alphaFirst ? ", alpha first" : "");
            EXPECT_TRUE(SamePixels(*a, *aBefore) && SamePixels(*b, *bBefore)) << c.name;
        }
    // No destination, or no inputs: nothing to do, nothing crashes.
    DQImagePtr a = PatternImage(6, 4, 4, DQ_UCHAR, 1);
    SmartBlend(nullptr, a.get(), a.get(), nullptr, nullptr, 0.5f);
    DQImagePtr dest = PatternImage(6, 4, 4, DQ_UCHAR, 3);
    SmartBlend(dest.get(), nullptr, a.get(), nullptr, nullptr, 0.5f);
    EXPECT_TRUE(SamePixels(*dest, *Solid(6, 4, 4, DQ_UCHAR, 0.0f)));
}

TEST(SmartBlend, FullyCoveredPixelsEqualTheDissolveOfEveryType) {
    // Over a whole picture of opaque pixels the rule is a plain dissolve, rounded half up.
    for (int type : kTypes) {
        DQImagePtr a = PatternImage(17, 5, 4, type, 4), b = PatternImage(17, 5, 4, type, 5);
        for (DQImage* image : {a.get(), b.get()})
            for (int y = 0; y < 5; ++y)
                for (int x = 0; x < 17; ++x)
                    image->SetChannelFloat(x, y, 3, WhiteOf(type));
        // Keep the colours premultiplied: each at most the alpha, which is full.
        DQImagePtr dest = DQMakeImage(17, 5, 4, type);
        SmartBlend(dest.get(), a.get(), b.get(), nullptr, nullptr, 0.3f);
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 17; ++x)
                for (int c = 0; c < 4; ++c) {
                    const float va = At(*a, x, y, c), vb = At(*b, x, y, c);
                    float expected = va + (vb - va) * 0.3f;
                    if (type != DQ_FLOAT) expected = std::floor(expected + 0.5f);
                    EXPECT_NEAR(At(*dest, x, y, c), expected, type == DQ_FLOAT ? 1e-6f : 0.0f)
                        << "type " << type << " at " << x << "," << y << " channel " << c;
                }
    }
}

// The four-channel rule pixel by pixel in float, as written out for one pixel: X with a in front,
// Y with b in front, their mix lifted to the coverage of the better frame.
void ReferencePremultiplied(const float* a, const float* b, float t, float white, bool integer,
                            float* out) {
    auto over = [&](const float* front, const float* back, float* x) {
        if (front[3] <= 0.0f) {
            std::copy(back, back + 4, x);
        } else if (front[3] >= white) {
            std::copy(front, front + 4, x);
        } else {
            const float f = front[3] / white;
            for (int c = 0; c < 3; ++c)
                x[c] = back[c] * (1.0f - f) + front[c];
            x[3] = (white - back[3]) * f + back[3];
        }
    };
    float x[4], y[4], m[4];
    over(a, b, x);
    over(b, a, y);
    for (int c = 0; c < 4; ++c)
        m[c] = x[c] + (y[c] - x[c]) * t;
    const float top = std::max(a[3], b[3]);
    bool truncate = false;
    if (m[3] != top) {
        if (m[3] == 0.0f) {
            std::copy(x[3] > y[3] ? x : y, (x[3] > y[3] ? x : y) + 4, m);
            truncate = true;
        } else {
            for (int c = 0; c < 3; ++c)
                m[c] *= top / m[3];
            m[3] = top;
        }
    }
    for (int c = 0; c < 4; ++c) {
        const float v = integer && !truncate ? m[c] + 0.5f : m[c];
        out[c] = integer ? std::floor(std::clamp(v, 0.0f, white)) : std::clamp(v, 0.0f, white);
    }
}

// Premultiplied pixels whose alpha is 0, full or partial, in runs of every length and alone, so
// that opaque stretches and single pixels of each kind meet in every order along a row.
DQImagePtr MixedCoverage(int w, int h, int type, uint32_t seed) {
    const float white = WhiteOf(type);
    auto inType = [&](float v) { return type == DQ_FLOAT ? v : std::floor(v); };
    DQImagePtr image = DQMakeImage(w, h, 4, type);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            // Neighbouring pixels share their kind in threes, so runs of each form.
            const float kind = PatternValue(DQ_UCHAR, x / 3 + (x % 7 == 0 ? x : 0), y, 7, seed);
            const float alpha = kind < 150   ? white
                                : kind < 200 ? 0.0f
                                             : inType(PatternValue(type, x, y, 3, seed) * 0.98f);
            for (int c = 0; c < 3; ++c) {
                const float share = PatternValue(DQ_UCHAR, x, y, c, seed) / 255.0f;
                image->SetChannelFloat(x, y, c, inType(share * alpha));
            }
            image->SetChannelFloat(x, y, 3, alpha);
        }
    return image;
}

TEST(SmartBlend, MixedCoverageFollowsThePixelRuleForAnyWorkerCount) {
    const int w = 53, h = 31;
    for (int type : kTypes)
        for (float t : {0.5f, 0.3f, 1.25f}) {
            SCOPED_TRACE(::testing::Message() << "type " << type << ", t " << t);
            DQImagePtr a = MixedCoverage(w, h, type, 21), b = MixedCoverage(w, h, type, 22);
            DQImagePtr expected = DQMakeImage(w, h, 4, type);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x) {
                    float pa[4], pb[4], out[4];
                    for (int c = 0; c < 4; ++c) {
                        pa[c] = At(*a, x, y, c);
                        pb[c] = At(*b, x, y, c);
                    }
                    ReferencePremultiplied(pa, pb, t, WhiteOf(type), type != DQ_FLOAT, out);
                    for (int c = 0; c < 4; ++c)
                        expected->SetChannelFloat(x, y, c, out[c]);
                }
            ForWorkerCounts([&](int) {
                DQImagePtr dest = Solid(w, h, 4, type, 0.0f);
                SmartBlend(dest.get(), a.get(), b.get(), nullptr, nullptr, t);
                EXPECT_TRUE(SamePixels(*dest, *expected));
            });
        }
}

// The masked rule and the alpha-first rule by bands: the same bytes for any worker count.
TEST(SmartBlend, BandsGiveTheSameBytesForEveryRule) {
    const int w = 41, h = 67;
    for (int type : kTypes) {
        SCOPED_TRACE(::testing::Message() << "type " << type);
        DQImagePtr a3 = PatternImage(w, h, 3, type, 31), b3 = PatternImage(w, h, 3, type, 32);
        DQImagePtr ma = PatternImage(w, h, 1, DQ_UCHAR, 33),
                   mb = PatternImage(w, h, 1, DQ_UCHAR, 34);
        DQImagePtr a4 = MixedCoverage(w, h, type, 35), b4 = MixedCoverage(w, h, type, 36);
        DQImagePtr masked, alphaFirst;
        ForWorkerCounts([&](int workers) {
            DQImagePtr m = Solid(w, h, 3, type, 0.0f), f = Solid(w, h, 4, type, 0.0f);
            SmartBlend(m.get(), a3.get(), b3.get(), ma.get(), mb.get(), 0.4f);
            PrintedBy(
                [&] { SmartBlendAlphaFirst(f.get(), a4.get(), b4.get(), nullptr, nullptr, 0.4f); });
            if (workers == 1) {
                masked = std::move(m);
                alphaFirst = std::move(f);
                return;
            }
            EXPECT_TRUE(SamePixels(*m, *masked));
            EXPECT_TRUE(SamePixels(*f, *alphaFirst));
        });
    }
}

} // namespace
