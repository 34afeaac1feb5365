#pragma once
// Sets of pixels as runs of columns per row, for computations that touch only part of a frame.
// A row holds its runs in order, disjoint and apart by more than kRunJoinGap columns: runs
// closer than that are joined, pixels between them included, so that a row never splits into
// many short pieces. Every operation gives a superset of the exact result, never less.
#include <vector>

// A run of columns [x0, x1) of one row; empty when x1 <= x0.
struct Span {
    int x0 = 0;
    int x1 = 0;
    bool Empty() const { return x1 <= x0; }
    int Length() const { return Empty() ? 0 : x1 - x0; }
    bool operator==(const Span&) const = default;
};

// Runs closer than this many columns are joined into one.
constexpr int kRunJoinGap = 16;

// The runs of one row, and a region: the runs of every row of a level.
using Runs = std::vector<Span>;
using Region = std::vector<Runs>;

// Puts runs in any order, overlapping or empty, into the form above.
void NormaliseRuns(Runs& runs);

// `runs` with `more` added, in the form above.
void AddRuns(Runs& runs, const Runs& more);

bool RegionEmpty(const Region& region);

// The number of pixels in the region.
long long RegionPixels(const Region& region);

// Row t takes the runs of every row within `radius` of it.
Region GrowRows(const Region& region, int radius);

// Every run widened by `radius` on both sides, within 0..width.
Region GrowColumns(Region region, int radius, int width);

Region Union(const Region& a, const Region& b);

// The runs of the columns in x0..x1 where `zero(x)` holds, joined as above.
template <class IsZero>
Runs RunsWhere(int x0, int x1, IsZero&& zero) {
    Runs runs;
    int x = x0;
    while (x < x1) {
        while (x < x1 && !zero(x))
            ++x;
        if (x == x1) break;
        const int first = x;
        while (x < x1 && zero(x))
            ++x;
        if (!runs.empty() && first - runs.back().x1 <= kRunJoinGap)
            runs.back().x1 = x;
        else
            runs.push_back({first, x});
    }
    return runs;
}
