#include "cli/ReadAhead.h"

#include <utility>

namespace quelmor::cli {

ReadAhead::ReadAhead(MediaReader& reader, Prepare prepare, StageClock* clock)
    : reader_(reader), prepare_(std::move(prepare)), clock_(clock) {}

ReadAhead::~ReadAhead() {
    if (ahead_.valid()) ahead_.wait();
}

void ReadAhead::ReadNow(int index, MediaFrame& out) {
    {
        const auto timed = TimeStage(clock_, Stage::Decode);
        reader_.Read(index, decoded_);
    }
    const auto timed = TimeStage(clock_, Stage::ConvertIn);
    prepare_(std::move(decoded_), out);
}

void ReadAhead::Get(int index, MediaFrame& out) {
    if (ahead_.valid()) {
        {
            const auto timed = TimeStage(clock_, Stage::WaitInput);
            ahead_.wait();
        }
        if (aheadIndex_ == index) {
            ahead_.get(); // the failure of this very frame
            // The caller's old pixels become the buffer of the next frame read ahead.
            std::swap(out, prepared_);
        } else {
            try {
                ahead_.get();
            } catch (const std::exception&) {
                // A frame nobody asked for.
            }
            ReadNow(index, out);
        }
    } else {
        ReadNow(index, out);
    }
    const int next = index + 1;
    if (next >= reader_.FrameCount()) return;
    aheadIndex_ = next;
    ahead_ = std::async(std::launch::async, [this, next] {
        const auto timed = TimeStage(clock_, Stage::ReadAhead);
        reader_.Read(next, decoded_);
        prepare_(std::move(decoded_), prepared_);
    });
}

} // namespace quelmor::cli
