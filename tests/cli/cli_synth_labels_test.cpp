// Where the synthetic clip's objects are: the label image follows each object along its path and
// agrees with the picture about where an object ends.
#include <gtest/gtest.h>

#include <cmath>

#include "cli/Synth.h"

namespace quelmor::cli {
namespace {

struct Centroid {
    double x = 0.0, y = 0.0;
    int count = 0;
};

Centroid CentroidOf(const MediaFrame& labels, int label) {
    Centroid c;
    for (int y = 0; y < labels.format.height; ++y)
        for (int x = 0; x < labels.format.width; ++x)
            if (labels.Row<std::uint8_t>(y)[x] == label) {
                c.x += x;
                c.y += y;
                ++c.count;
            }
    if (c.count) {
        c.x /= c.count;
        c.y /= c.count;
    }
    return c;
}

TEST(SynthLabelsTest, TheFrontObjectMovesAlongItsPath) {
    // The star is in front of everything and stays inside the picture: its centre starts at
    // (0.30, 0.80) frame heights and moves by (0.045, -0.022) per frame.
    SynthSettings s;
    s.width = 320;
    s.height = 180;
    MediaFrame labels;
    for (double time : {0.0, 0.5, 2.0}) {
        RenderSynthLabels(s, time, labels);
        ASSERT_EQ(labels.format.channels, 1);
        const Centroid star = CentroidOf(labels, 1);
        ASSERT_GT(star.count, 100) << time;
        // Pixel x holds the point x + 0.5.
        EXPECT_NEAR(star.x + 0.5, (0.30 + 0.045 * time) * s.height, 0.5) << time;
        EXPECT_NEAR(star.y + 0.5, (0.80 - 0.022 * time) * s.height, 0.5) << time;
    }
}

TEST(SynthLabelsTest, EveryObjectIsSeenAndLabelsStayInRange) {
    SynthSettings s;
    MediaFrame labels;
    RenderSynthLabels(s, 1.0, labels);
    int seen[kSynthObjects + 1] = {};
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x < s.width; ++x) {
            const int label = labels.Row<std::uint8_t>(y)[x];
            ASSERT_LE(label, kSynthObjects);
            ++seen[label];
        }
    for (int label = 0; label <= kSynthObjects; ++label)
        EXPECT_GT(seen[label], 50) << "label " << label;
}

TEST(SynthLabelsTest, LabelsChangeWhereThePictureHasAnEdge) {
    // Across a label boundary the picture changes from one texture to another; inside one
    // object's area it is smooth. Compare the mean colour step across boundaries with the mean
    // step between neighbours of one label.
    SynthSettings s;
    s.sample = SampleType::Float;
    MediaFrame labels, picture;
    RenderSynthLabels(s, 1.5, labels);
    RenderSynthFrame(s, 1.5, picture);
    double across = 0.0, within = 0.0;
    int acrossCount = 0, withinCount = 0;
    for (int y = 0; y < s.height; ++y)
        for (int x = 0; x + 1 < s.width; ++x) {
            const float* p = picture.Row<float>(y) + 3 * x;
            double step = 0.0;
            for (int c = 0; c < 3; ++c)
                step += std::fabs(p[c + 3] - p[c]);
            if (labels.Row<std::uint8_t>(y)[x] != labels.Row<std::uint8_t>(y)[x + 1]) {
                across += step;
                ++acrossCount;
            } else {
                within += step;
                ++withinCount;
            }
        }
    ASSERT_GT(acrossCount, 0);
    EXPECT_GT(across / acrossCount, 3.0 * within / withinCount);
}

} // namespace
} // namespace quelmor::cli
