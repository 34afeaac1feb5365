// When kept motion serves the next pass: the pair rule, the settings test, geometry, and what a
// reset leaves behind. A planted flow image in the state shows whether a reset happened.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "engine/EngineInternal.h"
#include "engine/MotionReuse.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <tuple>

using namespace quelmor::test;

namespace {

// An engine whose state has seen one in-between pass at 10.3 with two layers.
struct ReuseBench {
    ReuseBench() {
        EXPECT_EQ(engine.Init(), 0);
        std::fill(std::begin(sensitivity), std::end(sensitivity), 0.7f);
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
        {"NaN output rate", [](ReuseBench& r) { r.engine.outputFrameRate = NAN; }, true, true},
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
        {"shrink beyond the foreground count", [](ReuseBench& r) { r.shrink[3] = 9.0f; }, false},
        {"sensitivity beyond the layer count", [](ReuseBench& r) { r.sensitivity[5] = 0.1f; },
         false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        ReuseBench r;
        r.PlantFlow();
        c.change(r);
        EXPECT_EQ(r.Pass(10, 0.6f), c.asks) << "motion computed again";
        EXPECT_EQ(r.WasReset(), c.resets) << "kept flow dropped";
        // The change is remembered: the same settings again keep the new flow, except where the
        // setting itself forbids keeping any.
        r.PlantFlow();
        EXPECT_EQ(r.Pass(10, 0.5f), c.keepsNothing);
        EXPECT_EQ(r.WasReset(), c.keepsNothing);
    }
}

TEST(Reuse, WhichPassesNeedNewMotion) {
    struct Step {
        int frameA;
        float weightA;
        bool atSourceFrame, needMotion, reset;
    };
    struct Case {
        const char* name;
        long interpolation;
        std::vector<Step> steps;
    };
    // Going backwards in an interval keeps the flow. Nearest crossing the middle asks for the other
    // flow; its first pass also changes the interpolation and so resets. A source frame drops
    // everything and needs nothing; after it the pair is unchanged: it is the missing flow object
    // that asks for motion.
    const Case cases[] = {
        {"blend, one interval", 1, {{10, 0.5f, 0, 0, 0}, {10, 0.9f, 0, 0, 0}, {10, 0.1f, 0, 0, 0}}},
        {"blend, new frame A", 1, {{11, 0.5f, 0, 1, 0}, {11, 0.2f, 0, 0, 0}}},
        {"nearest crosses the middle",
         0,
         {{10, 0.6f, 0, 1, 1},
          {10, 0.7f, 0, 0, 0},
          {10, 0.4f, 0, 1, 0},
          {10, 0.3f, 0, 0, 0},
          {10, 0.5f, 0, 1, 0}}},
        {"source frame", 1, {{10, 1.0f, 1, 0, 1}, {10, 0.5f, 0, 0, 0}}},
    };
    for (const Case& c : cases) {
        ReuseBench r;
        r.state().interpolation = c.interpolation;
        for (const Step& s : c.steps) {
            SCOPED_TRACE(testing::Message() << c.name << ", step " << &s - c.steps.data());
            r.PlantFlow();
            EXPECT_EQ(r.Pass(s.frameA, s.weightA, s.atSourceFrame), s.needMotion);
            EXPECT_EQ(r.WasReset(), s.reset);
        }
    }
}

TEST(Reuse, RemembersTheOrderedPair) {
    ReuseBench r;
    r.state().interpolation = 0;
    r.Pass(10, 0.3f);
    EXPECT_EQ(std::tuple(r.state().lastFrameA, r.state().lastFromFrame, r.state().lastToFrame),
              std::tuple(10, 11, 10));
    r.Pass(12, 0.5f, true);
    EXPECT_EQ(std::pair(r.state().lastFromFrame, r.state().lastToFrame), std::pair(12, 13))
        << "the pair is remembered on a source frame too";
}

} // namespace
