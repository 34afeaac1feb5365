#include "sparkhost/Curve.h"

float SparkCurve::ValueAt(double frame) const {
    if (keys_.empty()) return 0.0f;
    auto after = keys_.upper_bound(frame);
    if (after == keys_.begin()) return after->second;
    auto before = std::prev(after);
    if (after == keys_.end() || mode_ == Mode::Held || before->first == frame)
        return before->second;
    const double t = (frame - before->first) / (after->first - before->first);
    return float(before->second + (after->second - before->second) * t);
}
