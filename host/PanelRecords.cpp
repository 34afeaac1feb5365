#include "host/PanelRecords.h"

#include "host/Export.h"
#include "host/PanelCallbacks.h"

// Definitions take C linkage and default visibility from their declarations in the header.

// Clip-mode panel: the records that SparkProcess reads by value.
SparkPupStruct SparkPup0 = {1, 3, nullptr, {"Nearest", "Blend", "Weighted Energy Blend"}};
SparkPupStruct SparkPup1 = {
    4, 5, nullptr, {"No Motion Vectors", "Sloppy", "Medium", "High", "Best"}};
SparkFloatStruct SparkFloat2 = {1.0f, 0.0f, 10.0f, 0.005f, 0, "Speed Factor %6.2f", nullptr};
SparkFloatStruct SparkFloat3 = {0.0f, 0.0f, 5.0f, 0.005f, 0, "Motion Blur %5.3f", nullptr};
SparkPupStruct SparkPup4 = {
    0,
    3,
    sparkCallback,
    {"Fields IN: None", "In: Lower Field (2) First", "In: Upper Field (1) First"}};
SparkPupStruct SparkPup5 = {
    0,
    3,
    sparkCallback,
    {"Fields OUT: None", "Out: Lower Field (2) First", "Out: Upper Field (1) First"}};

// Curve-mode panel.
SparkPushStruct SparkPush6 = {"Display", nullptr};
SparkPushStruct SparkPush7 = {"Mark Segments", nullptr};
SparkIntStruct SparkInt8 = {1, 1, 5, 1, 0, "BurnId %0d", sparkCallback};
SparkPushStruct SparkPush9 = {"Input Fields", nullptr};
SparkPushStruct SparkPush10 = {"Output Fields", nullptr};
SparkPupStruct SparkPup13 = {
    1, 4, sparkTimeCallback, {"Source Time", "Output Time", "Background Only", "Foregrond Only"}};
SparkPupStruct SparkPup14 = {0,
                             6,
                             sparkSceneCutCallback,
                             {"Set Cut", "Cut A (1)", "Cut B (2)", "Cut C (3)",
                              "No MV:Use Nearest (4)", "No MV:Frame Blend (5)"}};
// Flags 16 marks the animatable field whose curve holds the scene cuts.
SparkIntStruct SparkInt15 = {0, 0, 5, 1, 16, "Menu Anim %0d", sparkCallback};
SparkPupStruct SparkPup16 = {
    0, 3, sparkCallback, {"None", "Lower Field (2) First", "Upper Field (1) First"}};
SparkPupStruct SparkPup17 = {
    0, 3, sparkCallback, {"None", "Lower Field (2) First", "Upper Field (1) First"}};
SparkBooleanStruct SparkBoolean18 = {0, 0, "Use ALT Motion (Back)", sparkAltMotionCallback};
SparkBooleanStruct SparkBoolean19 = {1, 0, "Cache Last Motion", sparkCallback};
SparkPushStruct SparkPush20 = {"Interp Method", nullptr};
SparkPushStruct SparkPush21 = {"Vector Quality", nullptr};
SparkPushStruct SparkPush22 = {"Warping Method", nullptr};
SparkPushStruct SparkPush23 = {"Image Prep", nullptr};
SparkPushStruct SparkPush24 = {"Stretch Method", nullptr};
SparkFloatStruct SparkFloat25 = {1.0f, 1.0f, 30000.0f, 0.5f, 0, "Frame %7.1f", sparkCallback};
SparkFloatStruct SparkFloat26 = {70.0f,        0.0f, 100.0f, 0.05f, 0, "Motion Sensitivity %6.2f",
                                 sparkCallback};
SparkPupStruct SparkPup27 = {1, 3, sparkCallback, {"Nearest", "Blend", "Weighted Energy Blend"}};
SparkPupStruct SparkPup28 = {
    4, 5, sparkCallback, {"No Motion Vectors", "Sloppy", "Medium", "High", "Best"}};
SparkPupStruct SparkPup29 = {0, 3, sparkCallback, {"Inverse", "Inverse + Smart Blend", "Forward"}};
SparkPupStruct SparkPup30 = {0, 2, sparkCallback, {"None", "Enhance Edge + Contrast"}};
SparkPupStruct SparkPup31 = {
    1, 2, sparkFrameSpeedInteract, {"Key-Framed Stretch", "Speed Stretch"}};
SparkFloatStruct SparkFloat32 = {1.0f, 0.0f, 10.0f, 0.005f, 0, "Speed Factor %6.3f", sparkCallback};
SparkPushStruct SparkPush34 = {"Reset", sparkResetCallback};
SparkPushStruct SparkPush35 = {"Motion Blur", nullptr};
SparkBooleanStruct SparkBoolean36 = {0, 0, "Use FG Matte", sparkFGMaskCallback};
SparkFloatStruct SparkFloat42 = {0.0f, 0.0f, 5.0f, 0.005f, 0, "Compensate %5.3f", sparkCallback};
SparkPupStruct SparkPup43 = {
    0, 4, sparkCallback, {"FG Matte Red", "FG Matte Green", "FG Matte Blue", "FG Matte Luminance"}};
SparkFloatStruct SparkFloat44 = {
    70.0f, 0.0f, 100.0f, 0.05f, 0, "FG Motion Sensitivity %6.2f", sparkCallback};
SparkFloatStruct SparkFloat45 = {0.0f,         0.0f, 4.0f, 0.01f, 0, "FG Inv Matte Shrink %4.2f",
                                 sparkCallback};
