#include "host/PanelCallbacks.h"

#include "host/Driver.h"
#include "host/PanelRecords.h"

#include <unistd.h>

void* sparkCallback(int why, spark_info_struct info) {
    if (why != 1) return nullptr;
    // Each callee gets its own copy of the record, as the host hands it.
    SparkProcessStart(info);
    void* result = SparkProcess(info);
    sparkViewingDraw();
    return result;
}

void* sparkAltMotionCallback(int why, spark_info_struct info) {
    return sparkCallback(why, info);
}

void* sparkFGMaskCallback(int why, spark_info_struct info) {
    if (why != 1) return nullptr;
    if (SparkBoolean36.Value == 1) {
        // One input clip means there is never a matte clip to turn on.
        sparkMessage("Cannot turn FG Matte on, no Matte clip");
        sleep(1);
    }
    return sparkCallback(why, info);
}

void* sparkResetCallback(int why, spark_info_struct info) {
    SparkBoolean36.Value = 0;
    SparkPup27.Value = 1;
    SparkPup28.Value = 4;
    SparkPup31.Value = 1;
    SparkPup16.Value = 0;
    SparkPup17.Value = 0;
    SparkPup43.Value = 0;
    SparkBoolean18.Value = 0;
    SparkFloat42.Value = 0.0f;
    SparkFloat32.Value = 1.0f;
    SparkFloat44.Value = 70.0f;
    SparkFloat26.Value = 70.0f;
    SparkBoolean19.Value = 1;
    SparkFloat25.Value = 1.0f;
    SparkFloat45.Value = 0.0f;
    return sparkCallback(why, info);
}

void* sparkTimeCallback(int, spark_info_struct) {
    return nullptr;
}
void* sparkSceneCutCallback(int, spark_info_struct) {
    return nullptr;
}
void* sparkFrameSpeedInteract(int, spark_info_struct) {
    return nullptr;
}
