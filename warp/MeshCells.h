#pragma once
// The lines of the common cells of a row of a warped mesh, found for several cells at a time.
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

#include <cstdint>
#include <cstring>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

// Sixteen lanes where the processor level has 512-bit vectors, eight elsewhere; every lane works
// alone, so the width changes only the speed.
#ifdef __AVX512F__
constexpr int kCellLanes = 16;
#else
constexpr int kCellLanes = 8;
#endif
typedef float CellFloats __attribute__((vector_size(4 * kCellLanes)));
typedef int32_t CellInts __attribute__((vector_size(4 * kCellLanes)));
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

// The outcome for a block of cells. `todo` holds one byte per lane, lane 0 lowest, eight lanes to a
// word: bit k for each
// slot k whose span holds at least one pixel, or bit kGeneralCell alone for a cell to be drawn the
// general way. Per slot and lane: the scanline, the whole pixels first..last of the span, whether
// the crossing of the first edge named above is the left end, and the span's `offset` (the
// distance from the left crossing to the first pixel) and `perPixel` (one over the span's length)
// in the form the colour interpolation takes them.
struct CellSpans {
    uint64_t todo[kCellLanes / 8];
    int32_t line[kCellSlots][kCellLanes];
    int32_t first[kCellSlots][kCellLanes];
    int32_t last[kCellSlots][kCellLanes];
    int32_t firstEdgeLeft[kCellSlots][kCellLanes];
    float offset[kCellSlots][kCellLanes];
    float perPixel[kCellSlots][kCellLanes];
};

namespace cell_detail {

typedef uint8_t CellBytes __attribute__((vector_size(kCellLanes)));
typedef int64_t CellWords __attribute__((vector_size(4 * kCellLanes)));

[[gnu::always_inline]] inline CellFloats LoadLanes(const float* p) {
    CellFloats v;
    std::memcpy(&v, p, sizeof v);
    return v;
}
template <class V>
[[gnu::always_inline]] inline void Keep(void* p, V v) {
    std::memcpy(p, &v, sizeof v);
}
// As the scalar Larger and Smaller of the scan conversion, lane by lane.
[[gnu::always_inline]] inline CellFloats LargerLanes(CellFloats a, CellFloats b) {
    return a > b ? a : b;
}
[[gnu::always_inline]] inline CellFloats SmallerLanes(CellFloats a, CellFloats b) {
    return a < b ? a : b;
}
[[gnu::always_inline]] inline CellFloats ToFloats(CellInts v) {
    return __builtin_convertvector(v, CellFloats);
}
// Whether any lane of a comparison result is true.
[[gnu::always_inline]] inline bool AnyLane(CellInts mask) {
    const CellWords words = reinterpret_cast<CellWords>(mask);
    int64_t any = 0;
    for (int i = 0; i < kCellLanes / 2; ++i)
        any |= words[i];
    return any != 0;
}
[[gnu::always_inline]] inline CellInts LaneIndex() {
    CellInts lane;
    for (int i = 0; i < kCellLanes; ++i)
        lane[i] = i;
    return lane;
}
// Whole-number ceiling and floor of values well inside the range of int (a true comparison is -1).
[[gnu::always_inline]] inline CellInts CeilLanes(CellFloats v) {
    const CellInts i = __builtin_convertvector(v, CellInts);
    return i - (ToFloats(i) < v);
}
[[gnu::always_inline]] inline CellInts FloorLanes(CellFloats v) {
    const CellInts i = __builtin_convertvector(v, CellInts);
    return i + (ToFloats(i) > v);
}

// One span of a plain cell on scanline `line`, between the crossings p (of the first edge) and q.
// Mirrors the span of one line of the scan conversion: the left end is p unless q lies left of it,
// a span of no length draws nothing, and the ends are clipped to the target's columns.
[[gnu::always_inline]] inline CellInts SlotSpan(CellSpans& out, int slot, CellInts line,
                                                CellFloats p, CellFloats q, CellInts valid,
                                                const CellBounds& bounds) {
    const CellInts firstEdgeLeft = ~(q < p);
    const CellFloats lx = firstEdgeLeft ? p : q;
    const CellFloats rx = firstEdgeLeft ? q : p;
    const CellFloats zero = {};
    const CellInts first =
        CeilLanes(SmallerLanes(LargerLanes(lx, zero), zero + (bounds.lastColumn + 1.0f)));
    const CellInts last =
        FloorLanes(LargerLanes(SmallerLanes(rx, zero + bounds.lastColumn), zero - 1.0f));
    const CellFloats perPixel = 1.0f / (rx - lx);
    Keep(out.line[slot], line);
    Keep(out.first[slot], first);
    Keep(out.last[slot], last);
    Keep(out.firstEdgeLeft[slot], firstEdgeLeft);
    Keep(out.offset[slot], (ToFloats(first) - lx) * perPixel);
    Keep(out.perPixel[slot], perPixel);
    return valid & (rx - lx > 1e-08f) & (first <= last);
}

} // namespace cell_detail

// Sorts the cells x..x + cells - 1 (at most kCellLanes) of the rows `rows` into plain and general
// ones, and works out the spans of the plain ones.
[[gnu::always_inline]] inline void FindCellSpans(const CellRows& rows, int x, int cells,
                                                 const CellBounds& bounds, CellSpans& out) {
    using namespace cell_detail;
    const CellFloats ax = LoadLanes(rows.upperX + x), ay = LoadLanes(rows.upperY + x);
    const CellFloats bx = LoadLanes(rows.upperX + x + 1), by = LoadLanes(rows.upperY + x + 1);
    const CellFloats cx = LoadLanes(rows.lowerX + x), cy = LoadLanes(rows.lowerY + x);
    const CellFloats dx = LoadLanes(rows.lowerX + x + 1), dy = LoadLanes(rows.lowerY + x + 1);
    const CellFloats vertical = LoadLanes(rows.verticalDx + x);
    const CellFloats nextVertical = LoadLanes(rows.verticalDx + x + 1);
    const CellFloats diagonal = LoadLanes(rows.diagonalDx + x);

    const CellFloats zero = {};
    const CellFloats firstOwned = zero + bounds.firstOwned;
    const CellFloats pastOwned = zero + (bounds.lastOwned + 1.0f);
    // The first scanline at or below `from`, and the last one above `to`, within the owned rows
    // or just outside them.
    auto firstLine = [&](CellFloats from) {
        return CeilLanes(SmallerLanes(LargerLanes(from, firstOwned), pastOwned));
    };
    auto lastLineAbove = [&](CellFloats to) {
        const CellFloats below = LargerLanes(SmallerLanes(to, pastOwned), firstOwned - 1.0f);
        const CellInts line = FloorLanes(below);
        return line + (ToFloats(line) == below);
    };

    // a, b, c: the lines from the lower of a and b down to c cross the vertical edge and the
    // diagonal. A line above them, between a and b, crosses the upper edge and the edge from the
    // higher of a and b (a on a tie) down to c.
    const CellFloats upperEnd = LargerLanes(ay, by);
    const CellInts split = firstLine(upperEnd);
    const CellInts upperLines = lastLineAbove(cy) - split + 1;
    const CellInts bHigher = by < ay;
    const CellFloats highX = bHigher ? bx : ax, highY = bHigher ? by : ay;
    const CellFloats lowX = bHigher ? ax : bx;
    const CellInts aboveLines = split - CeilLanes(LargerLanes(highY, firstOwned));
    CellInts general = ~(cy > upperEnd) | (aboveLines > 1) | (upperLines > 2);

    // d, b, c: the lines from b down to the higher of c and d cross the diagonal and the vertical
    // edge b-d. A line below them, between c and d, crosses the lower edge and the edge from b to
    // the lower of c and d (c on a tie). Both on one row would need a span of the flat bottom.
    const CellFloats lowerEnd = SmallerLanes(cy, dy);
    const CellInts top = firstLine(by);
    const CellInts lastOfLower = lastLineAbove(lowerEnd);
    const CellInts lowerLines = lastOfLower - top + 1;
    const CellInts next = lastOfLower + 1;
    const CellInts below = next > top ? next : top;
    const CellInts dDeeper = ~(dy <= cy);
    const CellFloats deepX = dDeeper ? dx : cx, deepY = dDeeper ? dy : cy;
    const CellFloats shallowX = dDeeper ? cx : dx, shallowY = dDeeper ? cy : dy;
    const CellInts belowLines = lastLineAbove(deepY) - below + 1;
    general |= ~(by < lowerEnd) | (lowerLines > 2) | (belowLines > 1) | (cy == dy);

    const CellInts lane = LaneIndex();
    const CellInts plain = ~general & (lane < cells);

    // The spans of the plain cells. The line between the upper and that between the lower corners,
    // and the second lines, are rare in a smooth warp and left out when no cell has them.
    CellInts code = {};
    const CellInts abovePlain = plain & (aboveLines > 0);
    if (AnyLane(abovePlain)) {
        const CellInts line = split - 1;
        const CellFloats s = ToFloats(line);
        const CellFloats fromHigh = s - highY;
        const CellFloats p = highX + fromHigh * (bHigher ? diagonal : vertical);
        const CellFloats q = highX + fromHigh * ((lowX - highX) * (1.0f / (upperEnd - highY)));
        code |= SlotSpan(out, kAboveSlot, line, p, q, abovePlain, bounds) & (1 << kAboveSlot);
    }
    for (int k = 0; k < 2; ++k) {
        const CellInts upperPlain = plain & (upperLines > k);
        if (k > 0 && !AnyLane(upperPlain)) break;
        const CellInts line = split + k;
        const CellFloats s = ToFloats(line);
        const CellFloats p = ax + (s - ay) * vertical;
        const CellFloats q = bx + (s - by) * diagonal;
        code |=
            SlotSpan(out, kUpperSlot + k, line, p, q, upperPlain, bounds) & (1 << (kUpperSlot + k));
    }
    for (int k = 0; k < 2; ++k) {
        const CellInts lowerPlain = plain & (lowerLines > k);
        if (k > 0 && !AnyLane(lowerPlain)) break;
        const CellInts line = top + k;
        const CellFloats s = ToFloats(line);
        const CellFloats fromB = s - by;
        const CellFloats p = bx + fromB * diagonal;
        const CellFloats q = bx + fromB * nextVertical;
        code |=
            SlotSpan(out, kLowerSlot + k, line, p, q, lowerPlain, bounds) & (1 << (kLowerSlot + k));
    }
    const CellInts belowPlain = plain & (belowLines > 0);
    if (AnyLane(belowPlain)) {
        const CellInts line = below;
        const CellFloats s = ToFloats(line);
        const CellFloats p = bx + (s - by) * (dDeeper ? nextVertical : diagonal);
        const CellFloats q =
            shallowX + (s - shallowY) * ((deepX - shallowX) * (1.0f / (deepY - shallowY)));
        code |= SlotSpan(out, kBelowSlot, line, p, q, belowPlain, bounds) & (1 << kBelowSlot);
    }
    code |= general & (lane < cells) & (1 << kGeneralCell);
    Keep(out.todo, __builtin_convertvector(code, CellBytes));
}

QUELMOR_KERNELS_END
} // namespace warp_detail
