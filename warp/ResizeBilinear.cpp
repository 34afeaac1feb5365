#include "image/Dispatch.h"
#include "image/KernelSpace.h"
#include "image/Parallel.h"
#include "warp/Filters.h"
#include "warp/PixelAccess.h"
#include "warp/Sampling.h"

#include <algorithm>

using warp_detail::CellOf;
using warp_detail::RowView;
using warp_detail::Scratch;
using warp_detail::StoreSample;
using warp_detail::Tap;

QUELMOR_KERNELS_BEGIN

namespace {

// Step between destination samples in source pixels; a destination of one pixel reads the first.
inline float StepOf(int sourceSize, int destSize) {
    if (destSize < 2) return 0.0f;
    return static_cast<float>(sourceSize - 1) / static_cast<float>(destSize - 1);
}

template <class S, class D, int C>
void ResizeRows(DQImage* dest, const DQImage* source) {
    const int width = dest->width;
    const float gx = StepOf(source->width, dest->width);
    const float gy = StepOf(source->height, dest->height);
    const bool rescale = dest->whitePoint != source->whitePoint;
    const float factor = rescale ? dest->whitePoint / source->whitePoint : 1.0f;
    // Neighbour offset in elements; 0 when the source is one pixel wide.
    const int nextX = source->width > 1 ? C : 0;
    const int32_t nextY = source->height > 1 ? source->rowStep : 0;

    Scratch<Tap> columns(static_cast<size_t>(width));
    for (int x = 0; x < width; ++x)
        columns[x] = CellOf(static_cast<float>(x) * gx, source->lastColumn);

    const RowView<S> in(*source);
    const RowView<D> out(*dest);
    ZUMPForRows(dest->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const Tap row = CellOf(static_cast<float>(y) * gy, source->lastRow);
            const S* __restrict r0 = in.Row(row.index);
            const S* __restrict r1 = RowView<S>::Next(r0, nextY);
            const float ty = row.fraction;
            D* __restrict target = out.Row(y);
            for (int x = 0; x < width; ++x) {
                const Tap col = columns[x];
                const S* a = r0 + col.index * C;
                const S* b = r1 + col.index * C;
                for (int c = 0; c < C; ++c) {
                    const float a0 = static_cast<float>(a[c]);
                    const float b0 = static_cast<float>(b[c]);
                    const float top = a0 + col.fraction * (static_cast<float>(a[c + nextX]) - a0);
                    const float bottom =
                        b0 + col.fraction * (static_cast<float>(b[c + nextX]) - b0);
                    float v = top + ty * (bottom - top);
                    if (rescale) v *= factor;
                    target[x * C + c] = StoreSample<D>(v);
                }
            }
        }
    });
}

} // namespace

void ResizeBilinear(DQImage* dest, const DQImage* source) {
    if (!dest || !source) DQThrow(kDQErrBadArgument);
    if (dest->channels != source->channels) DQThrow(kDQErrBadArgument);
    if (dest->width < 1 || dest->height < 1 || source->width < 1 || source->height < 1) return;
    if (!dest->data || !source->data) return;
    const int destType = dest->dataType;
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class S, int C>() {
        DQDispatchType(destType, [&]<class D>() { ResizeRows<S, D, C>(dest, source); });
    });
}

QUELMOR_KERNELS_END
