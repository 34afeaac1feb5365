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
        const char* name;
        int type;
        float base, step; // b = a + step in channels 0..2
        uint8_t expected;
    };
    // level 0.4: 8 bits 48.96, 16 bits 12582.7, float 0.192 in the summed difference.
    const Case cases[] = {
        {"8 bits above", DQ_UCHAR, 100, 17, 255},      {"8 bits below", DQ_UCHAR, 100, 16, 0},
        {"16 bits above", DQ_USHORT, 1000, 4200, 255}, {"16 bits below", DQ_USHORT, 1000, 4190, 0},
        {"float above", DQ_FLOAT, 0.1f, 0.0641f, 255}, {"float below", DQ_FLOAT, 0.1f, 0.0639f, 0},
    };
    for (const Case& c : cases) {
        DQImagePtr a = Solid(5, 4, 4, c.type, c.base);
        DQImagePtr b = Solid(5, 4, 4, c.type, c.base);
        for (int ch = 0; ch < 3; ++ch)
            b->SetChannelFloat(2, 1, ch, c.base + c.step);
        b->SetChannelFloat(3, 3, 3, c.base + 1000.0f); // alpha does not count
        DQImagePtr mask = Solid(5, 4, 1, DQ_UCHAR, 77);
        ASSERT_EQ(DifferenceMask(mask.get(), a.get(), b.get(), 1, 1, 0.4f), 0) << c.name;
        for (int y = 0; y < 4; ++y)
            for (int x = 0; x < 5; ++x)
                EXPECT_EQ(Get(*mask, x, y), (x == 2 && y == 1) ? c.expected : 0)
                    << c.name << " at " << x << "," << y;
    }
}

TEST(DifferenceMask, LinesAndRefusals) {
    struct Case {
        const char* name;
        int lines;
        std::vector<int> marked; // of rows 0..4, all differing
    };
    const Case cases[] = {{"all rows", 1, {1, 1, 1, 1, 1}},
                          {"from the last row", 2, {1, 0, 1, 0, 1}},
                          {"one row higher", 3, {0, 1, 0, 1, 0}}};
    for (const Case& c : cases) {
        DQImagePtr a = Solid(3, 5, 3, DQ_UCHAR, 0);
        DQImagePtr b = Solid(3, 5, 3, DQ_UCHAR, 200);
        DQImagePtr mask = DQMakeImage(3, 5, 1, DQ_UCHAR);
        ASSERT_EQ(DifferenceMask(mask.get(), a.get(), b.get(), 1, c.lines, 0.4f), 0);
        for (int y = 0; y < 5; ++y)
            EXPECT_EQ(Get(*mask, 1, y), c.marked[y] ? 255.0f : 0.0f) << c.name << " row " << y;
    }
    DQImagePtr a = Solid(3, 5, 3, DQ_UCHAR, 0);
    DQImagePtr small = Solid(3, 4, 3, DQ_UCHAR, 0);
    DQImagePtr mask = DQMakeImage(3, 5, 1, DQ_UCHAR);
    EXPECT_EQ(DifferenceMask(mask.get(), a.get(), small.get(), 1, 1, 0.4f), kDQErrBadArgument);
    EXPECT_EQ(DifferenceMask(mask.get(), a.get(), a.get(), 2, 1, 0.4f), kDQErrBadArgument);
}

TEST(MixThroughMask, MaskWeighsDestAgainstOther) {
    struct Case {
        const char* name;
        uint8_t mask;
        int one, zero;
        float expected; // dest 200, other 100
    };
    const Case cases[] = {{"255 keeps dest", 255, 1, 0, 200},
                          {"0 takes other", 0, 1, 0, 100},
                          {"half way", 128, 1, 0, 150},
                          {"reversed ends", 255, 0, 1, 100}};
    for (const Case& c : cases) {
        DQImagePtr dest = Solid(4, 3, 4, DQ_UCHAR, 200);
        DQImagePtr other = Solid(4, 3, 4, DQ_UCHAR, 100);
        DQImagePtr mask = Solid(4, 3, 1, DQ_UCHAR, c.mask);
        MixThroughMask(dest.get(), other.get(), mask.get(), c.one, c.zero);
        EXPECT_EQ(Get(*dest, 3, 2, 1), c.expected) << c.name;
    }
    DQImagePtr dest = Solid(4, 3, 4, DQ_UCHAR, 200);
    DQImagePtr mask = Solid(4, 2, 1, DQ_UCHAR, 0);
    EXPECT_THROW(MixThroughMask(dest.get(), dest.get(), mask.get(), 1, 0), DQErr);
}

TEST(SharpenWarpedFrame, SharpensOnlyWhatMovedAndMostAtMidInterval) {
    // A vertical edge 40 | 200; the source frame is flat, so the whole frame counts as moved.
    auto edge = [] {
        DQImagePtr image = DQMakeImage(24, 6, 3, DQ_UCHAR);
        for (int y = 0; y < 6; ++y)
            for (int x = 0; x < 24; ++x)
                for (int c = 0; c < 3; ++c)
                    image->SetChannelFloat(x, y, c, x < 12 ? 40 : 200);
        return image;
    };
    WorkerScope workers(2, 24, 6);
    struct Case {
        const char* name;
        float amount;
        bool flatSource;
        bool sharpened;
    };
    const Case cases[] = {{"mid interval", 0.5f, true, true},
                          {"at a frame nothing", 0.0f, true, false},
                          {"unchanged picture stays", 0.5f, false, false}};
    float overshootAtMiddle = 0;
    for (const Case& c : cases) {
        DQImagePtr warped = edge();
        DQImagePtr source = c.flatSource ? Solid(24, 6, 3, DQ_UCHAR, 120) : edge();
        SharpenWarpedFrame(warped.get(), source.get(), c.amount);
        const float bright = Get(*warped, 12, 3), dark = Get(*warped, 11, 3);
        if (c.sharpened) {
            EXPECT_GT(bright, 200.0f) << c.name;
            EXPECT_LT(dark, 40.0f) << c.name;
            overshootAtMiddle = bright - 200.0f;
        } else {
            EXPECT_EQ(bright, 200.0f) << c.name;
            EXPECT_EQ(dark, 40.0f) << c.name;
        }
        EXPECT_EQ(Get(*warped, 0, 3), 40.0f) << c.name << ": flat parts stay";
    }
    DQImagePtr warped = edge();
    SharpenWarpedFrame(warped.get(), Solid(24, 6, 3, DQ_UCHAR, 120).get(), 0.9f);
    EXPECT_LT(Get(*warped, 12, 3) - 200.0f, overshootAtMiddle) << "weaker near a frame";
}

TEST(EnergyBlendInverse, WithoutFlowsOrWithStillFlowsItIsADissolve) {
    struct Case {
        const char* name;
        int type;
        float weightA;
        bool stillFlows; // zero flows instead of none
    };
    const Case cases[] = {
        {"8 bits, quarter", DQ_UCHAR, 0.75f, false},  {"8 bits, middle", DQ_UCHAR, 0.5f, false},
        {"16 bits", DQ_USHORT, 0.3f, false},          {"float", DQ_FLOAT, 0.6f, false},
        {"zero flows, 8 bits", DQ_UCHAR, 0.5f, true}, {"zero flows, float", DQ_FLOAT, 0.4f, true},
    };
    WorkerScope workers(2, 20, 18);
    for (const Case& c : cases) {
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
                        << c.name << " at " << x << "," << y << " channel " << ch;
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
