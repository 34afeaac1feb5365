// The steps of one solver level, each on small hand-made images.
#include "FlowTestImages.h"
#include "TestSupport.h"
#include "flow/FlowSolver.h"

#include <cmath>
#include <memory>

namespace {

using Owned = quelmor::test::FlowOwned;
using quelmor::test::At;
using quelmor::test::Filled;
using quelmor::test::FloatImage;
using quelmor::test::Put;

class FlowSolverTest : public quelmor::test::ParallelTest {};

TEST_F(FlowSolverTest, GradientsAreCentralInsideAndOneSidedOnTheBorderAndFormTheTensor) {
    // Quadratic ramp: central differences differ from one-sided ones, so a wrong border rule
    // or a missing halving shows.
    Owned image = Filled(5, 4, [](int x, int y) { return float(x * x + 10 * y * y); });
    Owned gx = FloatImage(5, 4, 1), gy = FloatImage(5, 4, 1), tensor = FloatImage(5, 4, 3);
    DQFlowComputeGradients(image.get(), gx.get(), gy.get());
    DQFlowComputeTensor(gx.get(), gy.get(), tensor.get());
    struct Case {
        const char* name;
        int x, y;
        float gx, gy;
    } cases[] = {
        {"top-left corner", 0, 0, 1.0f, 10.0f},
        {"interior", 2, 1, 4.0f, 20.0f},
        {"right border", 4, 2, 7.0f, 40.0f},
        {"bottom border", 1, 3, 2.0f, 50.0f},
    };
    for (const Case& c : cases) {
        EXPECT_FLOAT_EQ(At(gx.get(), c.x, c.y), c.gx) << c.name;
        EXPECT_FLOAT_EQ(At(gy.get(), c.x, c.y), c.gy) << c.name;
        EXPECT_FLOAT_EQ(At(tensor.get(), c.x, c.y, 0), c.gx * c.gx) << c.name;
        EXPECT_FLOAT_EQ(At(tensor.get(), c.x, c.y, 1), c.gx * c.gy) << c.name;
        EXPECT_FLOAT_EQ(At(tensor.get(), c.x, c.y, 2), c.gy * c.gy) << c.name;
    }
}

TEST_F(FlowSolverTest, MaskGradientsClearsPixelsTouchingTheMatteEdge) {
    // Matte 0 only at (2, 2): it and its four neighbours lose their gradients, diagonals keep.
    Owned matte = Filled(5, 5, [](int x, int y) { return x == 2 && y == 2 ? 0.94f : 1.0f; });
    Owned gx = FloatImage(5, 5, 1, 3.0f), gy = FloatImage(5, 5, 1, -2.0f);
    DQFlowMaskGradients(gx.get(), gy.get(), matte.get());
    struct Case {
        const char* name;
        int x, y;
        bool cleared;
    } cases[] = {
        {"centre", 2, 2, true},    {"right", 3, 2, true},      {"above", 2, 1, true},
        {"diagonal", 1, 1, false}, {"two right", 4, 2, false},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(At(gx.get(), c.x, c.y), c.cleared ? 0.0f : 3.0f) << c.name;
        EXPECT_EQ(At(gy.get(), c.x, c.y), c.cleared ? 0.0f : -2.0f) << c.name;
    }
}

TEST_F(FlowSolverTest, SolveStepSolvesOnlyWellConditionedSystems) {
    struct Case {
        const char* name;
        float a, b, c, r, s;
        float du, dv;
    } cases[] = {// [a b; b c] (du, dv) = (r, s)
                 {"coupled system", 10.0f, 3.0f, 8.0f, 13.0f, 11.0f, 1.0f, 1.0f},
                 {"determinant exactly 40", 8.0f, 0.0f, 5.0f, 8.0f, 5.0f, 0.0f, 0.0f},
                 {"determinant just above 40", 8.0f, 0.0f, 5.01f, 8.0f, 5.01f, 1.0f, 1.0f}};
    for (const Case& c : cases) {
        Owned tensor = FloatImage(1, 1, 3), residual = FloatImage(1, 1, 2);
        Owned flow = FloatImage(1, 1, 2, 0.5f);
        float* t = tensor->Row<float>(0);
        t[0] = c.a, t[1] = c.b, t[2] = c.c;
        residual->Row<float>(0)[0] = c.r;
        residual->Row<float>(0)[1] = c.s;
        DQFlowSolveStep(tensor.get(), residual.get(), flow.get());
        EXPECT_NEAR(At(flow.get(), 0, 0, 0), 0.5f + c.du, 1e-5) << c.name;
        EXPECT_NEAR(At(flow.get(), 0, 0, 1), 0.5f + c.dv, 1e-5) << c.name;
    }
}

TEST_F(FlowSolverTest, ResidualSamplesBAlongTheVectorAndStopsAtBorders) {
    // B is a ramp in x, so the sample at x - u is known exactly.
    Owned a = FloatImage(6, 4, 1, 1.0f);
    Owned b = Filled(6, 4, [](int x, int) { return float(10 * x); });
    Owned gx = FloatImage(6, 4, 1, 2.0f), gy = FloatImage(6, 4, 1, -1.0f);
    Owned residual = FloatImage(6, 4, 2, 99.0f);
    struct Case {
        const char* name;
        int x, y;
        float u, v;
        bool inside;
        float d;
    } cases[] = {{"half pixel back", 3, 2, 0.5f, 0.0f, true, 24.0f},
                 {"to the last column", 3, 1, -2.0f, 0.0f, true, 49.0f},
                 {"past the last column", 3, 1, -2.5f, 0.0f, false, 0.0f},
                 {"above the first row", 1, 1, 0.0f, 1.5f, false, 0.0f},
                 {"to the first column", 2, 3, 2.0f, 0.0f, true, -1.0f}};
    for (const Case& c : cases) {
        Owned flow = FloatImage(6, 4, 2);
        Put(flow.get(), c.x, c.y, c.u, c.v);
        DQFlowComputeResidual(a.get(), b.get(), gx.get(), gy.get(), flow.get(), nullptr,
                              residual.get());
        EXPECT_FLOAT_EQ(At(residual.get(), c.x, c.y, 0), c.inside ? 2.0f * c.d : 0.0f) << c.name;
        EXPECT_FLOAT_EQ(At(residual.get(), c.x, c.y, 1), c.inside ? -c.d : 0.0f) << c.name;
    }
}

TEST_F(FlowSolverTest, PatchCostRules) {
    // B(x, y) = x + 10 y; the 3x3 patch of A at (2, 2) of the same image matches at (2, 2).
    Owned b = Filled(6, 5, [](int x, int y) { return float(x + 10 * y); });
    float a[9];
    for (int j = 0; j < 3; ++j)
        for (int i = 0; i < 3; ++i)
            a[3 * j + i] = float(1 + i + 10 * (1 + j));
    struct Case {
        const char* name;
        float px, py;
        bool ok;
        float cost;
    } cases[] = {{"exact match", 2.0f, 2.0f, true, 0.0f},
                 {"one column right", 3.0f, 2.0f, true, 9.0f},
                 {"half a row down", 2.0f, 2.5f, true, 9.0f * 25.0f},
                 {"first column", 0.9f, 2.0f, false, 0.0f},
                 {"past the last column", 5.01f, 2.0f, false, 0.0f},
                 // At the last column the base moves back one pixel with fraction 1; the read past
                 // the image is clamped, so the patch samples x = 4, 5, 5 against 1, 2, 3.
                 {"on the last column", 5.0f, 2.0f, true, (9.0f + 9.0f + 4.0f) * 3.0f}};
    for (const Case& c : cases) {
        float cost = 0.0f;
        EXPECT_EQ(DQFlowPatchCost(a, c.px, c.py, b.get(), nullptr, &cost), c.ok) << c.name;
        if (c.ok) {
            EXPECT_NEAR(cost, c.cost, 1e-3) << c.name;
        }
    }
    // A hole in matte B anywhere in the 4x4 block makes the cost fail.
    Owned matte = FloatImage(6, 5, 1, 1.0f);
    matte->Row<float>(4)[4] = 0.5f;
    float cost;
    EXPECT_FALSE(DQFlowPatchCost(a, 2.0f, 2.0f, b.get(), matte.get(), &cost));
    EXPECT_TRUE(DQFlowPatchCost(a, 1.0f, 1.0f, b.get(), matte.get(), &cost)); // block 0..3
}

// A textured pair in which B is A moved right by 2 pixels, so that A(x) = B(x + 2) and the
// solver's vector is u = -2.
struct SweepPair {
    Owned a, b;
    SweepPair(int w, int h) {
        auto texture = [](int x, int y) {
            return float(37 * ((x * 7 + y * 13) % 11) + 5 * ((x * x + 3 * y) % 7));
        };
        a = Filled(w, h, texture);
        b = Filled(w, h, [&](int x, int y) { return texture(x - 2, y); });
    }
};

TEST_F(FlowSolverTest, SweepsCarryAGoodVectorAlongTheWholeRowButNotThroughAMatteHole) {
    // Only the first interior pixel of row 2 knows the motion; sweep 1 carries it rightwards,
    // unless a hole of matte A in the 3x3 blocks of x = 9..11 stops it there.
    for (const bool hole : {false, true}) {
        SweepPair pair(24, 5);
        Owned flow = FloatImage(24, 5, 2), matteA = FloatImage(24, 5, 1, 1.0f);
        Put(flow.get(), 3, 2, -2.0f, 0.0f);
        if (hole) matteA->Row<float>(1)[10] = 0.0f;
        DQFlowPropagateVectors(pair.a.get(), pair.b.get(), flow.get(), matteA.get(), nullptr);
        for (int x = 4; x <= 20; ++x)
            EXPECT_EQ(At(flow.get(), x, 2, 0), hole && x >= 9 ? 0.0f : -2.0f)
                << "x " << x << (hole ? ", hole" : "");
        // Sweeps 3 and 4 spread it along the columns into rows 1 and 3, never into 0 and 4.
        EXPECT_EQ(At(flow.get(), 7, 1, 0), -2.0f);
        EXPECT_EQ(At(flow.get(), 7, 3, 0), -2.0f);
        EXPECT_EQ(At(flow.get(), 7, 0, 0), 0.0f);
        EXPECT_EQ(At(flow.get(), 7, 4, 0), 0.0f);
    }
}

TEST_F(FlowSolverTest, SweepEdgeCases) {
    // A 2x2 level has no lines; on a flat image equal costs keep the own vector.
    for (const int w : {2, 12}) {
        SweepPair pair(w, w / 2 + 1);
        if (w > 2) pair.a = FloatImage(w, 7, 1, 7.0f), pair.b = FloatImage(w, 7, 1, 7.0f);
        Owned flow = FloatImage(w, w / 2 + 1, 2);
        Put(flow.get(), 1, 1, -1.0f, 0.0f);
        const Owned before = quelmor::test::Duplicate(*flow);
        DQFlowPropagateVectors(pair.a.get(), pair.b.get(), flow.get(), nullptr, nullptr);
        EXPECT_TRUE(quelmor::test::SamePixels(*before, *flow)) << w << " wide";
    }
}

TEST_F(FlowSolverTest, ApplySeedsModes) {
    struct Case {
        const char* name;
        bool blend;
        float weight;
        float u, v;
    } cases[] = {{"replace, weight 0.5 divides", false, 0.5f, 8.0f, -4.0f},
                 {"replace, weight 0 keeps", false, 0.0f, 1.0f, 1.0f},
                 {"blend, weight 0.5", true, 0.5f, 1.0f + 4.0f - 0.5f, 1.0f - 2.0f - 0.5f}};
    for (const Case& c : cases) {
        Owned flow = FloatImage(2, 1, 2, 1.0f), seed = FloatImage(2, 1, 2);
        Owned weight = FloatImage(2, 1, 1);
        Put(seed.get(), 1, 0, 4.0f, -2.0f);
        weight->Row<float>(0)[1] = c.weight;
        DQFlowApplySeeds(flow.get(), seed.get(), weight.get(), c.blend);
        EXPECT_FLOAT_EQ(At(flow.get(), 1, 0, 0), c.u) << c.name;
        EXPECT_FLOAT_EQ(At(flow.get(), 1, 0, 1), c.v) << c.name;
        EXPECT_EQ(At(flow.get(), 0, 0, 0), 1.0f) << c.name << ": unseeded pixel";
    }
}

TEST_F(FlowSolverTest, ExpandFlowScalesByTheSizeRatio) {
    // A linear field stays linear: coarse u = x, v = 2 y becomes u = x, v = 2 y at the fine
    // level too, after both the position and the value are mapped.
    Owned coarse = FloatImage(5, 3, 2);
    for (int y = 0; y < 3; ++y)
        for (int x = 0; x < 5; ++x)
            Put(coarse.get(), x, y, float(x), float(2 * y));
    Owned fine = FloatImage(9, 5, 2);
    DQFlowExpandFlow(coarse.get(), fine.get());
    for (int y = 0; y < 5; ++y)
        for (int x = 0; x < 9; ++x) {
            EXPECT_NEAR(At(fine.get(), x, y, 0), float(x), 1e-5) << x << "," << y;
            EXPECT_NEAR(At(fine.get(), x, y, 1), float(2 * y), 1e-5) << x << "," << y;
        }
    Owned wrong = FloatImage(9, 5, 1);
    EXPECT_THROW(DQFlowExpandFlow(coarse.get(), wrong.get()), DQErr);
}

TEST_F(FlowSolverTest, SmoothingKeepsConstantsAndOnlyOtherSelectorsSkip) {
    for (int smoothing : {0, 1, 2, 3}) {
        Owned image = FloatImage(20, 20, 2, 0.0f);
        Put(image.get(), 10, 10, 100.0f, 100.0f);
        Owned constant = FloatImage(20, 20, 3, 5.0f);
        DQFlowSmoothLevelImage(image.get(), DQFlowWindow::Flow, smoothing);
        DQFlowSmoothLevelImage(constant.get(), DQFlowWindow::Tensor, smoothing);
        const bool smooths = smoothing <= 2;
        EXPECT_EQ(At(image.get(), 10, 10, 0) < 100.0f, smooths) << "smoothing " << smoothing;
        EXPECT_EQ(At(image.get(), 11, 10, 1) > 0.0f, smooths) << "smoothing " << smoothing;
        EXPECT_NEAR(At(constant.get(), 0, 0, 2), 5.0f, 1e-4) << "smoothing " << smoothing;
    }
}

} // namespace
