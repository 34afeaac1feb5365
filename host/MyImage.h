#pragma once
// The host's kind of ZUImage: it owns its pixel buffer and knows the host's depth code. Also the
// operations on ZUImage that the host path needs: validity, the 16-bit range stretch in both
// directions, and the copy between images.
#include "image/ZUImage.h"

class MyImage : public ZUImage {
public:
    MyImage() = default;
    // Releases the owned buffer with the array form of delete, then the base tears down.
    ~MyImage() override;

    // Takes ownership of `data` (also on failure) and describes it as a top-down image of
    // `channels` (1, 3 or 4) with the pixel type of `depth`. Returns 0; 1 for null data or a
    // failed reset, 5 for another channel count; an unknown depth returns 0 and stays empty.
    virtual int MyInit(void* data, int width, int height, int depth, int rowBytes, int channels);

    uint8_t* buffer = nullptr;
    int bufWidth = 0;
    int bufHeight = 0;
    int bufDepth = 0;
    int bufRowBytes = 0;
    int bufChannels = 0;
};

// Pixel type of a host depth code: 0 for 24 and 25, 1 for 48 and 64, 2 for 49, -1 otherwise.
int MyPixelTypeForDepth(int depth);

// Pixel buffers of the host path are allocated and released as arrays of bytes, one pair.
uint8_t* MyAllocatePixels(size_t bytes);

// 1 when the image has a bridge object. With `verbose` it also prints a short report.
int ZUImageIsValid(const ZUImage* image, int verbose);
// Scales a 16-bit image: each element to trunc(clamp(element x factor + 0.5, 0, maximum)); four
// channels are unpremultiplied first; factor 0 fills with 0. Other types pass. 5 for null.
int ZUImageScale(ZUImage* image, float factor, float maximum);
// Stretches a 16-bit image by `factor` without clamp or premultiplication change (four
// channels), or through ZUImageScale with maximum 65535 otherwise. 5 for null.
int ZUImageExpand(ZUImage* image, float factor);
// Copies `source` into `destination`; a float source into an integer destination is normalised
// to the destination's range. Nothing is copied when either has no pixels. Returns 0.
int ZUImageCopy(ZUImage* destination, ZUImage* source);

// The range constants between the host's 12-bit words and the 16-bit working range.
inline constexpr float kMyExpand12To16 = 16.003662f;
inline constexpr float kMyScale16To12 = 0.062485695f;
inline constexpr float kMyMaximum12 = 4095.0f;
