#pragma once
// Test fixtures shared by the suites: worker count and frame size for the row loop, and small
// image helpers.
#include "image/Image.h"
#include "sparkhost/DirectWorkers.h"

#include <gtest/gtest.h>

namespace quelmor::test {

// Sets the worker count and the frame size that the row loop slices, on both sides of the fork
// (the library's Width/Height and the stand-in host's pool), and restores one worker afterwards.
class WorkerScope {
public:
    WorkerScope(int workers, int width, int height) { Set(workers, width, height); }
    ~WorkerScope() { Set(1, 0, 0); }
    WorkerScope(const WorkerScope&) = delete;
    WorkerScope& operator=(const WorkerScope&) = delete;

    static void Set(int workers, int width, int height) {
        SparkHostUseWorkersDirect(workers, width, height);
    }
};

// Fixture for suites whose cases run with several workers over a frame large enough for them.
class ParallelTest : public ::testing::Test {
protected:
    void SetUp() override { WorkerScope::Set(4, 1920, 1080); }
    void TearDown() override { WorkerScope::Set(1, 0, 0); }
};

// Runs `body` once with one worker and once with several, for results that must not depend on
// how rows are split into bands.
template <class Body>
void ForWorkerCounts(Body&& body, std::initializer_list<int> counts = {1, 2, 3, 8}) {
    for (int workers : counts) {
        WorkerScope scope(workers, 1920, 1080);
        SCOPED_TRACE(::testing::Message() << "workers " << workers);
        body(workers);
    }
}

} // namespace quelmor::test
