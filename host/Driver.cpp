#include "host/Driver.h"

#include "host/Export.h"
#include "host/HostFormat.h"
#include "host/MyQuelmor.h"
#include "host/PanelRecords.h"
#include "image/BlockCache.h"
#include "image/Parallel.h"

#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>

unsigned char AutoDuration = 1;
void* _Cache1 = nullptr;
void* _Cache2 = nullptr;

MyQuelmor* gQuelmor = nullptr;
int gOutputFrame = 0;
int gResultClipId = 1, gFrontClipId = 2, gBackClipId = 3, gTempBufferId = 6;
spark_membuf_struct gResultBuffer{}, gFrontBuffer{}, gBackBuffer{}, gTempBuffer{};
int gClipCount = 1;
int gCombineModeArg = 0;

namespace {
constexpr float kMinimumAPIVersion = 4.0f;
constexpr float kFrameRate = 29.97f;
constexpr float kFixedSensitivity = 70.0f;

// The defaults of curve mode; clip mode reads them from the first six records.
struct FrameSettings {
    int interpolation = 1;
    int vectorQuality = 4;
    float speed = 1.0f;
    float motionBlur = 0.0f;
    int fieldsIn = 0;
    int fieldsOut = 0;
};

// The four host buffers in the order they are fetched and tested, with the words of their
// messages.
struct BufferSlot {
    int* id;
    spark_membuf_struct* buffer;
    const char* fetchName;
    const char* lockName;
};

bool FetchBuffers() {
    const BufferSlot slots[] = {
        {&gResultClipId, &gResultBuffer, "result", "result"},
        {&gFrontClipId, &gFrontBuffer, "front", "front"},
        {&gBackClipId, &gBackBuffer, "back", "back"},
        {&gTempBufferId, &gTempBuffer, "tmp", "tmp1"},
    };
    for (const auto& slot : slots) {
        if (!sparkMemGetBuffer(*slot.id, slot.buffer)) {
            printf("Error: Can't get %s clip buffer\n", slot.fetchName);
            return false;
        }
    }
    for (const auto& slot : slots) {
        if (!(slot.buffer->BufState & SPARK_MEMBUF_LOCKED)) {
            printf("Error: %s clip buffer not locked\n", slot.lockName);
            return false;
        }
    }
    if (!gResultBuffer.Buffer || !gFrontBuffer.Buffer) {
        fprintf(stderr, "Error: null buffer pointer result(%d) front(%d)\n",
                int(intptr_t(gResultBuffer.Buffer)), int(intptr_t(gFrontBuffer.Buffer)));
        return false;
    }
    if (!gBackBuffer.Buffer) {
        fprintf(stderr, "Error: null buffer pointer back(%d)\n", 0);
        return false;
    }
    if (!gTempBuffer.Buffer) {
        fprintf(stderr, "Error: null buffer pointer tmp1(%d)\n", 0);
        return false;
    }
    return true;
}
} // namespace

int MyOutputLength(unsigned int totalFrames, float speed) {
    const float length = float(totalFrames) / speed;
    if (!(speed > 0.0f) || !std::isfinite(length)) return int(totalFrames);
    if (length >= float(INT_MAX)) return INT_MAX;
    return int(length);
}

QUELMOR_EXPORT int SparkInitialise(spark_info_struct info) {
    if (kMinimumAPIVersion > sparkAPIVersionInfo())
        sparkError("The version doesn't support this plug-in");
    sparkProgramGetName();
    sparkLoadSetup(info.SetupName);
    delete gQuelmor;
    gQuelmor = nullptr;
    try {
        gQuelmor = new MyQuelmor;
    } catch (...) {
        // Without the object every frame comes back black.
        gQuelmor = nullptr;
    }
    return 1;
}

QUELMOR_EXPORT void SparkUnInitialise(spark_info_struct info) {
    if (!gQuelmor) return;
    sparkSaveSetup(info.SetupName);
    delete gQuelmor;
    gQuelmor = nullptr;
    // The frames' working blocks wait in the block cache for the next frame; there is none now.
    // A host that unloads the plug-in next gets them back.
    blockcache::Release();
}

namespace {
// A host may unload the shared object without a last SparkUnInitialise. The object and the
// block cache live on the heap, not in the unloaded image, so they are given back here.
struct ReleaseAtUnload {
    ~ReleaseAtUnload() {
        delete gQuelmor;
        gQuelmor = nullptr;
        blockcache::Release();
    }
} gReleaseAtUnload;
} // namespace

QUELMOR_EXPORT int SparkMemoryTempBuffers(void) {
    gTempBufferId = sparkMemRegisterBuffer();
    return gTempBufferId;
}

QUELMOR_EXPORT int SparkClips(void) {
    gClipCount = 1;
    return 1;
}

QUELMOR_EXPORT int SparkIsInputFormatSupported(int depth) {
    return MyIsSupportedDepth(depth);
}

QUELMOR_EXPORT int SparkProcessStart(spark_info_struct info) {
    const unsigned int total = info.TotalFrameNo;
    if (total == 0) {
        printf("SparkProcessStart: Error total clip length <= 0\n");
        return 1;
    }
    if (info.RunMode != 0) return 0;
    if (AutoDuration != 1) return 1;
    const int length = MyOutputLength(total, SparkFloat2.Value);
    const unsigned int outputs = unsigned(length);
    const int64_t frame = info.FrameNo;
    if (outputs == total) {
        gOutputFrame = info.FrameNo;
        return 1;
    }
    if (outputs < total) {
        // Speed-up: every output frame comes at once when the last input frame is reached.
        gOutputFrame = 0;
        return frame >= int64_t(total) - 1 ? length : 0;
    }
    // Slow-down: one output frame per input frame, and the surplus at the last one.
    gOutputFrame = info.FrameNo;
    return frame == int64_t(total) - 1 ? length - int(total) + 1 : 1;
}

QUELMOR_EXPORT void* SparkProcess(spark_info_struct info) {
    ZUMPSetNumThreads(info.NumCpus);
    if (sparkCallingEnv() == 2) return nullptr;
    sparkCursorBusy();
    if (!FetchBuffers()) return nullptr;

    gCombineModeArg = 0;
    FrameSettings settings;
    int outputFrame = info.FrameNo;
    if (info.RunMode == 0) {
        settings.interpolation = SparkPup0.Value;
        settings.vectorQuality = SparkPup1.Value;
        settings.speed = SparkFloat2.Value;
        settings.motionBlur = SparkFloat3.Value;
        settings.fieldsIn = SparkPup4.Value;
        settings.fieldsOut = SparkPup5.Value;
        if (AutoDuration == 1) {
            outputFrame = gOutputFrame++;
            const int length = MyOutputLength(info.TotalFrameNo, settings.speed);
            if (std::fabs(double(settings.speed) - 1.0) > 0.0001) {
                char message[64];
                snprintf(message, sizeof message, "%d Frames, Processing Frame %d.", length,
                         outputFrame + 1);
                sparkMessage(message);
            }
        }
    }

    Width = gResultBuffer.BufWidth;
    Height = gResultBuffer.BufHeight;
    const int matteLayer = 0; // the panel never switches the matte layer on
    MyGetQuelmoredFrame(&info, outputFrame, settings.interpolation, settings.vectorQuality, 0, 1,
                        settings.speed, 1.0f, settings.motionBlur, kFrameRate, settings.fieldsIn,
                        kFrameRate, settings.fieldsOut, gResultBuffer.BufWidth,
                        gResultBuffer.BufHeight, gResultBuffer.BufDepth, matteLayer, 0,
                        kFixedSensitivity, 0.0f, 0, 1, kFixedSensitivity);
    return gResultBuffer.Buffer;
}
