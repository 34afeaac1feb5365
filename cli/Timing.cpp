#include "cli/Timing.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "cli/Media.h"

namespace quelmor::cli {

namespace {

std::string Text(const char* format, double v) {
    char text[64];
    std::snprintf(text, sizeof text, format, v);
    return text;
}

// A count that went past the longest run, refused with the numbers that made it.
MediaError TooMany(double count, int sourceFrames, const std::string& how) {
    return MediaError(how + " makes " + Text("%.0f", count) + " output frames from the " +
                      std::to_string(sourceFrames) + " input frames; a run makes at most " +
                      std::to_string(kMostFramesPerRun));
}

} // namespace

Timing Timing::Constant(double speed) {
    Timing t;
    t.speed_ = float(speed);
    return t;
}

Timing Timing::SpeedCurve(const Keyframes& speeds) {
    for (const auto& key : speeds.Keys())
        if (!(key.value > 0))
            throw MediaError("the speed curve must stay above 0, but frame " +
                             std::to_string(int(key.frame)) + " is keyed to " +
                             std::to_string(key.value));
    Timing t;
    t.kind_ = Kind::Speed;
    t.curve_ = speeds.ToCurve(SparkCurve::Mode::Linear);
    t.lastKey_ = speeds.Keys().back().frame;
    return t;
}

Timing Timing::FrameCurve(const Keyframes& frames) {
    if (frames.Keys().back().frame < 0)
        throw MediaError("the frame curve has no key at output frame 0 or later");
    Timing t;
    t.kind_ = Kind::Frame;
    t.curve_ = frames.ToCurve(SparkCurve::Mode::Linear, 1.0f);
    t.lastKey_ = frames.Keys().back().frame;
    return t;
}

float Timing::SourceTime(float outputTime) const {
    const int whole = int(outputTime);
    const float part = outputTime - float(whole);
    float sum = 0.0f;
    switch (kind_) {
    case Kind::Constant:
        for (int k = 0; k < whole; ++k)
            sum += speed_;
        return sum + part * speed_;
    case Kind::Speed:
        for (int k = 1; k <= whole; ++k)
            sum += curve_->ValueAt(k);
        return sum + part * curve_->ValueAt(whole + 1);
    case Kind::Frame:
        return curve_->ValueAt(double(outputTime) + 1.0) - 1.0f;
    }
    return 0.0f;
}

int Timing::OutputFrameCount(int sourceFrames) const {
    // Counted in double precision, which holds every count that can be refused exactly, and
    // turned into an integer only once it is known to fit.
    double count = 0;
    switch (kind_) {
    case Kind::Constant:
        count = std::floor(double(float(sourceFrames) / speed_));
        if (count > double(kMostFramesPerRun))
            throw TooMany(count, sourceFrames, "a speed of " + Text("%g", speed_));
        break;
    case Kind::Frame:
        count = std::floor(lastKey_) + 1;
        if (count > double(kMostFramesPerRun))
            throw TooMany(count, sourceFrames,
                          "the frame curve, keyed to output frame " +
                              std::to_string(std::int64_t(lastKey_)) + ",");
        break;
    case Kind::Speed: {
        // Source time grows by the keyed speed per frame, added up as SourceTime does.
        float sum = 0.0f;
        while (sum < float(sourceFrames)) {
            if (++count > double(kMostFramesPerRun))
                throw MediaError("the speed curve asks for more than " +
                                 std::to_string(kMostFramesPerRun) + " output frames from the " +
                                 std::to_string(sourceFrames) + " input frames");
            sum += curve_->ValueAt(count);
        }
        break;
    }
    }
    return int(count);
}

SparkCurve SceneCurve(const Keyframes& scenes) {
    return scenes.ToCurve(SparkCurve::Mode::Held);
}

int SceneAt(const SparkCurve* scenes, float sourceTime) {
    if (!scenes) return 0;
    const int menu = int(scenes->ValueAt(double(int(double(sourceTime) + 1.0))));
    return menu >= 2 && menu <= 5 ? menu - 1 : 0;
}

} // namespace quelmor::cli
