// The stand-in host's workers behind sparkMpFork: every worker runs once per fork, whatever the
// waiting policy: spinning, sleeping at once, or waking from the kernel after a spin.
#include "TestSupport.h"

#include "host/Spark.h"

#include <atomic>

namespace {

using quelmor::test::WorkerScope;

void Count(void* counter) {
    static_cast<std::atomic<int>*>(counter)->fetch_add(1, std::memory_order_relaxed);
}

// Restores the default spin when a case ends.
struct SpinScope {
    explicit SpinScope(int microseconds) { SparkHostSetWorkerSpin(microseconds); }
    ~SpinScope() { SparkHostSetWorkerSpin(kSparkHostDefaultSpinMicroseconds); }
};

TEST(WorkerPool, EveryWorkerRunsOncePerForkWhateverTheSpin) {
    // Back-to-back forks: with no spin every wake-up goes through the kernel, with a long one
    // none does; a lost wake-up would hang, a doubled one would count twice.
    const struct {
        int workers;
        int spin;
    } cases[] = {{4, 0}, {4, kSparkHostDefaultSpinMicroseconds}, {3, 2000}, {127, 0}};
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

} // namespace
