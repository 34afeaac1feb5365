#pragma once
// Pushing the pixels of an image along their own vectors.
#include "image/DQImage.h"
#include "image/Progress.h"

// Treats `source` as a mesh whose vertices are its pixels, each moved by `scale` times its
// vector, and draws the two triangles of every cell of four neighbouring pixels into `dest` with
// the colours interpolated over them. Where triangles overlap, their colours are averaged; where
// none lands, `dest` is 0 in all channels and `weight` (optional, one 8-bit channel of the size of
// `dest`) is 0, elsewhere 255. Without a `weight`, fully transparent margins of the source are not
// meshed. `dest` and `source` have one element type and four channels; the flow (two float
// channels) may be smaller than the source and is read through the ratio of last columns and last
// rows. A scale near 0 or a flow without motion copies the source.
//
// The results do not depend on the worker count: each worker draws the target rows of its own
// band, in the order of the whole walk, so every pixel sees its colours in the same order.
//
// The mesh is walked with one vertex per pixel, rows and columns ascending, two triangles per
// cell, one sample per pixel and bilinear reads of the source: `fixedOrder`, `samples`,
// `meshStep`, `columnsAscending`, `rowsAscending`, `rowMajor`, `plainCells` and `filterMode`
// must be 1 and `sourceMask` null; other values are refused. `enlarged` matters only with more
// than one sample. Returns 1 when done and 0, with a message on the standard error stream and
// nothing written, when the inputs or options are refused. An interruption of `progress` throws
// DQErr 6.
int DQWarpForward(DQImage* dest, DQImage* source, DQImage* flow, int fixedOrder, int samples,
                  int meshStep, int columnsAscending, int rowsAscending, int rowMajor,
                  int plainCells, ZUIdleAndProgressClass* progress, DQImage* weight, bool enlarged,
                  int filterMode, DQImage* sourceMask, float scale);

// The form every caller of the retime uses: all options at 1, no source mask.
inline int DQWarpForward(DQImage* dest, DQImage* source, DQImage* flow,
                         ZUIdleAndProgressClass* progress, DQImage* weight, float scale) {
    return DQWarpForward(dest, source, flow, 1, 1, 1, 1, 1, 1, 1, progress, weight, true, 1,
                         nullptr, scale);
}
