// The stand-in host's workers behind sparkMpFork: every worker runs once per fork, whatever the
// waiting policy, and a worker with nothing to do sleeps instead of holding a core.
#include "TestSupport.h"

#include "host/Spark.h"

#include <atomic>
#include <chrono>
#include <ctime>
#include <thread>

namespace {

using quelmor::test::WorkerScope;

double ProcessCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

void Count(void* counter) {
    static_cast<std::atomic<int>*>(counter)->fetch_add(1, std::memory_order_relaxed);
}

// Restores the default spin when a case ends.
struct SpinScope {
    explicit SpinScope(int rounds) { SparkHostSetWorkerSpin(rounds); }
    ~SpinScope() { SparkHostSetWorkerSpin(kSparkHostDefaultSpinRounds); }
};

TEST(WorkerPool, EveryWorkerRunsOncePerForkWhateverTheSpin) {
    // Back-to-back forks: with no spin every wake-up goes through the kernel, with a long one
    // none does; a lost wake-up would hang, a doubled one would count twice.
    const struct {
        int workers;
        int spin;
    } cases[] = {{4, 0}, {4, kSparkHostDefaultSpinRounds}, {3, 4000}, {127, 0}};
    for (const auto& c : cases) {
        WorkerScope scope(c.workers, 640, 480);
        SpinScope spin(c.spin);
        const int forks = c.workers > 8 ? 50 : 2000;
        std::atomic<int> runs{0};
        for (int i = 0; i < forks; ++i)
            sparkMpFork(&Count, 1, &runs);
        EXPECT_EQ(runs.load(), forks * c.workers) << c.workers << " workers, spin " << c.spin;
    }
}

TEST(WorkerPool, IdleWorkersSleepBetweenForks) {
    // Forks separated by idle gaps, as between the serial steps of a frame: the processor time
    // used during the gaps is what the idle workers burn while waiting for the next fork.
    constexpr int kWorkers = 4;
    constexpr int kGaps = 20;
    constexpr auto kGap = std::chrono::milliseconds(2);
    WorkerScope scope(kWorkers, 640, 480);
    std::atomic<int> runs{0};
    double idleCpu = 0.0;
    for (int i = 0; i < kGaps; ++i) {
        sparkMpFork(&Count, 1, &runs);
        const double before = ProcessCpuSeconds();
        std::this_thread::sleep_for(kGap);
        idleCpu += ProcessCpuSeconds() - before;
    }
    ASSERT_EQ(runs.load(), kGaps * kWorkers);
    // Spinning through the gaps would cost up to the idle workers' whole share of them.
    const double gapsOfIdleWorkers =
        (kWorkers - 1) * kGaps * std::chrono::duration<double>(kGap).count();
    EXPECT_LT(idleCpu, 0.1 * gapsOfIdleWorkers)
        << "idle workers used " << 1000.0 * idleCpu << " ms of processor time in "
        << 1000.0 * gapsOfIdleWorkers << " ms of idle gaps";
}

} // namespace
