// Propagation of vectors by patch matching: four directional sweeps in which each pixel adopts the
// vector of the neighbour behind it when that vector makes a 3x3 patch of A match B better.
//
// The 4x4 block of B (and of matte B) under a patch reaches column ix + 2 and row iy + 2, one
// past the last column or row when ix = W - 2 or iy = H - 2. Those reads are clamped to the
// last column and row of the image; level images carry no guard pixels.
//
// Speed: the cost of each pixel's current vector is computed once, before the first sweep, and
// kept beside the flow; a pixel that adopts a vector takes the candidate's cost with it. Since A
// and B do not change during the sweeps, every sweep then evaluates only the neighbour's vector.
// The nine bilinear samples of a cost are evaluated four lanes at a time, one lane left idle.
#include "flow/FlowSolver.h"
#include "image/Parallel.h"
#include "image/Progress.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

using F4 = float __attribute__((vector_size(16)));
using I4 = int __attribute__((vector_size(16)));

// Cost kept for a pixel that cannot adopt anything: its own vector leaves B, its patch cannot be
// read, or matte A is not solid around it. Real costs are never negative.
constexpr float kCannotAdopt = -1.0f;

inline F4 Load4(const float* p) {
    F4 v;
    __builtin_memcpy(&v, p, sizeof(v));
    return v;
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

// The four rows of the 4x4 block whose first pixel is (x0, y0), each as a pointer to four floats.
// Inside the image they point into it; at the last column or row the block is copied, clamped,
// into `spill`.
struct BlockRows {
    const float* row[4];
};

inline BlockRows ReadBlock(const DQImage* image, int x0, int y0, float spill[16]) {
    const int lastX = image->lastColumn, lastY = image->lastRow;
    BlockRows rows;
    if (x0 + 3 <= lastX && y0 + 3 <= lastY) {
        for (int j = 0; j < 4; ++j)
            rows.row[j] = image->Row<float>(y0 + j) + x0;
        return rows;
    }
    int xs[4];
    for (int i = 0; i < 4; ++i)
        xs[i] = std::min(x0 + i, lastX);
    for (int j = 0; j < 4; ++j) {
        const float* row = image->Row<float>(std::min(y0 + j, lastY));
        for (int i = 0; i < 4; ++i)
            spill[4 * j + i] = row[xs[i]];
        rows.row[j] = spill + 4 * j;
    }
    return rows;
}

// The nine values of A around (x, y), one row of three per vector; lane 3 is zero.
struct PatchA {
    F4 row[3];
};

inline PatchA PatchFromValues(const float a[9]) {
    PatchA p;
    for (int j = 0; j < 3; ++j)
        p.row[j] = F4{a[3 * j], a[3 * j + 1], a[3 * j + 2], 0.0f};
    return p;
}

// Sum of squared differences between the patch and the bilinear samples of a 4x4 block. Each
// block row is interpolated across with fx (lane i between pixels i and i + 1), then neighbouring
// rows down with fy; lane 3 is dropped from the sum.
inline float BlockCost(const PatchA& a, const BlockRows& b, float fx, float fy) {
    F4 across[4];
    for (int j = 0; j < 4; ++j) {
        const F4 v = Load4(b.row[j]);
        const F4 next = __builtin_shuffle(v, I4{1, 2, 3, 3});
        across[j] = v + (next - v) * fx;
    }
    F4 sum = F4{0.0f, 0.0f, 0.0f, 0.0f};
    for (int j = 0; j < 3; ++j) {
        const F4 d = a.row[j] - (across[j] + (across[j + 1] - across[j]) * fy);
        sum += d * d;
    }
    return sum[0] + sum[1] + sum[2];
}

inline bool MatteBlockSolid(const BlockRows& m) {
    const F4 limit = F4{0.95f, 0.95f, 0.95f, 0.95f};
    I4 below = I4{0, 0, 0, 0};
    for (int j = 0; j < 4; ++j)
        below |= Load4(m.row[j]) < limit;
    return (below[0] | below[1] | below[2] | below[3]) == 0;
}

// The four-lane form of the cost; the same rules as DQFlowPatchCost.
inline bool FastCost(const PatchA& a, float px, float py, const DQImage* imageB,
                     const DQImage* matteB, float* cost) {
    int ix, iy;
    float fx, fy;
    if (!PatchOrigin(px, py, imageB->lastColumn, imageB->lastRow, &ix, &iy, &fx, &fy)) return false;
    float spill[16];
    if (matteB && !MatteBlockSolid(ReadBlock(matteB, ix - 1, iy - 1, spill))) return false;
    *cost = BlockCost(a, ReadBlock(imageB, ix - 1, iy - 1, spill), fx, fy);
    return true;
}

// Pixel addressing of one float image as its first row and a signed step, so that no row
// address needs the storage order.
struct Plane {
    uint8_t* origin = nullptr;
    ptrdiff_t step = 0;
    int pixel = 1; // floats per pixel

    Plane() = default;
    explicit Plane(const DQImage* image)
        : origin(image->RowAddress(0)), step(image->rowStep), pixel(image->channels) {}
    float* At(int x, int y) const {
        return reinterpret_cast<float*>(origin + step * y) + static_cast<ptrdiff_t>(pixel) * x;
    }
};

// Everything a sweep reads, shared by all lines. `costs` holds in channel 0 the cost of each
// pixel's current vector, or kCannotAdopt.
struct SweepImages {
    const DQImage* imageB;
    const DQImage* matteA;
    const DQImage* matteB;
    Plane a, flow, costs;
    float lastX, lastY;

    SweepImages(const DQImage* imageA, const DQImage* imageB, DQImage* flowImage,
                const DQImage* matteA, const DQImage* matteB, DQImage* costImage)
        : imageB(imageB), matteA(matteA), matteB(matteB), a(imageA), flow(flowImage),
          costs(costImage), lastX(static_cast<float>(flowImage->lastColumn)),
          lastY(static_cast<float>(flowImage->lastRow)) {}

    PatchA Patch(int x, int y) const {
        PatchA p;
        for (int j = 0; j < 3; ++j) {
            const float* r = a.At(x - 1, y - 1 + j);
            p.row[j] = F4{r[0], r[1], r[2], 0.0f};
        }
        return p;
    }
};

bool MatteBlockInside(const DQImage* matteA, int x, int y) {
    for (int j = -1; j <= 1; ++j) {
        const float* row = matteA->Row<float>(y + j);
        for (int i = -1; i <= 1; ++i)
            if (row[x + i] < 0.95f) return false;
    }
    return true;
}

// Cost of the current vector of (x, y), or kCannotAdopt.
float OwnCost(const SweepImages& s, int x, int y) {
    const float* own = s.flow.At(x, y);
    const float px = static_cast<float>(x) - own[0];
    const float py = static_cast<float>(y) - own[1];
    if (!(px >= 0.0f && px <= s.lastX && py >= 0.0f && py <= s.lastY)) return kCannotAdopt;
    if (s.matteA && !MatteBlockInside(s.matteA, x, y)) return kCannotAdopt;
    float cost;
    if (!FastCost(s.Patch(x, y), px, py, s.imageB, s.matteB, &cost)) return kCannotAdopt;
    return cost;
}

// Offers the vector of (nx, ny) to pixel (x, y); the pixel keeps its own on a tie.
inline void OfferNeighbour(const SweepImages& s, int x, int y, int nx, int ny) {
    float* cost = s.costs.At(x, y);
    const float current = *cost;
    // Nothing beats a perfect match, and a pixel that cannot adopt never will.
    if (!(current > 0.0f) && current == current) return;
    float* own = s.flow.At(x, y);
    const float* other = s.flow.At(nx, ny);
    const float nu = other[0], nv = other[1];
    // The same vector costs the same, and a tie keeps the own vector.
    if (nu == own[0] && nv == own[1]) return;
    float otherCost;
    if (FastCost(s.Patch(x, y), static_cast<float>(x) - nu, static_cast<float>(y) - nv, s.imageB,
                 s.matteB, &otherCost) &&
        otherCost < current) {
        own[0] = nu;
        own[1] = nv;
        *cost = otherCost;
    }
}

void ComputeOwnCosts(const SweepImages& s, int w, int h) {
    ZUMPForRows(h - 2, [&](int, int first, int last) {
        for (int y = first + 1; y <= last + 1; ++y)
            for (int x = 1; x <= w - 2; ++x)
                *s.costs.At(x, y) = OwnCost(s, x, y);
    });
}

template <int kStep>
void SweepRows(const SweepImages& s, int w, int firstRow, int lastRow) {
    const int x0 = kStep > 0 ? 1 : w - 2;
    for (int y = firstRow; y <= lastRow; ++y)
        for (int i = 0, x = x0; i < w - 2; ++i, x += kStep)
            OfferNeighbour(s, x, y, x - kStep, y);
}

// Each column depends only on its own previous pixel, so a band of columns is walked row by row,
// which reads memory in order and gives the same result as column by column.
template <int kStep>
void SweepColumns(const SweepImages& s, int h, int firstColumn, int lastColumn) {
    const int y0 = kStep > 0 ? 1 : h - 2;
    for (int i = 0, y = y0; i < h - 2; ++i, y += kStep)
        for (int x = firstColumn; x <= lastColumn; ++x)
            OfferNeighbour(s, x, y, x, y - kStep);
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
                if (at(matteB, i, j) < 0.95f) return false;
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

bool DQFlowPatchCostFourLanes(const float a[9], float px, float py, const DQImage* imageB,
                              const DQImage* matteB, float* cost) {
    return FastCost(PatchFromValues(a), px, py, imageB, matteB, cost);
}

void DQFlowPropagateVectors(const DQImage* imageA, const DQImage* imageB, DQImage* flow,
                            const DQImage* matteA, const DQImage* matteB,
                            ZUIdleAndProgressClass* progress, DQImage* costs) {
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
    DQImagePtr ownCosts;
    if (!costs || costs->width != w || costs->height != h || costs->dataType != DQ_FLOAT) {
        ownCosts = DQMakeImage(w, h, 1, DQ_FLOAT);
        costs = ownCosts.get();
    }
    const SweepImages s(imageA, imageB, flow, matteA, matteB, costs);
    ComputeOwnCosts(s, w, h);
    ZUMPForRows(h - 2, [&](int, int first, int last) { SweepRows<1>(s, w, first + 1, last + 1); });
    idle();
    ZUMPForRows(h - 2, [&](int, int first, int last) { SweepRows<-1>(s, w, first + 1, last + 1); });
    idle();
    ZUMPForRows(w - 2,
                [&](int, int first, int last) { SweepColumns<1>(s, h, first + 1, last + 1); });
    idle();
    ZUMPForRows(w - 2,
                [&](int, int first, int last) { SweepColumns<-1>(s, h, first + 1, last + 1); });
    idle();
}
