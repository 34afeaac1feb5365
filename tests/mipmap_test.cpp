#include "TestSupport.h"
#include "WarpTestImages.h"
#include "warp/Warp.h"

#include <cmath>
#include <cstdlib>
#include <vector>

using namespace quelmor::test;

TEST(MipMap, LevelSizes) {
    const struct {
        const char* name;
        int width, height, gaussian;
        std::vector<std::pair<int, int>> sizes;
    } cases[] = {
        {"640x480",
         640,
         480,
         0,
         {{640, 480}, {320, 240}, {160, 120}, {80, 60}, {40, 30}, {20, 15}, {10, 7}, {5, 3}}},
        {"thin, box", 100, 9, 0, {{100, 9}, {50, 4}, {25, 2}}},
        {"thin, gaussian", 100, 9, 1, {{100, 9}, {50, 4}}},
        {"one pixel", 1, 1, 0, {{1, 1}}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(c.width, c.height, 1, DQ_UCHAR, Pattern(DQ_UCHAR));
        DQMipMap mip(source.get(), 1, 1, c.gaussian);
        ASSERT_EQ(mip.errorCode, 0);
        ASSERT_EQ(mip.levelCount, static_cast<int>(c.sizes.size()));
        for (int i = 0; i < mip.levelCount; ++i) {
            EXPECT_EQ(mip.levels[i]->width, c.sizes[i].first) << "level " << i;
            EXPECT_EQ(mip.levels[i]->height, c.sizes[i].second) << "level " << i;
        }
    }
}

TEST(MipMap, LevelZeroSharedOrCopied) {
    const struct {
        const char* name;
        int width, height, share, gaussian;
        bool shared;
        int mapWidth;
    } cases[] = {{"shared", 16, 12, 1, 0, true, 16},
                 {"copied", 16, 12, 0, 0, false, 16},
                 {"too small to share", 1, 1, 1, 0, false, 2},
                 {"too small for the gaussian", 2, 8, 1, 1, false, 3}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr source = MakeImage(c.width, c.height, 3, DQ_FLOAT, Pattern(DQ_FLOAT));
        DQMipMap mip(source.get(), 1, c.share, c.gaussian);
        EXPECT_EQ(mip.levels[0] == source.get(), c.shared);
        EXPECT_EQ(mip.ownsLevelZero, c.shared ? 0 : 1);
        EXPECT_EQ(mip.width, c.mapWidth);
        EXPECT_EQ(mip.levels[0]->width, c.width);
        EXPECT_EQ(MaxDifference(*mip.levels[0], *source), 0.0);
    }
}

TEST(MipMap, ViewsOfGivenImages) {
    DQImagePtr a = MakeImage(8, 8, 1, DQ_FLOAT, Pattern(DQ_FLOAT));
    DQImagePtr b = MakeImage(4, 4, 1, DQ_FLOAT, Pattern(DQ_FLOAT));
    DQImage* images[2] = {a.get(), b.get()};
    {
        DQMipMap views(2, images);
        ASSERT_EQ(views.levelCount, 2);
        EXPECT_NE(views.levels[1], b.get());
        EXPECT_EQ(views.levels[1]->data, b->data);
        EXPECT_EQ(views.width, 8);
        DQMipMap again(&views);
        EXPECT_EQ(again.levels[0]->data, a->data);
        DQMipMap borrowed(images, 2);
        EXPECT_EQ(borrowed.levels, images);
        EXPECT_EQ(borrowed.ownsLevels, 0);
    }
    // The pixels outlive the views.
    EXPECT_EQ(ElementAt(*b, 3, 3, 0), static_cast<float>(Pattern(DQ_FLOAT)(3, 3, 0)));
}

namespace {

// An allocator that fails every call from a given one on, and counts what is still held.
struct FailingHeap {
    int callsLeft = 0;
    int held = 0;
    static void* Allocate(void* context, size_t size) {
        auto* heap = static_cast<FailingHeap*>(context);
        if (heap->callsLeft-- <= 0) return nullptr;
        ++heap->held;
        return std::malloc(size);
    }
    static void Release(void* context, void* pointer) {
        if (!pointer) return;
        --static_cast<FailingHeap*>(context)->held;
        std::free(pointer);
    }
};

} // namespace

TEST(MipMap, FailedAllocationReleasesEverything) {
    DQImagePtr source = MakeImage(64, 64, 3, DQ_UCHAR, Pattern(DQ_UCHAR));
    for (int throwOnFailure : {0, 1})
        for (int allowed : {0, 1, 3, 6}) {
            SCOPED_TRACE(::testing::Message()
                         << "throw " << throwOnFailure << ", " << allowed << " allocations");
            FailingHeap heap{allowed, 0};
            ZUMemSetAllocator(&heap, &FailingHeap::Allocate, &FailingHeap::Release);
            const int thrown = ThrownBy([&] {
                DQMipMap mip(source.get(), throwOnFailure, 1, 0);
                EXPECT_EQ(mip.errorCode, kDQErrMemory);
                EXPECT_EQ(mip.levels, nullptr);
            });
            EXPECT_EQ(thrown, throwOnFailure ? kDQErrMemory : -1);
            ZUMemSetAllocator(nullptr, nullptr, nullptr);
            EXPECT_EQ(heap.held, 0);
        }
}

TEST(LirpedTable, LookupInterpolatesAndWraps) {
    const LirpedTable square(
        5, [](float x) { return x * x; }, nullptr, 0.0f, 4.0f);
    const CosTableInDegrees cosine;
    const SinTableInDegrees sine;
    const struct {
        const char* name;
        float value, expected, tolerance;
    } cases[] = {
        {"entry", square.Lookup(2.0f), 4.0f, 0.0f},
        {"between entries", square.Lookup(2.5f), 6.5f, 1e-6f},
        {"at last", square.Lookup(4.0f), 16.0f, 1e-5f},
        {"cos -90 is cos 270", cosine.Lookup(-90.0f) - cosine.Lookup(270.0f), 0.0f, 0.0f},
        {"cos 720", cosine.Lookup(720.0f), 1.0f, 1e-6f},
        {"sin -30", sine.Lookup(-30.0f), -0.5f, 1e-5f},
        {"spline at 1", CubicBSplineTable().Lookup(1.0f), 1.0f / 6.0f, 1e-6f},
    };
    for (const auto& c : cases)
        EXPECT_NEAR(c.value, c.expected, c.tolerance) << c.name;
}

TEST(LirpedTable, BorrowedValuesAndBadCounts) {
    std::vector<float> storage(3, -1.0f);
    {
        const LirpedTable table(
            3, [](float x) { return 2.0f * x; }, storage.data(), 1.0f, 3.0f);
        EXPECT_EQ(table.ownsValues, 0);
        EXPECT_EQ(table.values, storage.data());
    }
    EXPECT_EQ(storage[2], 6.0f) << "the caller's array is filled and left alive";
    EXPECT_EQ(ThrownBy([] {
                  LirpedTable bad(
                      1, [](float x) { return x; }, nullptr, 0.0f, 1.0f);
              }),
              kDQErrBadArgument)
        << "a table of one entry";
}
