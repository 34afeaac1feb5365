#include "warp/MipMap.h"

#include "image/LevelArrays.h"
#include "warp/Filters.h"

#include <algorithm>

namespace {

// A new owned image, or its construction error thrown once the object is gone.
DQImage* NewImage(int width, int height, int channels, int dataType, int bottomUp) {
    DQImagePtr image = DQMakeImage(width, height, channels, dataType, bottomUp);
    return image.release();
}

} // namespace

DQMipMap::DQMipMap(DQImage* source, int throwOnFailure, int shareSource, int gaussian) {
    const int minSize = gaussian ? 3 : 2;
    ownsLevels = 1;
    ownsLevelZero = shareSource != 1 ? 1 : 0;
    levelCount = 1;
    int a = std::max(source->width, minSize);
    int b = std::max(source->height, minSize);
    width = a;
    height = b;
    lastColumn = width - 1;
    lastRow = height - 1;
    for (;;) {
        a = a >> 1;
        b = b / 2;
        if (a < minSize || b < minSize) break;
        ++levelCount;
    }
    try {
        levels = DQNewLevelArray(levelCount);
        if (shareSource == 1 && source->width >= minSize && source->height >= minSize) {
            levels[0] = source;
        } else {
            ownsLevelZero = 1;
            levels[0] = NewImage(source->width, source->height, source->channels, source->dataType,
                                 source->bottomUp);
            levels[0]->CopyFrom(0, 0, source, 0, 0, source->width, source->height);
        }
        for (int i = 1; i < levelCount; ++i) {
            const DQImage* previous = levels[i - 1];
            DQImagePtr smoothed = DQMakeImage(previous->width, previous->height, previous->channels,
                                              previous->dataType, 0);
            smoothed->CopyFrom(0, 0, previous, 0, 0, previous->width, previous->height);
            levels[i] = NewImage(std::max(previous->width >> 1, minSize),
                                 std::max(previous->height / 2, minSize), previous->channels,
                                 previous->dataType, previous->bottomUp);
            if (gaussian)
                BlurGauss(smoothed.get(), 0, 7.0f);
            else
                Blur5(smoothed.get());
            ResizeBilinear(levels[i], smoothed.get());
        }
    } catch (DQErr code) {
        ReleaseLevels();
        errorCode = code;
        if (throwOnFailure == 1) DQThrow(code);
    }
}

DQMipMap::DQMipMap(int count, DQImage** images) {
    WrapViews(count, images);
}

DQMipMap::DQMipMap(const DQMipMap* other) {
    WrapViews(other->levelCount, other->levels);
}

DQMipMap::DQMipMap(DQImage** ready, int count) : levelCount(count), levels(ready) {
    if (count > 0 && ready && ready[0]) {
        width = ready[0]->width;
        height = ready[0]->height;
        lastColumn = width - 1;
        lastRow = height - 1;
    }
}

void DQMipMap::WrapViews(int count, DQImage* const* images) {
    ownsLevels = 1;
    ownsLevelZero = 1;
    levelCount = count;
    try {
        levels = DQNewLevelArray(std::max(count, 1));
        for (int i = 0; i < count; ++i) {
            const DQImage* image = images[i];
            levels[i] = new DQImage(image->data, image->width, image->height, image->rowBytes,
                                    image->channels, image->dataType, image->bottomUp);
        }
    } catch (DQErr code) {
        ReleaseLevels();
        errorCode = code;
        return;
    }
    if (count > 0) {
        width = levels[0]->width;
        height = levels[0]->height;
        lastColumn = width - 1;
        lastRow = height - 1;
    }
}

void DQMipMap::ReleaseLevels() {
    if (levels && ownsLevels) {
        for (int i = 0; i < levelCount; ++i) {
            if (i == 0 && !ownsLevelZero) continue;
            delete levels[i];
        }
        ZUMemRelease(levels);
    }
    levels = nullptr;
}

DQMipMap::~DQMipMap() {
    ReleaseLevels();
}
