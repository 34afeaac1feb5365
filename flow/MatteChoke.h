#pragma once
// Shrinking and growing a soft matte by a fractional number of pixels. The matte is smoothed by a
// Gaussian and cut at the level that the smoothed straight edge has r pixels inside the matte, so
// the edge moves inward by r and keeps its softness. Fractions mix the two neighbouring whole
// steps.
#include "image/DQImage.h"

// In place on a one-channel float matte: amount > 0 shrinks by that many pixels, amount < 0
// grows, 0 only limits every value to 0..1. Any image but a one-channel float one gets a
// message on the standard error stream and is left as it is.
void DQMatteChoke(DQImage* matte, float amount);

// One whole (or, after the caller's split, floor or ceiling) step of the choke: smooths the
// matte and re-cuts it r pixels inside its edge. r 0 does nothing.
void ChokeStep(DQImage* matte, double r);
