#pragma once
// A clip held in memory with a matte per foreground layer and frame, for the suites of the
// several-layer road: it counts matte check-outs and give-backs and can be told to fail one.
#include "MemoryClipEngine.h"

#include <vector>

namespace quelmor::test {

class LayeredClipEngine : public MemoryClipEngine {
public:
    // mattes[layer][frame]: one channel, the frames' size.
    std::vector<std::vector<DQImagePtr>> mattes;
    float shrink[kMaxLayers] = {};
    float sensitivity[kMaxLayers] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1};

    int failMatteFrame = -1; // the matte of failMatteLayer at this frame fails with kDQErrFetch
    int failMatteLayer = 0;
    int mattesOut = 0;
    int mattesBack = 0;

    int RenderLayers(ZUImage* result, const RenderSettings& s) {
        return GetFrame(result, s.secondField, s.fieldsIn, s.fieldsOut, s.vectorQuality,
                        s.timeBegin, s.timeEnd, s.inputRate, s.outputRate, s.motionBlur, 1.0f,
                        s.interpolation, 1, s.flowFromSequence, s.cache, int(mattes.size()), shrink,
                        sensitivity, s.progress, false);
    }

    int GetMatteLayerSequenceImage(ZUImage** image, int frame, int layer) override {
        *image = nullptr;
        if (layer == failMatteLayer && frame == failMatteFrame) return kDQErrFetch;
        if (layer < 0 || layer >= int(mattes.size()) || frame < 0 ||
            frame >= int(mattes[layer].size()))
            return kDQErrBadArgument;
        auto owned = std::make_unique<OwnedFrame>(*mattes[layer][frame], std::array{0, 1, 2, 3});
        *image = owned->Image();
        lent_.push_back(std::move(owned));
        ++mattesOut;
        return 0;
    }
    int CleanUpCheckedOutMatteImage(ZUImage* image) override {
        for (auto it = lent_.begin(); it != lent_.end(); ++it)
            if ((*it)->Image() == image) {
                lent_.erase(it);
                ++mattesBack;
                return 0;
            }
        ADD_FAILURE() << "gave back a matte that was never checked out";
        return 0;
    }

private:
    std::vector<std::unique_ptr<OwnedFrame>> lent_;
};

} // namespace quelmor::test
