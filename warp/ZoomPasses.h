#pragma once
// The two passes of the zoom over prepared contribution tables. The driver (warp/Zoom.cpp) builds
// the tables and the buffers; the passes only read and write pixels, in row bands.
#include "image/DQImage.h"

#include <cstddef>
#include <cstdint>

// For each output coordinate o of a pass: count[o] taps, whose input offsets (pixel index times
// channels for the pass along rows, row index for the pass down columns) and weights stand at
// offset[o * stride + t] and weight[o * stride + t], in the order they are summed.
struct DQZoomTable {
    const int32_t* count = nullptr;
    const int32_t* offset = nullptr;
    const float* weight = nullptr;
    int32_t stride = 0;
    int32_t outputs = 0;
};

// Float lines for the bands of a pass: band b uses `floats` floats at data + b * floats.
struct DQZoomLines {
    float* data = nullptr;
    size_t floats = 0;
};

// Rows of `source` into the rows of `dest` (same height, element type and channels; the width
// that of the table's outputs). Each sum is limited to 0 .. 255 and stored in the element type.
void DQZoomAlongRows(DQImage* dest, const DQImage* source, const DQZoomTable& table,
                     const DQZoomLines& lines, int bands);
// Columns of `source` into `dest` (same width, element type and channels; the height that of the
// table's outputs), limited and stored the same way.
void DQZoomDownColumns(DQImage* dest, const DQImage* source, const DQZoomTable& table,
                       const DQZoomLines& lines, int bands);
