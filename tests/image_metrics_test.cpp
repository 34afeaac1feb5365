// Quality scores of the benchmarks: PSNR of colour and luma on known errors, SSIM against its
// formula evaluated window by window and against its closed form on flat pictures.
#include "ImagePatterns.h"
#include "bench/ImageMetrics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>

namespace {

using namespace quelmor::bench;
using quelmor::test::PatternImage;
using quelmor::test::Solid;

DQImagePtr Make(int w, int h, const std::function<void(int x, int y, uint8_t* px)>& fill) {
    DQImagePtr image(new DQImage(w, h, 4, DQ_UCHAR, 0));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            fill(x, y, image->Row<uint8_t>(y) + 4 * x);
    return image;
}

// SSIM of one plane window by window from the 2-D Gaussian taps (channel -1: luma).
double DirectSsim(const DQImage& a, const DQImage& b, int channel) {
    auto value = [channel](const DQImage& im, int x, int y) {
        const uint8_t* p = im.Row<uint8_t>(y) + 4 * x;
        return channel < 0 ? 0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2] : double(p[channel]);
    };
    double sum = 0.0, total = 0.0;
    for (int i = -5; i <= 5; ++i)
        for (int j = -5; j <= 5; ++j)
            total += std::exp(-(i * i + j * j) / 4.5);
    for (int y = 5; y + 5 < a.height; ++y)
        for (int x = 5; x + 5 < a.width; ++x) {
            double m[5] = {}; // E[a], E[b], E[a a], E[b b], E[a b]
            for (int i = -5; i <= 5; ++i)
                for (int j = -5; j <= 5; ++j) {
                    const double w = std::exp(-(i * i + j * j) / 4.5) / total;
                    const double p = value(a, x + j, y + i), q = value(b, x + j, y + i);
                    m[0] += w * p, m[1] += w * q, m[2] += w * p * p, m[3] += w * q * q;
                    m[4] += w * p * q;
                }
            const double vx = m[2] - m[0] * m[0], vy = m[3] - m[1] * m[1];
            sum += (2 * m[0] * m[1] + 6.5025) * (2 * (m[4] - m[0] * m[1]) + 58.5225) /
                   ((m[0] * m[0] + m[1] * m[1] + 6.5025) * (vx + vy + 58.5225));
        }
    return sum / ((a.width - 10) * (a.height - 10));
}

TEST(ImageMetrics, PsnrFollowsTheMeanSquaredErrorOfColourAndLuma) {
    struct Case {
        const char* name;
        int red, green, blue, alpha; // offsets of the second picture
        double mse, lumaMse;
    };
    const Case cases[] = {{"blue only", 0, 0, 30, 0, 300.0, 3.42 * 3.42},
                          {"mixed signs", -4, 4, 0, 0, 32.0 / 3.0, 1.152 * 1.152},
                          {"alpha is not scored", 2, 2, 2, 90, 4.0, 4.0}};
    auto ramp = [](int r, int g, int b, int alpha) {
        return Make(37, 23, [=](int x, int y, uint8_t* px) {
            px[0] = uint8_t(60 + x + r), px[1] = uint8_t(100 + y + g);
            px[2] = uint8_t(120 + x + y + b), px[3] = uint8_t(100 + alpha);
        });
    };
    auto db = [](double mse) { return 10.0 * std::log10(255.0 * 255.0 / mse); };
    const auto base = ramp(0, 0, 0, 0);
    for (const Case& c : cases) {
        const auto moved = ramp(c.red, c.green, c.blue, c.alpha);
        EXPECT_NEAR(Psnr(*base, *moved), db(c.mse), 1e-9) << c.name;
        EXPECT_NEAR(Psnr(*base, *moved, ScorePlane::Luma), db(c.lumaMse), 1e-4) << c.name;
        EXPECT_DOUBLE_EQ(Psnr(*base, *moved), Psnr(*moved, *base)) << c.name;
    }
    EXPECT_EQ(Psnr(*base, *base, ScorePlane::Luma), 99.0);
}

TEST(ImageMetrics, SsimMatchesTheWindowByWindowDefinition) {
    // A blurred, shifted and noisy copy is correlated, so every term of the formula matters.
    const auto a = PatternImage(29, 21, 4, DQ_UCHAR, 1),
               noise = PatternImage(29, 21, 4, DQ_UCHAR, 2);
    const auto b = Make(29, 21, [&](int x, int y, uint8_t* px) {
        const uint8_t *p = a->Row<uint8_t>(y) + 4 * x,
                      *q = a->Row<uint8_t>(y) + 4 * std::min(x + 1, 28);
        for (int c = 0; c < 4; ++c)
            px[c] = uint8_t((p[c] + q[c] + noise->Row<uint8_t>(y)[4 * x + c] / 4) / 2.2);
    });
    for (int channel = -1; channel < 3; ++channel) { // Luma, Red, Green, Blue
        const auto plane = ScorePlane(channel + 1);
        const std::string name = "plane " + std::to_string(channel);
        const double direct = DirectSsim(*a, *b, channel);
        EXPECT_NEAR(Ssim(*a, *b, plane), direct, 1e-7) << name;
        EXPECT_NEAR(Ssim(*b, *a, plane), direct, 1e-7) << name << " swapped";
        EXPECT_NEAR(Ssim(*b, *b, plane), 1.0, 1e-12) << name << " identical";
    }
    EXPECT_LT(DirectSsim(*a, *b, -1), 0.99);
    // Flat pictures leave only the luminance term: (2 p q + c1) / (p p + q q + c1).
    const auto grey = Solid(29, 21, 4, DQ_UCHAR, {200, 200, 200, 255});
    const auto dark = Solid(29, 21, 4, DQ_UCHAR, {50, 50, 50, 0});
    const double flat = (20000 + 6.5025) / (42500 + 6.5025);
    EXPECT_NEAR(Ssim(*grey, *dark, ScorePlane::Luma), flat, 1e-6);
    EXPECT_NEAR(Score(*grey, *dark).ssimChannels, flat, 1e-9);
}

TEST(ImageMetrics, RefusesPicturesThatCannotBeCompared) {
    const auto wide = PatternImage(40, 10, 4, DQ_UCHAR, 5),
               other = PatternImage(40, 11, 4, DQ_UCHAR, 6),
               floats = Solid(40, 10, 4, DQ_FLOAT, 0.f);
    EXPECT_THROW(Ssim(*wide, *wide, ScorePlane::Red), std::invalid_argument); // below 11x11
    EXPECT_THROW(Psnr(*wide, *other), std::invalid_argument);
    EXPECT_THROW(Psnr(*wide, *floats), std::invalid_argument);
}

} // namespace
