#pragma once
// The animation curve of one panel control: keyframes at host frames (counted from 1), either
// interpolated linearly or held until the next key. Before the first key and after the last the
// curve stays at that key's value.
#include <map>

class SparkCurve {
public:
    enum class Mode { Linear, Held };

    explicit SparkCurve(Mode mode = Mode::Linear) : mode_(mode) {}

    void SetKey(double frame, float value) { keys_[frame] = value; }
    void Clear() { keys_.clear(); }
    bool HasKeys() const { return !keys_.empty(); }
    Mode GetMode() const { return mode_; }
    void SetMode(Mode mode) { mode_ = mode; }
    // Value at `frame`; 0 without keys.
    float ValueAt(double frame) const;

private:
    Mode mode_;
    std::map<double, float> keys_;
};
