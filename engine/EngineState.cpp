// Life of the engine's private state: configuration, flow size, the flow
// accessors and Reset, which tells owned flow images from borrowed ones.

#include "engine/EngineInternal.h"

#include <algorithm>
#include <cstdint>

ZUQuelmor4Internal::ZUQuelmor4Internal() = default;

ZUQuelmor4Internal::~ZUQuelmor4Internal() {
    Reset();
}

void ZUQuelmor4Internal::FlowLevelForQuality(int quality, long highQuality, int width, int height,
                                             int* level, int* flowWidth, int* flowHeight) {
    int l = 3;
    if (quality == 3)
        l = 2;
    else if (quality == 4)
        l = 1;
    else if (quality >= 5)
        l = 0;
    if (highQuality == 0 && quality >= 3) l += 1;
    int w = width;
    int h = height;
    for (int i = 0; i < l; ++i) {
        w /= 2;
        h /= 2;
    }
    *level = l;
    *flowWidth = w;
    *flowHeight = h;
}

bool ZUQuelmor4::FrameFits(int width, int height, int pixelBytes, int vectorQuality,
                           long highQuality) {
    if (width < 0 || height < 0 || pixelBytes < 0) return false;
    constexpr int64_t kLimit = INT32_MAX;
    const int64_t pixels = int64_t(width) * height;
    int64_t largest = pixels * std::max(pixelBytes, int(sizeof(float)));
    if (vectorQuality != 0 &&
        ZUQuelmor4Internal::MotionFits(vectorQuality, highQuality, width, height)) {
        int level = 0, flowWidth = 0, flowHeight = 0;
        ZUQuelmor4Internal::FlowLevelForQuality(vectorQuality, highQuality, width, height, &level,
                                                &flowWidth, &flowHeight);
        largest = std::max(largest, int64_t(flowWidth) * flowHeight * 3 * int64_t(sizeof(float)));
    }
    return largest <= kLimit;
}

bool ZUQuelmor4Internal::MotionFits(int quality, long highQuality, int width, int height) {
    int level = 0, flowWidth = 0, flowHeight = 0;
    FlowLevelForQuality(quality, highQuality, width, height, &level, &flowWidth, &flowHeight);
    return width >= 2 && height >= 2 && flowWidth >= 2 && flowHeight >= 2;
}

void ZUQuelmor4Internal::SetConfig(ZUQuelmor4& engine, const ZUImage* result, int fieldsIn,
                                   int fieldsOut, int vectorQuality, long interpolation,
                                   long highQuality, float inputFrameRate, float outputFrameRate,
                                   float motionBlur) {
    warping = engine.UsesWhichWarping();
    width = result->width;
    height = result->height;
    engine.fieldsIn = fieldsIn;
    engine.fieldsOut = fieldsOut;
    engine.inputFrameRate = inputFrameRate;
    engine.outputFrameRate = outputFrameRate;
    engine.vectorQuality = vectorQuality;
    engine.interpolation = interpolation;
    engine.highQuality = highQuality;
    engine.motionBlur = motionBlur;
    this->interpolation = interpolation;
    this->vectorQuality = vectorQuality;
    FlowLevelForQuality(vectorQuality, highQuality, width, height, &flowLevel, &flowWidth,
                        &flowHeight);
}

void ZUQuelmor4Internal::DropFlowImage(DQImage*& slot) {
    if (slot && slot != FlowOutputOf(opticalFlow) && slot != FlowOutputOf(morphFlow) &&
        slot != vectorsBtoA.get() && slot != vectorsAtoB.get())
        delete slot;
    slot = nullptr;
}

void ZUQuelmor4Internal::Reset() {
    for (int layer = 0; layer < kMaxLayers; ++layer) {
        DropFlowImage(layerFlowAtoB[layer]);
        DropFlowImage(layerFlowBtoA[layer]);
    }
    // The two shared slots may hold the same image; it is deleted once.
    if (flowAtoB == flowBtoA) flowAtoB = nullptr;
    DropFlowImage(flowBtoA);
    DropFlowImage(flowAtoB);
    DestroyFlow(opticalFlow);
    DestroyFlow(morphFlow);
    workingA.reset();
    workingB.reset();
    vectorsBtoA.reset();
    vectorsAtoB.reset();
}

bool ZUQuelmor4Internal::FlowObjectSizeChanged() const {
    return FlowSizeDiffers(opticalFlow, flowWidth, flowHeight) ||
           FlowSizeDiffers(morphFlow, flowWidth, flowHeight);
}

DQImage* ZUQuelmor4Internal::FlowBtoA(int layer) const {
    return flowBtoA ? flowBtoA : layerFlowBtoA[layer];
}

DQImage* ZUQuelmor4Internal::FlowAtoB(int layer) const {
    if (!flowBtoA) return layerFlowAtoB[layer];
    DQImage* own = doOpticalFlow[layer] ? FlowOutputOf(opticalFlow) : FlowOutputOf(morphFlow);
    return own ? own : flowAtoB;
}

DQImage* ZUQuelmor4Internal::AnyFlowAtoB() const {
    if (flowAtoB) return flowAtoB;
    if (DQImage* own = FlowOutputOf(opticalFlow)) return own;
    return FlowOutputOf(morphFlow);
}

namespace {

// Makes a flow image of the flow size in `slot` when it is empty; a failed
// allocation leaves the slot clear and the code is thrown on.
void EnsureFlowImage(DQImage*& slot, int width, int height) {
    if (slot) return;
    DQImagePtr image = DQMakeImage(width, height, 2, DQ_FLOAT);
    slot = image.release();
}

} // namespace

void ZUQuelmor4Internal::AllocLayerFlows(long cacheLastMotion) {
    if (cacheLastMotion == 1) {
        for (int layer = layerCount - 1; layer >= 1; --layer)
            EnsureFlowImage(layerFlowAtoB[layer], flowWidth, flowHeight);
        layerFlowAtoB[0] = doOpticalFlow[0] ? FlowOutputOf(opticalFlow) : FlowOutputOf(morphFlow);
        if (interpolation != 0)
            for (int layer = 0; layer < layerCount; ++layer)
                EnsureFlowImage(layerFlowBtoA[layer], flowWidth, flowHeight);
    } else {
        EnsureFlowImage(flowBtoA, flowWidth, flowHeight);
    }
}
