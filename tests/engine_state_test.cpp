// The engine's private state: flow size per quality, the flow accessors, layer flows and Reset.
#include "MemoryClipEngine.h"
#include "TestSupport.h"
#include "engine/EngineInternal.h"

using namespace quelmor::test;

namespace {

TEST(EngineState, FlowLevelForQuality) {
    struct Case {
        const char* name;
        int quality;
        long highQuality;
        int width, height;
        int level, flowWidth, flowHeight;
    };
    const Case cases[] = {
        {"no vectors still has a size", 0, 1, 960, 507, 3, 120, 63},
        {"sloppy", 1, 1, 960, 507, 3, 120, 63},
        {"medium equals sloppy", 2, 1, 960, 507, 3, 120, 63},
        {"high", 3, 1, 960, 507, 2, 240, 126},
        {"best", 4, 1, 1920, 1080, 1, 960, 540},
        {"full size", 5, 1, 1921, 1081, 0, 1921, 1081},
        {"medium, low quality", 2, 0, 960, 507, 3, 120, 63},
        {"high, low quality", 3, 0, 960, 507, 3, 120, 63},
        {"best, low quality", 4, 0, 960, 507, 2, 240, 126},
        {"full size, low quality", 5, 0, 961, 507, 1, 480, 253},
        {"width 1 halves to 0", 4, 1, 1, 9, 1, 0, 4},
    };
    for (const Case& c : cases) {
        int level = -1, w = -1, h = -1;
        ZUQuelmor4Internal::FlowLevelForQuality(c.quality, c.highQuality, c.width, c.height, &level,
                                                &w, &h);
        EXPECT_EQ(level, c.level) << c.name;
        EXPECT_EQ(w, c.flowWidth) << c.name;
        EXPECT_EQ(h, c.flowHeight) << c.name;
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
    for (int i = 0; i < kMaxLayers; ++i) {
        EXPECT_EQ(state.layerFlowAtoB[i], nullptr) << "layer " << i;
        EXPECT_EQ(state.layerFlowBtoA[i], nullptr) << "layer " << i;
    }
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
    for (DQImage*& slot : state.layerFlowAtoB)
        slot = nullptr;
    for (DQImage*& slot : state.layerFlowBtoA)
        slot = nullptr;
    state.flowBtoA = state.flowAtoB = nullptr;
}

TEST(EngineState, AllocLayerFlows) {
    struct Case {
        const char* name;
        long cache;
        long interpolation;
        int layers;
        bool sharedMade;
        int layerAtoBMade; // layers 1..n-1 get their own A-to-B flow
        int layerBtoAMade;
    };
    const Case cases[] = {
        {"cache on, blend, three layers", 1, 1, 3, false, 2, 3},
        {"cache on, nearest, three layers", 1, 0, 3, false, 2, 0},
        {"cache off shares one flow", 0, 1, 3, true, 0, 0},
    };
    for (const Case& c : cases) {
        ZUQuelmor4Internal state;
        state.layerCount = c.layers;
        state.interpolation = c.interpolation;
        state.flowWidth = 6;
        state.flowHeight = 5;
        for (bool& flag : state.doOpticalFlow)
            flag = true;
        state.AllocLayerFlows(c.cache);
        EXPECT_EQ(state.flowBtoA != nullptr, c.sharedMade) << c.name;
        int atob = 0, btoa = 0;
        for (int i = 0; i < kMaxLayers; ++i) {
            atob += state.layerFlowAtoB[i] != nullptr;
            btoa += state.layerFlowBtoA[i] != nullptr;
        }
        EXPECT_EQ(atob, c.layerAtoBMade) << c.name;
        EXPECT_EQ(btoa, c.layerBtoAMade) << c.name;
        if (DQImage* f = state.layerFlowAtoB[1]) {
            EXPECT_EQ(f->width, 6) << c.name;
            EXPECT_EQ(f->height, 5) << c.name;
            EXPECT_EQ(f->channels, 2) << c.name;
            EXPECT_EQ(f->dataType, DQ_FLOAT) << c.name;
        }
        DQImage* kept = state.layerFlowBtoA[0];
        state.AllocLayerFlows(c.cache);
        EXPECT_EQ(state.layerFlowBtoA[0], kept) << c.name << ": existing slots are kept";
    }
}

} // namespace
