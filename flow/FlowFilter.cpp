// Separable smoothing of float level images with a plane kept by the caller.
#include "flow/FlowFilter.h"
#include "image/KernelSpace.h"

#include "image/Parallel.h"
#include "warp/Filters.h"
#include "warp/SeparableFilter.h"

#include <algorithm>
#include <array>
#include <vector>

QUELMOR_KERNELS_BEGIN

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
    static const std::array<HalfKernel, 7> kernels = [] {
        std::array<HalfKernel, 7> k{};
        k[0].n = 3;
        k[0].w[0] = 0.375f;
        k[0].w[1] = 0.25f;
        k[0].w[2] = 0.0625f;
        k[1] = Gauss(2.0f);
        k[2] = Gauss(3.0f);
        k[3] = Gauss(5.0f);
        k[4] = Gauss(7.0f);
        k[5] = Gauss(1.95f);
        k[6] = Gauss(2.5f);
        return k;
    }();
    return kernels[static_cast<int>(kind)];
}

// Bytes of rows filtered along that a band keeps for the column pass at one time.
constexpr size_t kWindowBytes = 256 * 1024;

} // namespace

QUELMOR_KERNELS_END

// The buffer is not a kernel: the first copy of this unit alone defines it.
#ifndef QUELMOR_KERNEL_SECOND_COPY
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
#endif

QUELMOR_KERNELS_BEGIN

void DQFlowBlur(DQImage* dest, const DQImage* source, DQFlowFilterKind kind, DQFlowBuffer& plane) {
    if (source->dataType != DQ_FLOAT || dest->dataType != DQ_FLOAT ||
        dest->width != source->width || dest->height != source->height ||
        dest->channels != source->channels)
        DQThrow(kDQErrBadArgument);
    const int width = source->width, height = source->height, channels = source->channels;
    if (width < 1 || height < 1) return;
    const HalfKernel& kernel = KernelOf(kind);
    const warp_detail::SymmetricFilter filter{kernel.w, kernel.n, kernel.n};
    const int elements = width * channels;
    const size_t stride = static_cast<size_t>(elements);
    // Each band filters its rows in chunks: a window of rows filtered along, `reach` rows beyond
    // the chunk on either side, is filtered down into the chunk's output rows. Seen from the
    // window, a row more than `reach` from the image's ends is an inner row of the column pass,
    // just as in the whole image, and the window stays in cache between the two passes.
    const int reach = filter.edge;
    const int chunk = std::max(16, static_cast<int>(kWindowBytes / (stride * sizeof(float))));
    const int windowRows = chunk + 2 * reach;
    const int threads = ZUMPNumThreadsForRows(height);
    // The rows within `reach` of a boundary between bands, filtered along before any band writes:
    // the target may be the source, and the neighbouring band may already have written them.
    const int boundaries = threads - 1;
    float* edges =
        plane.Reserve(stride * static_cast<size_t>(2 * reach * boundaries + windowRows * threads));
    float* windows = edges + stride * static_cast<size_t>(2 * reach * boundaries);
    const auto row = [&](float* block, int index) {
        return block + stride * static_cast<size_t>(index);
    };
    std::vector<int> firstRows(static_cast<size_t>(threads));
    for (int band = 0; band < threads; ++band) {
        int last = 0;
        ZUMPRowsForThread(threads, band, height, &firstRows[static_cast<size_t>(band)], &last);
        if (band == 0) continue;
        const int start = firstRows[static_cast<size_t>(band)] - reach;
        for (int y = std::max(0, start); y < std::min(height, start + 2 * reach); ++y)
            warp_detail::FilterLine(source->Row<float>(y),
                                    row(edges, 2 * reach * (band - 1) + y - start), width, channels,
                                    filter);
    }
    ZUMPForRows(threads, height, [&](int band, int first, int last) {
        float* window = row(windows, windowRows * band);
        // Row y filtered along, into `to`.
        const auto filterRow = [&](int y, float* to) {
            if (y >= first && y <= last) {
                warp_detail::FilterLine(source->Row<float>(y), to, width, channels, filter);
                return;
            }
            const int boundary = y < first ? band - 1 : band;
            const int start = firstRows[static_cast<size_t>(boundary + 1)] - reach;
            std::copy(row(edges, 2 * reach * boundary + y - start),
                      row(edges, 2 * reach * boundary + y - start + 1), to);
        };
        int held = 0, heldEnd = 0; // rows of the image the window holds, from its first row
        for (int begin = first; begin <= last; begin += chunk) {
            const int end = std::min(last + 1, begin + chunk);
            const int top = std::max(0, begin - reach), bottom = std::min(height, end + reach);
            // The rows the previous window shares with this one move to its front.
            int kept = top;
            if (heldEnd > top) {
                std::copy(row(window, top - held), row(window, heldEnd - held), window);
                kept = heldEnd;
            }
            for (int y = kept; y < bottom; ++y)
                filterRow(y, row(window, y - top));
            held = top;
            heldEnd = bottom;
            for (int y = begin; y < end; ++y)
                warp_detail::FilterColumnRow(window, stride, bottom - top, y - top,
                                             dest->Row<float>(y), elements, filter);
        }
    });
}

QUELMOR_KERNELS_END
