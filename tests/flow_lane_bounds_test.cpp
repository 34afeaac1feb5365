// The eight-lane paths of the flow read only inside the images they are given: images placed
// against an unreadable page fault on a load one element outside them, and the results still
// equal the per-element forms.
#include "FlowTestImages.h"
#include "GuardedImage.h"
#include "TestSupport.h"
#include "flow/Flow.h"
#include "flow/FlowLanePlanes.h"
#include "flow/FlowSolver.h"

#include <vector>

using namespace quelmor::test;

namespace {

class FlowLaneBoundsTest : public ParallelTest {};

float Pattern(int x, int y, int c) {
    return float((x * 7 + y * 13 + c * 5) % 17);
}

} // namespace

TEST_F(FlowLaneBoundsTest, ResidualLoadsStayInsideImageB) {
    // Per case, the vector of column 0 and of every other column of each row. Column 0 sampling
    // its own cell while its neighbours sample one cell to the left starts a lane group at
    // column -1; the same shape at the right end reaches past the last column.
    const struct {
        const char* name;
        GuardedImage::Side side;
        float u0, u, v;
    } cases[] = {
        {"first lane ahead of the rest at the left edge", GuardedImage::kGuardBefore, -0.3f, 0.3f,
         0.0f},
        {"group moving right to the last column", GuardedImage::kGuardAfter, 0.0f, -0.6f, 0.0f},
        {"rows moving down from above", GuardedImage::kGuardBefore, -0.3f, 0.3f, -0.4f},
    };
    const int w = 16, h = 4;
    for (const auto& c : cases) {
        GuardedImage b(w, h, 1, c.side);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                b->Row<float>(y)[x] = Pattern(x, y, 0);
        FlowOwned a = Filled(w, h, [](int x, int y) { return Pattern(x, y, 1); });
        FlowOwned gx = FloatImage(w, h, 1, 1.0f), gy = FloatImage(w, h, 1, 2.0f);
        FlowOwned flow = FloatImage(w, h, 2);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                Put(flow.get(), x, y, x == 0 ? c.u0 : c.u, c.v);
        FlowOwned residual = FloatImage(w, h, 2, 99.0f);
        DQFlowComputeResidual(a.get(), b.get(), gx.get(), gy.get(), flow.get(), nullptr,
                              residual.get());
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x) {
                const float px = float(x) - At(flow.get(), x, y, 0);
                const float py = float(y) - At(flow.get(), x, y, 1);
                float d = 0.0f;
                if (px >= 0.0f && px <= float(w - 1) && py >= 0.0f && py <= float(h - 1))
                    d = DQFlowSampleBilinear(b.get(), 0, px, py) - At(a.get(), x, y);
                EXPECT_EQ(At(residual.get(), x, y, 0), 1.0f * d)
                    << c.name << " x " << x << " y " << y;
                EXPECT_EQ(At(residual.get(), x, y, 1), 2.0f * d)
                    << c.name << " x " << x << " y " << y;
            }
    }
}

TEST_F(FlowLaneBoundsTest, TransposedLoadsOfEachChannelStayInsideTheImage) {
    // Eight rows and columns make whole 8x8 tiles; the last row ends on the guard page.
    for (int channels : {1, 2, 3, 4})
        for (int channel = 0; channel < channels; ++channel) {
            const int w = 16, h = 8;
            GuardedImage image(w, h, channels, GuardedImage::kGuardAfter);
            for (int y = 0; y < h; ++y)
                for (int x = 0; x < w; ++x)
                    for (int c = 0; c < channels; ++c)
                        image->Row<float>(y)[x * channels + c] = Pattern(x, y, c);
            // Transposed: lanes run along the image's y, lines along its x.
            std::vector<float> block(DQFlowLanePlane::Floats(h, w));
            DQFlowLanePlane plane = DQFlowLanePlane::Over(block.data(), h, w);
            DQFlowLoadLanePlane(plane, image.get(), channel, true);
            for (int x = 0; x < w; ++x)
                for (int y = 0; y < h; ++y)
                    ASSERT_EQ(*plane.At(y, x), Pattern(x, y, channel))
                        << channels << " channels, channel " << channel << " x " << x << " y " << y;
        }
}
