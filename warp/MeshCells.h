#pragma once
// The lines of the common cells of a row of a warped mesh, found eight cells at a time.
//
// A cell of the mesh has the upper corners a = (x, r), b = (x + 1, r) and the lower corners
// c = (x, r + 1), d = (x + 1, r + 1), drawn as the triangle a, b, c and then d, b, c. In a smooth
// warp c lies below both a and b, and b above both c and d; then the lines of a, b, c below both
// a and b cross the vertical edge a-c and the diagonal b-c, and the lines of d, b, c above both c
// and d the diagonal and the vertical edge b-d. Such a cell with at most two of those lines in
// each triangle, and at most one line between a and b and one between c and d, is "plain": its
// six possible spans are worked out here, in lanes, with the same arithmetic as the scan
// conversion of its triangles line by line, and only the spans that hold a pixel are handed on.
// Every other cell is marked for the general way.
#include "image/KernelSpace.h"
#include "warp/SampleRow.h"

#include <cstdint>
#include <cstring>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

constexpr int kCellLanes = 8;
// The spans of a plain cell, in drawing order: a, b, c on a line above its lower upper corner, on
// its first and its second line below it; d, b, c on its first and its second line above its
// higher lower corner, and on a line below it.
enum CellSlot { kAboveSlot, kUpperSlot, kLowerSlot = 3, kBelowSlot = 5, kCellSlots };
// The bit of a lane's byte in CellSpans::todo that marks a cell for the general way.
constexpr int kGeneralCell = kCellSlots;
// Floats past the last column that the arrays of CellRows hold, so that a block of lanes may be
// read whole.
constexpr int kCellPadding = kCellLanes + 1;

// Positions of two rows of vertices, one array per coordinate, and for each column x the change of
// x per row along the vertical edge upper[x]-lower[x] and along the diagonal upper[x + 1]-lower[x].
struct CellRows {
    const float* upperX;
    const float* upperY;
    const float* lowerX;
    const float* lowerY;
    const float* verticalDx;
    const float* diagonalDx;
};

// The rows of the target a pass draws (firstOwned..lastOwned) and its last column, as floats.
struct CellBounds {
    float lastColumn, firstOwned, lastOwned;
};

// The outcome for a block of cells. `todo` holds one byte per lane, lane 0 lowest: bit k for each
// slot k whose span holds at least one pixel, or bit kGeneralCell alone for a cell to be drawn the
// general way. Per slot and lane: the scanline, the whole pixels first..last of the span, whether
// the crossing of the first edge named above is the left end, and the span's `offset` (the
// distance from the left crossing to the first pixel) and `perPixel` (one over the span's length)
// in the form the colour interpolation takes them.
struct CellSpans {
    uint64_t todo;
    int32_t line[kCellSlots][kCellLanes];
    int32_t first[kCellSlots][kCellLanes];
    int32_t last[kCellSlots][kCellLanes];
    int32_t firstEdgeLeft[kCellSlots][kCellLanes];
    float offset[kCellSlots][kCellLanes];
    float perPixel[kCellSlots][kCellLanes];
};

namespace cell_detail {

typedef uint8_t Byte8 __attribute__((vector_size(8)));

[[gnu::always_inline]] inline Float8 Load8(const float* p) {
    Float8 v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class V>
[[gnu::always_inline]] inline void Keep(void* p, V v) {
    std::memcpy(p, &v, sizeof v);
}
// As the scalar Larger and Smaller of the scan conversion, lane by lane.
[[gnu::always_inline]] inline Float8 Larger8(Float8 a, Float8 b) {
    return a > b ? a : b;
}
[[gnu::always_inline]] inline Float8 Smaller8(Float8 a, Float8 b) {
    return a < b ? a : b;
}
[[gnu::always_inline]] inline Float8 ToFloat8(Int8 v) {
    return __builtin_convertvector(v, Float8);
}
// Whole-number ceiling and floor of values well inside the range of int (a true comparison is -1).
[[gnu::always_inline]] inline Int8 Ceil8(Float8 v) {
    const Int8 i = __builtin_convertvector(v, Int8);
    return i - (ToFloat8(i) < v);
}
[[gnu::always_inline]] inline Int8 Floor8(Float8 v) {
    const Int8 i = __builtin_convertvector(v, Int8);
    return i + (ToFloat8(i) > v);
}

// One span of a plain cell on scanline `line`, between the crossings p (of the first edge) and q.
// Mirrors the span of one line of the scan conversion: the left end is p unless q lies left of it,
// a span of no length draws nothing, and the ends are clipped to the target's columns.
[[gnu::always_inline]] inline Int8 SlotSpan(CellSpans& out, int slot, Int8 line, Float8 p, Float8 q,
                                            Int8 valid, const CellBounds& bounds) {
    const Int8 firstEdgeLeft = ~(q < p);
    const Float8 lx = firstEdgeLeft ? p : q;
    const Float8 rx = firstEdgeLeft ? q : p;
    const Float8 zero = {};
    const Int8 first = Ceil8(Smaller8(Larger8(lx, zero), zero + (bounds.lastColumn + 1.0f)));
    const Int8 last = Floor8(Larger8(Smaller8(rx, zero + bounds.lastColumn), zero - 1.0f));
    const Float8 perPixel = 1.0f / (rx - lx);
    Keep(out.line[slot], line);
    Keep(out.first[slot], first);
    Keep(out.last[slot], last);
    Keep(out.firstEdgeLeft[slot], firstEdgeLeft);
    Keep(out.offset[slot], (ToFloat8(first) - lx) * perPixel);
    Keep(out.perPixel[slot], perPixel);
    return valid & (rx - lx > 1e-08f) & (first <= last);
}

} // namespace cell_detail

// Sorts the cells x..x + cells - 1 (at most kCellLanes) of the rows `rows` into plain and general
// ones, and works out the spans of the plain ones.
[[gnu::always_inline]] inline void FindCellSpans(const CellRows& rows, int x, int cells,
                                                 const CellBounds& bounds, CellSpans& out) {
    using namespace cell_detail;
    const Float8 ax = Load8(rows.upperX + x), ay = Load8(rows.upperY + x);
    const Float8 bx = Load8(rows.upperX + x + 1), by = Load8(rows.upperY + x + 1);
    const Float8 cx = Load8(rows.lowerX + x), cy = Load8(rows.lowerY + x);
    const Float8 dx = Load8(rows.lowerX + x + 1), dy = Load8(rows.lowerY + x + 1);
    const Float8 vertical = Load8(rows.verticalDx + x);
    const Float8 nextVertical = Load8(rows.verticalDx + x + 1);
    const Float8 diagonal = Load8(rows.diagonalDx + x);

    const Float8 zero = {};
    const Float8 firstOwned = zero + bounds.firstOwned;
    const Float8 pastOwned = zero + (bounds.lastOwned + 1.0f);
    // The first scanline at or below `from`, and the last one above `to`, within the owned rows
    // or just outside them.
    auto firstLine = [&](Float8 from) {
        return Ceil8(Smaller8(Larger8(from, firstOwned), pastOwned));
    };
    auto lastLineAbove = [&](Float8 to) {
        const Float8 below = Larger8(Smaller8(to, pastOwned), firstOwned - 1.0f);
        const Int8 line = Floor8(below);
        return line + (ToFloat8(line) == below);
    };

    // a, b, c: the lines from the lower of a and b down to c cross the vertical edge and the
    // diagonal. A line above them, between a and b, crosses the upper edge and the edge from the
    // higher of a and b (a on a tie) down to c.
    const Float8 upperEnd = Larger8(ay, by);
    const Int8 split = firstLine(upperEnd);
    const Int8 upperLines = lastLineAbove(cy) - split + 1;
    const Int8 bHigher = by < ay;
    const Float8 highX = bHigher ? bx : ax, highY = bHigher ? by : ay;
    const Float8 lowX = bHigher ? ax : bx;
    const Int8 aboveLines = split - Ceil8(Larger8(highY, firstOwned));
    Int8 general = ~(cy > upperEnd) | (aboveLines > 1) | (upperLines > 2);

    // d, b, c: the lines from b down to the higher of c and d cross the diagonal and the vertical
    // edge b-d. A line below them, between c and d, crosses the lower edge and the edge from b to
    // the lower of c and d (c on a tie). Both on one row would need a span of the flat bottom.
    const Float8 lowerEnd = Smaller8(cy, dy);
    const Int8 top = firstLine(by);
    const Int8 lastOfLower = lastLineAbove(lowerEnd);
    const Int8 lowerLines = lastOfLower - top + 1;
    const Int8 next = lastOfLower + 1;
    const Int8 below = next > top ? next : top;
    const Int8 dDeeper = ~(dy <= cy);
    const Float8 deepX = dDeeper ? dx : cx, deepY = dDeeper ? dy : cy;
    const Float8 shallowX = dDeeper ? cx : dx, shallowY = dDeeper ? cy : dy;
    const Int8 belowLines = lastLineAbove(deepY) - below + 1;
    general |= ~(by < lowerEnd) | (lowerLines > 2) | (belowLines > 1) | (cy == dy);

    Int8 code = {};
    {
        const Int8 line = split - 1;
        const Float8 s = ToFloat8(line);
        const Float8 fromHigh = s - highY;
        const Float8 p = highX + fromHigh * (bHigher ? diagonal : vertical);
        const Float8 q = highX + fromHigh * ((lowX - highX) * (1.0f / (upperEnd - highY)));
        code |= SlotSpan(out, kAboveSlot, line, p, q, aboveLines > 0, bounds) & (1 << kAboveSlot);
    }
    for (int k = 0; k < 2; ++k) {
        const Int8 line = split + k;
        const Float8 s = ToFloat8(line);
        const Float8 p = ax + (s - ay) * vertical;
        const Float8 q = bx + (s - by) * diagonal;
        code |= SlotSpan(out, kUpperSlot + k, line, p, q, upperLines > k, bounds) &
                (1 << (kUpperSlot + k));
    }
    for (int k = 0; k < 2; ++k) {
        const Int8 line = top + k;
        const Float8 s = ToFloat8(line);
        const Float8 fromB = s - by;
        const Float8 p = bx + fromB * diagonal;
        const Float8 q = bx + fromB * nextVertical;
        code |= SlotSpan(out, kLowerSlot + k, line, p, q, lowerLines > k, bounds) &
                (1 << (kLowerSlot + k));
    }
    {
        const Int8 line = below;
        const Float8 s = ToFloat8(line);
        const Float8 p = bx + (s - by) * (dDeeper ? nextVertical : diagonal);
        const Float8 q =
            shallowX + (s - shallowY) * ((deepX - shallowX) * (1.0f / (deepY - shallowY)));
        code |= SlotSpan(out, kBelowSlot, line, p, q, belowLines > 0, bounds) & (1 << kBelowSlot);
    }
    code = general ? 1 << kGeneralCell : code;
    const Int8 lane = {0, 1, 2, 3, 4, 5, 6, 7};
    code = lane < cells ? code : 0;
    uint64_t todo;
    Keep(&todo, __builtin_convertvector(code, Byte8));
    out.todo = todo;
}

QUELMOR_KERNELS_END
} // namespace warp_detail
