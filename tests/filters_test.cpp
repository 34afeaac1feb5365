#include "TestSupport.h"
#include "WarpTestImages.h"
#include "warp/Warp.h"

#include <cmath>
#include <vector>

using namespace quelmor::test;

namespace {

// One line filtered the plain way, in double: the first and last `edge` samples are the mean of
// the taps inside the line weighted and renormalised, the rest the plain weighted sum.
std::vector<double> FilterLineReference(const std::vector<double>& in, const std::vector<float>& w,
                                        int edge) {
    const int n = static_cast<int>(w.size());
    const int length = static_cast<int>(in.size());
    std::vector<double> out(in.size());
    for (int i = 0; i < length; ++i) {
        const bool atEdge = i < edge || i >= length - edge;
        double sum = 0.0, weights = 0.0;
        for (int t = -(n - 1); t <= n - 1; ++t) {
            const int p = i + t;
            if (p < 0 || p >= length) continue;
            sum += w[std::abs(t)] * in[p];
            weights += w[std::abs(t)];
        }
        out[i] = atEdge ? sum / weights : sum;
    }
    return out;
}

double Rounded(double v, int dataType) {
    if (dataType == DQ_FLOAT) return v;
    const double white = dataType == DQ_UCHAR ? 255.0 : 65535.0;
    return std::floor(std::min(std::max(v + 0.5, 0.0), white));
}

// The whole image filtered by rows and then by columns, rounded between and after the passes.
std::vector<double> FilterImageReference(const DQImage& image, const std::vector<float>& w,
                                         int edge, bool rows, bool columns) {
    const int W = image.width, H = image.height, C = image.channels;
    std::vector<double> v(static_cast<size_t>(W) * H * C);
    auto at = [&](int x, int y, int c) -> double& {
        return v[(static_cast<size_t>(y) * W + x) * C + c];
    };
    for (int y = 0; y < H; ++y)
        for (int x = 0; x < W; ++x)
            for (int c = 0; c < C; ++c)
                at(x, y, c) = ElementAt(image, x, y, c);
    for (int c = 0; c < C; ++c) {
        if (rows)
            for (int y = 0; y < H; ++y) {
                std::vector<double> line(W);
                for (int x = 0; x < W; ++x)
                    line[x] = at(x, y, c);
                line = FilterLineReference(line, w, edge);
                for (int x = 0; x < W; ++x)
                    at(x, y, c) = Rounded(line[x], image.dataType);
            }
        if (columns)
            for (int x = 0; x < W; ++x) {
                std::vector<double> line(H);
                for (int y = 0; y < H; ++y)
                    line[y] = at(x, y, c);
                line = FilterLineReference(line, w, edge);
                for (int y = 0; y < H; ++y)
                    at(x, y, c) = Rounded(line[y], image.dataType);
            }
    }
    return v;
}

double MaxDifferenceTo(const DQImage& image, const std::vector<double>& expected) {
    double worst = 0.0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            for (int c = 0; c < image.channels; ++c) {
                const double e =
                    expected[(static_cast<size_t>(y) * image.width + x) * image.channels + c];
                worst = std::max(worst, std::fabs(ElementAt(image, x, y, c) - e));
            }
    return worst;
}

std::vector<float> GaussHalf(float radius) {
    DQFilterKernel kernel;
    DQMakeGaussKernel(kernel, radius);
    return std::vector<float>(kernel.w, kernel.w + kernel.n);
}

} // namespace

TEST(GaussKernel, NormalisedWeightsOfTheFlowWindows) {
    struct Case {
        float radius;
        std::vector<double> weights;
    };
    const Case cases[] = {
        {7.0f, {0.20133, 0.17727, 0.12099, 0.06402, 0.02626, 0.00835, 0.00206, 0.00039}},
        {5.0f, {0.28185, 0.21961, 0.10388, 0.02983, 0.00520, 0.00055}},
        {3.0f, {0.46972, 0.23486, 0.02936, 0.00092}},
        {2.0f, {0.70207, 0.14759, 0.00137}},
    };
    for (const Case& c : cases) {
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
    ForWorkerCounts([](int) {
        struct Filter {
            const char* name;
            void (*apply)(DQImage*);
        };
        const Filter filters[] = {
            {"BlurGauss 7", [](DQImage* i) { BlurGauss(i, 0, 7.0f); }},
            {"BlurGauss 2.5 rows", [](DQImage* i) { BlurGauss(i, 2, 2.5f); }},
            {"Blur5", [](DQImage* i) { Blur5(i); }},
            {"Blur3", [](DQImage* i) { Blur3(i); }},
            {"BlurBox 2", [](DQImage* i) { BlurBox(i, 0, 2.0f); }},
        };
        for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
            for (int channels = 1; channels <= 4; ++channels)
                for (const Filter& f : filters) {
                    SCOPED_TRACE(Describe(type, channels) + ", " + f.name);
                    const double value = type == DQ_FLOAT ? 0.625 : 200.0;
                    DQImagePtr image =
                        MakeImage(37, 35, channels, type, [&](int, int, int) { return value; });
                    f.apply(image.get());
                    for (int y = 0; y < image->height; ++y)
                        for (int x = 0; x < image->width; ++x)
                            for (int c = 0; c < channels; ++c)
                                ASSERT_NEAR(ElementAt(*image, x, y, c), value, 1e-5)
                                    << "at " << x << "," << y;
                }
    });
}

TEST(Convolve, MatchesPlainSeparableFilter) {
    struct Case {
        const char* name;
        int width, height, channels, dataType;
        float radius;
    };
    const Case cases[] = {
        {"float rgb", 40, 36, 3, DQ_FLOAT, 7.0f},
        {"uchar rgba rounds between passes", 33, 40, 4, DQ_UCHAR, 3.0f},
        {"ushort gray", 50, 34, 1, DQ_USHORT, 5.0f},
        {"line shorter than the filter", 3, 5, 2, DQ_FLOAT, 7.0f},
        {"one column", 1, 40, 1, DQ_FLOAT, 2.0f},
        {"one row", 40, 1, 3, DQ_FLOAT, 2.0f},
        {"fractional radius", 30, 33, 1, DQ_FLOAT, 4.5f},
    };
    ForWorkerCounts([&](int) {
        for (const Case& c : cases)
            for (int direction : {0, 1, 2}) {
                SCOPED_TRACE(::testing::Message() << c.name << ", direction " << direction);
                DQImagePtr image =
                    MakeImage(c.width, c.height, c.channels, c.dataType, Pattern(c.dataType));
                const std::vector<float> w = GaussHalf(c.radius);
                const std::vector<double> expected = FilterImageReference(
                    *image, w, static_cast<int>(w.size()), direction != 2, direction != 1);
                DQFilterKernel kernel;
                DQMakeGaussKernel(kernel, c.radius);
                Convolve(image.get(), image.get(), kernel, direction);
                EXPECT_LE(MaxDifferenceTo(*image, expected), c.dataType == DQ_FLOAT ? 2e-6 : 1.0);
            }
    });
}

TEST(Convolve, SeparateDestinationLeavesTheSourceAndRefusesMismatch) {
    DQImagePtr source = MakeImage(20, 18, 3, DQ_FLOAT, Pattern(DQ_FLOAT));
    DQImagePtr original = MakeImage(20, 18, 3, DQ_FLOAT, Pattern(DQ_FLOAT));
    DQImagePtr dest = MakeImage(20, 18, 3, DQ_FLOAT, [](int, int, int) { return 0.0; });
    DQFilterKernel kernel;
    DQMakeGaussKernel(kernel, 3.0f);
    Convolve(dest.get(), source.get(), kernel, 0);
    EXPECT_EQ(MaxDifference(*source, *original), 0.0);
    BlurGauss(original.get(), 0, 3.0f);
    EXPECT_EQ(MaxDifference(*dest, *original), 0.0);

    DQImagePtr narrow = MakeImage(19, 18, 3, DQ_FLOAT, Pattern(DQ_FLOAT));
    try {
        Convolve(narrow.get(), source.get(), kernel, 0);
        FAIL() << "a destination of another size was accepted";
    } catch (DQErr code) {
        EXPECT_EQ(code, kDQErrBadArgument);
    }
}

TEST(BlurGauss, AxesAndTinyRadius) {
    // Rows that are constant along x only change when the columns are filtered.
    auto stripes = [](int, int y, int) { return (y % 3) * 0.25; };
    struct Case {
        const char* name;
        int axes;
        float radius;
        bool changes;
    };
    const Case cases[] = {
        {"rows only", 2, 3.0f, false},
        {"columns only", 3, 3.0f, true},
        {"both", 0, 3.0f, true},
        {"axes 1 means both", 1, 3.0f, true},
        {"radius below 0.001", 0, 0.0005f, false},
    };
    for (const Case& c : cases) {
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
        {"centre", 4, 4, 4, 4, b[0] * b[0]},
        {"diagonal neighbour", 4, 4, 5, 3, b[1] * b[1]},
        {"two away", 4, 4, 6, 4, b[2] * b[0]},
        {"corner", 0, 0, 0, 0, (b[0] / edge) * (b[0] / edge)},
        {"next to the corner", 0, 0, 1, 0, (b[1] / (edge + 0.25)) * (b[0] / edge)},
    };
    for (const Case& c : cases) {
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
    struct Case {
        const char* name;
        float radius;
        int x;
        double expected;
    };
    const Case cases[] = {
        {"interior", 1.5f, 10, 80.0},     {"first pixel", 1.5f, 0, 100.0},
        {"second pixel", 1.5f, 1, 100.0}, {"first full pixel", 1.5f, 2, 80.0},
        {"last pixel", 1.5f, 19, 100.0},  {"whole radius sums to one", 2.0f, 10, 100.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr image = MakeImage(20, 4, 1, DQ_FLOAT, [](int, int, int) { return 100.0; });
        BlurBox(image.get(), 2, c.radius);
        EXPECT_NEAR(ElementAt(*image, c.x, 1, 0), c.expected, 1e-4);
    }
    DQImagePtr image = MakeImage(20, 4, 1, DQ_FLOAT, [](int, int, int) { return 100.0; });
    BlurBox(image.get(), 1, 1.5f);
    EXPECT_EQ(ElementAt(*image, 10, 1, 0), 100.0) << "axes 1 filters nothing";
}

TEST(ResizeBilinear, CornersMapOntoCornersAndInteriorInterpolates) {
    DQImagePtr source = MakeImage(7, 5, 2, DQ_FLOAT, Pattern(DQ_FLOAT));
    for (auto [w, h] : {std::pair{13, 9}, std::pair{4, 3}, std::pair{7, 5}}) {
        SCOPED_TRACE(::testing::Message() << w << "x" << h);
        DQImagePtr dest = MakeImage(w, h, 2, DQ_FLOAT, [](int, int, int) { return -1.0; });
        ResizeBilinear(dest.get(), source.get());
        const int corners[4][2] = {{0, 0}, {1, 0}, {0, 1}, {1, 1}};
        for (auto [cx, cy] : corners)
            for (int c = 0; c < 2; ++c)
                EXPECT_EQ(ElementAt(*dest, cx * (w - 1), cy * (h - 1), c),
                          ElementAt(*source, cx * 6, cy * 4, c));
        // Every pixel against the bilinear formula on the stretched grid.
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const double sx = x * 6.0 / (w - 1), sy = y * 4.0 / (h - 1);
                const int ix = std::min(static_cast<int>(sx), 5),
                          iy = std::min(static_cast<int>(sy), 3);
                const double tx = sx - ix, ty = sy - iy;
                auto s = [&](int xx, int yy) { return ElementAt(*source, xx, yy, 1); };
                const double top = s(ix, iy) + tx * (s(ix + 1, iy) - s(ix, iy));
                const double bottom = s(ix, iy + 1) + tx * (s(ix + 1, iy + 1) - s(ix, iy + 1));
                EXPECT_NEAR(ElementAt(*dest, x, y, 1), top + ty * (bottom - top), 1e-5);
            }
    }
}

TEST(ResizeBilinear, WhitePointsAndChannelMismatch) {
    struct Case {
        const char* name;
        int from, to;
        double value, expected;
    };
    const Case cases[] = {
        {"uchar to float", DQ_UCHAR, DQ_FLOAT, 255.0, 1.0},
        {"float to ushort rounds", DQ_FLOAT, DQ_USHORT, 0.5, 32768.0},
        {"uchar to ushort", DQ_UCHAR, DQ_USHORT, 255.0, 65535.0},
        {"ushort to uchar", DQ_USHORT, DQ_UCHAR, 32896.0, 128.0},
        {"same type", DQ_USHORT, DQ_USHORT, 1234.0, 1234.0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(8, 6, 3, c.from, [&](int, int, int) { return c.value; });
        DQImagePtr dest = MakeImage(5, 4, 3, c.to, [](int, int, int) { return 0.0; });
        ResizeBilinear(dest.get(), source.get());
        EXPECT_NEAR(ElementAt(*dest, 2, 3, 1), c.expected, 1e-6);
    }
    DQImagePtr source = MakeImage(8, 6, 3, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr dest = MakeImage(5, 4, 4, DQ_UCHAR, [](int, int, int) { return 7.0; });
    try {
        ResizeBilinear(dest.get(), source.get());
        FAIL() << "different channel counts were accepted";
    } catch (DQErr code) {
        EXPECT_EQ(code, kDQErrBadArgument);
    }
    EXPECT_EQ(ElementAt(*dest, 0, 0, 0), 7.0);
}
