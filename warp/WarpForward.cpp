#include "warp/WarpForward.h"

#include "image/DQImage2.h"
#include "image/Dispatch.h"
#include "image/KernelSpace.h"
#include "image/Parallel.h"
#include "warp/FlowRows.h"
#include "warp/MeshRaster.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <optional>

using namespace warp_detail;

QUELMOR_KERNELS_BEGIN

namespace {

constexpr float kNoMotion = 0.0001f;

bool InputsFit(const DQImage* dest, const DQImage* source, const DQImage* flow,
               const DQImage* weight, const DQImage* sourceMask) {
    if (!dest || !source || !flow) return false;
    if (source->dataType != dest->dataType || source->channels != dest->channels ||
        source->channels != 4 || !DQDispatchableType(source->dataType))
        return false;
    if (flow->dataType != DQ_FLOAT || flow->channels != 2) return false;
    if (weight && (weight->width != dest->width || weight->height != dest->height ||
                   weight->dataType != DQ_UCHAR || weight->channels != 1 || !weight->data))
        return false;
    if (sourceMask && (sourceMask->width != source->width || sourceMask->height != source->height ||
                       sourceMask->dataType != DQ_UCHAR || sourceMask->channels != 1))
        return false;
    // Vertices read the flow bilinearly, so the source and the flow need a cell each way.
    return source->width >= 2 && source->height >= 2 && flow->width >= 2 && flow->height >= 2 &&
           dest->width >= 1 && dest->height >= 1 && source->data && dest->data && flow->data;
}

bool OptionsSupported(int fixedOrder, int samples, int meshStep, int columnsAscending,
                      int rowsAscending, int rowMajor, int plainCells, int filterMode,
                      const DQImage* sourceMask) {
    const bool ascending = fixedOrder == 1 || (columnsAscending == 1 && rowsAscending == 1);
    return ascending && samples == 1 && meshStep == 1 && rowMajor == 1 && plainCells == 1 &&
           filterMode == 1 && !sourceMask;
}

void ReportRefusal() {
    std::fprintf(stderr, "can't warp image, input files not of correct types and sizes\n");
}

bool HasMotion(const DQImage& flow) {
    for (int y = 0; y < flow.height; ++y) {
        const float* row = flow.Row<float>(y);
        for (int i = 0; i < 2 * flow.width; ++i)
            if (!(std::fabs(row[i]) <= kNoMotion)) return true;
    }
    return false;
}

// The smallest rectangle of pixels whose alpha is not zero, grown by one pixel on each side and
// held inside the image; an empty walk when there is none.
template <class T>
MeshWalk OpaqueBox(const DQImage& source) {
    int firstRow = source.height, lastRow = -1, firstColumn = source.width, lastColumn = -1;
    for (int y = 0; y < source.height; ++y) {
        const T* row = source.Row<T>(y);
        // The first and the last opaque pixel, each searched from its own end.
        int first = 0;
        while (first < source.width && row[4 * first + 3] == T(0))
            ++first;
        if (first == source.width) continue;
        int last = source.lastColumn;
        while (row[4 * last + 3] == T(0))
            --last;
        firstRow = std::min(firstRow, y);
        lastRow = y;
        firstColumn = std::min(firstColumn, first);
        lastColumn = std::max(lastColumn, last);
    }
    if (lastRow < 0) return {0, -1, 0, -1};
    return {std::max(firstRow - 1, 0), std::min(lastRow + 1, source.lastRow),
            std::max(firstColumn - 1, 0), std::min(lastColumn + 1, source.lastColumn)};
}

struct ForwardJob {
    const DQImage* source;
    const DQImage* flow;
    DQImage2* target;
    DQImage2* hits;
    MeshWalk walk;
    float fy;     // flow rows per source row
    float gx, gy; // flow vector to target displacement, scale included
    const Tap* flowColumns;
    const float* reachLow; // per source row, null with one worker
    const float* reachHigh;
    ZUIdleAndProgressClass* progress;
    int* sharedError;
};

// The working arrays of one worker: the mesh's rows and the flow rows under them.
struct ForwardSpace {
    MeshSpace mesh;
    float* flowSpace;
    size_t bytes;

    ForwardSpace(uint8_t* block, int width) : mesh(block, width) {
        Carver carver(block ? block + mesh.bytes : nullptr);
        flowSpace = carver.Take<float>(FlowRowReader::SpaceFor(width));
        bytes = mesh.bytes + carver.Used();
    }
    static size_t Bytes(int width) { return ForwardSpace(nullptr, width).bytes; }
};

// Stores spans of mesh colours into the target, averaging through the hit count.
template <class T>
struct HitWriter {
    const DQImage2& target;
    const DQImage2& hits;
    const HitAverage& average;

    [[gnu::always_inline]] void operator()(int y, int x0, int x1, Float4 c, Float4 step) const {
        T* pixel = target.Row<T>(y) + 4 * x0;
        uint8_t* n = hits.Row<uint8_t>(y) + x0;
        for (int x = x0; x <= x1; ++x, pixel += 4, ++n, c += step) {
            if (*n == 0) {
                Store4(pixel, c);
                *n = 1;
            } else {
                Store4(pixel, average.Mix(Load4(pixel), c, *n));
            }
        }
    }
};

// One worker: the mesh drawn into the target rows firstOwned..lastOwned.
template <class T>
void ForwardBand(const ForwardJob& job, const HitAverage& average, uint8_t* block, int firstOwned,
                 int lastOwned, bool single) {
    const MeshWalk& walk = job.walk;
    const int width = job.source->width;
    const ForwardSpace space(block, width);
    FlowRowReader vectors(*job.flow, job.flowColumns, width, space.flowSpace);
    const int32_t flowLastRow = job.flow->lastRow;
    const float gx = job.gx, gy = job.gy, fy = job.fy;
    const RowView<T> source(*job.source);

    auto build = [&](int y, MeshVertex* vertices) {
        const float yf = static_cast<float>(y);
        const FlowRowPair f = vectors.Rows(CellOf(yf * fy, flowLastRow));
        const T* colours = source.Row(y);
        for (int x = walk.firstColumn; x <= walk.lastColumn; ++x) {
            const float u = Lerp(f.upperU[x], f.lowerU[x], f.ty);
            const float v = Lerp(f.upperV[x], f.lowerV[x], f.ty);
            vertices[x].x = gx * u + static_cast<float>(x);
            vertices[x].y = gy * v + yf;
            vertices[x].c = Load4(colours + 4 * x);
        }
    };

    std::optional<ZUIldeAndProgressMPInterruptible> shared;
    ZUIdleAndProgressClass* progress = job.progress;
    if (progress && !single) progress = &shared.emplace(job.progress, false, job.sharedError);
    const float span = static_cast<float>(std::max(walk.lastRow - walk.firstRow, 1));
    auto report = [&](int r) {
        if (progress && r % 10 == 0)
            progress->ReportProgress(static_cast<float>(r - walk.firstRow) / span);
    };

    const RasterClip clip{job.target->lastColumn, job.target->lastRow, firstOwned, lastOwned};
    const HitWriter<T> write{*job.target, *job.hits, average};
    DrawMesh(walk, clip, job.reachLow, job.reachHigh, space.mesh, build, write, report);
}

// The lowest and the highest target row that the vertices of each source row can reach, from the
// extremes of the vertical component on the two flow rows that row reads, with a row of margin
// for the rounding of the interpolation.
void ReachOfRows(const DQImage& flow, int sourceRows, float fy, float gy, float* low, float* high) {
    Scratch<float> rowLow(static_cast<size_t>(flow.height));
    Scratch<float> rowHigh(static_cast<size_t>(flow.height));
    for (int y = 0; y < flow.height; ++y) {
        const float* row = flow.Row<float>(y);
        float lo = INFINITY, hi = -INFINITY;
        for (int x = 0; x < flow.width; ++x) {
            lo = std::fmin(lo, row[2 * x + 1]);
            hi = std::fmax(hi, row[2 * x + 1]);
        }
        rowLow[y] = lo;
        rowHigh[y] = hi;
    }
    for (int y = 0; y < sourceRows; ++y) {
        const Tap cell = CellOf(static_cast<float>(y) * fy, flow.lastRow);
        const float lo = std::fmin(rowLow[cell.index], rowLow[cell.index + 1]);
        const float hi = std::fmax(rowHigh[cell.index], rowHigh[cell.index + 1]);
        if (!(lo <= hi)) { // no vector of these rows is a number: nothing of the row is drawn
            low[y] = INFINITY;
            high[y] = -INFINITY;
            continue;
        }
        const float a = gy * lo, b = gy * hi;
        low[y] = static_cast<float>(y) + std::fmin(a, b) - 1.0f;
        high[y] = static_cast<float>(y) + std::fmax(a, b) + 1.0f;
    }
}

void CopyHitsToWeight(const DQImage2& hits, DQImage* weight) {
    ZUMPForRows(hits.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            std::memcpy(weight->RowAddress(y), hits.RowAddress(y), static_cast<size_t>(hits.width));
    });
}

} // namespace

int DQWarpForward(DQImage* dest, DQImage* source, DQImage* flow, int fixedOrder, int samples,
                  int meshStep, int columnsAscending, int rowsAscending, int rowMajor,
                  int plainCells, ZUIdleAndProgressClass* progress, DQImage* weight,
                  bool /*enlarged*/, int filterMode, DQImage* sourceMask, float scale) {
    if (!InputsFit(dest, source, flow, weight, sourceMask)) {
        ReportRefusal();
        return 0;
    }
    if (!OptionsSupported(fixedOrder, samples, meshStep, columnsAscending, rowsAscending, rowMajor,
                          plainCells, filterMode, sourceMask)) {
        std::fprintf(stderr, "can't warp image forward: only one sample per pixel, a mesh step of "
                             "1, ascending rows and columns, plain cells and bilinear reads\n");
        return 0;
    }

    if (std::fabs(scale) < 1e-05f || !HasMotion(*flow)) {
        if (weight) weight->FillPixel("\xff");
        dest->CopyFrom(0, 0, source, 0, 0, std::min(source->width, dest->width),
                       std::min(source->height, dest->height));
        return 1;
    }

    DQImage2 target(0, dest->data, dest->width, dest->height, dest->rowBytes, 4, dest->dataType,
                    dest->bottomUp);
    if (target.errorCode != 0) DQThrow(target.errorCode);
    DQImage2 hits(0, dest->width, dest->height, 1, DQ_UCHAR, 0);
    if (hits.errorCode != 0) DQThrow(hits.errorCode);
    target.Clear();
    hits.Clear();

    const float fx = static_cast<float>(flow->lastColumn) / static_cast<float>(source->lastColumn);
    const float fy = static_cast<float>(flow->lastRow) / static_cast<float>(source->lastRow);
    const int width = source->width;
    Scratch<Tap> flowColumns(static_cast<size_t>(width));
    FlowColumns(flowColumns.get(), width, fx, flow->lastColumn);

    DQDispatchType(source->dataType, [&]<class T>() {
        const MeshWalk walk =
            weight ? MeshWalk{0, source->lastRow, 0, source->lastColumn} : OpaqueBox<T>(*source);
        if (walk.lastRow <= walk.firstRow || walk.lastColumn <= walk.firstColumn) return;

        const int threads = ZUMPNumThreadsForRows(target.height);
        std::optional<Scratch<float>> reachLow, reachHigh;
        if (threads > 1) {
            reachLow.emplace(static_cast<size_t>(source->height));
            reachHigh.emplace(static_cast<size_t>(source->height));
            ReachOfRows(*flow, source->height, fy, scale / fy, reachLow->get(), reachHigh->get());
        }
        int sharedError = 0;
        const ForwardJob job{source,
                             flow,
                             &target,
                             &hits,
                             walk,
                             fy,
                             scale / fx,
                             scale / fy,
                             flowColumns.get(),
                             reachLow ? reachLow->get() : nullptr,
                             reachHigh ? reachHigh->get() : nullptr,
                             progress,
                             &sharedError};
        const HitAverage average;
        const BandSpace space(threads, ForwardSpace::Bytes(width));
        ZUMPForRows(threads, target.height, [&](int worker, int first, int last) {
            ForwardBand<T>(job, average, space.For(worker), first, last, threads == 1);
        });
    });

    if (weight) {
        DQHardenMask(&hits);
        CopyHitsToWeight(hits, weight);
    }
    return 1;
}

QUELMOR_KERNELS_END
