// The fast forms inside the flow object against plain references: the filters with kept scratch
// against the library's filters, the four-lane patch cost against the scalar one, the sweeps with
// their cost store against a direct walk of the four sweeps, and the pyramids built from reused
// reduction buffers against the library's reduce steps.
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
using quelmor::test::FloatImage;
using quelmor::test::PatternImage;

class FlowFastPathTest : public quelmor::test::ParallelTest {};

// Count of elements that differ in any bit, over images of the same layout.
int DifferentElements(const DQImage* a, const DQImage* b) {
    int count = 0;
    for (int y = 0; y < a->height; ++y)
        for (int x = 0; x < a->width * a->channels; ++x)
            if (a->Row<float>(y)[x] != b->Row<float>(y)[x]) ++count;
    return count;
}

Owned Copy(const DQImage* source) {
    Owned image = FloatImage(source->width, source->height, source->channels);
    image->CopyWhole(source);
    return image;
}

TEST_F(FlowFastPathTest, KeptScratchFiltersEqualTheLibraryFilters) {
    struct Kind {
        const char* name;
        DQFlowFilterKind kind;
        float radius; // 0 for the binomial filter
    } kinds[] = {
        {"binomial", DQFlowFilterKind::Binomial, 0.0f}, {"gauss 2", DQFlowFilterKind::Gauss2, 2.0f},
        {"gauss 3", DQFlowFilterKind::Gauss3, 3.0f},    {"gauss 5", DQFlowFilterKind::Gauss5, 5.0f},
        {"gauss 7", DQFlowFilterKind::Gauss7, 7.0f},
    };
    struct Size {
        int w, h;
    } sizes[] = {{1, 1}, {3, 2}, {7, 12}, {40, 23}, {131, 70}};
    // One plane for every case, so that growing and reusing it is exercised in both directions.
    DQFlowBuffer plane;
    for (const Kind& k : kinds)
        for (const Size& size : sizes)
            for (int channels = 1; channels <= 3; ++channels) {
                SCOPED_TRACE(::testing::Message()
                             << k.name << " " << size.w << "x" << size.h << "x" << channels);
                DQImagePtr source =
                    PatternImage(size.w, size.h, channels, DQ_FLOAT, 11u + channels);
                Owned expected = Copy(source.get());
                if (k.radius > 0.0f)
                    BlurGauss(expected.get(), 0, k.radius);
                else
                    Blur5(expected.get());
                Owned separate = FloatImage(size.w, size.h, channels, -1.0f);
                DQFlowBlur(separate.get(), source.get(), k.kind, plane);
                EXPECT_EQ(DifferentElements(separate.get(), expected.get()), 0) << "into another";
                DQFlowBlur(source.get(), source.get(), k.kind, plane);
                EXPECT_EQ(DifferentElements(source.get(), expected.get()), 0) << "in place";
            }
    Owned one = FloatImage(8, 8, 1), two = FloatImage(8, 8, 2), small = FloatImage(8, 7, 1);
    for (DQImage* wrong : {two.get(), small.get()}) {
        try {
            DQFlowBlur(wrong, one.get(), DQFlowFilterKind::Binomial, plane);
            ADD_FAILURE() << "no error for a mismatched target";
        } catch (DQErr code) {
            EXPECT_EQ(code, kDQErrBadArgument);
        }
    }
}

TEST_F(FlowFastPathTest, FourLaneCostEqualsTheScalarCost) {
    const int w = 12, h = 9;
    DQImagePtr b = PatternImage(w, h, 1, DQ_FLOAT, 3u);
    Owned solid = FloatImage(w, h, 1, 1.0f);
    Owned holed = FloatImage(w, h, 1, 1.0f);
    holed->Row<float>(4)[6] = 0.9f;
    holed->Row<float>(8)[11] = 0.0f; // the clamped corner of blocks at the last column and row
    std::mt19937 random(5);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);
    float a[9];
    for (float& v : a)
        v = unit(random);
    std::vector<std::pair<float, float>> positions = {
        {1.0f, 1.0f},        {0.999f, 3.0f}, {3.0f, 0.5f},     {11.0f, 8.0f},
        {11.0f, 4.25f},      {6.5f, 8.0f},   {11.0001f, 2.0f}, {4.0f, 8.01f},
        {-0.5f, 2.0f},       {-3.0f, -3.0f}, {NAN, 2.0f},      {5.0f, NAN},
        {9.9999f, 6.99999f}, {10.5f, 7.5f},  {5.0f, 3.0f},     {7.75f, 3.125f},
    };
    for (int i = 0; i < 200; ++i)
        positions.emplace_back(unit(random) * 13.0f - 0.5f, unit(random) * 10.0f - 0.5f);
    for (const DQImage* matte :
         {static_cast<const DQImage*>(nullptr), static_cast<const DQImage*>(solid.get()),
          static_cast<const DQImage*>(holed.get())}) {
        for (auto [px, py] : positions) {
            SCOPED_TRACE(::testing::Message() << "at (" << px << ", " << py << ") matte "
                                              << (matte == holed.get() ? "holed"
                                                  : matte              ? "solid"
                                                                       : "none"));
            float scalar = -1.0f, lanes = -2.0f;
            const bool scalarOk = DQFlowPatchCost(a, px, py, b.get(), matte, &scalar);
            const bool lanesOk = DQFlowPatchCostFourLanes(a, px, py, b.get(), matte, &lanes);
            ASSERT_EQ(lanesOk, scalarOk);
            if (scalarOk) {
                EXPECT_NEAR(lanes, scalar, 1e-5f * (1.0f + scalar));
            }
        }
    }
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

TEST_F(FlowFastPathTest, SweepsWithKeptCostsEqualTheDirectWalk) {
    // Small integers and quarter-pixel vectors keep every sample and every sum exact, so the
    // order in which the four-lane cost adds up cannot decide a comparison.
    const int w = 37, h = 29;
    std::mt19937 random(9);
    std::uniform_int_distribution<int> grey(0, 15), quarter(-12, 12), hole(0, 40);
    Owned a = FloatImage(w, h, 1), b = FloatImage(w, h, 1), start = FloatImage(w, h, 2);
    Owned matteA = FloatImage(w, h, 1, 1.0f), matteB = FloatImage(w, h, 1, 1.0f);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            a->Row<float>(y)[x] = float(grey(random));
            b->Row<float>(y)[x] = float(grey(random));
            // Runs of equal vectors, as adoption makes them, besides scattered ones.
            const bool run = (x / 5 + y / 3) % 2 == 0;
            quelmor::test::Put(start.get(), x, y, run ? 1.25f : 0.25f * float(quarter(random)),
                               run ? -0.5f : 0.25f * float(quarter(random)));
            if (hole(random) == 0) matteA->Row<float>(y)[x] = 0.0f;
            if (hole(random) == 0) matteB->Row<float>(y)[x] = 0.5f;
        }
    struct Case {
        const char* name;
        bool mattes;
        int costChannels; // 0: the sweeps allocate their own store
        int costWidth;
    } cases[] = {
        {"own store", false, 0, w},
        {"one-channel store", false, 1, w},
        {"two-channel store, as the residual", false, 2, w},
        {"store of another size is not used", false, 1, w - 3},
        {"with mattes", true, 2, w},
    };
    for (const Case& c : cases) {
        const DQImage* mA = c.mattes ? matteA.get() : nullptr;
        const DQImage* mB = c.mattes ? matteB.get() : nullptr;
        Owned expected = Copy(start.get());
        ReferenceSweeps(a.get(), b.get(), expected.get(), mA, mB);
        ASSERT_GT(DifferentElements(expected.get(), start.get()), 100) << c.name;
        quelmor::test::ForWorkerCounts([&](int) {
            Owned flow = Copy(start.get());
            Owned costs =
                c.costChannels ? FloatImage(c.costWidth, h, c.costChannels, 7.0f) : nullptr;
            DQFlowPropagateVectors(a.get(), b.get(), flow.get(), mA, mB, nullptr, costs.get());
            EXPECT_EQ(DifferentElements(flow.get(), expected.get()), 0) << c.name;
        });
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
        Owned smoothed = Copy(levels.back().get());
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
            EXPECT_EQ(DifferentElements(flow.imageALevels[level], expectA[level].get()), 0)
                << "A level " << level;
            EXPECT_EQ(DifferentElements(flow.imageBLevels[level], expectB[level].get()), 0)
                << "B level " << level;
        }
        // The band-pass leaves each level minus its own binomial mean.
        flow.BandPassImage(0);
        for (int level = 0; level < flow.numLevels; ++level) {
            Owned mean = Copy(expectA[level].get());
            Blur5(mean.get());
            Owned expected = Copy(expectA[level].get());
            expected->Subtract(mean.get());
            EXPECT_EQ(DifferentElements(flow.imageALevels[level], expected.get()), 0)
                << "band-passed level " << level;
        }
    }
}

} // namespace
