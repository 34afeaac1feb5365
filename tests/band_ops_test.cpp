#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "warp/Warp.h"

#include <cmath>
#include <functional>
#include <vector>

using namespace quelmor::test;

namespace {
// A smooth flow of about half the image's size; with `interior`, zero within 5 flow pixels of
// the border, since a fade carries along a band by design.
DQImagePtr HalfSizeFlow(const DQImage& image, bool interior) {
    const int w = image.width / 2 + 1, h = image.height / 2 + 1;
    return MakeFlow(w, h, [&](int x, int y, float& u, float& v) {
        const bool still = interior && (x < 5 || y < 5 || x >= w - 5 || y >= h - 5);
        u = still ? 0.0f : 6.0f * std::sin(0.1f * x + 0.05f * y);
        v = still ? 0.0f : 5.0f * std::cos(0.07f * x - 0.09f * y);
    });
}

void Warp(DQImage& dest, DQImage& source, int extend, int filterMode) {
    DQWarpInverse(&dest, &source, HalfSizeFlow(source, !extend).get(), extend, nullptr, filterMode,
                  0.8f);
}
} // namespace

// Every operation that runs in bands gives the same bytes on one band as on many: a band that
// missed rows, ran twice or read another band's output would show here.
TEST(BandOperations, ManyBandsGiveTheResultOfOne) {
    struct Case {
        const char* name;
        int type, channels;
        std::function<void(DQImage& image, DQImage& other)> op;
    };
    const std::vector<Case> cases = {
        {"CopyWhole", DQ_UCHAR, 4, [](DQImage& d, const DQImage& o) { d.CopyWhole(&o); }},
        {"CopyFrom with a type change", DQ_FLOAT, 2,
         [](DQImage& d, const DQImage& o) {
             DQImage bytes(o.width, o.height, 2, DQ_UCHAR, 1);
             bytes.CopyFromNormalised(0, 0, &o, 0, 0, o.width, o.height);
             d.CopyFrom(0, 0, &bytes, 0, 0, o.width, o.height);
         }},
        {"CopyChannelPlain", DQ_FLOAT, 4,
         [](DQImage& d, const DQImage& o) { d.CopyChannelPlain(3, &o, 0); }},
        {"CopyChannelNormalised", DQ_UCHAR, 2,
         [](DQImage& d, const DQImage& o) {
             DQImage floats(o.width, o.height, 1, DQ_FLOAT, 1);
             floats.CopyChannelNormalised(0, &o, 1);
             d.CopyChannelNormalised(0, &floats, 0);
         }},
        {"Scale", DQ_FLOAT, 3, [](DQImage& d, const DQImage&) { d.Scale(-0.3f); }},
        {"Premultiply", DQ_UCHAR, 4, [](DQImage& d, const DQImage&) { d.Premultiply(); }},
        {"Subtract", DQ_FLOAT, 2, [](DQImage& d, const DQImage& o) { d.Subtract(&o); }},
        {"Invert", DQ_USHORT, 4, [](DQImage& d, const DQImage&) { d.Invert(); }},
        {"Unpremultiply", DQ_USHORT, 4, [](DQImage& d, const DQImage&) { d.Unpremultiply(); }},
        {"ReplaceAlphaScale", DQ_FLOAT, 4,
         [](DQImage& d, const DQImage& o) { d.ReplaceAlphaScale(&o); }},
        {"ARGBtoRGBA from another", DQ_UCHAR, 4,
         [](DQImage& d, const DQImage& o) { d.ARGBtoRGBA(&o); }},
        {"DQWarpInverse, extended edges, mip map", DQ_UCHAR, 3,
         [](DQImage& d, DQImage& o) { Warp(d, o, 1, 2); }},
        {"DQWarpInverse, faded edges", DQ_UCHAR, 4,
         [](DQImage& d, DQImage& o) { Warp(d, o, 0, 1); }},
        {"DQBlurAlongFlow with progress", DQ_UCHAR, 4,
         [](DQImage& d, DQImage& o) {
             ZUIdleAndProgressClass progress;
             DQBlurAlongFlow(&d, &o, HalfSizeFlow(o, false).get(), 1, &progress, 0, 1.0f);
         }},
        {"filters and resizes", DQ_UCHAR, 3,
         [](DQImage& d, const DQImage& o) {
             DQImagePtr half = DQMakeImage(o.width / 2, o.height / 2, o.channels, o.dataType);
             ResizeBilinear(half.get(), &o);
             BlurGauss(half.get(), 0, 5.0f);
             BlurBox(half.get(), 0, 1.5f);
             Blur5(half.get());
             ResizeBilinear(&d, half.get());
         }},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        for (int bottomUp : {0, 1}) {
            auto original = PatternImage(37, 211, c.channels, c.type, 31, bottomUp);
            auto other = PatternImage(37, 211, c.channels, c.type, 32, 1 - bottomUp);
            DQImagePtr reference;
            quelmor::test::ForWorkerCounts([&](int workers) {
                auto image = Duplicate(*original);
                c.op(*image, *other);
                if (!reference) {
                    reference = std::move(image);
                    EXPECT_FALSE(SamePixels(*reference, *original)) << "the operation did nothing";
                } else {
                    EXPECT_TRUE(SamePixels(*image, *reference)) << "bottom-up " << bottomUp;
                }
            });
        }
    }
}
