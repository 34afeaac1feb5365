#include "flow/RowRuns.h"

#include <algorithm>

void NormaliseRuns(Runs& runs) {
    std::erase_if(runs, [](Span s) { return s.Empty(); });
    if (runs.size() < 2) return;
    std::sort(runs.begin(), runs.end(), [](Span a, Span b) { return a.x0 < b.x0; });
    size_t kept = 0;
    for (size_t i = 1; i < runs.size(); ++i) {
        if (runs[i].x0 - runs[kept].x1 <= kRunJoinGap)
            runs[kept].x1 = std::max(runs[kept].x1, runs[i].x1);
        else
            runs[++kept] = runs[i];
    }
    runs.resize(kept + 1);
}

void AddRuns(Runs& runs, const Runs& more) {
    if (more.empty()) return;
    runs.insert(runs.end(), more.begin(), more.end());
    NormaliseRuns(runs);
}

bool RegionEmpty(const Region& region) {
    return std::all_of(region.begin(), region.end(), [](const Runs& r) { return r.empty(); });
}

long long RegionPixels(const Region& region) {
    long long pixels = 0;
    for (const Runs& row : region)
        for (Span s : row)
            pixels += s.Length();
    return pixels;
}

Region GrowRows(const Region& region, int radius) {
    const int height = static_cast<int>(region.size());
    Region grown(region.size());
    for (int y = 0; y < height; ++y) {
        if (region[y].empty()) continue;
        for (int t = std::max(0, y - radius); t <= std::min(height - 1, y + radius); ++t)
            grown[t].insert(grown[t].end(), region[y].begin(), region[y].end());
    }
    for (Runs& row : grown)
        NormaliseRuns(row);
    return grown;
}

Region GrowColumns(Region region, int radius, int width) {
    for (Runs& row : region) {
        for (Span& s : row)
            s = {std::max(0, s.x0 - radius), std::min(width, s.x1 + radius)};
        NormaliseRuns(row);
    }
    return region;
}

Region Union(const Region& a, const Region& b) {
    Region u = a;
    for (size_t y = 0; y < u.size(); ++y)
        AddRuns(u[y], b[y]);
    return u;
}
