// When kept motion serves the next pass: the pair rule, the settings test, geometry, and what a
// reset leaves behind. A planted flow image in the state shows whether a reset happened.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "engine/EngineInternal.h"
#include "engine/MotionReuse.h"

#include <functional>
#include <limits>

using namespace quelmor::test;

namespace {

// An engine whose state has seen one in-between pass at 10.3 with two layers.
struct ReuseBench {
    ReuseBench() {
        EXPECT_EQ(engine.Init(), 0);
        for (int i = 0; i < kMaxLayers; ++i)
            sensitivity[i] = 0.7f;
        state().layerCount = 2;
        state().interpolation = 1;
        state().vectorQuality = 4;
        state().flowLevel = 1;
        state().warping = 0;
        engine.fieldsIn = engine.fieldsOut = 0;
        engine.inputFrameRate = engine.outputFrameRate = 25.0f;
        // A first in-between pass at 10.3 remembers everything.
        Pass(10, 0.7f);
    }
    ZUQuelmor4Internal& state() { return *engine.internal; }
    ~ReuseBench() { state().Reset(); }

    // Runs the decision for a pass at frameA + 1 - weightA; returns needMotion.
    bool Pass(int frameA, float weightA, bool atSourceFrame = false) {
        motion.frameA = frameA;
        motion.frameB = frameA + 1;
        motion.weightA = weightA;
        motion.atSourceFrame = atSourceFrame;
        DecideMotionReuse(engine, state(), motion, settings);
        return motion.needMotion;
    }
    // Leaves an owned flow image in the state; its slot tells whether Reset ran.
    void PlantFlow() {
        if (!state().flowBtoA) state().flowBtoA = DQMakeImage(4, 4, 2, DQ_FLOAT).release();
        motion.needMotion = false;
    }
    bool WasReset() const { return engine.internal->flowBtoA == nullptr; }

    MemoryClipEngine engine;
    PassMotion motion;
    float sensitivity[kMaxLayers];
    float shrink[kMaxLayers] = {2.0f};
    PassSettings settings{1, 1, sensitivity, shrink};
};

TEST(Reuse, EachChangedSettingResetsAndAsksForMotion) {
    struct Case {
        const char* name;
        std::function<void(ReuseBench&)> change;
        bool resets = true;
        bool keepsNothing = false; // the new setting itself forbids keeping motion
        bool asks = resets;        // needMotion of the first pass
    };
    const Case cases[] = {
        {"vector quality 0", [](ReuseBench& r) { r.state().vectorQuality = 0; }, true, true},
        {"cache off", [](ReuseBench& r) { r.settings.cacheLastMotion = 0; }, true, true},
        {"interpolation", [](ReuseBench& r) { r.state().interpolation = 2; }},
        {"vector quality", [](ReuseBench& r) { r.state().vectorQuality = 3; }},
        {"warping", [](ReuseBench& r) { r.state().warping = 1; }},
        {"layer count", [](ReuseBench& r) { r.state().layerCount = 1; }},
        {"flow level", [](ReuseBench& r) { r.state().flowLevel = 2; }},
        {"fields in", [](ReuseBench& r) { r.engine.fieldsIn = 1; }},
        {"fields out", [](ReuseBench& r) { r.engine.fieldsOut = 2; }},
        {"input rate", [](ReuseBench& r) { r.engine.inputFrameRate = 24.0f; }},
        {"output rate", [](ReuseBench& r) { r.engine.outputFrameRate = 50.0f; }},
        {"NaN output rate",
         [](ReuseBench& r) { r.engine.outputFrameRate = std::numeric_limits<float>::quiet_NaN(); },
         true, true},
        {"draw start layer", [](ReuseBench& r) { r.engine.drawStart = 0; }},
        {"draw end layer", [](ReuseBench& r) { r.engine.drawEnd = 1; }},
        {"enhance images", [](ReuseBench& r) { r.engine.enhance = 1; }},
        {"background sensitivity", [](ReuseBench& r) { r.sensitivity[1] = 0.7001f; }},
        {"foreground sensitivity", [](ReuseBench& r) { r.sensitivity[0] = 0.2f; }},
        {"foreground shrink", [](ReuseBench& r) { r.shrink[0] = 2.5f; }},
        // Geometry drops the kept flow; the missing flow object is what asks for motion.
        {"geometry appears", [](ReuseBench& r) { r.engine.geometries = 2; }, true, false, false},
        {"nothing changed", [](ReuseBench&) {}, false},
        {"same sensitivity written again", [](ReuseBench& r) { r.sensitivity[1] = 0.7f; }, false},
        {"shrink of a layer beyond the foreground count", [](ReuseBench& r) { r.shrink[3] = 9.0f; },
         false},
        {"sensitivity beyond the layer count", [](ReuseBench& r) { r.sensitivity[5] = 0.1f; },
         false},
    };
    for (const Case& c : cases) {
        ReuseBench r;
        r.PlantFlow();
        c.change(r);
        EXPECT_EQ(r.Pass(10, 0.6f), c.asks) << c.name << ": motion computed again";
        EXPECT_EQ(r.WasReset(), c.resets) << c.name << ": kept flow dropped";
        // The change is remembered: the same settings again keep the new flow, except where the
        // setting itself forbids keeping any.
        r.PlantFlow();
        EXPECT_EQ(r.Pass(10, 0.5f), c.keepsNothing) << c.name;
        EXPECT_EQ(r.WasReset(), c.keepsNothing) << c.name;
    }
}

TEST(Reuse, WhichPassesNeedNewMotion) {
    struct Step {
        int frameA;
        float weightA;
        bool atSourceFrame;
        bool needMotion;
        bool reset;
    };
    struct Case {
        const char* name;
        long interpolation;
        std::vector<Step> steps;
    };
    const Case cases[] = {
        {"blend: same interval forwards and backwards",
         1,
         {{10, 0.5f, false, false, false},
          {10, 0.9f, false, false, false},
          {10, 0.1f, false, false, false}}},
        {"blend: new frame A",
         1,
         {{11, 0.5f, false, true, false}, {11, 0.2f, false, false, false}}},
        {"nearest: crossing the middle asks for the other flow",
         0,
         // The first pass also changes the interpolation and so resets.
         {{10, 0.6f, false, true, true},
          {10, 0.7f, false, false, false},
          {10, 0.4f, false, true, false},
          {10, 0.3f, false, false, false},
          {10, 0.5f, false, true, false}}},
        // After it the pair is unchanged: it is the missing flow object that asks for motion.
        {"a source frame drops everything and needs nothing",
         1,
         {{10, 1.0f, true, false, true}, {10, 0.5f, false, false, false}}},
    };
    for (const Case& c : cases) {
        ReuseBench r;
        r.state().interpolation = c.interpolation;
        int index = 0;
        for (const Step& s : c.steps) {
            r.PlantFlow();
            EXPECT_EQ(r.Pass(s.frameA, s.weightA, s.atSourceFrame), s.needMotion)
                << c.name << " step " << index;
            EXPECT_EQ(r.WasReset(), s.reset) << c.name << " step " << index;
            ++index;
        }
    }
}

TEST(Reuse, RemembersTheOrderedPair) {
    ReuseBench r;
    r.state().interpolation = 0;
    r.Pass(10, 0.3f);
    EXPECT_EQ(r.state().lastFrameA, 10);
    EXPECT_EQ(r.state().lastFromFrame, 11);
    EXPECT_EQ(r.state().lastToFrame, 10);
    r.Pass(12, 0.5f, true);
    EXPECT_EQ(r.state().lastFromFrame, 12) << "the pair is remembered on a source frame too";
    EXPECT_EQ(r.state().lastToFrame, 13);
}

} // namespace
