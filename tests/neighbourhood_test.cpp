#include "ImagePatterns.h"
#include "TestSupport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <string>

using namespace quelmor::test;

namespace {
// Mean of the neighbours within 3 pixels on both axes that lie inside the image.
float WindowMean(const DQImage& image, int x, int y, int c) {
    double sum = 0;
    int count = 0;
    for (int dy = -3; dy <= 3; ++dy)
        for (int dx = -3; dx <= 3; ++dx) {
            const int sx = x + dx, sy = y + dy;
            if (sx < 0 || sy < 0 || sx >= image.width || sy >= image.height) continue;
            sum += At(image, sx, sy, c);
            ++count;
        }
    return static_cast<float>(sum / count);
}
} // namespace

TEST(Neighbourhood, Sum55IsTheMeanOfTheSevenBySevenWindowInside) {
    struct Size {
        int w, h, channels;
    };
    for (Size s : {Size{1, 1, 1}, Size{3, 2, 2}, Size{16, 12, 4}}) {
        SCOPED_TRACE(::testing::Message() << s.w << "x" << s.h << ", " << s.channels << " ch");
        auto source = PatternImage(s.w, s.h, s.channels, DQ_FLOAT, 21, 1);
        DQImage dest(s.w, s.h, s.channels, DQ_FLOAT, 0);
        dest.Sum55(source.get());
        for (int y = 0; y < s.h; ++y)
            for (int x = 0; x < s.w; ++x)
                for (int c = 0; c < s.channels; ++c)
                    ASSERT_NEAR(At(dest, x, y, c), WindowMean(*source, x, y, c), 1e-5f)
                        << x << "," << y << "," << c;
        // In place gives the same result.
        auto inPlace = Duplicate(*source);
        inPlace->Sum55(inPlace.get());
        EXPECT_TRUE(SamePixels(*inPlace, dest)) << "in place";
    }
}

TEST(Neighbourhood, LaplacianOfKnownSurfaces) {
    // f = x^2 + 2 y^2 has Laplacian 6 inside; a constant has 0 everywhere, edges included, since
    // edge pixels repeat outwards.
    const int w = 7, h = 6;
    DQImage quadratic(w, h, 2, DQ_FLOAT, 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            quadratic.SetChannelFloat(x, y, 0, static_cast<float>(x * x + 2 * y * y));
            quadratic.SetChannelFloat(x, y, 1, 3.0f);
        }
    DQImage result(w, h, 2, DQ_FLOAT, 0);
    result.Laplacian(&quadratic);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            if (x > 0 && x < w - 1 && y > 0 && y < h - 1) {
                ASSERT_FLOAT_EQ(At(result, x, y, 0), 6.0f) << x << "," << y;
            }
            ASSERT_FLOAT_EQ(At(result, x, y, 1), 0.0f) << x << "," << y;
        }
    // At the corner (0, 0): left and up repeat the centre, so -2 f + f(1,0) + f(0,1) = 1 + 2.
    EXPECT_FLOAT_EQ(At(result, 0, 0, 0), 3.0f);
    quadratic.Laplacian(&quadratic);
    EXPECT_FLOAT_EQ(At(quadratic, 3, 3, 0), 6.0f) << "in place";
    EXPECT_FLOAT_EQ(At(quadratic, 0, 0, 0), 3.0f) << "in place";
}

TEST(Neighbourhood, GradientOfARamp) {
    // f = 3x - 2y + 5 in each source type: the differences are exact everywhere, edges included.
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT}) {
        SCOPED_TRACE(::testing::Message() << "type " << type);
        const int w = 6, h = 5;
        DQImage ramp(w, h, 2, type, 0);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                ramp.SetChannelFloat(x, y, 0, static_cast<float>(3 * x - 2 * y + 10));
                ramp.SetChannelFloat(x, y, 1, static_cast<float>(y * y));
            }
        DQImage gradient(w, h, 4, DQ_FLOAT, 1);
        gradient.Gradient(&ramp);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                ASSERT_FLOAT_EQ(At(gradient, x, y, 0), 3.0f) << x << "," << y;
                ASSERT_FLOAT_EQ(At(gradient, x, y, 1), -2.0f) << x << "," << y;
                ASSERT_FLOAT_EQ(At(gradient, x, y, 2), 0.0f) << x << "," << y;
                const float dy = y == 0 ? 1.0f : y == h - 1 ? 2.0f * y - 1.0f : 2.0f * y;
                ASSERT_FLOAT_EQ(At(gradient, x, y, 3), dy) << x << "," << y;
            }
    }
}

TEST(Neighbourhood, MismatchesPrintAndLeaveTheDestination) {
    auto floats = PatternImage(6, 6, 1, DQ_FLOAT, 1);
    auto bytes = PatternImage(6, 6, 1, DQ_UCHAR, 1);
    auto small = PatternImage(5, 6, 1, DQ_FLOAT, 1);
    const struct {
        const char* name;
        std::function<void(DQImage&)> op;
        int destType, destChannels;
        std::string message;
    } cases[] = {
        {"Sum55 of bytes", [&](DQImage& d) { d.Sum55(bytes.get()); }, DQ_FLOAT, 1,
         "wrong matchup for DQImage::Sum55\n"},
        {"Sum55 of another size", [&](DQImage& d) { d.Sum55(small.get()); }, DQ_FLOAT, 1,
         "wrong matchup for DQImage::Sum55\n"},
        {"Laplacian of another size", [&](DQImage& d) { d.Laplacian(small.get()); }, DQ_FLOAT, 1,
         "wrong matchup for DQImage::Laplacian\n"},
        {"Gradient into bytes", [&](DQImage& d) { d.Gradient(floats.get()); }, DQ_UCHAR, 2,
         "Gradient for these data types not implemented!\n"},
        {"Gradient of another size", [&](DQImage& d) { d.Gradient(small.get()); }, DQ_FLOAT, 2,
         "dimensions don't match\n"},
        {"Gradient with too few channels", [&](DQImage& d) { d.Gradient(floats.get()); }, DQ_FLOAT,
         1, "dimensions don't match\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto dest = PatternImage(6, 6, c.destChannels, c.destType, 3);
        auto before = Duplicate(*dest);
        EXPECT_EQ(PrintedBy([&] { c.op(*dest); }), c.message);
        EXPECT_TRUE(SamePixels(*dest, *before));
    }
}

TEST(Neighbourhood, NormalizeVectors) {
    const struct {
        const char* name;
        int channels;
        std::array<float, 3> in, out;
    } cases[] = {
        {"two-vector", 2, {3, -4, 0}, {0.6f, -0.8f, 0}},
        {"zero two-vector stays", 2, {0, 0, 0}, {0, 0, 0}},
        {"three-vector diagonal", 3, {2, 2, 1}, {2.0f / 3, 2.0f / 3, 1.0f / 3}},
        {"zero three-vector points up", 3, {0, 0, 0}, {0, 0, 1}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage image(2, 1, c.channels, DQ_FLOAT, 0);
        for (int x = 0; x < 2; ++x)
            for (int ch = 0; ch < c.channels; ++ch)
                image.SetChannelFloat(x, 0, ch, c.in[ch]);
        image.Normalize2(); // each form leaves images of the other alone
        image.Normalize3();
        for (int ch = 0; ch < c.channels; ++ch)
            EXPECT_FLOAT_EQ(At(image, 1, 0, ch), c.out[ch]) << "channel " << ch;
    }
}
