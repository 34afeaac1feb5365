#pragma once
// Bilinear reads shared by the warps, the blur along vectors and the resize: a position split into
// a cell and a fraction, a sample of an image at a fractional position, and a read of a flow.
#include "warp/PixelAccess.h"

#include <cstdint>

namespace warp_detail {

// The left (or upper) pixel of the cell that holds a position and the fraction across it. At or
// beyond the last pixel the last cell is used at fraction 1, so the last pixel is read exactly.
// A position that is not a number lands on the first pixel.
struct Tap {
    int32_t index;
    float fraction;
};

inline Tap CellOf(float position, int32_t lastIndex) {
    Tap tap{static_cast<int32_t>(position), 0.0f};
    tap.fraction = position - static_cast<float>(tap.index);
    if (tap.index >= lastIndex) {
        tap.index = lastIndex - 1;
        tap.fraction = 1.0f;
    }
    if (tap.index < 0) {
        tap.index = 0;
        tap.fraction = 0.0f;
    }
    return tap;
}

inline float Lerp(float a, float b, float t) {
    return a + t * (b - a);
}

// Bilinear sample of all channels at a cell pair: along x on both rows, then along y.
template <class T, int C>
inline void SampleCell(const RowView<T>& image, Tap cx, Tap cy, float* out) {
    const T* a = image.Row(cy.index) + cx.index * C;
    const T* b = RowView<T>::Next(a, image.step);
    for (int c = 0; c < C; ++c) {
        const float top = Lerp(static_cast<float>(a[c]), static_cast<float>(a[C + c]), cx.fraction);
        const float bottom =
            Lerp(static_cast<float>(b[c]), static_cast<float>(b[C + c]), cx.fraction);
        out[c] = Lerp(top, bottom, cy.fraction);
    }
}

template <class T, int C>
inline void SampleBilinear(const RowView<T>& image, float sx, float sy, float* out) {
    SampleCell<T, C>(image, CellOf(sx, image.lastColumn), CellOf(sy, image.lastRow), out);
}

// The vector of a two-channel float flow at a cell pair, interpolated along x first.
inline void ReadFlow(const RowView<float>& flow, Tap cx, Tap cy, float& u, float& v) {
    float vector[2];
    SampleCell<float, 2>(flow, cx, cy, vector);
    u = vector[0];
    v = vector[1];
}

} // namespace warp_detail
