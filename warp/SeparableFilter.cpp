#include "warp/SeparableFilter.h"
#include "image/KernelSpace.h"

#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "warp/PixelAccess.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

namespace warp_detail {
QUELMOR_KERNELS_BEGIN
namespace {

// Columns are filtered in blocks of this many floats so that the accumulator stays in cache
// while the 2n - 1 rows stream past it.
constexpr int kColumnBlock = 1024;

// A sample near the end of a line: the taps that fall outside are dropped from the sum and from
// the sum of weights. `at(p)` reads sample p of the line.
template <class At>
inline float EdgeSample(int i, int length, const SymmetricFilter& f, At&& at) {
    float sum = 0.0f;
    float weights = 0.0f;
    for (int t = -(f.n - 1); t <= f.n - 1; ++t) {
        const int p = i + t;
        if (p < 0 || p >= length) continue;
        const float wt = f.w[t < 0 ? -t : t];
        sum += wt * at(p);
        weights += wt;
    }
    return weights != 0.0f ? sum / weights : 0.0f;
}

template <class T>
void LoadRow(const T* __restrict row, float* __restrict line, int elements) {
    for (int j = 0; j < elements; ++j)
        line[j] = static_cast<float>(row[j]);
}

template <class T>
void StoreRow(const float* __restrict line, T* __restrict row, int elements) {
    for (int j = 0; j < elements; ++j)
        row[j] = StoreSample<T>(line[j]);
}

template <class T>
void QuantiseRow(float* line, int elements) {
    if constexpr (!std::is_floating_point_v<T>) {
        for (int j = 0; j < elements; ++j)
            line[j] = Quantise<T>(line[j]);
    }
}

template <class T>
void FilterImage(DQImage* dest, const DQImage* source, const SymmetricFilter& f, bool rows,
                 bool columns) {
    const int width = source->width;
    const int height = source->height;
    const int channels = source->channels;
    const int elements = width * channels;
    const size_t stride = static_cast<size_t>(elements);
    const int threads = ZUMPNumThreadsForRows(height);

    // Two line buffers per band, and the whole image in floats between the two passes. Both are
    // made before any band starts, so bands allocate nothing.
    Scratch<float> lines(2 * stride * static_cast<size_t>(std::max(threads, 1)));
    const size_t planeSize = columns ? stride * static_cast<size_t>(height) : 0;
    Scratch<float> plane(planeSize);
    const RowView<T> in(*source);
    const RowView<T> out(*dest);

    if (rows) {
        ZUMPForRows(threads, height, [&](int worker, int first, int last) {
            float* lineIn = lines.get() + 2 * stride * static_cast<size_t>(worker);
            float* lineOut = lineIn + stride;
            for (int y = first; y <= last; ++y) {
                const float* src;
                if constexpr (std::is_floating_point_v<T>) {
                    src = in.Row(y);
                } else {
                    LoadRow(in.Row(y), lineIn, elements);
                    src = lineIn;
                }
                if (columns) {
                    // The rows of an integer image are stored between the passes, so the column
                    // pass reads them back rounded.
                    float* target = plane.get() + stride * static_cast<size_t>(y);
                    FilterLine(src, target, width, channels, f);
                    QuantiseRow<T>(target, elements);
                } else {
                    FilterLine(src, lineOut, width, channels, f);
                    StoreRow(lineOut, out.Row(y), elements);
                }
            }
        });
    } else {
        ZUMPForRows(threads, height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y)
                LoadRow(in.Row(y), plane.get() + stride * static_cast<size_t>(y), elements);
        });
    }
    if (!columns) return;

    ZUMPForRows(threads, height, [&](int worker, int first, int last) {
        float* lineOut = lines.get() + 2 * stride * static_cast<size_t>(worker);
        for (int y = first; y <= last; ++y) {
            FilterColumnRow(plane.get(), stride, height, y, lineOut, elements, f);
            StoreRow(lineOut, out.Row(y), elements);
        }
    });
}

} // namespace

// One output row of the column pass from the float image `rows` (row y at rows + y * stride).
void FilterColumnRow(const float* rows, size_t stride, int height, int y, float* __restrict out,
                     int elements, const SymmetricFilter& f) {
    const float* w = f.w;
    const float* centre = rows + static_cast<size_t>(y) * stride;
    if (y >= f.edge && y < height - f.edge) {
        for (int j0 = 0; j0 < elements; j0 += kColumnBlock) {
            const int count = std::min(kColumnBlock, elements - j0);
            const float* __restrict c = centre + j0;
            float* __restrict o = out + j0;
            const float w0 = w[0];
            for (int j = 0; j < count; ++j)
                o[j] = w0 * c[j];
            for (int k = 1; k < f.n; ++k) {
                const float* __restrict up = c - static_cast<size_t>(k) * stride;
                const float* __restrict down = c + static_cast<size_t>(k) * stride;
                const float wk = w[k];
                for (int j = 0; j < count; ++j)
                    o[j] += wk * (down[j] + up[j]);
            }
        }
        return;
    }
    // Near the top or bottom every element of the row drops the same taps, so the sum of the
    // weights used is one number for the whole row.
    const int tLow = std::max(-(f.n - 1), -y);
    const int tHigh = std::min(f.n - 1, height - 1 - y);
    float weights = 0.0f;
    for (int j = 0; j < elements; ++j)
        out[j] = 0.0f;
    for (int t = tLow; t <= tHigh; ++t) {
        const float wt = w[t < 0 ? -t : t];
        weights += wt;
        const float* __restrict src =
            centre + static_cast<ptrdiff_t>(t) * static_cast<ptrdiff_t>(stride);
        for (int j = 0; j < elements; ++j)
            out[j] += wt * src[j];
    }
    if (weights == 0.0f) {
        for (int j = 0; j < elements; ++j)
            out[j] = 0.0f;
        return;
    }
    for (int j = 0; j < elements; ++j)
        out[j] /= weights;
}

void FilterLineRange(const float* __restrict in, float* __restrict out, int length, int channels,
                     int first, int end, const SymmetricFilter& f) {
    const int midBegin = std::min(f.edge, length);
    const int midEnd = std::max(length - f.edge, midBegin);
    const int innerBegin = std::max(first, midBegin);
    const int innerEnd = std::min(end, midEnd);
    if (innerEnd > innerBegin) {
        const float* w = f.w;
        const int j0 = innerBegin * channels;
        const int j1 = innerEnd * channels;
        const float w0 = w[0];
        for (int j = j0; j < j1; ++j)
            out[j] = w0 * in[j];
        for (int k = 1; k < f.n; ++k) {
            const int s = k * channels;
            const float wk = w[k];
            for (int j = j0; j < j1; ++j)
                out[j] += wk * (in[j + s] + in[j - s]);
        }
    }
    for (int c = 0; c < channels; ++c) {
        auto at = [&](int p) { return in[p * channels + c]; };
        for (int i = first; i < std::min(end, midBegin); ++i)
            out[i * channels + c] = EdgeSample(i, length, f, at);
        for (int i = std::max(first, midEnd); i < end; ++i)
            out[i * channels + c] = EdgeSample(i, length, f, at);
    }
}

void FilterLine(const float* in, float* out, int length, int channels, const SymmetricFilter& f) {
    FilterLineRange(in, out, length, channels, 0, length, f);
}

void FilterSeparable(DQImage* dest, const DQImage* source, const SymmetricFilter& filter, bool rows,
                     bool columns) {
    if (!dest || !source || (!rows && !columns)) return;
    if (source->dataType < DQ_UCHAR || source->dataType > DQ_FLOAT) return;
    if (source->channels < 1 || source->channels > 4) return;
    if (dest->width != source->width || dest->height != source->height ||
        dest->channels != source->channels || dest->dataType != source->dataType)
        DQThrow(kDQErrBadArgument);
    if (source->width < 1 || source->height < 1 || !source->data || !dest->data) return;
    if (filter.n < 1) return;
    DQDispatchType(source->dataType,
                   [&]<class T>() { FilterImage<T>(dest, source, filter, rows, columns); });
}

QUELMOR_KERNELS_END
} // namespace warp_detail

QUELMOR_KERNELS_BEGIN
void FilterSeparableTaps(DQImage* dest, const DQImage* source, const float* w, int n, int edge,
                         bool rows, bool columns) {
    warp_detail::SymmetricFilter filter;
    filter.w = w;
    filter.n = n;
    filter.edge = edge;
    warp_detail::FilterSeparable(dest, source, filter, rows, columns);
}
QUELMOR_KERNELS_END
