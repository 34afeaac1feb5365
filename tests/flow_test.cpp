// The flow object: its levels, input conversion, start level, failure paths and what whole runs
// recover from synthetic pairs with known motion.
#include "FlowTestImages.h"
#include "TestSupport.h"
#include "flow/Flow.h"
#include "image/Progress.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

namespace {

using Owned = quelmor::test::FlowOwned;
using quelmor::test::FloatImage;
using quelmor::test::PrintedBy;

// A smooth random texture of many orientations and scales, defined everywhere so that shifted
// copies are exact. `scale` stretches it with the input size.
struct Texture {
    double waves[20][3]; // kx, ky, phase
    explicit Texture(float scale) {
        std::mt19937 random(7);
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        for (double* w : waves) {
            const float angle = 6.2831853f * unit(random);
            const float wavelength = scale * 7.0f * std::pow(9.0f, unit(random));
            w[0] = 6.2831853f * std::cos(angle) / wavelength;
            w[1] = 6.2831853f * std::sin(angle) / wavelength;
            w[2] = 6.2831853f * unit(random);
        }
    }
    float operator()(double x, double y) const {
        double v = 128.0;
        for (const double* w : waves)
            v += 16.0 * std::sin(w[0] * x + w[1] * y + w[2]);
        return static_cast<float>(std::clamp(v, 0.0, 255.0));
    }
};

// One float channel, white point 1, holding the texture moved by (dx, dy): pixel (x, y) shows
// the texture at (x - dx, y - dy).
Owned Shifted(const Texture& texture, int w, int h, double dx, double dy) {
    Owned image = FloatImage(w, h, 1);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
            image->Row<float>(y)[x] = texture(x - dx, y - dy) / 255.0f;
    return image;
}

struct FlowError {
    double meanX, meanY, meanError;
};

// Compares a flow with a constant vector over the interior.
FlowError Measure(const DQImage* flow, double fx, double fy, int margin) {
    FlowError e{};
    double n = 0.0;
    for (int y = margin; y < flow->height - margin; ++y)
        for (int x = margin; x < flow->width - margin; ++x, ++n) {
            const float* f = flow->Row<float>(y) + 2 * x;
            e.meanX += f[0];
            e.meanY += f[1];
            e.meanError += std::hypot(f[0] - fx, f[1] - fy);
        }
    e.meanX /= n;
    e.meanY /= n;
    e.meanError /= n;
    return e;
}

class FlowObjectTest : public quelmor::test::ParallelTest {};

TEST_F(FlowObjectTest, LevelCountsAndSizes) {
    struct Case {
        const char* name;
        int w, h, reduction, minLevelSize;
        int width, height, levels, lastW, lastH;
    } cases[] = {{"360x243 at full size", 360, 243, 0, 2, 360, 243, 7, 5, 3},
                 {"720x486 halved, odd height", 720, 487, 1, 2, 360, 243, 7, 5, 3},
                 {"a side of 5 gives one level", 40, 10, 1, 2, 20, 5, 1, 20, 5},
                 {"minimum level size 10", 360, 243, 0, 10, 360, 243, 5, 22, 15}};
    for (const Case& c : cases) {
        DQOpticalFlowUChar flow(c.w, c.h, c.reduction, 1, 1, c.minLevelSize);
        EXPECT_EQ(flow.error, 0) << c.name;
        EXPECT_EQ(flow.width, c.width) << c.name;
        EXPECT_EQ(flow.height, c.height) << c.name;
        EXPECT_EQ(flow.numLevels, c.levels) << c.name;
        EXPECT_EQ(flow.startLevel, c.levels - 1) << c.name;
        const int last = flow.numLevels - 1;
        for (DQImage** levels : {flow.imageALevels, flow.flowLevels, flow.seedWeightLevels,
                                 flow.matteBLevels, flow.tensorLevels}) {
            EXPECT_EQ(levels[last]->width, c.lastW) << c.name;
            EXPECT_EQ(levels[last]->height, c.lastH) << c.name;
        }
    }
    DQOpticalFlowUChar plain(64, 64, 0, 0, 0, 2);
    EXPECT_EQ(plain.seedFlowLevels, nullptr);
    EXPECT_EQ(plain.matteALevels, nullptr);
}

TEST_F(FlowObjectTest, StartLevelAndFadeFromSensitivity) {
    // Sensitivity, start level, fade: 1 and above use every level, 0.7 starts one level lower,
    // faded, 0.5 lands on a whole level with fade 0, 0 and tiny values run level 0.
    const float cases[][3] = {{1.0f, 6, 1.0f}, {3.0f, 6, 1.0f}, {0.7f, 5, 0.97089f},
                              {0.5f, 5, 0.0f}, {0.0f, 0, 0.0f}, {0.05f, 0, 0.0f}};
    for (const auto& c : cases) {
        int start = -1;
        float fade = -1.0f;
        DQOpticalFlowUChar::ChooseStartLevel(7, c[0], &start, &fade);
        EXPECT_EQ(start, int(c[1])) << "sensitivity " << c[0];
        EXPECT_NEAR(fade, c[2], 1e-4) << "sensitivity " << c[0];
    }
}

TEST_F(FlowObjectTest, InputConversionTable) {
    const double v = 255.0 / 219.0;
    struct Case {
        const char* name;
        int type, channels;
        bool video;
        float pixel[4];
        double expected;
    } cases[] = {
        {"8-bit RGB luma", DQ_UCHAR, 3, false, {100, 200, 50}, 153.5},
        {"16-bit RGBA luma", DQ_USHORT, 4, false, {25700, 51400, 12850, 0}, 153.5},
        {"float RGB luma", DQ_FLOAT, 3, false, {0.4f, 0.8f, 0.2f}, 0.614 * 255.0},
        {"8-bit RGB, video /257", DQ_UCHAR, 3, true, {200, 0, 0}, (200.0 / 257.0 - 16.0) * v},
        {"8-bit RGBA, video takes c1", DQ_UCHAR, 4, true, {0, 116, 0, 0}, 100.0 * v},
        {"16-bit RGB, video has no offset", DQ_USHORT, 3, true, {25700, 0, 0}, 100.0 * v},
        {"float RGB, video has no offset", DQ_FLOAT, 3, true, {0.4f, 0, 0}, 0.4 * 255.0 * v},
        {"float grey, video", DQ_FLOAT, 1, true, {0.5f}, 127.5}};
    for (const Case& c : cases) {
        DQImage source(2, 1, c.channels, c.type, 0);
        for (int x = 0; x < 2; ++x)
            source.SetPixelFloat(x, 0, c.pixel);
        Owned target = FloatImage(2, 1, 1, -1.0f);
        DQFlowConvertInput(target.get(), &source, c.video);
        EXPECT_NEAR(target->Row<float>(0)[1], c.expected, 1e-3) << c.name;
    }
    // Two channels and a float image off the unit scale leave the target as it was.
    Owned target = FloatImage(2, 1, 1, -1.0f);
    DQFlowConvertInput(target.get(), FloatImage(2, 1, 2).get(), false);
    EXPECT_EQ(target->Row<float>(0)[0], -1.0f);
    Owned offScale = FloatImage(2, 1, 1, 0.5f);
    offScale->whitePoint = 255.0f;
    EXPECT_EQ(PrintedBy([&] { DQFlowConvertInput(target.get(), offScale.get(), false); }),
              " floating image input to DQOpticalFlowUChar is not in correct range\n");
    EXPECT_EQ(target->Row<float>(0)[0], -1.0f);
}

TEST_F(FlowObjectTest, RunsRecoverKnownMotion) {
    // B shows A's texture moved by (dx, dy) level-0 pixels, so that A(x, y) = B(x + dx, y + dy)
    // and the flow should read (dx, dy): the signs of the two axes differ, so a flipped sign
    // shows. `reverse` solves B to A again from the swapped pyramids.
    struct Case {
        const char* name;
        int reduction;
        double dx, dy;
        float sensitivity;
        int w0, h0;
        bool reverse;
        double ex, ey, within; // expected vector and mean error bound; within < 0: lost
    } cases[] = {
        {"sub-pixel, full size", 0, 2.6, -1.3, 1.0f, 96, 64, false, 2.6, -1.3, 0.1},
        {"sub-pixel, reduced once", 1, 2.6, -1.3, 1.0f, 96, 64, false, 2.6, -1.3, 0.1},
        {"sub-pixel, reduced twice", 2, 2.6, -1.3, 1.0f, 96, 64, false, 2.6, -1.3, 0.1},
        {"sub-pixel, reduced three times", 3, 2.6, -1.3, 1.0f, 96, 64, false, 2.6, -1.3, 0.1},
        {"large shift from the top level", 0, 9.4, 6.2, 1.0f, 128, 96, false, 9.4, 6.2, 0.1},
        {"large shift out of reach 4 levels down", 0, 9.4, 6.2, 0.25f, 128, 96, false, 9.4, 6.2,
         -2.0},
        {"reverse from swapped pyramids", 0, 1.7, 0.8, 1.0f, 96, 64, true, -1.7, -0.8, 0.1},
        {"identical images give exactly zero", 0, 0.0, 0.0, 1.0f, 80, 60, false, 0.0, 0.0, 0.0},
        {"sensitivity 0 gives exactly zero", 0, 2.0, 1.0, 0.0f, 80, 60, false, 0.0, 0.0, 0.0}};
    for (const Case& c : cases) {
        const int scale = 1 << c.reduction, w = c.w0 * scale, h = c.h0 * scale;
        // Level 0 maps the first and last input pixels onto each other.
        const Texture texture(static_cast<float>(scale));
        Owned a = Shifted(texture, w, h, 0.0, 0.0);
        Owned b = Shifted(texture, w, h, c.dx * (w - 1) / (c.w0 - 1), c.dy * (h - 1) / (c.h0 - 1));
        DQOpticalFlowUChar flow(0, w, h, c.reduction, 0, 0, 2);
        ASSERT_EQ(flow.error, 0) << c.name;
        flow.SetSensitivity(c.sensitivity);
        Owned result = FloatImage(c.w0, c.h0, 2);
        flow.ComputeFlow(result.get(), a.get(), b.get(), 1, 1, 0, nullptr);
        if (c.reverse) {
            flow.SwapImages();
            flow.SolveLoadedFlow(result.get(), 1, 0, nullptr);
        }
        const FlowError e = Measure(result.get(), c.ex, c.ey, c.within == 0.0 ? 0 : 10);
        if (c.within < 0.0) {
            EXPECT_GT(e.meanError, -c.within) << c.name;
            continue;
        }
        EXPECT_LE(e.meanError, c.within) << c.name;
        EXPECT_NEAR(e.meanX, c.ex, 0.1) << c.name;
        EXPECT_NEAR(e.meanY, c.ey, 0.1) << c.name;
    }
}

TEST_F(FlowObjectTest, ResultDoesNotDependOnTheWorkerCount) {
    Texture texture(2.0f);
    Owned a = Shifted(texture, 256, 160, 0.0, 0.0), b = Shifted(texture, 256, 160, 3.3, -2.1);
    std::vector<Owned> results;
    quelmor::test::ForWorkerCounts([&](int) {
        DQOpticalFlowUChar flow(256, 160, 1, 0, 0, 2);
        flow.SetSensitivity(0.7f);
        results.push_back(FloatImage(128, 80, 2));
        flow.ComputeFlow(results.back().get(), a.get(), b.get(), 1, 1, 0, nullptr);
    });
    for (size_t i = 1; i < results.size(); ++i) {
        double largest = 0.0;
        for (int y = 0; y < 80; ++y)
            for (int x = 0; x < 256; ++x)
                largest = std::max(largest, double(std::fabs(results[i]->Row<float>(y)[x] -
                                                             results[0]->Row<float>(y)[x])));
        EXPECT_LT(largest, 1e-3) << "run " << i;
    }
}

TEST_F(FlowObjectTest, MattesRemoveDataAndHoldOnlyZeroAndOne) {
    Texture texture(1.0f);
    Owned a = Shifted(texture, 96, 64, 0.0, 0.0), b = Shifted(texture, 96, 64, 2.0, 1.0);
    // One matte value for the whole frame: 255 keeps every pixel, 0 removes them all and 254
    // counts as outside; -1 is a disc of 255 on 100.
    for (const int value : {255, 0, 254, -1}) {
        SCOPED_TRACE(testing::Message() << "matte " << value);
        DQImage matte(96, 64, 1, DQ_UCHAR, 0);
        for (int y = 0; y < 64; ++y)
            for (int x = 0; x < 96; ++x)
                matte.Row<uint8_t>(y)[x] =
                    static_cast<uint8_t>(value >= 0                              ? value
                                         : std::hypot(x - 48.0, y - 32.0) < 20.0 ? 255
                                                                                 : 100);
        DQOpticalFlowUChar flow(96, 64, 0, 0, 1, 2);
        flow.LoadMatte(&matte, 0);
        flow.LoadMatte(&matte, 1);
        // Every level holds only 0 and 1; the disc keeps ones on the finer levels only.
        for (int level = 0; level < flow.numLevels; ++level) {
            const DQImage* m = flow.matteALevels[level];
            int ones = 0;
            for (int y = 0; y < m->height; ++y)
                for (int x = 0; x < m->width; ++x) {
                    const float v = m->Row<float>(y)[x];
                    EXPECT_TRUE(v == 0.0f || v == 1.0f) << "level " << level;
                    ones += v == 1.0f;
                }
            const int all = m->width * m->height;
            EXPECT_EQ(ones, value == 255 ? all : value >= 0 ? 0 : ones) << "level " << level;
            if (value < 0 && level < 3) {
                EXPECT_GT(ones, 0) << "level " << level;
                EXPECT_LT(ones, all) << "level " << level;
            }
        }
        if (value < 0) continue;
        flow.LoadImage(a.get(), nullptr, b.get(), 0, false);
        flow.LoadImage(b.get(), nullptr, a.get(), 1, false);
        Owned result = FloatImage(96, 64, 2);
        flow.ComputeLoadedFlow(result.get(), 1, 1, 0, nullptr);
        const FlowError e = Measure(result.get(), 2.0, 1.0, 10);
        if (value == 255) {
            EXPECT_LT(e.meanError, 0.1);
        } else {
            EXPECT_EQ(e.meanX, 0.0) << "no vector at all";
            EXPECT_EQ(e.meanY, 0.0) << "no vector at all";
        }
    }
}

TEST_F(FlowObjectTest, SeedPinsItsVector) {
    // A flat pair has no data at all: only the seeds decide.
    DQOpticalFlowUChar flow(128, 96, 1, 1, 0, 2);
    Owned big = FloatImage(128, 96, 1, 0.5f);
    flow.ClearSeeds();
    // Source coordinates of a 128x96 frame; level 0 is 64x48, so they scale by 63/127, 47/95.
    flow.AddSeed(40.0f, 30.0f, 50.0f, 22.0f, 127.0f, 95.0f);
    flow.AddSeed(40.0f, 30.0f, 54.0f, 26.0f, 127.0f, 95.0f); // averaged with the first
    flow.AddSeed(-5.0f, 30.0f, 0.0f, 0.0f, 127.0f, 95.0f);   // dropped: outside
    flow.AddZeroSeed(100.0f, 80.0f, 127.0f, 95.0f);
    flow.FinishSeeds();
    const float sx = 63.0f / 127.0f, sy = 47.0f / 95.0f;
    const int px = static_cast<int>(40.0f * sx + 0.5), py = static_cast<int>(30.0f * sy + 0.5);
    EXPECT_EQ(flow.GetSeedWeight()->Row<float>(py)[px], 1.0f);
    flow.ComputeFlow(nullptr, big.get(), big.get(), 1, 1, 0, nullptr);
    const float* pinned = flow.flowLevels[0]->Row<float>(py) + 2 * px;
    EXPECT_NEAR(pinned[0], 12.0f * sx, 1e-4);
    EXPECT_NEAR(pinned[1], -6.0f * sy, 1e-4);
    const int zx = static_cast<int>(100.0f * sx + 0.5), zy = static_cast<int>(80.0f * sy + 0.5);
    EXPECT_EQ(flow.flowLevels[0]->Row<float>(zy)[2 * zx], 0.0f);
}

TEST_F(FlowObjectTest, BadInputsAreRefusedWithoutDamage) {
    Texture texture(1.0f);
    Owned a = Shifted(texture, 64, 48, 0.0, 0.0);
    DQImage rgba(64, 48, 4, DQ_FLOAT, 0), narrow(60, 48, 1, DQ_FLOAT, 0),
        grey(64, 48, 1, DQ_UCHAR, 0);
    struct Case {
        const char* name;
        DQImage* b;
    } cases[] = {{"channels differ", &rgba}, {"widths differ", &narrow}, {"types differ", &grey}};
    for (const Case& c : cases) {
        DQOpticalFlowUChar flow(64, 48, 0, 0, 0, 2);
        flow.flowLevels[0]->Row<float>(5)[5] = 42.0f;
        EXPECT_EQ(PrintedBy([&] { flow.ComputeFlow(nullptr, a.get(), c.b, 1, 1, 0, nullptr); }),
                  "calculating flow, incompatible inputs!\n")
            << c.name;
        EXPECT_EQ(flow.flowLevels[0]->Row<float>(5)[5], 42.0f) << c.name;
    }
    // A pair of the wrong size for the object is reported and still run.
    DQOpticalFlowUChar flow(128, 96, 0, 0, 0, 2);
    EXPECT_NE(PrintedBy([&] {
                  flow.ComputeFlow(nullptr, a.get(), a.get(), 1, 1, 0, nullptr);
              }).find("incorrect with and height\n"),
              std::string::npos);
}

TEST_F(FlowObjectTest, FailedConstructionReleasesEverything) {
    static int budget;
    auto allocate = [](void*, size_t size) -> void* {
        return budget-- > 0 ? malloc(size) : nullptr;
    };
    auto release = [](void*, void* p) { free(p); };
    for (int allowed : {0, 3, 12, 40})
        for (int throwOnError : {0, 1}) {
            SCOPED_TRACE(testing::Message() << allowed << " allocations, throw " << throwOnError);
            DQOpticalFlowUChar* object = nullptr;
            int caught = -1;
            budget = allowed + 1; // room for the object itself
            ZUMemSetAllocator(nullptr, allocate, release);
            try {
                object = new DQOpticalFlowUChar(throwOnError, 64, 48, 0, 1, 1, 2);
            } catch (DQErr code) {
                caught = code;
            }
            ZUMemSetAllocator(nullptr, nullptr, nullptr);
            if (throwOnError) {
                EXPECT_EQ(caught, kDQErrMemory);
                continue;
            }
            ASSERT_NE(object, nullptr);
            EXPECT_EQ(caught, -1);
            EXPECT_EQ(object->error, kDQErrMemory);
            EXPECT_EQ(object->flowLevels, nullptr);
            EXPECT_EQ(object->matteBLevels, nullptr);
            delete object;
        }
}

TEST_F(FlowObjectTest, InterruptionRestoresMattesAndKeepsPyramidsUsable) {
    Texture texture(1.0f);
    Owned a = Shifted(texture, 96, 64, 0.0, 0.0);
    Owned b = Shifted(texture, 96, 64, 2.0, 1.0);
    DQOpticalFlowUChar flow(96, 64, 0, 0, 1, 2);
    DQImage** matteA = flow.matteALevels;
    ZUIdleAndProgressClass progress;
    progress.SetInterrupted(true);
    int caught = -1;
    try {
        flow.ComputeFlowIgnoringMattes(nullptr, a.get(), b.get(), 1, 1, 0, &progress);
    } catch (DQErr code) {
        caught = code;
    }
    EXPECT_EQ(caught, kDQErrInterrupted);
    EXPECT_EQ(flow.useMattes, 1);
    EXPECT_EQ(flow.matteALevels, matteA);
    // The loaded, band-passed pyramids serve the next run.
    Owned result = FloatImage(96, 64, 2);
    flow.SolveLoadedFlowIgnoringMattes(result.get(), 1, 0, nullptr);
    EXPECT_LT(Measure(result.get(), 2.0, 1.0, 10).meanError, 0.1);
    EXPECT_EQ(flow.useMattes, 1);
}

} // namespace
