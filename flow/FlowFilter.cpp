// Separable smoothing of float level images with a plane kept by the caller.
#include "flow/FlowFilter.h"

#include "image/Parallel.h"
#include "warp/Filters.h"
#include "warp/SeparableFilter.h"

#include <algorithm>
#include <array>

namespace {

// The centre half of a symmetric filter: w[0] the centre, w[k] the pair at distance k.
struct HalfKernel {
    int n = 0;
    float w[8] = {};
};

HalfKernel Gauss(float radius) {
    DQFilterKernel full;
    DQMakeGaussKernel(full, radius);
    HalfKernel half;
    half.n = std::min(full.n, 8);
    std::copy(full.w, full.w + half.n, half.w);
    return half;
}

const HalfKernel& KernelOf(DQFlowFilterKind kind) {
    static const std::array<HalfKernel, 5> kernels = [] {
        std::array<HalfKernel, 5> k{};
        k[0].n = 3;
        k[0].w[0] = 0.375f;
        k[0].w[1] = 0.25f;
        k[0].w[2] = 0.0625f;
        k[1] = Gauss(2.0f);
        k[2] = Gauss(3.0f);
        k[3] = Gauss(5.0f);
        k[4] = Gauss(7.0f);
        return k;
    }();
    return kernels[static_cast<int>(kind)];
}

// One output row of the column pass from the plane of rows-filtered lines. The interior adds the
// pairs of taps outwards from the centre; near the top and bottom the taps outside are dropped and
// the rest divided by the sum of their weights, added from the topmost tap down.
void ColumnRow(const float* plane, size_t stride, int height, int y, float* __restrict out,
               int elements, const HalfKernel& f) {
    const float* centre = plane + static_cast<size_t>(y) * stride;
    if (y >= f.n && y < height - f.n) {
        const float w0 = f.w[0];
        {
            const float* __restrict c = centre;
            for (int j = 0; j < elements; ++j)
                out[j] = w0 * c[j];
        }
        for (int k = 1; k < f.n; ++k) {
            const float* __restrict up = centre - static_cast<size_t>(k) * stride;
            const float* __restrict down = centre + static_cast<size_t>(k) * stride;
            const float wk = f.w[k];
            for (int j = 0; j < elements; ++j)
                out[j] += wk * (down[j] + up[j]);
        }
        return;
    }
    const int tLow = std::max(-(f.n - 1), -y);
    const int tHigh = std::min(f.n - 1, height - 1 - y);
    float weights = 0.0f;
    for (int j = 0; j < elements; ++j)
        out[j] = 0.0f;
    for (int t = tLow; t <= tHigh; ++t) {
        const float wt = f.w[t < 0 ? -t : t];
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

} // namespace

DQFlowBuffer::~DQFlowBuffer() {
    ZUMemRelease(data_);
}

float* DQFlowBuffer::Reserve(size_t count) {
    if (count <= capacity_ && data_) return data_;
    ZUMemRelease(data_);
    data_ = nullptr;
    capacity_ = 0;
    data_ = static_cast<float*>(ZUMemAllocate(std::max<size_t>(count, 1) * sizeof(float)));
    capacity_ = count;
    return data_;
}

void DQFlowBlur(DQImage* dest, const DQImage* source, DQFlowFilterKind kind, DQFlowBuffer& plane) {
    if (source->dataType != DQ_FLOAT || dest->dataType != DQ_FLOAT ||
        dest->width != source->width || dest->height != source->height ||
        dest->channels != source->channels)
        DQThrow(kDQErrBadArgument);
    const int width = source->width, height = source->height, channels = source->channels;
    if (width < 1 || height < 1) return;
    const HalfKernel& kernel = KernelOf(kind);
    const warp_detail::SymmetricFilter lineFilter{kernel.w, kernel.n, kernel.n};
    const int elements = width * channels;
    const size_t stride = static_cast<size_t>(elements);
    float* rows = plane.Reserve(stride * static_cast<size_t>(height));
    const int threads = ZUMPNumThreadsForRows(height);
    ZUMPForRows(threads, height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            warp_detail::FilterLine(source->Row<float>(y), rows + stride * static_cast<size_t>(y),
                                    width, channels, lineFilter);
    });
    ZUMPForRows(threads, height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            ColumnRow(rows, stride, height, y, dest->Row<float>(y), elements, kernel);
    });
}
