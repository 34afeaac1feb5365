#pragma once
// The pieces of "Weighted Energy Blend": a mask of where two pictures differ, a mix through a
// mask, and the unsharp step that restores detail in the parts of a warped frame that moved.

#include "image/Image.h"

// Mode 1 (the only one built): clears `mask` (one 8-bit channel), then sets 255 where the first
// three channels of a and b differ by at least whitePoint x level^3 x 3 in sum. `lines` 1 walks
// all rows; 2 and 3 every second row from the last upward, 3 beginning one row higher. Returns
// 0, or 5 for images that do not fit or another mode.
int DifferenceMask(DQImage* mask, const DQImage* a, const DQImage* b, int mode, int lines,
                   float level);

// dest = dest w + other (1 - w), with w running from `zero` at mask 0 to `one` at mask 255.
void MixThroughMask(DQImage* dest, const DQImage* other, const DQImage* mask, int one, int zero);

// Sharpens the parts of `warped` that differ from `source`, the frame it was warped from, by an
// unsharp mask whose strength peaks when the frame was moved half an interval (`amount` 0.5).
void SharpenWarpedFrame(DQImage* warped, const DQImage* source, float amount);

// "Weighted Energy Blend" with inverse warps: a is pulled towards the moment with flowBtoA and b
// with flowAtoB (a missing flow leaves its frame as it is), each warped frame is sharpened where
// it moved, and the two are dissolved by the share of b, 1 - weightA. scratchA and scratchB, when
// given, hold the warped frames; otherwise images like a and b are made for the call. Without
// flows the result is a plain dissolve.
void EnergyBlendInverse(DQImage* dest, DQImage* a, DQImage* flowAtoB, DQImage* b, DQImage* flowBtoA,
                        DQImage* scratchA, DQImage* scratchB, float weightA);

// "Weighted Energy Blend" for "Inverse + Smart Blend": the warps fade what leaves the picture and
// record in maskA and maskB (one 8-bit channel of the frames' size) how much of each pixel they
// covered; the sharpened frames are mixed by SmartBlend, and what neither covered takes the colour
// of the nearest covered pixel. On return maskA holds 255 where neither frame covered a pixel (the
// pixels filled) and maskB the coverage of b. Null masks are made for the call.
void EnergyBlendInverseMasked(DQImage* dest, DQImage* a, DQImage* flowAtoB, DQImage* b,
                              DQImage* flowBtoA, DQImage* scratchA, DQImage* scratchB,
                              DQImage* maskA, DQImage* maskB, float weightA);

// "Weighted Energy Blend" with forward warps: a is pushed along its own flow, flowAtoB, by
// 1 - weightA, and b along flowBtoA by weightA; each warped frame is sharpened where it moved.
// With masks, the warps record in maskA and maskB where they landed, the frames are mixed by
// SmartBlend and what neither reached takes the colour of the nearest pixel that one did; on
// return maskA holds 255 where that was done. Without masks (both null) the holes stay empty and
// the frames are dissolved. A missing flow leaves the frame that would be pushed by it as it is
// (the flows come in pairs: A needs flowAtoB, B flowBtoA). scratchA and scratchB, when given,
// hold the warped frames. The forward warp takes four-channel frames only; others throw DQErr 5.
void EnergyBlendForward(DQImage* dest, DQImage* a, DQImage* flowAtoB, DQImage* b, DQImage* flowBtoA,
                        DQImage* scratchA, DQImage* scratchB, DQImage* maskA, DQImage* maskB,
                        ZUIdleAndProgressClass* progress, float weightA);
