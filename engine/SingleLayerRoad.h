#pragma once
// The road of a pass with motion and one layer: the flow between frames A and B, both frames
// moved to the requested moment along it and mixed, and motion blur by the frame's time span.

#include "engine/MotionReuse.h"
#include "engine/RenderContext.h"

// What a pass of the road needs beyond the request and the motion flags.
struct RoadPass {
    int pass = 0;
    int passes = 1;
    float t0 = 0.0f; // source times of the start and end of the output frame
    float t1 = 1.0f;
    float sensitivity = 1.0f; // of layer 0
    bool externalVectors = false;
};

// Draws the pass into `dest`. Every frame it checks out is given back before it returns or
// throws. A warping mode beyond forward alone fails with DQErr 5 and a message before any frame
// is fetched.
void DrawSingleLayer(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const RenderRequest& request,
                     PassMotion& motion, const RoadPass& pass, ZUIdleAndProgressClass& progress,
                     DQImage* dest);

// Reports that a road of the engine is not built, and throws DQErr 5.
[[noreturn]] void RoadNotAvailable(const char* road);
