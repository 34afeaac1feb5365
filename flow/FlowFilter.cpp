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
            warp_detail::FilterColumnRow(rows, stride, height, y, dest->Row<float>(y), elements,
                                         lineFilter);
    });
}
