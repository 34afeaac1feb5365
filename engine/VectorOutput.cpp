// Vectors handed out: the flows of the pair that the last frame was drawn from.
#include "engine/Engine.h"
#include "engine/EngineInternal.h"
#include "warp/Filters.h"

int ZUQuelmor4::GetPairFlows(DQImage* flowAtoB, DQImage* flowBtoA, int* frameA) {
    if (!internal || internal->layerCount != 1) return kDQErrBadArgument;
    DQImage* kept[2] = {internal->FlowAtoB(0), internal->FlowBtoA(0)};
    DQImage* wanted[2] = {flowAtoB, flowBtoA};
    for (int i = 0; i < 2; ++i) {
        if ((i == 0 ? flowAtoB : flowBtoA) == nullptr) continue;
        const DQImage* to = wanted[i];
        if (!kept[i] || !to || !to->data || to->channels != 2 || to->dataType != DQ_FLOAT ||
            to->width < 2 || to->height < 2)
            return kDQErrBadArgument;
    }
    try {
        for (int i = 0; i < 2; ++i) {
            DQImage* to = wanted[i];
            if ((i == 0 ? flowAtoB : flowBtoA) == nullptr) continue;
            const DQImage* from = kept[i];
            if (to->width == from->width && to->height == from->height) {
                to->CopyWhole(from);
                continue;
            }
            ResizeBilinear(to, from);
            to->ScaleXY(float(to->lastColumn) / float(from->lastColumn),
                        float(to->lastRow) / float(from->lastRow));
        }
    } catch (DQErr code) {
        return code;
    }
    if (frameA) *frameA = internal->lastFrameA;
    return 0;
}
