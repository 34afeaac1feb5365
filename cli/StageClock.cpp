#include "cli/StageClock.h"

#include <sys/resource.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace quelmor::cli {

namespace {

constexpr const char* kStageNames[kStageCount] = {
    "start (options, input, checks)",
    "decode source frames",
    "convert source frames",
    "wait for the frame read ahead",
    "", // the engine: named by the caller
    "convert results",
    "wait for the writers",
    "decode and convert ahead",
    "encode and write",
};

// Stages whose processor time is spent reading, converting or writing rather than rendering.
constexpr Stage kOutsideWork[] = {Stage::Start,      Stage::Decode,    Stage::ConvertIn,
                                  Stage::ConvertOut, Stage::ReadAhead, Stage::Encode};

bool Beside(Stage stage) {
    return stage == Stage::ReadAhead || stage == Stage::Encode;
}

} // namespace

double ThreadCpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

double ProcessCpuSeconds() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    auto seconds = [](const timeval& t) { return double(t.tv_sec) + 1e-6 * double(t.tv_usec); };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

void StageClock::Add(Stage stage, double seconds, double cpuSeconds) {
    micros_[std::size_t(stage)] += std::llround(seconds * 1e6);
    cpuMicros_[std::size_t(stage)] += std::llround(cpuSeconds * 1e6);
}

double StageClock::Seconds(Stage stage) const {
    return double(micros_[std::size_t(stage)].load()) * 1e-6;
}

double StageClock::CpuSeconds(Stage stage) const {
    return double(cpuMicros_[std::size_t(stage)].load()) * 1e-6;
}

double StageClock::EngineNetSeconds() const {
    return std::max(0.0, Seconds(Stage::Engine) - Seconds(Stage::Decode) -
                             Seconds(Stage::ConvertIn) - Seconds(Stage::WaitInput));
}

double StageClock::OutsideShare(double totalSeconds) const {
    if (!(totalSeconds > 0)) return 0.0;
    return std::clamp((totalSeconds - EngineNetSeconds()) / totalSeconds, 0.0, 1.0);
}

double StageClock::CpuOutsideShare(double processCpuSeconds) const {
    if (!(processCpuSeconds > 0)) return 0.0;
    double outside = 0.0;
    for (Stage stage : kOutsideWork)
        outside += CpuSeconds(stage);
    return std::clamp(outside / processCpuSeconds, 0.0, 1.0);
}

std::string StageClock::Summary(const char* what, const Totals& totals,
                                const char* engineName) const {
    char line[320];
    std::snprintf(line, sizeof line,
                  "%s: %d frames, %.2f frames per second, %.0f%% of the time outside %s "
                  "(reading, converting, writing), %.0f%% of the processor time\n",
                  what, totals.frames, totals.seconds > 0 ? totals.frames / totals.seconds : 0.0,
                  100.0 * OutsideShare(totals.seconds), engineName,
                  100.0 * CpuOutsideShare(totals.cpuSeconds));
    return line;
}

std::string StageClock::Report(const Totals& totals, const char* engineName) const {
    const double wall = totals.seconds;
    std::string text;
    char line[256];
    auto row = [&](const char* name, double seconds, double cpu) {
        std::snprintf(line, sizeof line, "  %-34s %9.3f s %6.1f%% %9.1f ms/frame %9.3f s cpu\n",
                      name, seconds, wall > 0 ? 100.0 * seconds / wall : 0.0,
                      totals.frames > 0 ? 1000.0 * seconds / totals.frames : 0.0, cpu);
        text += line;
    };
    std::snprintf(line, sizeof line, "timing of %d frames over %.3f s:\n", totals.frames, wall);
    text += line;
    double accounted = 0.0;
    for (int i = 0; i < kStageCount; ++i) {
        const Stage stage = Stage(i);
        if (Beside(stage)) continue;
        if (stage == Stage::Engine) {
            // Its processor time: all the process spent but the rest, workers included.
            double others = 0.0;
            for (int k = 0; k < kStageCount; ++k)
                if (Stage(k) != Stage::Engine) others += CpuSeconds(Stage(k));
            const double cpu = std::max(0.0, totals.cpuSeconds - others);
            accounted += EngineNetSeconds();
            row(engineName, EngineNetSeconds(), cpu);
            continue;
        }
        accounted += Seconds(stage);
        row(kStageNames[i], Seconds(stage), CpuSeconds(stage));
    }
    row("other (progress, hand-over)", std::max(0.0, wall - accounted), 0.0);
    std::snprintf(line, sizeof line, "  on threads of their own, beside the above:\n");
    text += line;
    for (int i = 0; i < kStageCount; ++i)
        if (Beside(Stage(i))) row(kStageNames[i], Seconds(Stage(i)), CpuSeconds(Stage(i)));
    std::snprintf(line, sizeof line,
                  "  outside the engine: %.1f%% of the wall time, %.1f%% of %.3f s processor "
                  "time\n",
                  100.0 * OutsideShare(wall), 100.0 * CpuOutsideShare(totals.cpuSeconds),
                  totals.cpuSeconds);
    text += line;
    return text;
}

} // namespace quelmor::cli
