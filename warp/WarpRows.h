#pragma once
// The row stages of the inverse warp: where each pixel of a row reads in the source, the edge
// handling of the pixels whose position leaves the source, and the fade of a row that does not
// extend its edges. Positions are made eight pixels at a time together with their cells; each
// block of eight remembers whether any of its positions left the source, so that the edge stages
// visit only those blocks.
#include "image/KernelSpace.h"
#include "warp/FlowRows.h"
#include "warp/SampleRow.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN

constexpr int kWarpBlock = 8;

enum PixelKind : uint8_t { kInside, kPartial, kOutside };

// The working arrays of one band, cut from its share of a BandSpace.
struct WarpRowSpace {
    float* sx;
    float* sy;
    float* coverage; // of each partly covered pixel
    PixelKind* kind;
    uint8_t* blockOutside; // per block of kWarpBlock pixels
    RowTaps taps;
    float* flowSpace;
    size_t bytes;

    WarpRowSpace(uint8_t* block, int width) {
        const size_t w = static_cast<size_t>(width);
        Carver carver(block);
        sx = carver.Take<float>(w);
        sy = carver.Take<float>(w);
        coverage = carver.Take<float>(w);
        kind = carver.Take<PixelKind>(w);
        blockOutside = carver.Take<uint8_t>(w / kWarpBlock + 1);
        taps = {carver.Take<int32_t>(w), carver.Take<float>(w), carver.Take<float>(w)};
        flowSpace = carver.Take<float>(FlowRowReader::SpaceFor(width));
        bytes = carver.Used();
    }
    static size_t Bytes(int width) { return WarpRowSpace(nullptr, width).bytes; }
};

// The source's extent and the cell layout of its pixels.
struct SourceFrame {
    float width, height, lastColumn, lastRow;
    int32_t lastColumnIndex, lastRowIndex, pixelBytes, rowStep;

    bool Inside(float px, float py) const {
        return px >= 0.0f && px <= lastColumn && py >= 0.0f && py <= lastRow;
    }
    void SetTap(const RowTaps& taps, int x, float px, float py) const {
        const Tap cx = CellOf(px, lastColumnIndex);
        const Tap cy = CellOf(py, lastRowIndex);
        taps.offset[x] = cy.index * rowStep + cx.index * pixelBytes;
        taps.tx[x] = cx.fraction;
        taps.ty[x] = cy.fraction;
    }
};

// Source positions of row y: (x, y) plus the vector scaled by (gx, gy), with their cells when
// `Cells` is set. Marks the blocks that hold a position outside 0..lastColumn, 0..lastRow (a
// position that is not a number counts as outside) and returns whether there is any.
template <bool Cells>
bool RowPositions(const FlowRowPair& f, float gx, float gy, float y, int width,
                  const SourceFrame& frame, const WarpRowSpace& space) {
    const float ty = f.ty;
    float* __restrict sx = space.sx;
    float* __restrict sy = space.sy;
    const Float8 zero = {};
    const Float8 lastColumn = zero + frame.lastColumn;
    const Float8 lastRow = zero + frame.lastRow;
    Float8 xs = {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f};
    bool any = false;
    int x = 0;
    for (; x + kWarpBlock <= width; x += kWarpBlock, xs += 8.0f) {
        Float8 uTop, uBottom, vTop, vBottom;
        std::memcpy(&uTop, f.upperU + x, sizeof uTop);
        std::memcpy(&uBottom, f.lowerU + x, sizeof uBottom);
        std::memcpy(&vTop, f.upperV + x, sizeof vTop);
        std::memcpy(&vBottom, f.lowerV + x, sizeof vBottom);
        const Float8 u = uTop + ty * (uBottom - uTop);
        const Float8 v = vTop + ty * (vBottom - vTop);
        const Float8 px = gx * u + xs;
        const Float8 py = gy * v + y;
        std::memcpy(sx + x, &px, sizeof px);
        std::memcpy(sy + x, &py, sizeof py);
        const Int8 in = (px >= zero) & (px <= lastColumn) & (py >= zero) & (py <= lastRow);
        const bool out = LaneMask(in) != 0xff;
        space.blockOutside[x / kWarpBlock] = out;
        any |= out;
        if constexpr (Cells) {
            Float8 fx, fy;
            Int8 ix, iy;
            CellsOf8(px, frame.lastColumnIndex, ix, fx);
            CellsOf8(py, frame.lastRowIndex, iy, fy);
            const Int8 offset = iy * frame.rowStep + ix * frame.pixelBytes;
            std::memcpy(space.taps.offset + x, &offset, sizeof offset);
            std::memcpy(space.taps.tx + x, &fx, sizeof fx);
            std::memcpy(space.taps.ty + x, &fy, sizeof fy);
        }
    }
    if (x < width) {
        bool out = false;
        for (int i = x; i < width; ++i) {
            const float u = Lerp(f.upperU[i], f.lowerU[i], ty);
            const float v = Lerp(f.upperV[i], f.lowerV[i], ty);
            sx[i] = gx * u + static_cast<float>(i);
            sy[i] = gy * v + y;
            out |= !frame.Inside(sx[i], sy[i]);
            if constexpr (Cells) frame.SetTap(space.taps, i, sx[i], sy[i]);
        }
        space.blockOutside[x / kWarpBlock] = out;
        any |= out;
    }
    return any;
}

// Calls visit(x) for every pixel of the blocks marked by RowPositions.
template <class Visit>
void ForMarkedPixels(const WarpRowSpace& space, int width, Visit&& visit) {
    for (int block = 0; block * kWarpBlock < width; ++block) {
        if (!space.blockOutside[block]) continue;
        const int end = std::min(width, (block + 1) * kWarpBlock);
        for (int x = block * kWarpBlock; x < end; ++x)
            visit(x);
    }
}

// Edges extended: positions outside the source are shortened along their own vector to its edge.
template <bool Cells>
void ClipRow(const WarpRowSpace& space, int width, float y, const SourceFrame& frame) {
    ForMarkedPixels(space, width, [&](int x) {
        float& px = space.sx[x];
        float& py = space.sy[x];
        if (frame.Inside(px, py)) return;
        ClipToEdges(px, py, static_cast<float>(x), y, frame.lastColumn, frame.lastRow);
        if constexpr (Cells) frame.SetTap(space.taps, x, px, py);
    });
}

// Edges that fade: which pixels are wholly outside (their positions are moved to the origin so
// that sampling them is harmless), which are partly inside (shortened to the edge, with the
// running coverage of the band), and which are inside. Pixels are visited in order, as the
// coverage carries over from one partly covered pixel to the next.
template <bool Cells>
void ClassifyRow(const WarpRowSpace& space, int width, float y, const SourceFrame& frame,
                 float& coverage) {
    std::memset(space.kind, kInside, static_cast<size_t>(width));
    ForMarkedPixels(space, width, [&](int x) {
        float px = space.sx[x];
        float py = space.sy[x];
        if (px <= -1.0f || px >= frame.width || py <= -1.0f || py >= frame.height) {
            space.kind[x] = kOutside;
            px = py = 0.0f;
        } else if (frame.Inside(px, py)) {
            return;
        } else {
            if (px < 0.0f)
                coverage = px + 1.0f;
            else if (px > frame.lastColumn)
                coverage = frame.width - px;
            if (py < 0.0f)
                coverage *= py + 1.0f;
            else if (py > frame.lastRow)
                coverage *= frame.height - py;
            ClipToEdges(px, py, static_cast<float>(x), y, frame.lastColumn, frame.lastRow);
            space.kind[x] = kPartial;
            space.coverage[x] = coverage;
        }
        space.sx[x] = px;
        space.sy[x] = py;
        if constexpr (Cells) frame.SetTap(space.taps, x, px, py);
    });
}

inline uint8_t CoverageWeight(float coverage) {
    return StoreSample<uint8_t>(coverage * 255.0f);
}

// After sampling a row that fades: black for pixels wholly outside, the stored value faded by
// the coverage for pixels partly inside, and the weights of all.
template <class T, int C>
void FinishFadedRow(T* target, uint8_t* weight, const WarpRowSpace& space, int width) {
    if (weight) std::memset(weight, 255, static_cast<size_t>(width));
    ForMarkedPixels(space, width, [&](int x) {
        T* pixel = target + x * C;
        if (space.kind[x] == kOutside) {
            for (int c = 0; c < C; ++c)
                pixel[c] = T(0);
            if (weight) weight[x] = 0;
        } else if (space.kind[x] == kPartial) {
            const float coverage = space.coverage[x];
            for (int c = 0; c < C; ++c) {
                if constexpr (std::is_floating_point_v<T>)
                    pixel[c] = pixel[c] * coverage;
                else
                    pixel[c] = StoreSample<T>(static_cast<float>(pixel[c]) * coverage);
            }
            if (weight) weight[x] = CoverageWeight(coverage);
        }
    });
}

QUELMOR_KERNELS_END
} // namespace warp_detail
