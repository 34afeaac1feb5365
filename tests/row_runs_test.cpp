// Regions as runs per row: the normal form (ordered, disjoint, joined when close) and the grow and
// union operations checked against pixel sets worked out one pixel at a time.
#include "flow/RowRuns.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

// A region as one flag per pixel.
using Pixels = std::vector<std::vector<bool>>;

Pixels ToPixels(const Region& region, int width) {
    Pixels p(region.size(), std::vector<bool>(static_cast<size_t>(width), false));
    for (size_t y = 0; y < region.size(); ++y)
        for (const Span s : region[y])
            for (int x = s.x0; x < s.x1; ++x)
                p[y][static_cast<size_t>(x)] = true;
    return p;
}

// Ordered, disjoint, non-empty, further apart than the join gap, inside 0..width.
void ExpectNormal(const Runs& runs, int width) {
    for (size_t i = 0; i < runs.size(); ++i) {
        EXPECT_FALSE(runs[i].Empty());
        EXPECT_GE(runs[i].x0, 0);
        EXPECT_LE(runs[i].x1, width);
        if (i > 0) {
            EXPECT_GT(runs[i].x0 - runs[i - 1].x1, kRunJoinGap);
        }
    }
}

// Every pixel of `exact` is in `got`, and every pixel of `got` that is not in `exact` lies in a
// gap of at most the join gap between pixels of `exact` on its row.
void ExpectCoversWithJoinsOnly(const Region& got, const Pixels& exact, int width) {
    const Pixels have = ToPixels(got, width);
    for (size_t y = 0; y < exact.size(); ++y) {
        ExpectNormal(got[y], width);
        for (int x = 0; x < width; ++x) {
            if (exact[y][x]) {
                EXPECT_TRUE(have[y][x]) << "missing (" << x << ", " << y << ")";
            } else if (have[y][x]) {
                int left = x, right = x;
                while (left >= 0 && !exact[y][left])
                    --left;
                while (right < width && !exact[y][right])
                    ++right;
                EXPECT_TRUE(left >= 0 && right < width && right - left - 1 <= kRunJoinGap)
                    << "extra (" << x << ", " << y << ") not in a joined gap";
            }
        }
    }
}

uint32_t NextRandom(uint32_t& state) {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
}

// Scattered short runs, some close enough to join and some far apart.
Region RandomRegion(int width, int height, uint32_t seed) {
    Region region(static_cast<size_t>(height));
    for (Runs& row : region) {
        const int count = static_cast<int>(NextRandom(seed) % 4);
        for (int i = 0; i < count; ++i) {
            const int x0 = static_cast<int>(NextRandom(seed) % static_cast<uint32_t>(width));
            const int length = 1 + static_cast<int>(NextRandom(seed) % 6);
            row.push_back({x0, std::min(width, x0 + length)});
        }
        NormaliseRuns(row);
    }
    return region;
}

TEST(RowRuns, NormalFormOrdersAndJoins) {
    const struct {
        const char* name;
        Runs in, out;
    } cases[] = {
        {"nothing", {}, {}},
        {"empty runs go", {{5, 5}, {9, 3}}, {}},
        {"out of order, far apart", {{60, 70}, {0, 5}}, {{0, 5}, {60, 70}}},
        {"overlapping", {{0, 10}, {5, 8}, {8, 12}}, {{0, 12}}},
        {"touching", {{0, 4}, {4, 9}}, {{0, 9}}},
        {"a gap of exactly the join gap", {{0, 5}, {5 + kRunJoinGap, 40}}, {{0, 40}}},
        {"a gap one wider", {{0, 5}, {6 + kRunJoinGap, 40}}, {{0, 5}, {6 + kRunJoinGap, 40}}},
        {"a chain of close runs, out of order",
         {{100, 101}, {0, 1}, {50, 51}, {34, 35}, {17, 18}},
         {{0, 51}, {100, 101}}},
        {"the chain joined", {{0, 1}, {10, 11}, {20, 21}, {30, 31}}, {{0, 31}}},
    };
    for (const auto& c : cases) {
        Runs runs = c.in;
        NormaliseRuns(runs);
        EXPECT_EQ(runs, c.out) << c.name;
    }
}

TEST(RowRuns, AddRunsKeepsTheNormalForm) {
    Runs runs{{0, 4}, {100, 110}};
    AddRuns(runs, {{200, 210}, {50, 60}, {105, 130}});
    EXPECT_EQ(runs, (Runs{{0, 4}, {50, 60}, {100, 130}, {200, 210}}));
    AddRuns(runs, {});
    EXPECT_EQ(runs, (Runs{{0, 4}, {50, 60}, {100, 130}, {200, 210}}));
}

TEST(RowRuns, GrowRowsCoversTheDilationAcrossRows) {
    const int width = 150, height = 23;
    for (uint32_t seed : {1u, 2u, 3u})
        for (int radius : {0, 1, 5, 30}) {
            SCOPED_TRACE(::testing::Message() << "seed " << seed << ", radius " << radius);
            const Region region = RandomRegion(width, height, seed);
            const Pixels p = ToPixels(region, width);
            Pixels exact(p.size(), std::vector<bool>(width, false));
            for (int y = 0; y < height; ++y)
                for (int t = std::max(0, y - radius); t <= std::min(height - 1, y + radius); ++t)
                    for (int x = 0; x < width; ++x)
                        if (p[t][x]) exact[y][x] = true;
            ExpectCoversWithJoinsOnly(GrowRows(region, radius), exact, width);
        }
}

TEST(RowRuns, GrowColumnsCoversTheDilationWithinTheRow) {
    const int width = 150, height = 9;
    for (uint32_t seed : {4u, 5u})
        for (int radius : {0, 2, 7, 200}) {
            SCOPED_TRACE(::testing::Message() << "seed " << seed << ", radius " << radius);
            const Region region = RandomRegion(width, height, seed);
            const Pixels p = ToPixels(region, width);
            Pixels exact(p.size(), std::vector<bool>(width, false));
            for (int y = 0; y < height; ++y)
                for (int x = 0; x < width; ++x)
                    for (int d = -radius; d <= radius; ++d)
                        if (x + d >= 0 && x + d < width && p[y][x + d]) exact[y][x] = true;
            ExpectCoversWithJoinsOnly(GrowColumns(region, radius, width), exact, width);
        }
}

TEST(RowRuns, UnionCoversBoth) {
    const int width = 120, height = 17;
    const Region a = RandomRegion(width, height, 8u);
    const Region b = RandomRegion(width, height, 9u);
    const Pixels pa = ToPixels(a, width), pb = ToPixels(b, width);
    Pixels exact(pa.size(), std::vector<bool>(width, false));
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            exact[y][x] = pa[y][x] || pb[y][x];
    ExpectCoversWithJoinsOnly(Union(a, b), exact, width);
    EXPECT_EQ(RegionPixels(Union(a, a)), RegionPixels(a));
}

TEST(RowRuns, RunsWhereFindsAndJoinsRuns) {
    const std::vector<int> flags = {1, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                                    0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 0, 1};
    const int n = static_cast<int>(flags.size());
    auto zero = [&](int x) { return flags[x] != 0; };
    // The gap between 4 and 26 is 21 columns, more than the join gap; the others are joined.
    EXPECT_EQ(RunsWhere(0, n, zero), (Runs{{0, 5}, {26, 31}}));
    EXPECT_EQ(RunsWhere(2, 4, zero), Runs{});
    EXPECT_EQ(RunsWhere(3, 27, zero), (Runs{{4, 5}, {26, 27}}));
    EXPECT_EQ(RegionPixels(Region{{{0, 5}, {26, 31}}, {}, {{3, 4}}}), 11);
    EXPECT_TRUE(RegionEmpty(Region{{}, {}}));
    EXPECT_FALSE(RegionEmpty(Region{{}, {{1, 2}}}));
}

} // namespace
