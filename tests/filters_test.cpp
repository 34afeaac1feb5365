#include "TestSupport.h"
#include "WarpReference.h"
#include "warp/Warp.h"

#include <cmath>
#include <vector>

using namespace quelmor::test;

namespace {

// The image filtered the plain way, in double, by rows (direction 0 or 1) and then by columns
// (0 or 2), stored after each pass: the first and last `w.size()` samples of a line are the mean
// of the taps inside the line weighted and renormalised, the rest the plain weighted sum.
DQImagePtr FilterReference(const DQImage& image, const std::vector<float>& w, int direction) {
    DQImagePtr out = MakeImage(image.width, image.height, image.channels, image.dataType,
                               [&](int x, int y, int c) { return ElementAt(image, x, y, c); });
    const int n = static_cast<int>(w.size());
    for (int axis : {0, 1}) {
        if (direction == (axis == 0 ? 2 : 1)) continue;
        const int length = axis ? image.height : image.width;
        for (int line = 0; line < (axis ? image.width : image.height); ++line)
            for (int c = 0; c < image.channels; ++c) {
                auto x = [&](int i) { return axis ? line : i; };
                auto y = [&](int i) { return axis ? i : line; };
                std::vector<double> in(length);
                for (int i = 0; i < length; ++i)
                    in[i] = ElementAt(*out, x(i), y(i), c);
                for (int i = 0; i < length; ++i) {
                    double sum = 0.0, weights = 0.0;
                    for (int p = std::max(i - n + 1, 0); p <= std::min(i + n - 1, length - 1);
                         ++p) {
                        sum += w[std::abs(p - i)] * in[p];
                        weights += w[std::abs(p - i)];
                    }
                    const double v = i < n || i >= length - n ? sum / weights : sum;
                    SetElement(*out, x(i), y(i), c, Stored(image.dataType, v));
                }
            }
    }
    return out;
}

std::vector<float> GaussHalf(float radius) {
    DQFilterKernel kernel;
    DQMakeGaussKernel(kernel, radius);
    return std::vector<float>(kernel.w, kernel.w + kernel.n);
}

} // namespace

TEST(GaussKernel, NormalisedWeightsOfTheFlowWindows) {
    const struct {
        float radius;
        std::vector<double> weights;
    } cases[] = {
        {7.0f, {0.20133, 0.17727, 0.12099, 0.06402, 0.02626, 0.00835, 0.00206, 0.00039}},
        {5.0f, {0.28185, 0.21961, 0.10388, 0.02983, 0.00520, 0.00055}},
        {3.0f, {0.46972, 0.23486, 0.02936, 0.00092}},
        {2.0f, {0.70207, 0.14759, 0.00137}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << "radius " << c.radius);
        const std::vector<float> w = GaussHalf(c.radius);
        ASSERT_EQ(w.size(), c.weights.size());
        double total = w[0];
        for (size_t i = 0; i < w.size(); ++i) {
            EXPECT_NEAR(w[i], c.weights[i], 0.6e-5) << "weight " << i;
            if (i > 0) total += 2.0 * w[i];
        }
        EXPECT_NEAR(total, 1.0, 1e-6);
    }
}

TEST(Convolve, ConstantImageStaysConstantToTheEdge) {
    const struct {
        const char* name;
        void (*apply)(DQImage*);
    } filters[] = {{"BlurGauss 7", [](DQImage* i) { BlurGauss(i, 0, 7.0f); }},
                   {"BlurGauss 2.5 rows", [](DQImage* i) { BlurGauss(i, 2, 2.5f); }},
                   {"Blur5", [](DQImage* i) { Blur5(i); }},
                   {"Blur3", [](DQImage* i) { Blur3(i); }},
                   {"BlurBox 2", [](DQImage* i) { BlurBox(i, 0, 2.0f); }}};
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int channels = 1; channels <= 4; ++channels)
            for (const auto& f : filters) {
                SCOPED_TRACE(Describe(type, channels) + ", " + f.name);
                const double value = type == DQ_FLOAT ? 0.625 : 200.0;
                DQImagePtr image = MakeImage(37, 35, channels, type, Fill(value));
                DQImagePtr constant = MakeImage(37, 35, channels, type, Fill(value));
                f.apply(image.get());
                EXPECT_LE(MaxDifference(*image, *constant), 1e-5);
            }
}

TEST(Convolve, MatchesPlainSeparableFilter) {
    const struct {
        const char* name;
        int width, height, channels, dataType;
        float radius;
    } cases[] = {{"float rgb", 40, 36, 3, DQ_FLOAT, 7.0f},
                 {"uchar rgba rounds between passes", 33, 40, 4, DQ_UCHAR, 3.0f},
                 {"ushort gray", 50, 34, 1, DQ_USHORT, 5.0f},
                 {"line shorter than the filter", 3, 5, 2, DQ_FLOAT, 7.0f},
                 {"one column", 1, 40, 1, DQ_FLOAT, 2.0f}};
    for (const auto& c : cases)
        for (int direction : {0, 1, 2}) {
            SCOPED_TRACE(::testing::Message() << c.name << ", direction " << direction);
            DQImagePtr image =
                MakeImage(c.width, c.height, c.channels, c.dataType, Pattern(c.dataType));
            DQImagePtr expected = FilterReference(*image, GaussHalf(c.radius), direction);
            DQFilterKernel kernel;
            DQMakeGaussKernel(kernel, c.radius);
            Convolve(image.get(), image.get(), kernel, direction);
            EXPECT_LE(MaxDifference(*image, *expected), c.dataType == DQ_FLOAT ? 2e-6 : 1.0);
        }
}

TEST(Convolve, SeparateDestinationLeavesTheSourceAndRefusesMismatch) {
    DQImagePtr source = MakeImage(20, 18, 3, DQ_FLOAT, Pattern(DQ_FLOAT));
    DQImagePtr original = MakeImage(20, 18, 3, DQ_FLOAT, Pattern(DQ_FLOAT));
    DQImagePtr dest = MakeImage(20, 18, 3, DQ_FLOAT, Fill(0.0));
    DQFilterKernel kernel;
    DQMakeGaussKernel(kernel, 3.0f);
    Convolve(dest.get(), source.get(), kernel, 0);
    EXPECT_EQ(MaxDifference(*source, *original), 0.0);
    BlurGauss(original.get(), 0, 3.0f);
    EXPECT_EQ(MaxDifference(*dest, *original), 0.0);

    DQImagePtr narrow = MakeImage(19, 18, 3, DQ_FLOAT, Pattern(DQ_FLOAT));
    EXPECT_EQ(ThrownBy([&] { Convolve(narrow.get(), source.get(), kernel, 0); }),
              kDQErrBadArgument);
}

TEST(BlurGauss, AxesAndTinyRadius) {
    // Rows that are constant along x only change when the columns are filtered.
    auto stripes = [](int, int y, int) { return (y % 3) * 0.25; };
    const struct {
        const char* name;
        int axes;
        float radius;
        bool changes;
    } cases[] = {{"rows only", 2, 3.0f, false},
                 {"columns only", 3, 3.0f, true},
                 {"axes 1 means both", 1, 3.0f, true},
                 {"radius below 0.001", 0, 0.0005f, false}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr image = MakeImage(16, 16, 1, DQ_FLOAT, stripes);
        DQImagePtr original = MakeImage(16, 16, 1, DQ_FLOAT, stripes);
        BlurGauss(image.get(), c.axes, c.radius);
        if (c.changes)
            EXPECT_GT(MaxDifference(*image, *original), 0.01);
        else
            EXPECT_LT(MaxDifference(*image, *original), 1e-6);
    }
}

TEST(Blur5, BinomialTapsRenormalisedAtTheBorder) {
    struct Case {
        const char* name;
        int ix, iy; // the impulse
        int x, y;   // the pixel checked
        double expected;
    };
    const double b[3] = {0.375, 0.25, 0.0625};
    const double edge = 0.375 + 0.25 + 0.0625; // taps left at the first pixel
    const Case cases[] = {
        {"two away", 4, 4, 6, 4, b[2] * b[0]},
        {"corner", 0, 0, 0, 0, (b[0] / edge) * (b[0] / edge)},
        {"next to the corner", 0, 0, 1, 0, (b[1] / (edge + 0.25)) * (b[0] / edge)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr image = MakeImage(9, 9, 1, DQ_FLOAT, [&](int x, int y, int) {
            return x == c.ix && y == c.iy ? 1.0 : 0.0;
        });
        Blur5(image.get());
        EXPECT_NEAR(ElementAt(*image, c.x, c.y, 0), c.expected, 1e-6);
    }
}

TEST(BlurBox, FractionalBoxIsDividedByItsTapCount) {
    // Radius 1.5: taps 0.5, 1, 1, 1, 0.5 over 5, summing to 0.8 in the interior; the first two
    // samples lose taps and are renormalised, so they keep the level.
    const struct {
        const char* name;
        float radius;
        int x;
        double expected;
    } cases[] = {{"interior", 1.5f, 10, 80.0},
                 {"second pixel", 1.5f, 1, 100.0},
                 {"first full pixel", 1.5f, 2, 80.0},
                 {"last pixel", 1.5f, 19, 100.0},
                 {"whole radius sums to one", 2.0f, 10, 100.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr image = MakeImage(20, 4, 1, DQ_FLOAT, Fill(100.0));
        BlurBox(image.get(), 2, c.radius);
        EXPECT_NEAR(ElementAt(*image, c.x, 1, 0), c.expected, 1e-4);
    }
    DQImagePtr image = MakeImage(20, 4, 1, DQ_FLOAT, Fill(100.0));
    BlurBox(image.get(), 1, 1.5f);
    EXPECT_EQ(ElementAt(*image, 10, 1, 0), 100.0) << "axes 1 filters nothing";
}

TEST(ResizeBilinear, CornersMapOntoCornersAndInteriorInterpolates) {
    DQImagePtr source = MakeImage(7, 5, 2, DQ_FLOAT, Pattern(DQ_FLOAT));
    for (auto [w, h] : {std::pair{13, 9}, std::pair{4, 3}, std::pair{7, 5}}) {
        SCOPED_TRACE(::testing::Message() << w << "x" << h);
        DQImagePtr dest = MakeImage(w, h, 2, DQ_FLOAT, Fill(-1.0));
        ResizeBilinear(dest.get(), source.get());
        const int corners[4][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
        for (auto [cx, cy] : corners)
            for (int c = 0; c < 2; ++c)
                EXPECT_EQ(ElementAt(*dest, cx * (w - 1), cy * (h - 1), c),
                          ElementAt(*source, cx * 6, cy * 4, c));
        // Every pixel against the bilinear read on the stretched grid.
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                EXPECT_NEAR(ElementAt(*dest, x, y, 1),
                            SampleAt(*source, x * 6.0f / (w - 1), y * 4.0f / (h - 1))[1], 1e-5);
    }
}

TEST(ResizeBilinear, WhitePointsAndChannelMismatch) {
    const struct {
        const char* name;
        int from, to;
        double value, expected;
    } cases[] = {{"uchar to float", DQ_UCHAR, DQ_FLOAT, 255.0, 1.0},
                 {"float to ushort rounds", DQ_FLOAT, DQ_USHORT, 0.5, 32768.0},
                 {"ushort to uchar", DQ_USHORT, DQ_UCHAR, 32896.0, 128.0},
                 {"same type", DQ_USHORT, DQ_USHORT, 1234.0, 1234.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(8, 6, 3, c.from, Fill(c.value));
        DQImagePtr dest = MakeImage(5, 4, 3, c.to, Fill(0.0));
        ResizeBilinear(dest.get(), source.get());
        EXPECT_NEAR(ElementAt(*dest, 2, 3, 1), c.expected, 1e-6);
    }
    DQImagePtr source = MakeImage(8, 6, 3, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr dest = MakeImage(5, 4, 4, DQ_UCHAR, Fill(7.0));
    EXPECT_EQ(ThrownBy([&] { ResizeBilinear(dest.get(), source.get()); }), kDQErrBadArgument);
    EXPECT_EQ(ElementAt(*dest, 0, 0, 0), 7.0);
}
