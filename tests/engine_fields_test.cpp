// Field rebuilding and weaving, and fields fed to the engine as field numbers.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
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
        const char* name;
        int mode, height, type;
        std::vector<float> rows;
    };
    // Rows hold 10 y + 1, except row 2 with 22: means of row 2 and another are odd sums, which
    // integers round half up and floats keep.
    const Case cases[] = {
        // Height 5, lastRow 4: mode 3 replaces rows 4, 2, 0; mode 2 rows 3, 1.
        {"mode 3, odd height", 3, 5, DQ_UCHAR, {11, 11, 21, 31, 31}},
        {"mode 2, odd height rounds half up", 2, 5, DQ_UCHAR, {1, 12, 22, 32, 41}},
        // Height 4, lastRow 3: mode 3 replaces rows 3, 1; mode 2 rows 2, 0.
        {"mode 3, even height", 3, 4, DQ_UCHAR, {1, 12, 22, 22}},
        {"mode 2, even height", 2, 4, DQ_USHORT, {11, 11, 21, 31}},
        {"mode 3, float, means not rounded", 3, 4, DQ_FLOAT, {1, 11.5f, 22, 22}},
        {"mode 1 does nothing", 1, 4, DQ_UCHAR, {1, 11, 22, 31}},
        {"height 1 keeps its row", 3, 1, DQ_UCHAR, {1}},
        {"height 2, mode 3", 3, 2, DQ_UCHAR, {1, 1}},
    };
    for (const Case& c : cases) {
        ForWorkerCounts([&](int) {
            DQImagePtr image = Ramp(7, c.height, c.type);
            if (c.height > 2)
                for (int x = 0; x < 7; ++x)
                    for (int ch = 0; ch < 3; ++ch)
                        image->SetChannelFloat(x, 2, ch, 22.0f);
            FieldToFrame(image.get(), c.mode);
            for (int y = 0; y < c.height; ++y)
                EXPECT_EQ(RowValue(*image, y), c.rows[y]) << c.name << " row " << y;
        });
    }
}

TEST(Fields, InterleaveTakesOneFieldOfTheSource) {
    struct Case {
        const char* name;
        int code, height;
        std::vector<bool> fromSource;
    };
    const Case cases[] = {
        {"code 2 takes lastRow, lastRow - 2", 2, 5, {true, false, true, false, true}},
        {"code 3 takes lastRow - 1, lastRow - 3", 3, 5, {false, true, false, true, false}},
        {"code 2, even height", 2, 4, {false, true, false, true}},
        {"code 1 does nothing", 1, 4, {false, false, false, false}},
    };
    for (const Case& c : cases) {
        DQImagePtr dest = Ramp(3, c.height, DQ_UCHAR, 4);
        DQImagePtr source = Ramp(3, c.height, DQ_UCHAR, 4);
        for (int y = 0; y < c.height; ++y)
            source->SetChannelFloat(2, y, 3, 200.0f + y);
        InterleaveFields(dest.get(), source.get(), c.code);
        for (int y = 0; y < c.height; ++y)
            EXPECT_EQ(RowValue(*dest, y), c.fromSource[y] ? 200.0f + y : 10.0f * y + 1.0f)
                << c.name << " row " << y;
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
    for (int n = 0; n < 8; ++n) {
        DQImagePtr f = DQMakeImage(kW, kH, 4, DQ_UCHAR);
        for (int y = 0; y < kH; ++y)
            for (int x = 0; x < kW; ++x)
                for (int c = 0; c < 4; ++c)
                    f->PixelAddress(x, y)[c] = uint8_t(y % 2 == 0 ? 100 + n : 10 + n);
        engine.frames.push_back(std::move(f));
    }
    ASSERT_EQ(engine.Init(), 0);
    WorkerScope workers(2, kW, kH);
    struct Case {
        const char* name;
        int fieldsIn;
        float sourceTime;
        int frame;
        bool evenRowsKept; // the field that was kept: even rows (lastRow - 1, ...) or odd rows
    };
    // kH 6: lastRow 5. Mode 3 rebuilds rows 5, 3, 1 (keeps even rows), mode 2 rows 4, 2, 0.
    const Case cases[] = {
        {"upper first, time 5.0: field 10, first field", 1, 5.0f, 5, false},
        {"upper first, time 5.5: field 11, second field", 1, 5.5f, 5, true},
        {"lower first, time 5.0 selects the opposite rows", 2, 5.0f, 5, true},
        {"lower first, time 3.5", 2, 3.5f, 3, false},
    };
    for (const Case& c : cases) {
        engine.timeCurve = [&](float) { return c.sourceTime; };
        OwnedFrame result(kW, kH, 4, DQ_UCHAR);
        ASSERT_EQ(engine.Render(result.Image(),
                                {.fieldsIn = c.fieldsIn, .vectorQuality = 0, .interpolation = 0}),
                  0)
            << c.name;
        EXPECT_EQ(engine.fetches.end()[-2].frame, c.frame) << c.name << ": frame A";
        const uint8_t kept = uint8_t(c.evenRowsKept ? 100 + c.frame : 10 + c.frame);
        // Rows of the other field become the mean of their neighbours, which are kept rows.
        for (int y = 1; y < kH - 1; ++y)
            EXPECT_EQ(result.Pixels()->PixelAddress(1, y)[0], kept) << c.name << " row " << y;
        EXPECT_EQ(engine.Outstanding(), 0) << c.name;
    }
}

} // namespace
