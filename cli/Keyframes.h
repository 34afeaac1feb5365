// Keyed values over frame numbers, read from a text file of "frame value" lines.
#pragma once

#include <string>
#include <vector>

#include "sparkhost/Curve.h"

namespace quelmor::cli {

class Keyframes {
public:
    struct Key {
        double frame;
        double value;
    };

    // Lines of "frame value"; '#' starts a comment. Throws MediaError naming the
    // file and line of anything else, of frames out of order and of an empty file.
    static Keyframes Parse(const std::string& text, const std::string& origin);
    static Keyframes Load(const std::string& path);

    // The keys as a host animation curve: host frames count from 1, so each key moves one
    // frame on, and its value by `valueOffset`.
    SparkCurve ToCurve(SparkCurve::Mode mode, float valueOffset = 0.0f) const;

    const std::vector<Key>& Keys() const { return keys_; }

private:
    std::vector<Key> keys_;
};

} // namespace quelmor::cli
