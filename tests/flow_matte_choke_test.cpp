// The matte choke: whole and fractional shrinks and grows of a disc move its edge by the amount,
// the fractional path mixes the two whole steps, and the limits of the operation.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "flow/MatteChoke.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>

namespace quelmor::test {
namespace {

constexpr int kSize = 96;
constexpr double kRadius = 30.0;

// A disc of kRadius at the centre, its edge pixels covered by the share of a 4x4 grid of samples
// that falls inside, so that its area is pi r^2 to well under a pixel.
DQImagePtr Disc() {
    DQImagePtr disc = DQMakeImage(kSize, kSize, 1, DQ_FLOAT);
    const double centre = (kSize - 1) * 0.5;
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) {
            int inside = 0;
            for (int sy = 0; sy < 4; ++sy)
                for (int sx = 0; sx < 4; ++sx) {
                    const double dx = x - 0.375 + sx * 0.25 - centre;
                    const double dy = y - 0.375 + sy * 0.25 - centre;
                    inside += dx * dx + dy * dy < kRadius * kRadius;
                }
            disc->Row<float>(y)[x] = inside / 16.0f;
        }
    return disc;
}

double Area(const DQImage& image) {
    double sum = 0.0;
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            sum += image.Row<float>(y)[x];
    return sum;
}

TEST(MatteChoke, ShrinksAndGrowsADiscByTheAmount) {
    struct Case {
        const char* name;
        float amount;
    };
    const Case cases[] = {{"shrink 1", 1.0f}, {"shrink 2", 2.0f},   {"shrink 2.5", 2.5f},
                          {"shrink 3", 3.0f}, {"shrink 0.3", 0.3f}, {"shrink 4.75", 4.75f},
                          {"grow 1", -1.0f},  {"grow 2.5", -2.5f},  {"grow 3.25", -3.25f},
                          {"shrink 6", 6.0f}};
    ForWorkerCounts([&](int) {
        for (const Case& c : cases) {
            DQImagePtr disc = Disc();
            DQMatteChoke(disc.get(), c.amount);
            // The radius of a disc of the same area: the edge moves by the amount, to within half
            // a pixel (the smoothing rounds a curved edge a little further in than a straight one).
            const double radius = std::sqrt(Area(*disc) / std::numbers::pi);
            EXPECT_NEAR(kRadius - radius, c.amount, 0.5) << c.name;
            if (c.amount > 0.0f) {
                EXPECT_GT(kRadius - radius, c.amount - 0.05f) << c.name;
            }
        }
    });
}

TEST(MatteChoke, AFractionMixesTheTwoWholeSteps) {
    WorkerScope scope(2, kSize, kSize);
    DQImagePtr chokedLow = Disc();
    DQImagePtr chokedHigh = Disc();
    ChokeStep(chokedLow.get(), 2.0);
    ChokeStep(chokedHigh.get(), 3.0);
    DQImagePtr mixed = Disc();
    DQMatteChoke(mixed.get(), 2.5f);
    for (int y = 0; y < kSize; ++y)
        for (int x = 0; x < kSize; ++x) {
            const float half = 0.5f * (chokedLow->Row<float>(y)[x] + chokedHigh->Row<float>(y)[x]);
            ASSERT_NEAR(mixed->Row<float>(y)[x], half, 1e-6f) << x << "," << y;
        }
}

TEST(MatteChoke, AmountZeroOnlyLimitsAndFullMatteStaysFull) {
    WorkerScope scope(2, 8, 8);
    DQImagePtr matte = DQMakeImage(8, 8, 1, DQ_FLOAT);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            matte->Row<float>(y)[x] = (x + 8 * y) / 32.0f - 0.5f; // -0.5 .. 1.47
    DQMatteChoke(matte.get(), 0.0f);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x) {
            const float v = (x + 8 * y) / 32.0f - 0.5f;
            EXPECT_EQ(matte->Row<float>(y)[x], std::clamp(v, 0.0f, 1.0f));
        }

    DQImagePtr full = Solid(8, 8, 1, DQ_FLOAT, 1.0f);
    DQMatteChoke(full.get(), -2.5f);
    for (int y = 0; y < 8; ++y)
        for (int x = 0; x < 8; ++x)
            EXPECT_EQ(full->Row<float>(y)[x], 1.0f);
}

TEST(MatteChoke, RefusesAnythingButOneFloatChannel) {
    WorkerScope scope(1, 8, 8);
    for (auto [channels, type] : {std::pair{1, int(DQ_UCHAR)}, std::pair{2, int(DQ_FLOAT)}}) {
        DQImagePtr image = PatternImage(8, 8, channels, type, 7);
        DQImagePtr before = Duplicate(*image);
        const std::string printed = PrintedBy([&] { DQMatteChoke(image.get(), 1.5f); });
        EXPECT_NE(printed.find("invalid input"), std::string::npos);
        EXPECT_TRUE(SamePixels(*image, *before));
    }
}

} // namespace
} // namespace quelmor::test
