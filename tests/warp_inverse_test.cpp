#include "TestSupport.h"
#include "WarpTestImages.h"
#include "warp/LevelOfDetail.h"
#include "warp/Warp.h"

#include <cmath>
#include <string>

using namespace quelmor::test;

namespace {

DQImagePtr Weight(int width, int height, double fill = 7.0) {
    return MakeImage(width, height, 1, DQ_UCHAR, Fill(fill));
}

double Ramp(int x, int y, int) {
    return x + 100.0 * y;
}

} // namespace

TEST(ClipToImage, ShortensAlongTheVector) {
    const struct {
        const char* name;
        float x, y, sx, sy, ex, ey;
    } cases[] = {{"left edge", 10, 10, -10, 20, 0, 15},
                 {"right then top", 10, 10, 30, -10, 20, 0},
                 {"bottom edge", 4, 18, 8, 22, 6, 20}};
    for (const auto& c : cases) {
        float sx = c.sx, sy = c.sy;
        ClipToImage(sx, sy, c.x, c.y, 20.0f, 20.0f);
        EXPECT_NEAR(sx, c.ex, 1e-5) << c.name;
        EXPECT_NEAR(sy, c.ey, 1e-5) << c.name;
    }
}

TEST(WarpInverse, RefusesInputsThatDoNotFit) {
    auto image = [](int width, int channels, int type) {
        return MakeImage(width, 10, channels, type, Pattern(type));
    };
    DQImagePtr source = image(12, 3, DQ_UCHAR), flow = ConstantFlow(12, 10, 1, 1);
    DQImagePtr otherSize = image(11, 3, DQ_UCHAR), otherType = image(12, 3, DQ_USHORT);
    DQImagePtr otherChannels = image(12, 4, DQ_UCHAR), fiveChannels = image(12, 5, DQ_UCHAR);
    DQImagePtr fiveSource = image(12, 5, DQ_UCHAR), ushortFlow = image(12, 2, DQ_USHORT);
    DQImagePtr threeChannelFlow = image(12, 3, DQ_FLOAT), floatWeight = image(12, 1, DQ_FLOAT);
    DQImagePtr smallWeight = Weight(6, 10), twoChannelWeight = image(12, 2, DQ_UCHAR);
    const struct {
        const char* name;
        DQImage *dest, *source, *flow, *weight;
    } cases[] = {
        {"size", otherSize.get(), source.get(), flow.get(), nullptr},
        {"type", otherType.get(), source.get(), flow.get(), nullptr},
        {"channels", otherChannels.get(), source.get(), flow.get(), nullptr},
        {"five channels", fiveChannels.get(), fiveSource.get(), flow.get(), nullptr},
        {"short flow", otherChannels.get(), otherChannels.get(), ushortFlow.get(), nullptr},
        {"three-channel flow", otherType.get(), otherType.get(), threeChannelFlow.get(), nullptr},
        {"float weight", otherChannels.get(), otherChannels.get(), flow.get(), floatWeight.get()},
        {"small weight", otherChannels.get(), otherChannels.get(), flow.get(), smallWeight.get()},
        {"two-channel weight", otherChannels.get(), otherChannels.get(), flow.get(),
         twoChannelWeight.get()},
        {"no flow", otherChannels.get(), otherChannels.get(), nullptr, nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr destBefore =
            MakeImage(c.dest->width, c.dest->height, c.dest->channels, c.dest->dataType,
                      [&](int x, int y, int ch) { return ElementAt(*c.dest, x, y, ch); });
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(DQWarpInverse(c.dest, c.source, c.flow, 1, c.weight, 1, 1.0f), 0);
        EXPECT_EQ(::testing::internal::GetCapturedStderr(),
                  "can't warp image, input files not of correct types and sizes\n");
        EXPECT_EQ(MaxDifference(*c.dest, *destBefore), 0.0);
    }
}

TEST(WarpInverse, TinyScaleCopiesExactly) {
    // With a flow far wider than the image, scale / (flow to image ratio) falls below 1e-4.
    const struct {
        const char* name;
        int flowWidth;
        float scale;
    } cases[] = {{"below 0.005", 12, 0.0049f},
                 {"negative", 12, -0.004f},
                 {"small against the flow ratio", 12 * 300, 0.03f}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(12, 10, 4, DQ_USHORT, Pattern(DQ_USHORT));
        DQImagePtr dest = MakeImage(12, 10, 4, DQ_USHORT, Fill(0.0));
        DQImagePtr flow = ConstantFlow(c.flowWidth, 10, 40.0f, -30.0f);
        DQImagePtr weight = Weight(12, 10, 0.0);
        EXPECT_EQ(DQWarpInverse(dest.get(), source.get(), flow.get(), 0, weight.get(), 1, c.scale),
                  1);
        EXPECT_EQ(MaxDifference(*dest, *source), 0.0);
        EXPECT_EQ(MaxDifference(*weight, *Weight(12, 10, 255.0)), 0.0);
    }
}

TEST(WarpInverse, ExtendedEdgesShortenTheVector) {
    // From (10, 10) a vector of (-20, 10) leaves on the left; the sample is taken at (0, 15).
    DQImagePtr source = MakeImage(21, 21, 1, DQ_FLOAT, Ramp);
    DQImagePtr dest = MakeImage(21, 21, 1, DQ_FLOAT, Fill(0.0));
    ASSERT_EQ(DQWarpInverse(dest.get(), source.get(), ConstantFlow(21, 21, -20, 10).get(), 1,
                            nullptr, 1, 1.0f),
              1);
    EXPECT_NEAR(ElementAt(*dest, 10, 10, 0), Ramp(0, 15, 0), 1e-3);
}

TEST(WarpInverse, HalfSizeFlowIsScaledByTheSizeRatio) {
    // Flow 21 wide for an image 41 wide: one flow pixel is two image pixels.
    DQImagePtr source = MakeImage(41, 33, 1, DQ_FLOAT, Ramp);
    DQImagePtr dest = MakeImage(41, 33, 1, DQ_FLOAT, Fill(0.0));
    ASSERT_EQ(DQWarpInverse(dest.get(), source.get(), ConstantFlow(21, 17, 1.0f, 0.5f).get(), 1,
                            nullptr, 1, 1.0f),
              1);
    for (int y = 0; y + 1 < 33; y += 5)
        for (int x = 0; x + 2 < 41; x += 3)
            EXPECT_NEAR(ElementAt(*dest, x, y, 0), Ramp(x + 2, y + 1, 0), 1e-3) << x << "," << y;
}

TEST(WarpInverse, FadedEdgesAndTheirWeight) {
    // A constant image of 200 shows the fade directly.
    const struct {
        const char* name;
        float u, v;
        int x, y;
        double value, weight;
    } cases[] = {
        {"half a pixel out on the left", -0.5f, 0, 0, 5, 100.0, 128.0},
        {"a whole pixel out is black", -1.0f, 0, 0, 5, 0.0, 0.0},
        {"a quarter out on the right", 0.25f, 0, 15, 5, 150.0, 191.0},
        {"exactly the last column is inside", 1.0f, 0, 14, 5, 200.0, 255.0},
        // Out only in y the fade multiplies what the previous edge pixel of the band left:
        // 0.5, then 0.25 along the first row.
        {"second pixel of a y overshoot compounds", 0, -0.5f, 1, 0, 50.0, 64.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(16, 12, 1, DQ_UCHAR, Fill(200.0));
        DQImagePtr dest = MakeImage(16, 12, 1, DQ_UCHAR, Fill(9.0));
        DQImagePtr weight = Weight(16, 12);
        DQImagePtr flow = ConstantFlow(16, 12, c.u, c.v);
        ASSERT_EQ(DQWarpInverse(dest.get(), source.get(), flow.get(), 0, weight.get(), 1, 1.0f), 1);
        EXPECT_EQ(ElementAt(*dest, c.x, c.y, 0), c.value);
        EXPECT_EQ(ElementAt(*weight, c.x, c.y, 0), c.weight);
    }
}

TEST(WarpInverse, LevelOfDetailFollowsTheStretch) {
    const struct {
        const char* name;
        float stretch;
        int filterMode;
        double inner;
    } cases[] = {{"double", 2.0f, 2, 1.0},
                 {"double with bias", 2.0f, 1, 1.5},
                 {"beyond the last level", 64.0f, 2, 3.0},
                 {"shrink stays at level 0", 0.5f, 2, 0.0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(32, 24, 1, DQ_FLOAT, Pattern(DQ_FLOAT));
        DQMipMap mip(source.get(), 1, 1, 0); // 32x24, 16x12, 8x6, 4x3
        ASSERT_EQ(mip.levelCount, 4);
        DQImagePtr flow = MakeFlow(32, 24, [&](int x, int y, float& u, float& v) {
            u = (c.stretch - 1.0f) * x, v = (c.stretch - 1.0f) * y;
        });
        DQImagePtr plane = MakeImage(32, 24, 1, DQ_FLOAT, Fill(-1.0));
        warp_detail::ComputeLevelOfDetail(plane.get(), flow.get(), mip, c.filterMode);
        for (auto [x, y] : {std::pair{10, 10}, {0, 7}, {31, 23}}) // inner, border, corner
            EXPECT_NEAR(ElementAt(*plane, x, y, 0), c.inner, 1e-4) << x << "," << y;
    }
}

TEST(WarpInverse, MipSamplingOfAStretchedConstant) {
    for (int type : {DQ_UCHAR, DQ_FLOAT}) {
        SCOPED_TRACE(Describe(type, 4));
        const double value = type == DQ_FLOAT ? 0.25 : 77.0;
        DQImagePtr source = MakeImage(40, 30, 4, type, Fill(value));
        DQImagePtr dest = MakeImage(40, 30, 4, type, Fill(0.0));
        DQImagePtr flow =
            MakeFlow(40, 30, [](int x, int y, float& u, float& v) { u = 0.5f * x, v = 0.5f * y; });
        DQImagePtr weight = Weight(40, 30);
        ASSERT_EQ(DQWarpInverse(dest.get(), source.get(), flow.get(), 1, weight.get(), 0, 1.0f), 1);
        EXPECT_LE(MaxDifference(*dest, *source), 1e-6);
        EXPECT_EQ(ElementAt(*weight, 39, 29, 0), 255.0);
    }
}
