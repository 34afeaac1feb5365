// FillHolesWhereNeeded fills only the holes a caller will read: where `needed` is non-zero it must
// give the bytes of FillHoles, known pixels stay as FillHoles leaves them, and holes that are not
// needed and lie away from the needed ones keep their old values.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/Flow.h"

#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>

using namespace quelmor::test;

namespace {

using Marker = std::function<void(DQImage& image)>;

void Put(DQImage& image, int x, int y, double value) {
    if (x >= 0 && y >= 0 && x < image.width && y < image.height) SetElement(image, x, y, 0, value);
}

void Disc(DQImage& image, int cx, int cy, int r, double value = 255.0) {
    for (int y = cy - r; y <= cy + r; ++y)
        for (int x = cx - r; x <= cx + r; ++x)
            if ((x - cx) * (x - cx) + (y - cy) * (y - cy) <= r * r) Put(image, x, y, value);
}

void Block(DQImage& image, int x0, int y0, int x1, int y1, double value = 255.0) {
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x)
            Put(image, x, y, value);
}

const struct {
    const char* name;
    Marker holes;
} kHoleLayouts[] = {
    {"a few blobs",
     [](DQImage& h) {
         Disc(h, h.width / 5, h.height / 4, 2);
         Disc(h, h.width / 2, h.height / 2, 6);
         Disc(h, 4 * h.width / 5, 2 * h.height / 3, 9);
     }},
    // The case the layers make: everything is a hole but one object.
    {"all but an object",
     [](DQImage& h) {
         Block(h, 0, 0, h.width, h.height);
         Disc(h, h.width / 2, h.height / 2, h.height / 4, 0.0);
     }},
    {"every border",
     [](DQImage& h) {
         Block(h, 0, 0, 3, h.height);
         Block(h, h.width - 2, 0, h.width, h.height);
         Block(h, 0, h.height - 4, h.width, h.height);
     }},
};

const struct {
    const char* name;
    Marker needed;
} kNeededLayouts[] = {
    {"nothing", [](DQImage&) {}},
    {"everything", [](DQImage& n) { Block(n, 0, 0, n.width, n.height); }},
    {"a ring around the object",
     [](DQImage& n) {
         Disc(n, n.width / 2, n.height / 2, n.height / 4 + 4);
         Disc(n, n.width / 2, n.height / 2, n.height / 4 - 3, 0.0);
     }},
    {"one pixel", [](DQImage& n) { Put(n, n.width / 2 + 3, n.height / 2 - 1, 255.0); }},
    {"a corner and a far edge",
     [](DQImage& n) {
         Block(n, 0, 0, 7, 5);
         Block(n, n.width - 1, n.height / 3, n.width, n.height / 3 + 9);
     }},
};

// Every needed hole and every known pixel as FillHoles makes them; every other pixel either kept
// or as FillHoles makes it.
void ExpectNeededPixelsAsFillHoles(const DQImage& original, DQImage& holes, const DQImage& needed) {
    DQImagePtr whole = Duplicate(original);
    FillHoles(whole.get(), &holes, nullptr);
    DQImagePtr reference;
    ForWorkerCounts(
        [&](int workers) {
            SCOPED_TRACE(::testing::Message() << workers << " workers");
            DQImagePtr part = Duplicate(original);
            FillHolesWhereNeeded(part.get(), &holes, &needed, nullptr);
            int wrong = 0;
            for (int y = 0; y < part->height; ++y)
                for (int x = 0; x < part->width; ++x) {
                    const bool must =
                        ElementAt(holes, x, y, 0) == 0.0 || ElementAt(needed, x, y, 0) != 0.0;
                    for (int c = 0; c < part->channels; ++c) {
                        const float got = At(*part, x, y, c);
                        const float want = At(*whole, x, y, c);
                        const bool same = got == want || (std::isnan(got) && std::isnan(want));
                        const bool kept = got == At(original, x, y, c);
                        if (!same && (must || !kept) && ++wrong <= 3)
                            ADD_FAILURE() << "pixel " << x << ", " << y << " channel " << c << ": "
                                          << got << " against " << want;
                    }
                }
            EXPECT_EQ(wrong, 0);
            if (!reference)
                reference = std::move(part);
            else
                EXPECT_TRUE(SamePixels(*part, *reference)) << "differs from one worker";
        },
        {1, 2, 3});
}

TEST(FillHolesWhereNeeded, NeededHolesAndKnownPixelsAsTheWholeFill) {
    for (const auto& holeLayout : kHoleLayouts)
        for (const auto& neededLayout : kNeededLayouts)
            for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT}) {
                SCOPED_TRACE(::testing::Message() << holeLayout.name << ", needed "
                                                  << neededLayout.name << ", type " << type);
                const DQImagePtr original = PatternImage(131, 87, 4, type, 11);
                DQImagePtr holes = MakeImage(131, 87, 1, DQ_UCHAR, Fill(0.0));
                holeLayout.holes(*holes);
                DQImagePtr needed = MakeImage(131, 87, 1, DQ_UCHAR, Fill(0.0));
                neededLayout.needed(*needed);
                ExpectNeededPixelsAsFillHoles(*original, *holes, *needed);
            }
}

// Mattes of other element types, soft values and not-a-number mark what is needed alike.
TEST(FillHolesWhereNeeded, NeededImagesOfEveryType) {
    const struct {
        const char* name;
        int channels, type, holesType, neededType;
        double value;
    } cases[] = {{"16-bit needed", 3, DQ_USHORT, DQ_UCHAR, DQ_USHORT, 1.0},
                 {"float needed, a trace", 1, DQ_FLOAT, DQ_USHORT, DQ_FLOAT, 1e-6},
                 {"float needed, not a number", 2, DQ_UCHAR, DQ_FLOAT, DQ_FLOAT,
                  std::numeric_limits<double>::quiet_NaN()}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const DQImagePtr original = PatternImage(96, 70, c.channels, c.type, 4);
        DQImagePtr holes = MakeImage(96, 70, 1, c.holesType, Fill(0.0));
        Block(*holes, 0, 0, 96, 70, 1.0);
        Disc(*holes, 48, 35, 15, 0.0);
        DQImagePtr needed = MakeImage(96, 70, 1, c.neededType, Fill(0.0));
        Disc(*needed, 48, 35, 19, c.value);
        ExpectNeededPixelsAsFillHoles(*original, *holes, *needed);
        // The needed ring is a hole: something must have been filled there.
        DQImagePtr part = Duplicate(*original);
        FillHolesWhereNeeded(part.get(), holes.get(), needed.get(), nullptr);
        EXPECT_FALSE(SamePixels(*part, *original));
    }
}

// The point of the form: holes on rows and columns away from every needed hole are not written,
// and with no needed hole an integer image is not touched at all.
TEST(FillHolesWhereNeeded, LeavesHolesAwayFromTheNeededOnes) {
    for (int type : {DQ_UCHAR, DQ_USHORT}) {
        SCOPED_TRACE(::testing::Message() << "type " << type);
        const DQImagePtr original = PatternImage(200, 150, 4, type, 8);
        DQImagePtr holes = MakeImage(200, 150, 1, DQ_UCHAR, Fill(0.0));
        Block(*holes, 0, 0, 200, 150);
        Block(*holes, 90, 60, 110, 80, 0.0);
        DQImagePtr needed = MakeImage(200, 150, 1, DQ_UCHAR, Fill(0.0));
        Block(*needed, 85, 55, 115, 85);

        DQImagePtr part = Duplicate(*original);
        FillHolesWhereNeeded(part.get(), holes.get(), needed.get(), nullptr);
        DQImagePtr whole = Duplicate(*original);
        FillHoles(whole.get(), holes.get(), nullptr);
        for (const auto& [x, y] :
             {std::pair{0, 0}, std::pair{199, 149}, std::pair{100, 10}, std::pair{10, 70}}) {
            SCOPED_TRACE(::testing::Message() << "pixel " << x << ", " << y);
            for (int c = 0; c < 4; ++c) {
                EXPECT_EQ(At(*part, x, y, c), At(*original, x, y, c));
                EXPECT_NE(At(*whole, x, y, c), At(*original, x, y, c)) << "the pattern is filled";
            }
        }
        DQImagePtr none = MakeImage(200, 150, 1, DQ_UCHAR, Fill(0.0));
        Block(*none, 95, 65, 105, 75); // needed, but known
        DQImagePtr untouched = Duplicate(*original);
        FillHolesWhereNeeded(untouched.get(), holes.get(), none.get(), nullptr);
        EXPECT_TRUE(SamePixels(*untouched, *original));
    }
}

TEST(FillHolesWhereNeeded, RefusesANeededImageOfAnotherLayout) {
    const DQImagePtr original = PatternImage(40, 30, 4, DQ_UCHAR, 2);
    DQImagePtr holes = MakeImage(40, 30, 1, DQ_UCHAR, Fill(0.0));
    Disc(*holes, 20, 15, 4);
    const struct {
        const char* name;
        DQImagePtr needed;
    } cases[] = {{"other size", MakeImage(41, 30, 1, DQ_UCHAR, Fill(255.0))},
                 {"two channels", MakeImage(40, 30, 2, DQ_UCHAR, Fill(255.0))},
                 {"none", nullptr}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr image = Duplicate(*original);
        EXPECT_EQ(ThrownBy([&] {
                      FillHolesWhereNeeded(image.get(), holes.get(), c.needed.get(), nullptr);
                  }),
                  kDQErrBadArgument);
        EXPECT_TRUE(SamePixels(*image, *original));
    }
}

} // namespace
