#include "image/Dispatch.h"
#include "image/KernelSpace.h"
#include "image/Parallel.h"
#include "warp/FlowRows.h"
#include "warp/SampleRow.h"
#include "warp/Warp.h"

#include <algorithm>
#include <cmath>
#include <optional>

using namespace warp_detail;

QUELMOR_KERNELS_BEGIN

namespace {

struct BlurJob {
    const DQImage* source;
    DQImage* dest;
    const DQImage* flow;
    int firstColumn, lastColumn, firstRow;
    float fx, fy;
    float shutter;
    const Tap* flowColumns; // flow cell of each column of the region
    ZUIdleAndProgressClass* progress;
    int* sharedError;
};

// The samples of one pixel lie at (x, y) + k * step for k = -reach .. reach, taken forwards from
// k = 0 and backwards from k = -1, each run stopped at its first sample outside 0 <= px < width,
// 0 <= py < height. Each of the four limits holds for a half-line of k, so once a sample of a run
// is outside all later ones are too: the runs are made eight steps at a time, each block adding
// the samples up to its first one outside.
struct LineOfSamples {
    float x, y, stepX, stepY;
    int reach;
};

template <class T, int C>
class LineSampler {
public:
    LineSampler(const RowView<T>& image, float width, float height)
        : image_(image), width_(width), height_(height) {}

    // Adds the samples of `line` into `sum` (four floats) and returns how many there were.
    [[gnu::always_inline]] int Sum(const LineOfSamples& line, float* sum) const {
        Accumulator acc;
        if (2 * line.reach + 1 <= 8) {
            ShortLine(line, acc);
        } else if (Run(line, 0.0f, 1.0f, line.reach + 1, acc) > 0) {
            // Forwards from the pixel itself; backwards only when the pixel itself was inside.
            Run(line, -1.0f, -1.0f, line.reach, acc);
        }
        Float4 total = acc.single + __builtin_shufflevector(acc.pairs, acc.pairs, 0, 1, 2, 3) +
                       __builtin_shufflevector(acc.pairs, acc.pairs, 4, 5, 6, 7);
        std::memcpy(sum, &total, sizeof total);
        return acc.taken;
    }

private:
    struct Accumulator {
        Float4 single = {};
        Float8 pairs = {};
        int taken = 0;
    };

    // A line of at most eight samples in one block, k = -reach .. reach. As the samples inside
    // form one run of k, the run through the pixel itself is all of them.
    [[gnu::always_inline]] void ShortLine(const LineOfSamples& line, Accumulator& acc) const {
        const Float8 zero = {};
        const Float8 lanes = {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f};
        const Float8 kf = static_cast<float>(-line.reach) + lanes;
        const Float8 px = line.x + kf * line.stepX;
        const Float8 py = line.y + kf * line.stepY;
        const Int8 in = (px >= zero) & (px < width_) & (py >= zero) & (py < height_);
        const unsigned mask = LaneMask(in) & ((2u << (2 * line.reach)) - 1u);
        if (!(mask >> line.reach & 1u)) return; // the pixel itself is not inside
        const int begin = __builtin_ctz(mask);
        const int end = 32 - __builtin_clz(mask);
        Add(px, py, begin, end, acc);
        acc.taken += end - begin;
    }

    // Samples at k = start + direction * i for i = 0 .. count - 1, up to the first one outside.
    // Returns how many were taken.
    [[gnu::always_inline]] int Run(const LineOfSamples& line, float start, float direction,
                                   int count, Accumulator& acc) const {
        const Float8 zero = {};
        const Float8 lanes = {0.0f, 1.0f, 2.0f, 3.0f, 4.0f, 5.0f, 6.0f, 7.0f};
        const Float8 steps = lanes * direction;
        const Float8 width = zero + width_;
        const Float8 height = zero + height_;
        int taken = 0;
        for (int i = 0; i < count; i += 8) {
            const Float8 kf = (start + direction * static_cast<float>(i)) + steps;
            const Float8 px = line.x + kf * line.stepX;
            const Float8 py = line.y + kf * line.stepY;
            const Int8 in = (px >= zero) & (px < width) & (py >= zero) & (py < height);
            // The lanes before the first one outside, and not beyond the run's end.
            const unsigned within = count - i >= 8 ? 0xffu : (1u << (count - i)) - 1u;
            const int end = __builtin_ctz(~LaneMask(in) | ~within);
            if (end > 0) Add(px, py, 0, end, acc);
            taken += end;
            if (end < 8) break;
        }
        acc.taken += taken;
        return taken;
    }

    // Adds the samples of lanes begin .. end - 1.
    [[gnu::always_inline]] void Add(Float8 px, Float8 py, int begin, int end,
                                    Accumulator& acc) const {
        constexpr int32_t kPixelBytes = static_cast<int32_t>(C * sizeof(T));
        Int8 ix, iy;
        Float8 tx, ty;
        CellsOf8(px, image_.lastColumn, ix, tx);
        CellsOf8(py, image_.lastRow, iy, ty);
        const Int8 offset = iy * image_.step + ix * kPixelBytes;
        int lane = begin;
        if constexpr (std::is_same_v<T, uint8_t> && C == 4) {
            for (; lane + 2 <= end; lane += 2)
                acc.pairs += SampleTwo(
                    image_.origin + offset[lane], image_.origin + offset[lane + 1], image_.step,
                    SpreadTwo(tx[lane], tx[lane + 1]), SpreadTwo(ty[lane], ty[lane + 1]));
        }
        for (; lane < end; ++lane) {
            const T* a = reinterpret_cast<const T*>(image_.origin + offset[lane]);
            float px4[4];
            SampleAt<T, C>(a, RowView<T>::Next(a, image_.step), tx[lane], ty[lane], px4);
            Float4 v;
            std::memcpy(&v, px4, sizeof v);
            if constexpr (C >= 3) {
                acc.single += v;
            } else {
                for (int c = 0; c < C; ++c)
                    acc.single[c] += v[c];
            }
        }
    }

private:
    RowView<T> image_;
    float width_, height_;
};

// The per-pixel line of a row: step and reach (0 where the vector is too short to blur).
struct BlurRowSpace {
    float* stepX;
    float* stepY;
    int32_t* reach;
    float* flowSpace;
    size_t bytes;

    BlurRowSpace(uint8_t* block, int width) {
        const size_t w = static_cast<size_t>(width);
        Carver carver(block);
        stepX = carver.Take<float>(w);
        stepY = carver.Take<float>(w);
        reach = carver.Take<int32_t>(w);
        flowSpace = carver.Take<float>(FlowRowReader::SpaceFor(width));
        bytes = carver.Used();
    }
    static size_t Bytes(int width) { return BlurRowSpace(nullptr, width).bytes; }
};

inline Float8 Sqrt8(Float8 v) {
#ifdef __AVX__
    return reinterpret_cast<Float8>(_mm256_sqrt_ps(reinterpret_cast<__m256>(v)));
#else
    for (int i = 0; i < 8; ++i)
        v[i] = std::sqrt(v[i]);
    return v;
#endif
}

// Half vector h = (u, v) * half; a line of N = truncate(|h| + 1) samples each way, at least 2,
// with step h / (N - 1). Eight pixels at a time: the compiler does not vectorise the selects.
inline void LineSteps(const FlowRowPair& f, float halfX, float halfY, int width,
                      const BlurRowSpace& space) {
    auto one = [&](int i) {
        const float hx = Lerp(f.upperU[i], f.lowerU[i], f.ty) * halfX;
        const float hy = Lerp(f.upperV[i], f.lowerV[i], f.ty) * halfY;
        const float lengthSquared = hx * hx + hy * hy;
        int count = static_cast<int>(std::sqrt(lengthSquared) + 1.0f);
        const bool divide = count > 1;
        count = divide ? count : 2;
        const float divisor = divide ? static_cast<float>(count - 1) : 1.0f;
        space.stepX[i] = hx / divisor;
        space.stepY[i] = hy / divisor;
        space.reach[i] = lengthSquared < 1e-06f ? 0 : count - 1;
    };
    int i = 0;
    for (; i + 8 <= width; i += 8) {
        Float8 uTop, uBottom, vTop, vBottom;
        std::memcpy(&uTop, f.upperU + i, sizeof uTop);
        std::memcpy(&uBottom, f.lowerU + i, sizeof uBottom);
        std::memcpy(&vTop, f.upperV + i, sizeof vTop);
        std::memcpy(&vBottom, f.lowerV + i, sizeof vBottom);
        const Float8 hx = (uTop + f.ty * (uBottom - uTop)) * halfX;
        const Float8 hy = (vTop + f.ty * (vBottom - vTop)) * halfY;
        const Float8 lengthSquared = hx * hx + hy * hy;
        Int8 count = __builtin_convertvector(Sqrt8(lengthSquared) + 1.0f, Int8);
        const Int8 divide = count > 1;
        count = divide ? count : 2;
        const Float8 divisor = divide ? __builtin_convertvector(count - 1, Float8) : 1.0f;
        const Float8 stepX = hx / divisor;
        const Float8 stepY = hy / divisor;
        const Int8 reach = lengthSquared < 1e-06f ? 0 : count - 1;
        std::memcpy(space.stepX + i, &stepX, sizeof stepX);
        std::memcpy(space.stepY + i, &stepY, sizeof stepY);
        std::memcpy(space.reach + i, &reach, sizeof reach);
    }
    for (; i < width; ++i)
        one(i);
}

template <class T, int C>
void BlurBand(const BlurJob& job, uint8_t* block, int firstBand, int lastBand) {
    const RowView<T> source(*job.source);
    const RowView<T> dest(*job.dest);
    const int firstColumn = job.firstColumn;
    const int columns = job.lastColumn - firstColumn + 1;
    const BlurRowSpace space(block, columns);
    FlowRowReader vectors(*job.flow, job.flowColumns, columns, space.flowSpace);
    const int32_t flowLastRow = job.flow->lastRow;
    const LineSampler<T, C> sampler(source, static_cast<float>(job.source->width),
                                    static_cast<float>(job.source->height));
    const float halfX = job.shutter * 0.5f / job.fx;
    const float halfY = job.shutter * 0.5f / job.fy;
    const float fy = job.fy;
    std::optional<ZUIldeAndProgressMPInterruptible> progress;
    if (job.progress) progress.emplace(job.progress, false, job.sharedError);
    const float bandRows = static_cast<float>(lastBand - firstBand + 1);

    for (int r = firstBand; r <= lastBand; ++r) {
        const int y = job.firstRow + r;
        const float yf = static_cast<float>(y);
        const FlowRowPair flow = vectors.Rows(CellOf(yf * fy, flowLastRow));
        const T* sourceRow = source.Row(y);
        T* target = dest.Row(y);
        LineSteps(flow, halfX, halfY, columns, space);
        for (int i = 0; i < columns; ++i) {
            const int x = firstColumn + i;
            const int reach = space.reach[i];
            float sum[4];
            const int taken =
                reach ? sampler.Sum(
                            {static_cast<float>(x), yf, space.stepX[i], space.stepY[i], reach}, sum)
                      : 0;
            // A short vector, or one that is not a number: the pixel stays as it is.
            if (taken == 0) {
                for (int c = 0; c < C; ++c)
                    target[x * C + c] = sourceRow[x * C + c];
                continue;
            }
            const float norm = 1.0f / static_cast<float>(taken);
            for (float& s : sum)
                s *= norm;
            StorePixel<T, C>(target + x * C, sum);
        }
        if (progress) progress->ReportProgress(static_cast<float>(r - firstBand + 1) / bandRows);
    }
}

} // namespace

void DQBlurAlongFlow(DQImage* dest, DQImage* source, DQImage* flow, int firstColumn, int lastColumn,
                     int firstRow, int lastRow, int filtered, ZUIdleAndProgressClass* progress,
                     int options, float shutter) {
    if (!dest || !source || !flow) DQThrow(kDQErrBadArgument);
    if (source->dataType < DQ_UCHAR || source->dataType > DQ_FLOAT || source->channels < 1 ||
        source->channels > 4)
        DQThrow(kDQErrBadArgument);
    if (dest->width != source->width || dest->height != source->height ||
        dest->dataType != source->dataType || dest->channels != source->channels)
        DQThrow(kDQErrBadArgument);
    if (flow->dataType != DQ_FLOAT || flow->channels != 2 || flow->width < 2 || flow->height < 2 ||
        source->width < 2 || source->height < 2)
        DQThrow(kDQErrBadArgument);
    firstColumn = std::max(firstColumn, 0);
    firstRow = std::max(firstRow, 0);
    lastColumn = std::min(lastColumn, source->lastColumn);
    lastRow = std::min(lastRow, source->lastRow);
    if (firstColumn > lastColumn || firstRow > lastRow) return;

    int sharedError = 0;
    const float fx = static_cast<float>(flow->lastColumn) / static_cast<float>(source->lastColumn);
    const int columns = lastColumn - firstColumn + 1;
    Scratch<Tap> flowColumns(static_cast<size_t>(columns));
    for (int i = 0; i < columns; ++i)
        flowColumns[i] = CellOf(static_cast<float>(firstColumn + i) * fx, flow->lastColumn);
    const BlurJob job{
        source,     dest,
        flow,       firstColumn,
        lastColumn, firstRow,
        fx,         static_cast<float>(flow->lastRow) / static_cast<float>(source->lastRow),
        shutter,    flowColumns.get(),
        progress,   &sharedError};
    const int rows = lastRow - firstRow + 1;
    const int threads = ZUMPNumThreadsForRows(rows);
    const BandSpace space(threads, BlurRowSpace::Bytes(columns));
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class T, int C>() {
        ZUMPForRows(threads, rows, [&](int worker, int first, int last) {
            BlurBand<T, C>(job, space.For(worker), first, last);
        });
    });
}

void DQBlurAlongFlow(DQImage* dest, DQImage* source, DQImage* flow, int filtered,
                     ZUIdleAndProgressClass* progress, int options, float shutter) {
    if (!source) DQThrow(kDQErrBadArgument);
    ::QUELMOR_KERNEL_NS::DQBlurAlongFlow(dest, source, flow, 0, source->lastColumn, 0,
                                         source->lastRow, filtered, progress, options, shutter);
}

QUELMOR_KERNELS_END
