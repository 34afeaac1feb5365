#pragma once
// Callbacks of the panel controls. Each takes why the host calls (1: the value changed) and the
// host's record by value, and returns the re-rendered frame or null. The host resolves them by
// name, as it does the entry points, so they carry C names and leave the shared object.
#include "host/Export.h"
#include "host/Spark.h"

QUELMOR_EXPORT void* sparkCallback(int why, spark_info_struct info);
QUELMOR_EXPORT void* sparkAltMotionCallback(int why, spark_info_struct info);
QUELMOR_EXPORT void* sparkFGMaskCallback(int why, spark_info_struct info);
QUELMOR_EXPORT void* sparkResetCallback(int why, spark_info_struct info);
QUELMOR_EXPORT void* sparkTimeCallback(int why, spark_info_struct info);
QUELMOR_EXPORT void* sparkSceneCutCallback(int why, spark_info_struct info);
QUELMOR_EXPORT void* sparkFrameSpeedInteract(int why, spark_info_struct info);
