// The row pipeline of the inverse warp (flow rows interpolated once, positions and cells eight at a
// time, edges handled only in the blocks that need it, two 8-bit pixels per step) against a plain
// pixel-by-pixel warp written from the rules: flow read bilinearly along x first, position
// (x, y) + scale * vector in source pixels, edges shortened along the vector or faded with a
// coverage that runs on along the band.
#include "TestSupport.h"
#include "WarpReference.h"
#include "WarpTestImages.h"
#include "warp/Warp.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

using namespace quelmor::test;

namespace {

// The warp of one band covering the whole image, pixel by pixel.
void ReferenceWarp(DQImage& dest, const DQImage& source, const DQImage& flow, bool extend,
                   DQImage* weight, float scale) {
    const float fx = static_cast<float>(flow.lastColumn) / static_cast<float>(source.lastColumn);
    const float fy = static_cast<float>(flow.lastRow) / static_cast<float>(source.lastRow);
    const float lastColumn = static_cast<float>(source.lastColumn);
    const float lastRow = static_cast<float>(source.lastRow);
    const float width = static_cast<float>(source.width);
    const float height = static_cast<float>(source.height);
    float coverage = 1.0f;
    for (int y = 0; y < source.height; ++y)
        for (int x = 0; x < source.width; ++x) {
            const float xf = static_cast<float>(x), yf = static_cast<float>(y);
            const std::vector<float> vector = SampleAt(flow, xf * fx, yf * fy);
            float sx = scale / fx * vector[0] + xf;
            float sy = scale / fy * vector[1] + yf;
            double fade = 1.0;
            double w = 255.0;
            bool black = false;
            if (extend) {
                ClipToImage(sx, sy, xf, yf, lastColumn, lastRow);
            } else if (sx <= -1.0f || sx >= width || sy <= -1.0f || sy >= height) {
                black = true;
                w = 0.0;
            } else if (!(sx >= 0.0f && sx <= lastColumn && sy >= 0.0f && sy <= lastRow)) {
                if (sx < 0.0f)
                    coverage = sx + 1.0f;
                else if (sx > lastColumn)
                    coverage = width - sx;
                if (sy < 0.0f)
                    coverage *= sy + 1.0f;
                else if (sy > lastRow)
                    coverage *= height - sy;
                ClipToImage(sx, sy, xf, yf, lastColumn, lastRow);
                fade = coverage;
                w = std::min(255.0, static_cast<double>(std::floor(coverage * 255.0f + 0.5f)));
            }
            const std::vector<float> px = black ? std::vector<float>() : SampleAt(source, sx, sy);
            for (int c = 0; c < source.channels; ++c) {
                double v = black ? 0.0 : Stored(source.dataType, px[c]);
                if (fade != 1.0) v = Stored(source.dataType, v * fade);
                SetElement(dest, x, y, c, v);
            }
            if (weight) SetElement(*weight, x, y, 0, w);
        }
}

// A smooth field with vectors that leave the image on every side near the borders.
DQImagePtr SwirlFlow(int width, int height, float strength) {
    return MakeFlow(width, height, [&](int x, int y, float& u, float& v) {
        u = strength * std::sin(0.31f * x + 0.17f * y) + 0.4f * strength;
        v = strength * std::cos(0.23f * x - 0.29f * y) - 0.3f * strength;
    });
}

} // namespace

TEST(WarpRows, EveryMemberMatchesThePixelByPixelWarp) {
    WorkerScope scope(1, 1920, 1080);
    struct Shape {
        const char* name;
        int width, height, flowWidth, flowHeight;
        float scale;
        int bottomUp;
    };
    // Widths around the block of eight: a tail only, one block, a block and a tail.
    const Shape shapes[] = {
        {"half-size flow", 37, 29, 19, 15, 0.8f, 0},
        {"narrower than a block", 5, 9, 3, 5, 1.0f, 0},
        {"one block", 8, 7, 8, 7, 0.6f, 0},
        {"backwards, bottom-up rows", 41, 23, 21, 12, -0.7f, 1},
        {"flow larger than the image", 17, 13, 40, 30, 0.5f, 0},
    };
    for (const Shape& s : shapes)
        for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
            for (int channels = 1; channels <= 4; ++channels)
                for (int extend : {0, 1})
                    for (bool withWeight : {false, true}) {
                        const std::string name =
                            std::string(s.name) + ", " + Describe(type, channels) +
                            (extend ? ", extend" : ", fade") + (withWeight ? ", weight" : "");
                        SCOPED_TRACE(name);
                        DQImagePtr source =
                            MakeImage(s.width, s.height, channels, type, Pattern(type), s.bottomUp);
                        auto blank = [](int, int, int) { return 3.0; };
                        DQImagePtr fast =
                            MakeImage(s.width, s.height, channels, type, blank, s.bottomUp);
                        DQImagePtr slow = MakeImage(s.width, s.height, channels, type, blank);
                        DQImagePtr flow = SwirlFlow(s.flowWidth, s.flowHeight, 6.0f);
                        DQImagePtr weightFast, weightSlow;
                        if (withWeight) {
                            weightFast = MakeImage(s.width, s.height, 1, DQ_UCHAR, blank);
                            weightSlow = MakeImage(s.width, s.height, 1, DQ_UCHAR, blank);
                        }
                        ASSERT_EQ(DQWarpInverse(fast.get(), source.get(), flow.get(), extend,
                                                weightFast.get(), 1, s.scale),
                                  1);
                        ReferenceWarp(*slow, *source, *flow, extend, weightSlow.get(), s.scale);
                        // An integer store may round the other way where a fused and a separate
                        // multiply-add differ in the last bit, but only rarely.
                        const double tolerance = type == DQ_FLOAT ? 1e-5 : 1.0;
                        const Difference d = Compare(*fast, *slow, tolerance);
                        EXPECT_EQ(d.beyond, 0) << "worst " << d.worst;
                        if (type != DQ_FLOAT) {
                            EXPECT_LE(d.differing * 100, d.elements);
                        }
                        if (withWeight) {
                            const Difference dw = Compare(*weightFast, *weightSlow, 1.0);
                            EXPECT_EQ(dw.beyond, 0) << "worst weight " << dw.worst;
                        }
                    }
}

TEST(WarpRows, WideImagesMatchWithSeveralWorkers) {
    // Rows long enough for many blocks and the two-pixel steps, split into bands. Vectors stay
    // inside here, so the bands cannot change the fade.
    for (int type : {DQ_UCHAR, DQ_FLOAT})
        for (int channels : {3, 4}) {
            SCOPED_TRACE(Describe(type, channels));
            const int w = 203, h = 61;
            DQImagePtr source = MakeImage(w, h, channels, type, Pattern(type));
            DQImagePtr flow = MakeFlow(102, 31, [](int x, int y, float& u, float& v) {
                u = 3.0f * std::sin(0.2f * x + 0.1f * y);
                v = 2.0f * std::cos(0.15f * x - 0.3f * y);
                if (x < 4 || y < 4 || x > 97 || y > 26) u = v = 0.0f;
            });
            DQImagePtr slow = MakeImage(w, h, channels, type, [](int, int, int) { return 0.0; });
            ReferenceWarp(*slow, *source, *flow, false, nullptr, 0.9f);
            for (int workers : {1, 3}) {
                WorkerScope scope(workers, 1920, 1080);
                DQImagePtr fast =
                    MakeImage(w, h, channels, type, [](int, int, int) { return 0.0; });
                ASSERT_EQ(DQWarpInverse(fast.get(), source.get(), flow.get(), 0, nullptr, 1, 0.9f),
                          1);
                const Difference d = Compare(*fast, *slow, type == DQ_FLOAT ? 1e-4 : 1.0);
                EXPECT_EQ(d.beyond, 0) << workers << " workers, worst " << d.worst;
            }
        }
}

TEST(WarpRows, VectorsThatAreNotNumbersStayInsideTheSource) {
    // A broken flow must not send a read outside the source: positions that are not numbers or
    // far beyond the image land on a pixel of the source.
    WorkerScope scope(1, 1920, 1080);
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    struct Case {
        const char* name;
        float u, v;
    };
    const Case cases[] = {
        {"not a number", nan, nan}, {"infinite", inf, -inf}, {"huge", 3e9f, -3e9f}};
    for (const Case& c : cases)
        for (int extend : {0, 1}) {
            SCOPED_TRACE(std::string(c.name) + (extend ? ", extend" : ", fade"));
            DQImagePtr source = MakeImage(19, 11, 4, DQ_FLOAT, [](int, int, int) { return 0.75; });
            DQImagePtr dest = MakeImage(19, 11, 4, DQ_FLOAT, [](int, int, int) { return -1.0; });
            DQImagePtr weight = MakeImage(19, 11, 1, DQ_UCHAR, [](int, int, int) { return 9.0; });
            DQImagePtr flow = ConstantFlow(10, 6, c.u, c.v);
            ASSERT_EQ(DQWarpInverse(dest.get(), source.get(), flow.get(), extend,
                                    extend ? nullptr : weight.get(), 1, 1.0f),
                      1);
            for (int y = 0; y < 11; ++y)
                for (int x = 0; x < 19; ++x) {
                    const double v = ElementAt(*dest, x, y, 1);
                    // Either a sample of the constant, faded or not, or black.
                    EXPECT_TRUE(v >= 0.0 && v <= 0.75) << x << "," << y << ": " << v;
                }
        }
}
