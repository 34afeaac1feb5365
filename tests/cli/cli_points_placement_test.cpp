// The synthetic clip retimed from the true motion of a few points of each object: every object of
// every in-between frame lies where the truth has it, within a pixel. The place of an object in a
// frame is measured as the shift that best lays the true frame over it, on the object's inside.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>

#include "CliTestSupport.h"
#include "cli/Media.h"
#include "cli/Synth.h"

namespace quelmor::cli {
namespace {

constexpr int kWidth = 320;
constexpr int kHeight = 180;
constexpr int kFrames = 4;
constexpr int kSteps = 4; // output frames per source frame
// Pixels this close to another object or to the frame's edge are left out of an object's inside.
constexpr int kMargin = 3;
// The widest shift searched, in pixels.
constexpr int kReach = 4;

struct Shift {
    double dx = 0.0, dy = 0.0;
    int pixels = 0;
    double Length() const { return std::hypot(dx, dy); }
};

// Colour channel c of `frame` at (x, y), bilinearly between pixel centres.
double Sample(const MediaFrame& frame, double x, double y, int c) {
    const int x0 = int(std::floor(x)), y0 = int(std::floor(y));
    const double fx = x - x0, fy = y - y0;
    const int channels = frame.format.channels;
    const auto at = [&](int px, int py) {
        return double(frame.Row<std::uint8_t>(py)[channels * px + c]);
    };
    return (at(x0, y0) * (1 - fx) + at(x0 + 1, y0) * fx) * (1 - fy) +
           (at(x0, y0 + 1) * (1 - fx) + at(x0 + 1, y0 + 1) * fx) * fy;
}

// The inside of the object `label`: pixels whose every neighbour within kMargin has that label,
// away from the frame's edge, at most about 4000 of them spread evenly.
std::vector<std::pair<int, int>> InsideOf(const MediaFrame& labels, int label) {
    std::vector<std::pair<int, int>> inside;
    const int edge = kMargin + kReach + 1;
    for (int y = edge; y < kHeight - edge; ++y)
        for (int x = edge; x < kWidth - edge; ++x) {
            bool all = true;
            for (int dy = -kMargin; dy <= kMargin && all; ++dy)
                for (int dx = -kMargin; dx <= kMargin && all; ++dx)
                    all = labels.Row<std::uint8_t>(y + dy)[x + dx] == label;
            if (all) inside.push_back({x, y});
        }
    const size_t stride = inside.size() / 4000 + 1;
    std::vector<std::pair<int, int>> kept;
    for (size_t i = 0; i < inside.size(); i += stride)
        kept.push_back(inside[i]);
    return kept;
}

// The shift d for which `truth` moved by d matches `frame` best over the inside of the object
// `label`, by least squares: from no shift, step to the best of the eight neighbours while one is
// better, with steps of 1, 1/2, 1/4 and 1/8 pixel.
Shift PlaceOf(const MediaFrame& frame, const MediaFrame& truth, const MediaFrame& labels,
              int label) {
    const std::vector<std::pair<int, int>> inside = InsideOf(labels, label);
    const auto cost = [&](double dx, double dy) {
        double sum = 0.0;
        for (auto [x, y] : inside)
            for (int c = 0; c < 3; ++c) {
                const double d = double(frame.Row<std::uint8_t>(y)[frame.format.channels * x + c]) -
                                 Sample(truth, x - dx, y - dy, c);
                sum += d * d;
            }
        return sum;
    };
    Shift best;
    best.pixels = int(inside.size());
    if (inside.empty()) return best;
    double least = cost(0, 0);
    for (double step = 1.0; step >= 0.125; step *= 0.5)
        for (bool moved = true; moved;) {
            moved = false;
            const Shift from = best;
            for (int j = -1; j <= 1; ++j)
                for (int i = -1; i <= 1; ++i) {
                    const double dx = from.dx + i * step, dy = from.dy + j * step;
                    if ((i == 0 && j == 0) || std::fabs(dx) > kReach || std::fabs(dy) > kReach)
                        continue;
                    if (const double c = cost(dx, dy); c < least) {
                        least = c;
                        best.dx = dx;
                        best.dy = dy;
                        moved = true;
                    }
                }
        }
    return best;
}

const SynthSettings kSettings{
    .width = kWidth, .height = kHeight, .frames = kFrames, .truthSteps = kSteps};

TEST(PlacementMeasureTest, FindsAKnownShiftOfEveryObject) {
    // The true frame moved by a known amount, object by object: the measure gives that amount.
    const double time = 1.5;
    MediaFrame truth, labels;
    RenderSynthFrame(kSettings, time, truth);
    RenderSynthLabels(kSettings, time, labels);
    const std::pair<double, double> shifts[] = {{0, 0}, {1.25, -0.5}, {-2.375, 0.75}, {0.5, 3}};
    for (auto [sx, sy] : shifts) {
        MediaFrame moved = truth;
        for (int y = 1; y < kHeight - 1; ++y)
            for (int x = 1; x < kWidth - 1; ++x)
                for (int c = 0; c < 3; ++c) {
                    const double v = Sample(truth, std::clamp(x - sx, 0.0, kWidth - 1.001),
                                            std::clamp(y - sy, 0.0, kHeight - 1.001), c);
                    moved.Row<std::uint8_t>(y)[truth.format.channels * x + c] =
                        std::uint8_t(std::lround(v));
                }
        int measured = 0;
        for (int label = 0; label <= kSynthObjects; ++label) {
            SCOPED_TRACE(::testing::Message()
                         << "shift " << sx << "," << sy << " object " << label);
            const Shift s = PlaceOf(moved, truth, labels, label);
            if (s.pixels < 100) continue; // hardly seen at this moment
            ++measured;
            EXPECT_NEAR(s.dx, sx, 0.13);
            EXPECT_NEAR(s.dy, sy, 0.13);
        }
        EXPECT_GE(measured, kSynthObjects);
    }
}

class PointsPlacementTest : public test::FolderTest {
protected:
    void SetUp() override {
        FolderTest::SetUp();
        Run("synth @c.%04d.png --frames " + std::to_string(kFrames) + " --size " +
            std::to_string(kWidth) + "x" + std::to_string(kHeight) + " --steps " +
            std::to_string(kSteps) + " --points @true.txt --quiet");
    }
    // The retime of the clip to a quarter of its speed, with `options`, into out.%04d.png.
    void Retime(const std::string& options) {
        Run("retime @c.%04d.png @out.%04d.png --speed 0.25 --frames 0-" +
            std::to_string((kFrames - 1) * kSteps) + " --overwrite --quiet " + options);
    }
    // The worst distance of an object from its true place over the in-between frames, and the
    // count of (frame, object) measures.
    std::pair<double, int> WorstPlacement(std::string* report) {
        auto out = OpenMedia(In("out.%04d.png"));
        auto truth = OpenMedia(In("true_c.%04d.png"));
        double worst = 0.0;
        int measures = 0;
        for (int k = 0; k <= (kFrames - 1) * kSteps; ++k) {
            if (k % kSteps == 0) continue; // source frames come back as they are
            MediaFrame frame, right, labels;
            out->Read(k, frame);
            truth->Read(k, right);
            RenderSynthLabels(kSettings, double(k) / kSteps, labels);
            for (int label = 0; label <= kSynthObjects; ++label) {
                const Shift s = PlaceOf(frame, right, labels, label);
                if (s.pixels < 100) continue; // hardly seen at this moment
                ++measures;
                worst = std::max(worst, s.Length());
                if (report)
                    *report += "frame " + std::to_string(k) + " object " + std::to_string(label) +
                               ": (" + std::to_string(s.dx) + ", " + std::to_string(s.dy) + ")\n";
            }
        }
        return {worst, measures};
    }
};

TEST_F(PointsPlacementTest, TruePointsPlaceEveryObjectWithinAPixel) {
    struct Case {
        const char* name;
        const char* options;
    };
    const Case cases[] = {
        {"points alone", "--motion points --points @true.txt"},
        {"points alone, nearest", "--motion points --points @true.txt --interpolation nearest"},
        {"points alone, every layer",
         "--motion points --points @true.txt --matte @matte_c.%04d.png"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Retime(c.options);
        std::string report;
        const auto [worst, measures] = WorstPlacement(&report);
        std::printf("%s: worst placement %.3f px over %d objects in frames\n", c.name, worst,
                    measures);
        EXPECT_GE(measures, 9 * kSynthObjects) << report;
        EXPECT_LT(worst, 1.0) << report;
    }
}

} // namespace
} // namespace quelmor::cli
