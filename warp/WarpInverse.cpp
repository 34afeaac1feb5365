#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "warp/LevelOfDetail.h"
#include "warp/Sampling.h"
#include "warp/Warp.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>

using namespace warp_detail;

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

// Sample of the mip map at the relative position (a, b) of the image, between two levels.
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
    float upper[C];
    at(i, out);
    at(i + 1, upper);
    const float t = level - static_cast<float>(i);
    for (int c = 0; c < C; ++c)
        out[c] = Lerp(out[c], upper[c], t);
}

template <class T, int C>
inline void StorePixel(T* target, const float* px) {
    if constexpr (C == 4) {
        Float4 v;
        std::memcpy(&v, px, sizeof v);
        Store4(target, v);
    } else {
        for (int c = 0; c < C; ++c)
            target[c] = StoreSample<T>(px[c]);
    }
}

// A pixel that is only partly inside: stored as usual, then faded by the coverage.
template <class T, int C>
inline void StoreFaded(T* target, const float* px, float coverage) {
    for (int c = 0; c < C; ++c) {
        if constexpr (std::is_floating_point_v<T>)
            target[c] = px[c] * coverage;
        else
            target[c] = StoreSample<T>(static_cast<float>(StoreSample<T>(px[c])) * coverage);
    }
}

inline uint8_t CoverageWeight(float coverage) {
    return StoreSample<uint8_t>(coverage * 255.0f);
}

template <class T, int C, bool Extend, bool Mip>
void WarpBand(const WarpJob& job, int first, int last) {
    const RowView<T> source(*job.source);
    const RowView<T> dest(*job.dest);
    const RowView<float> flow(*job.flow);
    const int width = job.dest->width;
    const float widthF = static_cast<float>(job.source->width);
    const float heightF = static_cast<float>(job.source->height);
    const float lastColumn = static_cast<float>(job.source->lastColumn);
    const float lastRow = static_cast<float>(job.source->lastRow);
    const float toA = 1.0f / lastColumn;
    const float toB = 1.0f / lastRow;
    // Locals rather than fields of the job: stores of 8-bit elements may alias anything, and
    // would otherwise force every field to be reloaded per pixel.
    const float gx = job.gx;
    const float gy = job.gy;
    const float fy = job.fy;
    const Tap* flowColumns = job.flowColumns;
    uint8_t* const weightOrigin = job.weight ? job.weight->RowAddress(0) : nullptr;
    const int32_t weightStep = job.weight ? job.weight->rowStep : 0;
    std::optional<MipLevels<T>> mip;
    if constexpr (Mip) mip.emplace(*job.mip);
    auto sample = [&](float sx, float sy, int x, const float* levelRow, float* px) {
        if constexpr (Mip)
            SampleMip<T, C>(*mip, levelRow[x], sx * toA, sy * toB, px);
        else
            SampleBilinear<T, C>(source, sx, sy, px);
    };

    // The fade of partly covered pixels carries over from one such pixel to the next within the
    // band; it is not reset per pixel or per row.
    float coverage = 1.0f;
    for (int y = first; y <= last; ++y) {
        const float yf = static_cast<float>(y);
        const Tap cy = CellOf(yf * fy, flow.lastRow);
        T* target = dest.Row(y);
        uint8_t* weight = weightOrigin ? weightOrigin + y * weightStep : nullptr;
        const float* levelRow = nullptr;
        if constexpr (Mip) levelRow = job.levelOfDetail->Row<float>(y);
        if (Extend && weight) std::memset(weight, 255, static_cast<size_t>(width));
        for (int x = 0; x < width; ++x) {
            const float xf = static_cast<float>(x);
            float u, v;
            ReadFlow(flow, flowColumns[x], cy, u, v);
            float sx = gx * u + xf;
            float sy = gy * v + yf;
            float px[C];
            T* pixel = target + x * C;
            if constexpr (Extend) {
                ClipToEdges(sx, sy, xf, yf, lastColumn, lastRow);
                sample(sx, sy, x, levelRow, px);
                StorePixel<T, C>(pixel, px);
                continue;
            }
            if (sx <= -1.0f || sx >= widthF || sy <= -1.0f || sy >= heightF) {
                for (int c = 0; c < C; ++c)
                    pixel[c] = T(0);
                if (weight) weight[x] = 0;
            } else if (sx >= 0.0f && sx <= lastColumn && sy >= 0.0f && sy <= lastRow) {
                sample(sx, sy, x, levelRow, px);
                StorePixel<T, C>(pixel, px);
                if (weight) weight[x] = 255;
            } else {
                if (sx < 0.0f)
                    coverage = sx + 1.0f;
                else if (sx > lastColumn)
                    coverage = widthF - sx;
                if (sy < 0.0f)
                    coverage *= sy + 1.0f;
                else if (sy > lastRow)
                    coverage *= heightF - sy;
                ClipToEdges(sx, sy, xf, yf, lastColumn, lastRow);
                sample(sx, sy, x, levelRow, px);
                StoreFaded<T, C>(pixel, px, coverage);
                if (weight) weight[x] = CoverageWeight(coverage);
            }
        }
    }
}

bool InputsFit(const DQImage* dest, const DQImage* source, const DQImage* flow,
               const DQImage* weight) {
    if (!dest || !source || !flow) return false;
    if (source->width != dest->width || source->height != dest->height ||
        source->dataType != dest->dataType || source->channels != dest->channels)
        return false;
    if (flow->dataType != DQ_FLOAT || flow->channels != 2) return false;
    if (source->channels > 4) return false;
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

    Scratch<Tap> flowColumns(static_cast<size_t>(source->width));
    for (int x = 0; x < source->width; ++x)
        flowColumns[x] = CellOf(static_cast<float>(x) * fx, flow->lastColumn);

    const WarpJob job{
        source, dest,       flow,       weight,           mip.get(), levelOfDetail.get(),
        fy,     scale / fx, scale / fy, flowColumns.get()};
    const bool extend = extendEdges != 0;
    const bool filtered = mip != nullptr;
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class T, int C>() {
        auto run = [&]<bool Extend, bool Mip>() {
            ZUMPForRows(source->height, [&](int, int first, int last) {
                WarpBand<T, C, Extend, Mip>(job, first, last);
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
