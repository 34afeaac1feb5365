#include "TestSupport.h"
#include "WarpTestImages.h"
#include "image/DQImage2.h"
#include "warp/MeshRaster.h"
#include "warp/WarpForward.h"

#include <cmath>
#include <cstring>
#include <vector>

using namespace quelmor::test;

namespace {

DQImagePtr Mask(int width, int height, double fill = 7.0) {
    return MakeImage(width, height, 1, DQ_UCHAR, Fill(fill));
}

DQImagePtr Opaque(int width, int height, int dataType, const PixelFunction& colour) {
    const double white = dataType == DQ_UCHAR ? 255.0 : dataType == DQ_USHORT ? 65535.0 : 1.0;
    return MakeImage(width, height, 4, dataType,
                     [&](int x, int y, int c) { return c == 3 ? white : colour(x, y, c); });
}

// A copy of an image, to see later that a refused call left it alone.
DQImagePtr Copy(const DQImage& image) {
    return MakeImage(image.width, image.height, image.channels, image.dataType,
                     [&](int x, int y, int c) { return ElementAt(image, x, y, c); });
}

bool SameBytes(const DQImage& a, const DQImage& b) {
    for (int y = 0; y < a.height; ++y)
        if (std::memcmp(a.RowAddress(y), b.RowAddress(y),
                        static_cast<size_t>(a.width) * a.pixelBytes) != 0)
            return false;
    return true;
}

int Warp(DQImage* dest, DQImage* source, DQImage* flow, DQImage* weight, float scale) {
    return DQWarpForward(dest, source, flow, nullptr, weight, scale);
}

const int kTypes[] = {DQ_UCHAR, DQ_USHORT, DQ_FLOAT};

double Tolerance(int dataType) {
    return dataType == DQ_FLOAT ? 1e-5 : 0.0;
}

} // namespace

TEST(WarpForward, RefusesInputsThatDoNotFit) {
    auto image = [](int width, int channels, int type) {
        return MakeImage(width, 10, channels, type, Pattern(type));
    };
    DQImagePtr rgba = image(12, 4, DQ_UCHAR), dest = image(12, 4, DQ_UCHAR);
    DQImagePtr rgb = image(12, 3, DQ_UCHAR), rgbDest = image(12, 3, DQ_UCHAR);
    DQImagePtr shortDest = image(12, 4, DQ_USHORT), flow = ConstantFlow(12, 10, 1, 1);
    DQImagePtr shortFlow = image(12, 2, DQ_USHORT), threeFlow = image(12, 3, DQ_FLOAT);
    DQImagePtr floatWeight = image(12, 1, DQ_FLOAT), smallWeight = Mask(6, 10);
    DQImagePtr smallMask = Mask(6, 10), mask = Mask(12, 10);
    DQImagePtr thin = MakeImage(1, 10, 4, DQ_UCHAR, Fill(9)), thinDest = Copy(*thin);
    DQImagePtr weight = Mask(12, 10);
    const struct {
        const char* name;
        DQImage *dest, *source, *flow, *weight, *sourceMask;
        int samples, meshStep, filterMode, plainCells;
    } cases[] = {
        {"three channels", rgbDest.get(), rgb.get(), flow.get(), nullptr, nullptr, 1, 1, 1, 1},
        {"types differ", shortDest.get(), rgba.get(), flow.get(), nullptr, nullptr, 1, 1, 1, 1},
        {"short flow", dest.get(), rgba.get(), shortFlow.get(), nullptr, nullptr, 1, 1, 1, 1},
        {"three-channel flow", dest.get(), rgba.get(), threeFlow.get(), nullptr, nullptr, 1, 1, 1,
         1},
        {"no flow", dest.get(), rgba.get(), nullptr, nullptr, nullptr, 1, 1, 1, 1},
        {"float weight", dest.get(), rgba.get(), flow.get(), floatWeight.get(), nullptr, 1, 1, 1,
         1},
        {"small weight", dest.get(), rgba.get(), flow.get(), smallWeight.get(), nullptr, 1, 1, 1,
         1},
        {"small source mask", dest.get(), rgba.get(), flow.get(), nullptr, smallMask.get(), 1, 1, 1,
         1},
        {"one-column source", thinDest.get(), thin.get(), flow.get(), nullptr, nullptr, 1, 1, 1, 1},
        {"source mask", dest.get(), rgba.get(), flow.get(), weight.get(), mask.get(), 1, 1, 1, 1},
        {"two samples", dest.get(), rgba.get(), flow.get(), weight.get(), nullptr, 2, 1, 1, 1},
        {"mesh step 2", dest.get(), rgba.get(), flow.get(), weight.get(), nullptr, 1, 2, 1, 1},
        {"mip map", dest.get(), rgba.get(), flow.get(), weight.get(), nullptr, 1, 1, 2, 1},
        {"other cells", dest.get(), rgba.get(), flow.get(), weight.get(), nullptr, 1, 1, 1, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr destBefore = Copy(*c.dest);
        DQImagePtr weightBefore = c.weight ? Copy(*c.weight) : nullptr;
        ::testing::internal::CaptureStderr();
        EXPECT_EQ(DQWarpForward(c.dest, c.source, c.flow, 1, c.samples, c.meshStep, 1, 1, 1,
                                c.plainCells, nullptr, c.weight, true, c.filterMode, c.sourceMask,
                                1.0f),
                  0);
        EXPECT_FALSE(::testing::internal::GetCapturedStderr().empty());
        EXPECT_TRUE(SameBytes(*c.dest, *destBefore));
        if (c.weight) {
            EXPECT_TRUE(SameBytes(*c.weight, *weightBefore));
        }
    }
}

TEST(WarpForward, NoMotionCopiesExactly) {
    const struct {
        const char* name;
        float u, scale;
    } cases[] = {{"zero scale", 3.0f, 0.0f},
                 {"tiny scale", 3.0f, 9e-06f},
                 {"zero flow", 0.0f, 1.0f},
                 {"flow below the threshold", 0.0001f, 1.0f}};
    for (int type : kTypes)
        for (const auto& c : cases) {
            SCOPED_TRACE(c.name);
            DQImagePtr source = MakeImage(20, 14, 4, type, Pattern(type));
            DQImagePtr dest = MakeImage(20, 14, 4, type, Fill(3));
            DQImagePtr weight = Mask(20, 14);
            DQImagePtr flow = ConstantFlow(10, 7, c.u, -c.u);
            EXPECT_EQ(Warp(dest.get(), source.get(), flow.get(), weight.get(), c.scale), 1);
            EXPECT_TRUE(SameBytes(*dest, *source));
            for (int y = 0; y < 14; ++y)
                for (int x = 0; x < 20; ++x)
                    ASSERT_EQ(ElementAt(*weight, x, y, 0), 255);
        }
}

// A square on a patterned, opaque background moves by exactly the flow; what it uncovers at the
// top and left is empty: 0 in every channel and in the weight. The flow has its own grid, whose
// vectors are turned into image pixels by the ratio of the last columns and rows.
TEST(WarpForward, ConstantFlowMovesBySteps) {
    const struct {
        const char* name;
        int flowWidth, flowHeight;
        float u, v, scale;
        int dx, dy;
    } cases[] = {
        {"one to the right", 33, 25, 1.0f, 0.0f, 1.0f, 1, 0},
        {"half-size flow", 17, 13, 1.5f, 1.0f, 1.0f, 3, 2},
        {"scaled", 33, 25, 4.0f, 2.0f, 0.5f, 2, 1},
        {"up and left", 33, 25, -2.0f, -3.0f, 1.0f, -2, -3},
    };
    for (int type : kTypes)
        for (const auto& c : cases) {
            SCOPED_TRACE(std::string(c.name) + " " + Describe(type, 4));
            const PixelFunction pattern = Pattern(type);
            const double white = type == DQ_FLOAT ? 1.0 : type == DQ_UCHAR ? 255.0 : 65535.0;
            DQImagePtr source = Opaque(33, 25, type, [&](int x, int y, int ch) {
                const bool square = x >= 10 && x < 20 && y >= 8 && y < 16;
                return square ? white * (0.2 + 0.2 * ch) : pattern(x, y, ch);
            });
            DQImagePtr dest = MakeImage(33, 25, 4, type, Fill(7));
            DQImagePtr weight = Mask(33, 25);
            DQImagePtr flow = ConstantFlow(c.flowWidth, c.flowHeight, c.u, c.v);
            ASSERT_EQ(Warp(dest.get(), source.get(), flow.get(), weight.get(), c.scale), 1);
            for (int y = 0; y < 25; ++y)
                for (int x = 0; x < 33; ++x) {
                    const int sx = x - c.dx, sy = y - c.dy;
                    // The lower end of every triangle is left out, so the source's last row
                    // lands nowhere unless it lands on the last row of the image.
                    const bool covered =
                        sx >= 0 && sx < 33 && sy >= 0 && sy < 25 && (sy < 24 || y == 24);
                    ASSERT_EQ(ElementAt(*weight, x, y, 0), covered ? 255 : 0) << x << "," << y;
                    for (int ch = 0; ch < 4; ++ch)
                        ASSERT_NEAR(ElementAt(*dest, x, y, ch),
                                    covered ? ElementAt(*source, sx, sy, ch) : 0.0, Tolerance(type))
                            << x << "," << y << " channel " << ch;
                }
        }
}

// The flow mirrors the image left to right, so every triangle comes out with its corners in the
// opposite turn: they must be drawn all the same.
TEST(WarpForward, FoldedTrianglesAreDrawn) {
    for (int type : kTypes) {
        SCOPED_TRACE(Describe(type, 4));
        const int width = 24, height = 18;
        DQImagePtr source = Opaque(width, height, type, Pattern(type));
        DQImagePtr dest = MakeImage(width, height, 4, type, Fill(7));
        DQImagePtr weight = Mask(width, height);
        DQImagePtr flow = MakeFlow(width, height, [&](int x, int, float& u, float& v) {
            u = static_cast<float>(width - 1 - 2 * x);
            v = 0.0f;
        });
        ASSERT_EQ(Warp(dest.get(), source.get(), flow.get(), weight.get(), 1.0f), 1);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                ASSERT_EQ(ElementAt(*weight, x, y, 0), 255);
                for (int ch = 0; ch < 4; ++ch)
                    ASSERT_NEAR(ElementAt(*dest, x, y, ch),
                                ElementAt(*source, width - 1 - x, y, ch), Tolerance(type))
                        << x << "," << y;
            }
    }
}

// The right half of the image folds back over the left half: on the left half every pixel gets
// as many triangles of each colour, and holds their mean, not the colour drawn last.
TEST(WarpForward, FoldedRegionsAverage) {
    const int width = 40, height = 12, fold = 20;
    for (int type : kTypes) {
        SCOPED_TRACE(Describe(type, 4));
        const double white = type == DQ_FLOAT ? 1.0 : type == DQ_UCHAR ? 255.0 : 65535.0;
        const double dark = 0.2 * white, light = 0.8 * white;
        DQImagePtr source =
            Opaque(width, height, type, [&](int x, int, int) { return x < fold ? dark : light; });
        DQImagePtr dest = MakeImage(width, height, 4, type, Fill(7));
        DQImagePtr flow = MakeFlow(width, height, [&](int x, int, float& u, float& v) {
            u = x <= fold ? 0.0f : static_cast<float>(2 * fold - 2 * x);
            v = 0.0f;
        });
        ASSERT_EQ(Warp(dest.get(), source.get(), flow.get(), nullptr, 1.0f), 1);
        for (int y = 0; y < height; ++y)
            for (int x = 2; x < fold - 2; ++x)
                ASSERT_NEAR(ElementAt(*dest, x, y, 0), 0.5 * (dark + light), 0.01 * white)
                    << x << "," << y;
    }
}

// Shrinking the image to half its size about its centre: many triangles land on each pixel, and
// their mean follows the ramp of the source; the border that nothing reaches is empty.
TEST(WarpForward, ZoomOutAveragesOverlaps) {
    const int width = 41, height = 31;
    const float cx = 20.0f, cy = 15.0f;
    for (int type : kTypes) {
        SCOPED_TRACE(Describe(type, 4));
        const double white = type == DQ_FLOAT ? 1.0 : type == DQ_UCHAR ? 255.0 : 65535.0;
        auto ramp = [&](double x, double y) { return white * (0.1 + 0.015 * x + 0.01 * y); };
        DQImagePtr source = Opaque(width, height, type, [&](int x, int y, int ch) {
            return ch == 0 ? ramp(x, y) : 0.25 * white;
        });
        DQImagePtr dest = MakeImage(width, height, 4, type, Fill(7));
        DQImagePtr weight = Mask(width, height);
        DQImagePtr flow = MakeFlow(width, height, [&](int x, int y, float& u, float& v) {
            u = -0.5f * (static_cast<float>(x) - cx);
            v = -0.5f * (static_cast<float>(y) - cy);
        });
        ASSERT_EQ(Warp(dest.get(), source.get(), flow.get(), weight.get(), 1.0f), 1);
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x) {
                const bool inside = std::fabs(x - cx) <= 10.0f && std::fabs(y - cy) <= 7.5f;
                ASSERT_EQ(ElementAt(*weight, x, y, 0), inside ? 255 : 0) << x << "," << y;
                if (!inside) {
                    ASSERT_EQ(ElementAt(*dest, x, y, 3), 0.0);
                    continue;
                }
                const double sx = cx + 2.0 * (x - cx), sy = cy + 2.0 * (y - cy);
                ASSERT_NEAR(ElementAt(*dest, x, y, 0), ramp(sx, sy), 0.01 * white) << x << "," << y;
                ASSERT_NEAR(ElementAt(*dest, x, y, 1), ElementAt(*source, 0, 0, 1), 0.002 * white);
            }
    }
}

// A pixel can be hit more often than its count can say: the count stops at 255, and from then on
// each colour enters with a weight of 1/256.
TEST(WarpForward, HitCountSaturates) {
    const warp_detail::HitAverage average;
    warp_detail::Float4 value = {100.0f, 0.0f, 0.0f, 0.0f};
    uint8_t count = 1;
    for (int hit = 2; hit <= 255; ++hit)
        value = average.Mix(value, warp_detail::Float4{100.0f, 0.0f, 0.0f, 0.0f}, count);
    EXPECT_EQ(count, 255);
    EXPECT_NEAR(value[0], 100.0f, 1e-3);
    const struct {
        float colour;
        float expected;
    } hits[] = {{356.0f, 101.0f}, {101.0f, 101.0f}, {-155.0f, 100.0f}};
    for (const auto& h : hits) {
        value = average.Mix(value, warp_detail::Float4{h.colour, 0.0f, 0.0f, 0.0f}, count);
        EXPECT_EQ(count, 255);
        EXPECT_NEAR(value[0], h.expected, 1e-3);
    }
    // Below saturation it is the running mean.
    uint8_t fresh = 1;
    warp_detail::Float4 mean = {10.0f, 0.0f, 0.0f, 0.0f};
    mean = average.Mix(mean, warp_detail::Float4{20.0f, 0.0f, 0.0f, 0.0f}, fresh);
    mean = average.Mix(mean, warp_detail::Float4{60.0f, 0.0f, 0.0f, 0.0f}, fresh);
    EXPECT_EQ(fresh, 3);
    EXPECT_FLOAT_EQ(mean[0], 30.0f);
}

// Without a weight image the fully transparent margins are not meshed; that must not change
// what lands on the image, which is the same as with the weight, where the whole image is meshed.
TEST(WarpForward, TransparentMarginsChangeNothing) {
    for (int type : kTypes) {
        SCOPED_TRACE(Describe(type, 4));
        const PixelFunction pattern = Pattern(type);
        DQImagePtr source = MakeImage(30, 26, 4, type, [&](int x, int y, int c) {
            return x >= 9 && x < 19 && y >= 7 && y < 15 ? pattern(x, y, c) + 1.0 : 0.0;
        });
        DQImagePtr flow = MakeFlow(15, 13, [](int x, int y, float& u, float& v) {
            u = 1.25f + 0.1f * x;
            v = -0.75f + 0.05f * y;
        });
        DQImagePtr meshed = MakeImage(30, 26, 4, type, Fill(7));
        DQImagePtr boxed = MakeImage(30, 26, 4, type, Fill(7));
        DQImagePtr weight = Mask(30, 26);
        ASSERT_EQ(Warp(meshed.get(), source.get(), flow.get(), weight.get(), 1.0f), 1);
        ASSERT_EQ(Warp(boxed.get(), source.get(), flow.get(), nullptr, 1.0f), 1);
        EXPECT_TRUE(SameBytes(*meshed, *boxed));

        DQImagePtr clear = MakeImage(30, 26, 4, type, Fill(0));
        DQImagePtr dest = MakeImage(30, 26, 4, type, Fill(7));
        ASSERT_EQ(Warp(dest.get(), clear.get(), flow.get(), nullptr, 1.0f), 1);
        EXPECT_TRUE(SameBytes(*dest, *clear));
    }
}

TEST(WarpForward, BottomUpStorageGivesTheSameRows) {
    for (int type : kTypes) {
        SCOPED_TRACE(Describe(type, 4));
        DQImagePtr source = Opaque(26, 20, type, Pattern(type));
        DQImagePtr flipped = MakeImage(26, 20, 4, type, Pattern(type), 1);
        for (int y = 0; y < 20; ++y)
            for (int x = 0; x < 26; ++x)
                SetElement(*flipped, x, y, 3, ElementAt(*source, x, y, 3));
        DQImagePtr flow = MakeFlow(13, 10, [](int x, int y, float& u, float& v) {
            u = 0.3f * x - 2.0f;
            v = 1.5f - 0.2f * y;
        });
        DQImagePtr dest = MakeImage(26, 20, 4, type, Fill(0));
        DQImagePtr destFlipped = MakeImage(26, 20, 4, type, Fill(0), 1);
        DQImagePtr weight = Mask(26, 20);
        DQImagePtr weightFlipped = MakeImage(26, 20, 1, DQ_UCHAR, Fill(0), 1);
        ASSERT_EQ(Warp(dest.get(), source.get(), flow.get(), weight.get(), 0.8f), 1);
        ASSERT_EQ(Warp(destFlipped.get(), flipped.get(), flow.get(), weightFlipped.get(), 0.8f), 1);
        EXPECT_EQ(MaxDifference(*dest, *destFlipped), 0.0);
        EXPECT_EQ(MaxDifference(*weight, *weightFlipped), 0.0);
    }
}

// Triangles of one band of mesh rows land on rows of other bands; the result must not depend on
// how many workers share the image. The flow swirls, zooms and folds so that vectors cross band
// borders by many rows.
TEST(WarpForward, SameResultForAnyWorkerCount) {
    const int width = 160, height = 150;
    DQImagePtr flow = MakeFlow(80, 75, [](int x, int y, float& u, float& v) {
        u = 6.0f * std::sin(0.09f * y) + 0.15f * (x - 40);
        v = 11.0f * std::cos(0.07f * x + 0.05f * y) - 0.2f * (y - 37);
    });
    for (int type : kTypes)
        for (bool withWeight : {true, false}) {
            SCOPED_TRACE(Describe(type, 4) + (withWeight ? " with weight" : " without weight"));
            const PixelFunction pattern = Pattern(type);
            DQImagePtr source = MakeImage(width, height, 4, type, [&](int x, int y, int c) {
                return (x - 80) * (x - 80) + (y - 75) * (y - 75) < 60 * 60 ? pattern(x, y, c) : 0.0;
            });
            DQImagePtr first, firstWeight;
            ForWorkerCounts(
                [&](int workers) {
                    DQImagePtr dest = MakeImage(width, height, 4, type, Fill(3));
                    DQImagePtr weight = Mask(width, height);
                    ASSERT_EQ(Warp(dest.get(), source.get(), flow.get(),
                                   withWeight ? weight.get() : nullptr, 1.0f),
                              1);
                    if (!first) {
                        first = std::move(dest);
                        firstWeight = std::move(weight);
                        return;
                    }
                    EXPECT_TRUE(SameBytes(*dest, *first)) << workers << " workers";
                    EXPECT_TRUE(SameBytes(*weight, *firstWeight)) << workers << " workers";
                },
                {1, 2, 8});
        }
}

TEST(WarpForward, InterruptionStopsTheWarp) {
    DQImagePtr source = Opaque(40, 40, DQ_UCHAR, Pattern(DQ_UCHAR));
    DQImagePtr dest = MakeImage(40, 40, 4, DQ_UCHAR, Fill(0));
    DQImagePtr flow = ConstantFlow(20, 20, 1.0f, 1.0f);
    ZUIdleAndProgressClass progress;
    progress.SetInterrupted(true);
    EXPECT_EQ(ThrownBy([&] {
                  DQWarpForward(dest.get(), source.get(), flow.get(), &progress, nullptr, 1.0f);
              }),
              kDQErrInterrupted);
}

namespace {
// An allocator that refuses every block larger than `limit` bytes.
struct LimitedHeap {
    size_t limit;
    int blocks = 0;
    static void* Allocate(void* context, size_t size) {
        auto* heap = static_cast<LimitedHeap*>(context);
        if (size > heap->limit) return nullptr;
        ++heap->blocks;
        return std::malloc(size);
    }
    static void Release(void* context, void* pointer) {
        if (pointer) --static_cast<LimitedHeap*>(context)->blocks;
        std::free(pointer);
    }
};

class HeapScope {
public:
    explicit HeapScope(LimitedHeap& heap) {
        ZUMemSetAllocator(&heap, &LimitedHeap::Allocate, &LimitedHeap::Release);
    }
    ~HeapScope() { ZUMemSetAllocator(nullptr, nullptr, nullptr); }
};
} // namespace

// When no block holds the whole image, rows are spread over smaller blocks: one row less per
// attempt, then the rest.
TEST(DQImage2, SplitsStorageWhenOneBlockIsRefused) {
    const int width = 16, height = 10, rowBytes = width * 4;
    const struct {
        const char* name;
        size_t limit;
        int expectedBlocks;
    } cases[] = {{"whole", 1 << 20, 1},
                 {"all but one row", static_cast<size_t>(rowBytes * (height - 1)), 2},
                 {"three rows", static_cast<size_t>(rowBytes * 3), 4}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LimitedHeap heap{c.limit};
        {
            HeapScope scope(heap);
            DQImage2 image(1, width, height, 4, DQ_UCHAR, 0);
            ASSERT_EQ(image.errorCode, 0);
            EXPECT_EQ(image.ownsData, 1);
            int blocks = 0;
            for (int r = 0; r < height; ++r)
                blocks += image.chunks[r] != nullptr;
            EXPECT_EQ(blocks, c.expectedBlocks);
            for (int y = 0; y < height; ++y) {
                ASSERT_NE(image.rowPointers[y], nullptr);
                std::memset(image.RowAddress(y), y + 1, rowBytes);
            }
            for (int y = 0; y < height; ++y)
                for (int i = 0; i < rowBytes; ++i)
                    ASSERT_EQ(image.RowAddress(y)[i], y + 1) << "row " << y;
        }
        EXPECT_EQ(heap.blocks, 0);
    }
}

TEST(DQImage2, RefusedStorageIsReported) {
    LimitedHeap heap{100}; // the pointer tables fit, not one row
    HeapScope scope(heap);
    {
        DQImage2 quiet(0, 64, 4, 4, DQ_UCHAR, 0);
        EXPECT_EQ(quiet.errorCode, kDQErrMemory);
        EXPECT_EQ(quiet.ownsData, 0);
    }
    EXPECT_EQ(ThrownBy([] { DQImage2 loud(1, 64, 4, 4, DQ_UCHAR, 0); }), kDQErrMemory);
    EXPECT_EQ(heap.blocks, 0);
}

TEST(DQImage2, ForeignRowsAndMasks) {
    uint8_t pixels[4][6] = {
        {0, 1, 0, 9, 0, 0}, {3, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 200}, {0, 0, 0, 0, 0, 0}};
    for (int bottomUp : {0, 1}) {
        SCOPED_TRACE(bottomUp ? "bottom up" : "top down");
        DQImage2 view(1, pixels, 5, 4, 6, 1, DQ_UCHAR, bottomUp);
        for (int y = 0; y < 4; ++y)
            EXPECT_EQ(view.RowAddress(y), pixels[bottomUp ? 3 - y : y]);
    }
    DQImage2 view(1, pixels, 5, 4, 6, 1, DQ_UCHAR, 0);
    DQHardenMask(&view);
    const uint8_t expected[4][6] = {
        {0, 255, 0, 255, 0, 0}, {255, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 200}, {0, 0, 0, 0, 0, 0}};
    // Only the first `width` bytes of each row are pixels: the sixth stays as it was.
    EXPECT_EQ(std::memcmp(pixels, expected, sizeof pixels), 0);
    view.Clear();
    EXPECT_EQ(pixels[0][1], 0);
    EXPECT_EQ(pixels[2][5], 200);
    DQImage2 empty(1, nullptr, 5, 4, 6, 1, DQ_UCHAR, 0);
    EXPECT_EQ(empty.width, 0);
    EXPECT_EQ(empty.rowPointers, nullptr);
}

namespace {
// Records, per pixel, every colour written to it, in order.
struct RecordingWriter {
    int width;
    std::vector<std::vector<float>>* writes;
    void operator()(int y, int x0, int x1, warp_detail::Float4 c, warp_detail::Float4 step) const {
        for (int x = x0; x <= x1; ++x, c += step)
            for (int ch = 0; ch < 4; ++ch)
                (*writes)[static_cast<size_t>(y * width + x)].push_back(c[ch]);
    }
};

// A mesh of `columns` x `rows` vertices with random colours, its corners placed by `place`.
template <class Place>
std::vector<warp_detail::MeshVertex> RandomMesh(int columns, int rows, uint32_t seed,
                                                Place&& place) {
    auto next = [&seed] {
        seed = seed * 1664525u + 1013904223u;
        return static_cast<float>(seed >> 8) / 16777216.0f;
    };
    std::vector<warp_detail::MeshVertex> mesh(static_cast<size_t>(columns * rows));
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x) {
            warp_detail::MeshVertex& v = mesh[static_cast<size_t>(y * columns + x)];
            place(x, y, next, v.x, v.y);
            v.c = warp_detail::Float4{next(), 100.0f * next(), static_cast<float>(x),
                                      static_cast<float>(y)};
        }
    return mesh;
}

} // namespace

// The walk over a mesh takes shortcuts through the common shapes of cells, several cells at a
// time; what it writes, and in which order per pixel, must be what drawing the triangles one by
// one writes. The meshes are smooth, as a warp mostly is (cells with no line, one or two lines per
// triangle and more where it stretches, and rows that end inside a block of cells), and rough:
// corners on whole numbers (flat edges, corners on scanlines), jitter, folds, corners far out and
// outside the image. The drawing is limited to all rows and to bands of them.
TEST(WarpForward, MeshWalkDrawsWhatTheTrianglesDraw) {
    using namespace warp_detail;
    const int width = 26, height = 21;
    auto rough = [](int x, int y, auto& next, float& px, float& py) {
        const float kind = next();
        float dx = 0.0f, dy = 0.0f;
        if (kind < 0.3f) { // on whole numbers, often sharing a row with a neighbour
            dx = std::floor(next() * 3.0f) - 1.0f;
            dy = std::floor(next() * 3.0f) - 1.0f;
        } else if (kind < 0.85f) {
            dx = 3.0f * next() - 1.5f;
            dy = 3.0f * next() - 1.5f;
        } else if (kind < 0.97f) { // a fold
            dx = -4.0f * next();
            dy = -3.0f * next();
        } else {
            dy = 30.0f * (next() - 0.5f);
        }
        px = static_cast<float>(x) + dx;
        py = static_cast<float>(y) + dy;
    };
    // Gently bent, moved by fractions of a pixel, stretched down the image and squeezed across it;
    // and shrunk, hanging over the left edge.
    auto smooth = [](int x, int y, auto& next, float& px, float& py) {
        px = 0.8f * static_cast<float>(x) + 0.35f * std::sin(0.7f * y + 0.3f * x) + 0.1f * next();
        py = 1.0f + (0.6f + 0.05f * static_cast<float>(x)) * static_cast<float>(y) +
             0.3f * std::cos(0.5f * x) + 0.02f * next();
    };
    auto shrunk = [](int x, int y, auto& next, float& px, float& py) {
        px = -2.6f + 0.55f * static_cast<float>(x) + 0.05f * next();
        py = 2.5f + 0.45f * static_cast<float>(y) + 0.15f * std::sin(1.3f * x) + 0.05f * next();
    };
    // Two or three lines to each triangle.
    auto stretched = [](int x, int y, auto& next, float& px, float& py) {
        px = 1.0f + 0.9f * static_cast<float>(x) + 0.01f * next();
        py = 0.3f + 2.5f * static_cast<float>(y) + 0.01f * next();
    };
    // The last row of vertices lies exactly on the last row of the image, 20, so that the flat
    // lower edges there, wide enough to hold pixels, get spans of their own.
    auto onLastRow = [](int x, int y, auto& next, float& px, float& py) {
        px = 0.3f + 2.1f * static_cast<float>(x) + 0.01f * next();
        py = 20.0f - 0.875f * static_cast<float>(15 - y);
    };
    // Few cells, each spread over many lines.
    auto spread = [](int x, int y, auto& next, float& px, float& py) {
        px = 2.0f + 7.0f * static_cast<float>(x) + next();
        py = 0.5f + 6.0f * static_cast<float>(y) + next();
    };
    struct Case {
        const char* name;
        int columns, rows;
        std::vector<MeshVertex> mesh;
    };
    Case cases[] = {{"rough", 23, 19, RandomMesh(23, 19, 12345, rough)},
                    {"smooth", 30, 24, RandomMesh(30, 24, 777, smooth)},
                    {"shrunk", 41, 30, RandomMesh(41, 30, 99, shrunk)},
                    {"stretched", 25, 9, RandomMesh(25, 9, 31, stretched)},
                    {"on the last row", 14, 16, RandomMesh(14, 16, 3, onLastRow)},
                    {"spread", 3, 4, RandomMesh(3, 4, 5, spread)}};
    // One row of corners far away, to take the general way for its cells.
    cases[0].mesh[static_cast<size_t>(7 * cases[0].columns + 4)].x = 3e15f;
    const RasterClip clips[] = {{width - 1, height - 1, 0, height - 1},
                                {width - 1, height - 1, 6, 11},
                                {width - 1, height - 1, 15, height - 1}};
    for (const Case& mesh : cases)
        for (const RasterClip& clip : clips) {
            SCOPED_TRACE(::testing::Message()
                         << mesh.name << ", rows " << clip.firstOwned << ".." << clip.lastOwned);
            const int columns = mesh.columns, rows = mesh.rows;
            auto at = [&](int cx, int cy) {
                return mesh.mesh[static_cast<size_t>(cy * columns + cx)];
            };
            std::vector<std::vector<float>> walked(static_cast<size_t>(width * height));
            std::vector<std::vector<float>> oneByOne(walked.size());
            RecordingWriter walkWriter{width, &walked}, triangleWriter{width, &oneByOne};
            std::vector<uint8_t> block(MeshSpace::Bytes(columns) + Carver::kAlign);
            const auto aligned = (reinterpret_cast<uintptr_t>(block.data()) + Carver::kAlign - 1) /
                                 Carver::kAlign * Carver::kAlign;
            const MeshSpace space(reinterpret_cast<uint8_t*>(aligned), columns);
            auto build = [&](int y, MeshVertex* vertices) {
                for (int x = 0; x < columns; ++x)
                    vertices[x] = at(x, y);
            };
            DrawMesh(MeshWalk{0, rows - 1, 0, columns - 1}, clip, nullptr, nullptr, space, build,
                     walkWriter, [](int) {});
            for (int y = 0; y + 1 < rows; ++y)
                for (int x = 0; x + 1 < columns; ++x) {
                    DrawTriangle(at(x, y), at(x + 1, y), at(x, y + 1), clip, triangleWriter);
                    DrawTriangle(at(x + 1, y + 1), at(x + 1, y), at(x, y + 1), clip,
                                 triangleWriter);
                }
            size_t written = 0;
            for (size_t i = 0; i < walked.size(); ++i) {
                ASSERT_EQ(walked[i], oneByOne[i]) << "pixel " << i % width << "," << i / width;
                written += walked[i].size();
            }
            EXPECT_GT(written, 0u);
        }
}
