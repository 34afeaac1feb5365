#include "engine/ExternalVectors.h"

#include "engine/EngineInternal.h"
#include "flow/FlowArithmetic.h"
#include "flow/InvertFlow.h"
#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "image/Progress.h"

#include <algorithm>
#include <cmath>
#include <type_traits>

namespace {

enum class Direction { StartsAtA, StartsAtB };

// A vector image lent by the engine, given back through the partner slot when it goes out of
// scope.
class LentVectors {
public:
    LentVectors(ZUQuelmor4& engine, Direction direction) : engine_(engine), direction_(direction) {}
    ~LentVectors() {
        if (!image_) return;
        if (direction_ == Direction::StartsAtA)
            engine_.ReleaseNextFrameVectors(image_);
        else
            engine_.ReleasePreviousFrameVectors(image_);
    }
    LentVectors(const LentVectors&) = delete;
    LentVectors& operator=(const LentVectors&) = delete;

    // Asks the slot for the vectors of `frame`. False when it has none; other failures throw.
    bool Fetch(int frame, float* scale) {
        const int code = direction_ == Direction::StartsAtA
                             ? engine_.GetNextFrameVectors(&image_, scale, frame)
                             : engine_.GetPreviousFrameVectors(&image_, scale, frame);
        if (code == kDQErrBadArgument) return false;
        if (code != 0) DQThrow(code);
        return image_ != nullptr;
    }
    ZUImage* Image() const { return image_; }

private:
    ZUQuelmor4& engine_;
    Direction direction_;
    ZUImage* image_ = nullptr;
};

// One direction: true when it arrived and `flow` holds it.
bool FetchVectors(ZUQuelmor4& engine, Direction direction, DQImage* flow, int frame,
                  DQImage* matte) {
    LentVectors lent(engine, direction);
    float scale = 1.0f;
    if (!lent.Fetch(frame, &scale)) return false;
    DQImage* vectors = ZUImageGetDQImage(lent.Image());
    if (!vectors || !flow || vectors->width != flow->width || vectors->height != flow->height)
        DQThrow(kDQErrBadArgument);
    if (matte) LimitAlphaByMatte(vectors, matte);
    ConvertVectorImage(flow, vectors, scale);
    float sx = 1.0f, sy = 1.0f;
    if (const int code = engine.GetVectorScaleXY(&sx, &sy, frame)) DQThrow(code);
    flow->ScaleXY(sx, sy);
    return true;
}

void Poll(ZUIdleAndProgressClass* progress) {
    if (progress) progress->RepeatProgress();
}

template <class V, class M>
void LimitRows(DQImage* vectors, const DQImage* matte) {
    const float factor = vectors->whitePoint / matte->whitePoint;
    const int width = vectors->width;
    ZUMPForRows(vectors->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            V* out = vectors->Row<V>(y);
            const M* in = matte->Row<M>(y);
            for (int x = 0; x < width; ++x) {
                float limit = static_cast<float>(in[x]) * factor;
                if constexpr (!std::is_same_v<V, float>) limit = std::floor(limit + 0.5f);
                if (limit < static_cast<float>(out[4 * x + 3]))
                    out[4 * x + 3] = static_cast<V>(limit);
            }
        }
    });
}

} // namespace

void LimitAlphaByMatte(DQImage* vectors, const DQImage* matte) {
    if (!vectors || !matte || !vectors->data || !matte->data || vectors->channels != 4 ||
        matte->channels != 1 || vectors->width != matte->width ||
        vectors->height != matte->height || !DQDispatchableType(vectors->dataType) ||
        !DQDispatchableType(matte->dataType) || !(matte->whitePoint > 0.0f))
        DQThrow(kDQErrBadArgument);
    DQDispatchType(vectors->dataType, [&]<class V>() {
        DQDispatchType(matte->dataType, [&]<class M>() { LimitRows<V, M>(vectors, matte); });
    });
}

void LoadExternalVectors(ZUQuelmor4& engine, DQImage* flowBtoA, int frameB, DQImage* matteB,
                         DQImage* flowAtoB, int frameA, DQImage* matteA,
                         ZUIdleAndProgressClass* progress) {
    const bool haveAtoB = FetchVectors(engine, Direction::StartsAtA, flowAtoB, frameA, matteA);
    Poll(progress);
    const bool haveBtoA = FetchVectors(engine, Direction::StartsAtB, flowBtoA, frameB, matteB);
    Poll(progress);
    if (haveAtoB == haveBtoA) return;
    DQImage* present = haveAtoB ? flowAtoB : flowBtoA;
    DQImage* missing = haveAtoB ? flowBtoA : flowAtoB;
    DQImagePtr scratch = DQMakeImage(present->width, present->height, 1, DQ_UCHAR);
    DQInvertFlow(missing, present, scratch.get(), progress);
}

void ZUQuelmor4Internal::AllocVectorImages() {
    if (flowBtoA && flowBtoA == vectorsBtoA.get() && flowAtoB == vectorsAtoB.get() &&
        vectorsBtoA->width == width && vectorsBtoA->height == height)
        return;
    if (flowAtoB == flowBtoA) flowAtoB = nullptr;
    if (flowBtoA != vectorsBtoA.get()) DropFlowImage(flowBtoA);
    if (flowAtoB != vectorsAtoB.get()) DropFlowImage(flowAtoB);
    flowBtoA = flowAtoB = nullptr;
    if (!vectorsBtoA || vectorsBtoA->width != width || vectorsBtoA->height != height) {
        vectorsBtoA.reset();
        vectorsAtoB.reset();
        vectorsBtoA = DQMakeImage(width, height, 2, DQ_FLOAT);
        vectorsAtoB = DQMakeImage(width, height, 2, DQ_FLOAT);
        // A pair that no slot fills is warped by as it is: no motion.
        vectorsBtoA->Clear();
        vectorsAtoB->Clear();
    }
    flowBtoA = vectorsBtoA.get();
    flowAtoB = vectorsAtoB.get();
}
