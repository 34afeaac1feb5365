#include "cli/Timing.h"

#include <cmath>
#include <string>

#include "cli/MediaFrame.h"

namespace quelmor::cli {

namespace {
// Longest output a curve may ask for; beyond it the curve is taken for a mistake.
constexpr int kMaxOutputFrames = 10000000;
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
    switch (kind_) {
    case Kind::Constant:
        return int(float(sourceFrames) / speed_);
    case Kind::Frame:
        return int(std::floor(lastKey_)) + 1;
    case Kind::Speed: {
        // Source time grows by the keyed speed per frame, added up as SourceTime does.
        float sum = 0.0f;
        int n = 0;
        while (sum < float(sourceFrames)) {
            if (++n > kMaxOutputFrames)
                throw MediaError("the speed curve asks for more than 10000000 output frames");
            sum += curve_->ValueAt(n);
        }
        return n;
    }
    }
    return 0;
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
