// Source frames read one ahead on a thread of their own: while the caller works on frame n, frame
// n + 1 is decoded and prepared (converted to the form the caller wants), so that a caller going
// through a clip in order rarely waits for the disk or the decoder. A frame asked for out of order
// is read on the caller's thread. With a clock, reading on the caller's thread counts as decoding
// and converting, reading ahead as its own stage, and the caller's wait for it as waiting.
#pragma once

#include <functional>
#include <future>

#include "cli/Media.h"
#include "cli/StageClock.h"

namespace quelmor::cli {

class ReadAhead {
public:
    // Turns a decoded frame into the caller's form, taking its pixels where that saves a copy;
    // may run on the reading thread.
    using Prepare = std::function<void(MediaFrame&& decoded, MediaFrame& prepared)>;

    // The reader must outlive the object and be used by nobody else meanwhile.
    ReadAhead(MediaReader& reader, Prepare prepare, StageClock* clock = nullptr);
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // Frame `index`, from 0, prepared into `out`; then starts on the frame after it. Throws the
    // failure of reading this frame; a failure of a frame read ahead and never asked for is lost.
    void Get(int index, MediaFrame& out);

private:
    void ReadNow(int index, MediaFrame& out);

    MediaReader& reader_;
    Prepare prepare_;
    StageClock* clock_;
    int aheadIndex_ = -1;
    std::future<void> ahead_;
    // Used by the reading thread while a frame is read ahead, by the caller's otherwise.
    MediaFrame decoded_, prepared_;
};

} // namespace quelmor::cli
