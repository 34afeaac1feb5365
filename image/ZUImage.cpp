#include "image/ZUImage.h"

ZUImageInternal::ZUImageInternal(const DQImage& other) : ZUImageInternal(other, other.bottomUp) {}

ZUImageInternal::ZUImageInternal(const DQImage& other, int bottomUpFlag)
    : DQImage(0, bottomUpFlag) {
    if (other.data)
        Rebind(other.data, other.width, other.height, other.rowBytes, other.channels,
               other.dataType, bottomUpFlag);
}

ZUImage::~ZUImage() {
    if (ownsInternal == 1 && internal) delete internal;
    internal = nullptr;
}

int ZUImagePixelTypeToDataType(int pixelType) {
    switch (pixelType) {
    case 0:
        return DQ_UCHAR;
    case 1:
        return DQ_USHORT;
    case 2:
        return DQ_FLOAT;
    default:
        DQThrow(kDQErrBadArgument);
    }
}

int ZUImageDataTypeToPixelType(int dataType) {
    switch (dataType) {
    case DQ_UCHAR:
        return 0;
    case DQ_USHORT:
        return 1;
    case DQ_FLOAT:
        return 2;
    default:
        DQThrow(kDQErrBadArgument);
    }
}

int ZUImageOriginToBottomUp(int origin) {
    if (origin != 0 && origin != 1) DQThrow(kDQErrBadArgument);
    return origin == 1 ? 0 : 1;
}

int ZUImageBottomUpToOrigin(int bottomUp) {
    return bottomUp ? 0 : 1;
}

int ZUImageReset(ZUImage* image) {
    image->ownsInternal = 0;
    delete image->internal;
    image->internal = nullptr;
    try {
        image->internal = new ZUImageInternal();
    } catch (DQErr) {
        return 1;
    }
    image->ownsInternal = 1;
    return 0;
}

namespace {
struct Layout {
    int channels;
    int hasAlpha;
    int straight;
    int red, green, blue, alpha;
};

int Init(ZUImage* image, void* pixels, int width, int height, int rowBytes, int origin,
         int pixelType, const Layout& layout) {
    if (!image->internal) return kDQErrBadArgument;
    ZUImageInternal* bridge = image->internal;
    bridge->Rebind(pixels, width, height, rowBytes, layout.channels,
                   ZUImagePixelTypeToDataType(pixelType), ZUImageOriginToBottomUp(origin));
    bridge->hasAlpha = layout.hasAlpha;
    bridge->straightFlag = layout.straight;
    bridge->redIndex = layout.red;
    bridge->greenIndex = layout.green;
    bridge->blueIndex = layout.blue;
    bridge->alphaIndex = layout.alpha;
    ZUImageSyncFields(image, origin, pixelType);
    return 0;
}
} // namespace

int ZUImageInitGray(ZUImage* image, void* pixels, int width, int height, int rowBytes, int origin,
                    int pixelType) {
    return Init(image, pixels, width, height, rowBytes, origin, pixelType, {1, 0, 1, 0, 0, 0, 0});
}

int ZUImageInitTwoChannel(ZUImage* image, void* pixels, int width, int height, int rowBytes,
                          int origin, int pixelType) {
    return Init(image, pixels, width, height, rowBytes, origin, pixelType, {2, 0, 1, 0, 1, 0, 0});
}

int ZUImageInitRGB(ZUImage* image, void* pixels, int width, int height, int rowBytes, int origin,
                   int pixelType) {
    return Init(image, pixels, width, height, rowBytes, origin, pixelType, {3, 0, 1, 0, 1, 2, 0});
}

int ZUImageInitRGBA(ZUImage* image, void* pixels, int width, int height, int rowBytes, int origin,
                    int pixelType, int hasAlpha, int straight, int redIndex, int greenIndex,
                    int blueIndex, int alphaIndex) {
    return Init(image, pixels, width, height, rowBytes, origin, pixelType,
                {4, hasAlpha == 1 ? 1 : 0, straight == 1 ? 1 : 0, redIndex, greenIndex, blueIndex,
                 alphaIndex});
}

void ZUImageSyncFields(ZUImage* image, int origin, int pixelType) {
    const ZUImageInternal* bridge = image->internal;
    if (!bridge) DQThrow(kDQErrBadArgument);
    image->pixelBytes = bridge->pixelBytes;
    image->rowBytes = bridge->rowBytes;
    image->rowStep = bridge->rowStep;
    image->data = bridge->data;
    image->lastRow = bridge->lastRow;
    image->lastColumn = bridge->lastColumn;
    image->height = bridge->height;
    image->width = bridge->width;
    image->origin = origin;
    image->pixelType = pixelType;
}

void ZUImageFromDQImage(ZUImage* image, DQImage* source) {
    if (image->ownsInternal == 1) delete image->internal;
    image->ownsInternal = 0;
    // The source itself is borrowed as the bridge. A plain DQImage has no room for the colour
    // layout, so it gets a bridge of its own that views the same pixels.
    if (auto* bridge = dynamic_cast<ZUImageInternal*>(source)) {
        image->internal = bridge;
    } else {
        image->internal = new ZUImageInternal(*source);
        image->ownsInternal = 1;
    }
    const int pixelType = ZUImageDataTypeToPixelType(source->dataType);
    const int origin = ZUImageBottomUpToOrigin(source->bottomUp);
    void* pixels = source->data;
    const int w = source->width, h = source->height, rb = source->rowBytes;
    switch (source->channels) {
    case 1:
        ZUImageInitGray(image, pixels, w, h, rb, origin, pixelType);
        break;
    case 2:
        ZUImageInitTwoChannel(image, pixels, w, h, rb, origin, pixelType);
        break;
    case 3:
        ZUImageInitRGB(image, pixels, w, h, rb, origin, pixelType);
        break;
    case 4:
        ZUImageInitRGBA(image, pixels, w, h, rb, origin, pixelType, 1, 1, 0, 1, 2, 3);
        break;
    default:
        break;
    }
}
