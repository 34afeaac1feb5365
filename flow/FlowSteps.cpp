// Row-band steps of one solver level: gradients, their mask and products, the residual of the
// current field, the 2x2 solve, seeds and the expansion to the next finer level.
#include "flow/FlowFilter.h"
#include "flow/FlowSolver.h"
#include "image/Parallel.h"
#include "warp/Filters.h"

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace {

// Splits a position into a truncated integer part and a fraction, pulling the last index back by
// one with fraction 1 so that the pixel to the right (or below) always exists.
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

void DQFlowComputeResidual(const DQImage* imageA, const DQImage* imageB, const DQImage* gradX,
                           const DQImage* gradY, const DQImage* flow, const DQImage* matteB,
                           DQImage* residual) {
    const int w = imageA->width;
    const int lastX = imageB->lastColumn, lastY = imageB->lastRow;
    const float maxX = static_cast<float>(lastX);
    const float maxY = static_cast<float>(lastY);
    // Rows of B as a first row and a signed step, so that sampling needs no call per pixel.
    const uint8_t* originB = imageB->RowAddress(0);
    const ptrdiff_t stepB = imageB->rowStep;
    ZUMPForRows(imageA->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* __restrict a = imageA->Row<float>(y);
            const float* __restrict gx = gradX->Row<float>(y);
            const float* __restrict gy = gradY->Row<float>(y);
            const float* __restrict f = flow->Row<float>(y);
            float* __restrict r = residual->Row<float>(y);
            for (int x = 0; x < w; ++x) {
                const float px = static_cast<float>(x) - f[2 * x];
                const float py = static_cast<float>(y) - f[2 * x + 1];
                float rx = 0.0f, ry = 0.0f;
                if (px >= 0.0f && px <= maxX && py >= 0.0f && py <= maxY &&
                    !(matteB && double(DQFlowSampleBilinear(matteB, 0, px, py)) < 0.999)) {
                    int ix, iy;
                    float fx, fy;
                    SplitPosition(px, lastX, &ix, &fx);
                    SplitPosition(py, lastY, &iy, &fy);
                    const float* r0 = reinterpret_cast<const float*>(originB + stepB * iy) + ix;
                    const float* r1 =
                        reinterpret_cast<const float*>(originB + stepB * (iy + 1)) + ix;
                    const float top = r0[0] + (r0[1] - r0[0]) * fx;
                    const float bottom = r1[0] + (r1[1] - r1[0]) * fx;
                    const float d = (top + (bottom - top) * fy) - a[x];
                    rx = gx[x] * d;
                    ry = gy[x] * d;
                }
                r[2 * x] = rx;
                r[2 * x + 1] = ry;
            }
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
    ZUMPForRows(fine->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* f = fine->Row<float>(y);
            const float cy = static_cast<float>(y) * toCoarseY;
            for (int x = 0; x < w; ++x) {
                const float cx = static_cast<float>(x) * toCoarseX;
                f[c * x] = DQFlowSampleBilinear(coarse, 0, cx, cy) * gx;
                if (c > 1) f[c * x + 1] = DQFlowSampleBilinear(coarse, 1, cx, cy) * gy;
            }
        }
    });
}
