// Which source frames a GetFrame with given settings would read, so that a
// host can fetch them ahead.

#include "engine/EngineInternal.h"
#include "engine/RenderContext.h"

#include <cmath>

namespace {

class RequirementList {
public:
    explicit RequirementList(FrameRequirements* out) : out_(out) { *out_ = FrameRequirements{}; }

    void Add(FrameKind kind, int frame, int layer = -1) {
        if (out_->count >= FrameRequirements::kMaxEntries) return;
        out_->kind[out_->count] = kind;
        out_->frame[out_->count] = frame;
        out_->layer[out_->count] = layer;
        ++out_->count;
        if (kind == kMatteFrame)
            ++out_->matteFrames;
        else
            ++out_->sequenceFrames;
    }

private:
    FrameRequirements* out_;
};

} // namespace

int ZUQuelmor4::GetFrameRequirements(FrameRequirements* out, const ZUImage* result, int fieldsIn,
                                     int fieldsOut, int vectorQuality, float timeBegin,
                                     float timeEnd, float inputFrameRate, float outputFrameRate,
                                     float motionBlur, float motionSensitivity, long interpolation,
                                     long highQuality, long flowFromSequence, long cacheLastMotion,
                                     int foregroundLayers, const float* matteShrink,
                                     const float* layerSensitivity,
                                     ZUIdleAndProgressClass* progress, bool alphaFirst) {
    if (!internal) return 1;
    RequirementList list(out);
    float t0 = 0.0f;
    float t1 = 0.0f;
    GetKeyframedTime(&t0, timeBegin);
    GetKeyframedTime(&t1, timeEnd);

    // The scene rule, with this entry's own second probe.
    const int scene = WhichScene(std::trunc(t0));
    const float secondProbe = float(fieldsIn) + t0 == 0.0f ? 1.0f : 0.0f;
    if (scene != WhichScene(secondProbe) || scene == kSceneNoMotionNearest ||
        scene == kSceneNoMotionBlend) {
        vectorQuality = 0;
        cacheLastMotion = 0;
    }
    if (!(outputFrameRate >= 0.01f && inputFrameRate > 0.01f)) {
        internal->Reset();
        return 0;
    }
    if (UsesExternalVectors() == 1) cacheLastMotion = 0;
    if (vectorQuality != 0 && result &&
        !ZUQuelmor4Internal::MotionFits(vectorQuality, highQuality, result->width,
                                        result->height)) {
        vectorQuality = 0;
        cacheLastMotion = 0;
    }

    const int layers = foregroundLayers > 0 ? std::min(foregroundLayers, kMaxLayers - 1) : 0;
    if (fieldsIn) {
        t0 *= 2.0f;
        t1 *= 2.0f;
    }
    const double f = double(t0) - std::floor(double(t0));
    bool atSourceFrame = !(std::fabs(f) > 0.005 && std::fabs(f - 1.0) > 0.005);
    for (int i = 0; i < layers && matteShrink; ++i)
        if (matteShrink[i] != 0.0f) atSourceFrame = false;
    if (std::fabs(t0 - t1) > 1e-06f && motionBlur > 0.005f) atSourceFrame = false;

    int frameA = int(t0);
    int frameB = frameA + 1;
    if (fieldsIn) {
        frameA /= 2;
        frameB /= 2;
    }
    const bool needsFlow = vectorQuality != 0 && !atSourceFrame;
    // A single layer moved by geometry alone reads no frame to track.
    bool opticalFlow = true;
    if (layers == 0) GetBackgroundLayerDoOpticalFlow(&opticalFlow, timeBegin);
    if (needsFlow && opticalFlow && flowFromSequence != 1) {
        list.Add(kTrackingFrame, frameA);
        list.Add(kTrackingFrame, frameB);
    }
    list.Add(kWarpedFrame, frameA);
    list.Add(kWarpedFrame, frameB);
    if (needsFlow)
        for (int layer = 0; layer < layers; ++layer) {
            list.Add(kMatteFrame, frameA, layer);
            list.Add(kMatteFrame, frameB, layer);
        }
    if (!needsFlow || cacheLastMotion == 0) internal->Reset();
    return 0;
}
