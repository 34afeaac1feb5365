#include "flow/PyramidSteps.h"

#include "image/Error.h"
#include "warp/Filters.h"

void ReduceStep(DQImage* target, DQImage* source) {
    if (!target || !source) DQThrow(kDQErrBadArgument);
    if (target->channels != source->channels) DQThrow(kDQErrBadArgument);
    Blur5(source);
    ResizeBilinear(target, source);
}

void ReduceStep(DQImage* target, const DQImage* source, DQImage* scratch) {
    if (!target || !source || !scratch) DQThrow(kDQErrBadArgument);
    if (scratch->width != source->width || scratch->height != source->height ||
        scratch->channels != source->channels || scratch->dataType != source->dataType)
        DQThrow(kDQErrBadArgument);
    scratch->CopyWhole(source);
    ReduceStep(target, scratch);
}

void ExpandLevel(DQImage* target, const DQImage* source) {
    if (!target || !source) DQThrow(kDQErrBadArgument);
    if (target->dataType != DQ_FLOAT || source->dataType != DQ_FLOAT ||
        target->channels != source->channels)
        DQThrow(kDQErrBadArgument);
    // Same-type float resize: no white-point scaling, positions mapped by (size - 1) ratios.
    ResizeBilinear(target, source);
}
