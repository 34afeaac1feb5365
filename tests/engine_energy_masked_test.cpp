// "Weighted Energy Blend" with smart blend: mixed by coverage, with what neither frame covers
// filled from the nearest covered pixel.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EnergyBlend.h"
#include "engine/Mix.h"

using namespace quelmor::test;

namespace {

// Opaque in four channels; three channels have no alpha.
DQImagePtr Opaque(int w, int h, int channels, int type, uint32_t seed) {
    DQImagePtr image = PatternImage(w, h, channels, type, seed);
    if (channels == 4)
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                image->SetChannelFloat(x, y, 3,
                                       type == DQ_UCHAR    ? 255.0f
                                       : type == DQ_USHORT ? 65535.0f
                                                           : 1.0f);
    return image;
}

TEST(EnergyBlendInverseMasked, WithoutFlowsBothFramesCoverAllAndItIsADissolve) {
    struct Case {
        int type, channels;
        float weightA;
    };
    const Case cases[] = {{DQ_UCHAR, 4, 0.3f}, {DQ_USHORT, 3, 0.7f}, {DQ_FLOAT, 4, 0.45f}};
    WorkerScope workers(2, 20, 18);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << ", " << c.channels << " channels");
        DQImagePtr a = Opaque(20, 18, c.channels, c.type, 3);
        DQImagePtr b = Opaque(20, 18, c.channels, c.type, 4);
        DQImagePtr maskA = PatternImage(20, 18, 1, DQ_UCHAR, 5);
        DQImagePtr maskB = PatternImage(20, 18, 1, DQ_UCHAR, 6);
        DQImagePtr energy = DQMakeImage(20, 18, c.channels, c.type);
        DQImagePtr dissolve = DQMakeImage(20, 18, c.channels, c.type);
        EnergyBlendInverseMasked(energy.get(), a.get(), nullptr, b.get(), nullptr, nullptr, nullptr,
                                 maskA.get(), maskB.get(), c.weightA);
        Dissolve(dissolve.get(), a.get(), b.get(), 1.0f - c.weightA);
        const float tolerance = c.type == DQ_FLOAT ? 1e-6f : 0.0f;
        for (int y = 0; y < 18; ++y)
            for (int x = 0; x < 20; ++x) {
                for (int ch = 0; ch < c.channels; ++ch)
                    ASSERT_NEAR(At(*energy, x, y, ch), At(*dissolve, x, y, ch), tolerance)
                        << x << "," << y << " channel " << ch;
                // Nothing was left to fill; b covered everything.
                ASSERT_EQ(At(*maskA, x, y, 0), 0.0f);
                ASSERT_EQ(At(*maskB, x, y, 0), 255.0f);
            }
    }
}

TEST(EnergyBlendInverseMasked, WhatNeitherFrameCoversIsFilledFromTheNearestCoveredPixel) {
    // Both frames are one flat colour that pans by (6, 4) per frame. Half way, a misses the left
    // and top strips, b the right and bottom ones; the bottom-left and top-right corners are
    // covered by neither. Flat frames leave nothing for the sharpening to change, so every
    // pixel, filled or mixed, must come out that colour.
    constexpr int w = 30, h = 20;
    WorkerScope workers(2, w, h);
    for (int channels : {3, 4}) {
        SCOPED_TRACE(testing::Message() << channels << " channels");
        DQImagePtr a = MakeImage(w, h, channels, DQ_UCHAR,
                                 [](int, int, int c) { return c == 3 ? 255.0 : 90.0 + 40.0 * c; });
        DQImagePtr b = Duplicate(*a);
        DQImagePtr flowAtoB = ConstantFlow(w, h, 6.0f, 4.0f);
        DQImagePtr flowBtoA = ConstantFlow(w, h, -6.0f, -4.0f);
        DQImagePtr maskA = DQMakeImage(w, h, 1, DQ_UCHAR), maskB = DQMakeImage(w, h, 1, DQ_UCHAR);
        DQImagePtr out = DQMakeImage(w, h, channels, DQ_UCHAR);
        EnergyBlendInverseMasked(out.get(), a.get(), flowAtoB.get(), b.get(), flowBtoA.get(),
                                 nullptr, nullptr, maskA.get(), maskB.get(), 0.5f);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                for (int c = 0; c < channels; ++c)
                    ASSERT_EQ(At(*out, x, y, c), At(*a, x, y, c)) << x << "," << y << " ch " << c;
        // maskA now marks what was filled: the two corners, and nothing in the middle or in
        // the strips that one frame covers.
        EXPECT_EQ(At(*maskA, 0, h - 1, 0), 255.0f);
        EXPECT_EQ(At(*maskA, w - 1, 0, 0), 255.0f);
        EXPECT_EQ(At(*maskA, 0, h / 2, 0), 0.0f);
        EXPECT_EQ(At(*maskA, w - 1, h / 2, 0), 0.0f);
        EXPECT_EQ(At(*maskA, w / 2, h / 2, 0), 0.0f);
        // b's coverage: none at the right edge, all at the left.
        EXPECT_EQ(At(*maskB, w - 1, h / 2, 0), 0.0f);
        EXPECT_EQ(At(*maskB, 0, h / 2, 0), 255.0f);
    }
}

} // namespace
