#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "image/CpuLevel.h"
#include "warp/Zoom.h"

#include <cmath>
#include <cstdlib>
#include <vector>

using namespace quelmor::test;

namespace {

const DQZoomFilter& Filter(const char* name) {
    const DQZoomFilter* filter = DQFindZoomFilter(name);
    if (!filter) ADD_FAILURE() << "no filter " << name;
    return filter ? *filter : DQDefaultZoomFilter();
}

// One pass of the zoom written straight from its rules, element by element, on the given line.
std::vector<float> ReferencePass(const std::vector<float>& in, int inSize, int outSize,
                                 DQZoomKernel kernel, float radius) {
    const float factor = static_cast<float>(outSize) / static_cast<float>(inSize);
    const float invFactor = 1.0f / factor;
    const float width = factor >= 1.0f ? radius : radius / factor;
    std::vector<float> out(static_cast<size_t>(outSize));
    for (int i = 0; i < outSize; ++i) {
        const float centre = static_cast<float>(i) * invFactor;
        float sum = 0.0f;
        for (int j = static_cast<int>(std::ceil(centre - width));
             j <= static_cast<int>(std::floor(centre + width)); ++j) {
            const float d = centre - static_cast<float>(j);
            const float w = factor >= 1.0f ? kernel(d) : kernel(d * factor) * factor;
            const int p = j < 0 ? -j : j >= inSize ? 2 * inSize - 1 - j : j;
            if (p < 0 || p >= inSize) continue;
            sum += w * in[static_cast<size_t>(p)];
        }
        out[static_cast<size_t>(i)] = sum;
    }
    return out;
}

// The stored value of a sum: limited to 0 .. 255, integers rounded.
float StoredSum(int dataType, float v) {
    v = v > 0.0f ? (v < 255.0f ? v : 255.0f) : 0.0f;
    return dataType == DQ_FLOAT ? v : std::floor(v + 0.5f);
}

// The zoom of `source` to w x h: rows first into an intermediate of the source's type, then
// columns.
DQImagePtr ReferenceZoom(const DQImage& source, int w, int h, DQZoomKernel kernel, float radius) {
    const int channels = source.channels;
    DQImagePtr mid = MakeImage(w, source.height, channels, source.dataType, Fill(0.0));
    DQImagePtr out = MakeImage(w, h, channels, source.dataType, Fill(0.0));
    for (int c = 0; c < channels; ++c) {
        for (int y = 0; y < source.height; ++y) {
            std::vector<float> line(static_cast<size_t>(source.width));
            for (int x = 0; x < source.width; ++x)
                line[x] = static_cast<float>(ElementAt(source, x, y, c));
            const auto row = ReferencePass(line, source.width, w, kernel, radius);
            for (int x = 0; x < w; ++x)
                SetElement(*mid, x, y, c, StoredSum(source.dataType, row[x]));
        }
        for (int x = 0; x < w; ++x) {
            std::vector<float> line(static_cast<size_t>(source.height));
            for (int y = 0; y < source.height; ++y)
                line[y] = static_cast<float>(ElementAt(*mid, x, y, c));
            const auto column = ReferencePass(line, source.height, h, kernel, radius);
            for (int y = 0; y < h; ++y)
                SetElement(*out, x, y, c, StoredSum(source.dataType, column[y]));
        }
    }
    return out;
}

// Element values that reach past 255 and, for floats, below 0, so that the limits are exercised.
PixelFunction Busy(int dataType) {
    return [dataType](int x, int y, int c) {
        const double t =
            0.5 + 0.5 * std::sin(0.9 * x + 0.5 * y + 1.7 * c) * std::cos(0.3 * x - 0.7 * y);
        if (dataType == DQ_UCHAR) return std::floor(255.0 * t);
        if (dataType == DQ_USHORT) return std::floor(400.0 * t);
        return 300.0 * t - 20.0;
    };
}

DQImagePtr Zoomed(DQImage& source, int w, int h, const DQZoomFilter& filter,
                  DQZoomTempStorage* storage = nullptr) {
    DQImagePtr out = MakeImage(w, h, source.channels, source.dataType, Fill(7.0));
    Zoom(out.get(), &source, filter, storage);
    return out;
}

} // namespace

TEST(ZoomKernels, EvenZeroOutsideTheirRadiusAndNotJustInside) {
    const struct {
        const char* name;
        float radius;
    } cases[] = {{"hermite", 1.0f}, {"triangle", 1.0f},      {"quadratic", 1.5f},
                 {"bspline", 2.0f}, {"bspline-table", 2.0f}, {"lanczos", 3.0f},
                 {"mitchell", 2.0f}};
    ASSERT_EQ(std::size(cases), static_cast<size_t>(kDQZoomFilterCount));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const DQZoomFilter& f = Filter(c.name);
        EXPECT_EQ(f.radius, c.radius);
        for (float x = 0.0f; x < 4.0f; x += 0.0137f)
            EXPECT_EQ(f.kernel(x), f.kernel(-x)) << "at " << x;
        for (float x : {c.radius, c.radius + 0.001f, c.radius + 0.5f, 7.0f, 1e6f})
            EXPECT_EQ(f.kernel(x), 0.0f) << "at " << x;
        EXPECT_NE(f.kernel(c.radius - 0.01f), 0.0f);
        EXPECT_GT(f.kernel(0.0f), 0.5f);
    }
}

TEST(ZoomKernels, ValuesAtKnownPoints) {
    const struct {
        const char* name;
        float x, expected, tolerance;
    } cases[] = {
        {"hermite", 0.5f, 0.5f, 1e-7f},
        {"hermite", 0.25f, 0.84375f, 1e-7f},
        {"triangle", 0.25f, 0.75f, 1e-7f},
        {"quadratic", 0.0f, 0.75f, 1e-7f},
        {"quadratic", 1.0f, 0.125f, 1e-7f},
        {"bspline", 0.0f, 2.0f / 3.0f, 1e-7f},
        {"bspline", 1.0f, 1.0f / 6.0f, 1e-7f},
        {"bspline-table", 1.0f, 1.0f / 6.0f, 1e-6f},
        {"bspline-table", 0.3f, 0.5901667f, 2e-3f},
        {"lanczos", 0.0f, 1.0f, 0.0f},
        {"lanczos", 0.5f, 0.6079271f, 1e-6f},
        {"lanczos", 1.0f, 0.0f, 1e-6f},
        {"lanczos", 1.5f, -0.1350949f, 1e-6f},
        {"mitchell", 0.0f, 8.0f / 9.0f, 1e-7f},
        {"mitchell", 1.0f, 1.0f / 18.0f, 1e-6f},
    };
    for (const auto& c : cases)
        EXPECT_NEAR(Filter(c.name).kernel(c.x), c.expected, c.tolerance) << c.name << " at " << c.x;
}

// Sampled at unit steps around any centre, each kernel sums to one (a flat field stays flat) and,
// except the Hermite, its first moment is the centre (a ramp stays a ramp). The Hermite only
// interpolates: it meets the ramp at whole pixels.
TEST(ZoomKernels, PreserveConstantsAndRamps) {
    const struct {
        const char* name;
        double unityTolerance;
        bool keepsRamps;
    } cases[] = {{"hermite", 1e-6, false}, {"triangle", 1e-6, true},      {"quadratic", 1e-6, true},
                 {"bspline", 1e-6, true},  {"bspline-table", 2e-3, true}, {"lanczos", 2e-2, true},
                 {"mitchell", 1e-6, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const DQZoomFilter& f = Filter(c.name);
        for (double centre = 0.0; centre < 1.0; centre += 0.0625) {
            double sum = 0.0, moment = 0.0;
            for (int j = -5; j <= 6; ++j) {
                const double w = f.kernel(static_cast<float>(centre - j));
                sum += w;
                moment += w * j;
            }
            EXPECT_NEAR(sum, 1.0, c.unityTolerance) << "centre " << centre;
            if (c.keepsRamps)
                EXPECT_NEAR(moment, centre, 2.0 * c.unityTolerance) << "centre " << centre;
            else if (centre == 0.0 || centre == 0.5)
                EXPECT_NEAR(moment, centre, 1e-6);
            else
                EXPECT_GT(std::fabs(moment - centre), 1e-3) << "centre " << centre;
        }
    }
}

TEST(Zoom, MatchesTheRulesForEveryTypeChannelCountAndSize) {
    const struct {
        int sw, sh, dw, dh;
    } sizes[] = {{23, 17, 58, 40}, {61, 47, 30, 23}, {40, 30, 17, 71}, {1, 1, 5, 3},
                 {9, 7, 1, 1},     {1, 9, 4, 1},     {12, 12, 12, 12}, {5, 3, 13, 2}};
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int channels = 1; channels <= 4; ++channels)
            for (const char* name : {"lanczos", "bspline-table", "quadratic"})
                for (const auto& s : sizes) {
                    SCOPED_TRACE(::testing::Message()
                                 << Describe(type, channels) << " " << name << " " << s.sw << "x"
                                 << s.sh << " to " << s.dw << "x" << s.dh);
                    const DQZoomFilter& f = Filter(name);
                    DQImagePtr source =
                        MakeImage(s.sw, s.sh, channels, type, Busy(type), (s.sw + channels) % 2);
                    DQImagePtr expected = ReferenceZoom(*source, s.dw, s.dh, f.kernel, f.radius);
                    DQImagePtr out = Zoomed(*source, s.dw, s.dh, f);
                    EXPECT_EQ(MaxDifference(*out, *expected), 0.0);
                }
}

TEST(Zoom, SameResultForEveryWorkerCountAndProcessorLevel) {
    DQImagePtr source = MakeImage(300, 211, 4, DQ_UCHAR, Pattern(DQ_UCHAR));
    const struct { int w, h; } sizes[] = {{150, 105}, {731, 509}};
    for (const auto& s : sizes) {
        DQImagePtr single = Zoomed(*source, s.w, s.h, Filter("lanczos"));
        DQImagePtr expected = ReferenceZoom(*source, s.w, s.h, LanczosKernel, 3.0f);
        EXPECT_EQ(MaxDifference(*single, *expected), 0.0);
        const int before = DQCpuLevel();
        for (int level : {DQ_CPU_BASELINE, DQ_CPU_AVX2}) {
            DQSetCpuLevel(level);
            ForWorkerCounts([&](int) {
                DQImagePtr out = Zoomed(*source, s.w, s.h, Filter("lanczos"));
                EXPECT_TRUE(SamePixels(*out, *single)) << "level " << level;
            });
        }
        DQSetCpuLevel(before);
    }
}

TEST(Zoom, SameSizeIsTheIdentityForInterpolatingKernels) {
    const struct {
        const char* name;
        int type;
        double tolerance;
    } cases[] = {{"triangle", DQ_UCHAR, 0.0}, {"triangle", DQ_USHORT, 0.0},
                 {"triangle", DQ_FLOAT, 0.0}, {"hermite", DQ_UCHAR, 0.0},
                 {"hermite", DQ_FLOAT, 0.0},  {"lanczos", DQ_UCHAR, 0.0},
                 {"lanczos", DQ_USHORT, 0.0}, {"lanczos", DQ_FLOAT, 1e-5}};
    for (const auto& c : cases)
        for (int channels : {1, 3, 4}) {
            SCOPED_TRACE(::testing::Message() << c.name << " " << Describe(c.type, channels));
            // Within 0..255 for every type, the range the zoom keeps.
            DQImagePtr source = MakeImage(37, 21, channels, c.type, [&](int x, int y, int ch) {
                const double v = Pattern(DQ_UCHAR)(x, y, ch);
                return c.type == DQ_FLOAT ? v + 0.25 : v;
            });
            DQImagePtr out = Zoomed(*source, 37, 21, Filter(c.name));
            EXPECT_LE(MaxDifference(*out, *source), c.tolerance);
        }
    // The smoothing kernels are not interpolating: the same size blurs.
    DQImagePtr source = MakeImage(37, 21, 1, DQ_UCHAR, Pattern(DQ_UCHAR));
    EXPECT_GT(MaxDifference(*Zoomed(*source, 37, 21, Filter("bspline")), *source), 5.0);
}

// Away from the edges a flat field stays flat and a ramp stays a ramp, enlarging by 2.5 and
// reducing by 2 and 4, for every kernel (the Hermite only flat).
TEST(Zoom, KeepsFlatFieldsAndRampsInside) {
    const struct { int sw, dw; } sizes[] = {{40, 100}, {120, 60}, {160, 40}};
    for (int i = 0; i < kDQZoomFilterCount; ++i) {
        const DQZoomFilter& f = DQZoomFilters()[i];
        const double tolerance = std::string(f.name) == "lanczos" ? 2.0 : 0.6;
        for (const auto& s : sizes) {
            SCOPED_TRACE(::testing::Message() << f.name << " " << s.sw << " to " << s.dw);
            DQImagePtr flat = MakeImage(s.sw, s.sw / 2, 3, DQ_FLOAT, Fill(200.0));
            DQImagePtr flatOut = Zoomed(*flat, s.dw, s.dw / 2, f);
            DQImagePtr ramp = MakeImage(s.sw, 12, 1, DQ_FLOAT,
                                        [&](int x, int, int) { return 20.0 + 200.0 * x / s.sw; });
            DQImagePtr rampOut = Zoomed(*ramp, s.dw, 12, f);
            const int margin = s.dw / 8;
            for (int x = margin; x < s.dw - margin; ++x) {
                EXPECT_NEAR(ElementAt(*flatOut, x, s.dw / 4, 1), 200.0, tolerance) << "x " << x;
                if (std::string(f.name) == "hermite") continue;
                const double centre = static_cast<double>(x) * s.sw / s.dw;
                EXPECT_NEAR(ElementAt(*rampOut, x, 6, 0), 20.0 + 200.0 * centre / s.sw, tolerance)
                    << "x " << x;
            }
        }
    }
}

TEST(Zoom, OnePixelSourceOrDestination) {
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int i = 0; i < kDQZoomFilterCount; ++i) {
            const DQZoomFilter& f = DQZoomFilters()[i];
            SCOPED_TRACE(::testing::Message() << f.name << " " << Describe(type, 4));
            DQImagePtr dot = MakeImage(1, 1, 4, type, [](int, int, int c) { return 40.0 + c; });
            DQImagePtr grown = Zoomed(*dot, 9, 4, f);
            EXPECT_EQ(MaxDifference(*grown, *ReferenceZoom(*dot, 9, 4, f.kernel, f.radius)), 0.0);
            // At the first output the one pixel is read at the kernel's centre and, mirrored, one
            // step beyond it, on each axis.
            const double peak = f.kernel(0.0f) + f.kernel(1.0f);
            EXPECT_NEAR(ElementAt(*grown, 0, 0, 2), StoredSum(type, 42.0f * peak * peak), 1.0);

            DQImagePtr wide = MakeImage(31, 17, 4, type, Fill(90.0));
            DQImagePtr shrunk = Zoomed(*wide, 1, 1, f);
            EXPECT_EQ(MaxDifference(*shrunk, *ReferenceZoom(*wide, 1, 1, f.kernel, f.radius)), 0.0);
        }
}

TEST(Zoom, SumsAreLimitedTo255WhateverTheType) {
    // A hard edge: the negative lobes of the Lanczos over- and undershoot it.
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT}) {
        SCOPED_TRACE(Describe(type, 1));
        const double high = type == DQ_USHORT ? 1000.0 : 255.0;
        DQImagePtr edge =
            MakeImage(20, 20, 1, type, [&](int x, int, int) { return x < 10 ? 0.0 : high; });
        DQImagePtr out = Zoomed(*edge, 47, 33, Filter("lanczos"));
        double low = 1e9, top = -1e9;
        for (int y = 0; y < out->height; ++y)
            for (int x = 0; x < out->width; ++x) {
                low = std::min(low, ElementAt(*out, x, y, 0));
                top = std::max(top, ElementAt(*out, x, y, 0));
            }
        EXPECT_EQ(low, 0.0);
        EXPECT_EQ(top, 255.0);
    }
}

namespace {

// Counts the blocks taken from the library heap and refuses them after `allowed`.
struct CountingHeap {
    int taken = 0;
    int allowed = 1 << 30;
    static void* Allocate(void* context, size_t size) {
        auto* heap = static_cast<CountingHeap*>(context);
        if (heap->taken >= heap->allowed) return nullptr;
        ++heap->taken;
        return std::malloc(size);
    }
    static void Release(void*, void* pointer) { std::free(pointer); }
};

class HeapScope {
public:
    explicit HeapScope(CountingHeap& heap) {
        ZUMemSetAllocator(&heap, &CountingHeap::Allocate, &CountingHeap::Release);
    }
    ~HeapScope() { ZUMemSetAllocator(nullptr, nullptr, nullptr); }
};

} // namespace

TEST(ZoomTempStorage, ASecondZoomOfLikeSizeAllocatesNothing) {
    WorkerScope workers(3, 1920, 1080);
    DQImagePtr source = MakeImage(120, 90, 4, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr big = MakeImage(200, 150, 4, DQ_UCHAR, Fill(0.0));
    DQImagePtr small = MakeImage(70, 50, 4, DQ_UCHAR, Fill(0.0));
    DQImagePtr expected = MakeImage(200, 150, 4, DQ_UCHAR, Fill(0.0));
    ZoomDefault(expected.get(), source.get());

    DQZoomTempStorage storage;
    CountingHeap heap;
    {
        HeapScope scope(heap);
        ZoomDefault(big.get(), source.get(), &storage);
        const int first = heap.taken;
        EXPECT_GT(first, 0);
        ZoomDefault(big.get(), source.get(), &storage);
        ZoomDefault(small.get(), source.get(), &storage);
        EXPECT_EQ(heap.taken, first);
    }
    EXPECT_TRUE(SamePixels(*big, *expected));
}

TEST(ZoomTempStorage, AFailedAllocationThrowsAndKeepsTheStorage) {
    DQImagePtr source = MakeImage(64, 48, 3, DQ_USHORT, Pattern(DQ_UCHAR));
    DQImagePtr small = MakeImage(32, 24, 3, DQ_USHORT, Fill(0.0));
    DQImagePtr large = MakeImage(160, 120, 3, DQ_USHORT, Fill(5.0));
    DQImagePtr before = Duplicate(*large);
    for (int allowed : {0, 1, 2, 3}) {
        SCOPED_TRACE(::testing::Message() << allowed << " allocations");
        DQZoomTempStorage storage;
        Zoom(small.get(), source.get(), Filter("mitchell"), &storage);
        CountingHeap heap;
        heap.allowed = allowed;
        int thrown = 0;
        {
            HeapScope scope(heap);
            thrown =
                ThrownBy([&] { Zoom(large.get(), source.get(), Filter("mitchell"), &storage); });
        }
        EXPECT_EQ(thrown, kDQErrMemory);
        EXPECT_TRUE(SamePixels(*large, *before));
        // The storage still serves, both for the size it had and for the larger one.
        Zoom(small.get(), source.get(), Filter("mitchell"), &storage);
        EXPECT_EQ(MaxDifference(*small, *ReferenceZoom(*source, 32, 24, MitchellKernel, 2.0f)),
                  0.0);
        Zoom(large.get(), source.get(), Filter("mitchell"), &storage);
        EXPECT_EQ(MaxDifference(*large, *ReferenceZoom(*source, 160, 120, MitchellKernel, 2.0f)),
                  0.0);
        large = Duplicate(*before);
    }
}

TEST(Zoom, BadArgumentsAreRefusedAndLeaveTheTarget) {
    DQImagePtr source = MakeImage(16, 16, 4, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr target = MakeImage(8, 8, 4, DQ_UCHAR, Fill(3.0));
    DQImagePtr otherType = MakeImage(8, 8, 4, DQ_USHORT, Fill(3.0));
    DQImagePtr otherChannels = MakeImage(8, 8, 3, DQ_UCHAR, Fill(3.0));
    const struct {
        const char* name;
        DQImage* dest;
        DQImage* source;
        DQZoomKernel kernel;
        float radius;
    } cases[] = {
        {"null target", nullptr, source.get(), TriangleKernel, 1.0f},
        {"null source", target.get(), nullptr, TriangleKernel, 1.0f},
        {"null kernel", target.get(), source.get(), nullptr, 1.0f},
        {"zero radius", target.get(), source.get(), TriangleKernel, 0.0f},
        {"negative radius", target.get(), source.get(), TriangleKernel, -2.0f},
        {"radius NaN", target.get(), source.get(), TriangleKernel, NAN},
        {"radius infinite", target.get(), source.get(), TriangleKernel, INFINITY},
        {"other type", otherType.get(), source.get(), TriangleKernel, 1.0f},
        {"other channels", otherChannels.get(), source.get(), TriangleKernel, 1.0f},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImage* dest = c.dest;
        DQImagePtr before = dest ? Duplicate(*dest) : nullptr;
        EXPECT_EQ(ThrownBy([&] { Zoom(dest, c.source, c.kernel, nullptr, c.radius); }),
                  kDQErrBadArgument);
        if (dest) {
            EXPECT_TRUE(SamePixels(*dest, *before));
        }
    }
    // An empty image is nothing to do.
    DQImage empty(0, 5, 4, DQ_UCHAR, 0);
    EXPECT_EQ(ThrownBy([&] { Zoom(&empty, source.get(), TriangleKernel, nullptr, 1.0f); }), -1);
}
