// The morph flow object: its levels, the geometry it is fed and the coarse-to-fine run.
#include "flow/MorphFlow.h"

#include "flow/Flow.h"
#include "flow/FlowFilter.h"
#include "image/LevelArrays.h"
#include "image/Progress.h"

#include <algorithm>
#include <cmath>

namespace {

int HalfHeld(int size, int minLevelSize) {
    return std::max({size / 2, minLevelSize, 2});
}

// Pixel of a level for a point already in the level's coordinates, rounded half up; false when it
// falls outside (or is not a number).
bool LevelPixel(float x, float y, int width, int height, int* px, int* py) {
    const double rx = static_cast<double>(x) + 0.5, ry = static_cast<double>(y) + 0.5;
    if (!(rx >= 0.0 && rx < width && ry >= 0.0 && ry < height)) return false;
    *px = static_cast<int>(rx);
    *py = static_cast<int>(ry);
    return true;
}

} // namespace

int DQMorphFlow::CountLevels(int width, int height, int minLevelSize) {
    int count = 1;
    int w = width, h = height;
    for (;;) {
        w = HalfHeld(w, minLevelSize);
        h = HalfHeld(h, minLevelSize);
        ++count;
        if ((w == minLevelSize && h == minLevelSize) || (w == 2 && h == 2)) break;
    }
    return count;
}

DQMorphFlow::DQMorphFlow(int throwOnError, int width_, int height_, int reduction,
                         int minLevelSize_) {
    Construct(throwOnError, width_, height_, reduction, minLevelSize_);
}

DQMorphFlow::DQMorphFlow(int width_, int height_, int reduction, int minLevelSize_) {
    Construct(1, width_, height_, reduction, minLevelSize_);
}

DQMorphFlow::~DQMorphFlow() {
    ReleaseLevels();
}

void DQMorphFlow::Construct(int throwOnError, int width_, int height_, int reduction,
                            int minLevelSize_) {
    iterations = 2;
    sensitivity = 1.0f;
    minLevelSize = minLevelSize_;
    width = DQReducedSize(width_, reduction);
    height = DQReducedSize(height_, reduction);
    maxX = static_cast<float>(width - 1);
    maxY = static_cast<float>(height - 1);
    // Sizes are mapped by ratios of (size - 1): a level 0 of one pixel across maps nothing.
    if (width < 2 || height < 2) {
        numLevels = 0;
        error = kDQErrBadArgument;
        if (throwOnError == 1) DQThrow(error);
        return;
    }
    numLevels = CountLevels(width, height, minLevelSize);
    startLevel = numLevels - 1;
    try {
        scratch.reset(new DQFlowScratch);
        AllocateLevels();
    } catch (DQErr code) {
        ReleaseLevels();
        error = code;
        if (throwOnError == 1) throw;
    }
}

void DQMorphFlow::AllocateLevels() {
    DQImage*** arrays[] = {&flowLevels, &seedFlowLevels, &seedWeightLevels, &scratchLevels};
    const int channels[] = {2, 2, 1, 1};
    for (DQImage*** levels : arrays)
        *levels = DQNewLevelArray(numLevels);
    int w = width, h = height;
    for (int level = 0; level < numLevels; ++level) {
        for (int i = 0; i < 4; ++i) {
            (*arrays[i])[level] = DQNewLevelImage(w, h, channels[i]);
            (*arrays[i])[level]->Clear();
        }
        w = DQNextLevelSize(w);
        h = DQNextLevelSize(h);
    }
}

void DQMorphFlow::ReleaseLevels() {
    for (DQImage*** levels : {&flowLevels, &seedFlowLevels, &seedWeightLevels, &scratchLevels})
        DQReleaseLevelArray(*levels, numLevels);
}

void DQMorphFlow::BeginGeometry() {
    if (!seedFlowLevels) return;
    for (int level = 0; level < numLevels; ++level) {
        seedFlowLevels[level]->Clear();
        seedWeightLevels[level]->Clear();
    }
}

void DQMorphFlow::AddGeometryPoint(float x1, float y1, float x2, float y2, float mx, float my) {
    if (!seedFlowLevels) return;
    const float sx = maxX / mx, sy = maxY / my;
    int px, py;
    if (!LevelPixel(x1 * sx, y1 * sy, width, height, &px, &py)) return;
    float* flow = seedFlowLevels[0]->Row<float>(py) + 2 * px;
    flow[0] += x2 * sx - x1 * sx;
    flow[1] += y2 * sy - y1 * sy;
    seedWeightLevels[0]->Row<float>(py)[px] += 1.0f;
}

void DQMorphFlow::AddGeometryZeroPoint(float x, float y, float mx, float my) {
    if (!seedFlowLevels) return;
    const float sx = maxX / mx, sy = maxY / my;
    int px, py;
    if (!LevelPixel(x * sx, y * sy, width, height, &px, &py)) return;
    float* flow = seedFlowLevels[0]->Row<float>(py) + 2 * px;
    flow[0] = 0.0f;
    flow[1] = 0.0f;
    seedWeightLevels[0]->Row<float>(py)[px] = 1.0f;
}

void DQMorphFlow::AddGeometryCurve(int n, const float* x1, const float* y1, const float* x2,
                                   const float* y2, float mx, float my) {
    if (!seedFlowLevels || n < 1) return;
    if (n > kMaxCurvePoints) DQThrow(kDQErrBadArgument);
    bool stopped = false;
    for (int level = 0; level < numLevels && !stopped; ++level)
        AddCurveOnLevel(level, n, x1, y1, x2, y2, mx, my, &stopped);
}

void DQMorphFlow::AddCurveOnLevel(int level, int n, const float* x1, const float* y1,
                                  const float* x2, const float* y2, float mx, float my,
                                  bool* stopped) {
    DQImage* seedFlow = seedFlowLevels[level];
    DQImage* seedWeight = seedWeightLevels[level];
    const float sx = static_cast<float>(seedFlow->width - 1) / mx;
    const float sy = static_cast<float>(seedFlow->height - 1) / my;
    float ax[kMaxCurvePoints], ay[kMaxCurvePoints], bx[kMaxCurvePoints], by[kMaxCurvePoints];
    for (int i = 0; i < n; ++i) {
        ax[i] = x1[i] * sx;
        ay[i] = y1[i] * sy;
        bx[i] = x2[i] * sx;
        by[i] = y2[i] * sy;
    }
    float length = 0.0f;
    for (int i = 0; i + 1 < n; ++i)
        length += std::hypot(ax[i + 1] - ax[i], ay[i + 1] - ay[i]);
    // About one point per pixel of the first curve's length, within the working arrays.
    const int m = length < float(kMaxCurvePoints) ? std::max(static_cast<int>(length + 0.5f), 2)
                                                  : int(kMaxCurvePoints);
    float rax[kMaxCurvePoints], ray[kMaxCurvePoints], rbx[kMaxCurvePoints], rby[kMaxCurvePoints];
    DQResampleCurve(n, ax, ay, m, rax, ray, 0.99f);
    DQResampleCurve(n, bx, by, m, rbx, rby, 0.99f);
    for (int i = 0; i < m; ++i) {
        int px, py;
        if (!LevelPixel(rax[i], ray[i], seedFlow->width, seedFlow->height, &px, &py)) {
            *stopped = true;
            return;
        }
        float* flow = seedFlow->Row<float>(py) + 2 * px;
        flow[0] += rbx[i] - rax[i];
        flow[1] += rby[i] - ray[i];
        seedWeight->Row<float>(py)[px] += 1.0f;
    }
}

void DQMorphFlow::EndGeometry() {
    if (!seedFlowLevels) return;
    DQImage* flow = seedFlowLevels[0];
    DQImage* weight = seedWeightLevels[0];
    for (int y = 0; y < height; ++y) {
        float* f = flow->Row<float>(y);
        float* w = weight->Row<float>(y);
        for (int x = 0; x < width; ++x) {
            if (w[x] > 0.0f) {
                f[2 * x] /= w[x];
                f[2 * x + 1] /= w[x];
                w[x] = 1.0f;
            }
        }
    }
}

void DQMorphFlow::ComputeMorph(DQImage* result, ZUIdleAndProgressClass* progress, bool spread) {
    if (numLevels < 1) DQThrow(kDQErrBadArgument);
    double total = 0.0;
    for (int level = startLevel; level >= 0; --level)
        total +=
            static_cast<double>(iterations) * flowLevels[level]->width * flowLevels[level]->height;
    flowLevels[startLevel]->Clear();
    // The coarsest level is the one level the seed pyramid below does not write over; a run that
    // starts there must not begin from what an earlier run left.
    flowLevels[numLevels - 1]->Clear();
    BuildSeedPyramids();
    if (progress) progress->RepeatProgress();
    float fade = 1.0f;
    DQOpticalFlowUChar::ChooseStartLevel(numLevels, sensitivity, &startLevel, &fade);
    double done = 0.0;
    for (int level = startLevel; level >= 0; --level) {
        if (spread)
            SpreadLevel(level);
        else
            PlainLevel(level);
        DQImage* flow = flowLevels[level];
        if (level == startLevel && fade != 1.0f) flow->ScaleXY(fade, fade);
        if (level > 0) DQMorphExpandFlow(flow, flowLevels[level - 1], &scratch->reduceFirst);
        done += static_cast<double>(flow->width) * flow->height;
        if (progress) progress->ReportProgress(static_cast<float>(done / total));
    }
    DQImage* level0 = flowLevels[0];
    if (result && result != level0) {
        if (result->dataType != DQ_FLOAT || result->channels != 2 || result->width < width ||
            result->height < height)
            DQThrow(kDQErrBadArgument);
        result->CopyFrom(0, 0, level0, 0, 0, width, height);
    }
    if (progress) progress->ReportProgress(1.0f);
}
