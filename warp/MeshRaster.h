#pragma once
// Scan conversion of the triangles of a warped mesh. A vertex is a position and a colour of up to
// four floats; a triangle is drawn on every whole scanline from its top down to, but excluding,
// its lower end, with position and colour interpolated linearly along its edges and across each
// span. Spans include both of their whole-pixel ends. The pixels are handed to a writer, which
// averages what lands on one pixel (see HitAverage).
//
// Every value on a scanline is evaluated from the edge's upper vertex, never stepped from the line
// above, so a triangle drawn only over part of its rows writes exactly what the whole triangle
// would write on those rows. That lets several workers each draw the rows they own.
#include "image/KernelSpace.h"
#include "warp/MeshCells.h"
#include "warp/PixelAccess.h"
#include "warp/Sampling.h"

#include <cmath>
#include <cstdint>
#include <utility>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

// Positions beyond this are treated as lying nowhere: a triangle with such a corner, or one that
// is not a number, is not drawn. Inside it every step of the scan stays finite.
constexpr float kFarPosition = 1.0e15f;

struct MeshVertex {
    float x, y;
    Float4 c;
};

// The rows of the target that one drawing pass may write, inclusive, within 0..lastRow.
struct RasterClip {
    int lastColumn, lastRow;
    int firstOwned, lastOwned;
};

namespace mesh_detail {

// Comparisons that send a value that is not a number to the other operand, inlined where the
// library's fmax and fmin would be calls.
[[gnu::always_inline]] inline float Larger(float a, float b) {
    return a > b ? a : b;
}
[[gnu::always_inline]] inline float Smaller(float a, float b) {
    return a < b ? a : b;
}
// Whole-number ceiling and floor of values that lie well inside the range of int.
[[gnu::always_inline]] inline int CeilToInt(float v) {
    const int i = static_cast<int>(v);
    return i + (static_cast<float>(i) < v);
}
[[gnu::always_inline]] inline int FloorToInt(float v) {
    const int i = static_cast<int>(v);
    return i - (static_cast<float>(i) > v);
}

// An edge from its upper end a, with the change of x and of the colour per row.
struct Edge {
    const MeshVertex* a;
    float dx;
    Float4 dc;

    [[gnu::always_inline]] void Set(const MeshVertex* upper, const MeshVertex* lower,
                                    float perRow) {
        a = upper;
        dx = (lower->x - upper->x) * perRow;
        dc = (lower->c - upper->c) * perRow;
    }
    float XAt(float s) const { return a->x + (s - a->y) * dx; }
    Float4 CAt(float s) const { return a->c + (s - a->y) * dc; }
};

inline bool Near(const MeshVertex& v) {
    return std::fabs(v.x) <= kFarPosition && std::fabs(v.y) <= kFarPosition;
}

// The span of row y between the crossings lx (colour lc) and rx (colour rc), rx - lx above
// zero, over the whole pixels first..last, already clipped to the target: the colour of the
// first pixel and its change per pixel.
template <class Writer>
[[gnu::always_inline]] inline void Span(Writer& write, int y, int first, int last, float lx,
                                        Float4 lc, float rx, Float4 rc) {
    const float perPixel = 1.0f / (rx - lx);
    const Float4 change = rc - lc;
    write(y, first, last, lc + change * ((static_cast<float>(first) - lx) * perPixel),
          change * perPixel);
}

} // namespace mesh_detail

// Draws the triangle p, q, r into the rows of `clip` through write(y, x0, x1, colour, step),
// which stores pixels x0..x1 of row y, the colour of x0 first and `step` added per pixel.
template <class Writer>
[[gnu::always_inline]] inline void DrawTriangle(const MeshVertex& p, const MeshVertex& q,
                                                const MeshVertex& r, const RasterClip& clip,
                                                Writer& write) {
    using namespace mesh_detail;
    const float lastColumn = static_cast<float>(clip.lastColumn);
    const float lastRow = static_cast<float>(clip.lastRow);
    if ((p.x < 0.0f && q.x < 0.0f && r.x < 0.0f) || (p.y < 0.0f && q.y < 0.0f && r.y < 0.0f) ||
        (p.x > lastColumn && q.x > lastColumn && r.x > lastColumn) ||
        (p.y > lastRow && q.y > lastRow && r.y > lastRow))
        return;
    if (!Near(p) || !Near(q) || !Near(r)) return;

    // Top, middle and bottom. Ties keep the order that the decision list below gives them, which
    // decides which edges a flat top or bottom brings in.
    const MeshVertex *top, *mid, *bottom;
    if (q.y < p.y) {
        if (p.y <= r.y)
            top = &q, mid = &p, bottom = &r;
        else if (r.y < q.y)
            top = &r, mid = &q, bottom = &p;
        else
            top = &q, mid = &r, bottom = &p;
    } else {
        if (r.y >= q.y)
            top = &p, mid = &q, bottom = &r;
        else if (p.y < r.y)
            top = &p, mid = &r, bottom = &q;
        else
            top = &r, mid = &p, bottom = &q;
    }

    // Past the tests above, top->y <= lastRow and bottom->y >= 0, so the whole-number scanline
    // bounds come from values inside the image's rows.
    const int firstLine = CeilToInt(Larger(top->y, static_cast<float>(clip.firstOwned)));
    const int lastLine = FloorToInt(Smaller(bottom->y, static_cast<float>(clip.lastOwned)));
    if (firstLine <= lastLine && top->y < bottom->y) {
        // An edge from a to b is active on scanline s when a.y <= s < b.y. The long edge runs
        // from top to bottom; the short ones meet at the middle vertex.
        const Float4 rise = {bottom->y - top->y, mid->y - top->y, bottom->y - mid->y, 1.0f};
        const Float4 perRow = 1.0f / rise;
        Edge longEdge, upper, lower;
        longEdge.Set(top, bottom, perRow[0]);
        const float firstLineY = static_cast<float>(firstLine);
        const float lastLineY = static_cast<float>(lastLine);
        if (firstLineY < mid->y) upper.Set(top, mid, perRow[1]);
        if (lastLineY >= mid->y) lower.Set(mid, bottom, perRow[2]);
        const float rightmost = lastColumn + 1.0f;
        for (int line = firstLine; line <= lastLine; ++line) {
            const float s = static_cast<float>(line);
            if (!(s < bottom->y)) break;
            const Edge& shortEdge = s < mid->y ? upper : lower;
            float lx = longEdge.XAt(s), rx = shortEdge.XAt(s);
            const Edge *left = &longEdge, *right = &shortEdge;
            if (rx < lx) {
                std::swap(lx, rx);
                std::swap(left, right);
            }
            if (!(rx - lx > 1e-08f)) continue;
            const int first = CeilToInt(Smaller(Larger(lx, 0.0f), rightmost));
            const int last = FloorToInt(Larger(Smaller(rx, lastColumn), -1.0f));
            if (first > last) continue;
            Span(write, line, first, last, lx, left->CAt(s), rx, right->CAt(s));
        }
    }

    // The lower end of every edge is left out above, so a flat bottom lying on the last row would
    // never be drawn; it gets a span of its own, of the pixels strictly inside whole numbers.
    if (mid->y == lastRow && bottom->y == lastRow && clip.lastOwned == clip.lastRow) {
        const MeshVertex* left = mid;
        const MeshVertex* right = bottom;
        if (right->x < left->x) std::swap(left, right);
        if (!(right->x - left->x > 1e-05f)) return;
        // Held near the image first: a span that this moves lies wholly outside it either way.
        const float margin = lastColumn + 2.0f;
        int first = CeilToInt(Smaller(Larger(left->x, -2.0f), margin));
        int last = FloorToInt(Smaller(Larger(right->x, -2.0f), margin));
        if (last <= first) return;
        first = first < 0 ? 0 : first;
        last = last > clip.lastColumn ? clip.lastColumn : last;
        if (first > last) return;
        Span(write, clip.lastRow, first, last, left->x, left->c, right->x, right->c);
    }
}

// Averaging of the colours that land on one pixel, through its hit count n: the first colour is
// stored as it is, later ones enter as the (n + 1)-th term of a running mean, and once the count
// has reached 255 it stays there and every new colour enters with a weight of 1/256. Each result
// is stored through the element type's rounding.
class HitAverage {
public:
    HitAverage() {
        for (int n = 1; n < 255; ++n)
            reciprocal_[n] = 1.0f / static_cast<float>(n + 1);
        reciprocal_[0] = 1.0f;
        reciprocal_[255] = 0.0f;
    }

    // The new value of a pixel that holds `old` and was hit n times before, with the count after.
    [[gnu::always_inline]] Float4 Mix(Float4 old, Float4 c, uint8_t& n) const {
        if (n == 255) return (old * 255.0f + c) * 0.00390625f;
        const float count = static_cast<float>(n);
        const Float4 mixed = (old * count + c) * reciprocal_[n];
        ++n;
        return mixed;
    }

private:
    float reciprocal_[256];
};

// The vertex rows and columns that a mesh walk covers, inclusive: cells lie between row r and
// r + 1 for r from firstRow up to lastRow - 1, and likewise for columns.
struct MeshWalk {
    int firstRow, lastRow, firstColumn, lastColumn;
};

// The change of x and of the colour per row along an edge from the upper row of vertices to the
// lower one.
struct EdgeSlope {
    float dx;
    Float4 dc;
};

// The working arrays of one drawing pass over a mesh of `width` vertex columns: the vertices of
// two rows, their positions once more as one array per coordinate, and per column the change of
// x per row along the vertical edge upper[x]-lower[x] and the diagonal upper[x + 1]-lower[x],
// with the reciprocals of their heights. The arrays by column hold kCellPadding more entries.
struct MeshSpace {
    MeshVertex* upper;
    MeshVertex* lower;
    float* upperX;
    float* upperY;
    float* lowerX;
    float* lowerY;
    float* verticalDx;
    float* verticalPerRow;
    float* diagonalDx;
    float* diagonalPerRow;
    size_t bytes;

    MeshSpace(uint8_t* block, int width) {
        const size_t w = static_cast<size_t>(width);
        const size_t padded = w + kCellPadding;
        Carver carver(block);
        upper = carver.Take<MeshVertex>(w);
        lower = carver.Take<MeshVertex>(w);
        upperX = carver.Take<float>(padded);
        upperY = carver.Take<float>(padded);
        lowerX = carver.Take<float>(padded);
        lowerY = carver.Take<float>(padded);
        verticalDx = carver.Take<float>(padded);
        verticalPerRow = carver.Take<float>(padded);
        diagonalDx = carver.Take<float>(padded);
        diagonalPerRow = carver.Take<float>(padded);
        bytes = carver.Used();
    }
    static size_t Bytes(int width) { return MeshSpace(nullptr, width).bytes; }
};

namespace mesh_detail {

// The position and colour of an edge on scanline s, from its upper end a.
struct Crossing {
    float x;
    const MeshVertex* a;
    const EdgeSlope* slope;

    [[gnu::always_inline]] static Crossing On(float s, const MeshVertex& a,
                                              const EdgeSlope& slope) {
        return {a.x + (s - a.y) * slope.dx, &a, &slope};
    }
    Float4 C(float s) const { return a->c + (s - a->y) * slope->dc; }
};

// A span between two crossings of scanline `line`, drawn as DrawTriangle draws it.
template <class Writer>
[[gnu::always_inline]] inline void CrossingSpan(Writer& write, int line, float s, const Crossing& p,
                                                const Crossing& q, float lastColumn) {
    const bool ordered = !(q.x < p.x);
    const Crossing& left = ordered ? p : q;
    const Crossing& right = ordered ? q : p;
    const float lx = left.x, rx = right.x;
    if (!(rx - lx > 1e-08f)) return;
    const int first = CeilToInt(Smaller(Larger(lx, 0.0f), lastColumn + 1.0f));
    const int last = FloorToInt(Larger(Smaller(rx, lastColumn), -1.0f));
    if (first > last) return;
    Span(write, line, first, last, lx, left.C(s), rx, right.C(s));
}

inline float Min3(float a, float b, float c) {
    return Smaller(Smaller(a, b), c);
}
inline float Max3(float a, float b, float c) {
    return Larger(Larger(a, b), c);
}

// The colour of an edge from `from` to `to` on scanline s, where perRow is one over its height.
[[gnu::always_inline]] inline Float4 EdgeColour(const MeshVertex& from, const MeshVertex& to,
                                                float perRow, float s) {
    return from.c + (s - from.y) * ((to.c - from.c) * perRow);
}

// The positions of a built row of vertices, one array per coordinate, and whether any of them
// lies nowhere. The padding repeats the last vertex.
inline bool SplitPositions(const MeshVertex* vertices, int x0, int x1, float* xs, float* ys) {
    bool far = false;
    for (int x = x0; x <= x1; ++x) {
        xs[x] = vertices[x].x;
        ys[x] = vertices[x].y;
        far |= !Near(vertices[x]);
    }
    for (int x = x1 + 1; x <= x1 + kCellPadding - 1; ++x) {
        xs[x] = vertices[x1].x;
        ys[x] = vertices[x1].y;
    }
    return far;
}

// The change of x per row and the reciprocal height of the vertical edge of every column
// x0..x1 and of the diagonal of every column x0..x1 - 1 between two rows of positions; the
// padding past them gets the values of harmless, equal rows.
inline void EdgeSlopes(const MeshSpace& space, const float* __restrict upperX,
                       const float* __restrict upperY, const float* __restrict lowerX,
                       const float* __restrict lowerY, int x0, int x1) {
    float* __restrict verticalDx = space.verticalDx;
    float* __restrict verticalPerRow = space.verticalPerRow;
    float* __restrict diagonalDx = space.diagonalDx;
    float* __restrict diagonalPerRow = space.diagonalPerRow;
    for (int x = x0; x <= x1; ++x) {
        const float perRow = 1.0f / (lowerY[x] - upperY[x]);
        verticalPerRow[x] = perRow;
        verticalDx[x] = (lowerX[x] - upperX[x]) * perRow;
        const float perDiagonalRow = 1.0f / (lowerY[x] - upperY[x + 1]);
        diagonalPerRow[x] = perDiagonalRow;
        diagonalDx[x] = (lowerX[x] - upperX[x + 1]) * perDiagonalRow;
    }
    for (int x = x1 + 1; x <= x1 + kCellPadding - 1; ++x) {
        verticalPerRow[x] = verticalDx[x] = diagonalPerRow[x] = diagonalDx[x] = 0.0f;
    }
}

} // namespace mesh_detail

// Walks the cells of `walk` row by row, top to bottom and left to right, and draws the two
// triangles of each cell, (x, y), (x + 1, y), (x, y + 1) and then (x + 1, y + 1), (x + 1, y),
// (x, y + 1), into the rows of `clip`, exactly as DrawTriangle would one after the other.
// build(r, vertices) fills the vertices of mesh row r at their column indices. When `reachLow` is
// given, a row of cells whose vertices cannot land on the rows of `clip` (reachLow and reachHigh
// bound the target row of each mesh row's vertices) is passed over. report(r) is called for every
// row of cells, drawn or not.
//
// In the common case a scanline passes below both upper corners of a triangle and above its
// lower ones, and crosses exactly the vertical and the diagonal edge of the cell. The slopes of
// those edges are made once per row of cells and shared by neighbouring triangles. The cells are
// taken several at a time: the spans of the plain ones (see FindCellSpans) are found in lanes, and
// then, cell by cell in order, the spans that hold pixels are written and the other cells drawn
// the general way, where only the lines of a triangle beside a flat or tilted upper or lower edge
// take DrawTriangle, limited to those lines. Per pixel the colours thus arrive in the order of
// drawing the triangles one by one.
template <class Build, class Writer, class Report>
void DrawMesh(const MeshWalk& walk, const RasterClip& clip, const float* reachLow,
              const float* reachHigh, const MeshSpace& space, Build&& build, Writer& write,
              Report&& report) {
    using namespace mesh_detail;
    MeshVertex* upperRow = space.upper;
    MeshVertex* lowerRow = space.lower;
    float* upperX = space.upperX;
    float* upperY = space.upperY;
    float* lowerX = space.lowerX;
    float* lowerY = space.lowerY;
    bool upperFar = false;
    int held = -1; // the mesh row whose vertices upperRow holds
    const float firstOwned = static_cast<float>(clip.firstOwned);
    const float lastOwned = static_cast<float>(clip.lastOwned);
    const float lastColumn = static_cast<float>(clip.lastColumn);
    const CellBounds bounds{lastColumn, firstOwned, lastOwned};
    const int x0 = walk.firstColumn, x1 = walk.lastColumn;
    // The first scanline at or below `from`, and the last one above `to`, within the owned rows
    // or just outside them.
    auto firstLine = [&](float from) {
        return CeilToInt(Smaller(Larger(from, firstOwned), lastOwned + 1.0f));
    };
    auto lastLineAbove = [&](float to) {
        const float below = Larger(Smaller(to, lastOwned + 1.0f), firstOwned - 1.0f);
        const int line = FloorToInt(below);
        return static_cast<float>(line) == below ? line - 1 : line;
    };
    for (int r = walk.firstRow; r < walk.lastRow; ++r) {
        if (reachLow) {
            const float low = Smaller(reachLow[r], reachLow[r + 1]);
            const float high = Larger(reachHigh[r], reachHigh[r + 1]);
            if (!(high >= firstOwned && low <= lastOwned)) {
                report(r);
                continue;
            }
        }
        if (held != r) {
            build(r, upperRow);
            upperFar = SplitPositions(upperRow, x0, x1, upperX, upperY);
        }
        build(r + 1, lowerRow);
        const bool lowerFar = SplitPositions(lowerRow, x0, x1, lowerX, lowerY);
        const bool far = upperFar || lowerFar;
        const MeshVertex* const upper = upperRow;
        const MeshVertex* const lower = lowerRow;
        EdgeSlopes(space, upperX, upperY, lowerX, lowerY, x0, x1);

        // The edge from upper[x] (or upper[x + 1]) to lower[x], for the general way.
        auto verticalEdge = [&](int x) {
            return EdgeSlope{space.verticalDx[x],
                             (lower[x].c - upper[x].c) * space.verticalPerRow[x]};
        };
        auto diagonalEdge = [&](int x) {
            return EdgeSlope{space.diagonalDx[x],
                             (lower[x].c - upper[x + 1].c) * space.diagonalPerRow[x]};
        };

        // One cell, each triangle taking DrawTriangle for the lines that the vertical and the
        // diagonal edge do not bound.
        auto drawCell = [&](int x) {
            const MeshVertex& a = upper[x];
            const MeshVertex& b = upper[x + 1];
            const MeshVertex& c = lower[x];
            const MeshVertex& d = lower[x + 1];
            if (far) { // corners that lie nowhere: the general way only
                DrawTriangle(a, b, c, clip, write);
                DrawTriangle(d, b, c, clip, write);
                return;
            }
            const EdgeSlope vertical = verticalEdge(x);
            const EdgeSlope diagonal = diagonalEdge(x);

            // The triangle a, b, c: when c is its lowest corner, the lines from the lower of a
            // and b down cross the vertical edge and the diagonal; those above it cross the
            // upper edge.
            const float upperEnd = Larger(a.y, b.y);
            if (c.y > upperEnd) {
                const int split = firstLine(upperEnd);
                if (Smaller(a.y, b.y) <= static_cast<float>(split - 1)) {
                    const RasterClip above{clip.lastColumn, clip.lastRow, clip.firstOwned,
                                           split - 1 < clip.lastOwned ? split - 1 : clip.lastOwned};
                    if (above.firstOwned <= above.lastOwned) DrawTriangle(a, b, c, above, write);
                }
                const int last = lastLineAbove(c.y);
                for (int line = split; line <= last; ++line) {
                    const float s = static_cast<float>(line);
                    CrossingSpan(write, line, s, Crossing::On(s, a, vertical),
                                 Crossing::On(s, b, diagonal), lastColumn);
                }
            } else {
                DrawTriangle(a, b, c, clip, write);
            }

            // The triangle d, b, c: when b is its highest corner, the lines down to the higher of
            // c and d cross the diagonal and the vertical edge; those below it cross the lower
            // edge.
            const float lowerEnd = Smaller(c.y, d.y);
            if (b.y < lowerEnd) {
                const EdgeSlope nextVertical = verticalEdge(x + 1);
                const int first = firstLine(b.y);
                const int last = lastLineAbove(lowerEnd);
                for (int line = first; line <= last; ++line) {
                    const float s = static_cast<float>(line);
                    CrossingSpan(write, line, s, Crossing::On(s, b, diagonal),
                                 Crossing::On(s, b, nextVertical), lastColumn);
                }
                const int below = last + 1 > first ? last + 1 : first;
                if (below <= clip.lastOwned && Larger(c.y, d.y) >= static_cast<float>(below)) {
                    const RasterClip rest{clip.lastColumn, clip.lastRow, below, clip.lastOwned};
                    DrawTriangle(d, b, c, rest, write);
                }
            } else {
                DrawTriangle(d, b, c, clip, write);
            }
        };

        // A span of a plain cell, found by FindCellSpans: the colours of its two edges, the edge
        // that FindCellSpans crossed first being the one the scan conversion takes as the long
        // edge of the triangle.
        auto drawSpan = [&](const CellSpans& spans, int base, int lane, int slot) {
            const int x = base + lane;
            const int line = spans.line[slot][lane];
            const float s = static_cast<float>(line);
            const MeshVertex& a = upper[x];
            const MeshVertex& b = upper[x + 1];
            const MeshVertex& c = lower[x];
            const MeshVertex& d = lower[x + 1];
            Float4 p, q;
            if (slot == kAboveSlot) {
                const bool bHigher = b.y < a.y;
                const MeshVertex& high = bHigher ? b : a;
                const MeshVertex& low = bHigher ? a : b;
                p = EdgeColour(high, c, bHigher ? space.diagonalPerRow[x] : space.verticalPerRow[x],
                               s);
                q = EdgeColour(high, low, 1.0f / (low.y - high.y), s);
            } else if (slot < kLowerSlot) {
                p = EdgeColour(a, c, space.verticalPerRow[x], s);
                q = EdgeColour(b, c, space.diagonalPerRow[x], s);
            } else if (slot < kBelowSlot) {
                p = EdgeColour(b, c, space.diagonalPerRow[x], s);
                q = EdgeColour(b, d, space.verticalPerRow[x + 1], s);
            } else {
                const bool dDeeper = !(d.y <= c.y);
                const MeshVertex& deep = dDeeper ? d : c;
                const MeshVertex& shallow = dDeeper ? c : d;
                p = EdgeColour(b, deep,
                               dDeeper ? space.verticalPerRow[x + 1] : space.diagonalPerRow[x], s);
                q = EdgeColour(shallow, deep, 1.0f / (deep.y - shallow.y), s);
            }
            const bool firstEdgeLeft = spans.firstEdgeLeft[slot][lane] != 0;
            const Float4 lc = firstEdgeLeft ? p : q;
            const Float4 change = (firstEdgeLeft ? q : p) - lc;
            write(line, spans.first[slot][lane], spans.last[slot][lane],
                  lc + change * spans.offset[slot][lane], change * spans.perPixel[slot][lane]);
        };

        if (far) {
            for (int x = x0; x < x1; ++x)
                drawCell(x);
        } else {
            const CellRows rows{upperX, upperY, lowerX, lowerY, space.verticalDx, space.diagonalDx};
            CellSpans spans;
            for (int base = x0; base < x1; base += kCellLanes) {
                const int cells = x1 - base < kCellLanes ? x1 - base : kCellLanes;
                FindCellSpans(rows, base, cells, bounds, spans);
                for (int word = 0; word < kCellLanes / 8; ++word)
                    for (uint64_t todo = spans.todo[word]; todo != 0; todo &= todo - 1) {
                        const int bit = __builtin_ctzll(todo);
                        const int lane = 8 * word + (bit >> 3), slot = bit & 7;
                        if (slot == kGeneralCell)
                            drawCell(base + lane);
                        else
                            drawSpan(spans, base, lane, slot);
                    }
            }
        }

        // The lower row serves as the upper one of the next row of cells.
        std::swap(upperRow, lowerRow);
        std::swap(upperX, lowerX);
        std::swap(upperY, lowerY);
        upperFar = lowerFar;
        held = r + 1;
        report(r);
    }
}

QUELMOR_KERNELS_END
} // namespace warp_detail
