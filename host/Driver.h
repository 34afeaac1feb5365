#pragma once
// The plug-in's entry points and the process-wide state they share. The host calls every entry
// point on one thread at a time, so nothing here is locked.
#include "host/Export.h"
#include "host/Spark.h"

class MyQuelmor;

QUELMOR_EXPORT int SparkInitialise(spark_info_struct info);
QUELMOR_EXPORT void SparkUnInitialise(spark_info_struct info);
QUELMOR_EXPORT int SparkMemoryTempBuffers(void);
QUELMOR_EXPORT int SparkClips(void);
QUELMOR_EXPORT int SparkIsInputFormatSupported(int depth);
QUELMOR_EXPORT int SparkProcessStart(spark_info_struct info);
QUELMOR_EXPORT void* SparkProcess(spark_info_struct info);
// 1: the plug-in computes the output length in clip mode. Never written by the plug-in.
QUELMOR_EXPORT unsigned char AutoDuration;
// Kept for the host; the cache lives in the adapter object.
QUELMOR_EXPORT void* _Cache1;
QUELMOR_EXPORT void* _Cache2;

extern MyQuelmor* gQuelmor;
extern int gOutputFrame;
extern int gResultClipId, gFrontClipId, gBackClipId, gTempBufferId;
extern spark_membuf_struct gResultBuffer, gFrontBuffer, gBackBuffer, gTempBuffer;
extern int gClipCount;
extern int gCombineModeArg;

// Output length of a clip of `totalFrames` at `speed`: the frames divided by the speed in single
// precision, truncated. A speed that gives no usable length (0, negative, not a number) keeps the
// clip's length, which at that speed shows its first frame throughout.
int MyOutputLength(unsigned int totalFrames, float speed);

// Renders output frame `frame` into the host's result buffer; the arguments are listed in
// QuelmoredFrame.cpp. Returns 1, or 0 after clearing the result buffer.
int MyGetQuelmoredFrame(spark_info_struct* info, int frame, int interpolationMenu,
                        int vectorQualityMenu, int, int, float, float, float motionBlur,
                        float inputFrameRate, int fieldsInMenu, float outputFrameRate,
                        int fieldsOutMenu, int width, int height, int depth, int matteLayer,
                        int matteChannel, float foregroundSensitivity, float foregroundShrink,
                        int trackingClip, int keepMotion, float motionSensitivity);
