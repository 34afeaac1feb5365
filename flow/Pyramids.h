#pragma once
// Multi-resolution images of one float channel: the Laplacian pyramid that splits a channel into
// frequency bands and adds them back, its plain low-pass form, and the per-band soft step curve
// with which two Laplacian pyramids are cross-faded band by band, each band at its own weight.
//
// Level 0 is the finest. Each level is the one before halved by integer division; levels are
// added while both halves stay above 9, so the coarsest level keeps at least 10 pixels a side.
#include "image/DQImage.h"
#include "image/Mem.h"

#include <cstdint>

// Number of levels of a pyramid over `width` x `height` (a step pyramid passes its width twice).
int PyramidLevelCount(int width, int height);

class LaplacePyramid : public ZUMem {
public:
    static constexpr int kMaxLevels = 32;

    // Allocates every level. Sizes below 1 throw DQErr 5; a failed allocation releases what was
    // made and throws DQErr 1.
    LaplacePyramid(int width, int height);
    virtual ~LaplacePyramid();
    LaplacePyramid(const LaplacePyramid&) = delete;
    LaplacePyramid& operator=(const LaplacePyramid&) = delete;

    // Fills the levels from one channel of an 8-bit or 16-bit image of the pyramid's size, its
    // values unscaled: every level but the last holds the detail between its level and the next,
    // the last the low-pass remainder. Any other image prints "can't make laplacian pyramid".
    void Build(DQImage* image, int channel);
    // Adds the levels back up into one channel: each pixel is limited to the element range,
    // rounded and stored. The levels are used up in the process. Same refusals as Build.
    void Collapse(DQImage* image, int channel);

    DQImage* levels[kMaxLevels] = {};
    int32_t numLevels = 0;
    int32_t width = 0;
    int32_t height = 0;
};

class GaussPyramid : public ZUMem {
public:
    static constexpr int kMaxLevels = LaplacePyramid::kMaxLevels;

    // As for LaplacePyramid; a failed allocation throws the image's error code.
    GaussPyramid(int width, int height);
    virtual ~GaussPyramid();
    GaussPyramid(const GaussPyramid&) = delete;
    GaussPyramid& operator=(const GaussPyramid&) = delete;

    // Level 0 takes the channel's values, each further level the one before reduced. An image of
    // another size prints "can't make laplacian pyramid"; one of another element type than 8 or 16
    // bits is ignored.
    void Build(DQImage* image, int channel);

    DQImage* levels[kMaxLevels] = {};
    int32_t numLevels = 0;
    int32_t width = 0;
    int32_t height = 0;
};

// Per level, one row holding a smooth rising curve from 0 to 1: the step at the middle of the
// row, smoothed by a box of radius 5 and a Gaussian of half the row's width, then stretched onto
// 0..1. Coarser levels hold the same shape on a shorter row.
class GaussStepOneDPyramid : public ZUMem {
public:
    static constexpr int kMaxLevels = LaplacePyramid::kMaxLevels;

    // Allocates and fills every level. A width below 1 throws DQErr 5; a failed allocation
    // throws the image's error code.
    explicit GaussStepOneDPyramid(int width);
    virtual ~GaussStepOneDPyramid();
    GaussStepOneDPyramid(const GaussStepOneDPyramid&) = delete;
    GaussStepOneDPyramid& operator=(const GaussStepOneDPyramid&) = delete;

    // The curve of level k at t from 0 (first pixel) to 1 (last pixel), linear between pixels;
    // t outside 0..1 reads the nearer end. A level outside the pyramid throws DQErr 5.
    float StepValue(int level, float t) const;

    DQImage* levels[kMaxLevels] = {};
    int32_t numLevels = 0;
    int32_t width = 0;
};

// Cross-fades `first` and `second` into one channel of `result`, band by band: band k takes
// second + (first - second) StepValue(k, t), and the bands are added up from the coarsest as in
// Collapse. t = 1 gives `first`, t = 0 `second`. A result of another element type than 8 or 16
// bits is ignored; one whose size differs from `first` or `second`, or a step pyramid with fewer
// levels, prints "can't make laplacian pyramid" and leaves the result as it was.
void BlendPyramids(DQImage* result, int channel, LaplacePyramid& first, LaplacePyramid& second,
                   GaussStepOneDPyramid& step, float t);

// The same with a weight per pixel instead of per band: band k of `first` counts by level k of
// `weight` divided by `white` (255 for a pyramid of an 8-bit mask), so that a hard mask gives a
// seam without a step: each band is crossed over a width that suits its frequencies. The weight
// pyramid must have the images' size.
void BlendPyramids(DQImage* result, int channel, LaplacePyramid& first, LaplacePyramid& second,
                   GaussPyramid& weight, float white);
