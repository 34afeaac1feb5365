#include "host/MyQuelmor.h"

#include "host/Conversion.h"
#include "host/HostFormat.h"
#include "host/MyImage.h"
#include "host/PanelRecords.h"

#include <cmath>
#include <cstdio>
#include <memory>

namespace {
// True when truncating `value` gives an int: finite and inside the int range.
bool IsWholeFrameRange(double value) {
    return std::isfinite(value) && value > -2147483648.0 && value < 2147483647.0;
}
} // namespace

MyQuelmor::MyQuelmor() {
    gCombineMode = 0;
}

MyQuelmor::~MyQuelmor() {
    CleanCache();
}

int MyQuelmor::MyInit(void* hostInfo, int width_, int height_, int depth_, int trackingClip_,
                      int matteChannel_, int combineMode, int stretchMethod_, float speed_,
                      int warping_, int enhance_, int layerMode_, int useMatte_,
                      spark_membuf_struct* frameBuffer_, spark_membuf_struct* secondBuffer_) {
    if (!internal) {
        if (const int result = Init()) return result;
    }
    info = static_cast<spark_info_struct*>(hostInfo);
    width = width_;
    height = height_;
    depth = depth_;
    trackingClip = trackingClip_;
    matteChannel = matteChannel_;
    stretchMethod = stretchMethod_;
    speed = speed_;
    warping = warping_;
    enhance = enhance_;
    layerMode = layerMode_;
    useMatte = useMatte_;
    frameBuffer = frameBuffer_;
    secondBuffer = secondBuffer_;
    gCombineMode = combineMode;
    return 0;
}

int MyQuelmor::GetImage(int clip, ZUImage** out, int frame, int channels, int /*layer*/,
                        int matteChannel_, int combineMode) {
    if (!out) return 5;
    if (frame < 0) frame = 0;
    *out = nullptr;
    if (!MyIsSupportedDepth(depth) || (channels != 1 && channels != 4)) return 1;
    const int rowBytes = MyElementBytesForDepth(depth) * channels * width;
    std::unique_ptr<uint8_t[]> pixels(MyAllocatePixels(size_t(rowBytes) * size_t(height)));
    if (!pixels) return 1;

    std::unique_ptr<MyImage> image(new MyImage);
    image->MyInit(pixels.release(), width, height, depth, rowBytes, channels);
    if (!image->internal) return 1;

    if (clip == 0 && cacheOn && getCacheState(frame, width, height, depth, rowBytes, channels)) {
        getCache(image.get(), frame);
        *out = image.release();
        return 0;
    }

    void* hostFrame = frameBuffer ? frameBuffer->Buffer : nullptr;
    int result = 0;
    if (clip >= 0 && clip <= 3)
        sparkGetFrame(clip, frame, hostFrame);
    else
        result = 5;
    if (channels == 4)
        sparkCombine4Buffers(info, image->buffer, hostFrame, nullptr, combineMode);
    else if (frameBuffer)
        sparkCombine1Buffers(info, image->buffer, hostFrame, matteChannel_);

    *out = image.release();
    ZUImageExpand(*out, kMyExpand12To16);
    if (cacheOn && clip == 0) setCache(*out, frame);
    return result;
}

int MyQuelmor::GetSequenceImage(int clip, ZUImage** out, int frame) {
    if (out) *out = nullptr;
    try {
        if (const int code = GetImage(clip, out, frame, 4, 0, 0, gCombineMode)) DQThrow(code);
        return 0;
    } catch (...) {
        // A failed request hands nothing out: the engine gives back only what it received.
        if (out && *out) {
            CleanUpCheckedOutImage(*out);
            *out = nullptr;
        }
        return 1;
    }
}

int MyQuelmor::GetToBeWarpedSequenceImage(ZUImage** out, int frame) {
    return GetSequenceImage(warpedClip, out, frame);
}

int MyQuelmor::GetTrackingSequenceImage(ZUImage** out, int frame) {
    return GetSequenceImage(trackingClip, out, frame);
}

int MyQuelmor::GetMatteLayerSequenceImage(ZUImage** out, int frame, int layer) {
    if (out) *out = nullptr;
    try {
        if (const int code = GetImage(matteClip, out, frame, 1, layer, matteChannel, gCombineMode))
            DQThrow(code);
        return 0;
    } catch (...) {
        if (out && *out) {
            CleanUpCheckedOutMatteImage(*out);
            *out = nullptr;
        }
        return 1;
    }
}

int MyQuelmor::CleanUpCheckedOutImage(ZUImage* image) {
    // The image owns its bridge and, as a MyImage, its pixels: deleting it releases both.
    delete image;
    return 0;
}

int MyQuelmor::CleanUpCheckedOutMatteImage(ZUImage* image) {
    delete image;
    return 0;
}

int MyQuelmor::GetKeyframedTime(float* out, float time) {
    return MyGetKeyFramedTimeParameter(time, out);
}

int MyQuelmor::MyGetKeyFramedTimeParameter(float time, float* out) {
    if (!out) return 5;
    *out = 0.0f;
    if (!IsWholeFrameRange(time)) return 5;
    if (!info) return 0;
    const int whole = int(time);
    const float fraction = time - float(whole);
    if (info->RunMode == 0) {
        // The fraction term is added once per whole frame: I x speed x (1 + f) on purpose.
        for (int k = 1; k <= whole; ++k) {
            *out += speed;
            *out += fraction * speed;
        }
    } else if (info->RunMode == 1) {
        if (stretchMethod == 0) {
            *out = sparkGetCurveValuef(1, kMyControlFrame, time + 1.0f) - 1.0f;
        } else if (stretchMethod == 1) {
            for (int k = 1; k <= whole; ++k)
                *out += sparkGetCurveValuef(1, kMyControlSpeed, float(k));
            *out += fraction * sparkGetCurveValuef(1, kMyControlSpeed, float(whole + 1));
        }
    }
    return 0;
}

int MyQuelmor::WhichScene(float time) {
    if (!info || info->RunMode == 0) return 0;
    const double hostFrame = time + 1.0;
    if (!IsWholeFrameRange(hostFrame)) return 0;
    const float curve = sparkGetCurveValue(1, kMyControlMenuAnim, int(hostFrame));
    // A curve value that is no number, or none an int can hold, marks no cut.
    if (!IsWholeFrameRange(curve)) return 0;
    switch (int(curve)) {
    case 2:
        return 1;
    case 3:
        return 2;
    case 4:
        return 3;
    case 5:
        return 4;
    default:
        return 0; // 0 (no cut set) and 1 (Cut A) both lie in the first scene
    }
}

int MyQuelmor::GetDrawStartLayer() {
    if (!useMatte) return 0;
    return layerMode == 1 || layerMode == 2 ? 1 : 0;
}

int MyQuelmor::GetDrawEndLayer() {
    if (!useMatte) return 0;
    return layerMode == 2 ? 1 : 0;
}

int MyQuelmor::UsesWhichWarping() {
    return warping >= 0 && warping <= 2 ? warping : 0;
}

int MyQuelmor::EnhanceImages() {
    return enhance == 1 ? 1 : 0;
}

int MyQuelmor::MySparkUnCombine4Buffers(void* dst, void* src, void* matteDst) {
    return info ? sparkUnCombine4Buffers(info, dst, src, matteDst) : 0;
}

int MyQuelmor::MySparkUnCombine1Buffers(void* dst, void* src) {
    return info ? sparkUnCombine1Buffers(info, dst, src) : 0;
}

int MyQuelmor::MySparkCombine4Buffers(void* dst, void* src, void* aux, int mode) {
    return info ? sparkCombine4Buffers(info, dst, src, aux, mode) : 0;
}

bool MyQuelmor::PrepareSlot(ZUImage*& slot, int w, int h, int depth_, int rowBytes, int channels) {
    auto* image = new MyImage;
    slot = image;
    if (ZUImageReset(image) != 0) return true;
    if (!MyIsSupportedDepth(depth_) || (channels != 1 && channels != 4)) return true;
    const size_t bytes =
        size_t(MyElementBytesForDepth(depth_)) * size_t(channels) * size_t(w) * size_t(h);
    uint8_t* pixels = MyAllocatePixels(bytes);
    if (!pixels) return false;
    image->MyInit(pixels, w, h, depth_, rowBytes, channels);
    return true;
}

int MyQuelmor::getCacheState(int frame, int w, int h, int depth_, int rowBytes, int channels) {
    const int pixelType = MyPixelTypeForDepth(depth_) < 0 ? 0 : MyPixelTypeForDepth(depth_);
    struct Slot {
        int& frame;
        ZUImage*& image;
    };
    for (Slot slot : {Slot{cacheFrame1, cacheImage1}, Slot{cacheFrame2, cacheImage2}}) {
        if (frame != slot.frame || !slot.image) continue;
        // The slot's own size, not the adapter's: a clip that changes height at the same width
        // keeps row bytes and pixel type, and a slot of the old height must not serve.
        const ZUImage& held = *slot.image;
        if (held.width == w && held.height == h && held.rowBytes == rowBytes &&
            held.pixelType == pixelType)
            return 1;
        // A slot of another format is dropped; its marker goes too, so that the slot made in
        // its place is never taken for this frame before it has been filled.
        delete slot.image;
        slot.image = nullptr;
        slot.frame = kCleanedFrame;
    }
    if (!cacheImage1) PrepareSlot(cacheImage1, w, h, depth_, rowBytes, channels);
    if (!cacheImage2 && !PrepareSlot(cacheImage2, w, h, depth_, rowBytes, channels)) return 0;
    return 0;
}

void MyQuelmor::setCache(ZUImage* image, int frame) {
    if (nextCacheSlot <= 0) nextCacheSlot = 2;
    if (nextCacheSlot == 2) {
        cacheFrame1 = frame;
        ZUImageCopy(cacheImage1, image);
        nextCacheSlot = 1;
    } else if (nextCacheSlot == 1) {
        cacheFrame2 = frame;
        ZUImageCopy(cacheImage2, image);
        nextCacheSlot = 2;
    }
}

void MyQuelmor::getCache(ZUImage* image, int frame) {
    if (frame == cacheFrame1)
        ZUImageCopy(image, cacheImage1);
    else if (frame == cacheFrame2)
        ZUImageCopy(image, cacheImage2);
    else
        fprintf(stderr, "Invalid Cache %i\n", frame);
}

void MyQuelmor::CleanCache() {
    // Slots are MyImage objects, which release their pixels with them.
    delete cacheImage1;
    cacheImage1 = nullptr;
    delete cacheImage2;
    cacheImage2 = nullptr;
    cacheFrame1 = cacheFrame2 = nextCacheSlot = kCleanedFrame;
}
