#include "flow/HoleFillNear.h"

#include "flow/HoleFill.h"
#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "image/Progress.h"
#include "warp/Filters.h"
#include "warp/Sampling.h"
#include "warp/SeparableFilter.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <type_traits>
#include <vector>

namespace {

using warp_detail::CellOf;
using warp_detail::Tap;
// A symmetric filter as the separable filters hold it: w[0] the centre, w[k] the pair at distance
// k, n - 1 the reach, and `edge` samples at each end of a line renormalised. The filter passes
// here are the separable filter's own, run over the columns a level needs.
using Taps = warp_detail::SymmetricFilter;

// A run of columns [x0, x1) of one row; empty when x1 <= x0.
struct Span {
    int x0 = 0;
    int x1 = 0;
    bool Empty() const { return x1 <= x0; }
    int Length() const { return Empty() ? 0 : x1 - x0; }
};

Span Hull(Span a, Span b) {
    if (a.Empty()) return b;
    if (b.Empty()) return a;
    return {std::min(a.x0, b.x0), std::max(a.x1, b.x1)};
}

// The columns of one level that some computation needs, as one run per row.
using Region = std::vector<Span>;

bool RegionEmpty(const Region& region) {
    return std::all_of(region.begin(), region.end(), [](Span s) { return s.Empty(); });
}

// Rows within `radius` of a run take the hull of the runs around them.
Region GrowRows(const Region& region, int radius) {
    const int height = static_cast<int>(region.size());
    Region grown(region.size());
    for (int y = 0; y < height; ++y) {
        if (region[y].Empty()) continue;
        for (int t = std::max(0, y - radius); t <= std::min(height - 1, y + radius); ++t)
            grown[t] = Hull(grown[t], region[y]);
    }
    return grown;
}

// Every run widened by `radius` on both sides, within the row.
Region GrowColumns(Region region, int radius, int width) {
    for (Span& s : region)
        if (!s.Empty()) s = {std::max(0, s.x0 - radius), std::min(width, s.x1 + radius)};
    return region;
}

Region Union(const Region& a, const Region& b) {
    Region u(a.size());
    for (size_t y = 0; y < a.size(); ++y)
        u[y] = Hull(a[y], b[y]);
    return u;
}

// Step between destination samples in source pixels, as the bilinear resize takes it.
float ResizeStep(int sourceSize, int destSize) {
    if (destSize < 2) return 0.0f;
    return static_cast<float>(sourceSize - 1) / static_cast<float>(destSize - 1);
}

// The cell that the bilinear resize from a source of `sourceSize` to `destSize` samples reads for
// each destination sample, and the offset of the second pixel it reads (0 for a source of one).
struct ResizeAxis {
    std::vector<Tap> taps;
    int next = 0;
    ResizeAxis(int sourceSize, int destSize) : taps(static_cast<size_t>(destSize)) {
        const float step = ResizeStep(sourceSize, destSize);
        for (int d = 0; d < destSize; ++d)
            taps[d] = CellOf(static_cast<float>(d) * step, sourceSize - 1);
        next = sourceSize > 1 ? 1 : 0;
    }
};

// The source pixels that a bilinear resize reads to make the destination pixels of `dest`; the
// taps are monotone in the destination position, so a run maps onto a run.
Region ReadFootprint(const Region& dest, const ResizeAxis& columns, const ResizeAxis& rows,
                     int sourceHeight) {
    Region source(static_cast<size_t>(sourceHeight));
    for (size_t y = 0; y < dest.size(); ++y) {
        const Span s = dest[y];
        if (s.Empty()) continue;
        const Span read{columns.taps[s.x0].index, columns.taps[s.x1 - 1].index + columns.next + 1};
        const int r = rows.taps[y].index;
        source[r] = Hull(source[r], read);
        source[r + rows.next] = Hull(source[r + rows.next], read);
    }
    return source;
}

// The destination pixels of a bilinear resize that read some pixel of `source`: those whose
// cell, {index, index + next} on each axis, meets a run. The taps are monotone, so each row's
// readers form one run, found by bisection.
Region ReadersOf(const Region& source, const ResizeAxis& columns, const ResizeAxis& rows,
                 int destHeight) {
    Region readers(static_cast<size_t>(destHeight));
    const auto& taps = columns.taps;
    for (int y = 0; y < destHeight; ++y) {
        const int r = rows.taps[y].index;
        const Span s = Hull(source[r], source[r + rows.next]);
        if (s.Empty()) continue;
        const auto first = std::partition_point(
            taps.begin(), taps.end(), [&](Tap t) { return t.index + columns.next < s.x0; });
        const auto last =
            std::partition_point(taps.begin(), taps.end(), [&](Tap t) { return t.index < s.x1; });
        if (last > first)
            readers[y] = {static_cast<int>(first - taps.begin()),
                          static_cast<int>(last - taps.begin())};
    }
    return readers;
}

// Within each run of `within`, the hull of the pixels whose weight is zero.
Region ZeroWeights(const DQImage& weights, const Region& within) {
    Region zeros(within.size());
    for (size_t y = 0; y < within.size(); ++y) {
        const Span s = within[y];
        const float* w = weights.Row<float>(static_cast<int>(y));
        int first = s.x0;
        while (first < s.x1 && w[first] != 0.0f)
            ++first;
        if (first == s.x1) continue;
        int last = s.x1 - 1;
        while (w[last] != 0.0f)
            --last;
        zeros[y] = {first, last + 1};
    }
    return zeros;
}

// The bilinear value of `source` at destination pixel (x, y), as the resize computes it.
inline float ResizeAt(const DQImage& source, const ResizeAxis& columns, const ResizeAxis& rows,
                      int x, int y) {
    const Tap row = rows.taps[y];
    const Tap col = columns.taps[x];
    const float* r0 = source.Row<float>(row.index) + col.index;
    const float* r1 = source.Row<float>(row.index + rows.next) + col.index;
    const float a0 = r0[0];
    const float b0 = r1[0];
    const float top = a0 + col.fraction * (r0[columns.next] - a0);
    const float bottom = b0 + col.fraction * (r1[columns.next] - b0);
    return top + row.fraction * (bottom - top);
}

// Runs `body(y, span)` over the non-empty runs of a region, in row bands.
template <class Body>
void ForRuns(const Region& region, Body&& body) {
    ZUMPForRows(static_cast<int>(region.size()), [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            if (!region[y].Empty()) body(y, region[y]);
    });
}

// Separable filter of a level over a region: rows of `passRows` from `image` into `plane`, then
// columns of `outRuns` from `plane` into `out`.
void FilterRegion(const DQImage& image, DQImage& plane, DQImage& out, const Region& passRows,
                  const Region& outRuns, const Taps& f) {
    ForRuns(passRows, [&](int y, Span s) {
        warp_detail::FilterLineRange(image.Row<float>(y), plane.Row<float>(y), image.width, 1, s.x0,
                                     s.x1, f);
    });
    // The fill's planes are top-down floats, rowBytes apart.
    const size_t stride = static_cast<size_t>(plane.rowBytes) / sizeof(float);
    ForRuns(outRuns, [&](int y, Span s) {
        warp_detail::FilterColumnRow(plane.Row<float>(0) + s.x0, stride, plane.height, y,
                                     out.Row<float>(y) + s.x0, s.Length(), f);
    });
}

constexpr int kGaussReach = 5; // the smoothing of radius 5 reads 5 pixels either side
constexpr int kBinomialReach = 2;
constexpr float kBinomial[3] = {0.375f, 0.25f, 0.0625f};
constexpr Taps kBinomialTaps{kBinomial, 3, 3};

Region HoleRuns(const DQImage& weights) {
    Region whole(static_cast<size_t>(weights.height), Span{0, weights.width});
    return ZeroWeights(weights, whole);
}

// The weight pyramid: 1 where the holes image is zero, else 0, at level 0, and each coarser level
// the reduce of the one below. A pixel whose reduce reads no pixel near a hole reduces ones, and
// the filter and the resize give exactly 1 for ones; so every level is set to 1 and computed only
// where its reduce reads pixels that are not all 1.
void LoadWeights(DQSingleChannelFill& fill, const DQImage& holes) {
    DQImage& level0 = *fill.weightLevels[0];
    DQDispatchType(holes.dataType, [&]<class H>() {
        ZUMPForRows(level0.height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y) {
                const H* __restrict h = holes.Row<H>(y);
                float* __restrict w = level0.Row<float>(y);
                for (int x = 0; x < level0.width; ++x)
                    w[x] = h[x] == H(0) ? 1.0f : 0.0f;
            }
        });
    });
    Region notOne = HoleRuns(level0);
    for (int k = 1; k <= fill.topLevel; ++k) {
        DQImage& fine = *fill.weightLevels[k - 1];
        DQImage& coarse = *fill.weightLevels[k];
        ZUMPForRows(coarse.height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y)
                std::fill_n(coarse.Row<float>(y), coarse.width, 1.0f);
        });
        const ResizeAxis columns(fine.width, coarse.width);
        const ResizeAxis rows(fine.height, coarse.height);
        const Region smoothedNotOne =
            GrowColumns(GrowRows(notOne, kBinomialReach), kBinomialReach, fine.width);
        notOne = ReadersOf(smoothedNotOne, columns, rows, coarse.height);
        const Region read = ReadFootprint(notOne, columns, rows, fine.height);
        DQImage& smoothed = *fill.fillLevels[k - 1];
        FilterRegion(fine, *fill.scratchLevels[k - 1], smoothed, GrowRows(read, kBinomialReach),
                     read, kBinomialTaps);
        ForRuns(notOne, [&](int y, Span s) {
            float* out = coarse.Row<float>(y);
            for (int x = s.x0; x < s.x1; ++x)
                out[x] = ResizeAt(smoothed, columns, rows, x, y);
        });
    }
}

// What each level of one fill computes, worked out once for all channels.
struct FillPlan {
    // Per level: the pixels whose smoothed fill is read (level 0: the holes), the rows of the
    // smoothing's row pass, the pixels whose fill is formed, and those of them without weight.
    std::vector<Region> smoothed, rowPass, formed, unweighted;
    // Per level: the known values needed, and for the reduce to the next level the rows of its
    // row pass and the pixels of its column pass.
    std::vector<Region> values, reduceRows, reduceColumns;
    // The deepest level that is computed.
    int deepest = 0;
};

FillPlan MakePlan(const DQSingleChannelFill& fill) {
    const int top = fill.topLevel;
    FillPlan plan;
    for (auto* levels : {&plan.smoothed, &plan.rowPass, &plan.formed, &plan.unweighted,
                         &plan.values, &plan.reduceRows, &plan.reduceColumns})
        levels->resize(static_cast<size_t>(top) + 1);
    auto size = [&](int k) {
        return std::pair{fill.fillLevels[k]->width, fill.fillLevels[k]->height};
    };

    plan.smoothed[0] = HoleRuns(*fill.weightLevels[0]);
    for (int k = 0;; ++k) {
        const auto [w, h] = size(k);
        plan.rowPass[k] = GrowRows(plan.smoothed[k], kGaussReach);
        plan.formed[k] = GrowColumns(plan.rowPass[k], kGaussReach, w);
        plan.unweighted[k] = ZeroWeights(*fill.weightLevels[k], plan.formed[k]);
        plan.deepest = k;
        if (k == top || RegionEmpty(plan.unweighted[k])) break;
        // The expand into level k reads the smoothed fill of level k + 1 where level k has no
        // weight of its own.
        const auto [cw, ch] = size(k + 1);
        plan.smoothed[k + 1] =
            ReadFootprint(plan.unweighted[k], ResizeAxis(cw, w), ResizeAxis(ch, h), ch);
    }

    const int deepest = plan.deepest;
    plan.values[deepest] = plan.formed[deepest];
    for (int k = deepest - 1; k >= 0; --k) {
        const auto [w, h] = size(k);
        const auto [cw, ch] = size(k + 1);
        plan.reduceColumns[k] =
            ReadFootprint(plan.values[k + 1], ResizeAxis(w, cw), ResizeAxis(h, ch), h);
        plan.reduceRows[k] = GrowRows(plan.reduceColumns[k], kBinomialReach);
        plan.values[k] = Union(plan.formed[k], GrowColumns(plan.reduceRows[k], kBinomialReach, w));
    }
    return plan;
}

// The holes' results of every channel, run by run, before they go into the image.
struct HoleResults {
    std::vector<int64_t> rowStart;
    int64_t perChannel = 0;
    DQImagePtr values;

    HoleResults(const Region& holes, int channels) : rowStart(holes.size() + 1, 0) {
        for (size_t y = 0; y < holes.size(); ++y)
            rowStart[y + 1] = rowStart[y] + holes[y].Length();
        perChannel = rowStart.back();
        values =
            DQMakeImage(static_cast<int>(std::max<int64_t>(perChannel, 1)), channels, 1, DQ_FLOAT);
    }
    float* Row(int channel, int y) const { return values->Row<float>(channel) + rowStart[y]; }
};

template <class T>
void StoreHoleResults(DQImage& image, const Region& holes, const HoleResults& results) {
    const int stride = image.channels;
    ZUMPForRows(image.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const Span s = holes[y];
            if (s.Empty()) continue;
            T* out = image.Row<T>(y) + s.x0 * stride;
            for (int c = 0; c < stride; ++c) {
                const float* in = results.Row(c, y);
                for (int i = 0; i < s.Length(); ++i) {
                    if constexpr (std::is_floating_point_v<T>) {
                        out[i * stride + c] = in[i];
                    } else {
                        constexpr float kTop = static_cast<float>(std::numeric_limits<T>::max());
                        float v = in[i] + 0.5f;
                        v = v > 0.0f ? v : 0.0f;
                        v = v < kTop ? v : kTop;
                        out[i * stride + c] = static_cast<T>(v);
                    }
                }
            }
        }
    });
}

// A known pixel's fill is its value divided by its weight of 1: the same number, except that a
// signalling not-a-number comes back quiet. Float images take that division at every known
// pixel; integer values come back as they were.
void DivideKnownByWeight(DQImage& image, const DQImage& weights) {
    const int width = image.width;
    const int channels = image.channels;
    ZUMPForRows(image.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* __restrict row = image.Row<float>(y);
            const float* __restrict w = weights.Row<float>(y);
            for (int x = 0; x < width; ++x)
                for (int c = 0; c < channels; ++c) {
                    const float q = row[x * channels + c] / w[x];
                    row[x * channels + c] = w[x] != 0.0f ? q : row[x * channels + c];
                }
        }
    });
}

} // namespace

void FillHolesNearHoles(DQImage* image, DQImage* holes, ZUIdleAndProgressClass* progress) {
    DQSingleChannelFill fill(1, image->width, image->height);
    LoadWeights(fill, *holes);
    const FillPlan plan = MakePlan(fill);
    const int top = fill.topLevel;
    const int deepest = plan.deepest;
    const int channels = image->channels;

    DQFilterKernel gauss;
    DQMakeGaussKernel(gauss, 5.0f);
    const Taps smoothing{gauss.w, gauss.n, gauss.n};

    // The resize taps between neighbouring levels, both ways.
    std::vector<ResizeAxis> downColumns, downRows, upColumns, upRows;
    for (int k = 0; k < deepest; ++k) {
        const DQImage& fine = *fill.fillLevels[k];
        const DQImage& coarse = *fill.fillLevels[k + 1];
        downColumns.emplace_back(fine.width, coarse.width);
        downRows.emplace_back(fine.height, coarse.height);
        upColumns.emplace_back(coarse.width, fine.width);
        upRows.emplace_back(coarse.height, fine.height);
    }

    double total = 0.0;
    for (int k = top; k >= 0; --k)
        total += static_cast<double>(fill.fillLevels[k]->width) * fill.fillLevels[k]->height;

    const Region& holeRuns = plan.smoothed[0];
    HoleResults results(holeRuns, channels);
    ZUIdleAndProgressClass channelRange(progress);
    for (int c = 0; c < channels; ++c) {
        channelRange.SetSubRange(static_cast<float>(c) / channels,
                                 static_cast<float>(c + 1) / channels);
        ZUIdleAndProgressClass step(&channelRange);

        // Known values of level 0, zero in the holes, then the coarser levels where read.
        const DQImage& weights0 = *fill.weightLevels[0];
        DQImage& values0 = *fill.valueLevels[0];
        DQDispatchType(image->dataType, [&]<class T>() {
            ForRuns(plan.values[0], [&](int y, Span s) {
                const T* in = image->Row<T>(y) + c;
                const float* w = weights0.Row<float>(y);
                float* v = values0.Row<float>(y);
                for (int x = s.x0; x < s.x1; ++x) {
                    const float raw = static_cast<float>(in[x * channels]);
                    v[x] = w[x] != 0.0f ? raw : 0.0f;
                }
            });
        });
        for (int k = 0; k < deepest; ++k) {
            // Smoothed into the fill plane of level k, which is free until the fill reaches it.
            DQImage& smoothed = *fill.fillLevels[k];
            FilterRegion(*fill.valueLevels[k], *fill.scratchLevels[k], smoothed, plan.reduceRows[k],
                         plan.reduceColumns[k], kBinomialTaps);
            DQImage& next = *fill.valueLevels[k + 1];
            ForRuns(plan.values[k + 1], [&](int y, Span s) {
                float* out = next.Row<float>(y);
                for (int x = s.x0; x < s.x1; ++x)
                    out[x] = ResizeAt(smoothed, downColumns[k], downRows[k], x, y);
            });
        }

        double done = 0.0;
        for (int k = top; k >= 0; --k) {
            DQImage& level = *fill.fillLevels[k];
            if (k <= deepest) {
                // Known pixels take value / weight; the others the expanded coarser fill, or 0
                // at the top of the pyramid.
                const DQImage& values = *fill.valueLevels[k];
                const DQImage& weights = *fill.weightLevels[k];
                const DQImage* coarser = k < deepest ? fill.fillLevels[k + 1].get() : nullptr;
                ForRuns(plan.formed[k], [&](int y, Span s) {
                    float* out = level.Row<float>(y);
                    const float* v = values.Row<float>(y);
                    const float* w = weights.Row<float>(y);
                    for (int x = s.x0; x < s.x1; ++x) {
                        if (w[x] != 0.0f)
                            out[x] = v[x] / w[x];
                        else
                            out[x] =
                                coarser ? ResizeAt(*coarser, upColumns[k], upRows[k], x, y) : 0.0f;
                    }
                });
                FilterRegion(level, *fill.scratchLevels[k], level, plan.rowPass[k],
                             plan.smoothed[k], smoothing);
            }
            if (progress) step.RepeatProgress();
            done += static_cast<double>(level.width) * level.height;
            if (progress) step.ReportProgress(static_cast<float>(done / total));
        }

        // Level 0: known pixels keep value / weight, holes the smoothed fill.
        ForRuns(holeRuns, [&](int y, Span s) {
            const float* f = fill.fillLevels[0]->Row<float>(y);
            const float* v = values0.Row<float>(y);
            const float* w = weights0.Row<float>(y);
            float* out = results.Row(c, y);
            for (int x = s.x0; x < s.x1; ++x)
                out[x - s.x0] = w[x] != 0.0f ? v[x] / w[x] : f[x];
        });
    }

    DQDispatchType(image->dataType,
                   [&]<class T>() { StoreHoleResults<T>(*image, holeRuns, results); });
    if (image->dataType == DQ_FLOAT) DivideKnownByWeight(*image, *fill.weightLevels[0]);
}
