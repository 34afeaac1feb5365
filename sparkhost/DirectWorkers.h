#pragma once
// For programs that link the engine library directly beside the stand-in host (the command's
// direct path, tests, benchmarks): the library's row loop and the host's worker pool must agree
// on the worker count and on the frame size whose pixels they slice, or bands are lost.
#include "image/Parallel.h"
#include "sparkhost/WorkerPool.h"

inline void SparkHostUseWorkersDirect(int workers, int width, int height) {
    Width = width;
    Height = height;
    ZUMPSetNumThreads(workers);
    SparkHostSetWorkerCount(workers);
    SparkHostSetFrameSize(width, height);
}
