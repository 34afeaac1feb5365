#include "Keyframes.h"

#include <cmath>
#include <fstream>
#include <sstream>

#include "cli/MediaFrame.h"

namespace quelmor::cli {

Keyframes Keyframes::Parse(const std::string& text, const std::string& origin) {
    Keyframes out;
    std::istringstream lines(text);
    std::string line;
    for (int number = 1; std::getline(lines, line); ++number) {
        if (const std::size_t hash = line.find('#'); hash != std::string::npos) line.resize(hash);
        std::istringstream fields(line);
        std::string rest;
        Key key{};
        if (!(fields >> std::ws) || fields.eof()) continue;
        const std::string where = origin + " line " + std::to_string(number);
        if (!(fields >> key.frame >> key.value) || (fields >> rest) || !std::isfinite(key.frame) ||
            !std::isfinite(key.value))
            throw MediaError(where + ": expected \"frame value\", got \"" + line + "\"");
        if (!out.keys_.empty() && key.frame <= out.keys_.back().frame)
            throw MediaError(where + ": frame " + std::to_string(key.frame) +
                             " is not after the frame before it");
        out.keys_.push_back(key);
    }
    if (out.keys_.empty()) throw MediaError(origin + " holds no keys");
    return out;
}

Keyframes Keyframes::Load(const std::string& path) {
    std::ifstream in(path);
    if (!in) throw MediaError("cannot read the key file " + path);
    std::ostringstream text;
    text << in.rdbuf();
    return Parse(text.str(), path);
}

SparkCurve Keyframes::ToCurve(SparkCurve::Mode mode, float valueOffset) const {
    SparkCurve curve(mode);
    for (const Key& key : keys_)
        curve.SetKey(key.frame + 1.0, float(key.value) + valueOffset);
    return curve;
}

} // namespace quelmor::cli
