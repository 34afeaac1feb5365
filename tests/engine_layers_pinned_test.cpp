// Whole outputs of the several-layer road pinned by a checksum per setting: a textured disc with a
// soft matte moving over a moving background, rendered in between two frames with every
// interpolation and warping, three element types, motion blur and a grown matte. The road skips
// work that cannot reach the result (fill outside a layer's shape, work shared by the two
// directions); any change of the pixels shows here. Change a checksum only with a line in the
// commit saying why the pixels changed.
#include "LayeredClipEngine.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>

namespace quelmor::test {
namespace {

constexpr int kWidth = 120;
constexpr int kHeight = 84;
constexpr float kDiscX = 44.0f, kDiscY = 40.0f, kRadius = 17.0f;
constexpr float kDiscSpeed = 5.0f;        // to the right, pixels per frame
constexpr float kBackgroundSpeed = -3.0f; // to the left

float Background(float x, float y, int c) {
    return 0.5f + 0.3f * std::sin(0.23f * x + 0.7f * c) * std::cos(0.19f * y - 0.4f * c) +
           0.1f * std::sin(0.06f * (x + 2.0f * y));
}
float Disc(float x, float y, int c) {
    return 0.5f + 0.4f * std::cos(0.37f * x - 0.21f * y + 1.3f * c);
}
// Coverage of the disc at time t: one inside, a soft edge two pixels wide.
float Coverage(int x, int y, float t) {
    const float dx = x - (kDiscX + kDiscSpeed * t), dy = y - kDiscY;
    return std::clamp(0.5f * (kRadius - std::sqrt(dx * dx + dy * dy)) + 0.5f, 0.0f, 1.0f);
}

DQImagePtr Frame(float t, int type) {
    DQImagePtr image = DQMakeImage(kWidth, kHeight, 4, type);
    const double white = image->whitePoint;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x) {
            const float m = Coverage(x, y, t);
            const float lx = x - kDiscSpeed * t;
            for (int c = 0; c < 3; ++c) {
                const float v = m * Disc(lx, float(y), c) +
                                (1.0f - m) * Background(x - kBackgroundSpeed * t, float(y), c);
                image->SetChannelFloat(x, y, c, float(std::round(v * white)));
            }
            image->SetChannelFloat(x, y, 3, float(white));
        }
    return image;
}

DQImagePtr Matte(float t, int type) {
    DQImagePtr matte = DQMakeImage(kWidth, kHeight, 1, type);
    const double white = matte->whitePoint;
    for (int y = 0; y < kHeight; ++y)
        for (int x = 0; x < kWidth; ++x)
            matte->SetChannelFloat(x, y, 0, float(std::round(Coverage(x, y, t) * white)));
    return matte;
}

// FNV-1a over the visible bytes, row by row.
uint64_t Checksum(const DQImage& image) {
    uint64_t h = 1469598103934665603ull;
    for (int y = 0; y < image.height; ++y) {
        const uint8_t* p = static_cast<const uint8_t*>(image.RowAddress(y));
        for (size_t i = 0; i < size_t(image.width) * image.pixelBytes; ++i)
            h = (h ^ p[i]) * 1099511628211ull;
    }
    return h;
}

struct Case {
    const char* name;
    int type;
    long interpolation;
    int warping;
    float motionBlur, shrink;
    int drawStart, drawEnd;
    uint64_t checksum;
};

// clang-format off
const Case kCases[] = {
    {"nearest, inverse",                 DQ_UCHAR,  0, 0, 0.0f, 0.0f, -1, -1, 0xe1cb995ec571ff41ull},
    {"nearest, smart blend",             DQ_UCHAR,  0, 1, 0.0f, 0.0f, -1, -1, 0x9c87681398aac570ull},
    {"nearest, forward",                 DQ_UCHAR,  0, 2, 0.0f, 0.0f, -1, -1, 0x52f7091e1d05c159ull},
    {"blend, inverse",                   DQ_UCHAR,  1, 0, 0.0f, 0.0f, -1, -1, 0x97fd742138532d3ull},
    {"blend, smart blend",               DQ_UCHAR,  1, 1, 0.0f, 0.0f, -1, -1, 0xf7144d01e409a6a7ull},
    {"blend, forward",                   DQ_UCHAR,  1, 2, 0.0f, 0.0f, -1, -1, 0xd06e5701d30d2393ull},
    {"blend, forward alone",             DQ_UCHAR,  1, 3, 0.0f, 0.0f, -1, -1, 0x3b09e15d85046448ull},
    {"energy, inverse",                  DQ_UCHAR,  2, 0, 0.0f, 0.0f, -1, -1, 0x8f945f49feb966e2ull},
    {"energy, smart blend",              DQ_UCHAR,  2, 1, 0.0f, 0.0f, -1, -1, 0x89ba462c9de23743ull},
    {"energy, forward",                  DQ_UCHAR,  2, 2, 0.0f, 0.0f, -1, -1, 0xd1b0cb482094bd21ull},
    {"blend, 16 bits",                   DQ_USHORT, 1, 0, 0.0f, 0.0f, -1, -1, 0xdc4f9a6943264297ull},
    {"blend, float",                     DQ_FLOAT,  1, 1, 0.0f, 0.0f, -1, -1, 0x12a8d1613b96f009ull},
    {"energy, float",                    DQ_FLOAT,  2, 0, 0.0f, 0.0f, -1, -1, 0xa1fa68377ab932b0ull},
    {"blend, motion blur, grown matte",  DQ_UCHAR,  1, 0, 1.0f, 1.5f, -1, -1, 0x12fc2706f1ad0c8full},
    {"blend, foreground alone",          DQ_UCHAR,  1, 0, 0.0f, 0.0f,  0,  0, 0x93b9f5f0e5ab51daull},
    {"blend, background alone",          DQ_USHORT, 1, 1, 0.0f, 0.0f,  1,  1, 0x7a8570abef2f92d2ull},
};
// clang-format on

TEST(LayerRoadPinned, EverySettingGivesItsPinnedPicture) {
    WorkerScope::Set(3, kWidth, kHeight);
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.name);
        LayeredClipEngine engine;
        ASSERT_EQ(engine.Init(), 0);
        engine.mattes.resize(1);
        for (int f = 0; f < 2; ++f) {
            engine.frames.push_back(Frame(float(f), c.type));
            engine.mattes[0].push_back(Matte(float(f), c.type));
        }
        engine.warpingMode = c.warping;
        engine.shrink[0] = c.shrink;
        engine.drawStart = c.drawStart;
        engine.drawEnd = c.drawEnd;
        OwnedFrame result(kWidth, kHeight, 4, c.type);
        RenderSettings s;
        s.interpolation = c.interpolation;
        s.timeBegin = 0.4f;
        s.timeEnd = c.motionBlur > 0.0f ? 1.9f : 1.4f;
        s.motionBlur = c.motionBlur;
        ASSERT_EQ(engine.RenderLayers(result.Image(), s), 0);
        const uint64_t sum = Checksum(*result.Pixels());
        EXPECT_EQ(sum, c.checksum) << std::hex << "0x" << sum << "ull";
    }
    WorkerScope::Set(1, 0, 0);
}

} // namespace
} // namespace quelmor::test
