#include "TestSupport.h"

#include <atomic>
#include <thread>
#include <vector>

using quelmor::test::WorkerScope;

TEST(ParallelLoop, BandCountsAndBands) {
    struct Case {
        int rows, workers, threads;
        std::vector<int> firstRows; // each band ends where the next starts, the last at rows - 1
    };
    const Case cases[] = {
        {1000, 8, 8, {0, 125, 250, 375, 500, 625, 750, 875}},
        {100, 8, 6, {0, 16, 32, 48, 64, 80}},
        {20, 4, 1, {0}},
        {16, 4, 1, {0}},
        {0, 4, 0, {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(::testing::Message() << c.rows << " rows, " << c.workers << " workers");
        ZUMPSetNumThreads(c.workers);
        const int threads = ZUMPNumThreadsForRows(c.rows);
        EXPECT_EQ(threads, c.threads);
        for (int i = 0; i < threads; ++i) {
            int first = -1, last = -1;
            ZUMPRowsForThread(threads, i, c.rows, &first, &last);
            EXPECT_EQ(first, c.firstRows[i]);
            EXPECT_EQ(last, i + 1 < threads ? c.firstRows[i + 1] - 1 : c.rows - 1);
        }
    }
    ZUMPSetNumThreads(1);
}

TEST(ParallelLoop, UnusableWorkerCountsBecomeOne) {
    for (int stored : {0, -3}) {
        ZUMPSetNumThreads(stored);
        EXPECT_EQ(ZUMPGetNumThreads(), stored);
        EXPECT_EQ(ZUMPGetUsableThreads(), 1);
        EXPECT_EQ(ZUMPGetNumThreads(), 1);
    }
}

TEST(ParallelLoop, EveryRowRunsOnceOnTheBandsWorker) {
    // Hosts may offer more workers than the loop's table of 64 holds (up to 127): at most 64
    // bands are used, each on a worker of its own, and the workers beyond have nothing to do.
    const struct {
        int workers;
        int threads; // 0: as many as suit the rows
        int expected;
    } cases[] = {{2, 0, 2},    {3, 0, 3},   {8, 0, 8},   {100, 0, 64},
                 {127, 0, 64}, {100, 8, 8}, {65, 64, 64}};
    for (const auto& c : cases) {
        const int workers = c.workers;
        WorkerScope scope(workers, 640, 480);
        const int rows = 1997;
        std::vector<std::atomic<int>> hits(rows), owner(rows);
        std::atomic<int> calls{0};
        const int threads = c.threads ? c.threads : ZUMPNumThreadsForRows(rows);
        ASSERT_EQ(threads, c.expected) << workers << " workers";
        std::vector<std::thread::id> ids(threads);
        ZUMPForRows(threads, rows, [&](int worker, int first, int last) {
            ++calls;
            ids[worker] = std::this_thread::get_id();
            for (int y = first; y <= last; ++y) {
                ++hits[y];
                owner[y] = worker;
            }
        });
        EXPECT_EQ(calls.load(), threads) << workers << " workers";
        for (int y = 0; y < rows; ++y) {
            ASSERT_EQ(hits[y].load(), 1) << "row " << y << " with " << workers << " workers";
            int first = 0, last = 0;
            ZUMPRowsForThread(threads, owner[y], rows, &first, &last);
            ASSERT_TRUE(y >= first && y <= last) << "row " << y << " ran on the wrong worker";
        }
        for (int i = 0; i < threads; ++i)
            for (int j = i + 1; j < threads; ++j)
                EXPECT_NE(ids[i], ids[j]) << "bands " << i << " and " << j << " shared a thread";
    }
}

TEST(ParallelLoop, AnErrorInABandArrivesOnTheCaller) {
    for (int workers : {1, 4}) {
        WorkerScope scope(workers, 1920, 1080);
        for (DQErr code : {kDQErrMemory, kDQErrInterrupted}) {
            try {
                ZUMPForRows(1080, [&](int worker, int, int) {
                    if (worker == workers - 1) DQThrow(code);
                });
                ADD_FAILURE() << "no error arrived for code " << code;
            } catch (DQErr caught) {
                EXPECT_EQ(caught, code) << workers << " workers";
            }
        }
    }
}

std::atomic<int> gWeightedSum;

int WeightedRows(int, int, int first, int last, va_list* args, ...) {
    int* weights = va_arg(*args, int*);
    const int scale = va_arg(*args, int);
    for (int y = first; y <= last; ++y)
        gWeightedSum += weights[y] * scale;
    return 0;
}

TEST(ParallelLoop, RawLoopPassesArgumentsToEveryBand) {
    WorkerScope scope(3, 300, 300);
    gWeightedSum = 0;
    std::vector<int> weights(300);
    for (int i = 0; i < 300; ++i)
        weights[i] = i;
    ZUMPParallelFor(ZUMPNumThreadsForRows(300), 300, WeightedRows, weights.data(), 2);
    EXPECT_EQ(gWeightedSum.load(), 2 * (299 * 300 / 2));
}

TEST(ParallelLoop, TinyFrameRunsOnTheCaller) {
    // Fewer frame pixels than workers: the slices cannot tell workers apart.
    WorkerScope scope(4, 1, 2);
    std::atomic<int> rows{0};
    ZUMPForRows(4, 64, [&](int, int first, int last) { rows += last - first + 1; });
    EXPECT_EQ(rows.load(), 64);
}

TEST(MutexPool, LockSpinsAndReleases) {
    ZUMPMutexRecord** pool = ZUMPCreateMutexArray(8);
    ASSERT_NE(pool, nullptr);
    WorkerScope scope(4, 1920, 1080);
    int counters[8] = {};
    ZUMPForRows(4, 4000, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            for (int k = 0; k < 8; ++k) {
                ZUMPMutexLock(pool[k]);
                ++counters[k];
                ZUMPMutexUnlock(pool[k]);
            }
    });
    for (int k = 0; k < 8; ++k)
        EXPECT_EQ(counters[k], 4000);
    ZUMPDestroyMutexArray(pool);
    ZUMPDestroyMutexArray(nullptr);
}
