// Motion blur and "Compensate" along the flow: the limits of the amount, the copy at amount 0,
// transparent pixels losing their colour, and sharpening below zero.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EngineInternal.h"

#include <string>

using namespace quelmor::test;

namespace {

constexpr int kW = 32;
constexpr int kH = 16;

DQImagePtr Blurred(DQImage* source, DQImage* flow, float amount) {
    DQImagePtr dest =
        DQMakeImage(source->width, source->height, source->channels, source->dataType);
    ZUQuelmor4Internal::ApplyMotionBlur(dest.get(), source, flow, true, nullptr, amount);
    return dest;
}

TEST(ApplyMotionBlur, AmountIsLimitedAndZeroCopies) {
    WorkerScope workers(2, kW, kH);
    DQImagePtr source = MakeImage(kW, kH, 4, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr flow = ConstantFlow(kW / 2, kH / 2, 1.5f, 0.5f);
    struct Case {
        const char* name;
        float amount;
        float sameAs;    // amount that must give the same picture
        float otherThan; // amount that must give another picture
    };
    const Case cases[] = {
        {"25 is treated as 20", 25.0f, 20.0f, 15.0f},
        {"-12 is treated as -10", -12.0f, -10.0f, -5.0f},
        {"a blur within the range is its own", 3.0f, 3.0f, 6.0f},
    };
    for (const Case& c : cases) {
        DQImagePtr got = Blurred(source.get(), flow.get(), c.amount);
        EXPECT_TRUE(SamePixels(*got, *Blurred(source.get(), flow.get(), c.sameAs))) << c.name;
        EXPECT_FALSE(SamePixels(*got, *Blurred(source.get(), flow.get(), c.otherThan))) << c.name;
        EXPECT_FALSE(SamePixels(*got, *source)) << c.name << ": the picture changed";
    }
    for (float amount : {0.0f, 5e-07f, -5e-07f}) {
        DQImagePtr got = Blurred(source.get(), flow.get(), amount);
        EXPECT_TRUE(SamePixels(*got, *source)) << "amount " << amount << " copies";
    }
}

TEST(ApplyMotionBlur, TransparentPixelsKeepNoColourAfterABlur) {
    WorkerScope workers(2, kW, kH);
    // The left half is transparent but carries colour; the right half is opaque.
    DQImagePtr source = MakeImage(kW, kH, 4, DQ_UCHAR, [](int x, int, int c) {
        if (c == 3) return x < kW / 2 ? 0.0 : 255.0;
        return 180.0;
    });
    DQImagePtr flow = ConstantFlow(kW / 2, kH / 2, 0.0f, 1.0f); // vertical: halves stay apart
    struct Case {
        const char* name;
        float amount;
        float leftColour; // colour in the transparent half afterwards
    };
    const Case cases[] = {{"blur clears colour under zero alpha", 2.0f, 0.0f},
                          {"a copy keeps the pixels as they are", 0.0f, 180.0f}};
    for (const Case& c : cases) {
        DQImagePtr got = Blurred(source.get(), flow.get(), c.amount);
        for (int y = 0; y < kH; ++y) {
            EXPECT_EQ(At(*got, 3, y, 0), c.leftColour) << c.name << " row " << y;
            EXPECT_EQ(At(*got, 3, y, 3), 0.0f) << c.name << " row " << y;
            EXPECT_EQ(At(*got, kW - 4, y, 0), 180.0f) << c.name << " row " << y;
        }
    }
}

TEST(ApplyMotionBlur, BelowZeroSharpensAlongTheMotionOnly) {
    WorkerScope workers(2, kW, kH);
    struct Case {
        const char* name;
        int type;
        float white;
    };
    const Case cases[] = {{"16 bits", DQ_USHORT, 65535.0f}, {"float", DQ_FLOAT, 1.0f}};
    for (const Case& c : cases) {
        // A vertical edge, dark 0.3 | bright 0.7 of white, moving along x.
        const float dark = 0.3f * c.white, bright = 0.7f * c.white;
        DQImagePtr source = MakeImage(kW, kH, 4, c.type, [&](int x, int, int ch) {
            return ch == 3 ? c.white : x < kW / 2 ? dark : bright;
        });
        DQImagePtr along = ConstantFlow(kW / 2, kH / 2, 2.0f, 0.0f);
        DQImagePtr across = ConstantFlow(kW / 2, kH / 2, 0.0f, 2.0f);
        DQImagePtr sharpened = Blurred(source.get(), along.get(), -2.0f);
        EXPECT_LT(At(*sharpened, kW / 2 - 1, 8, 0), dark) << c.name << ": dark side darker";
        EXPECT_GT(At(*sharpened, kW / 2, 8, 0), bright) << c.name << ": bright side brighter";
        EXPECT_NEAR(At(*sharpened, 2, 8, 0), dark, c.white * 1e-4f) << c.name << ": flat stays";
        // Motion along the edge smears nothing across it, so nothing is sharpened.
        DQImagePtr unchanged = Blurred(source.get(), across.get(), -2.0f);
        EXPECT_NEAR(At(*unchanged, kW / 2 - 1, 8, 0), dark, c.white * 1e-4f) << c.name;
        EXPECT_NEAR(At(*unchanged, kW / 2, 8, 0), bright, c.white * 1e-4f) << c.name;
    }
}

} // namespace
