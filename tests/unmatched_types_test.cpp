// Images whose element type or channel count no typed loop handles: the dispatch throws the
// bad-argument code, drivers refuse them by their own contract, and image operations leave them
// as they were without throwing.
#include "ImagePatterns.h"
#include "TestSupport.h"
#include "engine/Mix.h"
#include "warp/Filters.h"
#include "warp/Warp.h"

#include <functional>
#include <string>

using namespace quelmor::test;

namespace {

// A 0-channel view over a small buffer: sizes set, no bytes per pixel.
struct NoChannels {
    uint8_t bytes[64] = {};
    DQImage image{bytes, 6, 4, 8, 0, DQ_UCHAR, 0};
};

// Runs `body` and returns the DQErr it threw, or -1.
int ThrownCode(const std::function<void()>& body) {
    try {
        body();
    } catch (DQErr code) {
        return code;
    }
    return -1;
}

} // namespace

TEST(Dispatch, UnmatchedTypeOrChannelsThrowsBadArgumentAndCallsNothing) {
    const struct {
        const char* name;
        int dataType, channels;
    } cases[] = {{"signed shorts", DQ_SHORT, 4}, {"doubles", DQ_DOUBLE, 1},
                 {"no channels", DQ_UCHAR, 0},   {"five channels", DQ_FLOAT, 5},
                 {"negative type", -1, 3},       {"type past the table", 9, 2},
                 {"both wrong", DQ_FIX16S, 7}};
    for (const auto& c : cases) {
        bool called = false;
        const auto both = [&]<class T, int C>() { called = true; };
        EXPECT_EQ(ThrownCode([&] { DQDispatchTypeChannels(c.dataType, c.channels, both); }),
                  kDQErrBadArgument)
            << c.name;
        EXPECT_FALSE(called) << c.name;
        if (!DQDispatchableType(c.dataType)) {
            EXPECT_EQ(
                ThrownCode([&] { DQDispatchType(c.dataType, [&]<class T>() { called = true; }); }),
                kDQErrBadArgument)
                << c.name;
        }
        if (!DQDispatchableChannels(c.channels)) {
            EXPECT_EQ(ThrownCode([&] { DQDispatchChannels<float>(c.channels, both); }),
                      kDQErrBadArgument)
                << c.name;
        }
        EXPECT_FALSE(called) << c.name;
    }
    int matched = 0;
    DQDispatchTypeChannels(DQ_USHORT, 3,
                           [&]<class T, int C>() { matched = DQTypeCode<T> * 10 + C; });
    EXPECT_EQ(matched, DQ_USHORT * 10 + 3);
}

TEST(UnmatchedImages, WarpInverseRefusesAndLeavesTheTarget) {
    DQImagePtr flow = Solid(6, 4, 2, DQ_FLOAT, 0.75f);
    DQImagePtr shorts = PatternImage(6, 4, 4, DQ_SHORT, 1);
    DQImagePtr shortTarget = PatternImage(6, 4, 4, DQ_SHORT, 2);
    DQImagePtr shortBefore = Duplicate(*shortTarget);
    EXPECT_EQ(DQWarpInverse(shortTarget.get(), shorts.get(), flow.get(), 1, nullptr, 1, 1.0f), 0);
    EXPECT_TRUE(SamePixels(*shortTarget, *shortBefore));

    NoChannels source, target;
    target.bytes[5] = 77;
    EXPECT_EQ(DQWarpInverse(&target.image, &source.image, flow.get(), 1, nullptr, 1, 1.0f), 0);
    EXPECT_EQ(target.bytes[5], 77);
}

TEST(UnmatchedImages, DriversThrowBadArgument) {
    DQImagePtr shorts = PatternImage(6, 4, 3, DQ_SHORT, 1);
    DQImagePtr other = PatternImage(6, 4, 3, DQ_SHORT, 2);
    DQImagePtr half = PatternImage(3, 2, 3, DQ_SHORT, 3);
    DQImagePtr flow = Solid(6, 4, 2, DQ_FLOAT, 0.5f);
    DQImagePtr bytes = PatternImage(3, 2, 3, DQ_UCHAR, 4);
    const struct {
        const char* name;
        std::function<void()> call;
    } cases[] = {
        {"resize", [&] { ResizeBilinear(half.get(), shorts.get()); }},
        {"resize into signed shorts", [&] { ResizeBilinear(half.get(), bytes.get()); }},
        {"dissolve", [&] { Dissolve(shorts.get(), other.get(), other.get(), 0.5f); }},
        {"blur along flow",
         [&] { DQBlurAlongFlow(shorts.get(), other.get(), flow.get(), 0, nullptr, 0, 1.0f); }},
    };
    for (const auto& c : cases) {
        DQImagePtr before = Duplicate(*shorts), halfBefore = Duplicate(*half);
        EXPECT_EQ(ThrownCode(c.call), kDQErrBadArgument) << c.name;
        EXPECT_TRUE(SamePixels(*shorts, *before)) << c.name;
        EXPECT_TRUE(SamePixels(*half, *halfBefore)) << c.name;
    }
}

TEST(UnmatchedImages, ImageOperationsLeaveThemAsTheyWere) {
    // Each operation runs on a target of an unhandled element type, and those that are written
    // out per channel count also on a target of five channels; none may throw or write.
    struct Layout {
        int dataType, channels;
    };
    for (const Layout layout : {Layout{DQ_SHORT, 4}, Layout{DQ_UCHAR, 5}}) {
        DQImagePtr target = PatternImage(4, 4, layout.channels, layout.dataType, 5);
        DQImagePtr alike = PatternImage(4, 4, layout.channels, layout.dataType, 6);
        DQImagePtr floats = PatternImage(4, 4, layout.channels, DQ_FLOAT, 7);
        DQImagePtr floatsOneChannel = PatternImage(4, 4, 1, DQ_FLOAT, 8);
        DQImage& t = *target;
        const struct {
            const char* name;
            bool perChannelCount;
            std::function<void()> call;
        } cases[] = {
            {"Scale", false, [&] { t.Scale(2.0f); }},
            {"ScaleColour", false, [&] { t.ScaleColour(2.0f); }},
            {"Invert", false, [&] { t.Invert(); }},
            {"Subtract", false, [&] { t.Subtract(alike.get()); }},
            {"MinInto", false, [&] { t.MinInto(alike.get()); }},
            {"CopyFrom floats", false, [&] { t.CopyFrom(0, 0, floats.get(), 0, 0, 4, 4); }},
            {"CopyChannelPlain", false, [&] { t.CopyChannelPlain(0, floatsOneChannel.get(), 0); }},
            {"CopyChannelNormalised", false,
             [&] { t.CopyChannelNormalised(0, floatsOneChannel.get(), 0); }},
            {"FillColour", true, [&] { t.FillColour(0.5f, 0.5f, 0.5f, 0.5f); }},
            {"CopyFromNormalised floats", true,
             [&] { t.CopyFromNormalised(0, 0, floats.get(), 0, 0, 4, 4); }},
            {"CopyTranspose", true, [&] { t.CopyTranspose(alike.get()); }},
        };
        for (const auto& c : cases) {
            if (DQDispatchableType(layout.dataType) && !c.perChannelCount) continue;
            DQImagePtr before = Duplicate(t);
            const std::string name = std::string(c.name) + " on type " +
                                     std::to_string(layout.dataType) + ", " +
                                     std::to_string(layout.channels) + " channels";
            EXPECT_EQ(ThrownCode(c.call), -1) << name;
            EXPECT_TRUE(SamePixels(t, *before)) << name;
        }
    }
}

TEST(UnmatchedImages, FloatNeighbourhoodsOfFiveChannelsAreLeftAlone) {
    DQImagePtr target = PatternImage(5, 5, 5, DQ_FLOAT, 1);
    DQImagePtr source = PatternImage(5, 5, 5, DQ_FLOAT, 2);
    DQImagePtr before = Duplicate(*target);
    EXPECT_EQ(ThrownCode([&] { target->Sum55(source.get()); }), -1);
    EXPECT_EQ(ThrownCode([&] { target->Laplacian(source.get()); }), -1);
    EXPECT_TRUE(SamePixels(*target, *before));
}
