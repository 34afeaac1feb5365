// The copies of the pixel kernels, baseline, AVX2 and AVX-512: choosing the level, and real work
// on every level the processor has giving the same bytes, so that frames rendered on different
// processors match.
#include "ImagePatterns.h"
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "WarpTestImages.h"
#include "engine/EngineInternal.h"
#include "engine/Mix.h"
#include "flow/Flow.h"
#include "flow/FlowFilter.h"
#include "flow/InvertFlow.h"
#include "image/CpuLevel.h"
#include "warp/Filters.h"
#include "warp/Warp.h"
#include "warp/WarpForward.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace quelmor::test;

namespace {

// The level in force before any test changes it: what the environment and the processor chose.
const int kStartLevel = DQCpuLevel();

// Runs each case on every level the processor and the build have, and restores the best level
// after it.
class CpuLevels : public ParallelTest {
protected:
    void SetUp() override {
        ParallelTest::SetUp();
        if (DQCpuBestLevel() < DQ_CPU_AVX2)
            GTEST_SKIP() << "this processor or build has only the baseline kernels";
    }
    void TearDown() override {
        DQSetCpuLevel(DQCpuBestLevel());
        ParallelTest::TearDown();
    }

    // Runs `work` on each level and expects the images it returns to hold the same bytes as
    // those of the baseline.
    void ExpectSameBytes(const std::string& what,
                         const std::function<std::vector<DQImagePtr>()>& work) {
        SCOPED_TRACE(what);
        ASSERT_EQ(DQSetCpuLevel(DQ_CPU_BASELINE), DQ_CPU_BASELINE);
        const std::vector<DQImagePtr> baseline = work();
        for (int level = DQ_CPU_BASELINE + 1; level <= DQCpuBestLevel(); ++level) {
            SCOPED_TRACE(DQCpuLevelName(level));
            ASSERT_EQ(DQSetCpuLevel(level), level);
            const std::vector<DQImagePtr> other = work();
            ASSERT_EQ(baseline.size(), other.size());
            for (size_t i = 0; i < baseline.size(); ++i) {
                const DQImage& a = *baseline[i];
                const DQImage& b = *other[i];
                ASSERT_EQ(a.width, b.width);
                ASSERT_EQ(a.height, b.height);
                ASSERT_EQ(a.pixelBytes, b.pixelBytes);
                int rowsDiffering = 0;
                for (int y = 0; y < a.height; ++y)
                    rowsDiffering += std::memcmp(a.RowAddress(y), b.RowAddress(y),
                                                 static_cast<size_t>(a.width) * a.pixelBytes) != 0;
                EXPECT_EQ(rowsDiffering, 0) << "image " << i << " differs from the baseline";
            }
        }
    }
};

// A smooth texture of several orientations, defined everywhere, so that shifted copies are exact.
float Texture(double x, double y) {
    static const double waves[][3] = {{0.31, 0.07, 0.4}, {-0.12, 0.27, 1.9}, {0.05, -0.19, 2.6},
                                      {0.21, 0.22, 0.7}, {-0.36, 0.11, 3.1}, {0.09, 0.41, 5.2}};
    double v = 128.0;
    for (const double* w : waves)
        v += 19.0 * std::sin(w[0] * x + w[1] * y + w[2]);
    return static_cast<float>(v);
}

// The texture moved by (dx, dy), in `channels` channels of `dataType` (alpha full where there
// are four).
DQImagePtr Shifted(int w, int h, int channels, int dataType, double dx, double dy) {
    const double white = dataType == DQ_UCHAR ? 255.0 : dataType == DQ_USHORT ? 65535.0 : 1.0;
    return MakeImage(w, h, channels, dataType, [=](int x, int y, int c) {
        if (c == 3) return white;
        const double v = Texture(x - dx + 3.0 * c, y - dy) / 255.0 * white;
        return white == 1.0 ? v : std::floor(v);
    });
}

// The texture stretched three times over and cut at black and white, so that samples and mixes
// of it reach both ends of the range and past them.
DQImagePtr Saturated(int w, int h, int channels, int dataType, double dx, double dy) {
    const double white = dataType == DQ_UCHAR ? 255.0 : dataType == DQ_USHORT ? 65535.0 : 1.0;
    return MakeImage(w, h, channels, dataType, [=](int x, int y, int c) {
        if (c == 3 && channels == 4) return white;
        const double v = (3.0 * (Texture(x - dx + 3.0 * c, y - dy) - 128.0) + 128.0) / 255.0;
        const double cut = std::clamp(v, 0.0, 1.0) * white;
        return white == 1.0 ? cut : std::floor(cut);
    });
}

// Counts the 8-bit elements of `image` that are 0 and those that are 255.
std::pair<long, long> EndsOfRange(const DQImage& image) {
    long black = 0, white = 0;
    for (int y = 0; y < image.height; ++y) {
        const uint8_t* row = image.Row<uint8_t>(y);
        for (int i = 0; i < image.width * image.channels; ++i) {
            black += row[i] == 0;
            white += row[i] == 255;
        }
    }
    return {black, white};
}

// A swirl that reaches past every edge, with fractional vectors everywhere.
DQImagePtr Swirl(int w, int h, float strength) {
    return MakeFlow(w, h, [=](int x, int y, float& u, float& v) {
        const float cx = x - 0.5f * w, cy = y - 0.5f * h;
        u = -cy * strength + 0.37f * std::sin(0.4f * x);
        v = cx * strength + 0.21f * std::cos(0.3f * y);
    });
}

std::string Name(const char* what, int dataType, int channels) {
    return std::string(what) + " " + Describe(dataType, channels);
}

// The suite also runs with QUELMOR_CPU set to each name and to a name of no level (see
// tests/CMakeLists.txt).
TEST(CpuLevel, StartsAtTheLevelTheEnvironmentAsksFor) {
    const char* forced = std::getenv("QUELMOR_CPU");
    const int named = forced ? DQCpuLevelNamed(forced) : -1;
    const int expected = named < 0 ? DQCpuBestLevel() : std::min(named, DQCpuBestLevel());
    EXPECT_EQ(kStartLevel, expected) << "QUELMOR_CPU=" << (forced ? forced : "(unset)");
}

TEST(CpuLevel, SwitchesAndFallsBackToWhatTheProcessorHas) {
    const int best = DQCpuBestLevel();
    for (int level : {DQ_CPU_BASELINE, DQ_CPU_AVX2, DQ_CPU_AVX512}) {
        const int expected = std::min(level, best);
        EXPECT_EQ(DQSetCpuLevel(level), expected) << DQCpuLevelName(level);
        EXPECT_EQ(DQCpuLevel(), expected) << DQCpuLevelName(level);
    }
    EXPECT_EQ(DQSetCpuLevel(99), best) << "a level above the best falls back to it";
    EXPECT_EQ(DQSetCpuLevel(-1), DQ_CPU_BASELINE);
    DQSetCpuLevel(best);
}

TEST(CpuLevel, NamesOfTheLevels) {
    const struct {
        const char* name;
        int level;
    } cases[] = {{"baseline", DQ_CPU_BASELINE},
                 {"avx2", DQ_CPU_AVX2},
                 {"avx512", DQ_CPU_AVX512},
                 {"AVX2", -1},
                 {"avx", -1},
                 {"avx5120", -1},
                 {"", -1},
                 {"baseline ", -1},
                 {nullptr, -1}};
    for (const auto& c : cases) {
        const std::string shown = c.name ? std::string("\"") + c.name + "\"" : "null";
        EXPECT_EQ(DQCpuLevelNamed(c.name), c.level) << shown;
        if (c.level >= 0) {
            ASSERT_NE(DQCpuLevelName(c.level), nullptr) << shown;
            EXPECT_STREQ(DQCpuLevelName(c.level), c.name);
        }
    }
    EXPECT_EQ(DQCpuLevelName(-1), nullptr);
    EXPECT_EQ(DQCpuLevelName(DQ_CPU_AVX512 + 1), nullptr);
}

TEST_F(CpuLevels, InverseWarpOfEveryElementType) {
    constexpr int kW = 67, kH = 45; // odd sizes leave rows that are not whole blocks of eight
    DQImagePtr flow = Swirl(34, 23, 0.09f);
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int channels = 1; channels <= 4; ++channels) {
            DQImagePtr source = Shifted(kW, kH, channels, type, 0.0, 0.0);
            // Extend or fade at the edges, bilinear (1) or through the mip map (0, 2).
            for (auto [extend, filter] : {std::pair{0, 1}, {1, 1}, {0, 0}, {1, 2}})
                ExpectSameBytes(Name("warp", type, channels) + " extend " + std::to_string(extend) +
                                    " filter " + std::to_string(filter),
                                [&] {
                                    std::vector<DQImagePtr> out;
                                    out.push_back(DQMakeImage(kW, kH, channels, type));
                                    out.push_back(DQMakeImage(kW, kH, 1, DQ_UCHAR));
                                    EXPECT_EQ(DQWarpInverse(out[0].get(), source.get(), flow.get(),
                                                            extend, out[1].get(), filter, 1.3f),
                                              1);
                                    return out;
                                });
        }
}

// The forward warp draws the cells of a mesh row in blocks as wide as the level's vectors; rows
// that are not whole blocks, folds, overlaps and stretches must give the same pixels on every
// level, and so must the flow inversion, which draws the same mesh.
TEST_F(CpuLevels, ForwardWarpAndFlowInversion) {
    constexpr int kW = 67, kH = 45;
    const struct {
        const char* name;
        DQImagePtr flow;
        float scale;
    } flows[] = {{"swirl", Swirl(34, 23, 0.09f), 1.7f},
                 {"zoom",
                  MakeFlow(34, 23,
                           [](int x, int y, float& u, float& v) {
                               u = 0.45f * (x - 17.0f) + 0.3f * std::sin(0.5f * y);
                               v = -0.35f * (y - 11.0f);
                           }),
                  1.0f}};
    for (const auto& f : flows)
        for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
            for (bool withWeight : {false, true}) {
                DQImagePtr source = Shifted(kW, kH, 4, type, 0.0, 0.0);
                ExpectSameBytes(
                    Name("forward", type, 4) + " " + f.name + (withWeight ? " weight" : ""), [&] {
                        std::vector<DQImagePtr> out;
                        out.push_back(DQMakeImage(kW, kH, 4, type));
                        if (withWeight) out.push_back(DQMakeImage(kW, kH, 1, DQ_UCHAR));
                        EXPECT_EQ(DQWarpForward(out[0].get(), source.get(), f.flow.get(), nullptr,
                                                withWeight ? out[1].get() : nullptr, f.scale),
                                  1);
                        return out;
                    });
            }
    for (const auto& f : flows)
        ExpectSameBytes(std::string("inverse of ") + f.name, [&] {
            std::vector<DQImagePtr> out;
            out.push_back(DQMakeImage(f.flow->width, f.flow->height, 2, DQ_FLOAT));
            out.push_back(DQMakeImage(f.flow->width, f.flow->height, 1, DQ_UCHAR));
            DQInvertFlow(out[0].get(), f.flow.get(), out[1].get(), nullptr);
            return out;
        });
}

TEST_F(CpuLevels, BlurAlongVectors) {
    constexpr int kW = 61, kH = 37;
    DQImagePtr flow = Swirl(31, 19, 0.15f);
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int channels : {3, 4}) {
            DQImagePtr source = Shifted(kW, kH, channels, type, 0.0, 0.0);
            for (int filtered : {0, 1})
                ExpectSameBytes(
                    Name("blur", type, channels) + " filtered " + std::to_string(filtered), [&] {
                        std::vector<DQImagePtr> out;
                        out.push_back(DQMakeImage(kW, kH, channels, type));
                        DQBlurAlongFlow(out[0].get(), source.get(), flow.get(), filtered, nullptr,
                                        0, 0.8f);
                        return out;
                    });
        }
}

TEST_F(CpuLevels, FiltersResizeAndMixes) {
    constexpr int kW = 75, kH = 41;
    DQImagePtr grey = Shifted(kW, kH, 1, DQ_FLOAT, 0.0, 0.0);
    for (DQFlowFilterKind kind :
         {DQFlowFilterKind::Binomial, DQFlowFilterKind::Gauss3, DQFlowFilterKind::Gauss7})
        ExpectSameBytes("flow blur " + std::to_string(static_cast<int>(kind)), [&] {
            std::vector<DQImagePtr> out;
            out.push_back(DQMakeImage(kW, kH, 1, DQ_FLOAT));
            DQFlowBuffer plane;
            DQFlowBlur(out[0].get(), grey.get(), kind, plane);
            return out;
        });
    // The separable blurs of every type and channel count, both axes and one.
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int channels = 1; channels <= 4; ++channels) {
            DQImagePtr source = Shifted(kW, kH, channels, type, 0.0, 0.0);
            ExpectSameBytes(Name("separable blurs", type, channels), [&] {
                std::vector<DQImagePtr> out;
                for (int i = 0; i < 4; ++i)
                    out.push_back(Duplicate(*source));
                BlurGauss(out[0].get(), 0, 4.5f);
                BlurBox(out[1].get(), 2, 2.5f);
                Blur5(out[2].get());
                BlurGauss(out[3].get(), 3, 1.7f);
                return out;
            });
        }
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT}) {
        DQImagePtr a = Shifted(kW, kH, 4, type, 0.0, 0.0);
        DQImagePtr b = Shifted(kW, kH, 4, type, 2.5, -1.5);
        ExpectSameBytes(Name("resize and mixes", type, 4), [&] {
            std::vector<DQImagePtr> out;
            out.push_back(DQMakeImage(31, 53, 4, type));
            ResizeBilinear(out[0].get(), a.get());
            out.push_back(DQMakeImage(kW, kH, 4, type));
            Dissolve(out[1].get(), a.get(), b.get(), 0.37f);
            out.push_back(Duplicate(*a));
            EXPECT_NE(DQBlendParallel(out[2].get(), b.get(), 0.61f), 0);
            return out;
        });
    }
}

// Samples and mixes that land beyond black and white must be cut at the same values on both
// levels; an 8-bit result is checked to reach both ends so that the cut is really taken.
TEST_F(CpuLevels, SamplesAndMixesCutAtBlackAndWhite) {
    constexpr int kW = 71, kH = 39;
    DQImagePtr flow = Swirl(36, 20, 0.08f);
    for (int type : {DQ_UCHAR, DQ_USHORT, DQ_FLOAT})
        for (int channels = 1; channels <= 4; ++channels) {
            DQImagePtr a = Saturated(kW, kH, channels, type, 0.0, 0.0);
            DQImagePtr b = Saturated(kW, kH, channels, type, 3.5, -2.25);
            // The counts of black and white elements of the warps and mixes, on the last level.
            std::vector<std::pair<long, long>> ends;
            ExpectSameBytes(Name("cut samples and mixes", type, channels), [&] {
                std::vector<DQImagePtr> out;
                for (int extend : {0, 1}) {
                    out.push_back(DQMakeImage(kW, kH, channels, type));
                    out.push_back(DQMakeImage(kW, kH, 1, DQ_UCHAR));
                    EXPECT_EQ(DQWarpInverse(out[out.size() - 2].get(), a.get(), flow.get(), extend,
                                            out.back().get(), 1, 1.0f),
                              1);
                }
                for (float t : {0.37f, -0.45f, 1.6f}) {
                    out.push_back(DQMakeImage(kW, kH, channels, type));
                    Dissolve(out.back().get(), a.get(), b.get(), t);
                }
                ends.clear();
                if (type == DQ_UCHAR)
                    for (size_t i : {0, 2, 4, 5, 6})
                        ends.push_back(EndsOfRange(*out[i]));
                return out;
            });
            for (size_t i = 0; i < ends.size(); ++i) {
                EXPECT_GT(ends[i].first, 0) << "result " << i << " has no black";
                EXPECT_GT(ends[i].second, 0) << "result " << i << " has no white";
            }
            if (type == DQ_UCHAR) {
                EXPECT_EQ(ends.size(), 5u);
            }
        }
}

TEST_F(CpuLevels, FlowOfTexturedImages) {
    constexpr int kW = 192, kH = 120;
    DQImagePtr a = Shifted(kW, kH, 1, DQ_FLOAT, 0.0, 0.0);
    DQImagePtr b = Shifted(kW, kH, 1, DQ_FLOAT, 3.3, -2.1);
    // With and without the propagation of vectors between neighbours.
    for (int skipPropagation : {0, 1})
        ExpectSameBytes("flow, skip propagation " + std::to_string(skipPropagation), [&] {
            std::vector<DQImagePtr> out;
            out.push_back(DQMakeImage(kW / 2, kH / 2, 2, DQ_FLOAT));
            DQOpticalFlowUChar flow(kW, kH, 1, 0, 0, 2);
            flow.SetSensitivity(0.7f);
            flow.ComputeFlow(out[0].get(), a.get(), b.get(), 1, 1, skipPropagation, nullptr);
            return out;
        });
}

TEST_F(CpuLevels, WholeEngineFrame) {
    constexpr int kW = 96, kH = 64;
    // Blend and "Weighted Energy Blend", with motion blur on the second.
    for (auto [interpolation, blur] : {std::pair{1L, 0.0f}, {2L, 0.6f}})
        ExpectSameBytes("engine frame, interpolation " + std::to_string(interpolation), [&] {
            WorkerScope workers(3, kW, kH);
            MemoryClipEngine engine;
            for (int n = 0; n < 3; ++n)
                engine.frames.push_back(Shifted(kW, kH, 4, DQ_UCHAR, 2.7 * n, -1.3 * n));
            EXPECT_EQ(engine.Init(), 0);
            engine.timeCurve = [](float) { return 0.4f; };
            OwnedFrame result(kW, kH, 4, DQ_UCHAR);
            RenderSettings settings;
            settings.interpolation = interpolation;
            settings.motionBlur = blur;
            EXPECT_EQ(engine.Render(result.Image(), settings), 0);
            std::vector<DQImagePtr> out;
            out.push_back(Duplicate(*result.Pixels()));
            return out;
        });
}

} // namespace
