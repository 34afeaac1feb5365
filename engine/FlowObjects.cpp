// The engine makes no flow object yet: every road that would make one throws
// before it does, so the slots stay null and these only see null objects.

#include "engine/FlowObjects.h"

DQImage* FlowOutputOf(const DQOpticalFlowUChar*) {
    return nullptr;
}
DQImage* FlowOutputOf(const DQMorphFlow*) {
    return nullptr;
}
bool FlowSizeDiffers(const DQOpticalFlowUChar*, int, int) {
    return false;
}
bool FlowSizeDiffers(const DQMorphFlow*, int, int) {
    return false;
}
void DestroyFlow(DQOpticalFlowUChar*& flow) {
    flow = nullptr;
}
void DestroyFlow(DQMorphFlow*& flow) {
    flow = nullptr;
}
