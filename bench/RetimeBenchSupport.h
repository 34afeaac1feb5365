#pragma once
// The retime engine over a clip held in memory, as the retime benchmarks drive it: frames are
// handed out as views without a copy, the time curve is a function, and one call renders an
// output frame with the settings of the panel (sensitivity in percent, as the user sets it).
#include "engine/Engine.h"
#include "image/Image.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace quelmor::bench {

class ClipEngine : public ZUQuelmor4 {
public:
    ClipEngine() = default;
    explicit ClipEngine(std::vector<DQImage*> clip) : frames(std::move(clip)) {}

    // Source frames, numbered from 0; borrowed, they must outlive the engine's renders.
    std::vector<DQImage*> frames;
    // Source frame (fractional) shown at an output time.
    std::function<float(float)> timeCurve = [](float t) { return t; };

    int checkedOut = 0;
    int givenBack = 0;

    int GetToBeWarpedSequenceImage(ZUImage** image, int frame) override {
        return CheckOut(image, frame);
    }
    int GetTrackingSequenceImage(ZUImage** image, int frame) override {
        return CheckOut(image, frame);
    }
    int CleanUpCheckedOutImage(ZUImage* image) override {
        ++givenBack;
        delete image;
        return 0;
    }
    // The matte of the one foreground layer at each source frame (one channel, the frames' size);
    // borrowed like the frames.
    std::vector<DQImage*> mattes;
    int GetMatteLayerSequenceImage(ZUImage** image, int frame, int layer) override {
        *image = nullptr;
        if (layer != 0 || frame < 0 || frame >= int(mattes.size()) || !mattes[frame])
            return kDQErrBadArgument;
        auto view = std::make_unique<ZUImage>();
        ZUImageFromDQImage(view.get(), mattes[frame]);
        *image = view.release();
        return 0;
    }
    int CleanUpCheckedOutMatteImage(ZUImage* image) override {
        delete image;
        return 0;
    }
    int GetKeyframedTime(float* sourceTime, float outputTime) override {
        *sourceTime = timeCurve(outputTime);
        return 0;
    }
    int WhichScene(float) override { return 0; }
    // The warping menu: 0 "Inverse", 1 "Inverse + Smart Blend", 2 "Forward"; 3 is the forward
    // warp with its holes left empty.
    int warping = 0;
    int UsesWhichWarping() override { return warping; }

private:
    int CheckOut(ZUImage** image, int frame) {
        *image = nullptr;
        if (frame < 0 || frame >= int(frames.size()) || !frames[frame]) return kDQErrBadArgument;
        auto view = std::make_unique<ZUImage>();
        ZUImageFromDQImage(view.get(), frames[frame]);
        *image = view.release();
        ++checkedOut;
        return 0;
    }
};

// The panel's settings that the retime benchmarks vary; the rest are those of the host path.
struct RetimeSettings {
    int vectorQuality = 4;    // 0 "No Motion Vectors" .. 4 "Best"
    long interpolation = 1;   // 0 "Nearest", 1 "Blend", 2 "Weighted Energy Blend"
    float sensitivity = 70.f; // "Motion Sensitivity", percent
    long cacheLastMotion = 1; // "Cache Last Motion"
    long highQuality = 1;
    int warping = 0; // 0 "Inverse", 1 "Inverse + Smart Blend", 2 "Forward", 3 forward alone
    int foregroundLayers = 0; // 1: the engine's mattes cut a foreground layer out
    float matteShrink = 0.0f;
};

// Renders output frame `outputTime` of `engine` into `result` (allocated at output size, of the
// working type): progressive, 30 fps both ways, no motion blur, one layer, motion measured on
// the clip itself; one layer unless the settings ask for a foreground layer. Returns the engine's
// code: 0 or a DQErr.
inline int RenderFrame(ClipEngine& engine, DQImage* result, float outputTime,
                       const RetimeSettings& settings) {
    if (engine.Init() != 0) return kDQErrMemory;
    engine.warping = settings.warping;
    ZUImage target;
    ZUImageFromDQImage(&target, result);
    float shrink[10];
    std::fill(std::begin(shrink), std::end(shrink), settings.matteShrink);
    float layerSensitivity[10];
    std::fill(std::begin(layerSensitivity), std::end(layerSensitivity), 1.0f);
    return engine.GetFrame(&target, nullptr, 0, 0, settings.vectorQuality, outputTime,
                           outputTime + 1.0f, 30.0f, 30.0f, 0.0f, settings.sensitivity / 100.0f,
                           settings.interpolation, settings.highQuality, 1,
                           settings.cacheLastMotion, settings.foregroundLayers, shrink,
                           layerSensitivity, nullptr, false);
}

} // namespace quelmor::bench
