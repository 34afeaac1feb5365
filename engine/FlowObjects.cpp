// The dense flow object behind the engine's motion. No morph-flow object is ever made by this
// engine (geometry-only motion fails before it would be), so its slot only ever holds null.

#include "engine/FlowObjects.h"

#include "flow/Flow.h"

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

DQImage* FlowOutputOf(const DQOpticalFlowUChar* flow) {
    return flow && flow->flowLevels ? flow->flowLevels[0] : nullptr;
}
DQImage* FlowOutputOf(const DQMorphFlow*) {
    return nullptr;
}
bool FlowSizeDiffers(const DQOpticalFlowUChar* flow, int flowWidth, int flowHeight) {
    return flow && (flow->width != flowWidth || flow->height != flowHeight);
}
bool FlowSizeDiffers(const DQMorphFlow*, int, int) {
    return false;
}
void DestroyFlow(DQOpticalFlowUChar*& flow) {
    delete flow;
    flow = nullptr;
}
void DestroyFlow(DQMorphFlow*& flow) {
    flow = nullptr;
}
