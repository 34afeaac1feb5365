// Which source moment each output frame shows, and which scene a source frame
// belongs to: a constant speed, a keyed speed, or keyed source frames.
#pragma once

#include <optional>

#include "cli/Keyframes.h"
#include "sparkhost/Curve.h"

namespace quelmor::cli {

class Timing {
public:
    static Timing Constant(double speed); // speed above 0
    // Speed keyed per output frame; every key above 0.
    static Timing SpeedCurve(const Keyframes& speeds);
    // Source frame keyed per output frame.
    static Timing FrameCurve(const Keyframes& frames);

    // Source time shown at output time `outputTime`, both counted from 0. The curves are read
    // as the plug-in reads its host's curves (frames from 1) and summed in single precision in
    // output order, so that both paths round alike.
    float SourceTime(float outputTime) const;
    // Output frames for a source of `sourceFrames` frames: those whose source time lies
    // before its end; for keyed frames, up to the last key. Throws MediaError, with the numbers,
    // past kMostFramesPerRun.
    int OutputFrameCount(int sourceFrames) const;

    // The host curve behind a keyed timing, in host frames; none for a constant speed.
    const std::optional<SparkCurve>& Curve() const { return curve_; }
    bool IsSpeedCurve() const { return kind_ == Kind::Speed; }
    bool IsFrameCurve() const { return kind_ == Kind::Frame; }

private:
    enum class Kind { Constant, Speed, Frame };
    Kind kind_ = Kind::Constant;
    float speed_ = 1.0f;
    double lastKey_ = 0.0; // last keyed output frame
    std::optional<SparkCurve> curve_;
};

// Scene keys (menu numbers per source frame, held from key to key) as a host curve.
SparkCurve SceneCurve(const Keyframes& scenes);
// Engine scene code of a source time: menu 0 and 1 cut A, 2 cut B, 3 cut C, 4 no motion
// nearest, 5 no motion blend give 0 to 4; no curve: everything is one scene.
int SceneAt(const SparkCurve* scenes, float sourceTime);

} // namespace quelmor::cli
