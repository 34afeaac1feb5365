#include "engine/MotionReuse.h"

namespace {

bool SameFloat(float a, float b) {
    return a == b;
} // NaN never equals

// The settings test: the first difference found decides.
bool SettingsChanged(ZUQuelmor4& engine, const ZUQuelmor4Internal& s, const PassMotion& m,
                     const PassSettings& cur) {
    if (s.vectorQuality == 0) return true;
    if (m.atSourceFrame || cur.cacheLastMotion == 0) return true;
    if (s.lastInterpolation != s.interpolation) return true;
    if (s.lastVectorQuality != s.vectorQuality) return true;
    if (s.lastWarping != s.warping) return true;
    if (s.lastLayerCount != s.layerCount) return true;
    if (s.lastFlowLevel != s.flowLevel) return true;
    if (s.lastFieldsIn != engine.fieldsIn || s.lastFieldsOut != engine.fieldsOut) return true;
    if (!SameFloat(s.lastInputFrameRate, engine.inputFrameRate) ||
        !SameFloat(s.lastOutputFrameRate, engine.outputFrameRate))
        return true;
    if (s.lastDrawStartLayer != engine.GetDrawStartLayer() ||
        s.lastDrawEndLayer != engine.GetDrawEndLayer())
        return true;
    if (s.enhanceImages != (engine.EnhanceImages() == 1)) return true;
    for (int i = 0; i < s.layerCount; ++i)
        if (!SameFloat(s.lastSensitivity[i], cur.sensitivity[i])) return true;
    for (int i = 0; i < cur.foregroundLayers; ++i)
        if (!SameFloat(s.lastShrink[i], cur.shrink[i])) return true;
    return false;
}

} // namespace

void DecideMotionReuse(ZUQuelmor4& engine, ZUQuelmor4Internal& state, PassMotion& motion,
                       const PassSettings& settings) {
    // Which ordered pair the pass needs: "Nearest" takes one flow toward the
    // nearer frame, the blends tie both flows to frame A.
    const bool nearerIsB = motion.weightA < 0.5f;
    const int from = nearerIsB ? motion.frameB : motion.frameA;
    const int to = nearerIsB ? motion.frameA : motion.frameB;
    if (motion.atSourceFrame) {
        motion.needMotion = false;
    } else if (state.interpolation != 0) {
        if (state.lastFrameA != motion.frameA) motion.needMotion = true;
    } else if (from != state.lastFromFrame || to != state.lastToFrame) {
        motion.needMotion = true;
    }
    state.lastFrameA = motion.frameA;
    state.lastFromFrame = from;
    state.lastToFrame = to;

    auto resetAndRequest = [&] {
        state.Reset();
        if (!motion.atSourceFrame) motion.needMotion = true;
    };
    if (SettingsChanged(engine, state, motion, settings))
        resetAndRequest();
    else if (state.FlowObjectSizeChanged())
        resetAndRequest();

    for (int layer = 0; layer < state.layerCount; ++layer)
        if (engine.GetNumGeometries(layer, float(motion.frameA), float(motion.frameB)) != 0)
            motion.anyGeometry = true;
    if (state.lastAnyGeometry != motion.anyGeometry) {
        state.Reset();
        state.lastAnyGeometry = motion.anyGeometry;
    }

    state.lastLayerCount = state.layerCount;
    state.lastInterpolation = state.interpolation;
    state.lastFlowLevel = state.flowLevel;
    state.lastVectorQuality = state.vectorQuality;
    state.lastWarping = state.warping;
    state.lastFieldsIn = engine.fieldsIn;
    state.lastFieldsOut = engine.fieldsOut;
    state.lastInputFrameRate = engine.inputFrameRate;
    state.lastOutputFrameRate = engine.outputFrameRate;
    state.lastDrawStartLayer = engine.GetDrawStartLayer();
    state.lastDrawEndLayer = engine.GetDrawEndLayer();
    state.enhanceImages = engine.EnhanceImages() == 1;
    for (int i = 0; i < state.layerCount; ++i)
        state.lastSensitivity[i] = settings.sensitivity[i];
    for (int i = 0; i < settings.foregroundLayers; ++i)
        state.lastShrink[i] = settings.shrink[i];
}
