// Propagation of vectors by patch matching: four directional sweeps in which each pixel adopts the
// vector of the neighbour behind it when that vector makes a 3x3 patch of A match B better.
//
// The 4x4 block of B (and of matte B) under a patch reaches column ix + 2 and row iy + 2, one
// past the last column or row when ix = W - 2 or iy = H - 2. Those reads are clamped to the
// last column and row of the image: the sweeps read B from planes whose guard repeats the last
// column and row (flow/FlowLanePlanes.h); level images carry no guard pixels.
//
// Speed. A sweep carries state only along its lines, so eight neighbouring lines are swept at
// once, one per vector lane: the row sweeps work on a transposed copy of the images, in which
// eight rows lie side by side, and the column sweeps on a padded copy as the images lie. The cost
// of each pixel's current vector is computed once, before the first sweep, and kept beside the
// vectors; a pixel that adopts a vector takes the candidate's cost with it, so that every sweep
// evaluates only the neighbour's vector. Where the eight patches of a step lie side by side in B
// (their vectors share whole-pixel parts, as in a smooth field), their blocks load as sixteen
// vectors; otherwise each lane's block is read on its own. The arithmetic of a lane is the same
// either way, and the same for every pixel, so the result does not depend on the lane grouping
// or on the bands.
#include "flow/FlowFilter.h"
#include "flow/FlowLanePlanes.h"
#include "flow/FlowLanes.h"
#include "flow/FlowSolver.h"
#include "image/KernelSpace.h"
#include "image/Parallel.h"
#include "image/Progress.h"

#include <algorithm>
#include <cstddef>

QUELMOR_KERNELS_BEGIN

namespace {

using namespace flow_lanes;

// Cost kept for a pixel that cannot adopt anything: its own vector leaves B, its patch cannot be
// read, or matte A is not solid around it. Real costs are never negative.
constexpr float kCannotAdopt = -1.0f;
constexpr float kSolid = 0.95f;

// The planes of one orientation. As the images lie, t is x and s is y; transposed, t is y and s
// is x. u and v are always the x and y parts of the vectors.
struct LaneImages {
    DQFlowLanePlane a, b, u, v, cost, matteA, matteB;
    bool hasMatteA = false, hasMatteB = false;
};

// Where the patches of eight lanes lie in B along one axis: the base element and the fraction.
// Lanes whose position cannot be read are cleared in `readable` (the rules of DQFlowPatchCost:
// at most the last element, and a base of at least 1, which for the level sizes that have sweeps
// means a position of at least 1) and get the position 1.
struct AxisSplit {
    I8 base;
    F8 fraction;
};

QUELMOR_LANES_INLINE AxisSplit SplitAxis(F8 p, int last, I8* readable) {
    const float lastF = static_cast<float>(last);
    const I8 ok = (p >= 1.0f) & ~(p > lastF);
    *readable &= ok;
    const F8 safe = ok ? p : Splat(1.0f);
    const I8 whole = __builtin_convertvector(safe, I8);
    const I8 atLast = safe == lastF;
    AxisSplit split;
    split.base = atLast ? I8{} + (last - 1) : whole;
    split.fraction = atLast ? Splat(1.0f) : safe - __builtin_convertvector(whole, F8);
    return split;
}

// Where the 4x4 blocks of the lanes lie in a plane. When every lane's block starts at its own
// t plus one shift, or that shift plus 1, and on one line or the next, the blocks are picked
// lane by lane from 5x5 vectors loaded from `offset` (element distance from (0, 0)), with
// `nextT` and `nextS` saying which lanes start one further; otherwise each lane's block, from
// (t, s), is read on its own.
struct BlockOrigins {
    I8 t, s;
    bool near;
    bool anyNextT, anyNextS;
    I8 nextT, nextS;
    ptrdiff_t offset;
};

// block[a][b] is element (t + a, s + b) from each lane's origin.
QUELMOR_LANES_INLINE void ReadBlocks(const DQFlowLanePlane& plane, const BlockOrigins& o,
                                     F8 block[4][4]) {
    if (o.near) {
        const float* base = plane.origin + o.offset;
        F8 next[4];
        for (int a = 0; a < 4; ++a) {
            for (int b = 0; b < 4; ++b)
                block[a][b] = Load(base + a + b * plane.stride);
            if (o.anyNextS) next[a] = Load(base + a + 4 * plane.stride);
        }
        if (o.anyNextS)
            for (int a = 0; a < 4; ++a)
                for (int b = 0; b < 4; ++b)
                    block[a][b] = o.nextS ? (b < 3 ? block[a][b + 1] : next[a]) : block[a][b];
        if (o.anyNextT) {
            // The column after the block, on the lines each lane uses.
            F8 after[4];
            for (int b = 0; b < 4; ++b) {
                after[b] = Load(base + 4 + b * plane.stride);
                if (o.anyNextS)
                    after[b] = o.nextS ? Load(base + 4 + (b + 1) * plane.stride) : after[b];
            }
            for (int a = 0; a < 4; ++a)
                for (int b = 0; b < 4; ++b)
                    block[a][b] = o.nextT ? (a < 3 ? block[a + 1][b] : after[b]) : block[a][b];
        }
        return;
    }
    float lanes[4][4][kDQFlowLanes];
    for (int k = 0; k < kDQFlowLanes; ++k) {
        const float* p = plane.At(o.t[k], o.s[k]);
        for (int a = 0; a < 4; ++a)
            for (int b = 0; b < 4; ++b)
                lanes[a][b][k] = p[a + b * plane.stride];
    }
    for (int a = 0; a < 4; ++a)
        for (int b = 0; b < 4; ++b)
            block[a][b] = Load(lanes[a][b]);
}

QUELMOR_LANES_INLINE I8 BlockSolid(const F8 block[4][4]) {
    I8 solid = I8{} - 1;
    for (int a = 0; a < 4; ++a)
        for (int b = 0; b < 4; ++b)
            solid &= block[a][b] >= kSolid;
    return solid;
}

// The nine values around each lane's pixel, patch[i][j] at (x - 1 + i, y - 1 + j).
template <bool kTransposed>
QUELMOR_LANES_INLINE void ReadPatches(const DQFlowLanePlane& plane, int t0, int s, F8 patch[3][3]) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            patch[i][j] = kTransposed ? Load(plane.At(t0 - 1 + j, s - 1 + i))
                                      : Load(plane.At(t0 - 1 + i, s - 1 + j));
}

// Sum of squared differences between the patches and the bilinear samples of the blocks: each
// block row interpolated across with fx, then neighbouring rows down with fy, summed over rows
// for each column and then over the three columns.
template <bool kTransposed>
QUELMOR_LANES_INLINE F8 BlockCost(const F8 patch[3][3], const F8 block[4][4], F8 fx, F8 fy) {
    const auto at = [&](int i, int j) { return kTransposed ? block[j][i] : block[i][j]; };
    F8 across[4][3];
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 3; ++i)
            across[j][i] = at(i, j) + (at(i + 1, j) - at(i, j)) * fx;
    F8 sum[3] = {};
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i) {
            const F8 d = patch[i][j] - (across[j][i] + (across[j + 1][i] - across[j][i]) * fy);
            sum[i] += d * d;
        }
    return (sum[0] + sum[1]) + sum[2];
}

QUELMOR_LANES_INLINE BlockOrigins FindBlocks(const DQFlowLanePlane& plane, int t0, I8 readable,
                                             I8 baseT, I8 baseS) {
    const I8 lane = t0 + kLaneIndex;
    // Lanes that cannot be read take the place of the lowest that can, so that they neither
    // widen the spread nor read outside the plane.
    constexpr int kFar = 1 << 30;
    const I8 shiftLow = AcrossLanes<false>(readable ? baseT - lane : I8{} + kFar);
    const I8 rowLow = AcrossLanes<false>(readable ? baseS : I8{} + kFar);
    const I8 shift = readable ? baseT - lane : shiftLow;
    const I8 row = readable ? baseS : rowLow;
    const I8 shiftHigh = AcrossLanes<true>(shift);
    const I8 rowHigh = AcrossLanes<true>(row);
    BlockOrigins o;
    o.t = lane + shift - 1;
    o.s = row - 1;
    o.near = shiftHigh[0] - shiftLow[0] <= 1 && rowHigh[0] - rowLow[0] <= 1;
    o.anyNextT = shiftHigh[0] != shiftLow[0];
    o.anyNextS = rowHigh[0] != rowLow[0];
    o.nextT = shift != shiftLow;
    o.nextS = row != rowLow;
    o.offset = (rowLow[0] - 1) * plane.stride + t0 + shiftLow[0] - 1;
    return o;
}

// Costs of the vectors (wt, ws) (their parts along t and s) at the eight pixels from (t0, s);
// returns the lanes whose cost could be computed. `kOwn` adds the test of matte A that decides
// whether a pixel can adopt at all.
template <bool kTransposed, bool kOwn>
QUELMOR_LANES_INLINE I8 LaneCosts(const LaneImages& im, int t0, int s, F8 wt, F8 ws, F8* cost) {
    const F8 pt = LanePositions(t0) - wt;
    const F8 ps = static_cast<float>(s) - ws;
    I8 readable = I8{} - 1;
    const AxisSplit alongT = SplitAxis(pt, im.b.lanes - 1, &readable);
    const AxisSplit alongS = SplitAxis(ps, im.b.lines - 1, &readable);
    if (kOwn && im.hasMatteA) {
        F8 matte[3][3];
        ReadPatches<kTransposed>(im.matteA, t0, s, matte);
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j)
                readable &= matte[i][j] >= kSolid;
    }
    if (Bits(readable) == 0) return readable;
    const BlockOrigins o = FindBlocks(im.b, t0, readable, alongT.base, alongS.base);
    F8 block[4][4];
    if (im.hasMatteB) {
        ReadBlocks(im.matteB, o, block);
        readable &= BlockSolid(block);
    }
    F8 patch[3][3];
    ReadPatches<kTransposed>(im.a, t0, s, patch);
    ReadBlocks(im.b, o, block);
    const F8 fx = kTransposed ? alongS.fraction : alongT.fraction;
    const F8 fy = kTransposed ? alongT.fraction : alongS.fraction;
    *cost = BlockCost<kTransposed>(patch, block, fx, fy);
    return readable;
}

QUELMOR_LANES_INLINE I8 LanesInLine(const DQFlowLanePlane& plane, int t0) {
    return t0 + kLaneIndex <= plane.lanes - 2;
}

template <bool kTransposed>
void StoreOwnCosts(const LaneImages& im, int t0, int s) {
    const F8 u = Load(im.u.At(t0, s)), v = Load(im.v.At(t0, s));
    F8 cost = Splat(kCannotAdopt);
    const I8 ok =
        LaneCosts<kTransposed, true>(im, t0, s, kTransposed ? v : u, kTransposed ? u : v, &cost);
    Store(im.cost.At(t0, s), ok ? cost : Splat(kCannotAdopt));
}

// Offers the vectors of line `from` to the eight pixels from (t0, s); a pixel keeps its own on a
// tie, and one whose own cost is 0 or that cannot adopt is not asked.
template <bool kTransposed>
void OfferNeighbours(const LaneImages& im, int t0, int s, int from) {
    const F8 current = Load(im.cost.At(t0, s));
    const I8 asked = LanesInLine(im.u, t0) & (current > 0.0f);
    if (Bits(asked) == 0) return;
    const F8 nu = Load(im.u.At(t0, from)), nv = Load(im.v.At(t0, from));
    F8 cost = current;
    const I8 adopt = asked &
                     LaneCosts<kTransposed, false>(im, t0, s, kTransposed ? nv : nu,
                                                   kTransposed ? nu : nv, &cost) &
                     (cost < current);
    if (Bits(adopt) == 0) return;
    Store(im.u.At(t0, s), adopt ? nu : Load(im.u.At(t0, s)));
    Store(im.v.At(t0, s), adopt ? nv : Load(im.v.At(t0, s)));
    Store(im.cost.At(t0, s), adopt ? cost : current);
}

int LaneGroups(const DQFlowLanePlane& plane) {
    return (plane.lanes - 2 + kDQFlowLanes - 1) / kDQFlowLanes;
}

// Runs `step(t0, s)` over the interior lines in the order of kStep (0 for any order), each band
// of lane groups walking its lines one after the other.
template <int kStep, class Step>
void ForLaneGroups(const DQFlowLanePlane& plane, Step step) {
    const int lines = plane.lines;
    // A band of four groups walks its lines long enough to pay for the fork, so levels too
    // small for bands of rows still share out their sweeps.
    const int groups = LaneGroups(plane);
    const int threads = std::max(1, std::min(ZUMPGetUsableThreads(), groups / 4));
    ZUMPForRows(threads, groups, [&](int, int first, int last) {
        for (int i = 0; i < lines - 2; ++i) {
            const int s = kStep >= 0 ? 1 + i : lines - 2 - i;
            for (int g = first; g <= last; ++g)
                step(1 + kDQFlowLanes * g, s);
        }
    });
}

template <bool kTransposed, int kStep>
void Sweep(const LaneImages& im) {
    ForLaneGroups<kStep>(
        im.u, [&](int t0, int s) { OfferNeighbours<kTransposed>(im, t0, s, s - kStep); });
}

// Planes per orientation: A, B, u, v, costs and each matte that is given.
int PlaneCount(const DQImage* matteA, const DQImage* matteB) {
    return 5 + (matteA ? 1 : 0) + (matteB ? 1 : 0);
}

// Carves the planes of one orientation, lanes x lines each, from `block`; returns the rest.
float* MakePlanes(float* block, int lanes, int lines, const DQImage* matteA, const DQImage* matteB,
                  LaneImages* im) {
    const size_t each = DQFlowLanePlane::Floats(lanes, lines);
    DQFlowLanePlane* planes[] = {
        &im->a, &im->b, &im->u, &im->v, &im->cost, matteA ? &im->matteA : &im->matteB, &im->matteB};
    for (int i = 0; i < PlaneCount(matteA, matteB); ++i, block += each)
        *planes[i] = DQFlowLanePlane::Over(block, lanes, lines);
    im->hasMatteA = matteA != nullptr;
    im->hasMatteB = matteB != nullptr;
    return block;
}

void LoadImages(LaneImages& im, const DQImage* imageA, const DQImage* imageB, const DQImage* matteA,
                const DQImage* matteB, bool transposed) {
    DQFlowLoadLanePlane(im.a, imageA, 0, transposed);
    DQFlowLoadLanePlane(im.b, imageB, 0, transposed);
    if (matteA) DQFlowLoadLanePlane(im.matteA, matteA, 0, transposed);
    if (matteB) DQFlowLoadLanePlane(im.matteB, matteB, 0, transposed);
}

// Splits a patch position into its base pixel and fraction; false when the patch cannot be read.
inline bool PatchOrigin(float px, float py, int lastX, int lastY, int* ix, int* iy, float* fx,
                        float* fy) {
    if (px > static_cast<float>(lastX) || py > static_cast<float>(lastY)) return false;
    if (px == static_cast<float>(lastX)) {
        *ix = lastX - 1;
        *fx = 1.0f;
    } else {
        *ix = static_cast<int>(px);
        *fx = px - static_cast<float>(*ix);
    }
    if (py == static_cast<float>(lastY)) {
        *iy = lastY - 1;
        *fy = 1.0f;
    } else {
        *iy = static_cast<int>(py);
        *fy = py - static_cast<float>(*iy);
    }
    return *ix >= 1 && *iy >= 1;
}

} // namespace

bool DQFlowPatchCost(const float a[9], float px, float py, const DQImage* imageB,
                     const DQImage* matteB, float* cost) {
    int ix, iy;
    float fx, fy;
    if (!PatchOrigin(px, py, imageB->lastColumn, imageB->lastRow, &ix, &iy, &fx, &fy)) return false;
    const int lastX = imageB->lastColumn, lastY = imageB->lastRow;
    const auto at = [&](const DQImage* image, int i, int j) {
        return image->Row<float>(std::min(iy - 1 + j, lastY))[std::min(ix - 1 + i, lastX)];
    };
    if (matteB) {
        for (int j = 0; j < 4; ++j)
            for (int i = 0; i < 4; ++i)
                if (at(matteB, i, j) < kSolid) return false;
    }
    // Horizontal pass over the four rows, then vertical pass over three rows of three.
    float across[12];
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 3; ++i)
            across[3 * j + i] = at(imageB, i, j) + (at(imageB, i + 1, j) - at(imageB, i, j)) * fx;
    float sum = 0.0f;
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i) {
            const float top = across[3 * j + i], bottom = across[3 * (j + 1) + i];
            const float d = a[3 * j + i] - (top + (bottom - top) * fy);
            sum += d * d;
        }
    *cost = sum;
    return true;
}

void DQFlowPropagateVectors(const DQImage* imageA, const DQImage* imageB, DQImage* flow,
                            const DQImage* matteA, const DQImage* matteB,
                            ZUIdleAndProgressClass* progress, DQFlowBuffer* planes) {
    const auto idle = [progress] {
        if (progress) progress->RepeatProgress();
    };
    const int w = flow->width, h = flow->height;
    if (w - 2 <= 0 || h - 2 <= 0) {
        // No interior pixel: the sweeps that have lines find nothing to do on them.
        if (h - 2 > 0) idle(), idle();
        if (w - 2 > 0) idle(), idle();
        return;
    }
    DQFlowBuffer ownPlanes;
    DQFlowBuffer& buffer = planes ? *planes : ownPlanes;
    const size_t each = DQFlowLanePlane::Floats(w, h) + DQFlowLanePlane::Floats(h, w);
    float* block = buffer.Reserve(each * static_cast<size_t>(PlaneCount(matteA, matteB)));
    LaneImages across, down;
    block = MakePlanes(block, h, w, matteA, matteB, &across);
    MakePlanes(block, w, h, matteA, matteB, &down);

    // Rows: eight rows side by side in the transposed planes.
    LoadImages(across, imageA, imageB, matteA, matteB, true);
    DQFlowLoadLanePlane(across.u, flow, 0, true);
    DQFlowLoadLanePlane(across.v, flow, 1, true);
    ForLaneGroups<0>(across.u, [&](int t0, int s) { StoreOwnCosts<true>(across, t0, s); });
    Sweep<true, 1>(across);
    idle();
    Sweep<true, -1>(across);
    idle();

    // Columns: eight columns side by side as the images lie.
    LoadImages(down, imageA, imageB, matteA, matteB, false);
    DQFlowTransposeLanePlane(down.u, across.u);
    DQFlowTransposeLanePlane(down.v, across.v);
    DQFlowTransposeLanePlane(down.cost, across.cost);
    Sweep<false, 1>(down);
    idle();
    Sweep<false, -1>(down);
    idle();
    DQFlowStoreLanePlane(down.u, flow, 0);
    DQFlowStoreLanePlane(down.v, flow, 1);
}

QUELMOR_KERNELS_END
