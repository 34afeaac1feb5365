#pragma once
// The per-level image arrays that the pyramid objects allocate once, in their constructors: an
// array of null pointers, float images whose failure is thrown, and the release of both.
#include "image/DQImage.h"

// An array of `count` null level pointers, from the process-wide allocator.
DQImage** DQNewLevelArray(int count);

// Deletes every level of the array and the array itself, and nulls the pointer; a null array is
// left alone.
void DQReleaseLevelArray(DQImage**& levels, int count);

// A float level image of `channels` channels; its construction failure is thrown as DQErr. The
// pixels are not cleared.
DQImage* DQNewLevelImage(int width, int height, int channels);

// A size halved `reduction` times, as a pyramid's level 0 takes its input size.
inline int DQReducedSize(int size, int reduction) {
    for (int i = 0; i < reduction; ++i)
        size /= 2;
    return size;
}

// The size of the next coarser level: halved, held at 2.
inline int DQNextLevelSize(int size) {
    return size / 2 < 2 ? 2 : size / 2;
}
