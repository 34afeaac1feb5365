#include "ImagePatterns.h"
#include "TestSupport.h"

#include <functional>
#include <vector>

using namespace quelmor::test;

namespace {
// A w x 1 image of `channels` holding `values`.
DQImagePtr RowOf(int type, const std::vector<float>& values, int channels = 1) {
    DQImagePtr image = DQMakeImage(static_cast<int>(values.size()) / channels, 1, channels, type);
    for (size_t i = 0; i < values.size(); ++i)
        image->SetChannelFloat(static_cast<int>(i) / channels, 0, static_cast<int>(i) % channels,
                               values[i]);
    return image;
}

std::vector<float> ValuesOf(const DQImage& image) {
    std::vector<float> values;
    for (int x = 0; x < image.width; ++x)
        for (int c = 0; c < image.channels; ++c)
            values.push_back(At(image, x, 0, c));
    return values;
}

using RowOp = std::function<void(DQImage&)>;
struct RowCase {
    const char* name;
    int type;
    std::vector<float> in;
    RowOp op;
    std::vector<float> out;
    int channels = 1;
};

void RunRowCases(const std::vector<RowCase>& cases) {
    for (const RowCase& c : cases) {
        SCOPED_TRACE(c.name);
        auto image = RowOf(c.type, c.in, c.channels);
        c.op(*image);
        const std::vector<float> got = ValuesOf(*image);
        ASSERT_EQ(got.size(), c.out.size());
        for (size_t i = 0; i < got.size(); ++i)
            EXPECT_FLOAT_EQ(got[i], c.out[i]) << "element " << i;
    }
}

const auto Scale = [](float k) -> RowOp { return [k](DQImage& i) { i.Scale(k); }; };
const auto Colour = [](float k) -> RowOp { return [k](DQImage& i) { i.ScaleColour(k); }; };
const auto XY = [](float x, float y) -> RowOp { return [=](DQImage& i) { i.ScaleXY(x, y); }; };
RowOp With(void (DQImage::*op)(const DQImage*), const DQImagePtr& other) {
    return [op, &other](DQImage& i) { (i.*op)(other.get()); };
}
const RowOp Invert = [](DQImage& i) { i.Invert(); };
} // namespace

class Arithmetic : public quelmor::test::ParallelTest {};

TEST_F(Arithmetic, ScaleNearOneLeavesEveryBit) {
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT}) {
        auto image = PatternImage(40, 50, 3, type, 12);
        auto before = Duplicate(*image);
        image->Scale(1.0000001f);
        image->Scale(0.9999995f);
        EXPECT_TRUE(SamePixels(*image, *before)) << "type " << type;
    }
}

TEST_F(Arithmetic, ScaleAndScaleColour) {
    RunRowCases({
        {"float scales", DQ_FLOAT, {0.5f, -1.0f, 3.0f}, Scale(2.0f), {1.0f, -2.0f, 6.0f}},
        {"uchar truncates", DQ_UCHAR, {255, 101, 1}, Scale(0.5f), {127, 50, 0}},
        {"uchar keeps low bits", DQ_UCHAR, {200, 100}, Scale(2.0f), {144, 200}},
        {"ushort truncates", DQ_USHORT, {65535, 3}, Scale(0.25f), {16383, 0}},
        {"rgba rounds, keeps alpha",
         DQ_UCHAR,
         {100, 101, 255, 77},
         Colour(.5f),
         {50, 51, 128, 77},
         4},
        {"float rgba", DQ_FLOAT, {.5f, .25f, 1, .5f}, Colour(.5f), {.25f, .125f, .5f, .5f}, 4},
        {"rgb is Scale", DQ_UCHAR, {100, 101, 255}, Colour(0.5f), {50, 50, 127}, 3},
        {"two-channel flow", DQ_FLOAT, {1, 2, -3, 4}, XY(-1.0f, 0.5f), {-1, 1, 3, 2}, 2},
        {"three float channels pass", DQ_FLOAT, {1, 2, 7}, XY(2.0f, 3.0f), {2, 6, 7}, 3},
    });
    // ScaleXY is for float vectors: bytes are refused with a message, a short flow silently.
    auto bytes = RowOf(DQ_UCHAR, {1, 2, 3}, 3);
    EXPECT_EQ(PrintedBy([&] { bytes->ScaleXY(2.0f, 2.0f); }), "error in ScaleXY!\n");
    EXPECT_EQ(ValuesOf(*bytes), (std::vector<float>{1, 2, 3}));
    auto shortFlow = RowOf(DQ_USHORT, {1, 2}, 2);
    EXPECT_EQ(PrintedBy([&] { shortFlow->ScaleXY(2.0f, 2.0f); }), "");
}

TEST_F(Arithmetic, SubtractMinMaxInvert) {
    auto floats = RowOf(DQ_FLOAT, {0.25f, 1.0f, -2.0f});
    auto bytes = RowOf(DQ_UCHAR, {20, 100, 200});
    auto moreBytes = RowOf(DQ_UCHAR, {30, 50, 255});
    auto shorts = RowOf(DQ_USHORT, {10, 60000, 7});
    auto twoChannels = RowOf(DQ_UCHAR, {9, 9, 9, 9}, 2);
    const auto Sub = &DQImage::Subtract, Max = &DQImage::MaxInto, Min = &DQImage::MinInto;
    RunRowCases({
        {"float minus float", DQ_FLOAT, {1, 1, 1}, With(Sub, floats), {0.75f, 0.0f, 3.0f}},
        {"uchar keeps low bits", DQ_UCHAR, {10, 100, 255}, With(Sub, bytes), {246, 0, 55}},
        {"float minus uchar", DQ_FLOAT, {100, 100, 100}, With(Sub, bytes), {80, 0, -100}},
        {"max of masks", DQ_UCHAR, {25, 10, 255}, With(Max, moreBytes), {30, 50, 255}},
        {"max of another type", DQ_UCHAR, {25, 10, 255}, With(Max, shorts), {25, 10, 255}},
        {"max needs one channel", DQ_UCHAR, {1, 2, 3, 4}, With(Max, twoChannels), {1, 2, 3, 4}, 2},
        {"min of ushort", DQ_USHORT, {5, 65535, 8}, With(Min, shorts), {5, 60000, 7}},
        {"min of uchar against floats", DQ_UCHAR, {1, 0, 3}, With(Min, floats), {0, 0, 254}},
        {"invert uchar", DQ_UCHAR, {0, 200, 255}, Invert, {255, 55, 0}},
        {"invert ushort", DQ_USHORT, {1, 65535, 0}, Invert, {65534, 0, 65535}},
        {"invert float", DQ_FLOAT, {0.25f, 1.0f, 2.0f}, Invert, {0.75f, 0.0f, -1.0f}},
    });
}

TEST_F(Arithmetic, SubtractOfMismatchedImagesDoesNothing) {
    auto image = PatternImage(8, 8, 2, DQ_FLOAT, 1);
    auto before = Duplicate(*image);
    image->Subtract(PatternImage(7, 8, 2, DQ_FLOAT, 2).get());
    image->Subtract(PatternImage(8, 8, 1, DQ_FLOAT, 2).get());
    image->Subtract(nullptr);
    EXPECT_TRUE(SamePixels(*image, *before));
}

TEST_F(Arithmetic, InvertBytesTouchesWidthBytesOnly) {
    // On a mask every pixel flips; on a four-channel image only the first `width` bytes of a row.
    DQImage mask(5, 20, 1, DQ_UCHAR, 1);
    const uint8_t on = 255;
    mask.FillPixel(&on);
    mask.InvertBytes();
    for (int y = 0; y < 20; ++y)
        for (int x = 0; x < 5; ++x)
            ASSERT_EQ(mask.Row<uint8_t>(y)[x], 0);
    DQImage wide(2, 3, 4, DQ_UCHAR, 0);
    wide.Clear();
    wide.InvertBytes();
    for (int y = 0; y < 3; ++y) {
        EXPECT_EQ(std::vector<float>(
                      {At(wide, 0, y, 0), At(wide, 0, y, 1), At(wide, 0, y, 2), At(wide, 1, y, 3)}),
                  std::vector<float>({255, 255, 0, 0}));
    }
}
