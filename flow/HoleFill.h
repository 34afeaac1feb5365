#pragma once
// Filling the unknown parts of an image from its known pixels by a coarse-to-fine normalised
// interpolation. DQSingleChannelFill works on one channel: it builds pyramids of the known values
// (zero where unknown) and of their weights (1 where known), and from the coarsest level down
// fills each pixel with value / weight wherever some known pixel reaches it, smoothing between
// levels. Known pixels keep their values exactly; a hole takes a smooth value from the coarsest
// level at which something around it was known.
#include "image/DQImage.h"

#include <cstdint>
#include <vector>

class ZUIdleAndProgressClass;

class DQSingleChannelFill : public ZUMem {
public:
    // Allocates every level of the four pyramids for a level 0 of width x height. A failure
    // releases what was made and stores the code in `error`; it is thrown as well when
    // throwOnError is 1 (the second form).
    DQSingleChannelFill(int throwOnError, int width, int height);
    DQSingleChannelFill(int width, int height);
    virtual ~DQSingleChannelFill();

    DQSingleChannelFill(const DQSingleChannelFill&) = delete;
    DQSingleChannelFill& operator=(const DQSingleChannelFill&) = delete;

    // Loads channel `channel` of `image` (raw element values, unscaled) as the known values,
    // with weight 1 where `holes` (one channel of 8 bits, 16 bits or float, the size of level 0)
    // is zero and weight 0, value 0 elsewhere; a holes value that is not a number is a hole.
    // Then builds the coarser levels of both. Mismatched images throw DQErr 5.
    void LoadChannel(DQImage* image, int channel, DQImage* holes);
    // The two halves of LoadChannel, for several channels over the same holes: the weights and
    // their levels once, then the values of each channel (zero where the weights are).
    void LoadHoles(DQImage* holes);
    void LoadValues(DQImage* image, int channel);

    // Runs the fill on what LoadChannel loaded; the result is fillLevels[0]. Mode 0 is the only
    // mode; any other throws DQErr 5. `progress` may be null; an interruption throws DQErr 6.
    void Fill(ZUIdleAndProgressClass* progress, int mode);

    // Smoothing passes per level; set by the fill mode.
    int32_t iterations = 1;
    // Per level, one float channel each: the result, the weighted known values, the weights, and
    // a scratch plane for the weight reduction.
    std::vector<DQImagePtr> fillLevels;
    std::vector<DQImagePtr> valueLevels;
    std::vector<DQImagePtr> weightLevels;
    std::vector<DQImagePtr> scratchLevels;
    // Index of the deepest level; levels 0..numLevels exist, the last two both 2 x 2.
    int32_t numLevels = 0;
    int32_t width = 0;
    int32_t height = 0;
    float maxX = 0.0f;
    float maxY = 0.0f;
    // The level at which the fill begins.
    int32_t topLevel = 0;
    int32_t error = 0;

private:
    bool holesLoaded = false;

    void Allocate(int throwOnError);
    void ApplyFillData(int level);
};

// Fills every channel of `image` where `holes` is non-zero, one channel after the other, storing
// integer results rounded (value + 0.5, truncated) and limited to the element range. Images of
// different width or height are left as they are. An image with no known pixel comes back 0 in
// every channel. Throws DQErr 5 for an element type outside the three or a holes image of more
// than one channel, DQErr 6 when `progress` (may be null) is interrupted, DQErr 1 when memory runs
// out; in every such case the image is left as it was.
void FillHoles(DQImage* image, DQImage* holes, ZUIdleAndProgressClass* progress);
// FillHoles for a caller that reads only some of the pixels afterwards: the holes where `needed`
// (one channel of 8 bits, 16 bits or float, the image's size) is non-zero get the values FillHoles
// gives them, and the known pixels stay as FillHoles leaves them; holes elsewhere may keep their
// old values. The work follows the needed holes, not all of them. Errors as for FillHoles, and a
// needed image of another layout throws DQErr 5.
void FillHolesWhereNeeded(DQImage* image, DQImage* holes, const DQImage* needed,
                          ZUIdleAndProgressClass* progress);
// The same fill computed over the whole frame at every level. FillHoles computes only the pixels
// that a hole can reach, through the filters' radii and the resizes' footprints, and gives the
// same values; this form is the reference it is checked against.
void FillHolesFullFrame(DQImage* image, DQImage* holes, ZUIdleAndProgressClass* progress);
