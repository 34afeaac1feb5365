#include "TestSupport.h"
#include "image/BlockCache.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>
#include <vector>

namespace {

constexpr size_t kMiB = size_t(1) << 20;

// Each test starts from an empty cache and the default heap.
class BlockCacheTest : public ::testing::Test {
protected:
    void SetUp() override {
        ZUMemSetAllocator(nullptr, nullptr, nullptr);
        blockcache::Drain();
    }
    void TearDown() override { blockcache::Drain(); }
};

} // namespace

TEST_F(BlockCacheTest, LargeBlocksComeBackForRequestsOfAboutTheirSize) {
    struct Case {
        const char* name;
        size_t given, asked;
        bool reused, kept = true;
    };
    const Case cases[] = {
        {"same size", 8 * kMiB, 8 * kMiB, true},
        {"two thirds", 9 * kMiB, 6 * kMiB, true},
        {"less than two thirds", 8 * kMiB, 5 * kMiB, false},
        {"larger", 8 * kMiB, 8 * kMiB + 1, false},
        // The system heap may hand a small block out again, so only the cache is checked.
        {"small blocks are not kept", blockcache::kLeastBlock - 1, 4096, false, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        void* first = ZUMemAllocate(c.given);
        ZUMemRelease(first);
        EXPECT_EQ(blockcache::CachedBytes(), c.kept ? c.given : 0u);
        void* second = ZUMemAllocate(c.asked);
        EXPECT_EQ(c.kept && second == first, c.kept && c.reused);
        // The whole request must be writable, whichever block served it.
        std::memset(second, 0x5a, c.asked);
        ZUMemRelease(second);
        blockcache::Drain();
    }
}

TEST_F(BlockCacheTest, TheSmallestFittingBlockServesARequest) {
    void* big = ZUMemAllocate(12 * kMiB);
    void* snug = ZUMemAllocate(10 * kMiB);
    ZUMemRelease(big);
    ZUMemRelease(snug);
    void* taken = ZUMemAllocate(9 * kMiB);
    EXPECT_EQ(taken, snug);
    EXPECT_EQ(blockcache::CachedBytes(), 12 * kMiB);
    ZUMemRelease(taken);
}

TEST_F(BlockCacheTest, TheCacheStaysWithinItsLimitsAndDropsTheOldestFirst) {
    // Blocks are not touched, so this costs address space only.
    const size_t size = 16 * kMiB;
    std::vector<void*> blocks;
    for (int i = 0; i < 40; ++i)
        blocks.push_back(ZUMemAllocate(size));
    for (void* block : blocks)
        ZUMemRelease(block);
    EXPECT_LE(blockcache::CachedBlocks(), blockcache::kMostBlocks);
    EXPECT_LE(blockcache::CachedBytes(), blockcache::kMostBytes);
    EXPECT_EQ(blockcache::CachedBytes(), size * size_t(blockcache::CachedBlocks()));
    // The last block given back waits; the first has gone back to the system.
    std::vector<void*> again;
    const int waiting = blockcache::CachedBlocks();
    for (int i = 0; i < waiting; ++i)
        again.push_back(ZUMemAllocate(size));
    EXPECT_EQ(blockcache::CachedBlocks(), 0);
    EXPECT_NE(std::find(again.begin(), again.end(), blocks.back()), again.end());
    EXPECT_EQ(std::find(again.begin(), again.end(), blocks.front()), again.end());
    for (void* block : again)
        ZUMemRelease(block);
}

TEST_F(BlockCacheTest, AnotherAllocatorEmptiesTheCacheAndIsUsedAlone) {
    struct Counting {
        int allocations = 0, releases = 0;
        static void* Allocate(void* context, size_t size) {
            ++static_cast<Counting*>(context)->allocations;
            return std::malloc(size);
        }
        static void Release(void* context, void* pointer) {
            ++static_cast<Counting*>(context)->releases;
            std::free(pointer);
        }
    } heap;
    void* kept = ZUMemAllocate(4 * kMiB);
    void* outstanding = ZUMemAllocate(4 * kMiB);
    ZUMemRelease(kept);
    ASSERT_EQ(blockcache::CachedBlocks(), 1);

    ZUMemSetAllocator(&heap, Counting::Allocate, Counting::Release);
    EXPECT_EQ(blockcache::CachedBlocks(), 0);
    void* own = ZUMemAllocate(4 * kMiB);
    ZUMemRelease(own);
    // A block from before the switch goes to the allocator in place now.
    ZUMemRelease(outstanding);
    EXPECT_EQ(heap.allocations, 1);
    EXPECT_EQ(heap.releases, 2);
    EXPECT_EQ(blockcache::CachedBlocks(), 0);
    ZUMemSetAllocator(nullptr, nullptr, nullptr);
}

TEST_F(BlockCacheTest, ThreadsNeverShareABlock) {
    // Each thread fills its block with its own byte and checks it before giving it back: a block
    // handed to two threads at once shows the other's bytes.
    constexpr int kRounds = 200;
    std::atomic<int> faults{0};
    auto work = [&](uint8_t mark) {
        for (int round = 0; round < kRounds; ++round) {
            const size_t size = (2 + round % 3) * kMiB;
            auto* block = static_cast<uint8_t*>(ZUMemAllocate(size));
            std::memset(block, mark, size);
            std::this_thread::yield();
            for (size_t i = 0; i < size; i += 4096)
                if (block[i] != mark) ++faults;
            ZUMemRelease(block);
        }
    };
    std::thread other(work, uint8_t(0x11));
    work(0x22);
    other.join();
    EXPECT_EQ(faults.load(), 0);
}

TEST_F(BlockCacheTest, ReleaseFreesTheCacheAndItsBlocks) {
    void* kept = ZUMemAllocate(4 * kMiB);
    void* held = ZUMemAllocate(2 * kMiB); // still handed out when the cache goes
    ZUMemRelease(kept);
    ASSERT_TRUE(blockcache::Exists());
    ASSERT_EQ(blockcache::CachedBytes(), 4 * kMiB);

    blockcache::Release();
    EXPECT_FALSE(blockcache::Exists());
    EXPECT_EQ(blockcache::CachedBytes(), 0u);
    // A block from before is a plain malloc block now: freed, not kept, and no cache made for it.
    ZUMemRelease(held);
    EXPECT_FALSE(blockcache::Exists()) << "giving back must not make a cache again";
    EXPECT_EQ(blockcache::CachedBytes(), 0u);
    ZUMemRelease(ZUMemAllocate(4096));
    EXPECT_FALSE(blockcache::Exists()) << "small blocks never need the cache";

    // The next large request starts a new cache, which works as the first did.
    void* again = ZUMemAllocate(4 * kMiB);
    EXPECT_TRUE(blockcache::Exists());
    ZUMemRelease(again);
    EXPECT_EQ(blockcache::CachedBytes(), 4 * kMiB);
    blockcache::Release();
    blockcache::Release(); // twice is harmless
    EXPECT_FALSE(blockcache::Exists());
}
