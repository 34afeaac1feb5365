#pragma once
// The exported records of the panel. The number in a name is the control's position on the
// panel and its number in the host's animation curves; the host writes values into `Value`.
#include "host/Export.h"
#include "host/Spark.h"

QUELMOR_EXPORT SparkPupStruct SparkPup0, SparkPup1, SparkPup4, SparkPup5, SparkPup13, SparkPup14,
    SparkPup16, SparkPup17, SparkPup27, SparkPup28, SparkPup29, SparkPup30, SparkPup31, SparkPup43;
QUELMOR_EXPORT SparkFloatStruct SparkFloat2, SparkFloat3, SparkFloat25, SparkFloat26, SparkFloat32,
    SparkFloat42, SparkFloat44, SparkFloat45;
QUELMOR_EXPORT SparkIntStruct SparkInt8, SparkInt15;
QUELMOR_EXPORT SparkBooleanStruct SparkBoolean18, SparkBoolean19, SparkBoolean36;
QUELMOR_EXPORT SparkPushStruct SparkPush6, SparkPush7, SparkPush9, SparkPush10, SparkPush20,
    SparkPush21, SparkPush22, SparkPush23, SparkPush24, SparkPush34, SparkPush35;

// Curve control numbers read by the adapter.
enum MyCurveControl : int {
    kMyControlMenuAnim = 15,
    kMyControlFrame = 25,
    kMyControlSpeed = 32,
};
