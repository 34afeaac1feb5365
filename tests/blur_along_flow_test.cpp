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
            DQImagePtr dest = MakeImage(19, 14, channels, type, [](int, int, int) { return 3.0; });
            DQImagePtr flow = ConstantFlow(10, 7, 0.0f, 0.0f);
            DQBlurAlongFlow(dest.get(), source.get(), flow.get(), 1, nullptr, 0, 1.0f);
            EXPECT_EQ(MaxDifference(*dest, *source), 0.0);
        }
}

TEST(BlurAlongFlow, SamplesAlongTheVector) {
    // Values x^2 along rows. Samples at whole pixels read x^2; half-way between two pixels the
    // bilinear read gives the mean of the two, so x +- 0.5 together exceed 2 x^2 by 1.
    auto square = [](int x, int, int) { return static_cast<double>(x) * x; };
    struct Case {
        const char* name;
        float u, shutter;
        int x;
        double expected;
    };
    const Case cases[] = {
        // Half-length 0.5: N rises to 2, samples at x, x + 0.5 and x - 0.5.
        {"half a pixel", 1.0f, 1.0f, 10, 100.0 + 1.0 / 3.0},
        // Half-length 2: N = 3, samples at x, x+1, x+2, x-1, x-2.
        {"two pixels", 2.0f, 2.0f, 10, 100.0 + (1 + 4 + 1 + 4) / 5.0},
        // At x = 1 the backward samples stop at x - 1 = 0; x - 2 is outside.
        {"cut at the left edge", 2.0f, 2.0f, 1, (1.0 + 4 + 9 + 0) / 4.0},
        // At the last column only the pixel and the backward samples are inside.
        {"cut at the right edge", 2.0f, 2.0f, 29, (841.0 + 784 + 729) / 3.0},
        {"negative shutter turns the line", 2.0f, -2.0f, 10, 100.0 + (1 + 4 + 1 + 4) / 5.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(30, 6, 1, DQ_FLOAT, square);
        DQImagePtr dest = MakeImage(30, 6, 1, DQ_FLOAT, [](int, int, int) { return 0.0; });
        DQImagePtr flow = ConstantFlow(30, 6, c.u, 0.0f);
        DQBlurAlongFlow(dest.get(), source.get(), flow.get(), 1, nullptr, 0, c.shutter);
        EXPECT_NEAR(ElementAt(*dest, c.x, 3, 0), c.expected, 1e-3);
    }
}

TEST(BlurAlongFlow, RefusesWhatItCannotBlur) {
    DQImagePtr source = MakeImage(12, 10, 3, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr otherSize = MakeImage(12, 9, 3, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr doubles(new DQImage(12, 10, 1, DQ_DOUBLE, 0));
    DQImagePtr doublesToo(new DQImage(12, 10, 1, DQ_DOUBLE, 0));
    DQImagePtr flow = ConstantFlow(12, 10, 1.0f, 0.0f);
    DQImagePtr shortFlow = MakeImage(12, 10, 2, DQ_USHORT, Pattern(DQ_USHORT));
    struct Case {
        const char* name;
        DQImage *dest, *source, *flow;
    };
    const Case cases[] = {
        {"size", otherSize.get(), source.get(), flow.get()},
        {"element type", doubles.get(), doublesToo.get(), flow.get()},
        {"short flow", source.get(), source.get(), shortFlow.get()},
    };
    for (const Case& c : cases) {
        try {
            DQBlurAlongFlow(c.dest, c.source, c.flow, 1, nullptr, 0, 1.0f);
            ADD_FAILURE() << c.name << " was accepted";
        } catch (DQErr code) {
            EXPECT_EQ(code, kDQErrBadArgument) << c.name;
        }
    }
}
