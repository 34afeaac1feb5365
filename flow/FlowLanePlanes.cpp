// Padded float planes for the eight-lane sweeps: shapes, loads from images as they lie or
// transposed, stores back and transposes between planes, each in bands of target lines.
// Transposes move 8x8 tiles through vector registers.
#include "flow/FlowLanePlanes.h"
#include "image/KernelSpace.h"

#include "flow/FlowLanes.h"
#include "image/Parallel.h"

#include <algorithm>

QUELMOR_KERNELS_BEGIN

namespace {

using namespace flow_lanes;

// Eight elements from p, kStep apart. `odd` says that p is the second element of a pair: the pair
// load then starts one element earlier, so that it reads the 15 floats from the first pair's
// start to the eighth element and never the float after the eighth pair.
template <int kStep>
inline F8 LoadEvery(const float* p, bool odd) {
    if constexpr (kStep == 1) {
        return Load(p);
    } else if constexpr (kStep == 2) {
        F8 evens, odds;
        if (odd) {
            LoadPairs(p - 1, &evens, &odds);
            return odds;
        }
        LoadPairs(p, &evens, &odds);
        return evens;
    } else {
        F8 v;
        for (int k = 0; k < kDQFlowLanes; ++k)
            v[k] = p[k * kStep];
        return v;
    }
}

// Element i of v[r] moves to element r of v[i].
inline void TransposeTile(F8 v[8]) {
    F8 pairs[8], quads[8];
    for (int i = 0; i < 8; i += 2) {
        pairs[i] = __builtin_shuffle(v[i], v[i + 1], I8{0, 8, 1, 9, 4, 12, 5, 13});
        pairs[i + 1] = __builtin_shuffle(v[i], v[i + 1], I8{2, 10, 3, 11, 6, 14, 7, 15});
    }
    for (int i = 0; i < 8; i += 4)
        for (int j = 0; j < 2; ++j) {
            quads[i + 2 * j] =
                __builtin_shuffle(pairs[i + j], pairs[i + j + 2], I8{0, 1, 8, 9, 4, 5, 12, 13});
            quads[i + 2 * j + 1] =
                __builtin_shuffle(pairs[i + j], pairs[i + j + 2], I8{2, 3, 10, 11, 6, 7, 14, 15});
        }
    for (int i = 0; i < 4; ++i) {
        v[i] = __builtin_shuffle(quads[i], quads[i + 4], I8{0, 1, 2, 3, 8, 9, 10, 11});
        v[i + 4] = __builtin_shuffle(quads[i], quads[i + 4], I8{4, 5, 6, 7, 12, 13, 14, 15});
    }
}

[[maybe_unused]] ptrdiff_t StrideOf(int lanes) {
    const int width = DQFlowLanePlane::kPadBefore + lanes + DQFlowLanePlane::kPadAfter;
    return (width + kDQFlowLanes - 1) / kDQFlowLanes * kDQFlowLanes;
}

// Zeros before the line, the repeat of its last element and zeros after it.
void PadLine(const DQFlowLanePlane& plane, int s) {
    float* line = plane.At(0, s);
    std::fill(line - DQFlowLanePlane::kPadBefore, line, 0.0f);
    line[plane.lanes] = line[plane.lanes - 1];
    std::fill(line + plane.lanes + 1, line - DQFlowLanePlane::kPadBefore + plane.stride, 0.0f);
}

void CopyGuardLine(const DQFlowLanePlane& plane) {
    const float* last = plane.At(-DQFlowLanePlane::kPadBefore, plane.lines - 1);
    std::copy(last, last + plane.stride, plane.At(-DQFlowLanePlane::kPadBefore, plane.lines));
}

// target(t, s) = line(t)[s * kStep] over the target's lanes and lines, in bands of eight target
// lines; `pad` also pads the lines written. `odd` says that every line starts on the second
// element of a pair (channel 1 of two).
template <int kStep, class Line>
void TransposeInto(const DQFlowLanePlane& target, Line line, bool pad, bool odd = false) {
    const int tiles = (target.lines + 7) / 8;
    ZUMPForRows(tiles, [&](int, int first, int last) {
        for (int tile = first; tile <= last; ++tile) {
            const int s0 = 8 * tile, count = std::min(8, target.lines - s0);
            int t0 = 0;
            if (count == 8) {
                for (; t0 + 8 <= target.lanes; t0 += 8) {
                    F8 v[8];
                    for (int r = 0; r < 8; ++r)
                        v[r] = LoadEvery<kStep>(line(t0 + r) + s0 * kStep, odd);
                    TransposeTile(v);
                    for (int i = 0; i < 8; ++i)
                        Store(target.At(t0, s0 + i), v[i]);
                }
            }
            for (int i = 0; i < count; ++i) {
                for (int t = t0; t < target.lanes; ++t)
                    *target.At(t, s0 + i) = line(t)[(s0 + i) * kStep];
                if (pad) PadLine(target, s0 + i);
            }
        }
    });
}

} // namespace

QUELMOR_KERNELS_END

// The shape is not a kernel: the first copy of this unit alone defines it.
#ifndef QUELMOR_KERNEL_SECOND_COPY
size_t DQFlowLanePlane::Floats(int lanes, int lines) {
    return static_cast<size_t>(StrideOf(lanes)) * static_cast<size_t>(lines + 1);
}

DQFlowLanePlane DQFlowLanePlane::Over(float* block, int lanes, int lines) {
    DQFlowLanePlane plane;
    plane.origin = block + kPadBefore;
    plane.stride = StrideOf(lanes);
    plane.lanes = lanes;
    plane.lines = lines;
    return plane;
}
#endif

QUELMOR_KERNELS_BEGIN

void DQFlowLoadLanePlane(DQFlowLanePlane& plane, const DQImage* image, int channel,
                         bool transposed) {
    const int c = image->channels;
    if (transposed) {
        const auto line = [&](int t) { return image->Row<float>(t) + channel; };
        if (c == 1)
            TransposeInto<1>(plane, line, true);
        else if (c == 2)
            TransposeInto<2>(plane, line, true, channel % 2 == 1);
        else if (c == 3)
            TransposeInto<3>(plane, line, true);
        else
            TransposeInto<4>(plane, line, true);
    } else {
        ZUMPForRows(plane.lines, [&](int, int first, int last) {
            for (int s = first; s <= last; ++s) {
                const float* __restrict row = image->Row<float>(s) + channel;
                float* __restrict line = plane.At(0, s);
                for (int t = 0; t < plane.lanes; ++t)
                    line[t] = row[t * c];
                PadLine(plane, s);
            }
        });
    }
    CopyGuardLine(plane);
}

void DQFlowStoreLanePlane(const DQFlowLanePlane& plane, DQImage* image, int channel) {
    const int c = image->channels;
    ZUMPForRows(image->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* __restrict row = image->Row<float>(y) + channel;
            const float* __restrict line = plane.At(0, y);
            for (int x = 0; x < image->width; ++x)
                row[x * c] = line[x];
        }
    });
}

void DQFlowTransposeLanePlane(DQFlowLanePlane& target, const DQFlowLanePlane& source) {
    TransposeInto<1>(
        target, [&](int t) { return source.At(0, t); }, false);
}

QUELMOR_KERNELS_END
