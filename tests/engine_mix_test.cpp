// DQBlend, DQBlendParallel and Dissolve: per type, per channel count, at and beyond the ends.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "engine/Mix.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace quelmor::test;

namespace {

float Get(const DQImage& image, int c, int x = 1, int y = 1) {
    float v = 0;
    image.GetChannelFloat(x, y, &v, c);
    return v;
}

TEST(Blend, FourChannelCases) {
    struct Case {
        int type;
        float k;
        std::initializer_list<float> dest, other;
        float expected[4];
    };
    // k 1 keeps dest, k 0 is other, halves round, alpha 0 clears colour, colour stays within
    // alpha; k 2 gives alpha 310 of 255: colours divided by 1.2157, then limited.
    const Case cases[] = {
        {DQ_UCHAR, 1, {10, 20, 30, 40}, {200, 200, 200, 255}, {10, 20, 30, 40}},
        {DQ_UCHAR, 0, {10, 20, 30, 40}, {200, 100, 50, 255}, {200, 100, 50, 255}},
        {DQ_UCHAR, 0.5f, {10, 21, 30, 255}, {20, 30, 41, 255}, {15, 26, 36, 255}},
        {DQ_UCHAR, 0.5f, {90, 90, 90, 0}, {80, 80, 80, 0}, {0, 0, 0, 0}},
        {DQ_UCHAR, 0.5f, {200, 9, 9, 100}, {200, 9, 9, 100}, {100, 9, 9, 100}},
        {DQ_UCHAR, 2, {250, 100, 0, 255}, {100, 100, 100, 200}, {255, 82, 0, 255}},
        {DQ_USHORT,
         0.25f,
         {1000, 2000, 3000, 65535},
         {3000, 2000, 1000, 65535},
         {2500, 2000, 1500, 65535}},
        {DQ_FLOAT, 0.5f, {0.2f, 0.4f, 0.6f, 1}, {0.6f, 0.4f, 0.2f, 1}, {0.4f, 0.4f, 0.4f, 1}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "type " << c.type << ", k " << c.k << ", dest " << *c.dest.begin());
        DQImagePtr dest = Solid(5, 4, 4, c.type, c.dest);
        EXPECT_EQ(DQBlend(dest.get(), Solid(5, 4, 4, c.type, c.other).get(), 1, c.k), 1);
        for (int ch = 0; ch < 4; ++ch)
            EXPECT_NEAR(Get(*dest, ch, 4, 3), c.expected[ch], 1e-5f) << "channel " << ch;
    }
}

TEST(Blend, ThreeChannelsLimitedPerType) {
    // The 8-bit table and the 16-bit direct path compute o (1 - k) + d k, rounded half up; only
    // 8 bits stop at 255. k -1 is 2 o - d.
    struct Case {
        float k;
        std::initializer_list<float> dest, other;
        float expected8[3], expected16[3];
    };
    const Case cases[] = {{-0.5f, {0, 128, 255}, {255, 64, 0}, {255, 32, 0}, {383, 32, 0}},
                          {1.7f, {0, 128, 255}, {255, 64, 0}, {0, 173, 255}, {0, 173, 434}},
                          {-1.0f, {100, 100, 100}, {200, 0, 255}, {255, 0, 255}, {300, 0, 410}}};
    for (const Case& c : cases) {
        DQImagePtr d8 = Solid(3, 2, 3, DQ_UCHAR, c.dest), d16 = Solid(3, 2, 3, DQ_USHORT, c.dest);
        ASSERT_EQ(DQBlend(d8.get(), Solid(3, 2, 3, DQ_UCHAR, c.other).get(), 1, c.k), 1);
        ASSERT_EQ(DQBlend(d16.get(), Solid(3, 2, 3, DQ_USHORT, c.other).get(), 1, c.k), 1);
        for (int ch = 0; ch < 3; ++ch) {
            EXPECT_EQ(Get(*d8, ch), c.expected8[ch]) << "8 bits, k " << c.k << " ch " << ch;
            EXPECT_EQ(Get(*d16, ch), c.expected16[ch]) << "16 bits, k " << c.k << " ch " << ch;
        }
    }
}

TEST(Blend, LinesSelectRows) {
    // Lines 1: all rows, 2: the even ones, 3: the odd ones.
    for (auto [lines, evenChanged, oddChanged] :
         {std::tuple{1, true, true}, {2, true, false}, {3, false, true}}) {
        DQImagePtr dest = Solid(2, 5, 4, DQ_UCHAR, {0, 0, 0, 255});
        ASSERT_EQ(
            DQBlend(dest.get(), Solid(2, 5, 4, DQ_UCHAR, {200, 200, 200, 255}).get(), lines, 0.5f),
            1);
        for (int y = 0; y < 5; ++y)
            EXPECT_EQ(Get(*dest, 0, 0, y), (y % 2 == 0 ? evenChanged : oddChanged) ? 100.0f : 0.0f)
                << lines << " row " << y;
    }
}

TEST(Blend, RefusesWhatItCannotMix) {
    struct Case {
        const char* name;
        DQImagePtr dest, other;
    };
    Case cases[] = {
        {"sizes differ", Solid(3, 3, 4, DQ_UCHAR, {1, 1, 1, 1}),
         Solid(3, 2, 4, DQ_UCHAR, {9, 9, 9, 9})},
        {"types differ", Solid(3, 3, 4, DQ_UCHAR, {1, 1, 1, 1}),
         Solid(3, 3, 4, DQ_USHORT, {9, 9, 9, 9})},
        {"two channels", Solid(3, 3, 2, DQ_UCHAR, {1, 1}), Solid(3, 3, 2, DQ_UCHAR, {9, 9})},
        {"signed shorts", Solid(3, 3, 3, DQ_SHORT, {1, 1, 1}), Solid(3, 3, 3, DQ_SHORT, {9, 9, 9})},
    };
    for (Case& c : cases) {
        EXPECT_EQ(DQBlend(c.dest.get(), c.other.get(), 1, 0.5f), 0) << c.name;
        EXPECT_EQ(DQBlendParallel(c.dest.get(), c.other.get(), 0.5f), 0) << c.name;
        EXPECT_EQ(Get(*c.dest, 0), 1.0f) << c.name << ": dest unchanged";
    }
    // A weight that is no finite number mixes nothing, in every type and channel count.
    for (float k : {NAN, INFINITY, -INFINITY}) {
        for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT}) {
            for (int channels : {3, 4}) {
                SCOPED_TRACE(testing::Message()
                             << "k " << k << ", type " << type << ", " << channels << " channels");
                DQImagePtr dest = Solid(3, 20, channels, type, 40.0f);
                DQImagePtr other = Solid(3, 20, channels, type, 200.0f);
                const DQImagePtr before = Duplicate(*dest);
                EXPECT_EQ(DQBlend(dest.get(), other.get(), 1, k), 0);
                EXPECT_EQ(DQBlendParallel(dest.get(), other.get(), k), 0);
                EXPECT_TRUE(SamePixels(*dest, *before)) << "dest unchanged";
                DQImagePtr mixed = DQMakeImage(3, 20, channels, type);
                try {
                    Dissolve(mixed.get(), dest.get(), other.get(), k);
                    ADD_FAILURE() << "Dissolve took the weight";
                } catch (DQErr code) {
                    EXPECT_EQ(code, kDQErrBadArgument);
                }
            }
        }
    }
    DQImagePtr dest = Solid(3, 3, 4, DQ_FLOAT, {0.5f, 0.5f, 0.5f, 1.0f});
    DQImagePtr other = Solid(3, 3, 4, DQ_FLOAT, {0.1f, 0.1f, 0.1f, 1.0f});
    dest->whitePoint = other->whitePoint = 255.0f;
    EXPECT_EQ(DQBlend(dest.get(), other.get(), 1, 0.5f), 0);
    EXPECT_EQ(Get(*dest, 0), 0.5f) << "a float image with another white point is left alone";
}

TEST(Blend, ParallelEqualsSerial) {
    ForWorkerCounts([](int) {
        DQImagePtr serial = PatternImage(37, 90, 4, DQ_USHORT, 1);
        DQImagePtr other = PatternImage(37, 90, 4, DQ_USHORT, 2);
        DQImagePtr parallel = Duplicate(*serial);
        ASSERT_EQ(DQBlend(serial.get(), other.get(), 1, -0.7f), 1);
        ASSERT_EQ(DQBlendParallel(parallel.get(), other.get(), -0.7f), 1);
        for (int y = 0; y < 90; ++y)
            ASSERT_EQ(std::memcmp(serial->RowAddress(y), parallel->RowAddress(y), 37 * 8), 0)
                << "row " << y;
    });
}

TEST(Dissolve, Cases) {
    struct Case {
        int type;
        float t;
        float expected[4];
    };
    // a = (40, 80, 120, 200) and b = (140, 80, 20, 250), both in 8-bit units. t 0.004 returns a,
    // t 0.996 b; a quarter rounds except in floats; t 1.5 gives alpha 275: (190, 80, -30) divided
    // by 275 / 255 and limited; t -0.5 extrapolates within alpha too.
    const Case cases[] = {
        {DQ_UCHAR, 0.004f, {40, 80, 120, 200}},  {DQ_UCHAR, 0.996f, {140, 80, 20, 250}},
        {DQ_UCHAR, 0.25f, {65, 80, 95, 213}},    {DQ_USHORT, 0.25f, {65, 80, 95, 213}},
        {DQ_FLOAT, 0.25f, {65, 80, 95, 212.5f}}, {DQ_UCHAR, 1.5f, {176, 74, 0, 255}},
        {DQ_UCHAR, -0.5f, {0, 80, 170, 175}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "type " << c.type << ", t " << c.t);
        DQImagePtr a = Solid(6, 20, 4, c.type, {40, 80, 120, 200});
        DQImagePtr b = Solid(6, 20, 4, c.type, {140, 80, 20, 250});
        DQImagePtr dest = DQMakeImage(6, 20, 4, c.type);
        Dissolve(dest.get(), a.get(), b.get(), c.t);
        for (int ch = 0; ch < 4; ++ch)
            EXPECT_NEAR(Get(*dest, ch, 5, 19), c.expected[ch], 1e-3f) << "ch " << ch;
    }
}

} // namespace
