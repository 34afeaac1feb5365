#pragma once
// Reading a flow at every pixel of an image row. The vectors are bilinear in the flow, along x
// first: each flow row is interpolated along x once, at every image column, and kept, so an image
// row only mixes two kept rows along y. With a flow of half the image's size one interpolated
// flow row serves about four image rows.
#include "image/KernelSpace.h"
#include "warp/Sampling.h"

#include <cstdint>
#include <cstring>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

// The two flow rows around an image row, already interpolated along x: u and v per image column.
struct FlowRowPair {
    const float* upperU;
    const float* upperV;
    const float* lowerU;
    const float* lowerV;
    float ty; // fraction from the upper row to the lower one
};

class FlowRowReader {
public:
    // Floats of working space that one reader needs for rows of `width` pixels.
    static size_t SpaceFor(int width) { return 4 * static_cast<size_t>(width); }

    // `columns` holds the flow cell of each of the `width` image columns (see CellOf); `space`
    // holds SpaceFor(width) floats and stays the reader's for its lifetime.
    FlowRowReader(const DQImage& flow, const Tap* columns, int width, float* space)
        : flow_(flow), columns_(columns), width_(width) {
        slots_[0] = space;
        slots_[1] = space + 2 * static_cast<size_t>(width);
    }

    // The interpolated flow rows for an image row whose position in the flow is the cell `cy`.
    // The pointers stay valid until the next call.
    FlowRowPair Rows(Tap cy) {
        int upper = Held(cy.index);
        int lower = Held(cy.index + 1);
        if (upper < 0) {
            upper = lower == 0 ? 1 : 0;
            Fill(upper, cy.index);
        }
        if (lower < 0) {
            lower = 1 - upper;
            Fill(lower, cy.index + 1);
        }
        const size_t w = static_cast<size_t>(width_);
        return {slots_[upper], slots_[upper] + w, slots_[lower], slots_[lower] + w, cy.fraction};
    }

private:
    int Held(int row) const { return held_[0] == row ? 0 : held_[1] == row ? 1 : -1; }

    void Fill(int slot, int row) {
        held_[slot] = row;
        const float* __restrict vectors = flow_.Row(row);
        const Tap* __restrict columns = columns_;
        float* __restrict u = slots_[slot];
        float* __restrict v = u + width_;
        int x = 0;
        // Four columns per step: each column's two neighbouring vectors are one load, two columns
        // are mixed in one vector, and the results are split into their u and v rows.
        for (; x + 4 <= width_; x += 4) {
            const Float4 first = AcrossTwo(vectors, columns + x);
            const Float4 second = AcrossTwo(vectors, columns + x + 2);
            const Float4 us = __builtin_shufflevector(first, second, 0, 2, 4, 6);
            const Float4 vs = __builtin_shufflevector(first, second, 1, 3, 5, 7);
            std::memcpy(u + x, &us, sizeof us);
            std::memcpy(v + x, &vs, sizeof vs);
        }
        for (; x < width_; ++x) {
            const Tap c = columns[x];
            const float* p = vectors + 2 * c.index;
            u[x] = Lerp(p[0], p[2], c.fraction);
            v[x] = Lerp(p[1], p[3], c.fraction);
        }
    }

    // (u, v) of two columns, each interpolated between the two vectors of its cell.
    [[gnu::always_inline]] static Float4 AcrossTwo(const float* vectors, const Tap* columns) {
        const Float4 a = Load4(vectors + 2 * columns[0].index);
        const Float4 b = Load4(vectors + 2 * columns[1].index);
        const Float4 left = __builtin_shufflevector(a, b, 0, 1, 4, 5);
        const Float4 right = __builtin_shufflevector(a, b, 2, 3, 6, 7);
        const float f0 = columns[0].fraction;
        const float f1 = columns[1].fraction;
        const Float4 t = {f0, f0, f1, f1};
        return left + t * (right - left);
    }

    RowView<float> flow_;
    const Tap* columns_;
    int width_;
    float* slots_[2];
    int held_[2] = {-1, -1};
};

// The flow cell of every image column: column x sits at x * ratio in the flow.
inline void FlowColumns(Tap* columns, int width, float ratio, int32_t flowLastColumn) {
    for (int x = 0; x < width; ++x)
        columns[x] = CellOf(static_cast<float>(x) * ratio, flowLastColumn);
}

QUELMOR_KERNELS_END
} // namespace warp_detail
