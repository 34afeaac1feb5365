// Motion from vector files: the external-vector operations of the engine that reads a clip.
#include <algorithm>
#include <new>
#include <vector>

#include "cli/RetimeEngine.h"

namespace quelmor::cli {

namespace {

constexpr int kFloatPixels = 2;

// A vector image lent to the engine: x and y of every pixel, and an alpha of 1 that marks every
// vector as given.
class LentVectorImage : public ZUImage {
public:
    LentVectorImage(const DQImage* flow, int width, int height)
        : pixels(std::size_t(width) * std::size_t(height) * 4, 0.0f) {
        if (ZUImageReset(this) != 0) throw std::bad_alloc();
        for (int y = 0; y < height; ++y) {
            const float* from = flow ? flow->Row<float>(y) : nullptr;
            float* to = pixels.data() + std::size_t(y) * std::size_t(width) * 4;
            for (int x = 0; x < width; ++x, to += 4) {
                to[0] = from ? from[2 * x] : 0.0f;
                to[1] = from ? from[2 * x + 1] : 0.0f;
                to[3] = 1.0f;
            }
        }
        ZUImageInitRGBA(this, pixels.data(), width, height, width * 4 * int(sizeof(float)), 1,
                        kFloatPixels, 1, 1, 0, 1, 2, 3);
    }
    std::vector<float> pixels;
};

} // namespace

void CliQuelmor::UseVectors(VectorReader* vectors, int firstNumber, float scaleX, float scaleY) {
    vectors_ = vectors;
    vectorFirst_ = firstNumber;
    vectorScale_[0] = scaleX;
    vectorScale_[1] = scaleY;
}

int CliQuelmor::UsesExternalVectors() {
    return vectors_ ? 1 : 0;
}

int CliQuelmor::LendVectors(ZUImage** vectors, float* scale, int frame, int step) {
    if (!vectors || !scale) return 5;
    *vectors = nullptr;
    *scale = 1.0f;
    if (!vectors_) return 5;
    try {
        const int last = source_.FrameCount() - 1;
        const int clamped = std::clamp(frame, 0, last);
        // Frames beyond the clip are its end frames, so such a pair does not move.
        const DQImage* flow = nullptr;
        if (std::clamp(frame + step, 0, last) != clamped) {
            flow = vectors_->Get(vectorFirst_ + clamped,
                                 step > 0 ? FlowDirection::Forward : FlowDirection::Backward);
            if (!flow) return 5;
        }
        *vectors = new LentVectorImage(flow, working_.width, working_.height);
        return 0;
    } catch (const MediaError& e) {
        if (readFailure_.empty()) readFailure_ = e.what();
        return 7;
    } catch (...) {
        return 1;
    }
}

int CliQuelmor::GetNextFrameVectors(ZUImage** vectors, float* scale, int frame) {
    return LendVectors(vectors, scale, frame, 1);
}

int CliQuelmor::GetPreviousFrameVectors(ZUImage** vectors, float* scale, int frame) {
    return LendVectors(vectors, scale, frame, -1);
}

int CliQuelmor::ReleaseNextFrameVectors(ZUImage* vectors) {
    delete static_cast<LentVectorImage*>(vectors);
    return 0;
}

int CliQuelmor::ReleasePreviousFrameVectors(ZUImage* vectors) {
    delete static_cast<LentVectorImage*>(vectors);
    return 0;
}

int CliQuelmor::GetVectorScaleXY(float* scaleX, float* scaleY, int) {
    if (!scaleX || !scaleY) return 5;
    *scaleX = vectorScale_[0];
    *scaleY = vectorScale_[1];
    return 0;
}

} // namespace quelmor::cli
