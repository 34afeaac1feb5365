// The two flow objects behind the engine's motion: the optical flow, measured from the pictures,
// and the morph flow, built from geometry alone.

#include "engine/FlowObjects.h"

#include "flow/Flow.h"
#include "flow/MorphFlow.h"

#include <memory>

namespace {

// Smallest side of a pyramid level the engine accepts.
constexpr int kMinLevelSize = 2;

} // namespace

DQOpticalFlowUChar* MakeOpticalFlow(int width, int height, int flowLevel, bool useSeeds,
                                    bool useMattes) {
    std::unique_ptr<DQOpticalFlowUChar> flow(new DQOpticalFlowUChar(
        0, width, height, flowLevel, useSeeds ? 1 : 0, useMattes ? 1 : 0, kMinLevelSize));
    if (flow->error != 0) DQThrow(flow->error);
    return flow.release();
}

DQMorphFlow* MakeMorphFlow(int width, int height, int flowLevel) {
    std::unique_ptr<DQMorphFlow> flow(new DQMorphFlow(0, width, height, flowLevel, kMinLevelSize));
    if (flow->error != 0) DQThrow(flow->error);
    return flow.release();
}

DQImage* FlowOutputOf(const DQOpticalFlowUChar* flow) {
    return flow && flow->flowLevels ? flow->flowLevels[0] : nullptr;
}
DQImage* FlowOutputOf(const DQMorphFlow* flow) {
    return flow ? flow->GetFlow() : nullptr;
}
bool FlowSizeDiffers(const DQOpticalFlowUChar* flow, int flowWidth, int flowHeight) {
    return flow && (flow->width != flowWidth || flow->height != flowHeight);
}
bool FlowSizeDiffers(const DQMorphFlow* flow, int flowWidth, int flowHeight) {
    return flow && (flow->width != flowWidth || flow->height != flowHeight);
}
void DestroyFlow(DQOpticalFlowUChar*& flow) {
    delete flow;
    flow = nullptr;
}
void DestroyFlow(DQMorphFlow*& flow) {
    delete flow;
    flow = nullptr;
}
