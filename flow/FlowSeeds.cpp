// Seed constraints: vectors pinned at given points of level 0, averaged where several meet, and
// carried down the seed pyramids in the solver's sign.
#include "flow/Flow.h"
#include "flow/FlowSolver.h"
#include "image/Parallel.h"
#include "warp/Filters.h"

namespace {

// Pixel of level 0 for a point of the source; false when it falls outside.
bool SeedPixel(float x, float y, float sx, float sy, int width, int height, int* px, int* py) {
    const double rx = static_cast<double>(x * sx) + 0.5, ry = static_cast<double>(y * sy) + 0.5;
    // Positions beyond the range of int (or not numbers) are outside; the rest round as before.
    if (!(rx > -1.0 && rx < width && ry > -1.0 && ry < height)) return false;
    const int ix = static_cast<int>(rx);
    const int iy = static_cast<int>(ry);
    if (ix < 0 || iy < 0 || ix >= width || iy >= height) return false;
    *px = ix;
    *py = iy;
    return true;
}

} // namespace

void DQOpticalFlowUChar::ClearSeeds() {
    if (!useSeeds) return;
    seedFlowLevels[0]->Clear();
    seedWeightLevels[0]->Clear();
}

void DQOpticalFlowUChar::AddSeed(float x1, float y1, float x2, float y2, float mx, float my) {
    if (!useSeeds) return;
    const float sx = static_cast<float>(maxX) / mx;
    const float sy = static_cast<float>(maxY) / my;
    int px, py;
    if (!SeedPixel(x1, y1, sx, sy, width, height, &px, &py)) return;
    float* flow = seedFlowLevels[0]->Row<float>(py) + 2 * px;
    flow[0] += x2 * sx - x1 * sx;
    flow[1] += y2 * sy - y1 * sy;
    seedWeightLevels[0]->Row<float>(py)[px] += 1.0f;
}

void DQOpticalFlowUChar::AddZeroSeed(float x, float y, float mx, float my) {
    if (!useSeeds) return;
    const float sx = static_cast<float>(maxX) / mx;
    const float sy = static_cast<float>(maxY) / my;
    int px, py;
    if (!SeedPixel(x, y, sx, sy, width, height, &px, &py)) return;
    float* flow = seedFlowLevels[0]->Row<float>(py) + 2 * px;
    flow[0] = 0.0f;
    flow[1] = 0.0f;
    seedWeightLevels[0]->Row<float>(py)[px] = 1.0f;
}

void DQOpticalFlowUChar::FinishSeeds() {
    if (!useSeeds) return;
    DQImage* flow0 = seedFlowLevels[0];
    DQImage* weight0 = seedWeightLevels[0];
    for (int y = 0; y < height; ++y) {
        float* f = flow0->Row<float>(y);
        float* w = weight0->Row<float>(y);
        for (int x = 0; x < width; ++x) {
            if (w[x] > 0.0f) {
                f[2 * x] /= w[x];
                f[2 * x + 1] /= w[x];
                w[x] = 1.0f;
            }
        }
    }
    flow0->ScaleXY(-1.0f, -1.0f);
    for (int level = 1; level < numLevels; ++level) {
        DQImage* flowScratch = flowLevels[level - 1];
        flowScratch->CopyWhole(seedFlowLevels[level - 1]);
        Blur5(flowScratch);
        ResizeBilinear(seedFlowLevels[level], flowScratch);
        DQImage* weightScratch = gradXLevels[level - 1];
        weightScratch->CopyWhole(seedWeightLevels[level - 1]);
        Blur5(weightScratch);
        ResizeBilinear(seedWeightLevels[level], weightScratch);
        const float rx = static_cast<float>(seedFlowLevels[level]->lastColumn) /
                         static_cast<float>(seedFlowLevels[level - 1]->lastColumn);
        const float ry = static_cast<float>(seedFlowLevels[level]->lastRow) /
                         static_cast<float>(seedFlowLevels[level - 1]->lastRow);
        seedFlowLevels[level]->ScaleXY(rx, ry);
    }
}
