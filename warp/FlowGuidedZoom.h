#pragma once
// An inverse warp that samples with a zoom kernel instead of bilinearly: every destination pixel
// (x, y) is read from `source` at (x, y) plus `scale` times the flow there, by the separable
// kernel at scale 1: the pixels within its radius, weighted by the kernel at their distances (the
// position taken to 1/1024 of a pixel) and normalised. Positions
// outside the source read its nearest edge; `landed`, when given (one float channel of the
// images' size), is 1 where the position fell inside the source and 0 where it did not.
#include "image/DQImage.h"
#include "warp/Zoom.h"

// The flow (two float channels) may be smaller than the images: it is read bilinearly through
// the ratio of (size - 1), and its vectors scaled by the same ratio. Images of other layouts,
// element types other than 8-bit, 16-bit or float, a kernel radius above 7.5, or `dest` the
// same image as `source` throw DQErr 5.
void DQFlowGuidedZoom(DQImage* dest, const DQImage* source, const DQImage* flow, float scale,
                      const DQZoomFilter& filter, DQImage* landed);
