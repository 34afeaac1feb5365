// Propagation of vectors by patch matching: four directional sweeps in which each pixel adopts the
// vector of the neighbour behind it when that vector makes a 3x3 patch of A match B better.
//
// The 4x4 block of B (and of matte B) under a patch reaches column ix + 2 and row iy + 2, one
// past the last column or row when ix = W - 2 or iy = H - 2. Those reads are clamped to the
// last column and row of the image; level images carry no guard pixels.
#include "flow/FlowSolver.h"
#include "image/Parallel.h"
#include "image/Progress.h"

#include <algorithm>

namespace {

// Reads the 4x4 block whose first pixel is (x0, y0), clamping columns and rows past the end.
inline void ReadBlock(const DQImage* image, int x0, int y0, float block[16]) {
    const int lastX = image->lastColumn, lastY = image->lastRow;
    int xs[4];
    for (int i = 0; i < 4; ++i)
        xs[i] = std::min(x0 + i, lastX);
    for (int j = 0; j < 4; ++j) {
        const float* row = image->Row<float>(std::min(y0 + j, lastY));
        for (int i = 0; i < 4; ++i)
            block[4 * j + i] = row[xs[i]];
    }
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

// Everything a sweep reads, shared by all lines.
struct SweepImages {
    const DQImage* imageA;
    const DQImage* imageB;
    DQImage* flow;
    const DQImage* matteA;
    const DQImage* matteB;
};

bool MatteBlockInside(const DQImage* matteA, int x, int y) {
    for (int j = -1; j <= 1; ++j) {
        const float* row = matteA->Row<float>(y + j);
        for (int i = -1; i <= 1; ++i)
            if (row[x + i] < 0.95f) return false;
    }
    return true;
}

// Offers the vector of (nx, ny) to pixel (x, y); the pixel keeps its own on a tie.
inline void OfferNeighbour(const SweepImages& s, int x, int y, int nx, int ny) {
    float* own = s.flow->Row<float>(y) + 2 * x;
    const float* other = s.flow->Row<float>(ny) + 2 * nx;
    // The same vector costs the same, and a tie keeps the own vector.
    if (other[0] == own[0] && other[1] == own[1]) return;
    const float px = static_cast<float>(x) - own[0];
    const float py = static_cast<float>(y) - own[1];
    if (!(px >= 0.0f && px <= static_cast<float>(s.flow->lastColumn) && py >= 0.0f &&
          py <= static_cast<float>(s.flow->lastRow)))
        return;
    if (s.matteA && !MatteBlockInside(s.matteA, x, y)) return;
    float a[9];
    for (int j = 0; j < 3; ++j) {
        const float* row = s.imageA->Row<float>(y - 1 + j);
        for (int i = 0; i < 3; ++i)
            a[3 * j + i] = row[x - 1 + i];
    }
    float ownCost;
    // Nothing beats a perfect match.
    if (!DQFlowPatchCost(a, px, py, s.imageB, s.matteB, &ownCost) || ownCost == 0.0f) return;
    const float nu = other[0], nv = other[1];
    float otherCost;
    if (DQFlowPatchCost(a, static_cast<float>(x) - nu, static_cast<float>(y) - nv, s.imageB,
                        s.matteB, &otherCost) &&
        otherCost < ownCost) {
        own[0] = nu;
        own[1] = nv;
    }
}

} // namespace

bool DQFlowPatchCost(const float a[9], float px, float py, const DQImage* imageB,
                     const DQImage* matteB, float* cost) {
    int ix, iy;
    float fx, fy;
    if (!PatchOrigin(px, py, imageB->lastColumn, imageB->lastRow, &ix, &iy, &fx, &fy)) return false;
    float block[16];
    if (matteB) {
        ReadBlock(matteB, ix - 1, iy - 1, block);
        for (float m : block)
            if (m < 0.95f) return false;
    }
    ReadBlock(imageB, ix - 1, iy - 1, block);
    // Horizontal pass over the four rows, then vertical pass over three rows of three.
    float across[12];
    for (int j = 0; j < 4; ++j)
        for (int i = 0; i < 3; ++i)
            across[3 * j + i] = block[4 * j + i] + (block[4 * j + i + 1] - block[4 * j + i]) * fx;
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
                            ZUIdleAndProgressClass* progress) {
    const auto idle = [progress] {
        if (progress) progress->RepeatProgress();
    };
    const SweepImages s{imageA, imageB, flow, matteA, matteB};
    const int w = flow->width, h = flow->height;
    if (h - 2 > 0) {
        ZUMPForRows(h - 2, [&](int, int first, int last) {
            for (int y = first + 1; y <= last + 1; ++y)
                for (int x = 1; x <= w - 2; ++x)
                    OfferNeighbour(s, x, y, x - 1, y);
        });
        idle();
        ZUMPForRows(h - 2, [&](int, int first, int last) {
            for (int y = first + 1; y <= last + 1; ++y)
                for (int x = w - 2; x >= 1; --x)
                    OfferNeighbour(s, x, y, x + 1, y);
        });
        idle();
    }
    if (w - 2 > 0) {
        // Each column depends only on its own previous pixel, so a band of columns is walked
        // row by row, which reads memory in order and gives the same result as column by column.
        ZUMPForRows(w - 2, [&](int, int first, int last) {
            for (int y = 1; y <= h - 2; ++y)
                for (int x = first + 1; x <= last + 1; ++x)
                    OfferNeighbour(s, x, y, x, y - 1);
        });
        idle();
        ZUMPForRows(w - 2, [&](int, int first, int last) {
            for (int y = h - 2; y >= 1; --y)
                for (int x = first + 1; x <= last + 1; ++x)
                    OfferNeighbour(s, x, y, x, y + 1);
        });
        idle();
    }
}
