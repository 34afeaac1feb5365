#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/InvertFlow.h"

#include <algorithm>
#include <cmath>
#include <cstring>

using namespace quelmor::test;

namespace {

DQImagePtr Scratch(int width, int height) {
    return MakeImage(width, height, 1, DQ_UCHAR, Fill(9));
}

// Bilinear read of a two-channel float flow, positions held inside the image.
void Sample(const DQImage& flow, float x, float y, float& u, float& v) {
    x = std::fmin(std::fmax(x, 0.0f), static_cast<float>(flow.lastColumn));
    y = std::fmin(std::fmax(y, 0.0f), static_cast<float>(flow.lastRow));
    const int ix = std::min(static_cast<int>(x), flow.lastColumn - 1);
    const int iy = std::min(static_cast<int>(y), flow.lastRow - 1);
    const float tx = x - ix, ty = y - iy;
    auto at = [&](int px, int py, int c) { return flow.Row<float>(py)[2 * px + c]; };
    auto lerp = [&](int c) {
        const float top = at(ix, iy, c) + tx * (at(ix + 1, iy, c) - at(ix, iy, c));
        const float bottom = at(ix, iy + 1, c) + tx * (at(ix + 1, iy + 1, c) - at(ix, iy + 1, c));
        return top + ty * (bottom - top);
    };
    u = lerp(0);
    v = lerp(1);
}

DQImagePtr SmoothFlow(int width, int height) {
    return MakeFlow(width, height, [](int x, int y, float& u, float& v) {
        u = 3.0f * std::sin(0.1f * y) + 0.05f * x - 2.0f;
        v = 2.0f * std::cos(0.08f * x) - 0.03f * y + 1.0f;
    });
}

} // namespace

TEST(InvertFlow, RefusesImagesThatDoNotFit) {
    DQImagePtr flow = SmoothFlow(20, 16), target = SmoothFlow(20, 16);
    DQImagePtr small = SmoothFlow(19, 16), scratch = Scratch(20, 16);
    DQImagePtr smallScratch = Scratch(20, 15),
               floatScratch = MakeImage(20, 16, 1, DQ_FLOAT, Fill(0));
    DQImagePtr shortFlow = MakeImage(20, 16, 2, DQ_USHORT, Fill(0));
    DQImagePtr threeChannels = MakeImage(20, 16, 3, DQ_FLOAT, Fill(0));
    const struct {
        const char* name;
        DQImage *target, *source, *scratch;
    } cases[] = {
        {"target size", small.get(), flow.get(), scratch.get()},
        {"scratch size", target.get(), flow.get(), smallScratch.get()},
        {"float scratch", target.get(), flow.get(), floatScratch.get()},
        {"short source", target.get(), shortFlow.get(), scratch.get()},
        {"three-channel target", threeChannels.get(), flow.get(), scratch.get()},
        {"no scratch", target.get(), flow.get(), nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr before =
            MakeImage(c.target->width, c.target->height, c.target->channels, c.target->dataType,
                      [&](int x, int y, int ch) { return ElementAt(*c.target, x, y, ch); });
        ::testing::internal::CaptureStderr();
        DQInvertFlow(c.target, c.source, c.scratch, nullptr);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                  "can't warp image, input files not of correct types and sizes\n");
        EXPECT_EQ(MaxDifference(*c.target, *before), 0.0);
    }
}

// A shift by a constant vector comes back as the opposite vector wherever the shifted grid
// lands; the strips it uncovers are marked in the scratch image and filled from the rest.
TEST(InvertFlow, ConstantShiftReversesAndMarksTheStrip) {
    DQImagePtr flow = ConstantFlow(24, 18, 3.0f, -2.0f);
    DQImagePtr target = MakeImage(24, 18, 2, DQ_FLOAT, Fill(7));
    DQImagePtr scratch = Scratch(24, 18);
    DQInvertFlow(target.get(), flow.get(), scratch.get(), nullptr);
    for (int y = 0; y < 18; ++y)
        for (int x = 0; x < 24; ++x) {
            // Shifted up by two rows, the source's last row lands on row 15, which, as the lower
            // end of the mesh, is not drawn.
            const bool hole = x < 3 || y >= 15;
            ASSERT_EQ(ElementAt(*scratch, x, y, 0), hole ? 255 : 0) << x << "," << y;
            const double tolerance = hole ? 1e-4 : 0.0;
            ASSERT_NEAR(ElementAt(*target, x, y, 0), -3.0, tolerance) << x << "," << y;
            ASSERT_NEAR(ElementAt(*target, x, y, 1), 2.0, tolerance) << x << "," << y;
        }
}

// Following a smooth flow and then its inverse leads back to the start, away from the borders
// where the inverse has nothing to go on but its fill.
TEST(InvertFlow, InverseComposedWithTheFlowIsNearZero) {
    const int width = 96, height = 80, margin = 8;
    DQImagePtr flow = SmoothFlow(width, height);
    DQImagePtr inverse = MakeImage(width, height, 2, DQ_FLOAT, Fill(0));
    DQImagePtr scratch = Scratch(width, height);
    DQInvertFlow(inverse.get(), flow.get(), scratch.get(), nullptr);
    double worst = 0.0;
    for (int y = margin; y < height - margin; ++y)
        for (int x = margin; x < width - margin; ++x) {
            const float* f = flow->Row<float>(y) + 2 * x;
            float u, v;
            Sample(*inverse, x + f[0], y + f[1], u, v);
            worst = std::max(worst, static_cast<double>(std::hypot(f[0] + u, f[1] + v)));
        }
    EXPECT_LT(worst, 0.05);
}

TEST(InvertFlow, SameResultForAnyWorkerCount) {
    const int width = 140, height = 150;
    DQImagePtr flow = MakeFlow(width, height, [](int x, int y, float& u, float& v) {
        u = 9.0f * std::sin(0.05f * y) - 0.1f * (x - 70);
        v = 14.0f * std::cos(0.06f * x + 0.02f * y) + 0.25f * (y - 75);
    });
    DQImagePtr first, firstScratch;
    ForWorkerCounts(
        [&](int workers) {
            DQImagePtr target = MakeImage(width, height, 2, DQ_FLOAT, Fill(3));
            DQImagePtr scratch = Scratch(width, height);
            DQInvertFlow(target.get(), flow.get(), scratch.get(), nullptr);
            if (!first) {
                first = std::move(target);
                firstScratch = std::move(scratch);
                return;
            }
            EXPECT_EQ(std::memcmp(target->data, first->data,
                                  static_cast<size_t>(first->rowBytes) * height),
                      0)
                << workers << " workers";
            EXPECT_EQ(MaxDifference(*scratch, *firstScratch), 0.0) << workers << " workers";
        },
        {1, 2, 8});
}
