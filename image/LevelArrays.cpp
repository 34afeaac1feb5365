#include "image/LevelArrays.h"

DQImage** DQNewLevelArray(int count) {
    auto** levels = static_cast<DQImage**>(ZUMemAllocate(sizeof(DQImage*) * size_t(count)));
    for (int i = 0; i < count; ++i)
        levels[i] = nullptr;
    return levels;
}

void DQReleaseLevelArray(DQImage**& levels, int count) {
    if (!levels) return;
    for (int i = 0; i < count; ++i)
        delete levels[i];
    ZUMemRelease(levels);
    levels = nullptr;
}

DQImage* DQNewLevelImage(int width, int height, int channels) {
    auto* image = new DQImage(0, width, height, channels, DQ_FLOAT, 0);
    if (image->errorCode != 0) {
        const int code = image->errorCode;
        delete image;
        DQThrow(code);
    }
    return image;
}
