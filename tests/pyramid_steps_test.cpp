#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/Flow.h"

#include <cstdlib>
#include <string>
#include <tuple>

using namespace quelmor::test;

namespace {

DQImagePtr FloatPlane(int width, int height, const PixelFunction& f, int channels = 1) {
    return MakeImage(width, height, channels, DQ_FLOAT, f);
}

} // namespace

// The expand maps the first and last pixels of each line onto each other, so a plane through the
// coarse level comes out as the same plane over the finer grid, values unscaled (no clamping at
// any white point), whatever the ratio of the sizes.
TEST(ExpandLevel, CarriesAPlaneOntoTheFinerGrid) {
    const struct {
        const char* name;
        int sw, sh, tw, th, channels;
    } cases[] = {
        {"halves", 5, 3, 9, 5, 1},        {"odd ratio", 5, 3, 10, 7, 1},
        {"two channels", 6, 4, 11, 7, 2}, {"2x2 to 3x3", 2, 2, 3, 3, 1},
        {"same size", 4, 4, 4, 4, 1},
    };
    for (const auto& c : cases) {
        auto plane = [](double u, double v, int ch) { return 1000.0 * u - 700.0 * v + 50.0 * ch; };
        DQImagePtr coarse = FloatPlane(
            c.sw, c.sh,
            [&](int x, int y, int ch) {
                return plane(double(x) / (c.sw - 1), double(y) / (c.sh - 1), ch);
            },
            c.channels);
        DQImagePtr fine = FloatPlane(c.tw, c.th, Fill(-1.0), c.channels);
        ExpandLevel(fine.get(), coarse.get());
        for (int y = 0; y < c.th; ++y)
            for (int x = 0; x < c.tw; ++x)
                for (int ch = 0; ch < c.channels; ++ch)
                    ASSERT_NEAR(ElementAt(*fine, x, y, ch),
                                plane(double(x) / (c.tw - 1), double(y) / (c.th - 1), ch), 2e-3)
                        << c.name << " at (" << x << ", " << y << ") channel " << ch;
    }
}

TEST(ExpandLevel, OneCoarsePixelSpreadsEverywhere) {
    DQImagePtr coarse = FloatPlane(1, 1, Fill(42.5));
    DQImagePtr fine = FloatPlane(3, 2, Fill(0.0));
    ExpandLevel(fine.get(), coarse.get());
    for (int y = 0; y < 2; ++y)
        for (int x = 0; x < 3; ++x)
            EXPECT_EQ(ElementAt(*fine, x, y, 0), 42.5);
}

TEST(ExpandLevel, RefusesLevelsThatAreNotFloatOrDifferInChannels) {
    DQImagePtr floatOne = FloatPlane(3, 3, Fill(1.0));
    DQImagePtr floatTwo = FloatPlane(6, 6, Fill(1.0), 2);
    DQImagePtr byteOne = MakeImage(6, 6, 1, DQ_UCHAR, Fill(9.0));
    DQImagePtr shortOne = MakeImage(3, 3, 1, DQ_USHORT, Fill(9.0));
    DQImagePtr target = FloatPlane(6, 6, Fill(5.0));
    const struct {
        const char* name;
        DQImage *target, *source;
    } cases[] = {{"8-bit target", byteOne.get(), floatOne.get()},
                 {"16-bit source", target.get(), shortOne.get()},
                 {"channels", floatTwo.get(), floatOne.get()},
                 {"no source", target.get(), nullptr}};
    for (const auto& c : cases) {
        const double before = c.target ? ElementAt(*c.target, 0, 0, 0) : 0.0;
        try {
            ExpandLevel(c.target, c.source);
            ADD_FAILURE() << c.name << " was accepted";
        } catch (DQErr code) {
            EXPECT_EQ(code, kDQErrBadArgument) << c.name;
        }
        EXPECT_EQ(ElementAt(*c.target, 0, 0, 0), before) << c.name;
    }
}

// One bright pixel in the centre of a 9 x 9 level: the binomial taps 1/16, 1/4, 3/8, 1/4, 1/16 on
// both axes come first, then the resize to 5 x 5 reads every second pixel. Without the smoothing
// the centre would keep its full value and its neighbours would be 0.
TEST(ReduceStep, SmoothsWithTheBinomialBeforeResizing) {
    const double taps[] = {0.375, 0.25, 0.0625};
    for (bool keepSource : {false, true}) {
        SCOPED_TRACE(keepSource ? "with scratch" : "in place");
        DQImagePtr source =
            FloatPlane(9, 9, [](int x, int y, int) { return x == 4 && y == 4 ? 256.0 : 0.0; });
        DQImagePtr scratch = FloatPlane(9, 9, Fill(0.0));
        DQImagePtr target = FloatPlane(5, 5, Fill(-1.0));
        if (keepSource)
            ReduceStep(target.get(), source.get(), scratch.get());
        else
            ReduceStep(target.get(), source.get());
        for (int y = 0; y < 5; ++y)
            for (int x = 0; x < 5; ++x) {
                const int dx = std::abs(2 * x - 4), dy = std::abs(2 * y - 4);
                const double want = dx <= 2 && dy <= 2 ? 256.0 * taps[dx] * taps[dy] : 0.0;
                EXPECT_NEAR(ElementAt(*target, x, y, 0), want, 1e-4) << x << ", " << y;
            }
        EXPECT_EQ(ElementAt(*source, 4, 4, 0), keepSource ? 256.0 : 256.0 * 0.375 * 0.375)
            << "the scratch form must leave its source alone; the plain form smooths it";
    }
}

TEST(ReduceStep, ConstantLevelStaysConstantForAnySize) {
    for (auto [sw, sh, tw, th] : {std::tuple{20, 13, 10, 6}, std::tuple{7, 7, 3, 3},
                                  std::tuple{2, 2, 2, 2}, std::tuple{3, 1, 2, 1}}) {
        DQImagePtr source = FloatPlane(sw, sh, Fill(17.25));
        DQImagePtr target = FloatPlane(tw, th, Fill(0.0));
        ReduceStep(target.get(), source.get());
        for (int y = 0; y < th; ++y)
            for (int x = 0; x < tw; ++x)
                ASSERT_NEAR(ElementAt(*target, x, y, 0), 17.25, 1e-4)
                    << sw << "x" << sh << " to " << tw << "x" << th;
    }
}

TEST(ReduceStep, RefusesChannelMismatchAndAWrongScratch) {
    DQImagePtr source = FloatPlane(8, 8, Fill(3.0));
    DQImagePtr twoChannels = FloatPlane(4, 4, Fill(1.0), 2);
    DQImagePtr smallScratch = FloatPlane(7, 8, Fill(0.0));
    DQImagePtr target = FloatPlane(4, 4, Fill(1.0));
    EXPECT_THROW(ReduceStep(twoChannels.get(), source.get()), DQErr);
    EXPECT_THROW(ReduceStep(target.get(), source.get(), smallScratch.get()), DQErr);
    EXPECT_EQ(ElementAt(*target, 0, 0, 0), 1.0);
    EXPECT_EQ(ElementAt(*source, 0, 0, 0), 3.0);
}
