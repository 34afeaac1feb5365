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

struct Region {
    int firstColumn, lastColumn, firstRow, lastRow;
};

void ReferenceBlur(DQImage& dest, const DQImage& source, const DQImage& flow, float shutter,
                   const Region& r) {
    const float fx = static_cast<float>(flow.lastColumn) / static_cast<float>(source.lastColumn);
    const float fy = static_cast<float>(flow.lastRow) / static_cast<float>(source.lastRow);
    const float width = static_cast<float>(source.width);
    const float height = static_cast<float>(source.height);
    for (int y = r.firstRow; y <= r.lastRow; ++y)
        for (int x = r.firstColumn; x <= r.lastColumn; ++x) {
            const float xf = static_cast<float>(x), yf = static_cast<float>(y);
            const std::vector<float> vector = SampleAt(flow, xf * fx, yf * fy);
            const float hx = vector[0] * shutter * 0.5f / fx;
            const float hy = vector[1] * shutter * 0.5f / fy;
            if (hx * hx + hy * hy < 1e-06f) {
                for (int c = 0; c < source.channels; ++c)
                    SetElement(dest, x, y, c, ElementAt(source, x, y, c));
                continue;
            }
            int n = static_cast<int>(std::sqrt(hx * hx + hy * hy) + 1.0f);
            float stepX = hx, stepY = hy;
            if (n > 1) {
                stepX = hx / static_cast<float>(n - 1);
                stepY = hy / static_cast<float>(n - 1);
            } else {
                n = 2;
            }
            std::vector<double> sum(static_cast<size_t>(source.channels), 0.0);
            int taken = 0;
            for (float direction : {1.0f, -1.0f})
                for (int i = direction > 0.0f ? 0 : 1; i < n; ++i) {
                    const float k = direction * static_cast<float>(i);
                    const float px = xf + k * stepX;
                    const float py = yf + k * stepY;
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
        {"wide rows of many blocks", 203, 21, 102, 11, 0.9f, 0},
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
                        ExpectCloseToReference(*fast, *slow);
                        if (withWeight) {
                            const Difference dw = Compare(*weightFast, *weightSlow, 1.0);
                            EXPECT_EQ(dw.beyond, 0) << "worst weight " << dw.worst;
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

TEST(BlurRows, EveryMemberMatchesThePlainBlur) {
    WorkerScope scope(1, 1920, 1080);
    struct Shape {
        const char* name;
        int width, height, flowWidth, flowHeight;
        float shutter;
        Region region; // lastColumn / lastRow of -1: to the image's edge
        int bottomUp;
    };
    const Shape shapes[] = {
        {"half-size flow", 37, 29, 19, 15, 1.0f, {0, -1, 0, -1}, 0},
        {"long lines over several blocks of steps", 33, 21, 17, 11, 4.5f, {0, -1, 0, -1}, 0},
        {"backwards, bottom-up rows", 26, 19, 13, 10, -1.5f, {0, -1, 0, -1}, 1},
        {"a region", 30, 24, 15, 12, 2.0f, {3, 21, 5, 17}, 0},
        {"short vectors", 20, 12, 20, 12, 0.15f, {0, -1, 0, -1}, 0},
        // Millions of steps of about one pixel: only those inside the image may cost time.
        {"lines far longer than the image", 23, 14, 12, 7, 3e6f, {0, -1, 0, -1}, 0},
    };
    for (const Shape& s : shapes)
        for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
            for (int channels = 1; channels <= 4; ++channels) {
                SCOPED_TRACE(std::string(s.name) + ", " + Describe(type, channels));
                const Region region{s.region.firstColumn,
                                    s.region.lastColumn < 0 ? s.width - 1 : s.region.lastColumn,
                                    s.region.firstRow,
                                    s.region.lastRow < 0 ? s.height - 1 : s.region.lastRow};
                DQImagePtr source =
                    MakeImage(s.width, s.height, channels, type, Pattern(type), s.bottomUp);
                auto blank = [](int, int, int) { return 3.0; };
                DQImagePtr fast = MakeImage(s.width, s.height, channels, type, blank, s.bottomUp);
                DQImagePtr slow = MakeImage(s.width, s.height, channels, type, blank);
                DQImagePtr flow =
                    MakeFlow(s.flowWidth, s.flowHeight, [](int x, int y, float& u, float& v) {
                        u = 3.0f * std::sin(0.41f * x + 0.13f * y) + 1.0f;
                        v = 2.5f * std::cos(0.27f * x - 0.37f * y) - 0.5f;
                    });
                DQBlurAlongFlow(fast.get(), source.get(), flow.get(), region.firstColumn,
                                region.lastColumn, region.firstRow, region.lastRow, 1, nullptr, 0,
                                s.shutter);
                ReferenceBlur(*slow, *source, *flow, s.shutter, region);
                ExpectCloseToReference(*fast, *slow);
            }
}

TEST(BlurRows, BrokenVectorsKeepThePixel) {
    // Vectors that are not numbers or are infinite give no sample inside the image: the pixel
    // keeps its value, and nothing is read outside the source.
    const float nan = std::nanf("");
    const float inf = INFINITY;
    struct Case {
        const char* name;
        float u, v;
    };
    const Case cases[] = {{"not a number", nan, 0.0f}, {"infinite", inf, 1.0f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(21, 9, 4, DQ_UCHAR, Pattern(DQ_UCHAR));
        DQImagePtr dest = MakeImage(21, 9, 4, DQ_UCHAR, [](int, int, int) { return 0.0; });
        DQImagePtr flow = ConstantFlow(11, 5, c.u, c.v);
        DQBlurAlongFlow(dest.get(), source.get(), flow.get(), 1, nullptr, 0, 1.0f);
        EXPECT_EQ(MaxDifference(*dest, *source), 0.0);
    }
}
