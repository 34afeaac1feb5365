// Field rebuilding and weaving, and fields fed to the engine as field numbers.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/Fields.h"

using namespace quelmor::test;

namespace {

// Row y holds 10 y + 1 in every channel.
DQImagePtr Ramp(int w, int h, int type, int channels = 3) {
    DQImagePtr image = DQMakeImage(w, h, channels, type);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            for (int c = 0; c < channels; ++c)
                image->SetChannelFloat(x, y, c, 10.0f * y + 1.0f);
    return image;
}

float RowValue(const DQImage& image, int y) {
    float v = 0;
    image.GetChannelFloat(image.width - 1, y, &v, image.channels - 1);
    return v;
}

TEST(Fields, FieldToFrameRebuildsTheOtherRows) {
    struct Case {
        int mode, height, type;
        std::vector<float> rows;
    };
    // Rows hold 10 y + 1, except row 2 with 22: means of row 2 and another are odd sums, which
    // integers round half up and floats keep. Height 5, lastRow 4: mode 3 replaces rows 4, 2, 0;
    // mode 2 rows 3, 1. Height 4, lastRow 3: mode 3 replaces rows 3, 1; mode 2 rows 2, 0. Mode 1
    // does nothing; height 1 keeps its row.
    const Case cases[] = {{3, 5, DQ_UCHAR, {11, 11, 21, 31, 31}},
                          {2, 5, DQ_UCHAR, {1, 12, 22, 32, 41}},
                          {2, 4, DQ_USHORT, {11, 11, 21, 31}},
                          {3, 4, DQ_FLOAT, {1, 11.5f, 22, 22}},
                          {1, 4, DQ_UCHAR, {1, 11, 22, 31}},
                          {3, 1, DQ_UCHAR, {1}},
                          {3, 2, DQ_UCHAR, {1, 1}}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "mode " << c.mode << ", height " << c.height << ", type " << c.type);
        ForWorkerCounts([&](int) {
            DQImagePtr image = Ramp(7, c.height, c.type);
            if (c.height > 2)
                for (int x = 0; x < 7; ++x)
                    for (int ch = 0; ch < 3; ++ch)
                        image->SetChannelFloat(x, 2, ch, 22.0f);
            FieldToFrame(image.get(), c.mode);
            for (int y = 0; y < c.height; ++y)
                EXPECT_EQ(RowValue(*image, y), c.rows[y]) << "row " << y;
        });
    }
}

TEST(Fields, InterleaveTakesOneFieldOfTheSource) {
    struct Case {
        int code, height;
        std::vector<bool> fromSource;
    };
    // Code 2 takes lastRow, lastRow - 2, ...; code 3 lastRow - 1, lastRow - 3, ...; code 1 none.
    const Case cases[] = {{2, 5, {1, 0, 1, 0, 1}},
                          {3, 5, {0, 1, 0, 1, 0}},
                          {2, 4, {0, 1, 0, 1}},
                          {1, 4, {0, 0, 0, 0}}};
    for (const Case& c : cases) {
        DQImagePtr dest = Ramp(3, c.height, DQ_UCHAR, 4);
        DQImagePtr source = Ramp(3, c.height, DQ_UCHAR, 4);
        for (int y = 0; y < c.height; ++y)
            source->SetChannelFloat(2, y, 3, 200.0f + y);
        InterleaveFields(dest.get(), source.get(), c.code);
        for (int y = 0; y < c.height; ++y)
            EXPECT_EQ(RowValue(*dest, y), c.fromSource[y] ? 200.0f + y : 10.0f * y + 1.0f)
                << "code " << c.code << ", height " << c.height << ", row " << y;
    }
    DQImagePtr dest = Ramp(3, 4, DQ_UCHAR, 4);
    DQImagePtr other = Ramp(3, 5, DQ_UCHAR, 4);
    InterleaveFields(dest.get(), other.get(), 2);
    EXPECT_EQ(RowValue(*dest, 3), 31.0f) << "images of another layout are ignored";
}

TEST(Fields, FieldsInCountTimeInFields) {
    // Each frame n holds rows of value 100 + n on even rows and 10 + n on odd rows.
    constexpr int kW = 4, kH = 6;
    MemoryClipEngine engine;
    engine.fieldsMayChange = true;
    for (int n = 0; n < 8; ++n)
        engine.frames.push_back(MakeImage(
            kW, kH, 4, DQ_UCHAR, [n](int, int y, int) { return y % 2 == 0 ? 100 + n : 10 + n; }));
    ASSERT_EQ(engine.Init(), 0);
    WorkerScope workers(2, kW, kH);
    struct Case {
        int fieldsIn;
        float sourceTime;
        int frame;
        bool evenRowsKept; // the field that was kept: even rows (lastRow - 1, ...) or odd rows
    };
    // kH 6: lastRow 5. Mode 3 rebuilds rows 5, 3, 1 (keeps even rows), mode 2 rows 4, 2, 0.
    // Upper first at 5.0 is field 10, the first field, at 5.5 field 11; lower first at 5.0
    // selects the opposite rows.
    const Case cases[] = {
        {1, 5.0f, 5, false}, {1, 5.5f, 5, true}, {2, 5.0f, 5, true}, {2, 3.5f, 3, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << "fields in " << c.fieldsIn << " at " << c.sourceTime);
        engine.timeCurve = [&](float) { return c.sourceTime; };
        OwnedFrame result(kW, kH, 4, DQ_UCHAR);
        ASSERT_EQ(engine.Render(result.Image(),
                                {.fieldsIn = c.fieldsIn, .vectorQuality = 0, .interpolation = 0}),
                  0);
        EXPECT_EQ(engine.fetches.end()[-2].frame, c.frame) << "frame A";
        const uint8_t kept = uint8_t(c.evenRowsKept ? 100 + c.frame : 10 + c.frame);
        // Rows of the other field become the mean of their neighbours, which are kept rows.
        for (int y = 1; y < kH - 1; ++y)
            EXPECT_EQ(result.Pixels()->PixelAddress(1, y)[0], kept) << "row " << y;
        EXPECT_EQ(engine.Outstanding(), 0);
    }
}

} // namespace
