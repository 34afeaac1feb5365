#include "TestSupport.h"

#include <cmath>

TEST(ShortFlow, EncodeAndDecode) {
    // Stored words for values and ranges, and the value each word decodes to.
    struct Case {
        const char* name;
        float value;
        int range;
        uint16_t stored;
        float decoded;
    };
    const Case cases[] = {
        {"no motion", 0.0f, 640, 32767, 0.0f},
        {"beyond range clamps", 10000.0f, 640, 65534, 640.0f},
        {"beyond negative range clamps", -1e6f, 640, 0, -640.0f},
        {"six tenths of a step rounds up", 0.6f * 640.0f / 32767.0f, 640, 32768, 640.0f / 32767.0f},
        {"small negative", -1.0f, 32767, 32766, -1.0f}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(DQEncodeShortFlow(c.value, c.range), c.stored);
        EXPECT_NEAR(DQDecodeShortFlow(c.stored, c.range), c.decoded, 1e-4f);
    }
    // Every value comes back within half a step.
    for (float v = -960.0f; v <= 960.0f; v += 0.37f)
        ASSERT_NEAR(DQDecodeShortFlow(DQEncodeShortFlow(v, 960), 960), v,
                    0.5f * 960.0f / 32767.0f + 1e-4f)
            << "value " << v;
}

TEST(ShortFlow, PixelConvertersRoundTripWithinTheirRange) {
    const float vector[2] = {12.5f, -250.0f};
    uint16_t words[2] = {1, 1};
    float back[2];
    ConvertFloatFlow2ShortFlow(100).ConvertPixel(words, vector);
    ConvertShortFlow2FloatFlow(100).ConvertPixel(back, words);
    EXPECT_NEAR(back[0], 12.5f, 100.0f / 32767.0f);
    EXPECT_EQ(back[1], -100.0f);
}

TEST(FlowImage, SetAndBilinearReadInBothForms) {
    // A linear flow field (x / 2, -y) read back between and at the edges of pixels, from a float
    // and a short flow image.
    for (int type : {DQ_FLOAT, DQ_USHORT}) {
        SCOPED_TRACE(type == DQ_FLOAT ? "float flow" : "short flow");
        const int w = 6, h = 5, range = 8;
        DQImage flow(w, h, 2, type, 1);
        for (int y = 0; y < h; ++y)
            for (int x = 0; x < w; ++x)
                flow.SetFlowPixel(x, y, range, x * 0.5f, -1.0f * y);
        const float tolerance = type == DQ_FLOAT ? 1e-5f : 2.0f * range / 32767.0f;
        struct Probe {
            float x, y;
        };
        for (Probe p : {Probe{0, 0}, Probe{1.25f, 2.5f}, Probe{5, 4}, Probe{5.0f, 1.5f}}) {
            float dx = 0, dy = 0;
            flow.GetFlowBilinear(&dx, &dy, range, p.x, p.y);
            EXPECT_NEAR(dx, p.x * 0.5f, tolerance) << "at " << p.x << "," << p.y;
            EXPECT_NEAR(dy, -p.y, tolerance) << "at " << p.x << "," << p.y;
        }
    }
}

TEST(FlowImage, LargeShortVectorWarns) {
    DQImage flow(1, 1, 2, DQ_USHORT, 0);
    testing::internal::CaptureStderr();
    flow.SetFlowPixel(0, 0, 10, 9.0f, 0.0f);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "whoa\n");
    testing::internal::CaptureStderr();
    flow.SetFlowPixel(0, 0, 10, 1.0f, 0.0f);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}
