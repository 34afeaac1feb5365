#pragma once
// Callbacks of the panel controls. Each takes why the host calls (1: the value changed) and the
// host's record by value, and returns the re-rendered frame or null.
#include "host/Spark.h"

void* sparkCallback(int why, spark_info_struct info);
void* sparkAltMotionCallback(int why, spark_info_struct info);
void* sparkFGMaskCallback(int why, spark_info_struct info);
void* sparkResetCallback(int why, spark_info_struct info);
void* sparkTimeCallback(int why, spark_info_struct info);
void* sparkSceneCutCallback(int why, spark_info_struct info);
void* sparkFrameSpeedInteract(int why, spark_info_struct info);
