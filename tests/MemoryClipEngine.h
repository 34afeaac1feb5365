#pragma once
// A retime engine over a clip held in memory, for the engine's tests: it counts check-outs and
// give-backs, logs every fetch, can be told to fail one, and checks that every frame comes back
// in the channel order it was handed out in.
#include "ImagePatterns.h"
#include "engine/Engine.h"
#include "engine/EngineInternal.h"
#include "image/Image.h"

#include <gtest/gtest.h>

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace quelmor::test {

// A descriptor that owns its pixels, as a host frame would be.
class OwnedFrame {
public:
    OwnedFrame(int width, int height, int channels, int dataType,
               std::array<int, 4> order = {0, 1, 2, 3})
        : pixels_(DQMakeImage(width, height, channels, dataType)) {
        pixels_->Clear();
        Describe(order);
    }
    OwnedFrame(const DQImage& source, std::array<int, 4> order)
        : pixels_(DQMakeImage(source.width, source.height, source.channels, source.dataType)) {
        pixels_->CopyWhole(&source);
        Describe(order);
    }
    ZUImage* Image() { return &image_; }
    DQImage* Pixels() { return pixels_.get(); }

private:
    void Describe(std::array<int, 4> order) {
        ZUImageReset(&image_);
        const int type = ZUImageDataTypeToPixelType(pixels_->dataType);
        DQImage& p = *pixels_;
        if (p.channels == 1 || p.channels == 3)
            (p.channels == 1 ? ZUImageInitGray : ZUImageInitRGB)(&image_, p.data, p.width, p.height,
                                                                 p.rowBytes, 1, type);
        else
            ZUImageInitRGBA(&image_, p.data, p.width, p.height, p.rowBytes, 1, type, 1, 1, order[0],
                            order[1], order[2], order[3]);
    }
    DQImagePtr pixels_;
    ZUImage image_;
};

// The settings of one GetFrame; the defaults are a progressive "Blend" at "Best", 30 fps both ways,
// full sensitivity and no shrink.
struct RenderSettings {
    int fieldsIn = 0, fieldsOut = 0, vectorQuality = 4;
    float timeBegin = 0.0f, timeEnd = 1.0f;
    float inputRate = 30.0f, outputRate = 30.0f, motionBlur = 0.0f;
    long interpolation = 1, flowFromSequence = 1, cache = 1;
    ZUIdleAndProgressClass* progress = nullptr;
    ZUImage* secondField = nullptr;
};

// Records every fraction reported to it, before passing it on.
class RecordingProgress : public ZUIdleAndProgressClass {
public:
    using ZUIdleAndProgressClass::ZUIdleAndProgressClass;
    void ReportProgress(float fraction) override {
        seen.push_back(fraction);
        ZUIdleAndProgressClass::ReportProgress(fraction);
    }
    std::vector<float> seen;
};

struct FetchRecord {
    bool tracking;
    int frame;
    bool operator==(const FetchRecord&) const = default;
};

class MemoryClipEngine : public ZUQuelmor4 {
public:
    // Frames of the clip, numbered from 0, and the channel order they are stored in.
    std::vector<DQImagePtr> frames;
    std::array<int, 4> channelOrder = {0, 1, 2, 3};
    // A tracking clip; empty means the tracking sequence is the clip itself.
    std::vector<DQImagePtr> trackingFrames;

    std::function<float(float)> timeCurve = [](float t) { return t; };
    std::function<int(float)> scene = [](float) { return 0; };
    int drawStart = -1; // -1: the base class's default
    int drawEnd = -1;
    int enhance = 0;
    int warpingMode = 0;
    unsigned long geometries = 0;

    int failFrame = -1; // fetch of this frame fails with failCode
    int failCode = kDQErrFetch;
    bool failTracking = true; // false: only the fetch from the sequence to warp fails

    int checkedOut = 0;
    int givenBack = 0;
    int returnedChanged = 0; // frames given back with other pixels than they went out with
    std::vector<FetchRecord> fetches;

    int Outstanding() const { return checkedOut - givenBack; }
    // No flow, flow object or working image survives in the engine's state.
    bool KeepsNoFlow() const {
        const ZUQuelmor4Internal& s = *internal;
        bool none = !s.opticalFlow && !s.morphFlow && !s.flowBtoA && !s.flowAtoB && !s.workingA &&
                    !s.workingB;
        for (int i = 0; i < kMaxLayers; ++i)
            none = none && !s.layerFlowAtoB[i] && !s.layerFlowBtoA[i];
        return none;
    }

    int Render(ZUImage* result, const RenderSettings& s) {
        return GetFrame(result, s.secondField, s.fieldsIn, s.fieldsOut, s.vectorQuality,
                        s.timeBegin, s.timeEnd, s.inputRate, s.outputRate, s.motionBlur, 1.0f,
                        s.interpolation, 1, s.flowFromSequence, s.cache, 0, kNoShrink,
                        kFullSensitivity, s.progress, false);
    }
    int Requirements(FrameRequirements* out, const ZUImage* result, const RenderSettings& s) {
        return GetFrameRequirements(out, result, s.fieldsIn, s.fieldsOut, s.vectorQuality,
                                    s.timeBegin, s.timeEnd, s.inputRate, s.outputRate, s.motionBlur,
                                    1.0f, s.interpolation, 1, s.flowFromSequence, s.cache, 0,
                                    kNoShrink, kFullSensitivity, s.progress, false);
    }

    int GetToBeWarpedSequenceImage(ZUImage** image, int frame) override {
        return CheckOut(image, frame, false);
    }
    int GetTrackingSequenceImage(ZUImage** image, int frame) override {
        return CheckOut(image, frame, true);
    }
    int CleanUpCheckedOutImage(ZUImage* image) override {
        auto it = out_.find(image);
        if (it == out_.end()) {
            ADD_FAILURE() << "gave back an image that was never checked out";
            return 0;
        }
        ++givenBack;
        DQImage* now = ZUImageGetDQImage(image);
        const DQImage* before = it->second.original;
        if (!it->second.fieldsMayChange && !SamePixels(*now, *before)) ++returnedChanged;
        out_.erase(it);
        return 0;
    }
    int GetMatteLayerSequenceImage(ZUImage** image, int, int) override {
        *image = nullptr;
        return kDQErrBadArgument;
    }
    int CleanUpCheckedOutMatteImage(ZUImage*) override { return 0; }
    int GetKeyframedTime(float* sourceTime, float outputTime) override {
        *sourceTime = timeCurve(outputTime);
        return 0;
    }
    int WhichScene(float time) override { return scene(time); }
    int GetDrawStartLayer() override {
        return drawStart < 0 ? ZUQuelmor4::GetDrawStartLayer() : drawStart;
    }
    int GetDrawEndLayer() override { return drawEnd < 0 ? ZUQuelmor4::GetDrawEndLayer() : drawEnd; }
    int EnhanceImages() override { return enhance; }
    int UsesWhichWarping() override { return warpingMode; }
    int externalVectors = 0;           // answer of UsesExternalVectors
    bool backgroundOpticalFlow = true; // false: motion of the background from geometry alone
    int UsesExternalVectors() override { return externalVectors; }
    void GetBackgroundLayerDoOpticalFlow(bool* doFlow, float) override {
        *doFlow = backgroundOpticalFlow;
    }
    unsigned long GetNumGeometries(int, float, float) override { return geometries; }

    // Point pairs (xA, yA, xB, yB) that every geometry returns, and what the engine asked for.
    std::vector<std::array<float, 4>> geometryPoints;
    int geometryFailCode = 0; // a non-zero value is returned by GetGeometryPoints
    struct GeometryRequest {
        unsigned long index;
        float timeA, timeB;
        bool operator==(const GeometryRequest&) const = default;
    };
    std::vector<GeometryRequest> geometryRequests;
    int pointsLent = 0;
    int pointsReleased = 0;

    int GetGeometryPoints(int, unsigned long index, float timeA, float timeB, unsigned long* count,
                          float** xA, float** yA, float** xB, float** yB) override {
        geometryRequests.push_back({index, timeA, timeB});
        float** arrays[4] = {xA, yA, xB, yB};
        *count = 0;
        for (float** array : arrays)
            *array = nullptr;
        if (geometryFailCode != 0) return geometryFailCode;
        *count = geometryPoints.size();
        for (int k = 0; k < 4; ++k) {
            *arrays[k] = new float[*count];
            for (size_t i = 0; i < *count; ++i)
                (*arrays[k])[i] = geometryPoints[i][k];
        }
        ++pointsLent;
        return 0;
    }
    void ReleasePoints(float* xA, float* yA, float* xB, float* yB) override {
        for (float* array : {xA, yA, xB, yB})
            delete[] array;
        ++pointsReleased;
    }

    // Frames given to the engine may be rebuilt from one field; set when the test feeds fields.
    bool fieldsMayChange = false;

private:
    // One entry per layer.
    static constexpr float kNoShrink[10] = {};
    static constexpr float kFullSensitivity[10] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

    struct Loan {
        std::unique_ptr<OwnedFrame> frame;
        const DQImage* original;
        bool fieldsMayChange;
    };

    int CheckOut(ZUImage** image, int frame, bool tracking) {
        *image = nullptr;
        fetches.push_back({tracking, frame});
        if (frame == failFrame && (failTracking || !tracking)) return failCode;
        auto& clip = tracking && !trackingFrames.empty() ? trackingFrames : frames;
        if (frame < 0 || frame >= int(clip.size())) return kDQErrBadArgument;
        auto owned = std::make_unique<OwnedFrame>(*clip[frame], channelOrder);
        *image = owned->Image();
        out_[*image] = Loan{std::move(owned), clip[frame].get(), fieldsMayChange};
        ++checkedOut;
        return 0;
    }

    std::map<ZUImage*, Loan> out_;
};

} // namespace quelmor::test
