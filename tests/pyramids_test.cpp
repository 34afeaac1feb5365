#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/Pyramids.h"

#include <cmath>
#include <memory>
#include <utility>
#include <vector>

using namespace quelmor::test;

namespace {

// Smooth shading with fine texture on top, within the 8-bit range, per channel.
PixelFunction Picture(double white) {
    return [white](int x, int y, int c) {
        const double t = 0.5 + 0.3 * std::sin(0.05 * x + 0.07 * y + c) +
                         0.15 * std::sin(1.3 * x * (c + 1)) * std::cos(0.9 * y);
        return std::floor(t * white);
    };
}

std::vector<std::pair<int, int>> LevelSizes(const DQImage* const* levels, int count) {
    std::vector<std::pair<int, int>> sizes;
    for (int k = 0; k < count; ++k)
        sizes.emplace_back(levels[k]->width, levels[k]->height);
    return sizes;
}

} // namespace

TEST(Pyramids, LevelSizesHalveDownToTenPixels) {
    using Sizes = std::vector<std::pair<int, int>>;
    const struct {
        int w, h;
        Sizes sizes;
    } cases[] = {
        {720, 486, {{720, 486}, {360, 243}, {180, 121}, {90, 60}, {45, 30}, {22, 15}}},
        {1001,
         999,
         {{1001, 999}, {500, 499}, {250, 249}, {125, 124}, {62, 62}, {31, 31}, {15, 15}}},
        {41, 23, {{41, 23}, {20, 11}}},
        {21, 300, {{21, 300}, {10, 150}}},
        {19, 300, {{19, 300}}},
        {20, 20, {{20, 20}, {10, 10}}},
        {1, 1, {{1, 1}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.w << "x" << c.h);
        LaplacePyramid laplace(c.w, c.h);
        GaussPyramid gauss(c.w, c.h);
        EXPECT_EQ(LevelSizes(laplace.levels, laplace.numLevels), c.sizes);
        EXPECT_EQ(LevelSizes(gauss.levels, gauss.numLevels), c.sizes);
        // A row of one pixel holds no curve: the step says so.
        std::unique_ptr<GaussStepOneDPyramid> step;
        EXPECT_EQ(PrintedBy([&] { step.reset(new GaussStepOneDPyramid(c.w)); }),
                  c.w == 1 ? "what?\n" : "");
        ASSERT_EQ(step->numLevels, PyramidLevelCount(c.w, c.w));
        for (int k = 0, w = c.w; k < step->numLevels; ++k, w /= 2) {
            EXPECT_EQ(step->levels[k]->width, w);
            EXPECT_EQ(step->levels[k]->height, 1);
        }
    }
    EXPECT_EQ(ThrownBy([] { LaplacePyramid none(0, 5); }), kDQErrBadArgument);
    EXPECT_EQ(ThrownBy([] { GaussStepOneDPyramid none(-3); }), kDQErrBadArgument);
}

TEST(LaplacePyramid, BuildThenCollapseGivesTheChannelBack) {
    const struct {
        int w, h, channels, type;
    } cases[] = {{97, 61, 4, DQ_UCHAR},
                 {128, 128, 1, DQ_UCHAR},
                 {75, 203, 3, DQ_USHORT},
                 {33, 21, 2, DQ_USHORT}};
    for (const auto& c : cases)
        for (int channel = 0; channel < c.channels; ++channel) {
            SCOPED_TRACE(::testing::Message() << Describe(c.type, c.channels) << " " << c.w << "x"
                                              << c.h << " channel " << channel);
            const double white = c.type == DQ_UCHAR ? 255.0 : 65535.0;
            DQImagePtr image = MakeImage(c.w, c.h, c.channels, c.type, Picture(white));
            DQImagePtr original = Duplicate(*image);
            LaplacePyramid pyramid(c.w, c.h);
            EXPECT_GT(pyramid.numLevels, 1);
            pyramid.Build(image.get(), channel);
            // The finer levels hold detail around 0, the last one the low-pass picture.
            double detail = 0.0;
            for (int x = 0; x < pyramid.levels[0]->width; ++x)
                detail += pyramid.levels[0]->Row<float>(3)[x];
            EXPECT_LT(std::fabs(detail / pyramid.levels[0]->width), 0.05 * white);
            image->Clear();
            pyramid.Collapse(image.get(), channel);
            int off = 0;
            for (int y = 0; y < c.h; ++y)
                for (int x = 0; x < c.w; ++x)
                    for (int ch = 0; ch < c.channels; ++ch) {
                        const double want = ch == channel ? ElementAt(*original, x, y, ch) : 0.0;
                        const double diff = std::fabs(ElementAt(*image, x, y, ch) - want);
                        EXPECT_LE(diff, 1.0) << x << "," << y;
                        off += diff != 0.0;
                    }
            EXPECT_LE(off, c.w * c.h / 100);
        }
}

TEST(LaplacePyramid, OneLevelOnlyCopiesThenLimitsAndRounds) {
    DQImagePtr image = MakeImage(30, 19, 2, DQ_UCHAR, Picture(255.0));
    LaplacePyramid pyramid(30, 19);
    ASSERT_EQ(pyramid.numLevels, 1);
    pyramid.Build(image.get(), 1);
    EXPECT_EQ(pyramid.levels[0]->Row<float>(4)[7], ElementAt(*image, 7, 4, 1));
    pyramid.levels[0]->Row<float>(0)[0] = -12.0f;
    pyramid.levels[0]->Row<float>(0)[1] = 300.0f;
    pyramid.levels[0]->Row<float>(0)[2] = 17.5f;
    pyramid.levels[0]->Row<float>(0)[3] = 17.49f;
    pyramid.Collapse(image.get(), 1);
    const double expected[] = {0.0, 255.0, 18.0, 17.0};
    for (int x = 0; x < 4; ++x)
        EXPECT_EQ(ElementAt(*image, x, 0, 1), expected[x]) << x;
    EXPECT_EQ(pyramid.levels[0]->Row<float>(0)[1], 255.0f);
}

TEST(LaplacePyramid, RefusesImagesThatDoNotFit) {
    DQImagePtr floats = MakeImage(40, 40, 1, DQ_FLOAT, Fill(0.5));
    DQImagePtr small = MakeImage(39, 40, 1, DQ_UCHAR, Fill(9.0));
    DQImagePtr good = MakeImage(40, 40, 1, DQ_UCHAR, Fill(9.0));
    LaplacePyramid pyramid(40, 40);
    pyramid.Build(good.get(), 0);
    const float kept = pyramid.levels[1]->Row<float>(2)[2];
    const struct {
        const char* name;
        DQImage* image;
        int channel;
    } cases[] = {{"float", floats.get(), 0},
                 {"other size", small.get(), 0},
                 {"no such channel", good.get(), 1},
                 {"null", nullptr, 0}};
    for (const auto& c : cases) {
        EXPECT_EQ(PrintedBy([&] { pyramid.Build(c.image, c.channel); }),
                  "can't make laplacian pyramid\n")
            << c.name;
        EXPECT_EQ(PrintedBy([&] { pyramid.Collapse(c.image, c.channel); }),
                  "can't make laplacian pyramid\n")
            << c.name;
        EXPECT_EQ(pyramid.levels[1]->Row<float>(2)[2], kept) << c.name;
    }
    // The Gaussian form names a wrong size but passes over other element types quietly.
    GaussPyramid gauss(40, 40);
    EXPECT_EQ(PrintedBy([&] { gauss.Build(small.get(), 0); }), "can't make laplacian pyramid\n");
    EXPECT_EQ(PrintedBy([&] { gauss.Build(floats.get(), 0); }), "");
}

TEST(GaussPyramid, LevelsAreLowPassCopiesOfTheChannel) {
    // A flat field with a fine checkerboard on top: level 0 keeps the checkerboard, the coarser
    // levels only the flat mean.
    DQImagePtr image = MakeImage(96, 64, 3, DQ_USHORT, [](int x, int y, int c) {
        return c == 1 ? 30000.0 + ((x + y) % 2 ? 4000.0 : -4000.0) : 0.0;
    });
    GaussPyramid pyramid(96, 64);
    pyramid.Build(image.get(), 1);
    ASSERT_EQ(pyramid.numLevels, 3);
    EXPECT_EQ(pyramid.levels[0]->Row<float>(5)[6], 34000.0f);
    for (int k = 1; k < pyramid.numLevels; ++k) {
        const DQImage* level = pyramid.levels[k];
        for (int y = 2; y < level->height - 2; ++y)
            for (int x = 2; x < level->width - 2; ++x)
                EXPECT_NEAR(level->Row<float>(y)[x], 30000.0, 600.0) << k << ": " << x << "," << y;
    }
}

TEST(GaussStepOneDPyramid, EachLevelRisesFromZeroToOne) {
    for (int width : {10, 64, 347, 1920}) {
        GaussStepOneDPyramid step(width);
        for (int k = 0; k < step.numLevels; ++k) {
            SCOPED_TRACE(::testing::Message() << width << " level " << k);
            EXPECT_EQ(step.StepValue(k, 0.0f), 0.0f);
            EXPECT_EQ(step.StepValue(k, 1.0f), 1.0f);
            EXPECT_EQ(step.StepValue(k, -0.5f), 0.0f);
            EXPECT_EQ(step.StepValue(k, 2.0f), 1.0f);
            EXPECT_NEAR(step.StepValue(k, 0.5f), 0.5f, 0.1f);
            float before = 0.0f;
            for (float t = 0.0f; t <= 1.0f; t += 0.01f) {
                const float v = step.StepValue(k, t);
                EXPECT_GE(v, before - 1e-6f) << "t " << t;
                before = v;
            }
            // Between pixels the value is the straight line between them.
            const int m = step.levels[k]->width - 1;
            const float* p = step.levels[k]->Row<float>(0);
            EXPECT_NEAR(step.StepValue(k, (m / 2 + 0.25f) / m),
                        p[m / 2] + 0.25f * (p[m / 2 + 1] - p[m / 2]), 1e-5f);
        }
        EXPECT_EQ(ThrownBy([&] { (void)step.StepValue(step.numLevels, 0.5f); }), kDQErrBadArgument);
    }
}

TEST(BlendPyramids, EndsOfTheStepGiveEachImage) {
    const int w = 90, h = 70;
    DQImagePtr a = MakeImage(w, h, 4, DQ_UCHAR, Picture(255.0));
    DQImagePtr b = MakeImage(w, h, 4, DQ_UCHAR, [](int x, int y, int c) {
        return std::floor(127.0 + 100.0 * std::cos(0.2 * x - 0.13 * y + c));
    });
    LaplacePyramid first(w, h), second(w, h);
    GaussStepOneDPyramid step(std::min(w, h));
    for (int channel = 0; channel < 4; ++channel) {
        first.Build(a.get(), channel);
        second.Build(b.get(), channel);
        const struct {
            float t;
            const DQImage* expected;
        } cases[] = {{1.0f, a.get()}, {0.0f, b.get()}};
        for (const auto& c : cases) {
            DQImagePtr out = MakeImage(w, h, 4, DQ_UCHAR, Fill(0.0));
            BlendPyramids(out.get(), channel, first, second, step, c.t);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    EXPECT_NEAR(ElementAt(*out, x, y, channel),
                                ElementAt(*c.expected, x, y, channel), 1.0)
                        << "t " << c.t << " at " << x << "," << y;
        }
        // Half-way every band is mixed: the result lies between the two pictures.
        DQImagePtr half = MakeImage(w, h, 4, DQ_UCHAR, Fill(0.0));
        BlendPyramids(half.get(), channel, first, second, step, 0.5f);
        double worst = 0.0;
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const double mid =
                    0.5 * (ElementAt(*a, x, y, channel) + ElementAt(*b, x, y, channel));
                worst = std::max(worst, std::fabs(ElementAt(*half, x, y, channel) - mid));
            }
        EXPECT_LT(worst, 40.0);
    }
}

// With a hard mask, a plain cut between two pictures of different levels leaves a step of the
// whole difference at the seam; the band-by-band blend crosses each band over a width that fits
// it, so neighbouring pixels differ little anywhere, while away from the seam each side keeps its
// own picture.
TEST(BlendPyramids, HardMaskGivesASeamlessSeam) {
    const int w = 160, h = 96, seam = 80;
    auto textured = [](double level) {
        return [level](int x, int y, int) {
            return std::floor(level + 12.0 * std::sin(0.9 * x) * std::sin(0.7 * y));
        };
    };
    DQImagePtr a = MakeImage(w, h, 1, DQ_UCHAR, textured(60.0));
    DQImagePtr b = MakeImage(w, h, 1, DQ_UCHAR, textured(190.0));
    DQImagePtr mask =
        MakeImage(w, h, 1, DQ_UCHAR, [&](int x, int, int) { return x < seam ? 255.0 : 0.0; });
    LaplacePyramid first(w, h), second(w, h);
    GaussPyramid weight(w, h);
    first.Build(a.get(), 0);
    second.Build(b.get(), 0);
    weight.Build(mask.get(), 0);
    DQImagePtr out = MakeImage(w, h, 1, DQ_UCHAR, Fill(0.0));
    BlendPyramids(out.get(), 0, first, second, weight, 255.0f);

    double steepest = 0.0;
    for (int y = 0; y < h; ++y)
        for (int x = seam - 20; x < seam + 20; ++x)
            steepest = std::max(steepest,
                                std::fabs(ElementAt(*out, x + 1, y, 0) - ElementAt(*out, x, y, 0)));
    // The texture alone changes by up to about 20 between neighbours; the cut would be 130.
    EXPECT_LT(steepest, 40.0);
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < 10; ++x)
            EXPECT_NEAR(ElementAt(*out, x, y, 0), ElementAt(*a, x, y, 0), 3.0) << x << "," << y;
        for (int x = w - 10; x < w; ++x)
            EXPECT_NEAR(ElementAt(*out, x, y, 0), ElementAt(*b, x, y, 0), 3.0) << x << "," << y;
    }
}

TEST(BlendPyramids, RefusesWhatDoesNotFit) {
    DQImagePtr a = MakeImage(40, 30, 1, DQ_UCHAR, Fill(10.0));
    LaplacePyramid first(40, 30), second(40, 30), other(41, 30);
    first.Build(a.get(), 0);
    second.Build(a.get(), 0);
    GaussStepOneDPyramid step(30), shortStep(12);
    DQImagePtr wrong = MakeImage(41, 30, 1, DQ_UCHAR, Fill(3.0));
    DQImagePtr floats = MakeImage(40, 30, 1, DQ_FLOAT, Fill(3.0));
    const struct {
        const char* name;
        DQImage* result;
        LaplacePyramid* second;
        GaussStepOneDPyramid* step;
        const char* message;
    } cases[] = {
        {"result of another size", wrong.get(), &second, &step, "can't make laplacian pyramid\n"},
        {"pyramids of two sizes", a.get(), &other, &step, "can't make laplacian pyramid\n"},
        {"step with fewer levels", a.get(), &second, &shortStep, "can't make laplacian pyramid\n"},
        {"float result", floats.get(), &second, &step, ""},
    };
    for (const auto& c : cases) {
        DQImagePtr before = Duplicate(*c.result);
        EXPECT_EQ(PrintedBy([&] { BlendPyramids(c.result, 0, first, *c.second, *c.step, 0.5f); }),
                  c.message)
            << c.name;
        EXPECT_TRUE(SamePixels(*c.result, *before)) << c.name;
    }
}
