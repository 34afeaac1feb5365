#pragma once
// A mip map: level 0 is the image at full size, each further level about half of the one before,
// made by smoothing and a bilinear resize. The filtered forms of the warps read it.
#include "image/DQImage.h"
#include "image/Mem.h"

#include <cstdint>

class DQMipMap : public ZUMem {
public:
    // Builds all levels from `source`. With `shareSource` 1 and a source of at least the minimum
    // size (3 with `gaussian`, else 2) level 0 is `source` itself; otherwise level 0 is a copy.
    // `gaussian` smooths each level with a Gaussian of radius 7, otherwise with Blur5. A failure
    // leaves `levels` null and the code in `errorCode`, and is thrown when `throwOnFailure` is 1.
    DQMipMap(DQImage* source, int throwOnFailure, int shareSource, int gaussian);
    // Wraps given images in views owned by the map; the pixels stay the caller's.
    DQMipMap(int levelCount, DQImage** images);
    // Wraps the levels of another map in views, likewise.
    explicit DQMipMap(const DQMipMap* other);
    // Takes a ready array of levels and owns nothing.
    DQMipMap(DQImage** levels, int levelCount);
    virtual ~DQMipMap();

    DQMipMap(const DQMipMap&) = delete;
    DQMipMap& operator=(const DQMipMap&) = delete;

    int32_t levelCount = 0;
    DQImage** levels = nullptr;
    int32_t width = 0;
    int32_t height = 0;
    int32_t lastColumn = 0;
    int32_t lastRow = 0;
    int32_t ownsLevels = 0;
    int32_t ownsLevelZero = 0;
    int32_t errorCode = 0;

private:
    void WrapViews(int count, DQImage* const* images);
    void ReleaseLevels();
};
