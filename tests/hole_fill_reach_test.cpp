// FillHoles computes only near the holes: how many pixels it forms, for hole layouts whose reach
// is known, and that the fill of such layouts is the whole-frame fill's.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/Flow.h"
#include "flow/HoleFillNear.h"

#include <functional>

using namespace quelmor::test;

namespace {

void Block(DQImage& holes, int x0, int y0, int x1, int y1) {
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            SetElement(holes, x, y, 0, 255.0);
}

// The smoothing of level 0 reaches 5 pixels either way, and a formed pixel that is a hole reads
// the next level; a layout's level-0 reach is bounded by its holes grown by that much, plus
// what the joining of close runs adds.
TEST(FillHolesReach, FormsPixelsOnlyNearTheHoles) {
    const int width = 400, height = 300;
    const struct {
        const char* name;
        std::function<void(DQImage&)> mark;
        double maxLevelZeroShare; // of the frame
    } cases[] = {
        // Thin strips at both ends of every row, as an inverse warp leaves them where a frame
        // zooms: the rows' middles are far from any hole.
        {"both ends of every row",
         [&](DQImage& h) {
             Block(h, 0, 0, 2, height);
             Block(h, width - 3, 0, width, height);
         },
         0.10},
        {"a pixel near the left and one near the right end of one row",
         [&](DQImage& h) {
             Block(h, 10, 150, 11, 151);
             Block(h, 380, 150, 381, 151);
         },
         0.02},
        {"a line of far-apart dots",
         [&](DQImage& h) {
             for (int x = 20; x < width; x += 60)
                 Block(h, x, 100, x + 1, 101);
         },
         0.02},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const DQImagePtr original = PatternImage(width, height, 4, DQ_UCHAR, 11);
        DQImagePtr holes = MakeImage(width, height, 1, DQ_UCHAR, Fill(0.0));
        c.mark(*holes);
        DQImagePtr near = Duplicate(*original);
        DQFillReach reach;
        FillHolesNearHoles(near.get(), holes.get(), nullptr, nullptr, &reach);
        EXPECT_GT(reach.levelZero, 0);
        EXPECT_LE(static_cast<double>(reach.levelZero), c.maxLevelZeroShare * width * height);
        EXPECT_GE(reach.allLevels, reach.levelZero);
        DQImagePtr full = Duplicate(*original);
        FillHolesFullFrame(full.get(), holes.get(), nullptr);
        EXPECT_TRUE(SamePixels(*near, *full));
    }
}

} // namespace
