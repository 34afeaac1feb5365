// Vectors handed out by the engine, and the pictures drawn of them: the colour wheel and arrows.
#include "PanClip.h"
#include "flow/FlowOverlay.h"

using namespace quelmor::test;

namespace {

constexpr int kW = 128;
constexpr int kH = 96;

std::array<int, 3> Rgb(const DQImage& image, int x, int y) {
    const uint8_t* p = image.PixelAddress(x, y);
    return {p[0], p[1], p[2]};
}

} // namespace

TEST(FlowColours, WheelColoursByDirectionAndLength) {
    // Hues of the wheel: pointing left is red, down yellow, right between cyan and blue, up
    // violet; half the largest length is halfway to white, past it the colour darkens.
    const struct {
        const char* name;
        float u, v;
        std::array<int, 3> rgb;
    } cases[] = {
        {"none", 0.0f, 0.0f, {255, 255, 255}},    {"left", -1.0f, 0.0f, {0, 198, 255}},
        {"right", 1.0f, 0.0f, {255, 0, 0}},       {"down", 0.0f, 1.0f, {255, 234, 0}},
        {"up", 0.0f, -1.0f, {103, 0, 255}},       {"half right", 0.5f, 0.0f, {255, 128, 128}},
        {"twice right", 2.0f, 0.0f, {191, 0, 0}}, {"not a number", NAN, 0.0f, {0, 0, 0}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        uint8_t rgb[3];
        FlowColour(c.u, c.v, 1.0f, rgb);
        EXPECT_EQ((std::array<int, 3>{rgb[0], rgb[1], rgb[2]}), c.rgb);
    }
}

TEST(FlowColours, ARotationFieldShowsTheWheelAroundItsCentre) {
    // Turning anticlockwise about (32, 32): white at the centre, hue by the side of the centre,
    // saturation growing outwards, and no jump between neighbours along a ring.
    const int size = 65, centre = 32;
    DQImagePtr flow = MakeFlow(size, size, [&](int x, int y, float& u, float& v) {
        u = float(y - centre);
        v = -float(x - centre);
    });
    DQImagePtr picture = MakeImage(size, size, 4, DQ_UCHAR, Fill(0));
    DrawFlowColours(picture.get(), flow.get(), 32.0f);
    EXPECT_EQ(Rgb(*picture, centre, centre), (std::array<int, 3>{255, 255, 255}));
    EXPECT_EQ(ElementAt(*picture, 3, 60, 3), 255.0);
    // On the ring of radius 32 the saturation is full: the four sides show the wheel's hues.
    EXPECT_EQ(Rgb(*picture, centre, centre + 32), (std::array<int, 3>{255, 0, 0}));   // u right
    EXPECT_EQ(Rgb(*picture, centre, centre - 32), (std::array<int, 3>{0, 198, 255})); // u left
    EXPECT_EQ(Rgb(*picture, centre - 32, centre), (std::array<int, 3>{255, 234, 0})); // v down
    EXPECT_EQ(Rgb(*picture, centre + 32, centre), (std::array<int, 3>{103, 0, 255})); // v up
    // Saturation grows outwards along a ray: the smallest channel falls.
    int previous = 256;
    for (int r = 0; r <= 32; r += 4) {
        const auto rgb = Rgb(*picture, centre, centre + r);
        const int least = std::min({rgb[0], rgb[1], rgb[2]});
        EXPECT_LT(least, previous + (r == 0));
        previous = least;
    }
    for (int k = 0; k < 360; ++k) {
        const double a0 = k * M_PI / 180.0, a1 = (k + 1) * M_PI / 180.0;
        const auto p = Rgb(*picture, centre + int(std::lround(20 * std::cos(a0))),
                           centre + int(std::lround(20 * std::sin(a0))));
        const auto q = Rgb(*picture, centre + int(std::lround(20 * std::cos(a1))),
                           centre + int(std::lround(20 * std::sin(a1))));
        for (int c = 0; c < 3; ++c)
            EXPECT_LE(std::abs(p[c] - q[c]), 40) << k;
    }
    // The largest length taken from the flow itself: the corners reach full saturation.
    DrawFlowColours(picture.get(), flow.get(), 0.0f);
    const auto corner = Rgb(*picture, 0, 0);
    EXPECT_EQ(std::min({corner[0], corner[1], corner[2]}), 0);
}

TEST(FlowColours, RefusesImagesThatDoNotFit) {
    DQImagePtr flow = ConstantFlow(8, 6, 1, 1);
    DQImagePtr smaller = MakeImage(8, 5, 4, DQ_UCHAR, Fill(0));
    DQImagePtr shortPicture = MakeImage(8, 6, 4, DQ_USHORT, Fill(0));
    DQImagePtr threeChannels = MakeImage(8, 6, 3, DQ_FLOAT, Fill(0));
    EXPECT_EQ(ThrownBy([&] { DrawFlowColours(smaller.get(), flow.get(), 1); }), kDQErrBadArgument);
    EXPECT_EQ(ThrownBy([&] { DrawFlowColours(shortPicture.get(), flow.get(), 1); }),
              kDQErrBadArgument);
    DQImagePtr picture = MakeImage(8, 6, 4, DQ_UCHAR, Fill(0));
    EXPECT_EQ(ThrownBy([&] { DrawFlowColours(picture.get(), threeChannels.get(), 1); }),
              kDQErrBadArgument);
    const uint8_t white[4] = {255, 255, 255, 255};
    EXPECT_EQ(ThrownBy([&] { DrawFlowArrows(picture.get(), flow.get(), 1, white); }),
              kDQErrBadArgument);
}

TEST(FlowArrows, ArrowsRunAlongTheVectorsInFramePixels) {
    // A flow at half the frame's size: (2, 0) there is about (4.1, 0) in the frame's pixels.
    DQImagePtr frame = MakeImage(65, 33, 4, DQ_UCHAR, Fill(0));
    DQImagePtr flow = ConstantFlow(32, 16, 2.0f, 0.0f);
    const uint8_t green[4] = {0, 255, 0, 255};
    DrawFlowArrows(frame.get(), flow.get(), 16, green);
    auto lit = [&](int x, int y) { return ElementAt(*frame, x, y, 1) == 255.0; };
    // Arrows start at (8, 8), (24, 8), ... and (8, 24), ...
    for (int y : {8, 24})
        for (int x : {8, 24, 40, 56}) {
            SCOPED_TRACE(std::to_string(x) + "," + std::to_string(y));
            for (int dx = 0; dx <= 4; ++dx)
                EXPECT_TRUE(lit(x + dx, y));
            EXPECT_FALSE(lit(x - 2, y));
            EXPECT_FALSE(lit(x + 6, y));
            // The head points back from the tip, above and below the shaft.
            EXPECT_TRUE(lit(x + 3, y - 1) || lit(x + 2, y - 1));
            EXPECT_TRUE(lit(x + 3, y + 1) || lit(x + 2, y + 1));
        }
    EXPECT_FALSE(lit(16, 16));
    EXPECT_EQ(ElementAt(*frame, 10, 8, 0), 0.0);
}

struct PairFlows : PanClipTest<kW, kH> {
    int Render(float sourceTime, long cache) { return RenderAt(sourceTime, {.cache = cache}); }
};

TEST_F(PairFlows, HandsOutBothDirectionsAtFlowAndFrameSize) {
    DQImagePtr atoB = MakeImage(kW, kH, 2, DQ_FLOAT, Fill(0)),
               btoA = MakeImage(kW, kH, 2, DQ_FLOAT, Fill(0));
    int frameA = -1;
    EXPECT_EQ(engine.GetPairFlows(atoB.get(), btoA.get(), &frameA), kDQErrBadArgument)
        << "nothing drawn yet";
    ASSERT_EQ(Render(2.5f, 1), 0);
    ASSERT_EQ(engine.GetPairFlows(atoB.get(), btoA.get(), &frameA), 0);
    EXPECT_EQ(frameA, 2);
    const int fw = engine.internal->flowWidth, fh = engine.internal->flowHeight;
    ASSERT_LT(fw, kW);
    DQImagePtr small = MakeImage(fw, fh, 2, DQ_FLOAT, Fill(0));
    ASSERT_EQ(engine.GetPairFlows(small.get(), nullptr, nullptr), 0);
    const double ratioX = double(fw - 1) / (kW - 1), ratioY = double(fh - 1) / (kH - 1);
    for (int y = 30; y < 60; y += 7)
        for (int x = 40; x < 90; x += 9) {
            SCOPED_TRACE(std::to_string(x) + "," + std::to_string(y));
            EXPECT_NEAR(ElementAt(*atoB, x, y, 0), kPanX, 0.5);
            EXPECT_NEAR(ElementAt(*atoB, x, y, 1), kPanY, 0.5);
            EXPECT_NEAR(ElementAt(*btoA, x, y, 0), -kPanX, 0.5);
            EXPECT_NEAR(ElementAt(*btoA, x, y, 1), -kPanY, 0.5);
            const int sx = int(x * ratioX), sy = int(y * ratioY);
            EXPECT_NEAR(ElementAt(*small, sx, sy, 0), kPanX * ratioX, 0.3);
            EXPECT_NEAR(ElementAt(*small, sx, sy, 1), kPanY * ratioY, 0.3);
        }
    DQImagePtr wrong = MakeImage(kW, kH, 4, DQ_FLOAT, Fill(0));
    EXPECT_EQ(engine.GetPairFlows(wrong.get(), nullptr, nullptr), kDQErrBadArgument);
    // Motion that is not kept cannot be handed out.
    ASSERT_EQ(Render(2.5f, 0), 0);
    EXPECT_EQ(engine.GetPairFlows(atoB.get(), nullptr, nullptr), kDQErrBadArgument);
}
