// Motion supplied by the engine's own vector slots instead of computed: the picture they make,
// one direction derived when a slot has none, the slot's scales, and every lent image and frame
// given back on every path.
#include "PanClip.h"
#include "VectorLoans.h"
#include "engine/ExternalVectors.h"

using namespace quelmor::test;

namespace {

constexpr int kW = 96;
constexpr int kH = 64;
// The pan in the single precision of the vector images.
constexpr float kVectorX = float(kPanX);
constexpr float kVectorY = float(kPanY);

// Hands out vector images of the pan: float vectors divided by `slotScale` (the slot says to
// multiply them back), or 8-bit codes 127 + v with a slot scale of 127.
class VectorClipEngine : public MemoryClipEngine {
public:
    enum class Coding { Float, Byte };
    Coding coding = Coding::Float;
    float slotScale = 1.0f;
    float scaleX = 1.0f, scaleY = 1.0f; // answer of GetVectorScaleXY
    int scaleFailCode = 0;
    int previousCode = 0, nextCode = 0; // answers of the two slots; 5 means none
    int vectorWidth = kW, vectorHeight = kH;
    VectorLoans loans;
    std::vector<int> nextFrames, previousFrames;

    VectorClipEngine() { externalVectors = 1; }

    int GetNextFrameVectors(ZUImage** vectors, float* scale, int frame) override {
        nextFrames.push_back(frame);
        return Lend(vectors, scale, nextCode, 1.0f);
    }
    int GetPreviousFrameVectors(ZUImage** vectors, float* scale, int frame) override {
        previousFrames.push_back(frame);
        return Lend(vectors, scale, previousCode, -1.0f);
    }
    int ReleaseNextFrameVectors(ZUImage* vectors) override { return loans.Release(vectors); }
    int ReleasePreviousFrameVectors(ZUImage* vectors) override { return loans.Release(vectors); }
    int GetVectorScaleXY(float* sx, float* sy, int) override {
        *sx = scaleX;
        *sy = scaleY;
        return scaleFailCode;
    }

private:
    int Lend(ZUImage** vectors, float* scale, int code, float sign) {
        *vectors = nullptr;
        if (code != 0) return code;
        DQImagePtr pixels;
        if (coding == Coding::Float) {
            const double u = sign * kVectorX / (scaleX * slotScale);
            const double v = sign * kVectorY / (scaleY * slotScale);
            pixels = MakeImage(vectorWidth, vectorHeight, 4, DQ_FLOAT, [&](int, int, int c) {
                return c == 0 ? u : c == 1 ? v : 1.0;
            });
            *scale = slotScale;
        } else {
            // (2 c / 254 - 1) 127 = c - 127: whole vectors code exactly.
            const double u = 127.0 + sign * kVectorX / scaleX, v = 127.0 + sign * kVectorY / scaleY;
            pixels = MakeImage(vectorWidth, vectorHeight, 4, DQ_UCHAR, [&](int, int, int c) {
                return c == 0 ? u : c == 1 ? v : 255.0;
            });
            *scale = 127.0f;
        }
        loans.Lend(vectors, *pixels);
        return 0;
    }
};

struct ExternalVectors : PanClipTest<kW, kH, VectorClipEngine> {
    int Render(float sourceTime, long interpolation = 1,
               ZUIdleAndProgressClass* progress = nullptr) {
        return RenderAt(sourceTime, {.interpolation = interpolation, .progress = progress});
    }

    // Mean error against the true moment, away from the edges that the pan uncovers.
    double InteriorError(float time) const {
        return MeanError(
            *ZUImageGetDQImage(const_cast<OwnedFrame&>(result).Image()), *Truth(time),
            [](int x, int y) { return y >= 10 && y < kH - 10 && x >= 12 && x < kW - 12; });
    }

    // The two flows that the slots give for the pair (2, 3), loaded as the road loads them.
    struct Loaded {
        DQImagePtr atoB = DQMakeImage(kW, kH, 2, DQ_FLOAT);
        DQImagePtr btoA = DQMakeImage(kW, kH, 2, DQ_FLOAT);
        std::pair<float, float> At(bool forward) const {
            const float* p = (forward ? atoB : btoA)->Row<float>(kH / 2) + 2 * (kW / 2);
            return {p[0], p[1]};
        }
    };
    Loaded Load() {
        Loaded flows;
        LoadExternalVectors(engine, flows.btoA.get(), 3, nullptr, flows.atoB.get(), 2, nullptr,
                            nullptr);
        return flows;
    }
};

} // namespace

TEST_F(ExternalVectors, ExactVectorsRenderTheMomentWithoutComputingFlow) {
    for (long interpolation : {0L, 1L, 2L}) {
        SCOPED_TRACE(interpolation);
        engine.nextFrames.clear();
        engine.previousFrames.clear();
        ASSERT_EQ(Render(2.25f, interpolation), 0);
        EXPECT_LT(InteriorError(2.25f), 2.0);
        EXPECT_EQ(engine.nextFrames, std::vector<int>{2});
        EXPECT_EQ(engine.previousFrames, std::vector<int>{3});
    }
    EXPECT_EQ(engine.internal->flowRuns, 0);
    EXPECT_FALSE(engine.internal->opticalFlow);
    // Without the vectors the pair is a dissolve, far from the moment.
    engine.nextCode = engine.previousCode = kDQErrBadArgument;
    ASSERT_EQ(Render(2.5f), 0);
    EXPECT_GT(InteriorError(2.5f), 10.0);
}

TEST_F(ExternalVectors, ScalesAndCodingsGiveTheSameFlow) {
    using Coding = VectorClipEngine::Coding;
    const struct {
        const char* name;
        Coding coding;
        float slotScale, scaleX, scaleY;
    } cases[] = {
        {"float as it is", Coding::Float, 1.0f, 1.0f, 1.0f},
        {"float, slot scale 4", Coding::Float, 4.0f, 1.0f, 1.0f},
        {"float, per-axis scale", Coding::Float, 1.0f, 2.0f, 0.5f},
        {"8-bit codes", Coding::Byte, 127.0f, 1.0f, 1.0f},
        {"8-bit codes, per-axis scale", Coding::Byte, 127.0f, 2.0f, 2.0f},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        engine.coding = c.coding;
        engine.slotScale = c.slotScale;
        engine.scaleX = c.scaleX;
        engine.scaleY = c.scaleY;
        const Loaded flows = Load();
        const auto [u, v] = flows.At(true);
        EXPECT_NEAR(u, kPanX, 1e-4);
        EXPECT_NEAR(v, kPanY, 1e-4);
        const auto [bu, bv] = flows.At(false);
        EXPECT_NEAR(bu, -kPanX, 1e-4);
        EXPECT_NEAR(bv, -kPanY, 1e-4);
    }
}

TEST_F(ExternalVectors, ADirectionWithoutVectorsIsDerivedFromTheOther) {
    const struct {
        const char* name;
        int previousCode, nextCode;
    } cases[] = {{"no vectors to the frame before", kDQErrBadArgument, 0},
                 {"no vectors to the frame after", 0, kDQErrBadArgument}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        engine.previousCode = c.previousCode;
        engine.nextCode = c.nextCode;
        const Loaded flows = Load();
        for (bool atoB : {true, false}) {
            const auto [u, v] = flows.At(atoB);
            EXPECT_NEAR(u, atoB ? kPanX : -kPanX, 1e-3);
            EXPECT_NEAR(v, atoB ? kPanY : -kPanY, 1e-3);
        }
        ASSERT_EQ(Render(2.5f), 0);
        EXPECT_LT(InteriorError(2.5f), 2.0);
        EXPECT_EQ(engine.loans.lent, engine.loans.released);
    }
}

TEST_F(ExternalVectors, EveryLentImageAndFrameIsGivenBackOnEveryPath) {
    struct Case {
        const char* name;
        int vectorWidth = kW;
        int previousCode = 0;
        int nextCode = 0;
        int scaleFailCode = 0;
        bool interrupt = false;
        int expected = 0;
        int lent = 2;
    };
    const Case cases[] = {
        {.name = "both directions"},
        {.name = "one direction", .previousCode = kDQErrBadArgument, .lent = 1},
        {.name = "none",
         .previousCode = kDQErrBadArgument,
         .nextCode = kDQErrBadArgument,
         .lent = 0},
        {.name = "wrong size", .vectorWidth = kW - 1, .expected = kDQErrBadArgument, .lent = 1},
        {.name = "slot fails", .nextCode = kDQErrFetch, .expected = kDQErrFetch, .lent = 0},
        {.name = "second slot fails",
         .previousCode = kDQErrMemory,
         .expected = kDQErrMemory,
         .lent = 1},
        {.name = "scale fails", .scaleFailCode = kDQErrFile, .expected = kDQErrFile, .lent = 1},
        {.name = "interrupted", .interrupt = true, .expected = kDQErrInterrupted, .lent = 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        engine.loans.lent = engine.loans.released = 0;
        engine.vectorWidth = c.vectorWidth;
        engine.previousCode = c.previousCode;
        engine.nextCode = c.nextCode;
        engine.scaleFailCode = c.scaleFailCode;
        ZUIdleAndProgressClass progress;
        progress.SetInterrupted(c.interrupt);
        EXPECT_EQ(Render(2.5f, 1, &progress), c.expected);
        EXPECT_EQ(engine.loans.lent, c.lent);
        EXPECT_EQ(engine.loans.released, engine.loans.lent);
        EXPECT_EQ(engine.Outstanding(), 0);
        if (c.expected != 0) {
            EXPECT_TRUE(engine.KeepsNoFlow());
        }
    }
}

TEST_F(ExternalVectors, MotionIsNeverKeptFromRenderToRender) {
    ASSERT_EQ(Render(2.25f), 0);
    ASSERT_EQ(Render(2.75f), 0);
    EXPECT_EQ(engine.loans.lent, 4);
    EXPECT_EQ(engine.loans.released, 4);
}

TEST(LimitAlphaByMatte, TakesTheSmallerOnTheVectorImagesScale) {
    const struct {
        const char* name;
        int vectorType, matteType;
        double alpha, matte, expected;
    } cases[] = {
        {"8-bit by 8-bit", DQ_UCHAR, DQ_UCHAR, 200, 100, 100},
        {"8-bit kept", DQ_UCHAR, DQ_UCHAR, 50, 100, 50},
        {"16-bit by 8-bit", DQ_USHORT, DQ_UCHAR, 65535, 255, 65535},
        {"16-bit by half matte", DQ_USHORT, DQ_UCHAR, 65535, 51, 13107},
        {"float by 16-bit", DQ_FLOAT, DQ_USHORT, 1.0, 32768, 32768.0 / 65535.0},
        {"8-bit by float", DQ_UCHAR, DQ_FLOAT, 255, 0.0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        DQImagePtr vectors = MakeImage(20, 18, 4, c.vectorType,
                                       [&](int, int, int ch) { return ch == 3 ? c.alpha : 7.0; });
        DQImagePtr matte = MakeImage(20, 18, 1, c.matteType, Fill(c.matte));
        LimitAlphaByMatte(vectors.get(), matte.get());
        EXPECT_NEAR(ElementAt(*vectors, 5, 17, 3), c.expected, 1e-6);
        EXPECT_EQ(ElementAt(*vectors, 5, 17, 0), 7.0);
    }
    DQImagePtr vectors = MakeImage(20, 18, 4, DQ_UCHAR, Fill(1));
    DQImagePtr smaller = MakeImage(20, 17, 1, DQ_UCHAR, Fill(1));
    EXPECT_EQ(ThrownBy([&] { LimitAlphaByMatte(vectors.get(), smaller.get()); }),
              kDQErrBadArgument);
}
