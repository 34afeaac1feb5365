#pragma once
// Mixes of two images of the same layout.

#include "image/Image.h"

// In place: dest = other + (dest - other) k, k may lie outside 0..1. `lines` 1 walks all rows,
// 2 rows 0, 2, 4, ..., 3 rows 1, 3, 5, .... Four channels mix premultiplied colour with alpha
// limits. Returns 0 and changes nothing when the images disagree in layout or have other than 3
// or 4 channels. Three 8-bit channels use a process-wide table: not for two threads at once.
[[nodiscard]] int DQBlend(DQImage* dest, const DQImage* other, int lines, float k);
// The same on all rows, in row bands, without the shared table.
[[nodiscard]] int DQBlendParallel(DQImage* dest, const DQImage* other, float k);

// dest = a (1 - t) + b t. Near 0 or 1 a plain copy; four-channel extrapolation goes through
// DQBlend so that colours stay within alpha.
void Dissolve(DQImage* dest, const DQImage* a, const DQImage* b, float t);
