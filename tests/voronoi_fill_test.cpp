#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "warp/VoronoiFill.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace quelmor::test;

namespace {

// Small scenes drawn as text: '.' is a hole, a letter a seed whose colour the letter names.
using Grid = std::vector<std::string>;

constexpr double kHoleValue = 3.0;

// Colour of a label in channel c; distinct per label and channel, within 8 bits.
double LabelColour(char label, int c) {
    return (label - 'A' + 1) * 20.0 + c;
}

DQImagePtr SceneImage(const Grid& grid, int channels, int dataType, int bottomUp = 0) {
    return MakeImage(
        static_cast<int>(grid[0].size()), static_cast<int>(grid.size()), channels, dataType,
        [&](int x, int y, int c) {
            const char label = grid[y][x];
            return label == '.' ? kHoleValue : LabelColour(label, c);
        },
        bottomUp);
}

DQImagePtr SceneMask(const Grid& grid, int dataType, double holeValue = 255.0, int bottomUp = 0) {
    return MakeImage(
        static_cast<int>(grid[0].size()), static_cast<int>(grid.size()), 1, dataType,
        [&](int x, int y, int) { return grid[y][x] == '.' ? holeValue : 0.0; }, bottomUp);
}

// Checks every pixel against the label grid; returns the first mismatch, empty when none.
std::string FirstMismatch(const DQImage& image, const Grid& expected) {
    for (int y = 0; y < image.height; ++y)
        for (int x = 0; x < image.width; ++x)
            for (int c = 0; c < image.channels; ++c) {
                const char label = expected[y][x];
                const double want = label == '.' ? kHoleValue : LabelColour(label, c);
                const double got = ElementAt(image, x, y, c);
                if (got != want)
                    return "pixel (" + std::to_string(x) + ", " + std::to_string(y) + ") channel " +
                           std::to_string(c) + ": " + std::to_string(got) + " instead of " +
                           std::to_string(want) + " (" + label + ")";
            }
    return {};
}

struct Scene {
    const char* name;
    Grid mask;
    Grid expected;
};

// Hand-worked scenes. Seeds keep their colours, holes take the colour of their nearest seed; on a
// tie the seed found by the earlier sweep stands, both within a sweep and in the merge.
const std::vector<Scene>& Scenes() {
    static const std::vector<Scene> scenes = {
        {"seed reached only from below and right",
         {".....", ".....", ".....", "....A"},
         {"AAAAA", "AAAAA", "AAAAA", "AAAAA"}},
        // The first sweep gives every hole A; B is found only by the later sweeps, and replaces A
        // only where strictly closer: the anti-diagonal, equidistant, stays A.
        {"nearer seed found by the later sweeps",
         {"A....", ".....", ".....", ".....", "....B"},
         {"AAAAA", "AAAAB", "AAABB", "AABBB", "ABBBB"}},
        // (3, 0) is nearest to B (distance² 8 against 9 for A and C); only the diagonal
        // neighbour of the fourth sweep carries B there.
        {"nearest seed reached only along a diagonal",
         {"A...", "....", ".B..", "...C"},
         {"AAAB", "ABBC", "BBBC", "BBCC"}},
        {"tie on a row keeps the first sweep's seed", {"A.B"}, {"AAB"}},
        // (1, 1) ties A (left) and B (up) within the first sweep: the first neighbour stands.
        // (0, 0) gets B from the second sweep; the fourth offers A at the same distance and the
        // merge keeps B.
        {"ties within a sweep and in the merge", {".B", "A."}, {"BB", "AA"}},
        {"no hole", {"ABC", "CBA"}, {"ABC", "CBA"}},
        {"every pixel a hole", {"....", "...."}, {"....", "...."}},
        {"one seed floods everything",
         {"......", "...A..", "......"},
         {"AAAAAA", "AAAAAA", "AAAAAA"}},
        {"one pixel, a seed", {"A"}, {"A"}},
        {"one pixel, a hole", {"."}, {"."}},
        {"one column", {".", "A", ".", ".", "B", "."}, {"A", "A", "A", "B", "B", "B"}},
    };
    return scenes;
}

const int kTypes[] = {DQ_UCHAR, DQ_USHORT, DQ_FLOAT};

} // namespace

TEST(VoronoiFill, HandWorkedScenesForEveryTypeAndChannelCount) {
    for (const Scene& scene : Scenes())
        for (int imageType : kTypes)
            for (int maskType : kTypes)
                for (int channels : {1, 2, 3, 4, 5}) {
                    SCOPED_TRACE(::testing::Message()
                                 << scene.name << ", image type " << imageType << ", mask type "
                                 << maskType << ", " << channels << " channels");
                    DQImagePtr image = SceneImage(scene.mask, channels, imageType);
                    DQImagePtr mask = SceneMask(scene.mask, maskType);
                    DQVoronoiFill(image.get(), mask.get());
                    EXPECT_EQ(FirstMismatch(*image, scene.expected), "");
                }
}

TEST(VoronoiFill, AnyNonZeroMaskValueIsAHole) {
    const Scene& scene = Scenes()[1];
    const struct {
        const char* name;
        int maskType;
        double holeValue;
    } cases[] = {
        {"8-bit 1", DQ_UCHAR, 1.0},
        {"16-bit 1", DQ_USHORT, 1.0},
        {"16-bit 256 (low byte zero)", DQ_USHORT, 256.0},
        {"float tiny", DQ_FLOAT, 1e-30},
        {"float negative", DQ_FLOAT, -0.5},
        {"float not a number", DQ_FLOAT, std::numeric_limits<double>::quiet_NaN()},
    };
    for (const auto& c : cases) {
        DQImagePtr image = SceneImage(scene.mask, 3, DQ_UCHAR);
        DQImagePtr mask = SceneMask(scene.mask, c.maskType, c.holeValue);
        DQVoronoiFill(image.get(), mask.get());
        EXPECT_EQ(FirstMismatch(*image, scene.expected), "") << c.name;
    }
}

TEST(VoronoiFill, RowsAreLogicalWhateverTheStorageOrder) {
    const Scene& scene = Scenes()[1];
    for (int imageBottomUp : {0, 1})
        for (int maskBottomUp : {0, 1}) {
            DQImagePtr image = SceneImage(scene.mask, 4, DQ_USHORT, imageBottomUp);
            DQImagePtr mask = SceneMask(scene.mask, DQ_UCHAR, 255.0, maskBottomUp);
            DQVoronoiFill(image.get(), mask.get());
            EXPECT_EQ(FirstMismatch(*image, scene.expected), "")
                << "image bottom-up " << imageBottomUp << ", mask bottom-up " << maskBottomUp;
        }
}

// A hole that covers the whole border, with seeds inside placed so that no pixel is equidistant
// from two of them (4x + 6y - 23 is odd): every hole takes its true nearest seed.
TEST(VoronoiFill, HoleAlongEveryBorderTakesTheNearestSeed) {
    const int width = 9, height = 8;
    struct Seed {
        int x, y;
        char label;
    };
    const Seed seeds[] = {{1, 1, 'A'}, {3, 4, 'B'}};
    Grid mask(height, std::string(width, '.'));
    for (const Seed& s : seeds)
        mask[s.y][s.x] = s.label;
    Grid expected = mask;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            int best = -1;
            for (const Seed& s : seeds) {
                const int d = (s.x - x) * (s.x - x) + (s.y - y) * (s.y - y);
                if (best < 0 || d < best) {
                    best = d;
                    expected[y][x] = s.label;
                }
            }
        }
    for (int type : kTypes) {
        DQImagePtr image = SceneImage(mask, 4, type);
        DQImagePtr holes = SceneMask(mask, DQ_UCHAR);
        DQVoronoiFill(image.get(), holes.get());
        EXPECT_EQ(FirstMismatch(*image, expected), "") << "type " << type;
    }
}

// Scattered seeds, each with its own value: every hole takes the value of a real seed, at the
// true nearest distance for all but a few pixels (the sweeps look at three neighbours and may
// miss by a little), never far off; seeds are untouched. Results do not depend on the workers.
TEST(VoronoiFill, ScatteredSeedsNearlyExactAndSameForAnyWorkers) {
    const int width = 320, height = 200;
    std::vector<std::pair<int, int>> seeds;
    DQImagePtr original = MakeImage(width, height, 1, DQ_FLOAT, Fill(-1.0));
    DQImagePtr mask = MakeImage(width, height, 1, DQ_UCHAR, Fill(1.0));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            if (PatternValue(DQ_UCHAR, x, y, 0, 17) < 2.0f) {
                SetElement(*original, x, y, 0, static_cast<double>(seeds.size()));
                SetElement(*mask, x, y, 0, 0.0);
                seeds.emplace_back(x, y);
            }
    ASSERT_GT(seeds.size(), 200u);

    DQImagePtr first;
    ForWorkerCounts(
        [&](int) {
            DQImagePtr image = Duplicate(*original);
            DQVoronoiFill(image.get(), mask.get());
            if (!first) {
                first = Duplicate(*image);
                return;
            }
            EXPECT_TRUE(SamePixels(*image, *first));
        },
        {1, 2, 3});
    ASSERT_TRUE(first);

    int inexact = 0;
    double worstExcess = 0.0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const double v = ElementAt(*first, x, y, 0);
            ASSERT_GE(v, 0.0) << "(" << x << ", " << y << ") was not filled";
            const auto [sx, sy] = seeds[static_cast<size_t>(v)];
            if (ElementAt(*mask, x, y, 0) == 0.0) {
                ASSERT_EQ(ElementAt(*original, x, y, 0), v) << "a seed changed";
                continue;
            }
            double nearest = INFINITY;
            for (const auto& [qx, qy] : seeds)
                nearest = std::min(nearest, std::hypot(qx - x, qy - y));
            const double got = std::hypot(sx - x, sy - y);
            if (got > nearest) ++inexact;
            worstExcess = std::max(worstExcess, got - nearest);
        }
    EXPECT_LT(inexact, width * height / 200);
    EXPECT_LT(worstExcess, 1.0);
}

TEST(VoronoiFill, RefusesMismatchedMasksAndChangesNothing) {
    DQImagePtr image = PatternImage(6, 5, 4, DQ_UCHAR, 3);
    DQImagePtr wide = MakeImage(7, 5, 1, DQ_UCHAR, Fill(0.0));
    DQImagePtr tall = MakeImage(6, 6, 1, DQ_UCHAR, Fill(0.0));
    DQImagePtr twoChannels = MakeImage(6, 5, 2, DQ_UCHAR, [](int x, int, int) { return x % 2; });
    const struct {
        const char* name;
        DQImage* mask;
    } cases[] = {{"wider", wide.get()},
                 {"taller", tall.get()},
                 {"two channels", twoChannels.get()},
                 {"none", nullptr}};
    for (const auto& c : cases) {
        DQImagePtr target = Duplicate(*image);
        EXPECT_EQ(PrintedBy([&] { DQVoronoiFill(target.get(), c.mask); }),
                  "input problem in DQVoronoiFill\n")
            << c.name;
        EXPECT_TRUE(SamePixels(*target, *image)) << c.name;
    }
}

// Seed coordinates are 16-bit with 65535 meaning "none": a side of 65535 pixels still works up to
// its last pixel, one more is refused.
TEST(VoronoiFill, SidesUpTo65535Pixels) {
    for (int vertical : {0, 1}) {
        SCOPED_TRACE(vertical ? "column" : "row");
        const int longest = kDQVoronoiMaxSide;
        auto line = [&](int length, double value) {
            return vertical ? MakeImage(1, length, 1, DQ_UCHAR, Fill(value))
                            : MakeImage(length, 1, 1, DQ_UCHAR, Fill(value));
        };
        DQImagePtr image = line(longest, 0.0);
        DQImagePtr mask = line(longest, 1.0);
        SetElement(*image, 0, 0, 0, 99.0);
        SetElement(*mask, 0, 0, 0, 0.0);
        DQVoronoiFill(image.get(), mask.get());
        EXPECT_EQ(ElementAt(*image, vertical ? 0 : longest - 1, vertical ? longest - 1 : 0, 0),
                  99.0);

        DQImagePtr tooLong = line(longest + 1, 5.0);
        DQImagePtr tooLongMask = line(longest + 1, 1.0);
        SetElement(*tooLongMask, 0, 0, 0, 0.0);
        SetElement(*tooLong, 0, 0, 0, 99.0);
        DQImagePtr before = Duplicate(*tooLong);
        const std::string printed = PrintedBy([&] {
            try {
                DQVoronoiFill(tooLong.get(), tooLongMask.get());
                ADD_FAILURE() << "a side of 65536 pixels was accepted";
            } catch (DQErr code) {
                EXPECT_EQ(code, kDQErrBadArgument);
            }
        });
        EXPECT_NE(printed.find("65535"), std::string::npos) << printed;
        EXPECT_TRUE(SamePixels(*tooLong, *before));
    }
}
