// The coarse-to-fine loop of the flow object and the work of one pyramid level.
#include "flow/Flow.h"
#include "flow/FlowFilter.h"
#include "flow/FlowSolver.h"
#include "flow/FlowTiming.h"
#include "image/Parallel.h"
#include "image/Progress.h"

#include <algorithm>
#include <cmath>

namespace {

DQFlowStepTimes* gStepTimes = nullptr;

void Idle(ZUIdleAndProgressClass* progress) {
    if (progress) progress->RepeatProgress();
}

// True when some vector of the level, added to its position, lands inside the level.
bool AnyVectorInside(const DQImage* flow) {
    const float maxX = static_cast<float>(flow->lastColumn);
    const float maxY = static_cast<float>(flow->lastRow);
    for (int y = 0; y < flow->height; ++y) {
        const float* f = flow->Row<float>(y);
        for (int x = 0; x < flow->width; ++x) {
            const float px = static_cast<float>(x) + f[2 * x];
            const float py = static_cast<float>(y) + f[2 * x + 1];
            if (px >= 0.0f && px <= maxX && py >= 0.0f && py <= maxY) return true;
        }
    }
    return false;
}

} // namespace

void DQFlowSetStepTimes(DQFlowStepTimes* times) {
    gStepTimes = times;
}
DQFlowStepTimes* DQFlowGetStepTimes() {
    return gStepTimes;
}

void DQOpticalFlowUChar::ChooseStartLevel(int numLevels, float sensitivity, int* startLevel,
                                          float* fade) {
    const double s2 = std::pow(static_cast<double>(sensitivity), 2.0);
    const float t = static_cast<float>(numLevels + std::log(s2) / std::log(2.0));
    if (t < 0.0f) {
        *startLevel = 0;
        *fade = 0.0f;
    } else if (t >= static_cast<float>(numLevels)) {
        *startLevel = numLevels - 1;
        *fade = 1.0f;
    } else {
        const float floor = std::floor(t);
        *startLevel = static_cast<int>(floor);
        *fade = t - floor;
    }
}

bool DQOpticalFlowUChar::LevelHasSeeds(int level) const {
    if (!seedWeightLevels) return false;
    const DQImage* weight = seedWeightLevels[level];
    for (int y = 0; y < weight->height; ++y) {
        const float* row = weight->Row<float>(y);
        for (int x = 0; x < weight->width; ++x)
            if (row[x] != 0.0f) return true; // also true for a NaN
    }
    return false;
}

void DQOpticalFlowUChar::PropagateLevel(int level, int skipPropagation,
                                        ZUIdleAndProgressClass* progress) {
    if (skipPropagation) return;
    DQFlowStepClock clock(kDQFlowStepSweeps);
    DQFlowPropagateVectors(imageALevels[level], imageBLevels[level], flowLevels[level],
                           useMattes ? matteALevels[level] : nullptr,
                           useMattes ? matteBLevels[level] : nullptr, progress,
                           &scratch->sweepPlanes);
}

void DQOpticalFlowUChar::SolveLevel(int level, int smoothing, int skipPropagation,
                                    ZUIdleAndProgressClass* progress) {
    DQImage* flow = flowLevels[level];
    DQImage* gradX = gradXLevels[level];
    DQImage* gradY = gradYLevels[level];
    DQImage* tensor = tensorLevels[level];
    DQImage* residual = residualLevels[level];
    DQFlowBuffer* plane = &scratch->filterPlane;
    const auto applySeeds = [&] {
        if (useSeeds) DQFlowApplySeeds(flow, seedFlowLevels[level], seedWeightLevels[level], false);
    };
    applySeeds();
    {
        DQFlowStepClock clock(kDQFlowStepGradients);
        DQFlowComputeGradients(imageALevels[level], gradX, gradY);
        if (useMattes) DQFlowMaskGradients(gradX, gradY, matteALevels[level]);
    }
    Idle(progress);
    {
        DQFlowStepClock clock(kDQFlowStepTensor);
        DQFlowComputeTensor(gradX, gradY, tensor);
    }
    {
        DQFlowStepClock clock(kDQFlowStepSmoothing);
        DQFlowSmoothLevelImage(tensor, DQFlowWindow::Tensor, smoothing, plane);
    }
    Idle(progress);
    for (int i = 0; i < iterations; ++i) {
        {
            DQFlowStepClock clock(kDQFlowStepResidual);
            DQFlowComputeResidual(imageALevels[level], imageBLevels[level], gradX, gradY, flow,
                                  useMattes ? matteBLevels[level] : nullptr, residual);
        }
        {
            DQFlowStepClock clock(kDQFlowStepSmoothing);
            DQFlowSmoothLevelImage(residual, DQFlowWindow::Tensor, smoothing, plane);
        }
        Idle(progress);
        {
            DQFlowStepClock clock(kDQFlowStepSolve);
            DQFlowSolveStep(tensor, residual, flow);
        }
        Idle(progress);
        {
            DQFlowStepClock clock(kDQFlowStepSmoothing);
            DQFlowSmoothLevelImage(flow, DQFlowWindow::Flow, smoothing, plane);
        }
        Idle(progress);
        // Level 0 is swept one iteration before the end, so that a last fit follows the sweeps.
        if (i + 2 == iterations && level == 0) {
            PropagateLevel(0, skipPropagation, progress);
            applySeeds();
        }
    }
    if (level != 0) PropagateLevel(level, skipPropagation, progress);
    applySeeds();
}

void DQOpticalFlowUChar::SolveLoadedFlow(DQImage* result, int smoothing, int skipPropagation,
                                         ZUIdleAndProgressClass* progress) {
    if (numLevels < 1) DQThrow(kDQErrBadArgument);
    double total = 0.0;
    for (int level = startLevel; level >= 0; --level)
        total +=
            static_cast<double>(iterations) * flowLevels[level]->width * flowLevels[level]->height;
    float fade = 1.0f;
    ChooseStartLevel(numLevels, sensitivity, &startLevel, &fade);
    flowLevels[startLevel]->Clear();
    bool stillOutside = true;
    double done = 0.0;
    for (int level = startLevel; level >= 0; --level) {
        SolveLevel(level, smoothing, skipPropagation, progress);
        DQFlowStepClock clock(kDQFlowStepOther);
        DQImage* flow = flowLevels[level];
        if (stillOutside && (!useSeeds || !LevelHasSeeds(level))) {
            if (AnyVectorInside(flow))
                stillOutside = false;
            else
                flow->Clear();
        }
        if ((flow->width < 3 || flow->height < 3) && useSeeds && !LevelHasSeeds(level))
            flow->Clear();
        if (level == startLevel && std::fabs(fade - 1.0f) >= 0.000001f) flow->ScaleXY(fade, fade);
        if (level > 0) DQFlowExpandFlow(flow, flowLevels[level - 1]);
        done += static_cast<double>(flow->width) * flow->height;
        if (progress) progress->ReportProgress(static_cast<float>(done / total));
    }
    DQImage* level0 = flowLevels[0];
    level0->ScaleXY(-1.0f, -1.0f);
    if (result && result != level0 && result->channels == 2)
        result->CopyFrom(0, 0, level0, 0, 0, std::min(width, result->width),
                         std::min(height, result->height));
}
