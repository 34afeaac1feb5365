#pragma once
// The road of a pass with foreground layers: each layer's matte made visible by cutting out the
// layers in front of it, a flow per layer measured on what is visible of it, the layer's picture
// completed behind the nearer layers from the other frame and by hole fill, the layer retimed
// alone, and the layers composited back to front.

#include "engine/MotionReuse.h"
#include "engine/RenderContext.h"

struct LayerPass {
    int pass = 0;
    int passes = 1;
    float t0 = 0.0f; // source times of the start and end of the output frame
    float t1 = 1.0f;
    const float* sensitivity = nullptr; // layerCount entries
    const float* shrink = nullptr;      // one per foreground layer
    bool externalVectors = false;
    bool moved = true; // false: the layers are completed and composited where they stand
};

// Draws the pass into `dest` (four channels), from GetDrawStartLayer down to GetDrawEndLayer.
// Every frame and matte it checks out is given back before it returns or throws; a matte of
// another size than the frames or of more than one channel fails with DQErr 5.
void DrawLayers(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const RenderRequest& request,
                PassMotion& motion, const LayerPass& pass, ZUIdleAndProgressClass& progress,
                DQImage* dest);
