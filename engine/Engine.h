#pragma once
// The abstract retime engine. A derived class supplies source frames, mattes,
// the time curve and scene cuts through the virtual operations below; the
// engine turns a requested output time into a finished frame.

#include <cstdint>

#include "image/Image.h"

class ZUQuelmor4Internal;

// Which source frames a GetFrame with the same settings would read.
struct FrameRequirements {
    static constexpr int kMaxEntries = 12;
    int32_t count = 0;              // entries in use
    int32_t sequenceFrames = 0;     // 2 or 4
    int32_t matteFrames = 0;        // 0 or 2 per foreground layer
    int32_t kind[kMaxEntries] = {}; // 0 tracking, 1 to-be-warped, 2 matte
    int32_t frame[kMaxEntries] = {};
    int32_t layer[kMaxEntries] = {}; // -1 except for mattes
};

// Kinds of FrameRequirements entries.
enum FrameKind : int32_t { kTrackingFrame = 0, kWarpedFrame = 1, kMatteFrame = 2 };

class ZUQuelmor4 : public ZUMem {
public:
    ZUQuelmor4() = default;
    ZUQuelmor4(const ZUQuelmor4&) = delete;
    ZUQuelmor4& operator=(const ZUQuelmor4&) = delete;
    virtual ~ZUQuelmor4();

    // --- frames (all pure) ---
    // Checks out source frame `frame`; 0, or a DQErr code (5: no such frame).
    virtual int GetToBeWarpedSequenceImage(ZUImage** image, int frame) = 0;
    virtual int GetTrackingSequenceImage(ZUImage** image, int frame) = 0;
    // Takes back an image that a Get...SequenceImage handed out; 0 when done.
    virtual int CleanUpCheckedOutImage(ZUImage* image) = 0;
    virtual int GetMatteLayerSequenceImage(ZUImage** image, int frame, int layer) = 0;
    virtual int CleanUpCheckedOutMatteImage(ZUImage* image) = 0;
    // The time curve: source frame (fractional) shown at outputTime.
    virtual int GetKeyframedTime(float* sourceTime, float outputTime) = 0;

    // --- per-time overrides: return 1 when `value` was overridden ---
    virtual int GetBackgroundLayerMotionSensitivity(float* value, float time);
    virtual int GetLayerMotionSensitivity(float* value, int layer, float time);
    virtual int GetLayerMatteShrink(float* value, int layer, float time);
    virtual void GetDoOpticalFlow(bool* doFlow, int layer, float time);
    virtual void GetBackgroundLayerDoOpticalFlow(bool* doFlow, float time);

    // Scene code of a source time: 0..2 scenes, 3 no motion (nearest), 4 no motion (blend).
    virtual int WhichScene(float time) = 0;
    virtual int GetDrawStartLayer();
    virtual int GetDrawEndLayer();
    virtual int UsesWhichWarping();
    virtual int EnhanceImages();

    // --- geometry ---
    virtual unsigned long GetNumGeometries(int layer, float timeA, float timeB);
    virtual int GetGeometryPoints(int layer, unsigned long index, float timeA, float timeB,
                                  unsigned long* count, float** xA, float** yA, float** xB,
                                  float** yB);
    virtual void ReleasePoints(float* xA, float* yA, float* xB, float* yB);
    virtual void GetGeometryColor(int layer, unsigned long index, unsigned char* red,
                                  unsigned char* green, unsigned char* blue, float time);

    // --- external vectors ---
    virtual int UsesExternalVectors();
    virtual int GetPreviousFrameVectors(ZUImage** vectors, float* scale, int frame);
    virtual int GetNextFrameVectors(ZUImage** vectors, float* scale, int frame);
    virtual int ReleasePreviousFrameVectors(ZUImage* vectors);
    virtual int ReleaseNextFrameVectors(ZUImage* vectors);
    virtual int GetVectorScaleXY(float* scaleX, float* scaleY, int frame);
    virtual int GetMotionBlurAmount(float* value, float time);

    // Makes the internal state on first use: 0, or 1 when it could not be allocated.
    int Init();

    int GetFrame(ZUImage* result, ZUImage* secondField, int fieldsIn, int fieldsOut,
                 int vectorQuality, float timeBegin, float timeEnd, float inputFrameRate,
                 float outputFrameRate, float motionBlur, float motionSensitivity,
                 long interpolation, long highQuality, long flowFromSequence, long cacheLastMotion,
                 int foregroundLayers, const float* matteShrink, const float* layerSensitivity,
                 ZUIdleAndProgressClass* progress, bool alphaFirst);
    // Progressive form: no fields, 30 fps both ways, full sensitivity, no shrink.
    int GetFrame(ZUImage* result, int vectorQuality, float timeBegin, float timeEnd,
                 float motionBlur, long interpolation, long highQuality, long flowFromSequence,
                 long cacheLastMotion, int foregroundLayers, ZUIdleAndProgressClass* progress);

    int GetFrameRequirements(FrameRequirements* out, const ZUImage* result, int fieldsIn,
                             int fieldsOut, int vectorQuality, float timeBegin, float timeEnd,
                             float inputFrameRate, float outputFrameRate, float motionBlur,
                             float motionSensitivity, long interpolation, long highQuality,
                             long flowFromSequence, long cacheLastMotion, int foregroundLayers,
                             const float* matteShrink, const float* layerSensitivity,
                             ZUIdleAndProgressClass* progress, bool alphaFirst);

    // Drops all kept motion.
    void ResetMotion();

    // The flows of the pair of source frames that the last frame was drawn from, while the engine
    // keeps its motion (one layer, motion kept from frame to frame): A to B into `flowAtoB` and B
    // to A into `flowBtoA`, either may be null. Each is a two-channel float image of the flow size
    // or of any other size (the frame size, say), the vectors then converted to its pixels by the
    // ratio of the last indices. `frameA` (may be null) receives the pair's first frame. Returns 5,
    // changing nothing, when no such flow is kept or an image is not a two-channel float image.
    int GetPairFlows(DQImage* flowAtoB, DQImage* flowBtoA, int* frameA);

    // Whether the engine can hold frames of width x height with `pixelBytes` per pixel at this
    // vector quality: every image it makes for such a frame (the frame itself, its one-channel
    // float copy for the flow, the flow's three-channel level 0) must stay within the 2 GiB that
    // 32-bit row offsets address. GetFrame refuses a larger result with 5 before it writes.
    static bool FrameFits(int width, int height, int pixelBytes, int vectorQuality,
                          long highQuality);

    // Written at the start of each call; a derived class may read them.
    int32_t fieldsIn = 0;
    int32_t fieldsOut = 0;
    float inputFrameRate = 0.0f;
    float outputFrameRate = 0.0f;
    int32_t vectorQuality = 0;
    int64_t interpolation = 0;
    int64_t highQuality = 1;
    float motionBlur = 0.0f;
    ZUQuelmor4Internal* internal = nullptr; // owned
};
