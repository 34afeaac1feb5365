// "Weighted Energy Blend" with forward warps.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EnergyBlend.h"
#include "engine/Mix.h"

using namespace quelmor::test;

namespace {

DQImagePtr Opaque(int w, int h, int type, uint32_t seed) {
    DQImagePtr image = PatternImage(w, h, 4, type, seed);
    const float white = type == DQ_UCHAR ? 255.0f : type == DQ_USHORT ? 65535.0f : 1.0f;
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image->SetChannelFloat(x, y, 3, white);
    return image;
}

TEST(EnergyBlendForward, WithoutFlowsItIsADissolve) {
    struct Case {
        int type;
        float weightA;
        bool masks;
    };
    const Case cases[] = {{DQ_UCHAR, 0.3f, true},
                          {DQ_USHORT, 0.7f, false},
                          {DQ_FLOAT, 0.45f, true},
                          {DQ_UCHAR, 0.5f, false}};
    WorkerScope workers(2, 20, 18);
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << (c.masks ? ", masks" : ""));
        DQImagePtr a = Opaque(20, 18, c.type, 3);
        DQImagePtr b = Opaque(20, 18, c.type, 4);
        DQImagePtr maskA = PatternImage(20, 18, 1, DQ_UCHAR, 5);
        DQImagePtr maskB = PatternImage(20, 18, 1, DQ_UCHAR, 6);
        DQImagePtr energy = DQMakeImage(20, 18, 4, c.type);
        DQImagePtr dissolve = DQMakeImage(20, 18, 4, c.type);
        EnergyBlendForward(energy.get(), a.get(), nullptr, b.get(), nullptr, nullptr, nullptr,
                           c.masks ? maskA.get() : nullptr, c.masks ? maskB.get() : nullptr,
                           nullptr, c.weightA);
        Dissolve(dissolve.get(), a.get(), b.get(), 1.0f - c.weightA);
        const float tolerance = c.type == DQ_FLOAT ? 1e-6f : 0.0f;
        for (int y = 0; y < 18; ++y)
            for (int x = 0; x < 20; ++x) {
                for (int ch = 0; ch < 4; ++ch)
                    ASSERT_NEAR(At(*energy, x, y, ch), At(*dissolve, x, y, ch), tolerance)
                        << x << "," << y << " channel " << ch;
                if (c.masks) {
                    ASSERT_EQ(At(*maskA, x, y, 0), 0.0f);
                }
            }
    }
}

// Flat frames panning by (6, 4): half way, pushed frame A leaves the left and top strips empty
// and B the right and bottom ones. With masks every pixel ends up the flat colour, the corners
// that neither frame reaches filled from the nearest pixel; without, the strips are mixed with
// nothing and lose half their alpha, and the corners stay empty.
TEST(EnergyBlendForward, HolesAreFilledOnlyWithMasks) {
    constexpr int w = 30, h = 20;
    WorkerScope workers(2, w, h);
    DQImagePtr a = MakeImage(w, h, 4, DQ_UCHAR,
                             [](int, int, int c) { return c == 3 ? 255.0 : 90.0 + 40.0 * c; });
    DQImagePtr b = Duplicate(*a);
    DQImagePtr flowAtoB = ConstantFlow(w, h, 6.0f, 4.0f);
    DQImagePtr flowBtoA = ConstantFlow(w, h, -6.0f, -4.0f);

    DQImagePtr maskA = DQMakeImage(w, h, 1, DQ_UCHAR), maskB = DQMakeImage(w, h, 1, DQ_UCHAR);
    DQImagePtr filled = DQMakeImage(w, h, 4, DQ_UCHAR);
    EnergyBlendForward(filled.get(), a.get(), flowAtoB.get(), b.get(), flowBtoA.get(), nullptr,
                       nullptr, maskA.get(), maskB.get(), nullptr, 0.5f);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < 4; ++c)
                ASSERT_EQ(At(*filled, x, y, c), At(*a, x, y, c)) << x << "," << y << " ch " << c;
    EXPECT_EQ(At(*maskA, 0, h - 1, 0), 255.0f);
    EXPECT_EQ(At(*maskA, w - 1, 0, 0), 255.0f);
    EXPECT_EQ(At(*maskA, w / 2, h / 2, 0), 0.0f);
    EXPECT_EQ(At(*maskA, 0, h / 2, 0), 0.0f);

    DQImagePtr open = DQMakeImage(w, h, 4, DQ_UCHAR);
    EnergyBlendForward(open.get(), a.get(), flowAtoB.get(), b.get(), flowBtoA.get(), nullptr,
                       nullptr, nullptr, nullptr, nullptr, 0.5f);
    EXPECT_EQ(At(*open, w / 2, h / 2, 3), 255.0f);
    EXPECT_EQ(At(*open, w / 2, h / 2, 0), 90.0f);
    EXPECT_EQ(At(*open, 0, h / 2, 3), 128.0f);
    EXPECT_EQ(At(*open, w - 1, h / 2, 3), 128.0f);
    EXPECT_EQ(At(*open, 0, h - 1, 3), 0.0f);
    EXPECT_EQ(At(*open, w - 1, 0, 3), 0.0f);
}

TEST(EnergyBlendForward, ThreeChannelFramesAreRefused) {
    DQImagePtr a = PatternImage(12, 10, 3, DQ_UCHAR, 1), b = PatternImage(12, 10, 3, DQ_UCHAR, 2);
    DQImagePtr flow = ConstantFlow(12, 10, 1.0f, 0.0f), dest = DQMakeImage(12, 10, 3, DQ_UCHAR);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(ThrownBy([&] {
                  EnergyBlendForward(dest.get(), a.get(), flow.get(), b.get(), flow.get(), nullptr,
                                     nullptr, nullptr, nullptr, nullptr, 0.5f);
              }),
              kDQErrBadArgument);
    ::testing::internal::GetCapturedStderr();
}

} // namespace
