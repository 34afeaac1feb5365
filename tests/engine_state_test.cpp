// The engine's private state: flow size per quality, the flow accessors, layer flows and Reset.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "engine/EngineInternal.h"

#include <tuple>

using namespace quelmor::test;

namespace {

TEST(EngineState, FlowLevelForQuality) {
    struct Case {
        int quality;
        long highQuality;
        int width, height, level, flowWidth, flowHeight;
    };
    // No vectors still has a size; medium equals sloppy; low quality drops one level from high
    // up; a width of 1 halves to 0.
    const Case cases[] = {{0, 1, 960, 507, 3, 120, 63},
                          {2, 1, 960, 507, 3, 120, 63},
                          {3, 1, 960, 507, 2, 240, 126},
                          {4, 1, 1920, 1080, 1, 960, 540},
                          {5, 1, 1921, 1081, 0, 1921, 1081},
                          {2, 0, 960, 507, 3, 120, 63},
                          {3, 0, 960, 507, 3, 120, 63},
                          {5, 0, 961, 507, 1, 480, 253},
                          {4, 1, 1, 9, 1, 0, 4}};
    for (const Case& c : cases) {
        int level = -1, w = -1, h = -1;
        ZUQuelmor4Internal::FlowLevelForQuality(c.quality, c.highQuality, c.width, c.height, &level,
                                                &w, &h);
        EXPECT_EQ(std::tuple(level, w, h), std::tuple(c.level, c.flowWidth, c.flowHeight))
            << "quality " << c.quality << (c.highQuality ? "" : " low") << ", width " << c.width;
    }
}

TEST(EngineState, ResetDeletesOwnedFlowImagesOnce) {
    // Run under the address sanitizer this shows both leaks and double deletes.
    ZUQuelmor4Internal state;
    state.flowBtoA = DQMakeImage(4, 4, 2, DQ_FLOAT).release();
    state.flowAtoB = state.flowBtoA; // the same image in both shared slots
    for (int i = 0; i < kMaxLayers; i += 3) {
        state.layerFlowAtoB[i] = DQMakeImage(4, 4, 2, DQ_FLOAT).release();
        state.layerFlowBtoA[i] = DQMakeImage(4, 4, 2, DQ_FLOAT).release();
    }
    state.Reset();
    EXPECT_EQ(state.flowBtoA, nullptr);
    EXPECT_EQ(state.flowAtoB, nullptr);
    for (int i = 0; i < kMaxLayers; ++i)
        EXPECT_EQ(std::pair(state.layerFlowAtoB[i], state.layerFlowBtoA[i]),
                  (std::pair<DQImage*, DQImage*>(nullptr, nullptr)))
            << "layer " << i;
    state.Reset(); // again: nothing left, nothing happens
}

TEST(EngineState, FlowAccessors) {
    ZUQuelmor4Internal state;
    DQImagePtr shared = DQMakeImage(4, 4, 2, DQ_FLOAT);
    DQImagePtr layerA = DQMakeImage(4, 4, 2, DQ_FLOAT);
    DQImagePtr layerB = DQMakeImage(4, 4, 2, DQ_FLOAT);
    DQImagePtr borrowed = DQMakeImage(4, 4, 2, DQ_FLOAT);
    state.layerFlowAtoB[2] = layerA.get();
    state.layerFlowBtoA[2] = layerB.get();
    EXPECT_EQ(state.FlowBtoA(2), layerB.get()) << "per-layer flow without a shared one";
    EXPECT_EQ(state.FlowAtoB(2), layerA.get());
    EXPECT_EQ(state.AnyFlowAtoB(), nullptr);
    state.flowBtoA = shared.get();
    state.flowAtoB = borrowed.get();
    EXPECT_EQ(state.FlowBtoA(2), shared.get()) << "the shared flow wins";
    EXPECT_EQ(state.FlowAtoB(2), borrowed.get()) << "no flow object: the shared slot";
    EXPECT_EQ(state.AnyFlowAtoB(), borrowed.get());
    // The images belong to this test, not to the state.
    state.layerFlowAtoB[2] = state.layerFlowBtoA[2] = state.flowBtoA = state.flowAtoB = nullptr;
}

TEST(EngineState, AllocLayerFlows) {
    struct Case {
        long cache, interpolation;
        bool sharedMade;
        int layerAtoBMade, layerBtoAMade; // layers 1..2 of 3 get their own A-to-B flow
    };
    // Cache on with blend, cache on with nearest, cache off shares one flow.
    const Case cases[] = {{1, 1, false, 2, 3}, {1, 0, false, 2, 0}, {0, 1, true, 0, 0}};
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message()
                     << "cache " << c.cache << ", interpolation " << c.interpolation);
        ZUQuelmor4Internal state;
        state.layerCount = 3;
        state.interpolation = c.interpolation;
        state.flowWidth = 6;
        state.flowHeight = 5;
        for (bool& flag : state.doOpticalFlow)
            flag = true;
        state.AllocLayerFlows(c.cache);
        EXPECT_EQ(state.flowBtoA != nullptr, c.sharedMade);
        int atob = 0, btoa = 0;
        for (int i = 0; i < kMaxLayers; ++i) {
            atob += state.layerFlowAtoB[i] != nullptr;
            btoa += state.layerFlowBtoA[i] != nullptr;
        }
        EXPECT_EQ(atob, c.layerAtoBMade);
        EXPECT_EQ(btoa, c.layerBtoAMade);
        if (DQImage* f = state.layerFlowAtoB[1]) {
            EXPECT_EQ(std::tuple(f->width, f->height, f->channels, f->dataType),
                      std::tuple(6, 5, 2, int(DQ_FLOAT)));
        }
        DQImage* kept = state.layerFlowBtoA[0];
        state.AllocLayerFlows(c.cache);
        EXPECT_EQ(state.layerFlowBtoA[0], kept) << "existing slots are kept";
    }
}

} // namespace
