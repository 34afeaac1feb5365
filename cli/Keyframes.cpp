#include "Keyframes.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <sstream>

#include "MediaFrame.h"

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

double Keyframes::Linear(double frame) const {
    if (frame <= keys_.front().frame) return keys_.front().value;
    if (frame >= keys_.back().frame) return keys_.back().value;
    const auto next = std::upper_bound(keys_.begin(), keys_.end(), frame,
                                       [](double f, const Key& k) { return f < k.frame; });
    const Key& a = *(next - 1);
    const Key& b = *next;
    return a.value + (b.value - a.value) * (frame - a.frame) / (b.frame - a.frame);
}

double Keyframes::Held(double frame) const {
    const auto next = std::upper_bound(keys_.begin(), keys_.end(), frame,
                                       [](double f, const Key& k) { return f < k.frame; });
    return next == keys_.begin() ? keys_.front().value : (next - 1)->value;
}

} // namespace quelmor::cli
