// Quality scores of the retime benchmarks: PSNR against its definition on known errors, SSIM
// against a direct per-window evaluation of its formula and against its closed form on flat
// pictures.
#include "bench/ImageMetrics.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <random>
#include <string>

namespace {

using namespace quelmor::bench;

DQImagePtr Make(int w, int h, const std::function<void(int x, int y, uint8_t* px)>& fill) {
    DQImagePtr image(new DQImage(w, h, 4, DQ_UCHAR, 0));
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            fill(x, y, image->Row<uint8_t>(y) + 4 * x);
    return image;
}

DQImagePtr Noise(int w, int h, unsigned seed) {
    std::mt19937 random(seed);
    return Make(w, h, [&](int, int, uint8_t* px) {
        for (int c = 0; c < 4; ++c)
            px[c] = uint8_t(random() & 255);
    });
}

// SSIM of one plane evaluated window by window from the definition, with the 2-D Gaussian taps
// written out: the reference for the separable code (luma here is in double, there in float).
double DirectSsim(const DQImage& a, const DQImage& b, int channel) {
    auto value = [channel](const DQImage& im, int x, int y) {
        const uint8_t* p = im.Row<uint8_t>(y) + 4 * x;
        return channel < 0 ? 0.299 * p[0] + 0.587 * p[1] + 0.114 * p[2] : double(p[channel]);
    };
    double taps[11][11], total = 0.0;
    for (int i = 0; i < 11; ++i)
        for (int j = 0; j < 11; ++j)
            total += taps[i][j] = std::exp(-((i - 5) * (i - 5) + (j - 5) * (j - 5)) / 4.5);
    const double c1 = 6.5025, c2 = 58.5225;
    double sum = 0.0;
    int windows = 0;
    for (int y = 5; y + 5 < a.height; ++y)
        for (int x = 5; x + 5 < a.width; ++x) {
            double mx = 0, my = 0, sxx = 0, syy = 0, sxy = 0;
            for (int i = 0; i < 11; ++i)
                for (int j = 0; j < 11; ++j) {
                    const double w = taps[i][j] / total;
                    mx += w * value(a, x + j - 5, y + i - 5);
                    my += w * value(b, x + j - 5, y + i - 5);
                }
            for (int i = 0; i < 11; ++i)
                for (int j = 0; j < 11; ++j) {
                    const double w = taps[i][j] / total;
                    const double dx = value(a, x + j - 5, y + i - 5) - mx;
                    const double dy = value(b, x + j - 5, y + i - 5) - my;
                    sxx += w * dx * dx;
                    syy += w * dy * dy;
                    sxy += w * dx * dy;
                }
            sum +=
                (2 * mx * my + c1) * (2 * sxy + c2) / ((mx * mx + my * my + c1) * (sxx + syy + c2));
            ++windows;
        }
    return sum / windows;
}

TEST(ImageMetrics, PsnrFollowsTheMeanSquaredErrorOfTheColourChannels) {
    struct Case {
        const char* name;
        int red, green, blue, alpha; // offsets of the second picture
        double mse;
    };
    const Case cases[] = {
        {"one level everywhere", 1, 1, 1, 0, 1.0}, {"ten levels everywhere", 10, 10, 10, 0, 100.0},
        {"one channel only", 0, 0, 30, 0, 300.0},  {"mixed signs", -4, 4, 0, 0, 32.0 / 3.0},
        {"alpha is not scored", 2, 2, 2, 90, 4.0},
    };
    const auto base = Make(37, 23, [](int x, int y, uint8_t* px) {
        px[0] = uint8_t(60 + x);
        px[1] = uint8_t(100 + y);
        px[2] = uint8_t(120 + x + y);
        px[3] = 100;
    });
    for (const Case& c : cases) {
        const auto moved = Make(37, 23, [&](int x, int y, uint8_t* px) {
            const uint8_t* p = base->Row<uint8_t>(y) + 4 * x;
            px[0] = uint8_t(p[0] + c.red);
            px[1] = uint8_t(p[1] + c.green);
            px[2] = uint8_t(p[2] + c.blue);
            px[3] = uint8_t(p[3] + c.alpha);
        });
        EXPECT_NEAR(Psnr(*base, *moved), 10.0 * std::log10(255.0 * 255.0 / c.mse), 1e-9) << c.name;
        EXPECT_DOUBLE_EQ(Psnr(*base, *moved), Psnr(*moved, *base)) << c.name;
    }
    EXPECT_EQ(Psnr(*base, *base), 99.0);
}

TEST(ImageMetrics, SsimMatchesTheWindowByWindowDefinition) {
    struct Case {
        const char* name;
        SsimPlane plane;
        int channel; // -1 luma
    };
    const Case cases[] = {{"luma", SsimPlane::Luma, -1},
                          {"red", SsimPlane::Red, 0},
                          {"green", SsimPlane::Green, 1},
                          {"blue", SsimPlane::Blue, 2}};
    const auto a = Noise(29, 21, 1);
    // The second picture is a blurred, shifted copy of the first plus noise: correlated, so every
    // term of the formula matters.
    const auto noise = Noise(29, 21, 2);
    const auto b = Make(29, 21, [&](int x, int y, uint8_t* px) {
        const int xs = std::min(x + 1, 28);
        for (int c = 0; c < 4; ++c)
            px[c] = uint8_t((a->Row<uint8_t>(y)[4 * x + c] + a->Row<uint8_t>(y)[4 * xs + c] +
                             noise->Row<uint8_t>(y)[4 * x + c] / 4) /
                            2.2);
    });
    for (const Case& c : cases) {
        const double direct = DirectSsim(*a, *b, c.channel);
        EXPECT_NEAR(Ssim(*a, *b, c.plane), direct, 1e-7) << c.name;
        EXPECT_NEAR(Ssim(*b, *a, c.plane), direct, 1e-7) << c.name << " swapped";
        EXPECT_NEAR(Ssim(*a, *a, c.plane), 1.0, 1e-12) << c.name << " identical";
        EXPECT_GT(direct, 0.0) << c.name;
        EXPECT_LT(direct, 0.99) << c.name;
    }
}

TEST(ImageMetrics, SsimOfFlatPicturesIsItsLuminanceTerm) {
    const int levels[][2] = {{0, 0}, {0, 255}, {100, 110}, {200, 50}, {128, 129}};
    for (const auto& l : levels) {
        const auto a = Make(16, 16, [&](int, int, uint8_t* px) { px[0] = px[1] = px[2] = l[0]; });
        const auto b = Make(16, 16, [&](int, int, uint8_t* px) { px[0] = px[1] = px[2] = l[1]; });
        const double c1 = (0.01 * 255) * (0.01 * 255);
        const double expected =
            (2.0 * l[0] * l[1] + c1) / (double(l[0]) * l[0] + double(l[1]) * l[1] + c1);
        const std::string name = std::to_string(l[0]) + " against " + std::to_string(l[1]);
        EXPECT_NEAR(Ssim(*a, *b, SsimPlane::Luma), expected, 1e-6) << name;
        EXPECT_NEAR(Score(*a, *b).ssimChannels, expected, 1e-9) << name;
    }
}

TEST(ImageMetrics, ChannelScoresSeeOnlyTheirChannel) {
    const auto a = Noise(24, 24, 3);
    const auto b = Make(24, 24, [&](int x, int y, uint8_t* px) {
        const uint8_t* p = a->Row<uint8_t>(y) + 4 * x;
        px[0] = p[0];
        px[1] = p[1];
        px[2] = uint8_t(255 - p[2]);
        px[3] = uint8_t(255 - p[3]);
    });
    EXPECT_NEAR(Ssim(*a, *b, SsimPlane::Red), 1.0, 1e-12);
    EXPECT_NEAR(Ssim(*a, *b, SsimPlane::Green), 1.0, 1e-12);
    const double blue = Ssim(*a, *b, SsimPlane::Blue);
    EXPECT_LT(blue, 0.0); // an inverted channel is anti-correlated
    const FrameScore s = Score(*a, *b);
    EXPECT_NEAR(s.ssimChannels, (2.0 + blue) / 3.0, 1e-12);
    EXPECT_LT(s.ssimLuma, 1.0);
}

TEST(ImageMetrics, RefusesPicturesThatCannotBeCompared) {
    const auto small = Noise(10, 40, 4), wide = Noise(40, 10, 5), other = Noise(40, 11, 6);
    EXPECT_THROW(Ssim(*small, *small, SsimPlane::Luma), std::invalid_argument);
    EXPECT_THROW(Ssim(*wide, *wide, SsimPlane::Red), std::invalid_argument);
    EXPECT_THROW(Psnr(*wide, *other), std::invalid_argument);
    DQImagePtr floats(new DQImage(40, 10, 4, DQ_FLOAT, 0));
    floats->Clear();
    EXPECT_THROW(Psnr(*wide, *floats), std::invalid_argument);
}

TEST(ImageMetrics, MeansAverageEveryScore) {
    ScoreMean mean;
    EXPECT_EQ(mean.Mean().psnr, 0.0);
    mean.Add({30.0, 0.8, 0.7});
    mean.Add({20.0, 0.6, 0.5});
    const FrameScore m = mean.Mean();
    EXPECT_DOUBLE_EQ(m.psnr, 25.0);
    EXPECT_DOUBLE_EQ(m.ssimLuma, 0.7);
    EXPECT_DOUBLE_EQ(m.ssimChannels, 0.6);
}

} // namespace
