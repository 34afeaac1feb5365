// Writes each output frame on a second thread while the next one renders, so that
// encoding overlaps the engine's work. One write is in flight at a time and frames
// reach the writer in order; a failed write is reported by the next call. With a clock, the
// writing counts as encoding and the time spent waiting for it as waiting.
#pragma once

#include <future>

#include "cli/Media.h"
#include "cli/StageClock.h"

namespace quelmor::cli {

class WriteBehind {
public:
    explicit WriteBehind(MediaWriter& writer, StageClock* clock = nullptr)
        : writer_(writer), clock_(clock) {}
    // Waits for the write in flight; its failure is dropped, as the run is ending anyway.
    ~WriteBehind() {
        if (pending_.valid()) pending_.wait();
    }
    WriteBehind(const WriteBehind&) = delete;
    WriteBehind& operator=(const WriteBehind&) = delete;

    // Waits for the previous frame (throwing its failure), then starts writing this one.
    void Write(int number, MediaFrame&& frame) {
        Wait();
        pending_ = std::async(std::launch::async, [this, number, f = std::move(frame)] {
            const auto timed = TimeStage(clock_, Stage::Encode);
            writer_.Write(number, f);
        });
    }
    // Waits for the last frame, then finishes the output.
    void Finish() {
        Wait();
        const auto timed = TimeStage(clock_, Stage::Encode);
        writer_.Finish();
    }

private:
    void Wait() {
        if (!pending_.valid()) return;
        const auto timed = TimeStage(clock_, Stage::WaitOutput);
        pending_.get();
    }

    MediaWriter& writer_;
    StageClock* clock_;
    std::future<void> pending_;
};

} // namespace quelmor::cli
