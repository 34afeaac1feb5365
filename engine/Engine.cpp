// The public entries of the engine and the defaults of its virtual operations.

#include "engine/Engine.h"

#include "engine/EngineInternal.h"

#include <new>

ZUQuelmor4::~ZUQuelmor4() {
    delete internal;
    internal = nullptr;
}

int ZUQuelmor4::GetBackgroundLayerMotionSensitivity(float*, float) {
    return 0;
}
int ZUQuelmor4::GetLayerMotionSensitivity(float*, int, float) {
    return 0;
}
int ZUQuelmor4::GetLayerMatteShrink(float*, int, float) {
    return 0;
}
void ZUQuelmor4::GetDoOpticalFlow(bool* doFlow, int, float) {
    *doFlow = true;
}
void ZUQuelmor4::GetBackgroundLayerDoOpticalFlow(bool* doFlow, float) {
    *doFlow = true;
}

int ZUQuelmor4::GetDrawStartLayer() {
    return internal ? internal->layerCount - 1 : 0;
}
int ZUQuelmor4::GetDrawEndLayer() {
    return 0;
}
int ZUQuelmor4::UsesWhichWarping() {
    return 0;
}
int ZUQuelmor4::EnhanceImages() {
    return 0;
}

unsigned long ZUQuelmor4::GetNumGeometries(int, float, float) {
    return 0;
}

int ZUQuelmor4::GetGeometryPoints(int, unsigned long, float, float, unsigned long* count,
                                  float** xA, float** yA, float** xB, float** yB) {
    if (count) *count = 0;
    for (float** out : {xA, yA, xB, yB})
        if (out) *out = nullptr;
    return 0;
}

void ZUQuelmor4::ReleasePoints(float*, float*, float*, float*) {}

void ZUQuelmor4::GetGeometryColor(int, unsigned long, unsigned char* red, unsigned char* green,
                                  unsigned char* blue, float) {
    *red = *green = *blue = 255;
}

int ZUQuelmor4::UsesExternalVectors() {
    return 0;
}

int ZUQuelmor4::GetPreviousFrameVectors(ZUImage** vectors, float*, int) {
    *vectors = nullptr;
    return 0;
}

int ZUQuelmor4::GetNextFrameVectors(ZUImage** vectors, float*, int) {
    *vectors = nullptr;
    return 0;
}

int ZUQuelmor4::ReleasePreviousFrameVectors(ZUImage*) {
    return 0;
}
int ZUQuelmor4::ReleaseNextFrameVectors(ZUImage*) {
    return 0;
}

int ZUQuelmor4::GetVectorScaleXY(float* scaleX, float* scaleY, int) {
    *scaleX = 1.0f;
    *scaleY = 1.0f;
    return 0;
}

int ZUQuelmor4::GetMotionBlurAmount(float*, float) {
    return 0;
}

int ZUQuelmor4::Init() {
    if (internal) return 0;
    try {
        internal = new ZUQuelmor4Internal();
    } catch (DQErr) {
        internal = nullptr;
        return 1;
    } catch (const std::bad_alloc&) {
        internal = nullptr;
        return 1;
    }
    return 0;
}

int ZUQuelmor4::GetFrame(ZUImage* result, ZUImage* secondField, int fieldsIn, int fieldsOut,
                         int vectorQuality, float timeBegin, float timeEnd, float inputFrameRate,
                         float outputFrameRate, float motionBlur, float motionSensitivity,
                         long interpolation, long highQuality, long flowFromSequence,
                         long cacheLastMotion, int foregroundLayers, const float* matteShrink,
                         const float* layerSensitivity, ZUIdleAndProgressClass* progress,
                         bool alphaFirst) {
    if (!internal) return 1;
    return internal->Render(*this, result, secondField, fieldsIn, fieldsOut, vectorQuality,
                            timeBegin, timeEnd, inputFrameRate, outputFrameRate, motionBlur,
                            motionSensitivity, interpolation, highQuality, flowFromSequence,
                            cacheLastMotion, foregroundLayers, matteShrink, layerSensitivity,
                            progress, alphaFirst);
}

int ZUQuelmor4::GetFrame(ZUImage* result, int vectorQuality, float timeBegin, float timeEnd,
                         float motionBlur, long interpolation, long highQuality,
                         long flowFromSequence, long cacheLastMotion, int foregroundLayers,
                         ZUIdleAndProgressClass* progress) {
    float shrinks[kMaxLayers];
    float sensitivities[kMaxLayers];
    for (int i = 0; i < kMaxLayers; ++i) {
        shrinks[i] = 0.0f;
        sensitivities[i] = 1.0f;
    }
    return GetFrame(result, nullptr, 0, 0, vectorQuality, timeBegin, timeEnd, 30.0f, 30.0f,
                    motionBlur, 1.0f, interpolation, highQuality, flowFromSequence, cacheLastMotion,
                    foregroundLayers, shrinks, sensitivities, progress, false);
}

void ZUQuelmor4::ResetMotion() {
    if (internal) internal->Reset();
}
