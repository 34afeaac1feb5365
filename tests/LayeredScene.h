#pragma once
// The scene of the several-layer suites: a textured square (layer 0) moving right over a textured
// background (layer 1) moving left, its true picture and matte at any time, and measures of a
// result against the truth over parts of the frame.
#include "LayeredClipEngine.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

namespace quelmor::test {

constexpr int kWidth = 128;
constexpr int kHeight = 96;
constexpr int kSquare = 28;
constexpr int kSquareX = 40; // left edge at frame 0
constexpr int kSquareY = 34;
constexpr float kSquareSpeed = 6.0f;      // pixels per frame, to the right
constexpr float kBackgroundSpeed = -4.0f; // to the left

// Smooth textures, defined everywhere, so that shifted copies are exact.
inline float BackgroundAt(float x, float y, int c) {
    return 128.0f + 60.0f * std::sin(0.21f * x + 0.6f * c) * std::cos(0.17f * y - 0.3f * c) +
           30.0f * std::sin(0.05f * (x + 2.0f * y));
}
inline float SquareAt(float x, float y, int c) {
    return 128.0f + 90.0f * std::cos(0.4f * x - 0.2f * y + 1.1f * c);
}

// The scene at time t: the square's left edge, and whether a pixel lies inside the square.
inline float SquareLeft(float t) {
    return kSquareX + kSquareSpeed * t;
}
inline bool InSquare(int x, int y, float t) {
    const float left = SquareLeft(t);
    return x >= left && x < left + kSquare && y >= kSquareY && y < kSquareY + kSquare;
}

// The true picture at time t; with `layer` 1 the background alone, with 0 the square alone.
inline DQImagePtr Scene(float t, int layer = -1) {
    DQImagePtr image = DQMakeImage(kWidth, kHeight, 4, DQ_UCHAR);
    image->Clear();
    for (int y = 0; y < kHeight; ++y) {
        uint8_t* p = image->Row<uint8_t>(y);
        for (int x = 0; x < kWidth; ++x, p += 4) {
            const bool square = InSquare(x, y, t);
            if (layer == 0 && !square) continue;
            const bool front = square && layer != 1;
            for (int c = 0; c < 3; ++c) {
                const float v = front ? SquareAt(x - SquareLeft(t), y - kSquareY, c)
                                      : BackgroundAt(x - kBackgroundSpeed * t, y, c);
                p[c] = uint8_t(std::lround(std::clamp(v, 0.0f, 255.0f)));
            }
            p[3] = 255;
        }
    }
    return image;
}

inline DQImagePtr SquareMatte(float t) {
    DQImagePtr matte = DQMakeImage(kWidth, kHeight, 1, DQ_UCHAR);
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            matte->Row<uint8_t>(y)[x] = InSquare(x, y, t) ? 255 : 0;
    return matte;
}

inline void LoadClip(LayeredClipEngine& engine, int frames = 3) {
    ASSERT_EQ(engine.Init(), 0);
    engine.mattes.resize(1);
    for (int f = 0; f < frames; ++f) {
        engine.frames.push_back(Scene(float(f)));
        engine.mattes[0].push_back(SquareMatte(float(f)));
    }
}

// Mean absolute difference of the colour channels over the pixels that `where` selects.
inline double MeanError(const DQImage& got, const DQImage& want,
                        const std::function<bool(int, int)>& where) {
    double sum = 0.0;
    int count = 0;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            if (!where(x, y)) continue;
            for (int c = 0; c < 3; ++c)
                sum += std::fabs(At(got, x, y, c) - At(want, x, y, c));
            ++count;
        }
    return count ? sum / (3.0 * count) : 0.0;
}

// Pixels within `width` of the square's edge at time t, on either side, away from the frame's
// border where a warp must invent what enters.
inline std::function<bool(int, int)> EdgeBand(float t, int width) {
    return [=](int x, int y) {
        if (x < 8 || x >= kWidth - 8) return false;
        bool near = false, inside = InSquare(x, y, t);
        for (int dy = -width; dy <= width && !near; ++dy)
            for (int dx = -width; dx <= width && !near; ++dx)
                near = InSquare(x + dx, y + dy, t) != inside;
        return near;
    };
}

inline std::function<bool(int, int)> Inside(float t, int margin) {
    return [=](int x, int y) {
        const float left = SquareLeft(t);
        return x >= left + margin && x < left + kSquare - margin && y >= kSquareY + margin &&
               y < kSquareY + kSquare - margin;
    };
}

// Background pixels at time t that the square hides in exactly one of frames 0 and 1: the other
// frame saw them, so a layer completed from the other frame gets them right.
inline std::function<bool(int, int)> SeenOnce(float t) {
    return [=](int x, int y) {
        const bool hiddenA = InSquare(x + int(kBackgroundSpeed * t), y, 0.0f);
        const bool hiddenB = InSquare(x + int(kBackgroundSpeed * (t - 1.0f)), y, 1.0f);
        return hiddenA != hiddenB && x > 4 && x < kWidth - 4;
    };
}

// The background at time t away from the square, its edge and the frame's sides.
inline std::function<bool(int, int)> OpenBackground(float t) {
    return [=](int x, int y) {
        return x >= 8 && x < kWidth - 8 && !InSquare(x, y, t) && !EdgeBand(t, 3)(x, y);
    };
}

// Interpolations and warpings under which the background behind the square is repaired.
struct RepairCase {
    const char* name;
    long interpolation;
    int warping;
};
inline constexpr RepairCase kRepairCases[] = {
    {"blend, inverse", 1, 0}, {"blend, forward", 1, 2}, {"energy, smart", 2, 1}};

class LayerRoadTest : public ::testing::Test {
protected:
    void SetUp() override { WorkerScope::Set(3, kWidth, kHeight); }
    void TearDown() override { WorkerScope::Set(1, 0, 0); }
};

} // namespace quelmor::test
