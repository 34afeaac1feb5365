// One output frame: panel menus to engine settings, output images, the engine run, and the
// result back into the host's buffer. A frame that fails comes back black.
#include "host/Driver.h"
#include "host/HostFormat.h"
#include "host/MyImage.h"
#include "host/MyProgress.h"
#include "host/MyQuelmor.h"
#include "host/PanelRecords.h"

#include <cstring>

namespace {

constexpr int kLayerArraySize = 10;

int InterpolationEnum(int menu) {
    return menu == 1 || menu == 2 ? menu : 0;
}
int VectorQualityEnum(int menu) {
    return menu >= 0 && menu <= 4 ? menu : 0;
}
// The menus list the lower field first; the engine numbers the upper field 1.
int FieldsEnum(int menu) {
    switch (menu) {
    case 1:
        return 2;
    case 2:
        return 1;
    default:
        return 0;
    }
}

// Row bytes of a four-channel working image for a host depth, 0 for an unsupported one.
int WorkingRowBytes(int depth, int width) {
    return MyElementBytesForDepth(depth) * 4 * width;
}

// Allocates and describes one output image; false (after the message) when allocation fails.
bool AllocateOutput(MyImage& image, int width, int height, int depth, const char* failure) {
    const int rowBytes = WorkingRowBytes(depth, width);
    uint8_t* pixels = MyAllocatePixels(size_t(rowBytes) * size_t(height));
    if (!pixels) {
        sparkMessage(failure);
        return false;
    }
    image.MyInit(pixels, width, height, depth, rowBytes, 4);
    return true;
}

void ClearResult(const spark_info_struct* info) {
    if (gResultBuffer.Buffer && info->FrameBytes > 0)
        memset(gResultBuffer.Buffer, 0, size_t(info->FrameBytes));
}

} // namespace

int MyGetQuelmoredFrame(spark_info_struct* info, int frame, int interpolationMenu,
                        int vectorQualityMenu, int, int, float, float, float motionBlur,
                        float inputFrameRate, int fieldsInMenu, float outputFrameRate,
                        int fieldsOutMenu, int width, int height, int depth, int matteLayer,
                        int matteChannel, float foregroundSensitivity, float foregroundShrink,
                        int trackingClip, int keepMotion, float motionSensitivity) {
    MyImage result;
    MyImage secondField;
    MyProgress progress(info);
    float layerShrink[kLayerArraySize] = {};
    float layerSensitivity[kLayerArraySize];
    for (float& value : layerSensitivity)
        value = 1.0f;
    if (!gQuelmor) {
        ClearResult(info);
        return 0;
    }

    const float sensitivity = motionSensitivity / 100.0f;
    const float fgSensitivity = foregroundSensitivity / 100.0f;
    const int interpolation = InterpolationEnum(interpolationMenu);
    const int vectorQuality = VectorQualityEnum(vectorQualityMenu);
    const int fieldsIn = FieldsEnum(fieldsInMenu);
    const int fieldsOut = FieldsEnum(fieldsOutMenu);
    const long cacheLastMotion = keepMotion == 1 ? 1 : 0;
    const long sameSource = trackingClip == 0 ? 1 : 0;
    int matteFlag = 0;
    if (matteLayer == 1) {
        matteFlag = 1;
        layerShrink[0] = foregroundShrink;
        layerSensitivity[0] = fgSensitivity;
    }

    const int initResult =
        gQuelmor->MyInit(info, width, height, depth, trackingClip, matteChannel, gCombineModeArg, 1,
                         SparkFloat2.Value, 0, 0, 1, 0, &gTempBuffer, nullptr);
    gQuelmor->cacheOn = 1;
    if (initResult != 0) {
        ClearResult(info);
        return 0;
    }

    if (MyIsSupportedDepth(depth)) {
        if (!AllocateOutput(result, width, height, depth,
                            "Cannot process image due to result image buffer allocation error")) {
            ClearResult(info);
            return 0;
        }
        const char* secondFailure =
            depth == 24 || depth == 25
                ? "Cannot process image due to tmp image buffer allocation error"
                : "Cannot process image due to image buffer allocation error";
        if (fieldsOut != 0 && !AllocateOutput(secondField, width, height, depth, secondFailure)) {
            ClearResult(info);
            return 0;
        }
    }

    int engineResult = 1;
    try {
        engineResult = gQuelmor->GetFrame(&result, &secondField, fieldsIn, fieldsOut, vectorQuality,
                                          float(frame), float(frame + 1), inputFrameRate,
                                          outputFrameRate, motionBlur, sensitivity, interpolation,
                                          1, sameSource, cacheLastMotion, matteFlag, layerShrink,
                                          layerSensitivity, &progress, false);
    } catch (...) {
        engineResult = 1;
    }
    ZUImageScale(&result, kMyScale16To12, kMyMaximum12);
    if (engineResult != 0) {
        ClearResult(info);
        return 0;
    }
    gQuelmor->MySparkUnCombine4Buffers(gResultBuffer.Buffer, result.buffer, gTempBuffer.Buffer);
    return 1;
}
