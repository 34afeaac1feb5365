// Row-band steps of one solver level: gradients, their mask and products, the residual of the
// current field, the 2x2 solve, seeds and the expansion to the next finer level.
#include "flow/FlowFilter.h"
#include "flow/FlowLanes.h"
#include "flow/FlowSolver.h"
#include "image/KernelSpace.h"
#include "image/Parallel.h"
#include "warp/Filters.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

QUELMOR_KERNELS_BEGIN

namespace {

// Splits a position into a truncated integer part and a fraction, pulling the last index back by
// one with fraction 1 so that the pixel to the right (or below) always exists. `last` is at least
// 1: the flow object keeps no level under two pixels on either side.
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

} // namespace

float DQFlowSampleBilinear(const DQImage* image, int channel, float x, float y) {
    int ix, iy;
    float fx, fy;
    SplitPosition(x, image->lastColumn, &ix, &fx);
    SplitPosition(y, image->lastRow, &iy, &fy);
    const int c = image->channels;
    const float* r0 = image->Row<float>(iy) + ix * c + channel;
    const float* r1 = image->Row<float>(iy + 1) + ix * c + channel;
    float top = r0[0] + (r0[c] - r0[0]) * fx;
    float bottom = r1[0] + (r1[c] - r1[0]) * fx;
    return top + (bottom - top) * fy;
}

void DQFlowComputeGradients(const DQImage* image, DQImage* gradX, DQImage* gradY) {
    const int w = image->width, h = image->height;
    ZUMPForRows(h, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* __restrict in = image->Row<float>(y);
            const float* up = y > 0 ? image->Row<float>(y - 1) : nullptr;
            const float* down = y < h - 1 ? image->Row<float>(y + 1) : nullptr;
            float* __restrict gx = gradX->Row<float>(y);
            float* __restrict gy = gradY->Row<float>(y);
            if (w == 1) {
                gx[0] = 0.0f;
            } else {
                gx[0] = in[1] - in[0];
                for (int x = 1; x < w - 1; ++x)
                    gx[x] = ((in[x] - in[x - 1]) + (in[x + 1] - in[x])) * 0.5f;
                gx[w - 1] = in[w - 1] - in[w - 2];
            }
            if (up && down) {
                for (int x = 0; x < w; ++x)
                    gy[x] = ((in[x] - up[x]) + (down[x] - in[x])) * 0.5f;
            } else if (down) {
                for (int x = 0; x < w; ++x)
                    gy[x] = down[x] - in[x];
            } else if (up) {
                for (int x = 0; x < w; ++x)
                    gy[x] = in[x] - up[x];
            } else {
                for (int x = 0; x < w; ++x)
                    gy[x] = 0.0f;
            }
        }
    });
}

void DQFlowMaskGradients(DQImage* gradX, DQImage* gradY, const DQImage* matte) {
    const int w = matte->width, h = matte->height;
    ZUMPForRows(h, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* m = matte->Row<float>(y);
            const float* up = y > 0 ? matte->Row<float>(y - 1) : nullptr;
            const float* down = y < h - 1 ? matte->Row<float>(y + 1) : nullptr;
            float* gx = gradX->Row<float>(y);
            float* gy = gradY->Row<float>(y);
            for (int x = 0; x < w; ++x) {
                bool outside = (x > 0 && double(m[x - 1]) < 0.95) ||
                               (x < w - 1 && double(m[x + 1]) < 0.95) ||
                               (up && double(up[x]) < 0.95) || (down && double(down[x]) < 0.95) ||
                               double(m[x]) < 0.95;
                if (outside) {
                    gx[x] = 0.0f;
                    gy[x] = 0.0f;
                }
            }
        }
    });
}

void DQFlowComputeTensor(const DQImage* gradX, const DQImage* gradY, DQImage* tensor) {
    const int w = gradX->width;
    ZUMPForRows(gradX->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* __restrict gx = gradX->Row<float>(y);
            const float* __restrict gy = gradY->Row<float>(y);
            float* __restrict t = tensor->Row<float>(y);
            for (int x = 0; x < w; ++x) {
                t[3 * x] = gx[x] * gx[x];
                t[3 * x + 1] = gy[x] * gx[x];
                t[3 * x + 2] = gy[x] * gy[x];
            }
        }
    });
}

void DQFlowSmoothLevelImage(DQImage* image, DQFlowWindow kind, int smoothing, DQFlowBuffer* plane) {
    const bool tensor = kind == DQFlowWindow::Tensor;
    DQFlowBuffer ownPlane;
    DQFlowBuffer& rows = plane ? *plane : ownPlane;
    switch (smoothing) {
    case 0:
        BlurBox(image, 0, 2.0f);
        break;
    case 1:
        DQFlowBlur(image, image, tensor ? DQFlowFilterKind::Gauss7 : DQFlowFilterKind::Gauss5,
                   rows);
        break;
    case 2:
        DQFlowBlur(image, image, tensor ? DQFlowFilterKind::Gauss5 : DQFlowFilterKind::Gauss3,
                   rows);
        break;
    default:
        break;
    }
}

namespace {

using namespace flow_lanes;

// Rows of B as a first row and a signed step, so that sampling needs no call per pixel.
struct RowsOf {
    const uint8_t* origin;
    ptrdiff_t step;
    int lastX, lastY;

    explicit RowsOf(const DQImage* image)
        : origin(image->RowAddress(0)), step(image->rowStep), lastX(image->lastColumn),
          lastY(image->lastRow) {}
    const float* Row(int y) const { return reinterpret_cast<const float*>(origin + step * y); }
};

// The residual of one pixel at p = (px, py) with the gradients gx, gy and the value a of A.
inline void PixelResidual(const RowsOf& b, const DQImage* matteB, float px, float py, float a,
                          float gx, float gy, float* r) {
    float rx = 0.0f, ry = 0.0f;
    if (px >= 0.0f && px <= static_cast<float>(b.lastX) && py >= 0.0f &&
        py <= static_cast<float>(b.lastY) &&
        !(matteB && double(::QUELMOR_KERNEL_NS::DQFlowSampleBilinear(matteB, 0, px, py)) < 0.999)) {
        int ix, iy;
        float fx, fy;
        SplitPosition(px, b.lastX, &ix, &fx);
        SplitPosition(py, b.lastY, &iy, &fy);
        const float* r0 = b.Row(iy) + ix;
        const float* r1 = b.Row(iy + 1) + ix;
        const float top = r0[0] + (r0[1] - r0[0]) * fx;
        const float bottom = r1[0] + (r1[1] - r1[0]) * fx;
        const float d = (top + (bottom - top) * fy) - a;
        rx = gx * d;
        ry = gy * d;
    }
    r[0] = rx;
    r[1] = ry;
}

// SplitPosition for eight lanes.
QUELMOR_LANES_INLINE void SplitLanes(F8 p, int last, I8* whole, F8* fraction) {
    const I8 n = __builtin_convertvector(p, I8);
    const I8 atLast = n >= last;
    *whole = atLast ? I8{} + (last - 1) : n;
    *fraction = atLast ? Splat(1.0f) : p - __builtin_convertvector(n, F8);
}

// 1 when every element of rows top..bottom, columns left..right of a one-channel plane is 1, 0
// when every one is 0, -1 otherwise.
inline int SolidValue(const RowsOf& plane, int top, int bottom, int left, int right) {
    bool ones = true, zeros = true;
    for (int y = top; y <= bottom; ++y) {
        const float* row = plane.Row(y);
        for (int x = left; x <= right; ++x) {
            ones &= row[x] == 1.0f;
            zeros &= row[x] == 0.0f;
        }
    }
    return ones ? 1 : zeros ? 0 : -1;
}

// The residuals of the eight pixels from x on row y, when all eight sample B inside it and their
// 2x2 blocks start within one pixel of one shift along the row and of one row; false otherwise,
// with nothing written. With a matte of B, also false unless the matte is solid over the blocks
// read: exactly 1, so that every lane's bilinear matte is 1 and none is masked, or exactly 0, so
// that every lane is masked and its residual is 0.
QUELMOR_LANES_INLINE bool EightResiduals(const RowsOf& b, const RowsOf* matte, int x, int y,
                                         const float* a, const float* gx, const float* gy,
                                         const float* f, float* r) {
    F8 u, v;
    LoadPairs(f + 2 * x, &u, &v);
    const F8 px = LanePositions(x) - u;
    const F8 py = static_cast<float>(y) - v;
    const I8 inside = (px >= 0.0f) & (px <= static_cast<float>(b.lastX)) & (py >= 0.0f) &
                      (py <= static_cast<float>(b.lastY));
    if (Bits(inside) != kAllLanes) return false;
    I8 ix, iy;
    F8 fx, fy;
    SplitLanes(px, b.lastX, &ix, &fx);
    SplitLanes(py, b.lastY, &iy, &fy);
    const I8 shift = ix - (x + kLaneIndex);
    const int shiftLow = AcrossLanes<false>(shift)[0], rowLow = AcrossLanes<false>(iy)[0];
    const int shiftSpread = AcrossLanes<true>(shift)[0] - shiftLow;
    const int rowSpread = AcrossLanes<true>(iy)[0] - rowLow;
    const int base = x + shiftLow;
    // The loads run from base to base + 7 + 1 + shiftSpread, which must all stay on the row: a
    // first lane that samples its own column while the others sample one to the left starts at
    // base -1 in column 0.
    if (shiftSpread > 1 || rowSpread > 1 || base < 0 || base + 8 + shiftSpread > b.lastX)
        return false;
    if (matte) {
        const int solid =
            SolidValue(*matte, rowLow, rowLow + 1 + rowSpread, base, base + 8 + shiftSpread);
        if (solid < 0) return false;
        if (solid == 0) {
            StorePairs(r + 2 * x, Splat(0.0f), Splat(0.0f));
            return true;
        }
    }
    const I8 nextT = shift != shiftLow, nextS = iy != rowLow;
    // Each lane's left and right sample on row rowLow + j.
    const auto samples = [&](int j, F8* left, F8* right) {
        const float* row = b.Row(rowLow + j) + base;
        *left = Load(row);
        *right = Load(row + 1);
        if (shiftSpread) {
            *left = nextT ? *right : *left;
            *right = nextT ? Load(row + 2) : *right;
        }
    };
    F8 topLeft, topRight, bottomLeft, bottomRight;
    samples(0, &topLeft, &topRight);
    samples(1, &bottomLeft, &bottomRight);
    if (rowSpread) {
        F8 lowLeft, lowRight;
        samples(2, &lowLeft, &lowRight);
        topLeft = nextS ? bottomLeft : topLeft;
        topRight = nextS ? bottomRight : topRight;
        bottomLeft = nextS ? lowLeft : bottomLeft;
        bottomRight = nextS ? lowRight : bottomRight;
    }
    const F8 top = topLeft + (topRight - topLeft) * fx;
    const F8 bottom = bottomLeft + (bottomRight - bottomLeft) * fx;
    const F8 d = (top + (bottom - top) * fy) - Load(a + x);
    StorePairs(r + 2 * x, Load(gx + x) * d, Load(gy + x) * d);
    return true;
}

} // namespace

void DQFlowComputeResidual(const DQImage* imageA, const DQImage* imageB, const DQImage* gradX,
                           const DQImage* gradY, const DQImage* flow, const DQImage* matteB,
                           DQImage* residual) {
    const int w = imageA->width;
    const RowsOf b(imageB);
    const RowsOf matteRows(matteB ? matteB : imageB);
    const RowsOf* matte = matteB ? &matteRows : nullptr;
    ZUMPForRows(imageA->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* __restrict a = imageA->Row<float>(y);
            const float* __restrict gx = gradX->Row<float>(y);
            const float* __restrict gy = gradY->Row<float>(y);
            const float* __restrict f = flow->Row<float>(y);
            float* __restrict r = residual->Row<float>(y);
            int x = 0;
            // Eight pixels at a time where that is possible: the samples of all eight inside B,
            // side by side up to a pixel, and no matte or a solid one under them.
            for (; x + kDQFlowLanes <= w; x += kDQFlowLanes)
                if (!EightResiduals(b, matte, x, y, a, gx, gy, f, r))
                    for (int k = x; k < x + kDQFlowLanes; ++k)
                        PixelResidual(b, matteB, static_cast<float>(k) - f[2 * k],
                                      static_cast<float>(y) - f[2 * k + 1], a[k], gx[k], gy[k],
                                      r + 2 * k);
            for (; x < w; ++x)
                PixelResidual(b, matteB, static_cast<float>(x) - f[2 * x],
                              static_cast<float>(y) - f[2 * x + 1], a[x], gx[x], gy[x], r + 2 * x);
        }
    });
}

void DQFlowSolveStep(const DQImage* tensor, const DQImage* residual, DQImage* flow) {
    const int w = flow->width;
    ZUMPForRows(flow->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* __restrict t = tensor->Row<float>(y);
            const float* __restrict r = residual->Row<float>(y);
            float* __restrict f = flow->Row<float>(y);
            for (int x = 0; x < w; ++x) {
                const float a = t[3 * x], b = t[3 * x + 1], c = t[3 * x + 2];
                const float rx = r[2 * x], ry = r[2 * x + 1];
                const float d = b * b - a * c;
                if (std::fabs(d) > kDQFlowMinDeterminant) {
                    f[2 * x] += (b * ry - c * rx) / d;
                    f[2 * x + 1] += (b * rx - a * ry) / d;
                }
            }
        }
    });
}

void DQFlowApplySeeds(DQImage* flow, const DQImage* seedFlow, const DQImage* seedWeight,
                      bool blend) {
    const int w = flow->width;
    ZUMPForRows(flow->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* s = seedFlow->Row<float>(y);
            const float* wt = seedWeight->Row<float>(y);
            float* f = flow->Row<float>(y);
            for (int x = 0; x < w; ++x) {
                const float weight = wt[x];
                if (weight == 0.0f) continue;
                if (blend) {
                    f[2 * x] += s[2 * x] - weight * f[2 * x];
                    f[2 * x + 1] += s[2 * x + 1] - weight * f[2 * x + 1];
                } else {
                    f[2 * x] = s[2 * x] / weight;
                    f[2 * x + 1] = s[2 * x + 1] / weight;
                }
            }
        }
    });
}

void DQFlowExpandFlow(const DQImage* coarse, DQImage* fine) {
    if (coarse->dataType != DQ_FLOAT || fine->dataType != DQ_FLOAT ||
        coarse->channels != fine->channels)
        DQThrow(kDQErrBadArgument);
    const float gx = static_cast<float>(fine->width - 1) / static_cast<float>(coarse->width - 1);
    const float gy = static_cast<float>(fine->height - 1) / static_cast<float>(coarse->height - 1);
    const float toCoarseX = 1.0f / gx, toCoarseY = 1.0f / gy;
    const int w = fine->width, c = fine->channels;
    const int lastX = coarse->lastColumn, lastY = coarse->lastRow;
    ZUMPForRows(fine->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* __restrict f = fine->Row<float>(y);
            int iy;
            float fy;
            SplitPosition(static_cast<float>(y) * toCoarseY, lastY, &iy, &fy);
            const float* __restrict r0 = coarse->Row<float>(iy);
            const float* __restrict r1 = coarse->Row<float>(iy + 1);
            for (int x = 0; x < w; ++x) {
                int ix;
                float fx;
                SplitPosition(static_cast<float>(x) * toCoarseX, lastX, &ix, &fx);
                // DQFlowSampleBilinear of channels 0 and 1, with the row split once per row.
                const auto sample = [&](int channel) {
                    const float* p0 = r0 + ix * c + channel;
                    const float* p1 = r1 + ix * c + channel;
                    const float top = p0[0] + (p0[c] - p0[0]) * fx;
                    const float bottom = p1[0] + (p1[c] - p1[0]) * fx;
                    return top + (bottom - top) * fy;
                };
                f[c * x] = sample(0) * gx;
                if (c > 1) f[c * x + 1] = sample(1) * gy;
            }
        }
    });
}

QUELMOR_KERNELS_END
