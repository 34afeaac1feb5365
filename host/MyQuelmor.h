#pragma once
// The bridge between the retime engine and the host: it answers the engine's questions (source
// frames, source time, scene, layers, warping) from the host's clips, curves and panel, and keeps
// the last two source frames so that consecutive in-between frames do not fetch them again.
#include "engine/Engine.h"
#include "host/Spark.h"

class MyQuelmor : public ZUQuelmor4 {
public:
    MyQuelmor();
    ~MyQuelmor() override;

    int GetToBeWarpedSequenceImage(ZUImage** out, int frame) override;
    int GetTrackingSequenceImage(ZUImage** out, int frame) override;
    int CleanUpCheckedOutImage(ZUImage* image) override;
    int GetMatteLayerSequenceImage(ZUImage** out, int frame, int layer) override;
    int CleanUpCheckedOutMatteImage(ZUImage* image) override;
    int GetKeyframedTime(float* out, float time) override;
    int WhichScene(float time) override;
    int GetDrawStartLayer() override;
    int GetDrawEndLayer() override;
    int UsesWhichWarping() override;
    int EnhanceImages() override;
    // Writes the result image into the host's result frame, alpha into `matteDst`.
    virtual int MySparkUnCombine4Buffers(void* dst, void* src, void* matteDst);

    int MySparkUnCombine1Buffers(void* dst, void* src);
    int MySparkCombine4Buffers(void* dst, void* src, void* aux, int mode);

    // Settings of the coming frame. Creates the engine's state if missing; its failure code is
    // returned and nothing is stored. Does not touch the cache.
    int MyInit(void* info, int width, int height, int depth, int trackingClip, int matteChannel,
               int combineMode, int stretchMethod, float speed, int warping, int enhance,
               int layerMode, int useMatte, spark_membuf_struct* frameBuffer,
               spark_membuf_struct* secondBuffer);

    // Fetches source frame `frame` of host clip `clip` as a fresh image of 1 or 4 channels,
    // through the cache for clip 0. Returns 0, 1 on failure, 5 for an unknown clip (the image is
    // made all the same from what the frame buffer holds).
    int GetImage(int clip, ZUImage** out, int frame, int channels, int layer, int matteChannel,
                 int combineMode);
    // Source time shown at output time `time`, from the speed or the frame curve.
    int MyGetKeyFramedTimeParameter(float time, float* out);

    // The two-slot cache, keyed by frame number together with size and pixel format.
    int getCacheState(int frame, int w, int h, int depth, int rowBytes, int channels);
    void setCache(ZUImage* image, int frame);
    void getCache(ZUImage* image, int frame);
    void CleanCache();

    int width = 0;
    int height = 0;
    int depth = 0;
    int warpedClip = 0;
    int trackingClip = 1;
    int matteClip = 2;
    int matteChannel = 0;
    int stretchMethod = 1;
    float speed = 1.0f;
    int warping = 1;
    int enhance = 1;
    int layerMode = 1;
    int useMatte = 0;
    spark_membuf_struct* frameBuffer = nullptr;
    spark_membuf_struct* secondBuffer = nullptr;
    int cacheFrame1 = kNeverCachedFrame;
    int cacheFrame2 = kNeverCachedFrame;
    uint8_t cacheOn = 0;
    ZUImage* cacheImage1 = nullptr;
    ZUImage* cacheImage2 = nullptr;
    spark_info_struct* info = nullptr;
    int nextCacheSlot = kNeverCachedFrame;

    // Frame markers of an empty cache: after construction and after CleanCache.
    static constexpr int kNeverCachedFrame = -1000000;
    static constexpr int kCleanedFrame = -10000;

private:
    int GetSequenceImage(int clip, ZUImage** out, int frame);
    // Makes a slot's image with pixels of the given format; false when the pixels could not be
    // allocated.
    static bool PrepareSlot(ZUImage*& slot, int w, int h, int depth, int rowBytes, int channels);
};
