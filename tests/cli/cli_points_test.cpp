// Motion given by hand: the points file, the true points of the synthetic clip, and retimes
// moved by points end to end.
#include <gtest/gtest.h>

#include <cmath>
#include <fstream>

#include "CliTestSupport.h"
#include "cli/Media.h"
#include "cli/PointTracks.h"
#include "cli/Score.h"
#include "cli/Synth.h"

namespace quelmor::cli {
namespace {

TEST(PointTracksTest, BadFilesAreRefusedWithTheLineAndWhatWasExpected) {
    struct Case {
        const char* name;
        const char* text;
        const char* expected; // part of the message
    };
    const Case cases[] = {
        {"unknown word", "frame 0\npont a 1 2\n", "f line 2: expected \"frame\", \"point\" or"},
        {"point before a frame", "# header\n\npoint a 1 2\n",
         "f line 3: expected a \"frame N\" line before the first point"},
        {"frame without number", "frame\n", "f line 1: expected \"frame N\" with a whole"},
        {"fractional frame", "frame 1.5\n", "f line 1: expected \"frame N\" with a whole"},
        {"frame with more", "frame 2 3\n", "f line 1: expected \"frame N\""},
        {"point short of y", "frame 0\npoint a 1\n", "f line 2: expected \"point NAME X Y\""},
        {"point with three numbers", "frame 0\npoint a 1 2 3\n",
         "f line 2: expected \"point NAME X Y\""},
        {"point without name", "frame 0\npoint\n", "f line 2: expected \"point NAME X Y\""},
        {"number that is not one", "frame 0\npoint a 1 2x\n",
         "f line 2: expected a number for y of a, got \"2x\""},
        {"not finite", "frame 0\npoint a nan 2\n", "f line 2: expected a number for x of a"},
        {"curve of one point", "frame 0\ncurve c 1 2\n",
         "f line 2: expected \"curve NAME X1 Y1 X2 Y2 ...\" with two or more points"},
        {"curve of odd count", "frame 0\ncurve c 1 2 3 4 5\n",
         "f line 2: expected \"curve NAME X1 Y1 X2 Y2 ...\""},
        {"name twice in a frame", "frame 0\npoint a 1 2\nframe 1\nframe 0\npoint a 3 4\n",
         "f line 5: a is given twice in frame 0 (first on line 2)"},
        {"point then curve", "frame 0\npoint a 1 2\nframe 1\ncurve a 1 2 3 4\n",
         "f line 4: a is a point on line 2, expected that here too"},
        {"nothing in it", "# only a comment\nframe 3\n", "f holds no point or curve"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        try {
            PointTracks::Parse(c.text, "f");
            ADD_FAILURE() << "accepted";
        } catch (const MediaError& e) {
            EXPECT_NE(std::string(e.what()).find(c.expected), std::string::npos) << e.what();
        }
    }
    std::string tooLong = "frame 0\ncurve c";
    for (int i = 0; i <= PointTracks::kMostCurvePoints; ++i)
        tooLong += " 1 2";
    EXPECT_THROW(PointTracks::Parse(tooLong, "f"), MediaError);
}

TEST(PointTracksTest, NamesInTwoFramesMakePairs) {
    const PointTracks tracks = PointTracks::Parse(R"(# two frames
frame 4
point a 10 20      # comment after a line
curve edge 0 0 4 0 4 3
point only4 1 1
frame 2
curve edge 1 0  6 0
point a 12.5 19
)",
                                                  "f");
    EXPECT_EQ(tracks.FirstFrame(), 2);
    EXPECT_EQ(tracks.LastFrame(), 4);
    EXPECT_EQ(tracks.FirstFrameLine(), 6);
    EXPECT_EQ(tracks.LastFrameLine(), 2);
    const auto between = tracks.Between(4, 2);
    ASSERT_EQ(between.size(), 2u);
    EXPECT_EQ(between[0]->name, "a"); // in the order of the file
    EXPECT_EQ(between[1]->name, "edge");
    EXPECT_EQ(tracks.Between(4, 3).size(), 0u);
    EXPECT_EQ(tracks.Between(4, 4).size(), 3u) << "a frame with itself: every name there";

    std::vector<float> xA, yA, xB, yB;
    TrackPairs(*between[0], 4, 2, xA, yA, xB, yB);
    EXPECT_EQ(xA, std::vector<float>{10});
    EXPECT_EQ(yB, std::vector<float>{19});
    // The curve of length 7 in frame 4 gives 8 points, both curves evenly resampled: the second,
    // a straight line of length 5, slides along itself.
    TrackPairs(*between[1], 4, 2, xA, yA, xB, yB);
    ASSERT_EQ(xA.size(), 8u);
    ASSERT_EQ(xB.size(), 8u);
    EXPECT_EQ(xA.front(), 0.0f);
    EXPECT_EQ(yA.back(), 3.0f);
    for (size_t i = 0; i < xB.size(); ++i) {
        EXPECT_NEAR(xB[i], 1.0f + 5.0f * float(i) / 7.0f, 1e-3f) << i;
        EXPECT_EQ(yB[i], 0.0f);
    }
}

TEST(SynthPointsTest, TruePointsFollowTheirObjects) {
    SynthSettings s;
    s.width = 160;
    s.height = 90;
    s.frames = 4;
    // Each object, the background too, has seen points.
    const auto at0 = SynthTruePoints(s, 0.0);
    for (const char* object : {"star.", "disc.", "card.", "tile.", "ground."})
        EXPECT_TRUE(std::any_of(at0.begin(), at0.end(), [&](const SynthPoint& p) {
            return p.name.starts_with(object);
        })) << object;
    // A point's colour is its object's colour there: sampled where the points say, frames 0 and
    // 3 agree; sampled where they were in frame 0, they do not.
    MediaFrame f0, f3;
    RenderSynthFrame(s, 0.0, f0);
    RenderSynthFrame(s, 3.0, f3);
    const auto at3 = SynthTruePoints(s, 3.0);
    const auto colour = [](const MediaFrame& f, double x, double y, int c) {
        return double(f.Row<std::uint8_t>(int(std::lround(y)))[3 * int(std::lround(x)) + c]);
    };
    double followed = 0.0, stayed = 0.0;
    int n = 0;
    for (const SynthPoint& p : at0)
        for (const SynthPoint& q : at3)
            if (p.name == q.name)
                for (int c = 0; c < 3; ++c, ++n) {
                    followed += std::fabs(colour(f0, p.x, p.y, c) - colour(f3, q.x, q.y, c));
                    stayed += std::fabs(colour(f0, p.x, p.y, c) - colour(f3, p.x, p.y, c));
                }
    ASSERT_GT(n, 40);
    EXPECT_LT(followed / n, 12.0);
    EXPECT_GT(stayed / n, 2.0 * followed / n);
    // The file form of the same points reads back.
    const PointTracks tracks = PointTracks::Parse(SynthPointsText(s), "synth");
    EXPECT_EQ(tracks.FirstFrame(), 0);
    EXPECT_EQ(tracks.LastFrame(), 3);
    EXPECT_EQ(tracks.Between(0, 0).size(), at0.size());
}

class PointsCommandTest : public test::FolderTest {
protected:
    void Write(const std::string& name, const std::string& text) {
        std::ofstream(In(name)) << text;
    }
    double Score(const std::string& result) {
        auto clip = OpenMedia(In(result));
        auto truth = OpenMedia(In("true_c.%04d.png"));
        return ScoreClips(*clip, *truth).psnr;
    }
};

TEST_F(PointsCommandTest, PointsAloneMoveTheClipAsTheTruthDoes) {
    Run("synth @c.%04d.png --frames 4 --size 160x90 --steps 4 --points @true.txt --quiet");
    const std::string retime = "retime @c.%04d.png @OUT.%04d.png --speed 0.25 --quiet";
    const auto with = [&](const std::string& out, const std::string& more) {
        std::string line = retime;
        line.replace(line.find("OUT"), 3, out);
        Run(line + more);
        return Score(out + ".%04d.png");
    };
    const double points = with("points", " --motion points --points @true.txt");
    const double seeded = with("seeded", " --points @true.txt");
    const double flow = with("flow", "");
    const double none = with("none", " --quality none");
    EXPECT_GT(points, none + 2.0) << "points " << points << ", no motion " << none;
    EXPECT_GT(points, flow - 2.0) << "points " << points << ", flow " << flow;
    EXPECT_GT(seeded, flow - 0.5) << "seeded " << seeded << ", flow " << flow;
}

TEST_F(PointsCommandTest, GeometryIsDrawnWhereItIsAtTheMoment) {
    test::WriteSynthClip(In("c.%04d.png"), 3, SampleType::U8);
    Write("p.txt", "frame 0\npoint a 20 20\nframe 1\npoint a 24 30\n");
    Run("retime @c.%04d.png @shown.%04d.png --speed 0.5 --points @p.txt --show-geometry --quiet");
    Run("retime @c.%04d.png @plain.%04d.png --speed 0.5 --points @p.txt --quiet");
    auto shown = OpenMedia(In("shown.%04d.png"));
    auto plain = OpenMedia(In("plain.%04d.png"));
    MediaFrame s, p;
    shown->Read(1, s); // source time 0.5: the point is halfway, at (22, 25)
    plain->Read(1, p);
    const auto pixel = [](const MediaFrame& f, int x, int y) {
        const std::uint8_t* q = f.Row<std::uint8_t>(y) + f.format.channels * x;
        return std::vector<int>{q[0], q[1], q[2]};
    };
    const std::vector<int> yellow = {255, 230, 0};
    for (auto [x, y] : {std::pair{22, 25}, std::pair{19, 25}, std::pair{22, 28}}) {
        EXPECT_EQ(pixel(s, x, y), yellow) << x << "," << y;
        EXPECT_NE(pixel(p, x, y), yellow) << x << "," << y;
    }
    EXPECT_EQ(pixel(s, 40, 5), pixel(p, 40, 5)) << "only the cross is drawn";
}

TEST_F(PointsCommandTest, BadPointsAreRefusedBeforeAnythingIsWritten) {
    test::WriteSynthClip(In("c.%04d.png"), 3, SampleType::U8);
    Write("bad.txt", "frame 0\npoint a 1 2\nframe 1\npoint a 1 two\n");
    Write("late.txt", "frame 0\npoint a 1 2\n\nframe 7\npoint a 1 2\n");
    struct Case {
        const char* args;
        int status;
        const char* message;
    };
    const Case cases[] = {
        {"--motion points", 2, "--motion points needs the points to move by"},
        {"--show-geometry", 2, "--show-geometry draws the points of --points FILE"},
        {"--motion shapes --points @bad.txt", 2, "motion"},
        {"--points @bad.txt", 1, "bad.txt line 4: expected a number for y of a, got \"two\""},
        {"--points @late.txt", 1, "late.txt line 4: frame 7 lies outside the input's frames 0-2"},
        {"--points @missing.txt", 1, "cannot read the points file"},
    };
    const auto before = test::FolderState(dir_);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.args);
        auto r = test::RunQuelmor(
            Args(std::string("retime @c.%04d.png @o.%04d.png --speed 0.5 ") + c.args));
        EXPECT_EQ(r.status, c.status);
        EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
        EXPECT_EQ(test::FolderState(dir_), before);
    }
}

} // namespace
} // namespace quelmor::cli
