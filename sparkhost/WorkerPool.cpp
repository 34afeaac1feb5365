#include "sparkhost/WorkerPool.h"

#include "host/Spark.h"

#include <atomic>
#include <cassert>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

namespace {
// A host's record offers its worker count as a signed byte.
constexpr int kMaxWorkers = 127;

thread_local int tWorkerIndex = 0;

inline void Pause() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#endif
}

// Spins until `done` answers true or `microseconds` have passed; answers whether it was done.
// The clock is read once every few pauses: reading it costs about as much as a pause.
template <class Done>
bool SpinUntil(Done done, int microseconds) {
    if (microseconds <= 0) return done();
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::microseconds(microseconds);
    for (;;) {
        for (int i = 0; i < 16; ++i) {
            if (done()) return true;
            Pause();
        }
        if (Clock::now() >= end) return done();
    }
}

class WorkerPool {
public:
    ~WorkerPool() { Resize(1); }

    void Resize(int count) {
        count = count < 1 ? 1 : (count > kMaxWorkers ? kMaxWorkers : count);
        if (count == count_) return;
        Stop();
        count_ = count;
        // Each thread starts from the generation current now, so a fork issued before the thread
        // gets going is not missed.
        const uint32_t start = generation_.load(std::memory_order_acquire);
        for (int i = 1; i < count_; ++i)
            threads_.emplace_back([this, i, start] { Loop(i, start); });
    }

    int Count() const { return count_; }

    void SetSpin(int microseconds) { spinMicroseconds_.store(microseconds < 0 ? 0 : microseconds); }
    int Spin() const { return spinMicroseconds_.load(); }

    void SetFrame(int width, int height) {
        pixels_ = static_cast<uint64_t>(width < 0 ? 0 : width) * (height < 0 ? 0 : height);
    }

    int Fork(void (*function)(void*), void* argument) {
        if (count_ == 1) {
            tWorkerIndex = 0;
            function(argument);
            return 0;
        }
        function_ = function;
        argument_ = argument;
        remaining_.store(count_ - 1, std::memory_order_relaxed);
        generation_.fetch_add(1, std::memory_order_release);
        generation_.notify_all();
        tWorkerIndex = 0;
        function(argument);
        const auto finished = [this] { return remaining_.load(std::memory_order_acquire) == 0; };
        if (SpinUntil(finished, spinMicroseconds_.load(std::memory_order_relaxed))) return 0;
        for (int left; (left = remaining_.load(std::memory_order_acquire)) != 0;)
            remaining_.wait(left, std::memory_order_acquire);
        return 0;
    }

    void Slice(unsigned long* offset, unsigned long* size) const {
        const uint64_t share = pixels_ / count_;
        const int index = tWorkerIndex;
        *offset = share * index;
        *size = index == count_ - 1 ? pixels_ - share * index : share;
    }

private:
    void Loop(int index, uint32_t seen) {
        tWorkerIndex = index;
        for (;;) {
            uint32_t now = seen;
            SpinUntil(
                [&] {
                    now = generation_.load(std::memory_order_acquire);
                    return now != seen;
                },
                spinMicroseconds_.load(std::memory_order_relaxed));
            while (now == seen) {
                generation_.wait(seen, std::memory_order_acquire);
                now = generation_.load(std::memory_order_acquire);
            }
            seen = now;
            if (stopping_.load(std::memory_order_acquire)) return;
            function_(argument_);
            if (remaining_.fetch_sub(1, std::memory_order_acq_rel) == 1) remaining_.notify_one();
        }
    }

    void Stop() {
        if (threads_.empty()) return;
        stopping_.store(true, std::memory_order_release);
        generation_.fetch_add(1, std::memory_order_release);
        generation_.notify_all();
        for (auto& thread : threads_)
            thread.join();
        threads_.clear();
        stopping_.store(false, std::memory_order_release);
    }

    int count_ = 1;
    uint64_t pixels_ = 0;
    std::vector<std::thread> threads_;
    void (*function_)(void*) = nullptr;
    void* argument_ = nullptr;
    std::atomic<uint32_t> generation_{0};
    std::atomic<int> remaining_{0};
    std::atomic<bool> stopping_{false};
    std::atomic<int> spinMicroseconds_{kSparkHostDefaultSpinMicroseconds};
};

WorkerPool& Pool() {
    static WorkerPool pool;
    return pool;
}
} // namespace

void SparkHostSetWorkerCount(int count) {
    Pool().Resize(count);
}

int SparkHostWorkerCount() {
    return Pool().Count();
}

void SparkHostSetWorkerSpin(int microseconds) {
    Pool().SetSpin(microseconds);
}

int SparkHostWorkerSpin() {
    return Pool().Spin();
}

void SparkHostSetFrameSize(int width, int height) {
    Pool().SetFrame(width, height);
}

extern "C" int sparkMpFork(void (*function)(void*), int /*argumentCount*/, void* argument) {
    return Pool().Fork(function, argument);
}

extern "C" int sparkMpInfo(unsigned long* offset, unsigned long* size) {
    Pool().Slice(offset, size);
    return 0;
}
