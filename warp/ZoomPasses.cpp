// The passes of the zoom, over contribution tables made by the driver. Each output element is the
// sum of its taps in table order, limited to 0 .. 255 and stored in the image's element type; the
// order of the sums is the same in every copy of this unit and for every band count.
#include "warp/ZoomPasses.h"
#include "image/KernelSpace.h"

#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "warp/PixelAccess.h"
#include "warp/Sampling.h"

#include <algorithm>
#include <type_traits>

using warp_detail::Float4;
using warp_detail::RowView;

QUELMOR_KERNELS_BEGIN

namespace {

// The limit of every sum, whatever the element type.
constexpr float kZoomCeiling = 255.0f;

// Limits v to 0 .. 255 (NaN gives 0) and stores it; integer types add 0.5 and truncate.
template <class T>
inline T StoreLimited(float v) {
    v = std::min(std::max(v, 0.0f), kZoomCeiling);
    if constexpr (std::is_floating_point_v<T>)
        return v;
    else
        return static_cast<T>(static_cast<int32_t>(v + 0.5f));
}

template <class T>
void StoreLine(const float* __restrict line, T* __restrict row, int elements) {
    for (int j = 0; j < elements; ++j)
        row[j] = StoreLimited<T>(line[j]);
}

template <class T>
void LoadLine(const T* __restrict row, float* __restrict line, int elements) {
    for (int j = 0; j < elements; ++j)
        line[j] = static_cast<float>(row[j]);
}

// One output row of the pass along rows, from a row of floats.
template <class T, int C>
void SumAlongRow(const float* __restrict in, T* __restrict out, const DQZoomTable& table) {
    const int32_t stride = table.stride;
    for (int32_t o = 0; o < table.outputs; ++o) {
        const int32_t count = table.count[o];
        const int32_t* __restrict offset = table.offset + static_cast<size_t>(o) * stride;
        const float* __restrict weight = table.weight + static_cast<size_t>(o) * stride;
        T* target = out + static_cast<size_t>(o) * C;
        if constexpr (C == 4) {
            Float4 sum = {0.0f, 0.0f, 0.0f, 0.0f};
            for (int32_t t = 0; t < count; ++t) {
                Float4 pixel;
                __builtin_memcpy(&pixel, in + offset[t], sizeof pixel);
                sum += weight[t] * pixel;
            }
            for (int c = 0; c < 4; ++c)
                target[c] = StoreLimited<T>(sum[c]);
        } else {
            float sum[C] = {};
            for (int32_t t = 0; t < count; ++t) {
                const float w = weight[t];
                const float* pixel = in + offset[t];
                for (int c = 0; c < C; ++c)
                    sum[c] += w * pixel[c];
            }
            for (int c = 0; c < C; ++c)
                target[c] = StoreLimited<T>(sum[c]);
        }
    }
}

template <class T, int C>
void AlongRows(DQImage* dest, const DQImage* source, const DQZoomTable& table,
               const DQZoomLines& lines, int bands) {
    const RowView<T> in(*source);
    const RowView<T> out(*dest);
    const int elements = source->width * C;
    ZUMPForRows(bands, source->height, [&](int worker, int first, int last) {
        float* line = lines.data + lines.floats * static_cast<size_t>(worker);
        for (int y = first; y <= last; ++y) {
            const float* row;
            if constexpr (std::is_floating_point_v<T>) {
                row = in.Row(y);
            } else {
                LoadLine(in.Row(y), line, elements);
                row = line;
            }
            SumAlongRow<T, C>(row, out.Row(y), table);
        }
    });
}

// One output row of the pass down columns: the weighted rows summed element by element.
template <class T>
void SumDownColumns(const RowView<T>& in, const int32_t* __restrict offset,
                    const float* __restrict weight, int32_t count, float* __restrict sum,
                    int elements) {
    for (int j = 0; j < elements; ++j)
        sum[j] = 0.0f;
    for (int32_t t = 0; t < count; ++t) {
        const T* __restrict row = in.Row(offset[t]);
        const float w = weight[t];
        for (int j = 0; j < elements; ++j)
            sum[j] += w * static_cast<float>(row[j]);
    }
}

template <class T>
void DownColumns(DQImage* dest, const DQImage* source, const DQZoomTable& table,
                 const DQZoomLines& lines, int bands) {
    const RowView<T> in(*source);
    const RowView<T> out(*dest);
    const int elements = source->width * source->channels;
    ZUMPForRows(bands, dest->height, [&](int worker, int first, int last) {
        float* sum = lines.data + lines.floats * static_cast<size_t>(worker);
        for (int y = first; y <= last; ++y) {
            const size_t at = static_cast<size_t>(y) * table.stride;
            SumDownColumns(in, table.offset + at, table.weight + at, table.count[y], sum, elements);
            StoreLine(sum, out.Row(y), elements);
        }
    });
}

} // namespace

void DQZoomAlongRows(DQImage* dest, const DQImage* source, const DQZoomTable& table,
                     const DQZoomLines& lines, int bands) {
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class T, int C>() {
        AlongRows<T, C>(dest, source, table, lines, bands);
    });
}

void DQZoomDownColumns(DQImage* dest, const DQImage* source, const DQZoomTable& table,
                       const DQZoomLines& lines, int bands) {
    DQDispatchType(source->dataType,
                   [&]<class T>() { DownColumns<T>(dest, source, table, lines, bands); });
}

QUELMOR_KERNELS_END
