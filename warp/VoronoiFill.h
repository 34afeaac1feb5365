#pragma once
// Filling holes with the colour of the nearest pixel that is not a hole, so that every valid pixel
// spreads over its Voronoi cell. The nearest valid pixel is found by sweeping an image of seed
// coordinates in four raster directions (no queue, no search): a fixed number of passes whatever
// the size of the holes.
#include "image/DQImage.h"

// Fills `image` (8-bit, 16-bit or float, any channel count) in place where `mask` is non-zero.
// `mask` has one channel of 8 bits, 16 bits or float and the size of `image`; its zero pixels are
// the seeds. A hole that no seed reaches (a mask non-zero everywhere) keeps its value. A mask of
// another size or channel count prints "input problem in DQVoronoiFill\n" on the standard error
// stream and changes nothing; a mask or image of another element type changes nothing. Images of
// more than 65535 pixels a side, whose coordinates do not fit the seed image, are refused with a
// message and DQErr 5, the image unchanged. A failed allocation throws DQErr 1, the image
// unchanged.
void DQVoronoiFill(DQImage* image, DQImage* mask);

// The steps of the fill. `nearest` and `pass` are two-channel 16-bit images of the mask's size
// holding at each pixel the coordinates of the nearest seed found; (65535, 65535) means none.
// DQVoronoiPropagate fills `nearest` from the mask by four sweeps, each from a blank pass image,
// merged by DQVoronoiMerge; DQVoronoiApply copies each pixel's seed colour into it.
void DQVoronoiPropagate(DQImage* nearest, DQImage* mask);
void DQVoronoiApply(DQImage* image, DQImage* nearest);
// Keeps, per pixel, the seed of `pass` where it lies strictly closer than that of `nearest`.
void DQVoronoiMerge(DQImage* nearest, DQImage* pass);

// Largest width or height the fill accepts.
inline constexpr int kDQVoronoiMaxSide = 65535;
