#pragma once
// The flow of the opposite direction, derived from a flow by warping it along itself.
#include "image/DQImage.h"
#include "image/Progress.h"

// `source` leads from each pixel of one image to the matching place in the other; `target`
// becomes the flow back. Every corner (x, y) of the source's grid is moved to (x + u, y + v) and
// carries (-u, -v); the two triangles of every cell are drawn into `target` with those values
// interpolated over them and averaged where they overlap. `scratch` counts the writes and ends as
// the hole mask: 255 where nothing was drawn, 0 elsewhere; the holes of `target` are then filled
// from their surroundings. Target and source are two-channel float flows and scratch a one-channel
// 8-bit image, all of one size; otherwise a message goes to the standard error stream and nothing
// is changed. An interruption of `progress` throws DQErr 6.
void DQInvertFlow(DQImage* target, DQImage* source, DQImage* scratch,
                  ZUIdleAndProgressClass* progress);
