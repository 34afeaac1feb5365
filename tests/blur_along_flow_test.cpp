#include "TestSupport.h"
#include "WarpTestImages.h"
#include "warp/Warp.h"

#include <cmath>

using namespace quelmor::test;

TEST(BlurAlongFlow, ZeroFlowCopiesEveryMember) {
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int channels = 1; channels <= 4; ++channels) {
            SCOPED_TRACE(Describe(type, channels));
            DQImagePtr source = MakeImage(19, 14, channels, type, Pattern(type));
            DQImagePtr dest = MakeImage(19, 14, channels, type, Fill(3.0));
            DQImagePtr flow = ConstantFlow(10, 7, 0.0f, 0.0f);
            DQBlurAlongFlow(dest.get(), source.get(), flow.get(), 1, nullptr, 0, 1.0f);
            EXPECT_EQ(MaxDifference(*dest, *source), 0.0);
        }
}

TEST(BlurAlongFlow, SamplesAlongTheVector) {
    // Values x^2 along rows. Samples at whole pixels read x^2; half-way between two pixels the
    // bilinear read gives the mean of the two, so x +- 0.5 together exceed 2 x^2 by 1.
    auto square = [](int x, int, int) { return static_cast<double>(x) * x; };
    // Half-length 0.5 raises N to 2: samples at x and x +- 0.5. Half-length 2 gives N = 3: at x,
    // x +- 1 and x +- 2, cut at each edge after the last sample inside.
    const struct {
        const char* name;
        float u, shutter;
        int x;
        double expected;
    } cases[] = {
        {"half a pixel", 1.0f, 1.0f, 10, 100.0 + 1.0 / 3.0},
        {"cut at the left edge", 2.0f, 2.0f, 1, (1.0 + 4 + 9 + 0) / 4.0},
        {"cut at the right edge", 2.0f, 2.0f, 29, (841.0 + 784 + 729) / 3.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(30, 6, 1, DQ_FLOAT, square);
        DQImagePtr dest = MakeImage(30, 6, 1, DQ_FLOAT, Fill(0.0));
        DQImagePtr flow = ConstantFlow(30, 6, c.u, 0.0f);
        DQBlurAlongFlow(dest.get(), source.get(), flow.get(), 1, nullptr, 0, c.shutter);
        EXPECT_NEAR(ElementAt(*dest, c.x, 3, 0), c.expected, 1e-3);
    }
}

TEST(BlurAlongFlow, RefusesWhatItCannotBlur) {
    DQImagePtr source = MakeImage(12, 10, 3, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr otherSize = MakeImage(12, 9, 3, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr doubles(new DQImage(12, 10, 1, DQ_DOUBLE, 0)),
        doublesToo(new DQImage(12, 10, 1, DQ_DOUBLE, 0));
    DQImagePtr flow = ConstantFlow(12, 10, 1.0f, 0.0f);
    DQImagePtr shortFlow = MakeImage(12, 10, 2, DQ_USHORT, Pattern(DQ_USHORT));
    const struct {
        const char* name;
        DQImage *dest, *source, *flow;
    } cases[] = {{"size", otherSize.get(), source.get(), flow.get()},
                 {"element type", doubles.get(), doublesToo.get(), flow.get()},
                 {"short flow", source.get(), source.get(), shortFlow.get()}};
    for (const auto& c : cases)
        EXPECT_EQ(ThrownBy([&] { DQBlurAlongFlow(c.dest, c.source, c.flow, 1, nullptr, 0, 1.0f); }),
                  kDQErrBadArgument)
            << c.name;
}
