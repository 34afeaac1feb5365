#include "cli/PointTracks.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fstream>
#include <limits>
#include <sstream>

#include "cli/MediaFrame.h"
#include "cli/ShakeTracks.h"
#include "cli/TextWords.h"
#include "flow/MorphFlow.h"

namespace quelmor::cli {

namespace {

bool ReadFrame(const std::string& text, int* value) {
    const char* end = text.data() + text.size();
    auto [at, error] = std::from_chars(text.data(), end, *value);
    return error == std::errc() && at == end;
}

float Length(const std::vector<float>& xy) {
    float length = 0.0f;
    for (size_t i = 2; i + 1 < xy.size(); i += 2)
        length += std::hypot(xy[i] - xy[i - 2], xy[i + 1] - xy[i - 1]);
    return length;
}

// The polyline `xy` resampled evenly to m points, appended to x and y.
void Resample(const std::vector<float>& xy, int m, std::vector<float>& x, std::vector<float>& y) {
    const int n = int(xy.size() / 2);
    std::vector<float> inX(n), inY(n), outX(m), outY(m);
    for (int i = 0; i < n; ++i) {
        inX[i] = xy[2 * i];
        inY[i] = xy[2 * i + 1];
    }
    DQResampleCurve(n, inX.data(), inY.data(), m, outX.data(), outY.data(), 0.99f);
    x.insert(x.end(), outX.begin(), outX.end());
    y.insert(y.end(), outY.begin(), outY.end());
}

} // namespace

PointTracks PointTracks::Parse(const std::string& text, const std::string& origin,
                               const Placement& placement) {
    if (LooksLikeShakeTracks(text)) return ParseShakeTracks(text, origin, placement);
    PointTracks out;
    std::map<std::string, size_t> byName;
    std::map<std::pair<std::string, int>, int> seenAt; // (name, frame) -> line
    std::istringstream lines(text);
    std::string line;
    bool inFrame = false;
    int frame = 0;
    for (int number = 1; std::getline(lines, line); ++number) {
        if (const size_t hash = line.find('#'); hash != std::string::npos) line.resize(hash);
        const std::vector<std::string> words = SplitWords(line);
        if (words.empty()) continue;
        const std::string where = origin + " line " + std::to_string(number) + ": ";
        const std::string& keyword = words[0];
        if (keyword == "frame") {
            if (words.size() != 2 || !ReadFrame(words[1], &frame))
                throw MediaError(where + "expected \"frame N\" with a whole frame number, got \"" +
                                 line + "\"");
            if (!inFrame || frame < out.firstFrame_) {
                out.firstFrame_ = frame;
                out.firstFrameLine_ = number;
            }
            if (!inFrame || frame > out.lastFrame_) {
                out.lastFrame_ = frame;
                out.lastFrameLine_ = number;
            }
            inFrame = true;
            continue;
        }
        const bool curve = keyword == "curve";
        if (!curve && keyword != "point")
            throw MediaError(where + "expected \"frame\", \"point\" or \"curve\", got \"" +
                             keyword + "\"");
        if (!inFrame)
            throw MediaError(where + "expected a \"frame N\" line before the first " + keyword);
        const char* form =
            curve ? "\"curve NAME X1 Y1 X2 Y2 ...\" with two or more points" : "\"point NAME X Y\"";
        const size_t numbers = words.size() < 2 ? 0 : words.size() - 2;
        if (words.size() < 2 || (curve ? numbers < 4 || numbers % 2 != 0 : numbers != 2))
            throw MediaError(where + "expected " + form + ", got \"" + line + "\"");
        if (curve && numbers / 2 > size_t(kMostCurvePoints))
            throw MediaError(where + "a curve has at most " + std::to_string(kMostCurvePoints) +
                             " points, this one " + std::to_string(numbers / 2));
        const std::string& name = words[1];
        std::vector<float> xy(numbers);
        for (size_t i = 0; i < numbers; ++i)
            if (!ReadFiniteNumber(words[2 + i], &xy[i]))
                throw MediaError(where + "expected a number for " + (i % 2 ? "y" : "x") + " of " +
                                 name + ", got \"" + words[2 + i] + "\"");
        auto [entry, isNew] = byName.try_emplace(name, out.tracks_.size());
        if (isNew) out.tracks_.push_back({name, curve, number, {}});
        Track& track = out.tracks_[entry->second];
        if (track.curve != curve)
            throw MediaError(where + name + " is a " + (track.curve ? "curve" : "point") +
                             " on line " + std::to_string(track.line) + ", expected that here too");
        if (auto [seen, first] = seenAt.try_emplace({name, frame}, number); !first)
            throw MediaError(where + name + " is given twice in frame " + std::to_string(frame) +
                             " (first on line " + std::to_string(seen->second) + ")");
        track.positions[frame] = std::move(xy);
    }
    if (out.tracks_.empty()) throw MediaError(origin + " holds no point or curve");
    return out;
}

PointTracks PointTracks::Load(const std::string& path, const Placement& placement) {
    std::ifstream in(path);
    if (!in) throw MediaError("cannot read the points file " + path);
    std::ostringstream text;
    text << in.rdbuf();
    return Parse(text.str(), path, placement);
}

std::vector<const PointTracks::Track*> PointTracks::Between(int frameA, int frameB) const {
    std::vector<const Track*> found;
    for (const Track& track : tracks_)
        if (track.positions.count(frameA) && track.positions.count(frameB)) found.push_back(&track);
    return found;
}

void TrackPairs(const PointTracks::Track& track, int frameA, int frameB, std::vector<float>& xA,
                std::vector<float>& yA, std::vector<float>& xB, std::vector<float>& yB) {
    xA.clear();
    yA.clear();
    xB.clear();
    yB.clear();
    const std::vector<float>& a = track.positions.at(frameA);
    const std::vector<float>& b = track.positions.at(frameB);
    if (!track.curve) {
        xA.push_back(a[0]);
        yA.push_back(a[1]);
        xB.push_back(b[0]);
        yB.push_back(b[1]);
        return;
    }
    const float length = Length(a);
    const int most = PointTracks::kMostCurvePoints;
    const int m = length < float(most) ? std::max(int(length + 0.5f) + 1, 2) : most;
    Resample(a, m, xA, yA);
    Resample(b, m, xB, yB);
}

} // namespace quelmor::cli
