#include "TestSupport.h"
#include "WarpTestImages.h"
#include "flow/FlowArithmetic.h"
#include "flow/InvertFlow.h"

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

using namespace quelmor::test;

namespace {

DQImagePtr SmoothFlow(int width, int height) {
    return MakeFlow(width, height, [](int x, int y, float& u, float& v) {
        u = 2.5f * std::sin(0.12f * y) + 0.04f * x - 1.0f;
        v = 1.5f * std::cos(0.09f * x) - 0.02f * y + 0.5f;
    });
}

// The same flow stored as short flow with the range of its larger side.
DQImagePtr AsShortFlow(const DQImage& flow) {
    DQImagePtr words = MakeImage(flow.width, flow.height, 2, DQ_USHORT, Fill(32767));
    const int range = std::max(flow.width, flow.height);
    for (int y = 0; y < flow.height; ++y)
        for (int x = 0; x < flow.width; ++x) {
            const float* p = flow.Row<float>(y) + 2 * x;
            words->SetFlowPixel(x, y, range, p[0], p[1]);
        }
    return words;
}

float ShortAt(const DQImage& words, int x, int y, int c) {
    return DQDecodeShortFlow(words.Row<uint16_t>(y)[2 * x + c],
                             std::max(words.width, words.height));
}

DQImagePtr Copy(const DQImage& image) {
    DQImagePtr copy = DQMakeImage(image.width, image.height, image.channels, image.dataType);
    copy->CopyWhole(&image);
    return copy;
}

bool SameBytes(const DQImage& a, const DQImage& b) {
    if (a.width != b.width || a.height != b.height || a.pixelBytes != b.pixelBytes) return false;
    for (int y = 0; y < a.height; ++y)
        if (std::memcmp(a.RowAddress(y), b.RowAddress(y), size_t(a.width) * a.pixelBytes) != 0)
            return false;
    return true;
}

} // namespace

TEST(FlowArithmetic, RefusesFlowsThatDoNotFitWithTheMessageAndNoChange) {
    DQImagePtr flow = SmoothFlow(12, 10), other = SmoothFlow(12, 10);
    DQImagePtr narrow = SmoothFlow(11, 10), oneChannel = MakeImage(12, 10, 1, DQ_FLOAT, Fill(1));
    DQImagePtr shortA = AsShortFlow(*flow), shortB = AsShortFlow(*other);
    DQImagePtr threeChannels = MakeImage(12, 10, 3, DQ_FLOAT, Fill(1));
    DQImagePtr tiny = SmoothFlow(1, 10), tinyOther = SmoothFlow(1, 10);
    DQImagePtr shortNarrow = AsShortFlow(*narrow);
    using Op = void (*)(DQImage*, DQImage*);
    const struct {
        const char* name;
        Op op;
        DQImage *target, *source;
    } cases[] = {
        {"add: sizes differ", AddFlows, flow.get(), narrow.get()},
        {"add: one-channel source", AddFlows, flow.get(), oneChannel.get()},
        {"add: one-channel target", AddFlows, oneChannel.get(), flow.get()},
        {"add: both short", AddFlows, shortA.get(), shortB.get()},
        {"add: no source", AddFlows, flow.get(), nullptr},
        {"compose: types differ", ComposeFlows, flow.get(), shortB.get()},
        {"compose: three channels", ComposeFlows, threeChannels.get(), flow.get()},
        {"compose: short of two sizes", ComposeFlows, shortA.get(), shortNarrow.get()},
        {"compose: onto itself", ComposeFlows, flow.get(), flow.get()},
        {"compose: one pixel wide", ComposeFlows, tiny.get(), tinyOther.get()},
        {"compose float: short", ComposeFloatFlows, shortA.get(), shortB.get()},
        {"compose float: types differ", ComposeFloatFlows, flow.get(), shortB.get()},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr before = Copy(*c.target);
        testing::internal::CaptureStderr();
        c.op(c.target, c.source);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "can't add two flows together\n");
        EXPECT_TRUE(SameBytes(*before, *c.target));
    }
}

TEST(FlowArithmetic, AddsFloatFlowsElementByElement) {
    DQImagePtr target = SmoothFlow(9, 7), source = ConstantFlow(9, 7, 0.25f, -3.0f);
    DQImagePtr before = Copy(*target);
    AddFlows(target.get(), source.get());
    for (int y = 0; y < 7; ++y)
        for (int x = 0; x < 9; ++x) {
            EXPECT_EQ(ElementAt(*target, x, y, 0), float(ElementAt(*before, x, y, 0)) + 0.25f);
            EXPECT_EQ(ElementAt(*target, x, y, 1), float(ElementAt(*before, x, y, 1)) - 3.0f);
        }
}

TEST(FlowArithmetic, ShortSourceIsAddedIntoTheTargetsWordsAndLimitedByTheRange) {
    // A float-typed target whose pixels begin with two short-flow words: the short path reads and
    // writes those words and leaves the rest of each pixel alone.
    const int width = 10, height = 4, range = 10;
    const struct {
        float target, source;
    } cases[] = {{1.0f, 2.0f}, {-3.5f, 1.25f}, {0.0f, 0.0f}, {8.0f, 7.0f}, {-9.0f, -4.0f}};
    DQImagePtr target = MakeImage(width, height, 2, DQ_FLOAT, Fill(0));
    DQImagePtr source = MakeImage(width, height, 2, DQ_USHORT, Fill(32767));
    for (int x = 0; x < width; ++x)
        for (int y = 0; y < height; ++y) {
            const auto& c = cases[x % std::size(cases)];
            const uint16_t words[2] = {DQEncodeShortFlow(c.target, range),
                                       DQEncodeShortFlow(-c.target, range)};
            std::memcpy(target->PixelAddress(x, y), words, sizeof words);
            source->SetFlowPixel(x, y, range, c.source, -c.source);
        }
    AddFlows(target.get(), source.get());
    const float step = float(range) / 32767.0f;
    for (int x = 0; x < width; ++x) {
        const auto& c = cases[x % std::size(cases)];
        SCOPED_TRACE(x);
        uint16_t words[2];
        std::memcpy(words, target->PixelAddress(x, 1), sizeof words);
        const float expected = std::clamp(c.target + c.source, -float(range), float(range));
        EXPECT_NEAR(DQDecodeShortFlow(words[0], range), expected, 2 * step);
        EXPECT_NEAR(DQDecodeShortFlow(words[1], range), -expected, 2 * step);
        EXPECT_EQ(ElementAt(*target, x, 1, 1), 0.0);
    }
}

TEST(FlowArithmetic, ComposeLeavesVectorsThatLeadOutsideAlone) {
    DQImagePtr source = ConstantFlow(8, 6, 1.0f, 1.0f);
    const struct {
        const char* name;
        float u, v;
        bool moves;
    } cases[] = {{"left", -3.5f, 0.0f, false},
                 {"below", 0.0f, 3.0f, false},
                 {"right edge", 5.0f, 0.0f, false},
                 {"inside", 2.0f, -1.0f, true},
                 {"last column", 4.5f, 0.0f, true}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr target = ConstantFlow(8, 6, c.u, c.v);
        ComposeFlows(target.get(), source.get());
        // Pixel (3, 3): the vector leads to (3 + u, 3 + v).
        EXPECT_EQ(ElementAt(*target, 3, 3, 0), c.u + (c.moves ? 1.0f : 0.0f));
        EXPECT_EQ(ElementAt(*target, 3, 3, 1), c.v + (c.moves ? 1.0f : 0.0f));
    }
}

TEST(FlowArithmetic, ComposingAFlowWithItsInverseGivesAboutZeroAwayFromTheBorders) {
    const int width = 64, height = 48;
    DQImagePtr forward = SmoothFlow(width, height), backward = SmoothFlow(width, height);
    DQImagePtr scratch = MakeImage(width, height, 1, DQ_UCHAR, Fill(0));
    DQInvertFlow(backward.get(), forward.get(), scratch.get(), nullptr);
    DQImagePtr composed = Copy(*forward);
    ComposeFlows(composed.get(), backward.get());
    double worst = 0.0, largest = 0.0;
    for (int y = 6; y < height - 6; ++y)
        for (int x = 6; x < width - 6; ++x)
            for (int c = 0; c < 2; ++c) {
                worst = std::max(worst, std::fabs(ElementAt(*composed, x, y, c)));
                largest = std::max(largest, std::fabs(ElementAt(*forward, x, y, c)));
            }
    EXPECT_GT(largest, 2.0);
    EXPECT_LT(worst, 0.05);
}

TEST(FlowArithmetic, ShortAndFloatCompositionAgree) {
    const int width = 40, height = 30;
    DQImagePtr first = SmoothFlow(width, height);
    DQImagePtr second = MakeFlow(width, height, [](int x, int y, float& u, float& v) {
        u = 0.1f * x - 0.05f * y;
        v = 1.0f + 0.5f * std::sin(0.3f * x);
    });
    DQImagePtr floats = Copy(*first);
    ComposeFlows(floats.get(), second.get());
    DQImagePtr words = AsShortFlow(*first), secondWords = AsShortFlow(*second);
    ComposeFlows(words.get(), secondWords.get());
    const float step = float(std::max(width, height)) / 32767.0f;
    double worst = 0.0;
    int composed = 0;
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            for (int c = 0; c < 2; ++c)
                worst = std::max(worst, double(std::fabs(ShortAt(*words, x, y, c) -
                                                         float(ElementAt(*floats, x, y, c)))));
            composed += ElementAt(*floats, x, y, 0) != ElementAt(*first, x, y, 0);
        }
    EXPECT_GT(composed, width * height / 2);
    EXPECT_LT(worst, 4 * step);
}

TEST(FlowArithmetic, FloatCompositionScalesBetweenSizes) {
    // Target at 41 x 31, source at 21 x 16 (ratio 1/2 both ways), source u = 0.5 x in its own
    // pixels: at frame scale that is 0.5 (x + d) wherever the place lies inside.
    DQImagePtr target = ConstantFlow(41, 31, 3.0f, 2.0f);
    DQImagePtr source = MakeFlow(21, 16, [](int x, int y, float& u, float& v) {
        u = 0.5f * x;
        v = 0.25f * y;
    });
    for (auto op : {ComposeFlows, ComposeFloatFlows}) {
        DQImagePtr composed = Copy(*target);
        op(composed.get(), source.get());
        for (int y = 0; y < 28; y += 3)
            for (int x = 0; x < 37; x += 4) {
                SCOPED_TRACE(std::to_string(x) + "," + std::to_string(y));
                EXPECT_NEAR(ElementAt(*composed, x, y, 0), 3.0 + 0.5 * (x + 3.0), 1e-4);
                EXPECT_NEAR(ElementAt(*composed, x, y, 1), 2.0 + 0.25 * (y + 2.0), 1e-4);
            }
    }
}

TEST(FlowArithmetic, FloatCompositionHoldsPlacesOutsideAsItsRuleSays) {
    // Source u = x and v = y on a 20 x 10 grid of the same size: the sample shows where it was
    // taken.
    DQImagePtr source = MakeFlow(20, 10, [](int x, int y, float& u, float& v) {
        u = float(x);
        v = float(y);
    });
    const struct {
        const char* name;
        float u, v;
        float sampleX, sampleY; // where (4, 5) + (u, v) is read
    } cases[] = {
        {"inside", 2.5f, 1.0f, 6.5f, 6.0f},
        {"left and above", -7.0f, -9.0f, 0.0f, 0.0f},
        {"right of the width", 30.0f, 0.0f, 19.0f, 5.0f}, // x becomes 20, read at the last column
        {"below the height", 0.0f, 6.0f, 10.0f, 9.0f},    // x becomes the height, y held at 9
        {"below, left of it", -10.0f, 8.0f, 10.0f, 9.0f}, // the height wins over the raise to 0
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr target = ConstantFlow(20, 10, c.u, c.v);
        ComposeFloatFlows(target.get(), source.get());
        EXPECT_FLOAT_EQ(ElementAt(*target, 4, 5, 0), c.u + c.sampleX);
        EXPECT_FLOAT_EQ(ElementAt(*target, 4, 5, 1), c.v + c.sampleY);
    }
}

TEST(FlowArithmetic, CompositionDoesNotDependOnTheWorkerCount) {
    DQImagePtr source = SmoothFlow(300, 200), first = SmoothFlow(300, 200);
    first->Scale(3.0f);
    DQImagePtr references[2];
    ForWorkerCounts([&](int) {
        int index = 0;
        for (auto op : {ComposeFlows, ComposeFloatFlows}) {
            DQImagePtr composed = Copy(*first);
            op(composed.get(), source.get());
            DQImagePtr& reference = references[index++];
            if (!reference) reference = Copy(*composed);
            EXPECT_TRUE(SameBytes(*reference, *composed));
        }
    });
}

TEST(FlowArithmetic, ConvertsVectorImagesOfEveryTypeAndFillsWhereAlphaIsZero) {
    const struct {
        int dataType;
        double low, middle, high, white;
    } types[] = {
        {DQ_UCHAR, 0, 127, 254, 255}, {DQ_USHORT, 0, 32767, 65534, 65535}, {DQ_FLOAT, -1, 0, 1, 1}};
    const float scale = 8.0f;
    DQImagePtr first;
    for (const auto& t : types) {
        SCOPED_TRACE(Describe(t.dataType, 4));
        // x codes -1 .. 1 by column thirds, y the opposite; a 4 x 4 block across the edge of the
        // last two thirds has no vector.
        DQImagePtr vectors = MakeImage(24, 18, 4, t.dataType, [&](int x, int y, int c) {
            const bool hole = x >= 14 && x < 18 && y >= 7 && y < 11;
            if (c == 3) return hole ? 0.0 : t.white;
            if (c == 2) return t.middle;
            const int third = x < 8 ? 0 : x < 16 ? 1 : 2;
            const double code[3] = {t.low, t.middle, t.high};
            return code[c == 0 ? third : 2 - third];
        });
        DQImagePtr flow = MakeImage(24, 18, 2, DQ_FLOAT, Fill(99));
        ConvertVectorImage(flow.get(), vectors.get(), scale);
        const struct {
            int x;
            float u;
        } columns[] = {{2, -scale}, {9, 0.0f}, {20, scale}};
        for (const auto& col : columns) {
            EXPECT_FLOAT_EQ(ElementAt(*flow, col.x, 3, 0), col.u);
            EXPECT_FLOAT_EQ(ElementAt(*flow, col.x, 3, 1), -col.u);
        }
        // The block is filled from around it: strictly between the values on its two sides.
        const double filled = ElementAt(*flow, 15, 9, 0);
        EXPECT_GT(filled, 0.1);
        EXPECT_LT(filled, scale - 0.1);
        EXPECT_NEAR(ElementAt(*flow, 15, 9, 1), -filled, 1e-4);
        // Every type codes the same vectors, so every type gives the same flow.
        if (!first)
            first = Copy(*flow);
        else
            EXPECT_TRUE(SameBytes(*first, *flow));
    }
}

TEST(FlowArithmetic, ConvertVectorImageLeavesImagesThatDoNotFitAlone) {
    DQImagePtr vectors = MakeImage(8, 8, 4, DQ_UCHAR, Fill(200));
    DQImagePtr threeChannels = MakeImage(8, 8, 3, DQ_UCHAR, Fill(200));
    DQImagePtr smaller = MakeImage(8, 7, 4, DQ_UCHAR, Fill(200));
    const struct {
        const char* name;
        DQImagePtr flow;
        DQImage* vectors;
    } cases[] = {{"vector size", MakeImage(8, 8, 2, DQ_FLOAT, Fill(5)), smaller.get()},
                 {"three channels", MakeImage(8, 8, 2, DQ_FLOAT, Fill(5)), threeChannels.get()},
                 {"short flow", MakeImage(8, 8, 2, DQ_USHORT, Fill(5)), vectors.get()},
                 {"one-channel flow", MakeImage(8, 8, 1, DQ_FLOAT, Fill(5)), vectors.get()}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr before = Copy(*c.flow);
        ConvertVectorImage(c.flow.get(), c.vectors, 4.0f);
        EXPECT_TRUE(SameBytes(*before, *c.flow));
    }
}
