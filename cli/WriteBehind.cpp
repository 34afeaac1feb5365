#include "cli/WriteBehind.h"

#include <algorithm>

namespace quelmor::cli {

WriteBehind::WriteBehind(MediaWriter& writer, StageClock* clock, int threads)
    : writer_(writer), clock_(clock) {
    const int most = std::max(1, writer.ConcurrentWrites());
    if (threads <= 0) threads = std::clamp(int(std::thread::hardware_concurrency()), 1, most);
    threads = std::min(threads, most);
    // One frame waiting beside each thread's: enough to keep them fed, little memory.
    capacity_ = std::size_t(threads);
    for (int i = 0; i < threads; ++i)
        threads_.emplace_back([this] { Work(); });
}

WriteBehind::~WriteBehind() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        queue_.clear();
    }
    changed_.notify_all();
    for (auto& thread : threads_)
        thread.join();
}

void WriteBehind::Write(int number, MediaFrame&& frame) {
    std::unique_lock lock(mutex_);
    if (queue_.size() >= capacity_ && !failure_) {
        const auto timed = TimeStage(clock_, Stage::WaitOutput);
        changed_.wait(lock, [&] { return queue_.size() < capacity_ || failure_; });
    }
    if (failure_) {
        // The writes in flight may fail too, and a lower frame number's failure goes first.
        changed_.wait(lock, [&] { return busy_ == 0; });
        if (failure_) std::rethrow_exception(failure_);
    }
    queue_.emplace_back(number, std::move(frame));
    lock.unlock();
    changed_.notify_all();
}

void WriteBehind::Drain() {
    std::unique_lock lock(mutex_);
    const auto timed = TimeStage(clock_, Stage::WaitOutput);
    // A failure empties the queue: then only the writes in flight remain.
    changed_.wait(lock, [&] { return queue_.empty() && busy_ == 0; });
    if (failure_) std::rethrow_exception(failure_);
}

void WriteBehind::Finish() {
    Drain();
    const auto timed = TimeStage(clock_, Stage::Encode);
    writer_.Finish();
}

void WriteBehind::Work() {
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [&] { return stopping_ || (!queue_.empty() && !failure_); });
        if (stopping_) return;
        auto [number, frame] = std::move(queue_.front());
        queue_.pop_front();
        ++busy_;
        lock.unlock();
        changed_.notify_all(); // room in the queue
        std::exception_ptr failed;
        try {
            const auto timed = TimeStage(clock_, Stage::Encode);
            writer_.Write(number, frame);
        } catch (...) {
            failed = std::current_exception();
        }
        frame = MediaFrame{}; // its memory goes back before the next frame is taken
        lock.lock();
        --busy_;
        if (failed && (!failure_ || number < failedNumber_)) {
            failure_ = failed;
            failedNumber_ = number;
        }
        if (failure_) queue_.clear();
        changed_.notify_all();
    }
}

} // namespace quelmor::cli
