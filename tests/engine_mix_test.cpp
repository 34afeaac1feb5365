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
        const char* name;
        int type;
        std::initializer_list<float> dest, other;
        float k;
        float expected[4];
    };
    const Case cases[] = {
        {"k 1 keeps dest", DQ_UCHAR, {10, 20, 30, 40}, {200, 200, 200, 255}, 1, {10, 20, 30, 40}},
        {"k 0 is other", DQ_UCHAR, {10, 20, 30, 40}, {200, 100, 50, 255}, 0, {200, 100, 50, 255}},
        {"half rounds", DQ_UCHAR, {10, 21, 30, 255}, {20, 30, 41, 255}, 0.5f, {15, 26, 36, 255}},
        {"alpha 0 clears colour", DQ_UCHAR, {90, 90, 90, 0}, {80, 80, 80, 0}, 0.5f, {0, 0, 0, 0}},
        {"within alpha", DQ_UCHAR, {200, 9, 9, 100}, {200, 9, 9, 100}, 0.5f, {100, 9, 9, 100}},
        // alpha 310 of 255: colours divided by 1.2157, then limited.
        {"k 2 over white",
         DQ_UCHAR,
         {250, 100, 0, 255},
         {100, 100, 100, 200},
         2,
         {255, 82, 0, 255}},
        {"16 bits",
         DQ_USHORT,
         {1000, 2000, 3000, 65535},
         {3000, 2000, 1000, 65535},
         0.25f,
         {2500, 2000, 1500, 65535}},
        {"float",
         DQ_FLOAT,
         {0.2f, 0.4f, 0.6f, 1},
         {0.6f, 0.4f, 0.2f, 1},
         0.5f,
         {0.4f, 0.4f, 0.4f, 1}},
    };
    for (const Case& c : cases) {
        DQImagePtr dest = Solid(5, 4, 4, c.type, c.dest);
        DQImagePtr other = Solid(5, 4, 4, c.type, c.other);
        EXPECT_EQ(DQBlend(dest.get(), other.get(), 1, c.k), 1) << c.name;
        for (int ch = 0; ch < 4; ++ch)
            EXPECT_NEAR(Get(*dest, ch, 4, 3), c.expected[ch], 1e-5f) << c.name << " channel " << ch;
    }
}

TEST(Blend, ThreeChannelTableAgreesWithDirectMath) {
    // The 8-bit table and the 16-bit direct path compute the same mix on the same values.
    for (float k : {0.3f, -0.5f, 1.7f}) {
        DQImagePtr d8 = Solid(3, 2, 3, DQ_UCHAR, {0, 128, 255});
        DQImagePtr o8 = Solid(3, 2, 3, DQ_UCHAR, {255, 64, 0});
        DQImagePtr d16 = Solid(3, 2, 3, DQ_USHORT, {0, 128, 255});
        DQImagePtr o16 = Solid(3, 2, 3, DQ_USHORT, {255, 64, 0});
        DQBlend(d8.get(), o8.get(), 1, k);
        DQBlend(d16.get(), o16.get(), 1, k);
        const float dv[3] = {0, 128, 255}, ov[3] = {255, 64, 0};
        for (int ch = 0; ch < 3; ++ch) {
            float v = ov[ch] * (1.0f - k) + dv[ch] * k + 0.5f;
            const float expected8 = std::floor(std::clamp(v, 0.0f, 255.0f));
            EXPECT_EQ(Get(*d8, ch), expected8) << "8 bits, k " << k << " ch " << ch;
            EXPECT_EQ(Get(*d16, ch), std::floor(std::max(v, 0.0f)))
                << "16 bits, k " << k << " ch " << ch;
        }
    }
    DQImagePtr d = Solid(1, 1, 3, DQ_UCHAR, {100, 100, 100});
    DQImagePtr o = Solid(1, 1, 3, DQ_UCHAR, {200, 0, 255});
    DQBlend(d.get(), o.get(), 1, -1.0f); // 2 o - d, limited
    EXPECT_EQ(Get(*d, 0, 0, 0), 255.0f);
    EXPECT_EQ(Get(*d, 1, 0, 0), 0.0f);
    EXPECT_EQ(Get(*d, 2, 0, 0), 255.0f);
}

TEST(Blend, LinesSelectRows) {
    struct Case {
        const char* name;
        int lines;
        bool evenChanged, oddChanged;
    };
    const Case cases[] = {
        {"all rows", 1, true, true}, {"even rows", 2, true, false}, {"odd rows", 3, false, true}};
    for (const Case& c : cases) {
        DQImagePtr dest = Solid(2, 5, 4, DQ_UCHAR, {0, 0, 0, 255});
        DQImagePtr other = Solid(2, 5, 4, DQ_UCHAR, {200, 200, 200, 255});
        DQBlend(dest.get(), other.get(), c.lines, 0.5f);
        for (int y = 0; y < 5; ++y) {
            const bool changed = y % 2 == 0 ? c.evenChanged : c.oddChanged;
            EXPECT_EQ(Get(*dest, 0, 0, y), changed ? 100.0f : 0.0f) << c.name << " row " << y;
        }
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
    };
    for (Case& c : cases) {
        EXPECT_EQ(DQBlend(c.dest.get(), c.other.get(), 1, 0.5f), 0) << c.name;
        EXPECT_EQ(DQBlendParallel(c.dest.get(), c.other.get(), 0.5f), 0) << c.name;
        EXPECT_EQ(Get(*c.dest, 0), 1.0f) << c.name << ": dest unchanged";
    }
    DQImagePtr dest = Solid(3, 3, 4, DQ_FLOAT, {0.5f, 0.5f, 0.5f, 1.0f});
    DQImagePtr other = Solid(3, 3, 4, DQ_FLOAT, {0.1f, 0.1f, 0.1f, 1.0f});
    dest->whitePoint = other->whitePoint = 255.0f;
    EXPECT_EQ(DQBlend(dest.get(), other.get(), 1, 0.5f), 0);
    EXPECT_EQ(Get(*dest, 0), 0.5f) << "a float image with another white point is left alone";
}

TEST(Blend, ParallelEqualsSerial) {
    ForWorkerCounts([](int) {
        DQImagePtr serial = DQMakeImage(37, 90, 4, DQ_USHORT);
        DQImagePtr other = DQMakeImage(37, 90, 4, DQ_USHORT);
        for (int y = 0; y < 90; ++y)
            for (int x = 0; x < 37; ++x)
                for (int c = 0; c < 4; ++c) {
                    serial->SetChannelFloat(x, y, c, float((x * 131 + y * 71 + c * 977) % 60000));
                    other->SetChannelFloat(x, y, c, float((x * 17 + y * 313 + c * 5) % 65535));
                }
        DQImagePtr parallel = DQMakeImage(37, 90, 4, DQ_USHORT);
        parallel->CopyWhole(serial.get());
        DQBlend(serial.get(), other.get(), 1, -0.7f);
        DQBlendParallel(parallel.get(), other.get(), -0.7f);
        for (int y = 0; y < 90; ++y)
            ASSERT_EQ(std::memcmp(serial->RowAddress(y), parallel->RowAddress(y), 37 * 8), 0)
                << "row " << y;
    });
}

TEST(Dissolve, Cases) {
    struct Case {
        const char* name;
        int type;
        float t;
        float expected[4];
    };
    // a = (40, 80, 120, 200) and b = (140, 80, 20, 250), both in 8-bit units.
    const Case cases[] = {
        {"t 0.004 returns a", DQ_UCHAR, 0.004f, {40, 80, 120, 200}},
        {"t 0.996 returns b", DQ_UCHAR, 0.996f, {140, 80, 20, 250}},
        {"quarter, rounded", DQ_UCHAR, 0.25f, {65, 80, 95, 213}},
        {"quarter, 16 bits", DQ_USHORT, 0.25f, {65, 80, 95, 212.5f + 0.5f}},
        {"quarter, float", DQ_FLOAT, 0.25f, {65, 80, 95, 212.5f}},
        // alpha 275: (190, 80, -30) divided by 275 / 255 and limited.
        {"t 1.5 extrapolates within alpha", DQ_UCHAR, 1.5f, {176, 74, 0, 255}},
        {"t -0.5 extrapolates within alpha", DQ_UCHAR, -0.5f, {0, 80, 170, 175}},
    };
    for (const Case& c : cases) {
        DQImagePtr a = Solid(6, 20, 4, c.type, {40, 80, 120, 200});
        DQImagePtr b = Solid(6, 20, 4, c.type, {140, 80, 20, 250});
        DQImagePtr dest = DQMakeImage(6, 20, 4, c.type);
        Dissolve(dest.get(), a.get(), b.get(), c.t);
        for (int ch = 0; ch < 4; ++ch)
            EXPECT_NEAR(Get(*dest, ch, 5, 19), c.expected[ch], 1e-3f) << c.name << " ch " << ch;
    }
}

} // namespace
