#pragma once
// FillHoles restricted to what the holes can reach. Every level of the coarse-to-fine fill is
// computed only in the rows and columns that the next finer level reads: around the holes of level
// 0 within the radius of the smoothing, at the coarser levels under the footprint of the expand
// of the pixels that have no weight of their own, and the value pyramid only where those levels
// read it. The arithmetic of each computed pixel is that of the whole-frame filters and resizes,
// in the same order, so the values are the same.
#include "image/DQImage.h"

class ZUIdleAndProgressClass;

// The pixels that one channel of a fill computes: those whose fill is formed at level 0 and at
// all levels together.
struct DQFillReach {
    long long levelZero = 0;
    long long allLevels = 0;
};

// Fills `image` where `holes` is non-zero. The caller has checked the arguments (sizes, types,
// one-channel holes and `needed`) and that there is at least one hole. Errors as for FillHoles;
// the image is written only once every channel has been filled. `reach`, when given, receives
// what was computed.
//
// With `needed` (one channel, the image's size) the fill starts from the holes where `needed` is
// non-zero instead of from every hole: those pixels get the values of the whole fill, and holes
// away from them may keep their old values. With few needed holes among many this is the cheaper
// form; with none, an integer image is left as it was without building the pyramids.
void FillHolesNearHoles(DQImage* image, DQImage* holes, ZUIdleAndProgressClass* progress,
                        const DQImage* needed = nullptr, DQFillReach* reach = nullptr);
