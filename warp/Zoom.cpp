// The zoom's driver: argument checks, the contribution tables of the two passes and the buffers,
// all kept in the scratch object, then the pass along rows into the intermediate image and the
// pass down its columns into the destination.
#include "warp/Zoom.h"

#include "image/Dispatch.h"
#include "image/Error.h"
#include "image/KernelSpace.h"
#include "image/Parallel.h"
#include "warp/PixelAccess.h"
#include "warp/ZoomPasses.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

QUELMOR_KERNEL_ENTRY(void, DQZoomAlongRows,
                     (DQImage * dest, const DQImage* source, const DQZoomTable& table,
                      const DQZoomLines& lines, int bands),
                     (dest, source, table, lines, bands))

QUELMOR_KERNEL_ENTRY(void, DQZoomDownColumns,
                     (DQImage * dest, const DQImage* source, const DQZoomTable& table,
                      const DQZoomLines& lines, int bands),
                     (dest, source, table, lines, bands))

void DQZoomTempStorage::Block::Reserve(size_t bytes) {
    if (bytes <= capacity && data) return;
    // The new block is taken before the old one goes, so a failure leaves this block as it was.
    auto* grown = static_cast<uint8_t*>(ZUMemAllocate(bytes));
    ZUMemRelease(data);
    data = grown;
    capacity = bytes;
}

void DQZoomTempStorage::Block::Release() {
    ZUMemRelease(data);
    data = nullptr;
    capacity = 0;
}

DQZoomTempStorage::~DQZoomTempStorage() {
    intermediate.Release();
    horizontal.Release();
    vertical.Release();
    lines.Release();
}

namespace {

using warp_detail::Carver;

// Bytes of a product of sizes, or DQErr 1 when it does not fit in memory at all.
size_t Bytes(size_t a, size_t b, size_t c = 1) {
    constexpr size_t kLimit = size_t{1} << 46;
    if (a > kLimit || b > kLimit || c > kLimit || (b && a > kLimit / b) ||
        (c && a * b > kLimit / c))
        DQThrow(kDQErrMemory);
    return a * b * c;
}

// The contribution table of one pass from `inSize` to `outSize` samples, each sample `step`
// elements from the next, made in `block`.
//
// Output coordinate o is centred at o * inSize / outSize. Enlarging, its taps are the pixels
// within `radius` of the centre, weighted kernel(centre - pixel); reducing by a factor f, within
// radius / f, weighted kernel((centre - pixel) f) f. A pixel j before the first is read at -j,
// one beyond the last at 2 size - 1 - j; one that is still outside is left out, and so are taps
// of weight 0, which add nothing.
DQZoomTable MakeTable(DQZoomTempStorage::Block& block, int inSize, int outSize, int step,
                      DQZoomKernel kernel, float radius) {
    const float factor = static_cast<float>(outSize) / static_cast<float>(inSize);
    const float invFactor = 1.0f / factor;
    const bool enlarging = factor >= 1.0f;
    const float halfWidth = enlarging ? radius : radius / factor;
    // Pixels from -(inSize - 1) to 2 inSize - 1 are the only ones that land inside.
    const int64_t lowest = -(static_cast<int64_t>(inSize) - 1);
    const int64_t highest = 2 * static_cast<int64_t>(inSize) - 1;
    const double span = std::floor(2.0 * static_cast<double>(halfWidth)) + 2.0;
    const int64_t stride = static_cast<int64_t>(std::min(span, 3.0 * inSize + 1.0));

    const size_t entries = Bytes(static_cast<size_t>(outSize), static_cast<size_t>(stride));
    Carver layout;
    layout.Take<int32_t>(static_cast<size_t>(outSize));
    layout.Take<int32_t>(entries);
    layout.Take<float>(entries);
    block.Reserve(layout.Used());

    Carver carve(block.data);
    auto* count = carve.Take<int32_t>(static_cast<size_t>(outSize));
    auto* offset = carve.Take<int32_t>(entries);
    auto* weight = carve.Take<float>(entries);
    for (int o = 0; o < outSize; ++o) {
        const float centre = static_cast<float>(o) * invFactor;
        const int64_t first = std::max(lowest, static_cast<int64_t>(std::ceil(centre - halfWidth)));
        const int64_t last =
            std::min(highest, static_cast<int64_t>(std::floor(centre + halfWidth)));
        int32_t n = 0;
        const size_t at = static_cast<size_t>(o) * static_cast<size_t>(stride);
        for (int64_t j = first; j <= last; ++j) {
            const float distance = centre - static_cast<float>(j);
            const float w = enlarging ? kernel(distance) : kernel(distance * factor) * factor;
            if (w == 0.0f) continue;
            const int64_t pixel = j < 0 ? -j : (j >= inSize ? highest - j : j);
            offset[at + n] = static_cast<int32_t>(pixel * step);
            weight[at + n] = w;
            ++n;
        }
        count[o] = n;
    }
    return DQZoomTable{.count = count,
                       .offset = offset,
                       .weight = weight,
                       .stride = static_cast<int32_t>(stride),
                       .outputs = outSize};
}

} // namespace

void Zoom(DQImage* dest, DQImage* source, DQZoomKernel kernel, DQZoomTempStorage* storage,
          float radius) {
    if (!dest || !source || !kernel) DQThrow(kDQErrBadArgument);
    if (!(radius > 0.0f) || !std::isfinite(radius)) DQThrow(kDQErrBadArgument);
    if (dest->dataType != source->dataType || dest->channels != source->channels)
        DQThrow(kDQErrBadArgument);
    if (!DQDispatchable(source->dataType, source->channels)) DQThrow(kDQErrBadArgument);
    if (dest->width < 1 || dest->height < 1 || source->width < 1 || source->height < 1) return;
    if (!dest->data || !source->data) return;

    DQZoomTempStorage local;
    DQZoomTempStorage& space = storage ? *storage : local;

    const int channels = source->channels;
    const DQZoomTable alongRows =
        MakeTable(space.horizontal, source->width, dest->width, channels, kernel, radius);
    const DQZoomTable downColumns =
        MakeTable(space.vertical, source->height, dest->height, 1, kernel, radius);

    const size_t rowBytes =
        Bytes(static_cast<size_t>(dest->width), static_cast<size_t>(source->pixelBytes));
    if (rowBytes > INT32_MAX) DQThrow(kDQErrMemory);
    space.intermediate.Reserve(Bytes(rowBytes, static_cast<size_t>(source->height)));

    const int rowBands = std::max(ZUMPNumThreadsForRows(source->height), 1);
    const int columnBands = std::max(ZUMPNumThreadsForRows(dest->height), 1);
    const size_t lineFloats = Bytes(static_cast<size_t>(std::max(source->width, dest->width)),
                                    static_cast<size_t>(channels));
    // Whole cache lines per band, so that no two bands write into one line.
    const size_t bandFloats = (lineFloats + 15) / 16 * 16;
    space.lines.Reserve(
        Bytes(bandFloats, static_cast<size_t>(std::max(rowBands, columnBands)), sizeof(float)));
    const DQZoomLines lines{.data = reinterpret_cast<float*>(space.lines.data),
                            .floats = bandFloats};

    DQImage intermediate(1, space.intermediate.data, dest->width, source->height,
                         static_cast<int>(rowBytes), channels, source->dataType, 0);
    DQZoomAlongRows(&intermediate, source, alongRows, lines, rowBands);
    DQZoomDownColumns(dest, &intermediate, downColumns, lines, columnBands);
}

void Zoom(DQImage* dest, DQImage* source, const DQZoomFilter& filter, DQZoomTempStorage* storage) {
    Zoom(dest, source, filter.kernel, storage, filter.radius);
}

void ZoomDefault(DQImage* dest, DQImage* source) {
    Zoom(dest, source, DQDefaultZoomFilter(), nullptr);
}

void ZoomDefault(DQImage* dest, DQImage* source, DQZoomTempStorage* storage) {
    Zoom(dest, source, DQDefaultZoomFilter(), storage);
}
