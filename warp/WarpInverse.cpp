#include "image/Dispatch.h"
#include "image/KernelSpace.h"
#include "image/Parallel.h"
#include "warp/LevelOfDetail.h"
#include "warp/Warp.h"
#include "warp/WarpRows.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

using namespace warp_detail;

QUELMOR_KERNELS_BEGIN

void ClipToImage(float& sx, float& sy, float x, float y, float lastColumn, float lastRow) {
    ClipToEdges(sx, sy, x, y, lastColumn, lastRow);
}

namespace {

constexpr int kMaxMipLevels = 40;

struct WarpJob {
    const DQImage* source;
    DQImage* dest;
    const DQImage* flow;
    DQImage* weight;
    const DQMipMap* mip;
    const DQImage* levelOfDetail;
    float fy;     // flow rows per source row
    float gx, gy; // flow vector to source displacement, scale included
    const Tap* flowColumns;
};

// The levels of a mip map as row views, with the factors from source coordinates to each level.
template <class T>
struct MipLevels {
    int count = 0;
    std::array<RowView<T>, kMaxMipLevels> levels;

    MipLevels(const DQMipMap& mip)
        : count(mip.levelCount < kMaxMipLevels ? mip.levelCount : kMaxMipLevels) {
        for (int i = 0; i < count; ++i)
            levels[i] = RowView<T>(*mip.levels[i]);
    }
};

// Sample of the mip map at the relative position (a, b) of the image, between two levels. `out`
// has room for max(C, 4) floats.
template <class T, int C>
inline void SampleMip(const MipLevels<T>& mip, float level, float a, float b, float* out) {
    auto at = [&](int i, float* px) {
        const RowView<T>& image = mip.levels[i];
        SampleBilinear<T, C>(image, static_cast<float>(image.lastColumn) * a,
                             static_cast<float>(image.lastRow) * b, px);
    };
    if (level <= 0.0f) return at(0, out);
    if (level >= static_cast<float>(mip.count - 1)) return at(mip.count - 1, out);
    const int i = static_cast<int>(level);
    float upper[4];
    at(i, out);
    at(i + 1, upper);
    const float t = level - static_cast<float>(i);
    for (int c = 0; c < C; ++c)
        out[c] = Lerp(out[c], upper[c], t);
}

template <class T, int C>
void SampleMipRow(const MipLevels<T>& mip, const float* level, const float* sx, const float* sy,
                  float toA, float toB, int width, T* target) {
    for (int x = 0; x < width; ++x) {
        float px[4];
        SampleMip<T, C>(mip, level[x], sx[x] * toA, sy[x] * toB, px);
        StorePixel<T, C>(target + x * C, px);
    }
}

// One band of the warp, a row at a time: the flow rows around it, the source positions and
// cells, the edge handling where some position leaves the source, then the samples.
template <class T, int C, bool Extend, bool Mip>
void WarpBand(const WarpJob& job, uint8_t* block, int first, int last) {
    const int width = job.dest->width;
    const WarpRowSpace space(block, width);
    FlowRowReader vectors(*job.flow, job.flowColumns, width, space.flowSpace);
    const RowView<T> source(*job.source);
    const RowView<T> dest(*job.dest);
    const int32_t flowLastRow = job.flow->lastRow;
    const SourceFrame frame{static_cast<float>(job.source->width),
                            static_cast<float>(job.source->height),
                            static_cast<float>(job.source->lastColumn),
                            static_cast<float>(job.source->lastRow),
                            source.lastColumn,
                            source.lastRow,
                            static_cast<int32_t>(C * sizeof(T)),
                            source.step};
    // Locals rather than fields of the job: stores of 8-bit elements may alias anything, and
    // would otherwise force every field to be reloaded per pixel.
    const float gx = job.gx;
    const float gy = job.gy;
    const float fy = job.fy;
    uint8_t* const weightOrigin = job.weight ? job.weight->RowAddress(0) : nullptr;
    const int32_t weightStep = job.weight ? job.weight->rowStep : 0;
    std::optional<MipLevels<T>> mip;
    if constexpr (Mip) mip.emplace(*job.mip);
    constexpr bool kCells = !Mip;

    // The fade of partly covered pixels carries over from one such pixel to the next within the
    // band; it is not reset per pixel or per row.
    float coverage = 1.0f;
    for (int y = first; y <= last; ++y) {
        const float yf = static_cast<float>(y);
        T* target = dest.Row(y);
        uint8_t* weight = weightOrigin ? weightOrigin + y * weightStep : nullptr;

        const FlowRowPair flow = vectors.Rows(CellOf(yf * fy, flowLastRow));
        const bool edges = RowPositions<kCells>(flow, gx, gy, yf, width, frame, space);
        if (edges) {
            if constexpr (Extend)
                ClipRow<kCells>(space, width, yf, frame);
            else
                ClassifyRow<kCells>(space, width, yf, frame, coverage);
        }

        if constexpr (Mip)
            SampleMipRow<T, C>(*mip, job.levelOfDetail->Row<float>(y), space.sx, space.sy,
                               1.0f / frame.lastColumn, 1.0f / frame.lastRow, width, target);
        else
            SampleRow<T, C>(source, space.taps, width, target);

        if (!Extend && edges)
            FinishFadedRow<T, C>(target, weight, space, width);
        else if (weight)
            std::memset(weight, 255, static_cast<size_t>(width));
    }
}

bool InputsFit(const DQImage* dest, const DQImage* source, const DQImage* flow,
               const DQImage* weight) {
    if (!dest || !source || !flow) return false;
    if (source->width != dest->width || source->height != dest->height ||
        source->dataType != dest->dataType || source->channels != dest->channels)
        return false;
    if (flow->dataType != DQ_FLOAT || flow->channels != 2) return false;
    if (!DQDispatchable(source->dataType, source->channels)) return false;
    if (weight && (weight->width != source->width || weight->height != source->height ||
                   weight->channels != 1 || weight->dataType != DQ_UCHAR))
        return false;
    return true;
}

void FillWeight(DQImage* weight) {
    if (!weight) return;
    for (int y = 0; y < weight->height; ++y)
        std::memset(weight->RowAddress(y), 255, static_cast<size_t>(weight->width));
}

void ReportRefusal() {
    std::fprintf(stderr, "can't warp image, input files not of correct types and sizes\n");
}

} // namespace

int DQWarpInverse(DQImage* dest, DQImage* source, DQImage* flow, int extendEdges, DQImage* weight,
                  int filterMode, float scale) {
    if (!InputsFit(dest, source, flow, weight)) {
        ReportRefusal();
        return 0;
    }
    const float fx = static_cast<float>(flow->lastColumn) / static_cast<float>(source->lastColumn);
    const float fy = static_cast<float>(flow->lastRow) / static_cast<float>(source->lastRow);
    if (std::fabs(scale) < 0.005f || std::fabs(scale / fx) < 0.0001f) {
        FillWeight(weight);
        dest->CopyFrom(0, 0, source, 0, 0, source->width, source->height);
        return 1;
    }
    // Bilinear reads need a cell: one-pixel sides of the source or the flow cannot be warped.
    if (source->width < 2 || source->height < 2 || flow->width < 2 || flow->height < 2 ||
        !source->data || !dest->data || !flow->data || (weight && !weight->data)) {
        ReportRefusal();
        return 0;
    }

    std::unique_ptr<DQMipMap> mip;
    DQImagePtr levelOfDetail;
    if (filterMode != 1) {
        mip.reset(new DQMipMap(source, 0, 1, 0));
        if (mip->errorCode != 0) DQThrow(mip->errorCode);
        levelOfDetail = DQMakeImage(source->width, source->height, 1, DQ_FLOAT, 0);
        ComputeLevelOfDetail(levelOfDetail.get(), flow, *mip, filterMode);
    }

    const int width = source->width;
    Scratch<Tap> flowColumns(static_cast<size_t>(width));
    FlowColumns(flowColumns.get(), width, fx, flow->lastColumn);

    const WarpJob job{
        source, dest,       flow,       weight,           mip.get(), levelOfDetail.get(),
        fy,     scale / fx, scale / fy, flowColumns.get()};
    const bool extend = extendEdges != 0;
    const bool filtered = mip != nullptr;
    const int threads = ZUMPNumThreadsForRows(source->height);
    const BandSpace space(threads, WarpRowSpace::Bytes(width));
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class T, int C>() {
        auto run = [&]<bool Extend, bool Mip>() {
            ZUMPForRows(threads, source->height, [&](int worker, int first, int last) {
                WarpBand<T, C, Extend, Mip>(job, space.For(worker), first, last);
            });
        };
        if (extend && filtered)
            run.template operator()<true, true>();
        else if (extend)
            run.template operator()<true, false>();
        else if (filtered)
            run.template operator()<false, true>();
        else
            run.template operator()<false, false>();
    });
    return 1;
}

QUELMOR_KERNELS_END
