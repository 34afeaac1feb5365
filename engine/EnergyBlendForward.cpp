// "Weighted Energy Blend" with forward warps.

#include "engine/EnergyBlend.h"

#include "engine/Mix.h"
#include "engine/SmartBlend.h"
#include "warp/VoronoiFill.h"
#include "warp/WarpForward.h"

namespace {

DQImage* Target(DQImage* given, const DQImage* like, int channels, int dataType,
                DQImagePtr& owned) {
    if (given) return given;
    owned = DQMakeImage(like->width, like->height, channels, dataType, like->bottomUp);
    owned->whitePoint = like->whitePoint;
    return owned.get();
}

// Pushes `source` along `flow` by `scale` into `warped`, with where it landed in `landed` when
// given, and sharpens what moved. Without a flow the frame stays where it is and covers all.
void PushAndSharpen(DQImage* warped, DQImage* landed, DQImage* source, DQImage* flow, float scale,
                    ZUIdleAndProgressClass* progress) {
    if (!flow) {
        warped->CopyFrom(0, 0, source, 0, 0, source->width, source->height);
        if (landed) {
            const uint8_t full = 255;
            landed->FillPixel(&full);
        }
    } else if (DQWarpForward(warped, source, flow, progress, landed, scale) == 0) {
        DQThrow(kDQErrBadArgument);
    }
    SharpenWarpedFrame(warped, source, scale);
}

} // namespace

void EnergyBlendForward(DQImage* dest, DQImage* a, DQImage* flowAtoB, DQImage* b, DQImage* flowBtoA,
                        DQImage* scratchA, DQImage* scratchB, DQImage* maskA, DQImage* maskB,
                        ZUIdleAndProgressClass* progress, float weightA) {
    const float u = 1.0f - weightA;
    DQImagePtr ownedA, ownedB, ownedMaskB;
    DQImage* warpedA = Target(scratchA, a, a->channels, a->dataType, ownedA);
    DQImage* warpedB = Target(scratchB, b, b->channels, b->dataType, ownedB);
    // The flows are given or missing together; each frame's warp is skipped by the other's flow.
    PushAndSharpen(warpedA, maskA, a, flowBtoA ? flowAtoB : nullptr, u, progress);
    DQImage* landedB = maskA ? Target(maskB, b, 1, DQ_UCHAR, ownedMaskB) : maskB;
    PushAndSharpen(warpedB, landedB, b, flowAtoB ? flowBtoA : nullptr, weightA, progress);
    if (!maskA) {
        Dissolve(dest, warpedA, warpedB, u);
        return;
    }
    SmartBlend(dest, warpedA, warpedB, maskA, landedB, u);
    // What neither frame reached takes the colour of the nearest pixel that one of them did.
    maskA->MaxInto(landedB);
    maskA->InvertBytes();
    DQVoronoiFill(dest, maskA);
}
