#pragma once
// Two multi-mode mixes of frames a and b by their flows, at t, the share of a: the inverse-warp
// form and the form for 8-bit frames that warps with a zoom kernel and can mix band by band.
// Neither is on a road of the render; `quelmor dissolve` uses the second for transitions.
//
// flowA is the flow at a leading to b, flowB the flow at b leading to a; either may be smaller
// than the frames. The outer border (first and last row and column) of each given flow is set to
// 0 first. t below 0.002 or above 0.998 takes mode 0.
#include "image/DQImage.h"

enum DQFlowDissolveMode {
    kDQDissolveNearest = 0,    // a copy of the nearer frame: b when t < 0.5, else a
    kDQDissolveWarpNearer = 1, // only the nearer frame, warped to the moment
    kDQDissolvePlain = 2,      // a t + b (1 - t), no motion
    kDQDissolveWarpBoth = 3,   // both frames warped to the moment, then dissolved
    kDQDissolveMode4 = 4, // inverse form: nothing; 8-bit form: warped, mixed by where each lands
    kDQDissolveMode5 = 5, // inverse form: weighted energy blend; 8-bit form: band by band
    kDQDissolveMode6 = 6, // sharpened where they differ, then dissolved; 8-bit: bands, no warp
};

// The inverse-warp form. Both flows null with a mode other than 0, 2 and 6 prints
// "DQFlowDissolveInv what?" and leaves dest. Mode 1 with the needed flow null leaves dest; in
// mode 3 a missing flow leaves its frame unwarped.
void DQFlowDissolveInv(DQImage* dest, DQImage* a, DQImage* flowA, DQImage* b, DQImage* flowB,
                       int mode, float t);

// The 8-bit form: warps go through DQFlowGuidedZoom with the Lanczos kernel at scale 1. Frames
// of another element type print "DQFlowDissolve only supports unsigned char" and both flows null
// with a mode other than 0 print "DQFlowDissolve what?"; both leave dest.
//   Mode 4: each warped frame counts by t (a) or 1 - t (b) times a mark of where its warp read
//   from inside its frame, blurred by a Gaussian of radius 4; where neither landed, a plain mix.
//   Mode 5: the same weight per pixel, as an 8-bit image, mixes Laplacian pyramids of the two
//   warped frames through its Gaussian pyramid, so edges of the warps blend over every band.
//   Mode 6: Laplacian pyramids of the unwarped frames crossed band by band at t along the step
//   curves of a step pyramid on the smaller side.
void DQFlowDissolve(DQImage* dest, DQImage* a, DQImage* flowA, DQImage* b, DQImage* flowB, int mode,
                    float t);
