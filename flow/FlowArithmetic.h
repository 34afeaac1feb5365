#pragma once
// Small operations on flow images: adding two flows, composing one flow with another, and turning
// a four-channel vector image (as a renderer or another tool hands it over) into a float flow.
//
// A flow image has two channels, x then y, in pixels of the flow image itself; at pixel (x, y) of
// the image on whose grid it lies it leads to the matching place in the other image. Float flow is
// what the engine computes and warps; short flow (16-bit words around 32767 scaled by `range`, the
// larger side) is the stored form.
//
// Every refusal prints one line on the standard error stream, throws nothing and leaves the target
// as it was.
#include "image/DQImage.h"

// Adds `source` into `target` at the same positions, on the calling thread. Refused ("can't add two
// flows together") when the sizes differ, either image has fewer than two channels, or both are
// short flow. A short-flow source is added into the first two 16-bit words of each target pixel,
// which are read and written as short flow with the range of the target; any other source is added
// as floats into the target's two float channels.
void AddFlows(DQImage* target, DQImage* source);

// The target becomes its own flow followed by `source`: at each pixel with vector d, d gains the
// vector of `source` at (x, y) + d, unless that place lies outside the target. Both are two-channel
// images of one type, short or float, and `source` is not `target`. Float flows may differ in size:
// the place is scaled to the source by the ratio of the last indices, the sample back by its
// inverse. Short flows must have one size, at least 2 x 2. Runs in row bands.
void ComposeFlows(DQImage* target, DQImage* source);

// The float composition without the test of the place: negative coordinates are raised to 0, an x
// at or past the width becomes the width, a y at or past the height replaces x by the height, and
// the sample is taken with the edges held, as ResizeBilinear holds them. Both are two-channel float
// flows of at least 2 x 2. Runs in row bands.
void ComposeFloatFlows(DQImage* target, DQImage* source);

// Fills the two-channel float `flow` from a four-channel `vectors` image of its size, with alpha in
// channel 3 telling where a vector is given. 8-bit and 16-bit images code each component around the
// middle of their range: v = (2 c / m - 1) scale, m = 254 or 65534. A float image holds the vectors
// themselves: v = c scale. Where alpha is 0 the flow is filled smoothly from the given vectors
// around it. Images that do not fit are left alone. Throws DQErr 1 when memory runs out.
void ConvertVectorImage(DQImage* flow, DQImage* vectors, float scale);
