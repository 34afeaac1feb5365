#include "cli/StageClock.h"

#include <algorithm>
#include <cmath>

namespace quelmor::cli {

namespace {

constexpr const char* kStageNames[kStageCount] = {
    "start (options, input, checks)",
    "decode source frames",
    "convert source frames",
    "", // the engine: named by the caller
    "convert results",
    "wait for the writer",
    "encode and write",
};

} // namespace

void StageClock::Add(Stage stage, double seconds) {
    micros_[std::size_t(stage)] += std::llround(seconds * 1e6);
}

double StageClock::Seconds(Stage stage) const {
    return double(micros_[std::size_t(stage)].load()) * 1e-6;
}

double StageClock::EngineNetSeconds() const {
    return std::max(0.0,
                    Seconds(Stage::Engine) - Seconds(Stage::Decode) - Seconds(Stage::ConvertIn));
}

double StageClock::OutsideShare(double totalSeconds) const {
    if (!(totalSeconds > 0)) return 0.0;
    return std::clamp((totalSeconds - EngineNetSeconds()) / totalSeconds, 0.0, 1.0);
}

std::string StageClock::Summary(const char* what, int frames, double totalSeconds,
                                const char* engineName) const {
    char line[256];
    std::snprintf(line, sizeof line,
                  "%s: %d frames, %.2f frames per second, %.0f%% of the time outside %s "
                  "(reading, converting, writing)\n",
                  what, frames, totalSeconds > 0 ? frames / totalSeconds : 0.0,
                  100.0 * OutsideShare(totalSeconds), engineName);
    return line;
}

std::string StageClock::Report(int frames, double totalSeconds, const char* engineName) const {
    std::string text;
    char line[256];
    auto row = [&](const char* name, double seconds) {
        std::snprintf(line, sizeof line, "  %-34s %9.3f s %6.1f%% %9.1f ms/frame\n", name, seconds,
                      totalSeconds > 0 ? 100.0 * seconds / totalSeconds : 0.0,
                      frames > 0 ? 1000.0 * seconds / frames : 0.0);
        text += line;
    };
    std::snprintf(line, sizeof line, "timing of %d frames over %.3f s:\n", frames, totalSeconds);
    text += line;
    double accounted = 0.0;
    for (int i = 0; i < kStageCount; ++i) {
        const Stage stage = Stage(i);
        if (stage == Stage::Encode) continue;
        const double seconds = stage == Stage::Engine ? EngineNetSeconds() : Seconds(stage);
        accounted += seconds;
        row(stage == Stage::Engine ? engineName : kStageNames[i], seconds);
    }
    row("other (progress, hand-over)", std::max(0.0, totalSeconds - accounted));
    row("outside the engine", totalSeconds - EngineNetSeconds());
    std::snprintf(line, sizeof line, "  on the writer's thread, beside the above:\n");
    text += line;
    row(kStageNames[int(Stage::Encode)], Seconds(Stage::Encode));
    return text;
}

} // namespace quelmor::cli
