#pragma once
// Float planes for work on eight neighbouring pixels of a line at once. One channel of an image is
// copied, as it lies or transposed, into lines padded on both sides, so that eight neighbouring
// elements load as one vector and a load that starts a few elements before or after a line stays
// inside the plane.
#include "image/DQImage.h"

#include <cstddef>

inline constexpr int kDQFlowLanes = 8;

// Element (t, s) lies at origin[s * stride + t]: t runs along a line, s from line to line. Every
// line has kPadBefore elements before t = 0 and kPadAfter or more after t = lanes - 1, and one
// guard line follows the last. Element t = lanes of a loaded plane repeats t = lanes - 1, and the
// guard line repeats the last line, so that a read one past the end reads the last element; the
// other padding holds zeros.
struct DQFlowLanePlane {
    static constexpr int kPadBefore = 8;
    static constexpr int kPadAfter = 16;

    float* origin = nullptr;
    ptrdiff_t stride = 0;
    int lanes = 0; // elements per line
    int lines = 0;

    float* At(int t, int s) const { return origin + s * stride + t; }
    // Floats a plane of this shape takes.
    static size_t Floats(int lanes, int lines);
    // A plane of this shape over the floats at `block` (at least Floats(lanes, lines) of them).
    static DQFlowLanePlane Over(float* block, int lanes, int lines);
};

// Copies channel `channel` of the float image into the plane, transposed when asked (then t is
// the image's y and s its x), and fills the padding and the guard line. The plane must have the
// matching shape.
void DQFlowLoadLanePlane(DQFlowLanePlane& plane, const DQImage* image, int channel,
                         bool transposed);
// Copies a plane that lies as the image does back into channel `channel` of the image.
void DQFlowStoreLanePlane(const DQFlowLanePlane& plane, DQImage* image, int channel);
// target(s, t) = source(t, s) over the source's lanes and lines; padding is not written.
void DQFlowTransposeLanePlane(DQFlowLanePlane& target, const DQFlowLanePlane& source);
