#pragma once
// The image descriptor that crosses the engine's interface, and the bridge that lets the library
// reach the DQImage behind any ZUImage without a copy.
#include "image/DQImage.h"

#include <cstdint>

// A DQImage that views the pixels of a ZUImage, with the colour layout it was set up with.
class ZUImageInternal : public DQImage {
public:
    ZUImageInternal() : DQImage(0, 0) {}
    // Views the pixels of `other` with its layout.
    explicit ZUImageInternal(const DQImage& other);
    ZUImageInternal(const DQImage& other, int bottomUp);
    ~ZUImageInternal() override = default;

    int32_t hasAlpha = 0;
    int32_t straightFlag = 0;
    int32_t redIndex = 0;
    int32_t greenIndex = 0;
    int32_t blueIndex = 0;
    int32_t alphaIndex = 0;
};

// Public descriptor: pointer, size, pitch, pixel type and origin, as any host could fill it.
// It never allocates or frees pixels.
class ZUImage : public ZUMem {
public:
    ZUImage() = default;
    virtual ~ZUImage();
    ZUImage(const ZUImage&) = delete;
    ZUImage& operator=(const ZUImage&) = delete;

    int pixelBytes = 0;
    int rowBytes = 0;
    int rowStep = 0;
    uint8_t* data = nullptr;
    int origin = 0; // 1: row 0 first in memory; 0: row 0 last
    int lastRow = 0;
    int lastColumn = 0;
    int height = 0;
    int width = 0;
    int pixelType = 0; // 0: 8 bits, 1: 16 bits, 2: float
    ZUImageInternal* internal = nullptr;
    uint8_t ownsInternal = 0;
};

// Public pixel type and origin to and from the library's element type and storage order.
int ZUImagePixelTypeToDataType(int pixelType);
int ZUImageDataTypeToPixelType(int dataType);
int ZUImageOriginToBottomUp(int origin);
int ZUImageBottomUpToOrigin(int bottomUp);

// Gives the image a fresh bridge object it owns. Returns 0, or 1 when it cannot be allocated.
int ZUImageReset(ZUImage* image);

// Initialisers: re-point the bridge at the pixels and refresh the public copies. 5 without a
// bridge.
int ZUImageInitGray(ZUImage* image, void* pixels, int width, int height, int rowBytes, int origin,
                    int pixelType);
int ZUImageInitTwoChannel(ZUImage* image, void* pixels, int width, int height, int rowBytes,
                          int origin, int pixelType);
int ZUImageInitRGB(ZUImage* image, void* pixels, int width, int height, int rowBytes, int origin,
                   int pixelType);
int ZUImageInitRGBA(ZUImage* image, void* pixels, int width, int height, int rowBytes, int origin,
                    int pixelType, int hasAlpha, int straight, int redIndex, int greenIndex,
                    int blueIndex, int alphaIndex);

// Copies the bridge's fields into the descriptor; throws DQErr 5 without a bridge.
void ZUImageSyncFields(ZUImage* image, int origin, int pixelType);

// Wraps an existing DQImage, which the descriptor then borrows as its bridge.
void ZUImageFromDQImage(ZUImage* image, DQImage* source);

// The DQImage behind a descriptor: null for a null image, a missing bridge, or a zero size.
inline DQImage* ZUImageGetDQImage(const ZUImage* image) {
    if (!image || !image->internal || image->width == 0 || image->height == 0) return nullptr;
    return image->internal;
}
