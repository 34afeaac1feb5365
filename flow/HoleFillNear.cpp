#include "flow/HoleFillNear.h"

#include "flow/HoleFill.h"
#include "flow/RowRuns.h"
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
        const int r = rows.taps[y].index;
        for (const Span s : dest[y]) {
            const Span read{columns.taps[s.x0].index,
                            columns.taps[s.x1 - 1].index + columns.next + 1};
            source[r].push_back(read);
            source[r + rows.next].push_back(read);
        }
    }
    for (Runs& row : source)
        NormaliseRuns(row);
    return source;
}

// The destination pixels of a bilinear resize that read some pixel of `source`: those whose
// cell, {index, index + next} on each axis, meets a run. The taps are monotone, so the readers of
// a run form one run, found by bisection.
Region ReadersOf(const Region& source, const ResizeAxis& columns, const ResizeAxis& rows,
                 int destHeight) {
    Region readers(static_cast<size_t>(destHeight));
    const auto& taps = columns.taps;
    Runs read;
    for (int y = 0; y < destHeight; ++y) {
        const int r = rows.taps[y].index;
        read = source[r];
        AddRuns(read, source[r + rows.next]);
        for (const Span s : read) {
            const auto first = std::partition_point(
                taps.begin(), taps.end(), [&](Tap t) { return t.index + columns.next < s.x0; });
            const auto last = std::partition_point(taps.begin(), taps.end(),
                                                   [&](Tap t) { return t.index < s.x1; });
            if (last > first)
                readers[y].push_back({static_cast<int>(first - taps.begin()),
                                      static_cast<int>(last - taps.begin())});
        }
        NormaliseRuns(readers[y]);
    }
    return readers;
}

// Within the runs of `within`, the runs of the pixels whose weight is zero.
Region ZeroWeights(const DQImage& weights, const Region& within) {
    Region zeros(within.size());
    for (size_t y = 0; y < within.size(); ++y) {
        const float* w = weights.Row<float>(static_cast<int>(y));
        for (const Span s : within[y]) {
            const Runs found = RunsWhere(s.x0, s.x1, [&](int x) { return w[x] == 0.0f; });
            zeros[y].insert(zeros[y].end(), found.begin(), found.end());
        }
        NormaliseRuns(zeros[y]);
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

// Below this many pixels per band a fork costs the workers more than it saves: small regions,
// the common case of a few holes, run on the calling thread.
constexpr long long kPixelsPerBand = 16384;

// Runs `body(y, span)` over the non-empty runs of a region, in row bands.
template <class Body>
void ForRuns(const Region& region, Body&& body) {
    const int rows = static_cast<int>(region.size());
    const long long bands = std::max(1LL, RegionPixels(region) / kPixelsPerBand);
    const int threads = static_cast<int>(std::min<long long>(ZUMPNumThreadsForRows(rows), bands));
    ZUMPForRows(threads, rows, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            for (const Span s : region[y])
                body(y, s);
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
    Region whole(static_cast<size_t>(weights.height), Runs{Span{0, weights.width}});
    return ZeroWeights(weights, whole);
}

// Per row, the runs of the holes (non-zero or not-a-number in `holes`) where `needed` is non-zero
// (or not a number) too.
Region NeededHoleRuns(const DQImage& holes, const DQImage& needed) {
    Region runs(static_cast<size_t>(holes.height));
    DQDispatchType(holes.dataType, [&]<class H>() {
        DQDispatchType(needed.dataType, [&]<class N>() {
            ZUMPForRows(holes.height, [&](int, int first, int last) {
                for (int y = first; y <= last; ++y) {
                    const H* h = holes.Row<H>(y);
                    const N* n = needed.Row<N>(y);
                    runs[y] = RunsWhere(0, holes.width,
                                        [&](int x) { return !(h[x] == H(0)) && !(n[x] == N(0)); });
                }
            });
        });
    });
    return runs;
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

// `holeRuns`: the level 0 pixels whose fill is wanted, at least one of them a hole.
FillPlan MakePlan(const DQSingleChannelFill& fill, Region holeRuns) {
    const int top = fill.topLevel;
    FillPlan plan;
    for (auto* levels : {&plan.smoothed, &plan.rowPass, &plan.formed, &plan.unweighted,
                         &plan.values, &plan.reduceRows, &plan.reduceColumns})
        levels->resize(static_cast<size_t>(top) + 1);
    auto size = [&](int k) {
        return std::pair{fill.fillLevels[k]->width, fill.fillLevels[k]->height};
    };

    plan.smoothed[0] = std::move(holeRuns);
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
    const Region& holes;
    std::vector<int64_t> rowStart;
    DQImagePtr values;

    HoleResults(const Region& holeRuns, int channels)
        : holes(holeRuns), rowStart(holeRuns.size() + 1, 0) {
        for (size_t y = 0; y < holes.size(); ++y)
            rowStart[y + 1] = rowStart[y] + RowLength(static_cast<int>(y));
        values = DQMakeImage(static_cast<int>(std::max<int64_t>(rowStart.back(), 1)), channels, 1,
                             DQ_FLOAT);
    }
    int64_t RowLength(int y) const {
        int64_t length = 0;
        for (const Span s : holes[y])
            length += s.Length();
        return length;
    }
    // The results of run `s` of row y: the runs of a row lie one after the other.
    float* Run(int channel, int y, Span s) const {
        int64_t offset = rowStart[y];
        for (const Span before : holes[y]) {
            if (before.x0 >= s.x0) break;
            offset += before.Length();
        }
        return values->Row<float>(channel) + offset;
    }
};

template <class T>
void StoreHoleResults(DQImage& image, const HoleResults& results) {
    const int stride = image.channels;
    ForRuns(results.holes, [&](int y, Span s) {
        T* out = image.Row<T>(y) + s.x0 * stride;
        for (int c = 0; c < stride; ++c) {
            const float* in = results.Run(c, y, s);
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

void FillHolesNearHoles(DQImage* image, DQImage* holes, ZUIdleAndProgressClass* progress,
                        const DQImage* needed, DQFillReach* reach) {
    Region neededRuns;
    if (needed) {
        neededRuns = NeededHoleRuns(*holes, *needed);
        // Integer pixels that are known come back as they were, so with no needed hole there is
        // nothing to do; float ones still take the division by their weight of 1 below.
        if (RegionEmpty(neededRuns) && image->dataType != DQ_FLOAT) {
            if (reach) *reach = DQFillReach{};
            if (progress) progress->ReportProgress(1.0f);
            return;
        }
    }
    DQSingleChannelFill fill(1, image->width, image->height);
    LoadWeights(fill, *holes);
    const FillPlan plan =
        MakePlan(fill, needed ? std::move(neededRuns) : HoleRuns(*fill.weightLevels[0]));
    if (reach) {
        reach->levelZero = RegionPixels(plan.formed[0]);
        reach->allLevels = 0;
        for (int k = 0; k <= plan.deepest; ++k)
            reach->allLevels += RegionPixels(plan.formed[k]);
    }
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
            float* out = results.Run(c, y, s);
            for (int x = s.x0; x < s.x1; ++x)
                out[x - s.x0] = w[x] != 0.0f ? v[x] / w[x] : f[x];
        });
    }

    DQDispatchType(image->dataType, [&]<class T>() { StoreHoleResults<T>(*image, results); });
    if (image->dataType == DQ_FLOAT) DivideKnownByWeight(*image, *fill.weightLevels[0]);
}
