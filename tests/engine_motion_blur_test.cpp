// Motion blur and "Compensate" along the flow: the limits of the amount, the copy at amount 0,
// transparent pixels losing their colour, and sharpening below zero.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EngineInternal.h"

#include <tuple>

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
    // Amount, the amount it is treated as, and one that must give another picture.
    const float cases[][3] = {{25.0f, 20.0f, 15.0f}, {-12.0f, -10.0f, -5.0f}, {3.0f, 3.0f, 6.0f}};
    for (auto [amount, sameAs, otherThan] : cases) {
        SCOPED_TRACE(amount);
        DQImagePtr got = Blurred(source.get(), flow.get(), amount);
        EXPECT_TRUE(SamePixels(*got, *Blurred(source.get(), flow.get(), sameAs)));
        EXPECT_FALSE(SamePixels(*got, *Blurred(source.get(), flow.get(), otherThan)));
        EXPECT_FALSE(SamePixels(*got, *source)) << "the picture changed";
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
    // A blur clears colour under zero alpha; a copy keeps the pixels as they are.
    for (auto [amount, leftColour] : {std::pair{2.0f, 0.0f}, std::pair{0.0f, 180.0f}}) {
        DQImagePtr got = Blurred(source.get(), flow.get(), amount);
        for (int y = 0; y < kH; ++y)
            EXPECT_EQ(std::tuple(At(*got, 3, y, 0), At(*got, 3, y, 3), At(*got, kW - 4, y, 0)),
                      std::tuple(leftColour, 0.0f, 180.0f))
                << "amount " << amount << ", row " << y;
    }
}

TEST(ApplyMotionBlur, BelowZeroSharpensAlongTheMotionOnly) {
    WorkerScope workers(2, kW, kH);
    for (auto [type, white] :
         {std::pair{int(DQ_USHORT), 65535.0f}, std::pair{int(DQ_FLOAT), 1.0f}}) {
        SCOPED_TRACE(type);
        // A vertical edge, dark 0.3 | bright 0.7 of white, moving along x.
        const float dark = 0.3f * white, bright = 0.7f * white;
        DQImagePtr source = MakeImage(kW, kH, 4, type, [&](int x, int, int ch) {
            return ch == 3 ? white : x < kW / 2 ? dark : bright;
        });
        DQImagePtr sharpened =
            Blurred(source.get(), ConstantFlow(kW / 2, kH / 2, 2.0f, 0.0f).get(), -2.0f);
        EXPECT_LT(At(*sharpened, kW / 2 - 1, 8, 0), dark) << "dark side darker";
        EXPECT_GT(At(*sharpened, kW / 2, 8, 0), bright) << "bright side brighter";
        EXPECT_NEAR(At(*sharpened, 2, 8, 0), dark, white * 1e-4f) << "flat stays";
        // Motion along the edge smears nothing across it, so nothing is sharpened.
        DQImagePtr unchanged =
            Blurred(source.get(), ConstantFlow(kW / 2, kH / 2, 0.0f, 2.0f).get(), -2.0f);
        EXPECT_NEAR(At(*unchanged, kW / 2 - 1, 8, 0), dark, white * 1e-4f);
        EXPECT_NEAR(At(*unchanged, kW / 2, 8, 0), bright, white * 1e-4f);
    }
}

} // namespace
