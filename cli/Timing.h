// Which source moment each output frame shows, and which scene a source frame
// belongs to: a constant speed, a keyed speed, or keyed source frames.
#pragma once

#include <optional>

#include "Keyframes.h"

namespace quelmor::cli {

class Timing {
public:
    static Timing Constant(double speed); // speed above 0
    // Speed keyed per output frame; every key above 0.
    static Timing SpeedCurve(Keyframes speeds);
    // Source frame keyed per output frame.
    static Timing FrameCurve(Keyframes frames);

    // Source time shown at output time `outputTime`, both counted from 0. Sums run in
    // single precision in output order, so that long clips round as the plug-in does.
    float SourceTime(float outputTime) const;
    // Output frames for a source of `sourceFrames` frames: those whose source time lies
    // before its end; for keyed frames, up to the last key.
    int OutputFrameCount(int sourceFrames) const;

private:
    enum class Kind { Constant, Speed, Frame };
    Kind kind_ = Kind::Constant;
    float speed_ = 1.0f;
    std::optional<Keyframes> keys_;
};

// Scene code of a source time from keys of menu numbers held from frame to frame:
// 0 and 1 cut A, 2 cut B, 3 cut C, 4 no motion nearest, 5 no motion blend; engine
// codes 0 to 4 in that order. No keys: everything is one scene.
int SceneAt(const Keyframes* scenes, float sourceTime);

} // namespace quelmor::cli
