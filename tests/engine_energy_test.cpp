// Difference mask, mix through a mask, and the sharpening of a warped frame.
#include "TestSupport.h"
#include "engine/EnergyBlend.h"

using namespace quelmor::test;

namespace {

DQImagePtr Solid(int w, int h, int channels, int type, float value) {
    DQImagePtr image = DQMakeImage(w, h, channels, type);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < channels; ++c)
                image->SetChannelFloat(x, y, c, value);
    return image;
}

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

} // namespace
