#include "cli/ShakeTracks.h"

#include <cctype>
#include <cmath>
#include <map>
#include <sstream>
#include <vector>

#include "cli/MediaFrame.h"
#include "cli/PointTracks.h"
#include "cli/TextWords.h"

namespace quelmor::cli {

namespace {

constexpr const char* kTrackKeyword = "TrackName";

bool SameWordIgnoringCase(const std::string& a, const char* b) {
    size_t i = 0;
    for (; i < a.size() && b[i]; ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) !=
            std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return i == a.size() && !b[i];
}

// The column header "Frame X Y [Correlation]".
bool IsHeader(const std::vector<std::string>& words) {
    static const char* const kColumns[] = {"Frame", "X", "Y", "Correlation"};
    if (words.size() < 3 || words.size() > 4) return false;
    for (size_t i = 0; i < words.size(); ++i)
        if (!SameWordIgnoringCase(words[i], kColumns[i])) return false;
    return true;
}

} // namespace

bool LooksLikeShakeTracks(const std::string& text) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const std::vector<std::string> words = SplitWords(line);
        if (!words.empty()) return words[0] == kTrackKeyword;
    }
    return false;
}

PointTracks PointTracks::ParseShakeTracks(const std::string& text, const std::string& origin,
                                          const Placement& placement) {
    if (placement.height <= 0)
        throw MediaError(origin + ": a tracker export needs the frame height to turn its y axis");
    PointTracks out;
    std::istringstream lines(text);
    std::string line;
    Track* track = nullptr;
    std::map<std::string, int> namedAt;           // name -> line of its TrackName
    std::map<std::pair<size_t, int>, int> seenAt; // (track, frame) -> line
    bool headerAllowed = false;
    bool anyFrame = false;
    const auto refuseEmpty = [&] {
        if (track && track->positions.empty())
            throw MediaError(origin + " line " + std::to_string(track->line) + ": track " +
                             track->name +
                             " has no positions: expected lines \"FRAME X Y [CORRELATION]\" "
                             "after its TrackName");
    };
    for (int number = 1; std::getline(lines, line); ++number) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const std::vector<std::string> words = SplitWords(line);
        if (words.empty()) continue;
        const std::string where = origin + " line " + std::to_string(number) + ": ";
        if (words[0] == kTrackKeyword) {
            if (words.size() < 2)
                throw MediaError(where + "expected \"TrackName NAME\", got \"" + line + "\"");
            std::string name = words[1];
            for (size_t i = 2; i < words.size(); ++i)
                name += " " + words[i];
            if (auto [at, isNew] = namedAt.try_emplace(name, number); !isNew)
                throw MediaError(where + "track " + name + " is named again (first on line " +
                                 std::to_string(at->second) + ")");
            refuseEmpty();
            out.tracks_.push_back({name, false, number, {}});
            track = &out.tracks_.back();
            headerAllowed = true;
            continue;
        }
        if (!track)
            throw MediaError(where +
                             "expected \"TrackName NAME\" before the first position, got \"" +
                             line + "\"");
        if (headerAllowed && IsHeader(words)) {
            headerAllowed = false;
            continue;
        }
        headerAllowed = false;
        if (words.size() != 3 && words.size() != 4)
            throw MediaError(where + "expected \"FRAME X Y [CORRELATION]\", got \"" + line + "\"");
        double values[4] = {};
        static const char* const kColumn[] = {"the frame", "x", "y", "the correlation"};
        for (size_t i = 0; i < words.size(); ++i)
            if (!ReadFiniteNumber(words[i], &values[i]))
                throw MediaError(where + "expected a number for " + kColumn[i] + " of " +
                                 track->name + ", got \"" + words[i] + "\"");
        const double frameValue = values[0];
        if (frameValue != std::floor(frameValue) || std::fabs(frameValue) > 1e8)
            throw MediaError(where + "expected a whole frame number for " + track->name +
                             ", got \"" + words[0] + "\"");
        const int frame = placement.firstNumber + int(frameValue) - 1;
        const size_t index = out.tracks_.size() - 1;
        if (auto [at, isNew] = seenAt.try_emplace({index, frame}, number); !isNew)
            throw MediaError(where + track->name + " is given twice in frame " + words[0] +
                             " (first on line " + std::to_string(at->second) + ")");
        // From the lower-left corner, y up, to pixel centres, y down.
        const float x = float(values[1] - 0.5);
        const float y = float(double(placement.height) - 0.5 - values[2]);
        track->positions[frame] = {x, y};
        if (!anyFrame || frame < out.firstFrame_) {
            out.firstFrame_ = frame;
            out.firstFrameLine_ = number;
        }
        if (!anyFrame || frame > out.lastFrame_) {
            out.lastFrame_ = frame;
            out.lastFrameLine_ = number;
        }
        anyFrame = true;
    }
    refuseEmpty();
    if (out.tracks_.empty()) throw MediaError(origin + " holds no track");
    return out;
}

} // namespace quelmor::cli
