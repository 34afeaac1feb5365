#pragma once
// Moving pixels along vectors, and the filters, mip maps and tables under them.
#include "image/DQImage.h"
#include "image/Progress.h"
#include "warp/Filters.h"
#include "warp/LirpedTable.h"
#include "warp/MipMap.h"
#include "warp/VoronoiFill.h"

// Pulls every destination pixel (x, y) from `source` at (x, y) plus `scale` times the flow at
// (x, y). The flow (two float channels) may be smaller than the images; it is read through the
// ratio of last columns and last rows. With `extendEdges` positions outside the source are
// shortened along their own vector to its edge; without, pixels that leave the source fade out
// and `weight` (optional, one 8-bit channel) says how much of each pixel came from inside.
// `filterMode` 1 samples bilinearly; any other value samples a mip map at a per-pixel level of
// detail (2 without bias, others with a bias of half a level). Returns 1 when done and 0, with a
// message on the standard error stream and nothing written, when the inputs do not fit.
int DQWarpInverse(DQImage* dest, DQImage* source, DQImage* flow, int extendEdges, DQImage* weight,
                  int filterMode, float scale);

// Shortens the displacement from the pixel (x, y) to (sx, sy) along its own line until its end
// lies inside 0..lastColumn, 0..lastRow.
void ClipToImage(float& sx, float& sy, float x, float y, float lastColumn, float lastRow);

// Smears each pixel of `source` along its vector into `dest`: the mean of samples on a line
// through the pixel, `shutter` times the vector long, cut short at the image edge. The region
// form writes only columns firstColumn..lastColumn of rows firstRow..lastRow. Mismatched images
// or an unsupported element type throw DQErr 5.
void DQBlurAlongFlow(DQImage* dest, DQImage* source, DQImage* flow, int filtered,
                     ZUIdleAndProgressClass* progress, int options, float shutter);
void DQBlurAlongFlow(DQImage* dest, DQImage* source, DQImage* flow, int firstColumn, int lastColumn,
                     int firstRow, int lastRow, int filtered, ZUIdleAndProgressClass* progress,
                     int options, float shutter);
