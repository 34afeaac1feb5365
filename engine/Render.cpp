// One output frame: time mapping, scene rule, passes, road choice, and the
// give-back of every checked-out frame on every path.

#include "engine/EngineInternal.h"
#include "engine/Fields.h"
#include "engine/LayerRoad.h"
#include "engine/Mix.h"
#include "engine/MotionReuse.h"
#include "engine/RenderContext.h"
#include "engine/SequenceFrames.h"
#include "engine/SingleLayerRoad.h"

#include <cmath>
#include <cstdint>
#include <cstdio>

namespace {

constexpr double kSourceFrameTolerance = 0.005;

// The scene rule: a pair across a cut, or a scene without motion, overrides the motion settings
// of the whole render.
void ApplySceneRule(ZUQuelmor4& engine, RenderRequest& req, float t0) {
    const float first = std::trunc(t0);
    const float second = std::trunc(t0 + (req.fieldsIn ? 0.5f : 1.0f));
    const int scene = engine.WhichScene(first);
    if (scene != engine.WhichScene(second) || scene == kSceneNoMotionNearest) {
        req.vectorQuality = 0;
        req.interpolation = kNearest;
        req.cacheLastMotion = 0;
    } else if (scene == kSceneNoMotionBlend) {
        req.vectorQuality = 0;
        req.interpolation = kBlend;
        req.cacheLastMotion = 0;
    }
}

// NaN rates fail as well.
bool RatesAreValid(float inputFrameRate, float outputFrameRate) {
    return outputFrameRate >= 0.01f && inputFrameRate > 0.01f;
}

// A time that names a frame: finite, and small enough that the frame after it is still an int.
// A speed of infinity or NaN on the time curve ends here, before any conversion to a frame.
bool IsFrameTime(float time) {
    constexpr float kLimit = 2147483520.0f; // the largest float below 2^31 - 1
    return std::isfinite(time) && std::fabs(time) < kLimit;
}

// The state of one render: the request after the scene rule, the times, the motion flags shared
// by both passes and the per-layer overrides.
class FrameRenderer {
public:
    FrameRenderer(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const RenderRequest& request)
        : engine_(engine), state_(state), req_(request), progress_(request.progress) {}

    void Run();

private:
    void SetUp();
    void ReadOverrides(float passTime);
    void TestForSourceFrame();
    void RunPass(int pass);
    void NoMotionRoad(DQImage* dest);

    ZUQuelmor4& engine_;
    ZUQuelmor4Internal& state_;
    RenderRequest req_;
    ZUIdleAndProgressClass progress_; // the render's own link in the caller's progress chain
    float sensitivity_[kMaxLayers] = {};
    float shrink_[kMaxLayers] = {};
    int passes_ = 1;
    float step_ = 1.0f;
    float t0_ = 0.0f;
    float t1_ = 0.0f;
    bool externalVectors_ = false;
    PassMotion motion_;
};

void FrameRenderer::SetUp() {
    if (req_.foregroundLayers < 0 || req_.foregroundLayers >= kMaxLayers)
        DQThrow(kDQErrBadArgument);
    DQImage* result = ZUImageGetDQImage(req_.result);
    if (!result) DQThrow(kDQErrBadArgument);
    if (!ZUQuelmor4::FrameFits(result->width, result->height, result->pixelBytes,
                               req_.vectorQuality, req_.highQuality) ||
        int64_t(result->rowBytes) * result->height > INT32_MAX) {
        std::fprintf(stderr, "ZUQuelmor4: a frame of %dx%d passes the 2 GiB limit of one image\n",
                     result->width, result->height);
        DQThrow(kDQErrBadArgument);
    }
    state_.flowAtoB = nullptr;
    state_.layerCount = req_.foregroundLayers + 1;
    for (int i = 0; i < req_.foregroundLayers; ++i) {
        sensitivity_[i] = req_.layerSensitivity ? req_.layerSensitivity[i] : 1.0f;
        shrink_[i] = req_.matteShrink ? req_.matteShrink[i] : 0.0f;
    }
    sensitivity_[state_.layerCount - 1] = req_.motionSensitivity;

    result->Clear();
    if (req_.fieldsOut != 0) {
        DQImage* second = ZUImageGetDQImage(req_.secondField);
        if (!second) DQThrow(kDQErrBadArgument);
        second->Clear();
        passes_ = 2;
        step_ = 0.5f;
    }
    if (!IsFrameTime(req_.timeBegin) || !IsFrameTime(req_.timeEnd) ||
        !std::isfinite(req_.motionBlur))
        DQThrow(kDQErrBadArgument);
    for (bool& flag : state_.doOpticalFlow)
        flag = true;
    externalVectors_ = engine_.UsesExternalVectors() == 1;
    if (externalVectors_) req_.cacheLastMotion = 0;
    engine_.GetKeyframedTime(&t0_, req_.timeBegin);
    engine_.GetKeyframedTime(&t1_, req_.timeEnd);
    if (!IsFrameTime(t0_) || !IsFrameTime(t1_)) DQThrow(kDQErrBadArgument);
}

void FrameRenderer::Run() {
    SetUp();
    ApplySceneRule(engine_, req_, t0_);
    state_.SetConfig(engine_, req_.result, req_.fieldsIn, req_.fieldsOut, req_.vectorQuality,
                     req_.interpolation, req_.highQuality, req_.inputFrameRate,
                     req_.outputFrameRate, req_.motionBlur);
    if (state_.vectorQuality != 0 &&
        !ZUQuelmor4Internal::MotionFits(state_.vectorQuality, req_.highQuality, state_.width,
                                        state_.height)) {
        state_.vectorQuality = 0;
        req_.cacheLastMotion = 0;
    }
    if (!RatesAreValid(req_.inputFrameRate, req_.outputFrameRate)) DQThrow(kDQErrBadArgument);

    for (int pass = 0; pass < passes_; ++pass)
        RunPass(pass);

    if (passes_ == 2)
        InterleaveFields(ZUImageGetDQImage(req_.result), ZUImageGetDQImage(req_.secondField),
                         req_.fieldsOut == 1 ? 3 : 2);
    RestoreChannelOrder(req_.result);
    if (motion_.atSourceFrame || req_.cacheLastMotion == 0) state_.Reset();
}

void FrameRenderer::ReadOverrides(float passTime) {
    float blur = engine_.motionBlur;
    engine_.GetMotionBlurAmount(&blur, passTime); // noted only: the blur uses the engine's field
    for (int i = 0; i < req_.foregroundLayers; ++i) {
        float value = sensitivity_[i];
        if (engine_.GetLayerMotionSensitivity(&value, i, passTime) == 1) sensitivity_[i] = value;
        value = shrink_[i];
        if (engine_.GetLayerMatteShrink(&value, i, passTime) == 1) shrink_[i] = value;
        engine_.GetDoOpticalFlow(&state_.doOpticalFlow[i], i, passTime);
    }
    const int background = state_.layerCount - 1;
    float value = sensitivity_[background];
    if (engine_.GetBackgroundLayerMotionSensitivity(&value, passTime) == 1)
        sensitivity_[background] = value;
    engine_.GetBackgroundLayerDoOpticalFlow(&state_.doOpticalFlow[background], passTime);
}

void FrameRenderer::TestForSourceFrame() {
    const double t0 = t0_;
    const double f = t0 - std::floor(t0);
    bool moving =
        std::fabs(f) > kSourceFrameTolerance && std::fabs(f - 1.0) > kSourceFrameTolerance;
    if (state_.layerCount > 1)
        for (int i = 0; i < req_.foregroundLayers; ++i)
            moving = moving || shrink_[i] != 0.0f;
    if (std::fabs(t0_ - t1_) > 1e-06f && engine_.motionBlur > 0.005f) moving = true;
    if (moving) motion_.atSourceFrame = false;
}

void FrameRenderer::RunPass(int pass) {
    DQImage* dest = ZUImageGetDQImage(pass == 0 ? req_.result : req_.secondField);
    const float passTime = req_.timeBegin + float(pass) * step_;
    if (req_.fieldsOut != 0) {
        engine_.GetKeyframedTime(&t0_, passTime);
        engine_.GetKeyframedTime(&t1_, req_.timeBegin + float(pass + 1) * step_);
    }
    ReadOverrides(passTime);
    if (req_.fieldsIn != 0) {
        t0_ *= 2.0f;
        t1_ *= 2.0f;
    }
    if (!IsFrameTime(t0_) || !IsFrameTime(t1_)) DQThrow(kDQErrBadArgument);
    TestForSourceFrame();
    motion_.frameA = int(t0_);
    motion_.frameB = motion_.frameA + 1;
    motion_.weightA = 1.0f - (t0_ - float(motion_.frameA));
    const PassSettings settings{req_.cacheLastMotion, req_.foregroundLayers, sensitivity_, shrink_};
    DecideMotionReuse(engine_, state_, motion_, settings);

    const bool still = state_.vectorQuality == 0 || motion_.atSourceFrame;
    if (still &&
        !(state_.layerCount > 1 && engine_.GetDrawStartLayer() == engine_.GetDrawEndLayer())) {
        NoMotionRoad(dest);
    } else if (state_.layerCount == 1) {
        const RoadPass road{pass, passes_, t0_, t1_, sensitivity_[0], externalVectors_};
        DrawSingleLayer(engine_, state_, req_, motion_, road, progress_, dest);
    } else {
        const LayerPass layers{.pass = pass,
                               .passes = passes_,
                               .t0 = t0_,
                               .t1 = t1_,
                               .sensitivity = sensitivity_,
                               .shrink = shrink_,
                               .externalVectors = externalVectors_,
                               .moved = !still};
        DrawLayers(engine_, state_, req_, motion_, layers, progress_, dest);
    }
    if (motion_.atSourceFrame) state_.Reset();
}

void FrameRenderer::NoMotionRoad(DQImage* dest) {
    SequenceFramePair frames(engine_, state_);
    frames.CheckOut(motion_.frameA, motion_.frameB, req_.fieldsIn, false);
    const DQImage* a = frames.A();
    const DQImage* b = frames.B();
    if (state_.interpolation == kNearest) {
        const DQImage* nearer = motion_.weightA >= 0.5f ? a : b;
        dest->CopyFrom(0, 0, nearer, 0, 0, b->width, b->height);
    } else {
        // Without flows the weighted energy blend comes out as the same dissolve.
        Dissolve(dest, a, b, 1.0f - motion_.weightA);
    }
}

} // namespace

int ZUQuelmor4Internal::Render(ZUQuelmor4& engine, ZUImage* result, ZUImage* secondField,
                               int fieldsIn, int fieldsOut, int vectorQuality, float timeBegin,
                               float timeEnd, float inputFrameRate, float outputFrameRate,
                               float motionBlur, float motionSensitivity, long interpolation,
                               long highQuality, long flowFromSequence, long cacheLastMotion,
                               int foregroundLayers, const float* matteShrink,
                               const float* layerSensitivity, ZUIdleAndProgressClass* progress,
                               bool alphaFirst) {
    const RenderRequest request{
        result,          secondField,      fieldsIn,          fieldsOut,
        vectorQuality,   timeBegin,        timeEnd,           inputFrameRate,
        outputFrameRate, motionBlur,       motionSensitivity, interpolation,
        highQuality,     flowFromSequence, cacheLastMotion,   foregroundLayers,
        matteShrink,     layerSensitivity, progress,          alphaFirst};
    try {
        // Frames checked out by a road are held by objects of that road, so they are all given
        // back before this handler runs, whatever the path.
        FrameRenderer renderer(engine, *this, request);
        renderer.Run();
    } catch (DQErr code) {
        Reset();
        return code;
    }
    return 0;
}
