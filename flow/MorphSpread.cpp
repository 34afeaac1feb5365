// The work of one level of the morph flow: the seed pyramid, the carrying of level-0 vectors onto
// a coarser level (Splat), the relaxation of the flow toward them, and the expansion to the next
// finer level.
#include "flow/FlowFilter.h"
#include "flow/FlowSolver.h"
#include "flow/MorphFlow.h"
#include "image/Parallel.h"
#include "warp/Filters.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

// The Gaussians of the spread, each the same as BlurGauss of its radius: the flow window
// (radius 5), the seeds' spread (1.95) and the relaxation's smoothing (2.5).
constexpr DQFlowFilterKind kFlowWindow = DQFlowFilterKind::Gauss5;
constexpr DQFlowFilterKind kSeedSpread = DQFlowFilterKind::Gauss1_95;
constexpr DQFlowFilterKind kRelaxSmoothing = DQFlowFilterKind::Gauss2_5;
// Gain of the relaxation: the spread bilinear share of a pixel, doubled.
constexpr float kShareGain = 2.0f;

// Position p of a finer grid on a coarser one: whole part and fraction, the last cell taken with
// fraction 1 so that the pixel to the right (or below) always exists.
inline void SplitPosition(float p, int last, int* i, float* f) {
    int n = static_cast<int>(p);
    float r = p - static_cast<float>(n);
    if (n >= last) {
        n = last - 1;
        r = 1.0f;
    }
    *i = n;
    *f = r;
}

// Whether all of eight weights are zero (weights are counts: never -0).
inline bool NoneSet(const float* weights) {
    uint32_t bits = 0;
    for (int i = 0; i < 8; ++i) {
        uint32_t word;
        __builtin_memcpy(&word, weights + i, sizeof(word));
        bits |= word;
    }
    return bits == 0;
}

// Where the seed weight is above 0: the seed flow and the share divided by it.
void NormaliseSeedRows(DQImage* seedFlow, DQImage* share, const DQImage* seedWeight, int first,
                       int last) {
    const int w = seedFlow->width;
    for (int y = first; y <= last; ++y) {
        float* __restrict f = seedFlow->Row<float>(y);
        float* __restrict t = share->Row<float>(y);
        const float* __restrict wt = seedWeight->Row<float>(y);
        for (int x = 0; x < w; ++x) {
            const float weight = wt[x];
            if (weight > 0.0f) {
                f[2 * x] /= weight;
                f[2 * x + 1] /= weight;
                t[x] /= weight;
            }
        }
    }
}

// Where the seed weight is above 0: the flow moved toward the seed flow by the share.
void RelaxRows(DQImage* flow, const DQImage* seedFlow, const DQImage* seedWeight,
               const DQImage* share, int first, int last) {
    const int w = flow->width;
    for (int y = first; y <= last; ++y) {
        float* __restrict f = flow->Row<float>(y);
        const float* __restrict s = seedFlow->Row<float>(y);
        const float* __restrict wt = seedWeight->Row<float>(y);
        const float* __restrict t = share->Row<float>(y);
        for (int x = 0; x < w; ++x) {
            if (wt[x] > 0.0f) {
                f[2 * x] += (s[2 * x] - f[2 * x]) * t[x];
                f[2 * x + 1] += (s[2 * x + 1] - f[2 * x + 1]) * t[x];
            }
        }
    }
}

// Rows of the expansion; the columns' cells and fractions are `cells` and `fractions`.
void ExpandRows(const DQImage* coarse, DQImage* fine, const int* cells, const float* fractions,
                float toCoarseY, int first, int last) {
    const int w = fine->width;
    for (int y = first; y <= last; ++y) {
        float* __restrict f = fine->Row<float>(y);
        int iy;
        float fy;
        SplitPosition(static_cast<float>(y) * toCoarseY, coarse->lastRow, &iy, &fy);
        const float* __restrict r0 = coarse->Row<float>(iy);
        const float* __restrict r1 = coarse->Row<float>(iy + 1);
        for (int x = 0; x < w; ++x) {
            const int at = 2 * cells[x];
            const float fx = fractions[x];
            for (int k = 0; k < 2; ++k) {
                const float top = r0[at + k] + (r0[at + 2 + k] - r0[at + k]) * fx;
                const float bottom = r1[at + k] + (r1[at + 2 + k] - r1[at + k]) * fx;
                f[2 * x + k] = top + (bottom - top) * fy;
            }
        }
    }
}

} // namespace

void DQMorphExpandFlow(const DQImage* coarse, DQImage* fine, DQFlowBuffer* columns) {
    if (coarse->dataType != DQ_FLOAT || fine->dataType != DQ_FLOAT || coarse->channels != 2 ||
        fine->channels != 2 || coarse->width < 2 || coarse->height < 2)
        DQThrow(kDQErrBadArgument);
    const float toCoarseX =
        static_cast<float>(coarse->width - 1) / static_cast<float>(std::max(fine->width - 1, 1));
    const float toCoarseY =
        static_cast<float>(coarse->height - 1) / static_cast<float>(std::max(fine->height - 1, 1));
    DQFlowBuffer own;
    DQFlowBuffer& buffer = columns ? *columns : own;
    const int w = fine->width;
    float* fractions = buffer.Reserve(2 * static_cast<size_t>(w));
    int* cells = reinterpret_cast<int*>(fractions + w);
    for (int x = 0; x < w; ++x)
        SplitPosition(static_cast<float>(x) * toCoarseX, coarse->lastColumn, &cells[x],
                      &fractions[x]);
    ZUMPForRows(fine->height, [&](int, int first, int last) {
        ExpandRows(coarse, fine, cells, fractions, toCoarseY, first, last);
    });
}

void DQMorphFlow::BuildSeedPyramids() {
    for (int level = 1; level < numLevels; ++level) {
        DQImage* flowScratch = flowLevels[level - 1];
        DQFlowBlur(flowScratch, seedFlowLevels[level - 1], DQFlowFilterKind::Binomial,
                   scratch->filterPlane);
        ResizeBilinear(seedFlowLevels[level], flowScratch);
        DQImage* weightScratch = scratchLevels[level - 1];
        DQFlowBlur(weightScratch, seedWeightLevels[level - 1], DQFlowFilterKind::Binomial,
                   scratch->filterPlane);
        ResizeBilinear(seedWeightLevels[level], weightScratch);
    }
}

void DQMorphFlow::PlainLevel(int level) {
    DQImage* flow = flowLevels[level];
    DQFlowApplySeeds(flow, seedFlowLevels[level], seedWeightLevels[level], false);
    DQFlowBlur(flow, flow, kFlowWindow, scratch->filterPlane);
    if (level == 0) DQFlowApplySeeds(flow, seedFlowLevels[0], seedWeightLevels[0], false);
}

// Carries the vectors of level 0 onto `level`: every level-0 pixel with a weight adds its vector
// and a count of 1 to the four pixels of `level` around its position, and its bilinear shares to
// `share`. Neighbouring source rows meet in target rows, so the sums are made in one pass, in row
// order, on the calling thread: no update is lost and the result does not depend on the workers.
void DQMorphFlow::Splat(int level, DQImage* share) {
    const DQImage* sourceFlow = seedFlowLevels[0];
    const DQImage* sourceWeight = seedWeightLevels[0];
    DQImage* targetFlow = seedFlowLevels[level];
    DQImage* targetWeight = seedWeightLevels[level];
    const int targetW = targetFlow->width, targetH = targetFlow->height;
    const float sx = static_cast<float>(targetW - 1) / static_cast<float>(width - 1);
    const float sy = static_cast<float>(targetH - 1) / static_cast<float>(height - 1);
    for (int y = 0; y < height; ++y) {
        const float* weightRow = sourceWeight->Row<float>(y);
        const float* flowRow = sourceFlow->Row<float>(y);
        const float Y = static_cast<float>(y) * sy;
        int iy = static_cast<int>(Y);
        float fy = Y - std::floor(Y);
        if (iy >= targetH - 1) {
            iy = targetH - 2;
            fy = 1.0f;
        }
        float* t0 = share->Row<float>(iy);
        float* t1 = share->Row<float>(iy + 1);
        float* w0 = targetWeight->Row<float>(iy);
        float* w1 = targetWeight->Row<float>(iy + 1);
        float* f0 = targetFlow->Row<float>(iy);
        float* f1 = targetFlow->Row<float>(iy + 1);
        // The shares of the row's last data pixel: the last pixel of a row reuses them.
        float a = 0.0f, b = 0.0f, c = 0.0f, d = 0.0f;
        for (int x = 0; x < width; ++x) {
            // Seeds are sparse: runs of eight empty pixels are passed over at once.
            if ((x & 7) == 0 && x + 8 <= width && NoneSet(weightRow + x)) {
                x += 7;
                continue;
            }
            if (weightRow[x] == 0.0f) continue;
            const float X = static_cast<float>(x) * sx;
            const int ix = std::min(static_cast<int>(X), targetW - 2);
            if (x < width - 1) {
                const float fx = X - static_cast<float>(ix);
                a = (1.0f - fx) * (1.0f - fy);
                b = fx * (1.0f - fy);
                c = (1.0f - fx) * fy;
                d = fx * fy;
            }
            t0[ix] += a;
            t0[ix + 1] += b;
            t1[ix] += c;
            t1[ix + 1] += d;
            w0[ix] += 1.0f;
            w0[ix + 1] += 1.0f;
            w1[ix] += 1.0f;
            w1[ix + 1] += 1.0f;
            const float u = flowRow[2 * x], v = flowRow[2 * x + 1];
            for (float* f : {f0 + 2 * ix, f0 + 2 * ix + 2, f1 + 2 * ix, f1 + 2 * ix + 2}) {
                f[0] += u;
                f[1] += v;
            }
        }
    }
}

void DQMorphFlow::SpreadLevel(int level) {
    DQImage* flow = flowLevels[level];
    DQImage* seedFlow = seedFlowLevels[level];
    DQImage* seedWeight = seedWeightLevels[level];
    // The share of each pixel lives in the level's scratch, whose work in the seed pyramid is
    // done.
    DQImage* share = scratchLevels[level];
    DQFlowBuffer& plane = scratch->filterPlane;
    seedWeight->Clear();
    seedFlow->Clear();
    if (level == 0) {
        // Level 0 was the source and is now clear: it takes no data of its own (pinning seeds of
        // weight 0 changes nothing), and its flow is the expansion of level 1, smoothed; once
        // more when the run starts here.
        DQFlowBlur(flow, flow, kFlowWindow, plane);
        if (startLevel == 0) DQFlowBlur(flow, flow, kFlowWindow, plane);
        return;
    }
    share->Clear();
    Splat(level, share);
    if (level == startLevel) {
        DQFlowApplySeeds(flow, seedFlow, seedWeight, false);
        DQFlowBlur(flow, flow, kFlowWindow, plane);
    }
    DQFlowBlur(share, share, kSeedSpread, plane);
    DQFlowBlur(seedFlow, seedFlow, kSeedSpread, plane);
    DQFlowBlur(seedWeight, seedWeight, kSeedSpread, plane);
    ZUMPForRows(flow->height, [&](int, int first, int last) {
        NormaliseSeedRows(seedFlow, share, seedWeight, first, last);
    });
    share->Scale(kShareGain);
    for (int round = 0; round < iterations; ++round) {
        for (int pass = 0; pass < 2; ++pass)
            ZUMPForRows(flow->height, [&](int, int first, int last) {
                RelaxRows(flow, seedFlow, seedWeight, share, first, last);
            });
        DQFlowBlur(flow, flow, kRelaxSmoothing, plane);
    }
}
