#pragma once
// The two steps between neighbouring levels of every multi-resolution image in the system. Level
// sizes need not be exact halves: both steps map the first and last pixels of a row (and column)
// of one level onto those of the other, so positions scale by the ratio of (size - 1).
#include "image/DQImage.h"

// One step down: smooths `source` in place with the five-tap binomial filter, then resizes it
// bilinearly into `target`. Callers that must keep `source` pass a copy, or use the form below.
void ReduceStep(DQImage* target, DQImage* source);
// The same, leaving `source` as it is: it is copied into `scratch` (same size, type and channels),
// which is smoothed and resized instead.
void ReduceStep(DQImage* target, const DQImage* source, DQImage* scratch);

// One step up: the bilinear mapping of a coarse level onto the next finer one, values unscaled.
// Both images must be float with the same channel count; otherwise DQErr 5 is thrown and `target`
// is left as it was.
void ExpandLevel(DQImage* target, const DQImage* source);
