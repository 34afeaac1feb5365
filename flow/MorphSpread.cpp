// The work of one level of the morph flow: the seed pyramid, the carrying of level-0 vectors onto
// a coarser level (Splat), the relaxation of the flow toward them, and the expansion to the next
// finer level.
#include "flow/FlowSolver.h"
#include "flow/MorphFlow.h"
#include "image/Parallel.h"
#include "warp/Filters.h"

#include <algorithm>
#include <cmath>

namespace {

// Radii of the Gaussians of the spread: the flow window, the seeds' spread and the relaxation.
constexpr float kFlowWindowRadius = 5.0f;
constexpr float kSeedRadius = 1.95f;
constexpr float kRelaxRadius = 2.5f;
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

void ExpandRows(const DQImage* coarse, DQImage* fine, float toCoarseX, float toCoarseY, int first,
                int last) {
    const int w = fine->width, c = fine->channels;
    for (int y = first; y <= last; ++y) {
        float* __restrict f = fine->Row<float>(y);
        int iy;
        float fy;
        SplitPosition(static_cast<float>(y) * toCoarseY, coarse->lastRow, &iy, &fy);
        const float* r0 = coarse->Row<float>(iy);
        const float* r1 = coarse->Row<float>(iy + 1);
        for (int x = 0; x < w; ++x) {
            int ix;
            float fx;
            SplitPosition(static_cast<float>(x) * toCoarseX, coarse->lastColumn, &ix, &fx);
            for (int k = 0; k < c; ++k) {
                const float* p0 = r0 + ix * c + k;
                const float* p1 = r1 + ix * c + k;
                const float top = p0[0] + (p0[c] - p0[0]) * fx;
                const float bottom = p1[0] + (p1[c] - p1[0]) * fx;
                f[c * x + k] = top + (bottom - top) * fy;
            }
        }
    }
}

} // namespace

void DQMorphExpandFlow(const DQImage* coarse, DQImage* fine) {
    if (coarse->dataType != DQ_FLOAT || fine->dataType != DQ_FLOAT ||
        coarse->channels != fine->channels || coarse->width < 2 || coarse->height < 2)
        DQThrow(kDQErrBadArgument);
    const float toCoarseX =
        static_cast<float>(coarse->width - 1) / static_cast<float>(std::max(fine->width - 1, 1));
    const float toCoarseY =
        static_cast<float>(coarse->height - 1) / static_cast<float>(std::max(fine->height - 1, 1));
    ZUMPForRows(fine->height, [&](int, int first, int last) {
        ExpandRows(coarse, fine, toCoarseX, toCoarseY, first, last);
    });
}

void DQMorphFlow::BuildSeedPyramids() {
    for (int level = 1; level < numLevels; ++level) {
        DQImage* flowScratch = flowLevels[level - 1];
        flowScratch->CopyWhole(seedFlowLevels[level - 1]);
        Blur5(flowScratch);
        ResizeBilinear(seedFlowLevels[level], flowScratch);
        DQImage* weightScratch = scratchLevels[level - 1];
        weightScratch->CopyWhole(seedWeightLevels[level - 1]);
        Blur5(weightScratch);
        ResizeBilinear(seedWeightLevels[level], weightScratch);
    }
}

void DQMorphFlow::PlainLevel(int level) {
    DQImage* flow = flowLevels[level];
    DQFlowApplySeeds(flow, seedFlowLevels[level], seedWeightLevels[level], false);
    BlurGauss(flow, 0, kFlowWindowRadius);
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
    DQImagePtr share = DQMakeImage(flow->width, flow->height, 1, DQ_FLOAT);
    seedWeight->Clear();
    share->Clear();
    seedFlow->Clear();
    // Level 0 was the source and is now clear: it takes no data of its own, and its flow is the
    // expansion of level 1, smoothed.
    if (level > 0) Splat(level, share.get());
    if (level == startLevel) {
        DQFlowApplySeeds(flow, seedFlow, seedWeight, false);
        BlurGauss(flow, 0, kFlowWindowRadius);
    }
    if (level == 0) {
        DQFlowApplySeeds(flow, seedFlow, seedWeight, false);
        BlurGauss(flow, 0, kFlowWindowRadius);
        DQFlowApplySeeds(flow, seedFlow, seedWeight, false);
        return;
    }
    BlurGauss(share.get(), 0, kSeedRadius);
    BlurGauss(seedFlow, 0, kSeedRadius);
    BlurGauss(seedWeight, 0, kSeedRadius);
    ZUMPForRows(flow->height, [&](int, int first, int last) {
        NormaliseSeedRows(seedFlow, share.get(), seedWeight, first, last);
    });
    share->Scale(kShareGain);
    for (int round = 0; round < iterations; ++round) {
        for (int pass = 0; pass < 2; ++pass)
            ZUMPForRows(flow->height, [&](int, int first, int last) {
                RelaxRows(flow, seedFlow, seedWeight, share.get(), first, last);
            });
        BlurGauss(flow, 0, kRelaxRadius);
    }
}
