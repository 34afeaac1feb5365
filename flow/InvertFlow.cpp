#include "flow/InvertFlow.h"

#include "flow/HoleFill.h"
#include "image/KernelSpace.h"
#include "image/Parallel.h"
#include "warp/MeshRaster.h"

#include <cmath>
#include <cstdio>
#include <optional>

using namespace warp_detail;

QUELMOR_KERNELS_BEGIN

namespace {

bool InputsFit(const DQImage* target, const DQImage* source, const DQImage* scratch) {
    if (!target || !source || !scratch) return false;
    if (target->width != source->width || target->height != source->height ||
        scratch->width != source->width || scratch->height != source->height)
        return false;
    if (target->dataType != DQ_FLOAT || target->channels != 2 || source->dataType != DQ_FLOAT ||
        source->channels != 2 || scratch->dataType != DQ_UCHAR || scratch->channels != 1)
        return false;
    return target->data && source->data && scratch->data && target != source;
}

// Stores spans of reversed vectors into the target flow, averaging through the write count.
struct VectorWriter {
    const DQImage& target;
    const DQImage& counts;
    const HitAverage& average;

    void operator()(int y, int x0, int x1, Float4 c, Float4 step) const {
        float* vector = target.Row<float>(y) + 2 * x0;
        uint8_t* n = counts.Row<uint8_t>(y) + x0;
        for (int x = x0; x <= x1; ++x, vector += 2, ++n, c += step) {
            Float4 value = c;
            if (*n == 0) {
                *n = 1;
            } else {
                const Float4 old = {vector[0], vector[1], 0.0f, 0.0f};
                value = average.Mix(old, c, *n);
            }
            vector[0] = value[0];
            vector[1] = value[1];
        }
    }
};

// The lowest and highest row each source row's corners reach, with a row of margin.
void ReachOfRows(const DQImage& flow, float* low, float* high) {
    for (int y = 0; y < flow.height; ++y) {
        const float* row = flow.Row<float>(y);
        float lo = INFINITY, hi = -INFINITY;
        for (int x = 0; x < flow.width; ++x) {
            const float v = row[2 * x + 1];
            lo = v < lo ? v : lo;
            hi = v > hi ? v : hi;
        }
        low[y] = static_cast<float>(y) + lo - 1.0f;
        high[y] = static_cast<float>(y) + hi + 1.0f;
    }
}

} // namespace

void DQInvertFlow(DQImage* target, DQImage* source, DQImage* scratch,
                  ZUIdleAndProgressClass* progress) {
    if (!InputsFit(target, source, scratch)) {
        std::fprintf(stderr, "can't warp image, input files not of correct types and sizes\n");
        return;
    }
    target->Clear();
    scratch->Clear();

    const int width = source->width, height = source->height;
    const int threads = ZUMPNumThreadsForRows(height);
    std::optional<Scratch<float>> reachLow, reachHigh;
    if (threads > 1) {
        reachLow.emplace(static_cast<size_t>(height));
        reachHigh.emplace(static_cast<size_t>(height));
        ReachOfRows(*source, reachLow->get(), reachHigh->get());
    }
    const BandSpace space(threads, MeshSpace::Bytes(width));
    const HitAverage average;
    const MeshWalk walk{0, source->lastRow, 0, source->lastColumn};
    const VectorWriter write{*target, *scratch, average};
    int sharedError = 0;
    const float span = static_cast<float>(walk.lastRow > 0 ? walk.lastRow : 1);

    ZUMPForRows(threads, height, [&](int worker, int first, int last) {
        const MeshSpace mesh(space.For(worker), width);
        std::optional<ZUIldeAndProgressMPInterruptible> shared;
        ZUIdleAndProgressClass* report = progress;
        if (progress && threads > 1) report = &shared.emplace(progress, false, &sharedError);
        auto build = [&](int y, MeshVertex* corners) {
            const float* vectors = source->Row<float>(y);
            const float yf = static_cast<float>(y);
            for (int x = 0; x < width; ++x) {
                const float u = vectors[2 * x], v = vectors[2 * x + 1];
                corners[x].x = static_cast<float>(x) + u;
                corners[x].y = yf + v;
                corners[x].c = Float4{-u, -v, 0.0f, 0.0f};
            }
        };
        auto progressAt = [&](int r) {
            if (report && r % 10 == 0) report->ReportProgress(static_cast<float>(r) / span);
        };
        const RasterClip clip{target->lastColumn, target->lastRow, first, last};
        DrawMesh(walk, clip, reachLow ? reachLow->get() : nullptr,
                 reachHigh ? reachHigh->get() : nullptr, mesh, build, write, progressAt);
    });

    // The count becomes the mask of what nothing reached, and those vectors are filled in.
    ZUMPForRows(height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            uint8_t* row = scratch->Row<uint8_t>(y);
            for (int x = 0; x < width; ++x)
                row[x] = row[x] ? 0 : 255;
        }
    });
    FillHoles(target, scratch, progress);
}

QUELMOR_KERNELS_END
