// Difference mask, mix through a mask, and the sharpening of a warped frame.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EnergyBlend.h"
#include "engine/Mix.h"
#include "warp/Warp.h"

using namespace quelmor::test;

namespace {

float Get(const DQImage& image, int x, int y, int c = 0) {
    float v = 0;
    image.GetChannelFloat(x, y, &v, c);
    return v;
}

TEST(DifferenceMask, ThresholdIsLevelCubedTimesThreeOfWhite) {
    struct Case {
        int type;
        float base, step; // b = a + step in channels 0..2
        uint8_t expected;
    };
    // level 0.4: 8 bits 48.96, 16 bits 12582.7, float 0.192 in the summed difference.
    const Case cases[] = {{DQ_UCHAR, 100, 17, 255},       {DQ_UCHAR, 100, 16, 0},
                          {DQ_USHORT, 1000, 4200, 255},   {DQ_USHORT, 1000, 4190, 0},
                          {DQ_FLOAT, 0.1f, 0.0641f, 255}, {DQ_FLOAT, 0.1f, 0.0639f, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << ", step " << c.step);
        DQImagePtr a = Solid(5, 4, 4, c.type, c.base);
        DQImagePtr b = Solid(5, 4, 4, c.type, c.base);
        for (int ch = 0; ch < 3; ++ch)
            b->SetChannelFloat(2, 1, ch, c.base + c.step);
        b->SetChannelFloat(3, 3, 3, c.base + 1000.0f); // alpha does not count
        DQImagePtr mask = Solid(5, 4, 1, DQ_UCHAR, 77);
        ASSERT_EQ(DifferenceMask(mask.get(), a.get(), b.get(), 1, 1, 0.4f), 0);
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 5; ++x)
                EXPECT_EQ(Get(*mask, x, y), (x == 2 && y == 1) ? c.expected : 0) << x << "," << y;
    }
}

TEST(DifferenceMask, LinesAndRefusals) {
    // Rows 0..4 all differ; lines 2 marks from the last row, lines 3 one row higher.
    const std::pair<int, std::vector<int>> cases[] = {
        {1, {1, 1, 1, 1, 1}}, {2, {1, 0, 1, 0, 1}}, {3, {0, 1, 0, 1, 0}}};
    DQImagePtr a = Solid(3, 5, 3, DQ_UCHAR, 0);
    DQImagePtr b = Solid(3, 5, 3, DQ_UCHAR, 200);
    for (const auto& [lines, marked] : cases) {
        DQImagePtr mask = DQMakeImage(3, 5, 1, DQ_UCHAR);
        ASSERT_EQ(DifferenceMask(mask.get(), a.get(), b.get(), 1, lines, 0.4f), 0);
        for (int y = 0; y < 5; ++y)
            EXPECT_EQ(Get(*mask, 1, y), marked[y] ? 255.0f : 0.0f) << lines << " row " << y;
    }
    DQImagePtr small = Solid(3, 4, 3, DQ_UCHAR, 0);
    DQImagePtr mask = DQMakeImage(3, 5, 1, DQ_UCHAR);
    EXPECT_EQ(DifferenceMask(mask.get(), a.get(), small.get(), 1, 1, 0.4f), kDQErrBadArgument);
    EXPECT_EQ(DifferenceMask(mask.get(), a.get(), a.get(), 2, 1, 0.4f), kDQErrBadArgument);
}

TEST(MixThroughMask, MaskWeighsDestAgainstOther) {
    struct Case {
        uint8_t mask;
        int one, zero;
        float expected; // dest 200, other 100
    };
    // 255 keeps dest, 0 takes other, 128 half way, reversed ends.
    const Case cases[] = {{255, 1, 0, 200}, {0, 1, 0, 100}, {128, 1, 0, 150}, {255, 0, 1, 100}};
    for (const Case& c : cases) {
        DQImagePtr dest = Solid(4, 3, 4, DQ_UCHAR, 200);
        DQImagePtr mask = Solid(4, 3, 1, DQ_UCHAR, c.mask);
        MixThroughMask(dest.get(), Solid(4, 3, 4, DQ_UCHAR, 100).get(), mask.get(), c.one, c.zero);
        EXPECT_EQ(Get(*dest, 3, 2, 1), c.expected) << int(c.mask) << " " << c.one;
    }
    DQImagePtr dest = Solid(4, 3, 4, DQ_UCHAR, 200);
    DQImagePtr mask = Solid(4, 2, 1, DQ_UCHAR, 0);
    EXPECT_THROW(MixThroughMask(dest.get(), dest.get(), mask.get(), 1, 0), DQErr);
}

TEST(SharpenWarpedFrame, SharpensOnlyWhatMovedAndMostAtMidInterval) {
    // A vertical edge 40 | 200; the source frame is flat, so the whole frame counts as moved.
    auto edge = [] {
        return MakeImage(24, 6, 3, DQ_UCHAR, [](int x, int, int) { return x < 12 ? 40.0 : 200.0; });
    };
    WorkerScope workers(2, 24, 6);
    // Overshoot beyond the bright and the dark side.
    auto sharpened = [&](float amount, bool flatSource) {
        DQImagePtr warped = edge();
        SharpenWarpedFrame(warped.get(),
                           (flatSource ? Solid(24, 6, 3, DQ_UCHAR, 120) : edge()).get(), amount);
        EXPECT_EQ(Get(*warped, 0, 3), 40.0f) << "flat parts stay";
        return std::pair(Get(*warped, 12, 3) - 200.0f, 40.0f - Get(*warped, 11, 3));
    };
    const auto middle = sharpened(0.5f, true);
    EXPECT_GT(middle.first, 0.0f);
    EXPECT_GT(middle.second, 0.0f);
    EXPECT_LT(sharpened(0.9f, true).first, middle.first) << "weaker near a frame";
    EXPECT_EQ(sharpened(0.0f, true), std::pair(0.0f, 0.0f)) << "at a frame nothing";
    EXPECT_EQ(sharpened(0.5f, false), std::pair(0.0f, 0.0f)) << "unchanged picture stays";
}

TEST(EnergyBlendInverse, WithoutFlowsOrWithStillFlowsItIsADissolve) {
    struct Case {
        int type;
        float weightA;
        bool stillFlows; // zero flows instead of none
    };
    const Case cases[] = {{DQ_UCHAR, 0.75f, false},
                          {DQ_USHORT, 0.3f, false},
                          {DQ_FLOAT, 0.6f, false},
                          {DQ_FLOAT, 0.4f, true}};
    WorkerScope workers(2, 20, 18);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << (c.stillFlows ? ", still" : ""));
        DQImagePtr a = PatternImage(20, 18, 4, c.type, 3);
        DQImagePtr b = PatternImage(20, 18, 4, c.type, 4);
        DQImagePtr still = ConstantFlow(10, 9, 0.0f, 0.0f);
        DQImagePtr flowAtoB = c.stillFlows ? Duplicate(*still) : nullptr;
        DQImagePtr flowBtoA = c.stillFlows ? Duplicate(*still) : nullptr;
        DQImagePtr energy = DQMakeImage(20, 18, 4, c.type);
        DQImagePtr dissolve = DQMakeImage(20, 18, 4, c.type);
        EnergyBlendInverse(energy.get(), a.get(), flowAtoB.get(), b.get(), flowBtoA.get(), nullptr,
                           nullptr, c.weightA);
        Dissolve(dissolve.get(), a.get(), b.get(), 1.0f - c.weightA);
        // Floats read at the last column through the last cell may differ in the last bit.
        const float tolerance = c.type == DQ_FLOAT ? 1e-6f : 0.0f;
        for (int y = 0; y < 18; ++y)
            for (int x = 0; x < 20; ++x)
                for (int ch = 0; ch < 4; ++ch)
                    ASSERT_NEAR(Get(*energy, x, y, ch), Get(*dissolve, x, y, ch), tolerance)
                        << x << "," << y << " channel " << ch;
    }
}

TEST(EnergyBlendInverse, MovedFramesAreWarpedTowardsEachOtherAndSharpened) {
    // A bright bar moves 4 pixels right from a to b; flows are at half size.
    constexpr int w = 40, h = 12;
    auto bar = [](int left) {
        return MakeImage(w, h, 3, DQ_UCHAR, [left](int x, int, int) {
            return x >= left && x < left + 8 ? 200.0 : 40.0;
        });
    };
    DQImagePtr a = bar(12), b = bar(16);
    DQImagePtr flowAtoB = ConstantFlow(20, 6, 4.0f * 19.0f / 39.0f, 0.0f);
    DQImagePtr flowBtoA = ConstantFlow(20, 6, -4.0f * 19.0f / 39.0f, 0.0f);
    WorkerScope workers(2, w, h);

    // The plain warp-and-dissolve of "Blend", for comparison.
    DQImagePtr movedA = DQMakeImage(w, h, 3, DQ_UCHAR), movedB = DQMakeImage(w, h, 3, DQ_UCHAR);
    DQImagePtr plain = DQMakeImage(w, h, 3, DQ_UCHAR);
    ASSERT_EQ(DQWarpInverse(movedA.get(), a.get(), flowBtoA.get(), 1, nullptr, 1, 0.5f), 1);
    ASSERT_EQ(DQWarpInverse(movedB.get(), b.get(), flowAtoB.get(), 1, nullptr, 1, 0.5f), 1);
    Dissolve(plain.get(), movedA.get(), movedB.get(), 0.5f);

    DQImagePtr scratchA = DQMakeImage(w, h, 3, DQ_UCHAR), scratchB = DQMakeImage(w, h, 3, DQ_UCHAR);
    DQImagePtr energy = DQMakeImage(w, h, 3, DQ_UCHAR);
    EnergyBlendInverse(energy.get(), a.get(), flowAtoB.get(), b.get(), flowBtoA.get(),
                       scratchA.get(), scratchB.get(), 0.5f);
    DQImagePtr unscratched = DQMakeImage(w, h, 3, DQ_UCHAR);
    EnergyBlendInverse(unscratched.get(), a.get(), flowAtoB.get(), b.get(), flowBtoA.get(), nullptr,
                       nullptr, 0.5f);
    EXPECT_TRUE(SamePixels(*energy, *unscratched)) << "scratch images change nothing";

    // The bar lands at 14..21 in both; the energy blend has the steeper, overshooting edges.
    for (int x = 15; x < 21; ++x)
        EXPECT_GE(Get(*energy, x, 6), 190.0f) << "inside the bar at " << x;
    EXPECT_LE(Get(*energy, 5, 6), 40.0f) << "background";
    EXPECT_GT(Get(*energy, 14, 6), Get(*plain, 14, 6)) << "bright side of the left edge";
    EXPECT_LT(Get(*energy, 13, 6), Get(*plain, 13, 6)) << "dark side of the left edge";
    // The scratch images hold the warped, sharpened frames: the bar of each moved half way.
    EXPECT_GT(Get(*scratchA, 14, 6), 150.0f);
    EXPECT_LT(Get(*scratchA, 12, 6), 100.0f);
    EXPECT_GT(Get(*scratchB, 21, 6), 150.0f);
    EXPECT_LT(Get(*scratchB, 23, 6), 100.0f);
}

} // namespace
