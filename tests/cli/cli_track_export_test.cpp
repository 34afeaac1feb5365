// A tracker's export in the Shake track file format as the points of a retime: positions turned
// from the lower-left corner with y up into the frame's pixel centres, frames counted from 1 for
// the input's first, and bad files refused with the line and what was expected.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <fstream>

#include "CliTestSupport.h"
#include "cli/Media.h"
#include "cli/PointTracks.h"

namespace quelmor::cli {
namespace {

constexpr PointTracks::Placement kPlacement{.firstNumber = 10, .height = 100};

TEST(ShakeTracksTest, PositionsLandOnTheInputsFramesAndPixels) {
    struct Expected {
        const char* track;
        int frame;
        float x, y;
    };
    struct Case {
        const char* name;
        const char* text;
        std::vector<Expected> positions;
        int firstFrame, firstLine, lastFrame, lastLine;
    };
    const Case cases[] = {
        {"header and correlation",
         "TrackName a\n   Frame   X   Y   Correlation\n   1.00  20.5  30.5  1.000\n"
         "   2.00  22.5  31.5  0.950\n",
         {{"a", 10, 20.0f, 69.0f}, {"a", 11, 22.0f, 68.0f}},
         10,
         3,
         11,
         4},
        {"two tracks, no header, no correlation, CRLF",
         "TrackName left eye\r\n3 0.5 99.5\r\n\r\nTrackName b\r\n2 100 0\r\n1 50 50\r\n",
         {{"left eye", 12, 0.0f, 0.0f}, {"b", 11, 99.5f, 99.5f}, {"b", 10, 49.5f, 49.5f}},
         10,
         6,
         12,
         2},
        {"frames beyond the clip's start are kept for the range check",
         "TrackName a\n0 10 10 1\n5 10 10 1\n",
         {{"a", 9, 9.5f, 89.5f}, {"a", 14, 9.5f, 89.5f}},
         9,
         2,
         14,
         3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const PointTracks tracks = PointTracks::Parse(c.text, "t.txt", kPlacement);
        size_t positions = 0;
        for (const auto& track : tracks.Tracks()) {
            EXPECT_FALSE(track.curve);
            positions += track.positions.size();
        }
        EXPECT_EQ(positions, c.positions.size());
        for (const Expected& e : c.positions) {
            const auto& list = tracks.Tracks();
            const auto track = std::find_if(list.begin(), list.end(),
                                            [&](const auto& t) { return t.name == e.track; });
            ASSERT_NE(track, list.end()) << e.track;
            ASSERT_TRUE(track->positions.count(e.frame)) << e.track << " " << e.frame;
            EXPECT_EQ(track->positions.at(e.frame), (std::vector<float>{e.x, e.y}))
                << e.track << " " << e.frame;
        }
        EXPECT_EQ(tracks.FirstFrame(), c.firstFrame);
        EXPECT_EQ(tracks.FirstFrameLine(), c.firstLine);
        EXPECT_EQ(tracks.LastFrame(), c.lastFrame);
        EXPECT_EQ(tracks.LastFrameLine(), c.lastLine);
    }
    // The plain format is still read as such.
    const PointTracks plain = PointTracks::Parse("frame 3\npoint a 1 2\n", "p.txt", kPlacement);
    EXPECT_EQ(plain.Tracks()[0].positions.at(3), (std::vector<float>{1.0f, 2.0f}));
}

TEST(ShakeTracksTest, BadFilesAreRefusedWithTheLineAndWhatWasExpected) {
    struct Case {
        const char* name;
        const char* text;
        const char* message;
    };
    const Case cases[] = {
        {"position first", "1 2 3\n",
         "t.txt line 1: expected \"TrackName NAME\" before the first position, got \"1 2 3\""},
        {"no name", "TrackName\n", "t.txt line 1: expected \"TrackName NAME\""},
        {"two columns", "TrackName a\n1 2\n",
         "t.txt line 2: expected \"FRAME X Y [CORRELATION]\", got \"1 2\""},
        {"five columns", "TrackName a\n  1 2 3 4 5\n",
         "t.txt line 2: expected \"FRAME X Y [CORRELATION]\""},
        {"a word for y", "TrackName a\n1 2 x\n",
         "t.txt line 2: expected a number for y of a, got \"x\""},
        {"a header after positions", "TrackName a\n1 2 3\nFrame X Y\n",
         "t.txt line 3: expected a number for the frame of a, got \"Frame\""},
        {"half a frame", "TrackName a\n1.5 2 3\n",
         "t.txt line 2: expected a whole frame number for a, got \"1.5\""},
        {"a frame twice", "TrackName a\n1 2 3\n\n1.00 4 5\n",
         "t.txt line 4: a is given twice in frame 1.00 (first on line 2)"},
        {"a track without positions", "TrackName a\nTrackName b\n1 2 3\n",
         "t.txt line 1: track a has no positions"},
        {"the last track without positions", "TrackName a\n1 2 3\nTrackName b\n",
         "t.txt line 3: track b has no positions"},
        {"a name again", "TrackName a\n1 2 3\nTrackName a\n2 2 3\n",
         "t.txt line 3: track a is named again (first on line 1)"},
        {"not a number at all", "TrackName a\n1 2 nan\n",
         "t.txt line 2: expected a number for y of a, got \"nan\""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            PointTracks::ParseShakeTracks(c.text, "t.txt", kPlacement);
            ADD_FAILURE() << "accepted";
        } catch (const MediaError& e) {
            EXPECT_NE(std::string(e.what()).find(c.message), std::string::npos) << e.what();
        }
    }
}

class TrackExportCommandTest : public test::FolderTest {
protected:
    // The points file of `synth --points` written again as a Shake track file for frames of
    // `height` lines whose first file is numbered 0; with `yUp` false the y positions are
    // written as they are, as a file with its y axis the wrong way round would have them.
    void WriteAsShakeTracks(const std::string& from, const std::string& to, int height,
                            bool yUp = true) {
        const PointTracks tracks = PointTracks::Load(In(from));
        std::ofstream out(In(to));
        for (const auto& track : tracks.Tracks()) {
            ASSERT_FALSE(track.curve);
            out << "TrackName " << track.name << "\n   Frame   X   Y   Correlation\n";
            for (const auto& [frame, xy] : track.positions) {
                char line[128];
                const double y = yUp ? double(height) - 0.5 - double(xy[1]) : double(xy[1]);
                std::snprintf(line, sizeof line, "   %d.00  %.17g  %.17g  1.000\n", frame + 1,
                              double(xy[0]) + 0.5, y);
                out << line;
            }
            out << "\n";
        }
    }
    std::vector<std::uint8_t> Pixels(const std::string& pattern, int frame) {
        MediaFrame f;
        OpenMedia(In(pattern))->Read(frame, f);
        return f.pixels;
    }
};

TEST_F(TrackExportCommandTest, AnExportMovesTheClipAsThePlainFileDoes) {
    Run("synth @c.%04d.png --frames 3 --size 160x90 --steps 2 --points @true.txt --quiet");
    ASSERT_TRUE(std::ifstream(In("c.0000.png")).good()) << "the clip's first file is numbered 0";
    WriteAsShakeTracks("true.txt", "shake.txt", 90);
    const std::string retime =
        "retime @c.%04d.png @OUT.%04d.png --speed 0.5 --motion points --quiet --points @";
    auto line = [&](const std::string& out, const std::string& points) {
        std::string l = retime + points;
        return l.replace(l.find("OUT"), 3, out);
    };
    Run(line("plain", "true.txt"));
    Run(line("shake", "shake.txt"));
    for (int frame = 0; frame < 5; ++frame)
        EXPECT_EQ(Pixels("plain.%04d.png", frame), Pixels("shake.%04d.png", frame)) << frame;
    // Read with its y axis the wrong way round, the same file moves the clip otherwise.
    WriteAsShakeTracks("true.txt", "upside.txt", 90, false);
    Run(line("upside", "upside.txt"));
    EXPECT_NE(Pixels("plain.%04d.png", 1), Pixels("upside.%04d.png", 1));
}

TEST_F(TrackExportCommandTest, BadExportsAreRefusedBeforeAnythingIsWritten) {
    Run("synth @c.%04d.png --frames 3 --size 64x36 --quiet");
    std::ofstream(In("bad.txt")) << "TrackName a\n1 2 3\n2 2 oops\n";
    std::ofstream(In("late.txt")) << "TrackName a\n1 2 3\n\nTrackName b\n4 2 3\n";
    struct Case {
        const char* points;
        const char* message;
    };
    const Case cases[] = {
        {"@bad.txt", "bad.txt line 3: expected a number for y of a, got \"oops\""},
        {"@late.txt", "late.txt line 5: frame 3 lies outside the input's frames 0-2"},
    };
    const auto before = test::FolderState(dir_);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.points);
        auto r = test::RunQuelmor(Args(std::string("retime @c.%04d.png @o.%04d.png --speed 0.5 "
                                                   "--motion points --points ") +
                                       c.points));
        EXPECT_EQ(r.status, 1);
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(test::FolderState(dir_), before);
    }
}

} // namespace
} // namespace quelmor::cli
