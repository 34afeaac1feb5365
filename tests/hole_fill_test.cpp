#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/Flow.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace quelmor::test;

namespace {

constexpr int kTypes[] = {DQ_UCHAR, DQ_USHORT, DQ_FLOAT};

double WhiteOf(int dataType) {
    return dataType == DQ_UCHAR ? 255.0 : dataType == DQ_USHORT ? 65535.0 : 1.0;
}

// Holes as blobs: discs of a few radii scattered with a fixed seed.
DQImagePtr BlobHoles(int width, int height, int holeType, double holeValue, uint32_t seed) {
    DQImagePtr holes = MakeImage(width, height, 1, holeType, Fill(0.0));
    for (int i = 0; i < 12; ++i) {
        const int cx = static_cast<int>(PatternValue(DQ_USHORT, i, 0, 0, seed)) % width;
        const int cy = static_cast<int>(PatternValue(DQ_USHORT, i, 1, 0, seed)) % height;
        const int r = 1 + static_cast<int>(PatternValue(DQ_UCHAR, i, 2, 0, seed)) % 4;
        for (int y = std::max(0, cy - r); y <= std::min(height - 1, cy + r); ++y)
            for (int x = std::max(0, cx - r); x <= std::min(width - 1, cx + r); ++x)
                if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r)
                    SetElement(*holes, x, y, 0, holeValue);
    }
    return holes;
}

// A smooth picture within the type's range: every channel its own gentle slope.
PixelFunction Smooth(int dataType) {
    const double white = WhiteOf(dataType);
    return [white](int x, int y, int c) {
        const double t = 0.2 + 0.6 * (0.5 + 0.5 * std::sin(0.05 * x + 0.03 * y + c));
        return white == 1.0 ? t : std::floor(t * white);
    };
}

class Progress : public ZUIdleAndProgressClass {
public:
    void ReportProgress(float fraction) override {
        reports.push_back(fraction);
        if (interruptAfter >= 0 && static_cast<int>(reports.size()) > interruptAfter)
            SetInterrupted(true);
        ZUIdleAndProgressClass::ReportProgress(fraction);
    }
    std::vector<float> reports;
    int interruptAfter = -1;
};

} // namespace

TEST(SingleChannelFill, LevelsHalveDownToTwoByTwo) {
    const struct {
        int width, height, topLevel;
    } cases[] = {{4, 4, 1}, {5, 3, 1}, {1, 1, 1}, {2, 2, 1}, {16, 4, 3}, {720, 486, 8}, {9, 40, 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.width << " x " << c.height);
        DQSingleChannelFill fill(c.width, c.height);
        ASSERT_EQ(fill.error, 0);
        EXPECT_EQ(fill.topLevel, c.topLevel);
        EXPECT_EQ(fill.numLevels, c.topLevel + 1);
        for (const auto* levels :
             {&fill.fillLevels, &fill.valueLevels, &fill.weightLevels, &fill.scratchLevels}) {
            ASSERT_EQ(static_cast<int>(levels->size()), fill.numLevels + 1);
            int w = c.width, h = c.height;
            for (int k = 0; k <= fill.numLevels; ++k) {
                EXPECT_EQ((*levels)[k]->width, w) << "level " << k;
                EXPECT_EQ((*levels)[k]->height, h) << "level " << k;
                w = std::max(2, w / 2);
                h = std::max(2, h / 2);
            }
        }
        EXPECT_EQ(fill.fillLevels[fill.topLevel]->width, 2);
        EXPECT_EQ(fill.fillLevels[fill.topLevel]->height, 2);
    }
}

TEST(SingleChannelFill, RefusesAnEmptySizeWithoutThrowingWhenAsked) {
    DQSingleChannelFill quiet(0, 0, 5);
    EXPECT_EQ(quiet.error, kDQErrBadArgument);
    EXPECT_TRUE(quiet.fillLevels.empty());
    EXPECT_THROW(DQSingleChannelFill(1, 5, 0), DQErr);
}

// Without holes every pixel comes back as it was, for every type, channel count and layout.
TEST(FillHoles, NoHoleLeavesTheImageAsItWas) {
    for (int type : kTypes)
        for (int channels : {1, 2, 3, 4, 5}) {
            SCOPED_TRACE(::testing::Message()
                         << "type " << type << ", " << channels << " channels");
            DQImagePtr image = PatternImage(23, 17, channels, type, 5);
            DQImagePtr before = Duplicate(*image);
            DQImagePtr holes = MakeImage(23, 17, 1, DQ_UCHAR, Fill(0.0));
            FillHoles(image.get(), holes.get(), nullptr);
            EXPECT_TRUE(SamePixels(*image, *before));
        }
}

// With no known pixel no level has any weight: every channel comes back 0.
TEST(FillHoles, NoKnownPixelGivesZero) {
    for (int type : kTypes) {
        DQImagePtr image = PatternImage(30, 20, 4, type, 8);
        DQImagePtr holes = MakeImage(30, 20, 1, DQ_FLOAT, Fill(0.5));
        FillHoles(image.get(), holes.get(), nullptr);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 30; ++x)
                for (int c = 0; c < 4; ++c)
                    ASSERT_EQ(ElementAt(*image, x, y, c), 0.0) << "type " << type;
    }
}

// One known pixel, wherever it lies, spreads its value over the whole image.
TEST(FillHoles, OneKnownPixelSpreadsEverywhere) {
    const struct {
        const char* name;
        int width, height, x, y;
    } cases[] = {{"centre", 40, 30, 20, 15},
                 {"corner", 64, 48, 0, 0},
                 {"far corner", 33, 21, 32, 20},
                 {"thin", 50, 3, 7, 1}};
    for (const auto& c : cases)
        for (int type : kTypes) {
            SCOPED_TRACE(::testing::Message() << c.name << ", type " << type);
            const double white = WhiteOf(type);
            const double value[] = {0.2 * white, 0.9 * white, white};
            auto v = [&](int ch) { return type == DQ_FLOAT ? value[ch] : std::floor(value[ch]); };
            DQImagePtr image = MakeImage(c.width, c.height, 3, type, Fill(0.0));
            for (int ch = 0; ch < 3; ++ch)
                SetElement(*image, c.x, c.y, ch, v(ch));
            DQImagePtr holes = MakeImage(c.width, c.height, 1, DQ_UCHAR, Fill(255.0));
            SetElement(*holes, c.x, c.y, 0, 0.0);
            FillHoles(image.get(), holes.get(), nullptr);
            for (int y = 0; y < c.height; ++y)
                for (int x = 0; x < c.width; ++x)
                    for (int ch = 0; ch < 3; ++ch)
                        ASSERT_NEAR(ElementAt(*image, x, y, ch), v(ch), white * 1e-5)
                            << "(" << x << ", " << y << ") channel " << ch;
        }
}

// A hole in a flat area takes the flat value, each channel its own; known pixels stay exact.
// The top of the 16-bit range must not wrap round when rounded.
TEST(FillHoles, HolesInFlatAreasTakeTheirValueChannelByChannel) {
    for (int type : kTypes) {
        const double white = WhiteOf(type);
        const double flat[] = {white, 0.0, type == DQ_FLOAT ? 0.37 : std::floor(0.37 * white)};
        DQImagePtr image = MakeImage(48, 36, 3, type, [&](int x, int y, int c) {
            return (x + y) % 5 == 0 ? 0.5 * white : flat[c];
        });
        DQImagePtr holes = MakeImage(
            48, 36, 1, DQ_USHORT, [](int x, int y, int) { return (x + y) % 5 == 0 ? 1.0 : 0.0; });
        FillHoles(image.get(), holes.get(), nullptr);
        for (int y = 0; y < 36; ++y)
            for (int x = 0; x < 48; ++x)
                for (int c = 0; c < 3; ++c)
                    ASSERT_NEAR(ElementAt(*image, x, y, c), flat[c], white * 1e-5)
                        << "type " << type << " (" << x << ", " << y << ") channel " << c;
    }
}

// A small hole in a slope keeps the known pixels exact and takes smooth values that lie within
// those of the known pixels around it; integer results are the float results rounded.
TEST(FillHoles, SmallHoleTakesASmoothValueAndIntegersRound) {
    const int width = 40, height = 30;
    auto slope = [](int x, int y, int) { return 10.0 + 3.0 * x + 4.0 * y; };
    DQImagePtr holes = MakeImage(width, height, 1, DQ_UCHAR, [](int x, int y, int) {
        return x >= 18 && x <= 20 && y >= 12 && y <= 13 ? 1.0 : 0.0;
    });
    DQImagePtr floats = MakeImage(width, height, 1, DQ_FLOAT, slope);
    DQImagePtr bytes = MakeImage(width, height, 1, DQ_UCHAR, slope);
    FillHoles(floats.get(), holes.get(), nullptr);
    FillHoles(bytes.get(), holes.get(), nullptr);
    int fractional = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double f = ElementAt(*floats, x, y, 0);
            if (ElementAt(*holes, x, y, 0) == 0.0) {
                ASSERT_EQ(f, slope(x, y, 0)) << x << ", " << y;
                ASSERT_EQ(ElementAt(*bytes, x, y, 0), slope(x, y, 0)) << x << ", " << y;
                continue;
            }
            EXPECT_GT(f, slope(17, 11, 0)) << x << ", " << y;
            EXPECT_LT(f, slope(21, 14, 0)) << x << ", " << y;
            EXPECT_NEAR(f, slope(x, y, 0), 6.0) << x << ", " << y;
            EXPECT_EQ(ElementAt(*bytes, x, y, 0), std::floor(f + 0.5)) << x << ", " << y;
            if (f - std::floor(f) >= 0.5) ++fractional;
        }
    // Rounding has to matter somewhere for the comparison above to tell it from truncation.
    EXPECT_GT(fractional, 0);
}

// A wide hole between two flat sides, dark on the left and bright on the right, is bridged by a
// smooth ramp: every hole pixel strictly between the two sides, rising, close to the straight
// line across the hole, and mirrored (left and right swapped give values that sum to white).
TEST(FillHoles, WideHoleBetweenTwoSidesIsBridgedByARamp) {
    const int width = 64, height = 16, side = 8;
    const double bright = 240.0;
    auto known = [&](int x) { return x < side || x >= width - side; };
    DQImagePtr image = MakeImage(width, height, 1, DQ_FLOAT, [&](int x, int, int) {
        return x < side ? 0.0 : x >= width - side ? bright : -5.0;
    });
    DQImagePtr holes = MakeImage(width, height, 1, DQ_UCHAR,
                                 [&](int x, int, int) { return known(x) ? 0.0 : 1.0; });
    FillHoles(image.get(), holes.get(), nullptr);
    const double span = width - 2 * side + 1;
    for (int y = 0; y < height; ++y)
        for (int x = side; x < width - side; ++x) {
            SCOPED_TRACE(::testing::Message() << "(" << x << ", " << y << ")");
            const double f = ElementAt(*image, x, y, 0);
            ASSERT_GT(f, 0.0);
            ASSERT_LT(f, bright);
            ASSERT_GT(f, ElementAt(*image, x - 1, y, 0));
            ASSERT_NEAR(f, bright * (x - side + 1) / span, 12.0);
            ASSERT_NEAR(f + ElementAt(*image, width - 1 - x, y, 0), bright, 1e-2);
        }
}

// Every holes type, and a not-a-number holes value, mark the same holes.
TEST(FillHoles, HolesOfEveryTypeMarkTheSamePixels) {
    DQImagePtr reference;
    const struct {
        const char* name;
        int type;
        double value;
    } cases[] = {{"8-bit", DQ_UCHAR, 1.0},
                 {"16-bit", DQ_USHORT, 300.0},
                 {"float", DQ_FLOAT, 0.25},
                 {"float not a number", DQ_FLOAT, std::numeric_limits<double>::quiet_NaN()}};
    for (const auto& c : cases) {
        DQImagePtr image = MakeImage(50, 40, 4, DQ_UCHAR, Smooth(DQ_UCHAR));
        DQImagePtr holes = BlobHoles(50, 40, c.type, c.value, 3);
        FillHoles(image.get(), holes.get(), nullptr);
        if (!reference)
            reference = Duplicate(*image);
        else
            EXPECT_TRUE(SamePixels(*image, *reference)) << c.name;
    }
    // The holes did change something, so the agreement above says something.
    DQImagePtr untouched = MakeImage(50, 40, 4, DQ_UCHAR, Smooth(DQ_UCHAR));
    EXPECT_FALSE(SamePixels(*reference, *untouched));
}

TEST(FillHoles, UnequalSizesLeaveTheImageAsItWas) {
    DQImagePtr image = PatternImage(20, 10, 3, DQ_UCHAR, 1);
    DQImagePtr before = Duplicate(*image);
    for (auto [w, h] : {std::pair{21, 10}, std::pair{20, 9}, std::pair{10, 20}}) {
        DQImagePtr holes = MakeImage(w, h, 1, DQ_UCHAR, Fill(255.0));
        FillHoles(image.get(), holes.get(), nullptr);
        EXPECT_TRUE(SamePixels(*image, *before)) << w << " x " << h;
    }
}

TEST(FillHoles, RefusesAHolesImageOfSeveralChannels) {
    DQImagePtr image = PatternImage(20, 10, 3, DQ_UCHAR, 1);
    DQImagePtr before = Duplicate(*image);
    DQImagePtr holes = MakeImage(20, 10, 2, DQ_UCHAR, Fill(255.0));
    EXPECT_THROW(FillHoles(image.get(), holes.get(), nullptr), DQErr);
    EXPECT_TRUE(SamePixels(*image, *before));
}

TEST(FillHoles, SameResultForAnyWorkerCount) {
    for (int type : kTypes) {
        SCOPED_TRACE(::testing::Message() << "type " << type);
        const DQImagePtr original = MakeImage(300, 180, 4, type, Smooth(type));
        const DQImagePtr holes = BlobHoles(300, 180, DQ_UCHAR, 255.0, 11);
        DQImagePtr first;
        ForWorkerCounts(
            [&](int) {
                DQImagePtr image = Duplicate(*original);
                FillHoles(image.get(), holes.get(), nullptr);
                if (!first)
                    first = std::move(image);
                else
                    EXPECT_TRUE(SamePixels(*image, *first));
            },
            {1, 2, 3});
        EXPECT_FALSE(SamePixels(*first, *original));
    }
}

// Progress climbs to 1 over all channels; an interruption stops the fill with DQErr 6 and leaves
// the image as it was, even after some channels were done.
TEST(FillHoles, ReportsProgressAndStopsCleanlyWhenInterrupted) {
    const DQImagePtr original = MakeImage(64, 40, 3, DQ_USHORT, Smooth(DQ_USHORT));
    const DQImagePtr holes = BlobHoles(64, 40, DQ_UCHAR, 255.0, 2);

    Progress progress;
    DQImagePtr image = Duplicate(*original);
    FillHoles(image.get(), holes.get(), &progress);
    ASSERT_FALSE(progress.reports.empty());
    for (size_t i = 1; i < progress.reports.size(); ++i)
        EXPECT_GE(progress.reports[i], progress.reports[i - 1]) << "report " << i;
    EXPECT_NEAR(progress.reports.back(), 1.0f, 1e-6);

    const int total = static_cast<int>(progress.reports.size());
    for (int after : {0, total / 2, total - 1}) {
        Progress interrupting;
        interrupting.interruptAfter = after;
        DQImagePtr target = Duplicate(*original);
        try {
            FillHoles(target.get(), holes.get(), &interrupting);
            ADD_FAILURE() << "not interrupted after " << after;
        } catch (DQErr code) {
            EXPECT_EQ(code, kDQErrInterrupted);
        }
        EXPECT_TRUE(SamePixels(*target, *original)) << "interrupted after " << after;
    }
}
