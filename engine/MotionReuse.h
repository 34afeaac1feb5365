#pragma once
// When kept flow may serve the next pass, when it must be computed again and
// when all of it is thrown away.

#include "engine/EngineInternal.h"

// What one pass knows about its place in time and its motion.
struct PassMotion {
    int frameA = 0;
    int frameB = 1;
    float weightA = 1.0f;
    bool atSourceFrame = true; // never set back to true within a render
    bool needMotion = false;   // carries over from pass to pass
    bool anyGeometry = false;  // never set back to false within a render
};

// The current settings that are compared with those of the previous pass.
struct PassSettings {
    long cacheLastMotion = 1;
    int foregroundLayers = 0;
    const float* sensitivity = nullptr; // layerCount entries
    const float* shrink = nullptr;      // foregroundLayers entries
};

// Updates `motion.needMotion` and the remembered pair, resets the kept
// motion where a setting, the flow size or the geometry changed, and copies
// the current settings into the `last...` fields.
void DecideMotionReuse(ZUQuelmor4& engine, ZUQuelmor4Internal& state, PassMotion& motion,
                       const PassSettings& settings);
