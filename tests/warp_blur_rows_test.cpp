// The blur along vectors (flow rows interpolated once, the samples of a line eight steps at a
// time, two 8-bit pixels per step) against a plain blur written from the rules: the samples
// forwards from the pixel and backwards from it, each run stopped at its first sample outside the
// image, and their mean.
#include "TestSupport.h"
#include "WarpReference.h"
#include "warp/Warp.h"

#include <cmath>
#include <string>

using namespace quelmor::test;

namespace {

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
                // The samples are added in another order, so sums may differ in their last bits
                // and an integer store may round the other way, but only rarely.
                const double tolerance = type == DQ_FLOAT ? 1e-5 : 1.0;
                const Difference d = Compare(*fast, *slow, tolerance);
                EXPECT_EQ(d.beyond, 0) << "worst " << d.worst;
                if (type != DQ_FLOAT) {
                    EXPECT_LE(d.differing * 100, d.elements);
                }
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
