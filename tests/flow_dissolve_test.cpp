#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EnergyBlend.h"
#include "engine/FlowDissolve.h"
#include "engine/Mix.h"
#include "warp/FlowGuidedZoom.h"

#include <cmath>
#include <functional>

using namespace quelmor::test;

namespace {

using Dissolver = void (*)(DQImage*, DQImage*, DQImage*, DQImage*, DQImage*, int, float);

// Smooth texture: bilinear and kernel reads of it agree closely between pixels.
double Texture(double x, double y, int c) {
    return std::floor(128.0 + 70.0 * std::sin(0.21 * x + 0.5 * c) * std::cos(0.17 * y) +
                      30.0 * std::sin(0.05 * (x + y)));
}

// Frame a and frame b = a moved right by `shift` pixels, with the flows between them.
struct Pan {
    static constexpr int kW = 80, kH = 48;
    float shift;
    DQImagePtr a, b, flowA, flowB;
    explicit Pan(float s, int channels = 4) : shift(s) {
        a = MakeImage(kW, kH, channels, DQ_UCHAR,
                      [](int x, int y, int c) { return Texture(x, y, c); });
        b = MakeImage(kW, kH, channels, DQ_UCHAR,
                      [s](int x, int y, int c) { return Texture(x - s, y, c); });
        flowA = ConstantFlow(kW, kH, s, 0.0f);
        flowB = ConstantFlow(kW, kH, -s, 0.0f);
    }
    // a moved right by `by`.
    double Moved(double by, int x, int y, int c) const { return Texture(x - by, y, c); }
};

// Largest difference from `expected` over the pixels at least `margin` from the left and right
// edges (where a pan brings in what neither frame holds) and off the first and last rows (where
// the flows' zeroed borders hold no motion).
double InteriorError(const DQImage& image, int margin,
                     const std::function<double(int, int, int)>& expected) {
    double worst = 0.0;
    for (int y = 1; y < image.height - 1; ++y)
        for (int x = margin; x < image.width - margin; ++x)
            for (int c = 0; c < image.channels; ++c)
                worst = std::max(worst, std::fabs(ElementAt(image, x, y, c) - expected(x, y, c)));
    return worst;
}

DQImagePtr Blank(int channels = 4, int type = DQ_UCHAR) {
    return MakeImage(Pan::kW, Pan::kH, channels, type, Fill(5.0));
}

} // namespace

// Both frames follow the pan to the moment: at share t of a the picture is a moved by
// (1 - t) times the pan, where a plain dissolve shows a double image.
TEST(FlowDissolve, WarpedModesFollowAPan) {
    const struct {
        const char* name;
        Dissolver dissolve;
        int mode;
        float t;
        double tolerance;
    } cases[] = {
        {"inverse, both warped", DQFlowDissolveInv, kDQDissolveWarpBoth, 0.5f, 8.0},
        {"inverse, nearer b", DQFlowDissolveInv, kDQDissolveWarpNearer, 0.3f, 8.0},
        {"inverse, nearer a", DQFlowDissolveInv, kDQDissolveWarpNearer, 0.75f, 8.0},
        {"kernel, both warped", DQFlowDissolve, kDQDissolveWarpBoth, 0.5f, 3.0},
        {"kernel, nearer b", DQFlowDissolve, kDQDissolveWarpNearer, 0.3f, 3.0},
        {"kernel, nearer a", DQFlowDissolve, kDQDissolveWarpNearer, 0.75f, 3.0},
        {"kernel, by marks", DQFlowDissolve, kDQDissolveMode4, 0.4f, 3.0},
        {"kernel, bands by marks", DQFlowDissolve, kDQDissolveMode5, 0.6f, 4.0},
    };
    ForWorkerCounts(
        [&](int) {
            for (const auto& c : cases) {
                SCOPED_TRACE(c.name);
                Pan pan(6.0f);
                DQImagePtr out = Blank();
                c.dissolve(out.get(), pan.a.get(), pan.flowA.get(), pan.b.get(), pan.flowB.get(),
                           c.mode, c.t);
                const double by = (1.0 - c.t) * pan.shift;
                EXPECT_LE(
                    InteriorError(*out, 10,
                                  [&](int x, int y, int ch) { return pan.Moved(by, x, y, ch); }),
                    c.tolerance);
            }
        },
        {1, 3});
    // Without motion the two pictures lie on top of each other.
    Pan pan(6.0f);
    DQImagePtr plain = Blank();
    DQFlowDissolve(plain.get(), pan.a.get(), pan.flowA.get(), pan.b.get(), pan.flowB.get(),
                   kDQDissolvePlain, 0.5f);
    EXPECT_GT(
        InteriorError(*plain, 10, [&](int x, int y, int ch) { return pan.Moved(3.0, x, y, ch); }),
        10.0);
}

// Mode 5 of the inverse form is the weighted energy blend with a's flow leading to b, b's to a,
// and t as the share of a.
TEST(FlowDissolve, InverseModeFiveIsTheEnergyBlend) {
    for (float t : {0.25f, 0.5f, 0.8f}) {
        Pan pan(4.0f);
        DQImagePtr out = Blank(), expected = Blank();
        DQFlowDissolveInv(out.get(), pan.a.get(), pan.flowA.get(), pan.b.get(), pan.flowB.get(),
                          kDQDissolveMode5, t);
        EnergyBlendInverse(expected.get(), pan.a.get(), pan.flowA.get(), pan.b.get(),
                           pan.flowB.get(), nullptr, nullptr, t);
        EXPECT_TRUE(SamePixels(*out, *expected)) << t;
    }
}

TEST(FlowDissolve, ModesWithoutMotion) {
    Pan pan(6.0f);
    DQImagePtr dissolved = Blank();
    Dissolve(dissolved.get(), pan.a.get(), pan.b.get(), 0.7f);
    const struct {
        const char* name;
        Dissolver dissolve;
        int mode;
        float t;
        const DQImage* expected;
        double tolerance;
    } cases[] = {
        {"inverse, nearest to a", DQFlowDissolveInv, kDQDissolveNearest, 0.6f, pan.a.get(), 0.0},
        {"inverse, nearest to b", DQFlowDissolveInv, kDQDissolveNearest, 0.4f, pan.b.get(), 0.0},
        {"kernel, nearest to b", DQFlowDissolve, kDQDissolveNearest, 0.2f, pan.b.get(), 0.0},
        {"inverse, plain", DQFlowDissolveInv, kDQDissolvePlain, 0.3f, dissolved.get(), 0.0},
        {"kernel, plain", DQFlowDissolve, kDQDissolvePlain, 0.3f, dissolved.get(), 0.0},
        {"inverse, end of the interval", DQFlowDissolveInv, kDQDissolveWarpBoth, 0.999f,
         pan.a.get(), 0.0},
        {"kernel, start of the interval", DQFlowDissolve, kDQDissolveMode5, 0.001f, pan.b.get(),
         0.0},
        {"kernel, bands at t 0.5 of one picture", DQFlowDissolve, kDQDissolveMode6, 0.5f,
         pan.a.get(), 1.0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage* second = std::string(c.name).find("one picture") != std::string::npos
                              ? pan.a.get()
                              : pan.b.get();
        DQImagePtr out = Blank();
        c.dissolve(out.get(), pan.a.get(), pan.flowA.get(), second, pan.flowB.get(), c.mode, c.t);
        EXPECT_LE(MaxDifference(*out, *c.expected), c.tolerance);
    }
}

TEST(FlowDissolve, BandModeCrossesFromOnePictureToTheOther) {
    Pan pan(6.0f);
    double previous = -1.0;
    for (float t : {0.1f, 0.3f, 0.5f, 0.7f, 0.9f}) {
        DQImagePtr out = Blank();
        DQFlowDissolve(out.get(), pan.a.get(), pan.flowA.get(), pan.b.get(), pan.flowB.get(),
                       kDQDissolveMode6, t);
        // The nearer the share of a, the closer the result to a.
        const double towardsB = MaxDifference(*out, *pan.a);
        const double towardsA = MaxDifference(*out, *pan.b);
        if (t < 0.5f) {
            EXPECT_LT(towardsA, towardsB) << t;
        } else if (t > 0.5f) {
            EXPECT_LT(towardsB, towardsA) << t;
        }
        if (previous >= 0.0) {
            EXPECT_LE(towardsB, previous + 1.0) << t;
        }
        previous = towardsB;
    }
}

TEST(FlowDissolve, FlowBordersAreZeroed) {
    for (Dissolver dissolve : {DQFlowDissolveInv, DQFlowDissolve}) {
        Pan pan(3.0f);
        DQImagePtr out = Blank();
        dissolve(out.get(), pan.a.get(), pan.flowA.get(), pan.b.get(), pan.flowB.get(),
                 kDQDissolveWarpBoth, 0.5f);
        for (DQImage* flow : {pan.flowA.get(), pan.flowB.get()})
            for (int y = 0; y < flow->height; ++y)
                for (int x = 0; x < flow->width; ++x) {
                    const bool border =
                        x == 0 || y == 0 || x == flow->width - 1 || y == flow->height - 1;
                    EXPECT_EQ(ElementAt(*flow, x, y, 0),
                              border ? 0.0 : (flow == pan.flowA.get() ? 3.0 : -3.0))
                        << x << "," << y;
                }
    }
}

TEST(FlowDissolve, RefusalsPrintAndLeaveTheTarget) {
    Pan pan(3.0f);
    DQImagePtr floatA = MakeImage(Pan::kW, Pan::kH, 4, DQ_FLOAT, Fill(0.2));
    DQImagePtr floatB = MakeImage(Pan::kW, Pan::kH, 4, DQ_FLOAT, Fill(0.4));
    DQImagePtr floatOut = Blank(4, DQ_FLOAT);
    DQImagePtr out = Blank();
    const struct {
        const char* name;
        std::function<void()> call;
        DQImage* target;
        const char* message;
    } cases[] = {
        {"inverse without flows",
         [&] {
             DQFlowDissolveInv(out.get(), pan.a.get(), nullptr, pan.b.get(), nullptr,
                               kDQDissolveWarpBoth, 0.5f);
         },
         out.get(), "DQFlowDissolveInv what?\n"},
        {"kernel without flows",
         [&] {
             DQFlowDissolve(out.get(), pan.a.get(), nullptr, pan.b.get(), nullptr, kDQDissolvePlain,
                            0.5f);
         },
         out.get(), "DQFlowDissolve what?\n"},
        {"kernel on floats",
         [&] {
             DQFlowDissolve(floatOut.get(), floatA.get(), nullptr, floatB.get(), nullptr,
                            kDQDissolveNearest, 0.5f);
         },
         floatOut.get(), "DQFlowDissolve only supports unsigned char\n"},
        {"inverse mode 4 does nothing",
         [&] {
             DQFlowDissolveInv(out.get(), pan.a.get(), pan.flowA.get(), pan.b.get(),
                               pan.flowB.get(), kDQDissolveMode4, 0.5f);
         },
         out.get(), ""},
    };
    for (const auto& c : cases) {
        DQImagePtr before = Duplicate(*c.target);
        EXPECT_EQ(PrintedBy(c.call), c.message) << c.name;
        EXPECT_TRUE(SamePixels(*c.target, *before)) << c.name;
    }
    // Frames that do not match are a bad argument.
    DQImagePtr small = MakeImage(10, 10, 4, DQ_UCHAR, Fill(1.0));
    EXPECT_EQ(ThrownBy([&] {
                  DQFlowDissolve(out.get(), small.get(), nullptr, pan.b.get(), nullptr, 0, 0.5f);
              }),
              kDQErrBadArgument);
}

TEST(FlowGuidedZoom, ReadsAlongAHalfSizeFlowAndMarksWhereItLands) {
    Pan pan(0.0f, 3);
    // A flow of half the size whose vectors, scaled by the ratio of (size - 1), move 5 pixels.
    const float ratio = float(Pan::kW - 1) / float(Pan::kW / 2 - 1);
    DQImagePtr flow = ConstantFlow(Pan::kW / 2, Pan::kH / 2, 5.0f / ratio, 0.0f);
    DQImagePtr out = Blank(3);
    DQImagePtr landed = MakeImage(Pan::kW, Pan::kH, 1, DQ_FLOAT, Fill(-1.0));
    DQFlowGuidedZoom(out.get(), pan.a.get(), flow.get(), 1.0f, *DQFindZoomFilter("lanczos"),
                     landed.get());
    EXPECT_LE(InteriorError(*out, 8, [&](int x, int y, int c) { return pan.Moved(-5.0, x, y, c); }),
              1.0);
    for (int x = 0; x < Pan::kW; ++x)
        EXPECT_EQ(ElementAt(*landed, x, 7, 0), x + 5 <= Pan::kW - 1 ? 1.0 : 0.0) << x;
    // Scale 0 is the identity for an interpolating kernel.
    DQFlowGuidedZoom(out.get(), pan.a.get(), flow.get(), 0.0f, *DQFindZoomFilter("lanczos"),
                     nullptr);
    EXPECT_EQ(MaxDifference(*out, *pan.a), 0.0);
    EXPECT_EQ(ThrownBy([&] {
                  DQFlowGuidedZoom(pan.a.get(), pan.a.get(), flow.get(), 1.0f,
                                   DQDefaultZoomFilter(), nullptr);
              }),
              kDQErrBadArgument);
}
