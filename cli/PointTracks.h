// Correspondences given by hand: named points and polylines with their positions in source
// frames, read from a text file. Any two frames in which a name appears make a pair: its position
// in the one moves to its position in the other.
//
// The file, line by line ('#' starts a comment, blank lines are skipped):
//
//   frame N                       the lines below give positions in source frame N (numbered as
//                                 the input's files; a video's first frame is 0)
//   point NAME X Y                the point NAME lies at (X, Y)
//   curve NAME X1 Y1 X2 Y2 ...    the polyline NAME runs through two or more points
//
// Positions are in pixels of the source frame: x to the right and y down, (0, 0) the centre of
// the top-left pixel. A name is a point or a curve throughout, and appears at most once per
// frame. A curve may have other vertex counts in other frames: the two polylines of a pair are
// resampled evenly to one count, so a curve can slide along itself.
//
// The same tracks may come as a tracker's export in the Shake track file format (see
// cli/ShakeTracks.cpp): a file whose first line starts with "TrackName" is read as that.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace quelmor::cli {

// Where a tracker export's positions land in the input: the export counts frames from 1 for the
// input's first frame (numbered `firstNumber`), and its y axis runs up from the bottom edge of a
// frame `height` pixels high.
struct TrackPlacement {
    int firstNumber = 0;
    int height = 0;
};

class PointTracks {
public:
    using Placement = TrackPlacement;

    // The most vertices a curve may have on one line.
    static constexpr int kMostCurvePoints = 2048;

    struct Track {
        std::string name;
        bool curve = false;
        int line = 0; // where the name first appears
        // Per frame number, the positions x0, y0, x1, y1, ...
        std::map<int, std::vector<float>> positions;
    };

    // Throws MediaError naming the file (`origin`), the line and what was expected there; a text
    // with no point or curve is refused too. `placement` is used only by a tracker export.
    static PointTracks Parse(const std::string& text, const std::string& origin,
                             const Placement& placement = {});
    static PointTracks Load(const std::string& path, const Placement& placement = {});
    // Reads a Shake track file: every track becomes a point. Throws as Parse does.
    static PointTracks ParseShakeTracks(const std::string& text, const std::string& origin,
                                        const Placement& placement);

    const std::vector<Track>& Tracks() const { return tracks_; }
    // The tracks with positions in both frames, in the order of the file.
    std::vector<const Track*> Between(int frameA, int frameB) const;
    // The lowest and highest frame numbers named, and the line of each.
    int FirstFrame() const { return firstFrame_; }
    int LastFrame() const { return lastFrame_; }
    int FirstFrameLine() const { return firstFrameLine_; }
    int LastFrameLine() const { return lastFrameLine_; }

private:
    std::vector<Track> tracks_;
    int firstFrame_ = 0, lastFrame_ = 0;
    int firstFrameLine_ = 0, lastFrameLine_ = 0;
};

// The point pairs of one track from frame A to frame B: a point gives one pair; a curve gives
// both polylines resampled evenly to about one point per pixel of the first (at least 2, at most
// kMostCurvePoints). Outputs are xA, yA, xB, yB of equal length.
void TrackPairs(const PointTracks::Track& track, int frameA, int frameB, std::vector<float>& xA,
                std::vector<float>& yA, std::vector<float>& xB, std::vector<float>& yB);

} // namespace quelmor::cli
