// The writing side of a command: checks that the output can be written without harm, encodes
// frames behind the render and puts them in place only once the run has succeeded, so that a
// failed or interrupted run never leaves less than the output that was there before.
#pragma once

#include <memory>
#include <string>

#include "cli/Media.h"
#include "cli/StageClock.h"
#include "cli/StopSignals.h"
#include "cli/WriteBehind.h"

namespace quelmor::cli {

struct OutputPlan {
    std::string input; // the source, which the output must not be under any name
    std::string output;
    FrameSpan whole; // frame numbers of the whole output of the run's timing
    FrameSpan run;   // the frames this run writes, within `whole`
    bool overwrite = false;
    bool resume = false; // frames of `run` already there are kept, not in the way
    double frameRate = 25.0;
    double sourceRate = 0.0;    // of the input, when it says
    double captureRate = 0.0;   // source moments a second that the output shows; 0: not constant
    std::string audioFrom = {}; // the video file whose sound the output carries, or ""

    WriteOptions Options() const {
        WriteOptions options;
        options.overwrite = overwrite;
        options.resume = resume;
        options.frameRate = frameRate;
        options.sourceRate = sourceRate;
        options.captureRate = captureRate;
        options.audioFrom = audioFrom;
        options.whole = whole;
        return options;
    }
};

// Refuses (UsageError) an output any of whose existing files is one of the input's files: the
// same device and inode, whatever the names.
void CheckOutputIsNotInput(const std::string& input, const std::string& output);

class OutputRun {
public:
    // Checks the output and opens it for frames of `source`'s format; throws before anything is
    // written. From here SIGINT, SIGTERM and SIGHUP stop the run at the next frame.
    // `threads` caps the encoding threads (0: one per core).
    OutputRun(const OutputPlan& plan, const MediaFormat& source, StageClock* clock = nullptr,
              int threads = 0);
    // Without Finish, removes every frame written and leaves the existing output as it was.
    ~OutputRun();
    OutputRun(const OutputRun&) = delete;
    OutputRun& operator=(const OutputRun&) = delete;

    // Queues frame `number` for writing. After a stop signal the frames queued are finished
    // and Interrupted is thrown, saying what was written: the frames so far are kept where they
    // replace nothing and the output is an image sequence, otherwise the output stays as it was.
    void Write(int number, MediaFrame&& frame);
    // Waits for every frame and puts the new output in place.
    void Finish();

private:
    [[noreturn]] void Stop(int signal);

    OutputPlan plan_;
    StopSignals signals_;
    bool replacing_ = false; // files of the output existed in the way of the run
    std::unique_ptr<MediaWriter> writer_;
    std::unique_ptr<WriteBehind> behind_;
    int queued_ = 0;
    int lastQueued_ = 0;
};

} // namespace quelmor::cli
