// The row pipelines of the inverse warp and of the blur along vectors against plain
// pixel-by-pixel versions written from the rules.
//
// Warp: flow rows interpolated once, positions and cells eight at a time, edges handled only in
// the blocks that need it, two 8-bit pixels per step; the reference reads the flow bilinearly
// along x first, takes (x, y) + scale * vector in source pixels, and shortens edges along the
// vector or fades them with a coverage that runs on along the band.
//
// Blur: the samples of a line eight steps at a time; the reference takes the samples forwards
// from the pixel and backwards from it, stops each run at its first sample outside the image, and
// stores their mean.
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
    const float lastColumn = static_cast<float>(source.lastColumn),
                lastRow = static_cast<float>(source.lastRow);
    const float width = static_cast<float>(source.width),
                height = static_cast<float>(source.height);
    float coverage = 1.0f;
    for (int y = 0; y < source.height; ++y)
        for (int x = 0; x < source.width; ++x) {
            const float xf = static_cast<float>(x), yf = static_cast<float>(y);
            const std::vector<float> vector = SampleAt(flow, xf * fx, yf * fy);
            float sx = scale / fx * vector[0] + xf;
            float sy = scale / fy * vector[1] + yf;
            double fade = 1.0, w = 255.0;
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

struct Region {
    int firstColumn, lastColumn, firstRow, lastRow;
};

void ReferenceBlur(DQImage& dest, const DQImage& source, const DQImage& flow, float shutter,
                   const Region& r) {
    const float fx = static_cast<float>(flow.lastColumn) / static_cast<float>(source.lastColumn);
    const float fy = static_cast<float>(flow.lastRow) / static_cast<float>(source.lastRow);
    const float width = static_cast<float>(source.width),
                height = static_cast<float>(source.height);
    for (int y = r.firstRow; y <= r.lastRow; ++y)
        for (int x = r.firstColumn; x <= r.lastColumn; ++x) {
            const float xf = static_cast<float>(x), yf = static_cast<float>(y);
            const std::vector<float> vector = SampleAt(flow, xf * fx, yf * fy);
            const float hx = vector[0] * shutter * 0.5f / fx, hy = vector[1] * shutter * 0.5f / fy;
            if (hx * hx + hy * hy < 1e-06f) {
                for (int c = 0; c < source.channels; ++c)
                    SetElement(dest, x, y, c, ElementAt(source, x, y, c));
                continue;
            }
            int n = static_cast<int>(std::sqrt(hx * hx + hy * hy) + 1.0f);
            const float stepX = n > 1 ? hx / static_cast<float>(n - 1) : hx;
            const float stepY = n > 1 ? hy / static_cast<float>(n - 1) : hy;
            n = std::max(n, 2);
            std::vector<double> sum(static_cast<size_t>(source.channels), 0.0);
            int taken = 0;
            for (float direction : {1.0f, -1.0f})
                for (int i = direction > 0.0f ? 0 : 1; i < n; ++i) {
                    const float k = direction * static_cast<float>(i);
                    const float px = xf + k * stepX, py = yf + k * stepY;
                    if (!(px >= 0.0f && px < width && py >= 0.0f && py < height)) break;
                    const std::vector<float> s = SampleAt(source, px, py);
                    for (int c = 0; c < source.channels; ++c)
                        sum[c] += s[c];
                    ++taken;
                }
            for (int c = 0; c < source.channels; ++c)
                SetElement(dest, x, y, c, Stored(source.dataType, sum[c] / taken));
        }
}

// One row of either pipeline's table: `amount` is the warp's scale or the blur's shutter.
struct Shape {
    const char* name;
    int width, height, flowWidth, flowHeight;
    float amount;
    int bottomUp;
    Region region{0, -1, 0, -1}; // lastColumn / lastRow of -1: to the image's edge
};

// Every type and channel count of a shape: the source, the pipeline's image (rows in the shape's
// order) and the reference's, both filled with 3 first.
template <class Check>
void ForEveryMember(const Shape& s, Check check) {
    WorkerScope scope(1, 1920, 1080);
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int channels = 1; channels <= 4; ++channels) {
            SCOPED_TRACE(std::string(s.name) + ", " + Describe(type, channels));
            auto blank = Fill(3.0);
            DQImagePtr source =
                MakeImage(s.width, s.height, channels, type, Pattern(type), s.bottomUp);
            DQImagePtr fast = MakeImage(s.width, s.height, channels, type, blank, s.bottomUp);
            DQImagePtr slow = MakeImage(s.width, s.height, channels, type, blank);
            check(*source, *fast, *slow);
        }
}

} // namespace

TEST(WarpRows, EveryMemberMatchesThePixelByPixelWarp) {
    // Widths around the block of eight: a tail only, one block, blocks and a tail.
    const Shape shapes[] = {
        {"narrower than a block", 5, 9, 3, 5, 1.0f, 0},
        {"one block", 8, 7, 8, 7, 0.6f, 0},
        {"backwards, bottom-up rows", 41, 23, 21, 12, -0.7f, 1},
        {"flow larger than the image", 17, 13, 40, 30, 0.5f, 0},
        {"wide rows of many blocks", 203, 21, 102, 11, 0.9f, 0},
    };
    for (const Shape& s : shapes)
        ForEveryMember(s, [&](DQImage& source, DQImage& fast, DQImage& slow) {
            DQImagePtr flow = SwirlFlow(s.flowWidth, s.flowHeight, 6.0f);
            for (int extend : {0, 1})
                for (bool withWeight : {false, true}) {
                    SCOPED_TRACE(std::string(extend ? "extend" : "fade") +
                                 (withWeight ? ", weight" : ""));
                    auto weight = [&] {
                        return withWeight
                                   ? MakeImage(s.width, s.height, 1, DQ_UCHAR, Pattern(DQ_UCHAR))
                                   : nullptr;
                    };
                    DQImagePtr weightFast = weight(), weightSlow = weight();
                    ASSERT_EQ(DQWarpInverse(&fast, &source, flow.get(), extend, weightFast.get(), 1,
                                            s.amount),
                              1);
                    ReferenceWarp(slow, source, *flow, extend, weightSlow.get(), s.amount);
                    ExpectCloseToReference(fast, slow);
                    if (withWeight) {
                        EXPECT_EQ(Compare(*weightFast, *weightSlow, 1.0).beyond, 0);
                    }
                }
        });
}

TEST(BlurRows, EveryMemberMatchesThePlainBlur) {
    const Shape shapes[] = {
        {"long lines over several blocks of steps", 33, 21, 17, 11, 4.5f, 0},
        {"backwards, bottom-up rows", 26, 19, 13, 10, -1.5f, 1},
        {"a region", 30, 24, 15, 12, 2.0f, 0, {3, 21, 5, 17}},
        {"short vectors", 20, 12, 20, 12, 0.15f, 0},
        // Millions of steps of about one pixel: only those inside the image may cost time.
        {"lines far longer than the image", 23, 14, 12, 7, 3e6f, 0},
    };
    for (const Shape& s : shapes)
        ForEveryMember(s, [&](DQImage& source, DQImage& fast, DQImage& slow) {
            const Region r{
                s.region.firstColumn, s.region.lastColumn < 0 ? s.width - 1 : s.region.lastColumn,
                s.region.firstRow, s.region.lastRow < 0 ? s.height - 1 : s.region.lastRow};
            DQImagePtr flow =
                MakeFlow(s.flowWidth, s.flowHeight, [](int x, int y, float& u, float& v) {
                    u = 3.0f * std::sin(0.41f * x + 0.13f * y) + 1.0f;
                    v = 2.5f * std::cos(0.27f * x - 0.37f * y) - 0.5f;
                });
            DQBlurAlongFlow(&fast, &source, flow.get(), r.firstColumn, r.lastColumn, r.firstRow,
                            r.lastRow, 1, nullptr, 0, s.amount);
            ReferenceBlur(slow, source, *flow, s.amount, r);
            ExpectCloseToReference(fast, slow);
        });
}

// Broken vectors must not send a read outside the source. The warp lands them on a pixel of the
// source (a constant, faded or not) or black; the blur finds no sample inside and keeps the pixel.
TEST(BrokenVectors, WarpStaysInsideTheSourceAndBlurKeepsThePixel) {
    WorkerScope scope(1, 1920, 1080);
    const float nan = std::numeric_limits<float>::quiet_NaN(), inf = INFINITY;
    const struct {
        const char* name;
        float u, v;
    } cases[] = {{"not a number", nan, nan}, {"infinite", inf, -inf}, {"huge", 3e9f, -3e9f}};
    for (const auto& c : cases) {
        DQImagePtr flow = ConstantFlow(10, 6, c.u, c.v);
        for (int extend : {0, 1}) {
            SCOPED_TRACE(std::string(c.name) + (extend ? ", extend" : ", fade"));
            DQImagePtr source = MakeImage(19, 11, 4, DQ_FLOAT, Fill(0.75));
            DQImagePtr dest = MakeImage(19, 11, 4, DQ_FLOAT, Fill(-1.0));
            DQImagePtr weight = MakeImage(19, 11, 1, DQ_UCHAR, Fill(9.0));
            ASSERT_EQ(DQWarpInverse(dest.get(), source.get(), flow.get(), extend,
                                    extend ? nullptr : weight.get(), 1, 1.0f),
                      1);
            for (int y = 0; y < 11; ++y)
                for (int x = 0; x < 19; ++x) {
                    const double v = ElementAt(*dest, x, y, 1);
                    EXPECT_TRUE(v >= 0.0 && v <= 0.75) << x << "," << y << ": " << v;
                }
        }
        if (std::isfinite(c.u)) continue;
        SCOPED_TRACE(std::string(c.name) + ", blur");
        DQImagePtr source = MakeImage(21, 9, 4, DQ_UCHAR, Pattern(DQ_UCHAR));
        DQImagePtr dest = MakeImage(21, 9, 4, DQ_UCHAR, Fill(0.0));
        DQBlurAlongFlow(dest.get(), source.get(), ConstantFlow(11, 5, c.u, 0.0f).get(), 1, nullptr,
                        0, 1.0f);
        EXPECT_EQ(MaxDifference(*dest, *source), 0.0);
    }
}
