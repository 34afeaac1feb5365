// Steps shared by the single-layer and the several-layer road.

#include "engine/RoadSteps.h"

#include "engine/ExternalVectors.h"
#include "engine/FlowObjects.h"
#include "flow/HoleFill.h"
#include "flow/MorphFlow.h"
#include "warp/Warp.h"
#include "warp/WarpForward.h"

#include <cmath>

namespace {

// Motion blur needs a time span and an amount above these.
constexpr float kLeastSpan = 1e-06f;
constexpr float kLeastMotionBlur = 0.005f;

} // namespace

bool NearestUsesAtoB(float weightA, int warping) {
    const bool nearerIsB = weightA < 0.5f;
    const bool forward = warping == kForward || warping == kForwardAlone;
    return forward ? !nearerIsB : nearerIsB;
}

void EnsureMorphFlow(ZUQuelmor4Internal& state, PassMotion& motion, float sensitivity) {
    if (!state.morphFlow) {
        state.morphFlow = MakeMorphFlow(state.width, state.height, state.flowLevel);
        motion.needMotion = true;
    }
    state.morphFlow->SetSensitivity(sensitivity);
}

void BuildMorphInRange(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const PassMotion& motion,
                       const RenderRequest& request, int layer, DQImage* result, int firstFrame,
                       int secondFrame, float low, float high, ZUIdleAndProgressClass& progress) {
    progress.SetSubRange(low, high);
    if (!motion.needMotion) return;
    DQMorphFlow* morph = state.morphFlow;
    state.FeedGeometryToMorph(engine, morph, layer, firstFrame, secondFrame, request.fieldsIn);
    ZUIdleAndProgressClass child(&progress);
    ++state.flowRuns;
    morph->ComputeMorph(result, &child, true);
}

void LoadPassVectors(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const PassMotion& motion,
                     DQImage* matteA, DQImage* matteB, float low, float high,
                     ZUIdleAndProgressClass& progress) {
    state.AllocVectorImages();
    DestroyFlow(state.opticalFlow);
    DestroyFlow(state.morphFlow);
    progress.SetSubRange(low, high);
    ZUIdleAndProgressClass child(&progress);
    LoadExternalVectors(engine, state.flowBtoA, motion.frameB, matteB, state.flowAtoB,
                        motion.frameA, matteA, &child);
    progress.RepeatProgress();
}

void WarpInverseOrThrow(DQImage* dest, DQImage* source, DQImage* flow, int extendEdges,
                        DQImage* coverage, float scale) {
    if (DQWarpInverse(dest, source, flow, extendEdges, coverage, 1, scale) == 0)
        DQThrow(kDQErrBadArgument);
}

void WarpForwardOrThrow(DQImage* dest, DQImage* source, DQImage* flow, DQImage* landed, float scale,
                        ZUIdleAndProgressClass& progress) {
    progress.CollapseSubRange();
    ZUIdleAndProgressClass child(&progress);
    if (DQWarpForward(dest, source, flow, &child, landed, scale) == 0) DQThrow(kDQErrBadArgument);
}

void FillHolesInRange(DQImage* image, DQImage* holes, ZUIdleAndProgressClass& progress) {
    progress.CollapseSubRange();
    ZUIdleAndProgressClass child(&progress);
    FillHoles(image, holes, &child);
}

bool MotionBlurAmount(float t0, float t1, float motionBlur, float* amount) {
    const float span = std::fabs(t0 - t1);
    if (!(span > kLeastSpan) || !(motionBlur > kLeastMotionBlur)) return false;
    *amount = (span - 1.0f) * motionBlur;
    return true;
}
