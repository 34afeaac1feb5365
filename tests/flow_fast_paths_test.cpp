// The fast forms inside the flow object against plain references: the filters with kept scratch
// against the library's filters, the eight-lane sweeps against a direct walk of the four sweeps
// with the scalar cost and the eight-lane residual against the formula per pixel, and the pyramids
// built from reused reduction buffers against the library's reduce steps.
#include "FlowTestImages.h"
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "flow/Flow.h"
#include "flow/FlowFilter.h"
#include "flow/FlowSolver.h"
#include "warp/Filters.h"

#include <cmath>
#include <random>
#include <vector>

namespace {

using Owned = quelmor::test::FlowOwned;
using quelmor::test::At;
using quelmor::test::Duplicate;
using quelmor::test::FloatImage;
using quelmor::test::PatternImage;

class FlowFastPathTest : public quelmor::test::ParallelTest {};

// Count of elements that differ, over images of the same layout.
int Diff(const DQImage* a, const DQImage* b) {
    int count = 0;
    for (int y = 0; y < a->height; ++y)
        for (int x = 0; x < a->width * a->channels; ++x)
            count += a->Row<float>(y)[x] != b->Row<float>(y)[x];
    return count;
}

TEST_F(FlowFastPathTest, KeptScratchFiltersEqualTheLibraryFilters) {
    struct Kind {
        DQFlowFilterKind kind;
        float radius; // 0 for the binomial filter
    } kinds[] = {{DQFlowFilterKind::Binomial, 0.0f},
                 {DQFlowFilterKind::Gauss2, 2.0f},
                 {DQFlowFilterKind::Gauss3, 3.0f},
                 {DQFlowFilterKind::Gauss5, 5.0f},
                 {DQFlowFilterKind::Gauss7, 7.0f}};
    struct Size {
        int w, h;
    } sizes[] = {{1, 1}, {3, 2}, {40, 23}, {1400, 45}};
    // One plane for every case, so that growing and reusing it is exercised in both directions.
    DQFlowBuffer plane;
    for (const Kind& k : kinds)
        for (const Size& size : sizes)
            for (int channels = 1; channels <= 3; ++channels) {
                SCOPED_TRACE(::testing::Message() << "radius " << k.radius << ", " << size.w << "x"
                                                  << size.h << "x" << channels);
                DQImagePtr source =
                    PatternImage(size.w, size.h, channels, DQ_FLOAT, 11u + channels);
                Owned expected = Duplicate(*source);
                if (k.radius > 0.0f)
                    BlurGauss(expected.get(), 0, k.radius);
                else
                    Blur5(expected.get());
                Owned separate = FloatImage(size.w, size.h, channels, -1.0f);
                DQFlowBlur(separate.get(), source.get(), k.kind, plane);
                EXPECT_EQ(Diff(separate.get(), expected.get()), 0) << "into another";
                DQFlowBlur(source.get(), source.get(), k.kind, plane);
                EXPECT_EQ(Diff(source.get(), expected.get()), 0) << "in place";
            }
    Owned one = FloatImage(8, 8, 1), two = FloatImage(8, 8, 2), small = FloatImage(8, 7, 1);
    for (DQImage* wrong : {two.get(), small.get()})
        EXPECT_THROW(DQFlowBlur(wrong, one.get(), DQFlowFilterKind::Binomial, plane), DQErr);
}

// The four sweeps walked directly as they are defined, with the scalar cost and no store of
// costs: every pixel of a line evaluates its own vector and the neighbour's.
void ReferenceSweeps(const DQImage* a, const DQImage* b, DQImage* flow, const DQImage* matteA,
                     const DQImage* matteB) {
    const int w = flow->width, h = flow->height;
    const auto offer = [&](int x, int y, int nx, int ny) {
        float* own = flow->Row<float>(y) + 2 * x;
        const float* other = flow->Row<float>(ny) + 2 * nx;
        const float px = float(x) - own[0], py = float(y) - own[1];
        if (!(px >= 0.0f && px <= float(w - 1) && py >= 0.0f && py <= float(h - 1))) return;
        if (matteA)
            for (int j = -1; j <= 1; ++j)
                for (int i = -1; i <= 1; ++i)
                    if (At(matteA, x + i, y + j) < 0.95f) return;
        float patch[9];
        for (int j = 0; j < 3; ++j)
            for (int i = 0; i < 3; ++i)
                patch[3 * j + i] = At(a, x - 1 + i, y - 1 + j);
        float ownCost, otherCost;
        if (!DQFlowPatchCost(patch, px, py, b, matteB, &ownCost)) return;
        const float nu = other[0], nv = other[1];
        if (DQFlowPatchCost(patch, float(x) - nu, float(y) - nv, b, matteB, &otherCost) &&
            otherCost < ownCost) {
            own[0] = nu;
            own[1] = nv;
        }
    };
    for (int y = 1; y <= h - 2; ++y)
        for (int x = 1; x <= w - 2; ++x)
            offer(x, y, x - 1, y);
    for (int y = 1; y <= h - 2; ++y)
        for (int x = w - 2; x >= 1; --x)
            offer(x, y, x + 1, y);
    for (int x = 1; x <= w - 2; ++x)
        for (int y = 1; y <= h - 2; ++y)
            offer(x, y, x, y - 1);
    for (int x = 1; x <= w - 2; ++x)
        for (int y = h - 2; y >= 1; --y)
            offer(x, y, x, y + 1);
}

// A start field with the three kinds of neighbourhood the eight-lane steps tell apart: runs of
// equal vectors (blocks side by side), a quarter-pixel ramp whose whole-pixel parts step by one
// between neighbours, and scattered vectors that reach past every border. Small integer images
// and quarter-pixel vectors keep every sample and every sum exact, so the order in which a fast
// form adds cannot decide a comparison.
struct LaneCase {
    Owned a, b, flow, matteA, matteB;

    LaneCase(int w, int h, unsigned seed) {
        std::mt19937 random(seed);
        std::uniform_int_distribution<int> grey(0, 15), quarter(-16, 16), hole(0, 40);
        a = FloatImage(w, h, 1);
        b = FloatImage(w, h, 1);
        flow = FloatImage(w, h, 2);
        matteA = FloatImage(w, h, 1, 1.0f);
        matteB = FloatImage(w, h, 1, 1.0f);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                a->Row<float>(y)[x] = float(grey(random));
                b->Row<float>(y)[x] = float(grey(random));
                float u = 1.25f, v = -0.5f;
                if ((x / 9 + y / 4) % 3 == 1) {
                    u = 0.25f * float((x / 2 + y) % 5) - 0.5f;
                    v = 0.25f * float((x / 3 + 2 * y) % 5) - 0.5f;
                } else if ((x / 9 + y / 4) % 3 == 2) {
                    u = 0.25f * float(quarter(random));
                    v = 0.25f * float(quarter(random));
                }
                quelmor::test::Put(flow.get(), x, y, u, v);
                if (hole(random) == 0) matteA->Row<float>(y)[x] = 0.0f;
                if (hole(random) == 0) matteB->Row<float>(y)[x] = 0.5f;
                // A region where B is hidden, as a nearer layer hides it.
                if (x >= w / 3 && x < w / 3 + 40 && y >= h / 4 && y < h / 4 + 7)
                    matteB->Row<float>(y)[x] = 0.0f;
            }
        // Pixels that sample exactly on the last column or row, where the block moves back: one
        // alone on each, and a run of eight on the last row.
        if (w < 24 || h < 6) return;
        quelmor::test::Put(flow.get(), w - 3, h - 4, -2.0f, -3.0f);
        quelmor::test::Put(flow.get(), 4, 5, 5.0f - float(w), 0.0f);
        for (int x = 8; x < 16; ++x)
            quelmor::test::Put(flow.get(), x, h - 3, 0.5f, -2.0f);
    }
};

// The residual of a field by the formula, pixel by pixel, with A and B as the gradients.
Owned ReferenceResidual(const LaneCase& images, const DQImage* matteB) {
    const DQImage *a = images.a.get(), *b = images.b.get(), *flow = images.flow.get();
    Owned residual = FloatImage(a->width, a->height, 2);
    for (int y = 0; y < a->height; ++y)
        for (int x = 0; x < a->width; ++x) {
            const float px = float(x) - At(flow, x, y, 0), py = float(y) - At(flow, x, y, 1);
            if (px < 0.0f || px > float(a->width - 1) || py < 0.0f || py > float(a->height - 1) ||
                (matteB && DQFlowSampleBilinear(matteB, 0, px, py) < 0.999f))
                continue;
            const float d = DQFlowSampleBilinear(b, 0, px, py) - At(a, x, y);
            quelmor::test::Put(residual.get(), x, y, At(a, x, y) * d, At(b, x, y) * d);
        }
    return residual;
}

TEST_F(FlowFastPathTest, EightLaneSweepsAndResidualEqualTheDirectForms) {
    struct Case {
        const char* name;
        int w, h;
        bool matteA, matteB;
    } cases[] = {{"partial lane groups both ways", 37, 29, false, false},
                 {"one interior row and column", 3, 3, false, false},
                 {"wide enough for bands of lane groups", 270, 12, false, false},
                 {"both mattes", 34, 18, true, true},
                 {"both mattes, bands of lane groups", 270, 12, true, true}};
    // One set of planes for every case, so that growing and reusing it both show.
    DQFlowBuffer planes;
    for (const Case& c : cases) {
        const LaneCase images(c.w, c.h, 9u + c.w);
        const DQImage* mA = c.matteA ? images.matteA.get() : nullptr;
        const DQImage* mB = c.matteB ? images.matteB.get() : nullptr;
        Owned expected = Duplicate(*images.flow);
        ReferenceSweeps(images.a.get(), images.b.get(), expected.get(), mA, mB);
        if (c.w > 3) {
            ASSERT_GT(Diff(expected.get(), images.flow.get()), 20) << c.name;
        }
        quelmor::test::ForWorkerCounts([&](int workers) {
            Owned flow = Duplicate(*images.flow);
            DQFlowPropagateVectors(images.a.get(), images.b.get(), flow.get(), mA, mB, nullptr,
                                   workers == 1 ? nullptr : &planes);
            EXPECT_EQ(Diff(flow.get(), expected.get()), 0)
                << c.name << ", " << workers << " workers";
        });
        Owned residual = FloatImage(c.w, c.h, 2, 99.0f);
        DQFlowComputeResidual(images.a.get(), images.b.get(), images.a.get(), images.b.get(),
                              images.flow.get(), mB, residual.get());
        EXPECT_EQ(Diff(residual.get(), ReferenceResidual(images, mB).get()), 0) << c.name;
    }
}

// Level images of one side as the library's own steps make them: conversion, `reduction` times
// the binomial filter and a half-size resize, then the same for each level above.
std::vector<Owned> ReferencePyramid(const DQImage* input, const DQOpticalFlowUChar& flow) {
    Owned current = FloatImage(input->width, input->height, 1);
    DQFlowConvertInput(current.get(), input, false);
    for (int step = 0; step < flow.reduction; ++step) {
        Blur5(current.get());
        Owned next = FloatImage(current->width / 2, current->height / 2, 1);
        ResizeBilinear(next.get(), current.get());
        current = std::move(next);
    }
    std::vector<Owned> levels;
    levels.push_back(std::move(current));
    for (int level = 1; level < flow.numLevels; ++level) {
        Owned smoothed = Duplicate(*levels.back());
        Blur5(smoothed.get());
        Owned next =
            FloatImage(flow.imageALevels[level]->width, flow.imageALevels[level]->height, 1);
        ResizeBilinear(next.get(), smoothed.get());
        levels.push_back(std::move(next));
    }
    return levels;
}

TEST_F(FlowFastPathTest, PyramidsFromReusedBuffersEqualTheLibrarySteps) {
    for (int reduction = 0; reduction <= 3; ++reduction) {
        SCOPED_TRACE(::testing::Message() << "reduction " << reduction);
        const int w = 203, h = 141;
        DQImagePtr first = PatternImage(w, h, 4, DQ_UCHAR, 21u);
        DQImagePtr second = PatternImage(w, h, 4, DQ_UCHAR, 22u);
        DQOpticalFlowUChar flow(w, h, reduction, 0, 0, 2);
        // Both sides load through the same buffers, twice, so that a buffer left holding the
        // other image or the other run shows.
        for (int pass = 0; pass < 2; ++pass) {
            flow.LoadImage(first.get(), nullptr, second.get(), 0, false);
            flow.LoadImage(second.get(), nullptr, first.get(), 1, false);
        }
        const std::vector<Owned> expectA = ReferencePyramid(first.get(), flow);
        const std::vector<Owned> expectB = ReferencePyramid(second.get(), flow);
        for (int level = 0; level < flow.numLevels; ++level) {
            EXPECT_EQ(Diff(flow.imageALevels[level], expectA[level].get()), 0) << "A " << level;
            EXPECT_EQ(Diff(flow.imageBLevels[level], expectB[level].get()), 0) << "B " << level;
        }
        // The band-pass leaves each level minus its own binomial mean.
        flow.BandPassImage(0);
        for (int level = 0; level < flow.numLevels; ++level) {
            Owned mean = Duplicate(*expectA[level]);
            Blur5(mean.get());
            Owned expected = Duplicate(*expectA[level]);
            expected->Subtract(mean.get());
            EXPECT_EQ(Diff(flow.imageALevels[level], expected.get()), 0) << "band-pass " << level;
        }
    }
}

} // namespace
