// FillHoles computes each level only where the holes reach; FillHolesFullFrame computes every level
// over the whole frame. Both must give the same bytes for every hole layout, element type and
// worker count.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/Flow.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>

using namespace quelmor::test;

namespace {

using HoleLayout = std::function<void(DQImage& holes)>;

void Mark(DQImage& holes, int x, int y) {
    if (x >= 0 && y >= 0 && x < holes.width && y < holes.height) SetElement(holes, x, y, 0, 255.0);
}

void Disc(DQImage& holes, int cx, int cy, int r) {
    for (int y = cy - r; y <= cy + r; ++y)
        for (int x = cx - r; x <= cx + r; ++x)
            if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r) Mark(holes, x, y);
}

void Block(DQImage& holes, int x0, int y0, int x1, int y1) {
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            Mark(holes, x, y);
}

uint32_t NextRandom(uint32_t& state) {
    state = state * 1664525u + 1013904223u;
    return state >> 8;
}

const struct {
    const char* name;
    HoleLayout mark;
} kLayouts[] = {
    {"none", [](DQImage&) {}},
    {"one pixel", [](DQImage& h) { Mark(h, h.width / 2, h.height / 3); }},
    {"one pixel in the far corner", [](DQImage& h) { Mark(h, h.width - 1, h.height - 1); }},
    {"a few blobs",
     [](DQImage& h) {
         Disc(h, h.width / 5, h.height / 4, 1);
         Disc(h, h.width / 2, h.height / 2, 4);
         Disc(h, 4 * h.width / 5, 2 * h.height / 3, 9);
     }},
    {"one wide blob", [](DQImage& h) { Disc(h, h.width / 3, h.height / 2, h.height / 3); }},
    {"far apart on the same rows",
     [](DQImage& h) {
         Disc(h, 3, h.height / 2, 3);
         Disc(h, h.width - 4, h.height / 2 + 2, 3);
     }},
    {"every border and corner",
     [](DQImage& h) {
         Block(h, 0, 0, 3, h.height);
         Block(h, h.width - 2, 0, h.width, h.height);
         Block(h, 0, 0, h.width, 1);
         Block(h, 0, h.height - 4, h.width, h.height);
         Block(h, 0, 0, 12, 9);
         Block(h, h.width - 7, h.height - 11, h.width, h.height);
     }},
    {"corners only",
     [](DQImage& h) {
         Mark(h, 0, 0);
         Mark(h, h.width - 1, 0);
         Mark(h, 0, h.height - 1);
         Block(h, h.width - 3, h.height - 2, h.width, h.height);
     }},
    {"strip down one side", [](DQImage& h) { Block(h, h.width - 6, 0, h.width, h.height); }},
    {"ten percent scattered",
     [](DQImage& h) {
         uint32_t state = 7u;
         const int64_t count = static_cast<int64_t>(h.width) * h.height / 10;
         for (int64_t i = 0; i < count; ++i) {
             const int x = static_cast<int>(NextRandom(state) % static_cast<uint32_t>(h.width));
             const int y = static_cast<int>(NextRandom(state) % static_cast<uint32_t>(h.height));
             Mark(h, x, y);
         }
     }},
    {"all but one pixel",
     [](DQImage& h) {
         Block(h, 0, 0, h.width, h.height);
         SetElement(h, h.width / 4, h.height - 2 < 0 ? 0 : h.height - 2, 0, 0.0);
     }},
    {"all", [](DQImage& h) { Block(h, 0, 0, h.width, h.height); }},
};

const struct {
    int width, height;
} kSizes[] = {{173, 97}, {64, 64}, {31, 200}, {1, 45}, {45, 1}, {3, 2}};

// Both forms on copies of `original`; the bytes must agree, for one worker and for two.
void ExpectSameFill(const DQImage& original, DQImage& holes) {
    DQImagePtr reference;
    ForWorkerCounts(
        [&](int workers) {
            DQImagePtr full = Duplicate(original);
            DQImagePtr near = Duplicate(original);
            FillHolesFullFrame(full.get(), &holes, nullptr);
            FillHoles(near.get(), &holes, nullptr);
            EXPECT_TRUE(SamePixels(*near, *full));
            if (!reference)
                reference = std::move(full);
            else
                EXPECT_TRUE(SamePixels(*near, *reference)) << "differs from one worker";
        },
        {1, 2});
}

TEST(FillHolesNearHoles, SameBytesAsTheWholeFrameFill) {
    for (const auto& size : kSizes)
        for (const auto& layout : kLayouts)
            for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT}) {
                SCOPED_TRACE(::testing::Message() << size.width << "x" << size.height << ", "
                                                  << layout.name << ", type " << type);
                const DQImagePtr original = PatternImage(size.width, size.height, 4, type, 3);
                DQImagePtr holes = MakeImage(size.width, size.height, 1, DQ_UCHAR, Fill(0.0));
                layout.mark(*holes);
                ExpectSameFill(*original, *holes);
            }
}

// Channel counts, storage orders and holes images of other types take the same roads.
TEST(FillHolesNearHoles, SameBytesForEveryLayoutOfTheImages) {
    const struct {
        const char* name;
        int channels, type, holesType, bottomUp;
    } cases[] = {{"one channel", 1, DQ_UCHAR, DQ_UCHAR, 0},
                 {"three channels", 3, DQ_USHORT, DQ_UCHAR, 0},
                 {"two channels, bottom up", 2, DQ_FLOAT, DQ_UCHAR, 1},
                 {"16-bit holes", 4, DQ_UCHAR, DQ_USHORT, 0},
                 {"float holes", 4, DQ_USHORT, DQ_FLOAT, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const DQImagePtr original = PatternImage(120, 77, c.channels, c.type, 9, c.bottomUp);
        DQImagePtr holes = MakeImage(120, 77, 1, c.holesType, Fill(0.0));
        Disc(*holes, 30, 20, 6);
        Disc(*holes, 100, 70, 2);
        Block(*holes, 0, 40, 120, 42);
        ExpectSameFill(*original, *holes);
    }
}

// Values that arithmetic carries in its own way, not-a-number and infinity among the known pixels
// of a float image, and a hole marked by not-a-number, come out alike.
TEST(FillHolesNearHoles, SameBytesWithNotANumberAndInfinity) {
    const DQImagePtr original = PatternImage(90, 60, 2, DQ_FLOAT, 5);
    float* row = original->Row<float>(30);
    row[2 * 40] = std::numeric_limits<float>::quiet_NaN();
    row[2 * 44 + 1] = std::numeric_limits<float>::infinity();
    original->Row<float>(5)[2 * 80] = std::numeric_limits<float>::signaling_NaN();
    DQImagePtr holes = MakeImage(90, 60, 1, DQ_FLOAT, Fill(0.0));
    Disc(*holes, 42, 33, 3);
    Disc(*holes, 10, 10, 2);
    SetElement(*holes, 70, 50, 0, std::numeric_limits<double>::quiet_NaN());
    ExpectSameFill(*original, *holes);
}

} // namespace
