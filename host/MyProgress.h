#pragma once
// The end of every progress chain on the host path. It keeps the host's record; the host shows
// no progress of the engine, so the idle routine does nothing.
#include "host/Spark.h"
#include "image/Progress.h"

class MyProgress : public ZUIdleAndProgressClass {
public:
    explicit MyProgress(spark_info_struct* info) : ZUIdleAndProgressClass(nullptr), info(info) {}
    virtual void DQIdleProgressRoutine(float /*fraction*/) {}

    spark_info_struct* info;
};
