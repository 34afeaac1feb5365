#pragma once
// Moving frames between the host's packed RGB buffers and interleaved images, on the host's
// workers. Each front function stores its arguments in process-wide variables and forks; the
// workers walk the run of pixels that sparkMpInfo gives them. Only one conversion may be in flight.
#include "host/Spark.h"

// Mode of sparkCombine4Buffers; 1 makes 12-bit frames white and needs the auxiliary buffer.
extern int gCombineMode;

// Host frame to a four-channel image; clears FrameBytes bytes of `image` first. Returns 1.
int sparkCombine4Buffers(spark_info_struct* info, void* image, void* hostFrame, void* aux,
                         int mode);
// One channel (0 R, 1 G, 2 B) of a host frame to a one-channel image. Returns 1.
int sparkCombine1Buffers(spark_info_struct* info, void* image, void* hostFrame, int channel);
// Four-channel image to a host frame, alpha to all three channels of `matteFrame`; clears
// FrameBytes bytes of `hostFrame` first. Returns 1.
int sparkUnCombine4Buffers(spark_info_struct* info, void* hostFrame, void* image, void* matteFrame);
// One-channel image to all three channels of a host frame. Returns 1.
int sparkUnCombine1Buffers(spark_info_struct* info, void* hostFrame, void* image);
