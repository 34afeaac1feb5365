#pragma once
// The arguments of one GetFrame call, held together so that the render and
// its roads can pass them on as one record.

#include "engine/EngineInternal.h"

enum SceneCode : int { kSceneNoMotionNearest = 3, kSceneNoMotionBlend = 4 };
enum Interpolation : long { kNearest = 0, kBlend = 1, kWeightedEnergyBlend = 2 };

struct RenderRequest {
    ZUImage* result = nullptr;
    ZUImage* secondField = nullptr;
    int fieldsIn = 0;
    int fieldsOut = 0;
    int vectorQuality = 0;
    float timeBegin = 0.0f;
    float timeEnd = 1.0f;
    float inputFrameRate = 30.0f;
    float outputFrameRate = 30.0f;
    float motionBlur = 0.0f;
    float motionSensitivity = 1.0f;
    long interpolation = 0;
    long highQuality = 1;
    long flowFromSequence = 1;
    long cacheLastMotion = 1;
    int foregroundLayers = 0;
    const float* matteShrink = nullptr;
    const float* layerSensitivity = nullptr;
    ZUIdleAndProgressClass* progress = nullptr;
    bool alphaFirst = false;
};
