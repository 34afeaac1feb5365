#include "cli/OutputRun.h"

#include <sys/stat.h>

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "cli/CommandLine.h"
#include "cli/SequencePattern.h"

namespace quelmor::cli {

namespace {

// The files of a clip that exist: every frame of an image sequence, or the one video file.
std::vector<std::string> ExistingFiles(const std::string& path) {
    if (const auto pattern = SequencePattern::Parse(path)) {
        std::vector<std::string> files;
        for (int frame : pattern->FindFrames())
            files.push_back(pattern->Path(frame));
        return files;
    }
    return {path};
}

std::optional<std::pair<dev_t, ino_t>> FileIdOf(const std::string& path) {
    struct stat st {};
    if (stat(path.c_str(), &st) != 0) return std::nullopt;
    return std::pair{st.st_dev, st.st_ino};
}

std::string FrameNames(const std::string& output, FrameSpan span) {
    const auto pattern = SequencePattern::Parse(output);
    if (!pattern) return output;
    if (span.first == span.last) return pattern->Path(span.first);
    return pattern->Path(span.first) + " to " + pattern->Path(span.last);
}

} // namespace

void CheckOutputIsNotInput(const std::string& input, const std::string& output) {
    std::vector<std::pair<std::pair<dev_t, ino_t>, std::string>> inputs;
    for (const std::string& file : ExistingFiles(input))
        if (auto id = FileIdOf(file)) inputs.emplace_back(*id, file);
    std::sort(inputs.begin(), inputs.end());
    for (const std::string& file : ExistingFiles(output)) {
        const auto id = FileIdOf(file);
        if (!id) continue;
        const auto same =
            std::lower_bound(inputs.begin(), inputs.end(), std::pair{*id, std::string()});
        if (same != inputs.end() && same->first == *id)
            throw UsageError("the output must not be the input: " + file + " is the input file " +
                             same->second);
    }
}

OutputRun::OutputRun(const OutputPlan& plan, const MediaFormat& source, StageClock* clock,
                     int threads)
    : plan_(plan) {
    CheckOutputIsNotInput(plan.input, plan.output);
    const WriteOptions options = plan.Options();
    CheckOutput(plan.output, plan.run.first, plan.run.last, options);
    replacing_ = !OutputInTheWay(plan.output, plan.run.first, plan.run.last, options).empty();
    writer_ = CreateMedia(plan.output, source, options);
    behind_ = std::make_unique<WriteBehind>(*writer_, clock, threads);
}

// The writes in flight end before the writer removes what they wrote.
OutputRun::~OutputRun() {
    behind_.reset();
    writer_.reset();
}

void OutputRun::Write(int number, MediaFrame&& frame) {
    behind_->Write(number, std::move(frame));
    ++queued_;
    lastQueued_ = number;
    if (const int signal = StopSignals::Received()) Stop(signal);
}

void OutputRun::Finish() {
    if (const int signal = StopSignals::Received()) Stop(signal);
    behind_->Finish();
}

void OutputRun::Stop(int signal) {
    const int total = plan_.run.last - plan_.run.first + 1;
    // A resumed run renders only the gaps of its range, so the range says little of its progress.
    std::string message = "interrupted by " + StopSignals::Name(signal) + " after " +
                          std::to_string(queued_) +
                          (plan_.resume ? "" : " of " + std::to_string(total)) + " frames";
    std::string failed;
    try {
        behind_->Drain();
    } catch (const std::exception& e) {
        failed = e.what();
    }
    const bool sequence = SequencePattern::Parse(plan_.output).has_value();
    // Frames that replace nothing are whole frames of a sequence that no other run made; kept,
    // they save a re-run their work. Beside old frames they would make a mix that no run made.
    if (sequence && !replacing_ && queued_ > 0 && failed.empty()) {
        try {
            writer_->Finish();
            if (plan_.resume)
                throw Interrupted(signal, message + ", all of them written; --resume renders the "
                                                    "frames still missing");
            message += ": " + FrameNames(plan_.output, {plan_.run.first, lastQueued_}) + " written";
            if (lastQueued_ < plan_.run.last)
                message += ", " + FrameNames(plan_.output, {lastQueued_ + 1, plan_.run.last}) +
                           " not written";
            throw Interrupted(signal, message);
        } catch (const MediaError& e) {
            failed = e.what();
        }
    }
    if (!failed.empty()) message += " and a failed write (" + failed + ")";
    message += sequence ? ": no frame written" : ": " + plan_.output + " not written";
    if (replacing_)
        message += "; the existing output is left as it was";
    else if (!sequence && queued_ > 0)
        message += " (a video file is kept only whole)";
    throw Interrupted(signal, message);
}

} // namespace quelmor::cli
