// Writes output frames on threads of their own while the next frames render, so that encoding
// overlaps the engine's work. A writer that takes several frames at once gets several threads and
// frames finish in any order; one that takes a frame at a time gets one thread and the frames in
// order. The queue is bounded: Write blocks while every thread is busy and one frame waits. A
// failed write is reported by the next call, with the message of the lowest-numbered frame that
// failed; frames still queued behind it are not written. With a clock, writing counts as encoding
// and the time the caller spends blocked as waiting.
#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "cli/Media.h"
#include "cli/StageClock.h"

namespace quelmor::cli {

class WriteBehind {
public:
    // `threads` 0: as many as the writer takes at once, at most one per core.
    explicit WriteBehind(MediaWriter& writer, StageClock* clock = nullptr, int threads = 0);
    // Drops the frames still queued, waits for the writes in flight and drops their failures, as
    // the run is ending anyway.
    ~WriteBehind();
    WriteBehind(const WriteBehind&) = delete;
    WriteBehind& operator=(const WriteBehind&) = delete;

    // Queues one frame, after waiting for room; throws the failure of an earlier frame.
    void Write(int number, MediaFrame&& frame);
    // Waits for every frame queued to be written; throws the first failure.
    void Drain();
    // Drains, then finishes the output.
    void Finish();

private:
    void Work();

    MediaWriter& writer_;
    StageClock* clock_;
    std::size_t capacity_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::pair<int, MediaFrame>> queue_;
    int busy_ = 0;
    bool stopping_ = false;
    int failedNumber_ = 0;
    std::exception_ptr failure_;
    std::vector<std::thread> threads_;
};

} // namespace quelmor::cli
