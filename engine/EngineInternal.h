#pragma once
// Private state of the retime engine: flow objects, flow images kept from
// frame to frame, and the settings of the previous pass.

#include <cstdint>

#include "engine/Engine.h"
#include "engine/FlowObjects.h"

constexpr int kMaxLayers = 10;

class ZUQuelmor4Internal : public ZUMem {
public:
    ZUQuelmor4Internal();
    ~ZUQuelmor4Internal();
    ZUQuelmor4Internal(const ZUQuelmor4Internal&) = delete;
    ZUQuelmor4Internal& operator=(const ZUQuelmor4Internal&) = delete;

    int Render(ZUQuelmor4& engine, ZUImage* result, ZUImage* secondField, int fieldsIn,
               int fieldsOut, int vectorQuality, float timeBegin, float timeEnd,
               float inputFrameRate, float outputFrameRate, float motionBlur,
               float motionSensitivity, long interpolation, long highQuality, long flowFromSequence,
               long cacheLastMotion, int foregroundLayers, const float* matteShrink,
               const float* layerSensitivity, ZUIdleAndProgressClass* progress, bool alphaFirst);

    void SetConfig(ZUQuelmor4& engine, const ZUImage* result, int fieldsIn, int fieldsOut,
                   int vectorQuality, long interpolation, long highQuality, float inputFrameRate,
                   float outputFrameRate, float motionBlur);
    static void FlowLevelForQuality(int quality, long highQuality, int width, int height,
                                    int* level, int* flowWidth, int* flowHeight);
    // Whether frames of this size can be retimed with motion at this quality: the warps and every
    // level of the flow need a cell of 2x2 pixels, so a smaller frame or flow takes the road
    // without motion.
    static bool MotionFits(int quality, long highQuality, int width, int height);

    // Destroys flow objects and owned flow images; borrowed slots are only cleared.
    void Reset();

    // Whether a flow object was made for another flow size than the current one.
    bool FlowObjectSizeChanged() const;
    // Counts the flows computed by this state since it was made (read by tests and benchmarks).
    int64_t flowRuns = 0;

    DQImage* FlowBtoA(int layer) const;
    DQImage* FlowAtoB(int layer) const;
    DQImage* AnyFlowAtoB() const;
    void AllocLayerFlows(long cacheLastMotion);
    // Points flowBtoA and flowAtoB at the frame-size pair that external vectors are loaded into,
    // made (cleared) when missing or of another size. Throws DQErr 1 when memory runs out.
    void AllocVectorImages();

    // Checks out a frame (a field when fieldsIn is set) in canonical channel order.
    int GetSequenceFrame(ZUQuelmor4& engine, ZUImage** image, int frame, int fieldsIn,
                         bool tracking);
    // Restores the stored channel order and hands the frame back.
    static void GiveBackSequenceFrame(ZUQuelmor4& engine, ZUImage* image);

    // Hands the geometry of the frame pair (first, second) of `layer` to the flow object as
    // seeds; frame numbers are halved into times when fieldsIn is set.
    void FeedGeometryToFlow(ZUQuelmor4& engine, DQOpticalFlowUChar* flow, int layer, int first,
                            int second, int fieldsIn) const;
    // The same geometry as the only correspondences of a morph flow object, ready for its run.
    void FeedGeometryToMorph(ZUQuelmor4& engine, DQMorphFlow* morph, int layer, int first,
                             int second, int fieldsIn) const;

    // dest receives source blurred along `flow` (amount above 0), sharpened along it (below 0)
    // or copied (amount 0); the amount is limited to -10..20.
    static void ApplyMotionBlur(DQImage* dest, DQImage* source, DQImage* flow, bool highQuality,
                                ZUIdleAndProgressClass* progress, float amount);

    int32_t width = 0, height = 0;
    int32_t layerCount = 1;
    int32_t lastLayerCount = 0;
    int64_t interpolation = 0, lastInterpolation = 0;
    int32_t flowLevel = 0, lastFlowLevel = 0;
    int32_t vectorQuality = 0, lastVectorQuality = 0;
    int32_t warping = 0, lastWarping = 0;
    int32_t flowWidth = 0, flowHeight = 0;
    DQOpticalFlowUChar* opticalFlow = nullptr;
    DQMorphFlow* morphFlow = nullptr;
    DQImage* flowBtoA = nullptr;
    DQImage* flowAtoB = nullptr;
    DQImage* layerFlowAtoB[kMaxLayers] = {};
    DQImage* layerFlowBtoA[kMaxLayers] = {};
    int32_t lastFieldsIn = 0, lastFieldsOut = 0;
    int32_t lastFrameA = -1;
    int32_t lastFromFrame = -1, lastToFrame = -1;
    float lastInputFrameRate = 0.0f, lastOutputFrameRate = 0.0f;
    float lastSensitivity[kMaxLayers] = {};
    float lastShrink[kMaxLayers] = {};
    int32_t lastDrawStartLayer = 0, lastDrawEndLayer = 0;
    bool enhanceImages = false;
    bool doOpticalFlow[kMaxLayers] = {};
    bool lastAnyGeometry = false;
    int32_t vectorDirection = 0;

    // Full-size working images of the motion road. They live as long as the kept motion, so
    // that the in-between frames of one interval do not fault fresh pages in every pass; Reset
    // releases them with the flow.
    DQImagePtr workingA;
    DQImagePtr workingB;
    // The flow pair of external vectors, at frame size; flowBtoA and flowAtoB borrow them.
    DQImagePtr vectorsBtoA;
    DQImagePtr vectorsAtoB;

private:
    void DropFlowImage(DQImage*& slot);
};
