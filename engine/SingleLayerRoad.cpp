// The single-layer road with inverse or forward warping, plain or with smart blend: getting the
// flow (computed or kept), checking out the frames to track and to warp, warping and mixing by
// interpolation, filling what no frame covers, and motion blur.

#include "engine/SingleLayerRoad.h"

#include "engine/EnergyBlend.h"
#include "engine/FlowObjects.h"
#include "engine/Mix.h"
#include "engine/RoadSteps.h"
#include "engine/SequenceFrames.h"
#include "engine/SmartBlend.h"
#include "flow/Flow.h"
#include "flow/MorphFlow.h"

#include <cstdio>

void RoadNotAvailable(const char* road) {
    std::fprintf(stderr, "Quelmor: the %s road is not available in this build\n", road);
    DQThrow(kDQErrBadArgument);
}

namespace {

class SingleLayerRoad {
public:
    SingleLayerRoad(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const RenderRequest& request,
                    PassMotion& motion, const RoadPass& pass, ZUIdleAndProgressClass& progress)
        : engine_(engine), state_(state), req_(request), motion_(motion), pass_(pass),
          progress_(progress), tracking_(engine, state), warped_(engine, state) {}

    void Draw(DQImage* dest);

private:
    void RefuseRowsNotBuilt() const;
    DQImage* GetFlow();
    DQImage* GetMorphFlow();
    void ComputeMorphInRange(DQImage* result, int firstFrame, int secondFrame, float low,
                             float high);
    DQImage* LoadVectors();
    void ComputeFlowInRange(DQImage* result, DQImage* first, DQImage* second, int firstFrame,
                            int secondFrame, float low, float high);
    void CheckOutFramesToWarp();
    void WarpAndMix(DQImage* dest, DQImage* nearestFlow);
    void WarpAndMixCovered(DQImage* dest, DQImage* nearestFlow);
    void WarpAndMixForward(DQImage* dest, DQImage* nearestFlow, bool fill);
    void Push(DQImage* dest, DQImage* landed, DQImage* source, DQImage* flow, float scale);
    void FillUncovered(DQImage* dest, DQImage* holes);
    void MotionBlur(DQImage* dest);
    DQImage* Working(DQImagePtr& slot, const DQImage* like);
    static void Warp(DQImage* dest, DQImage* source, DQImage* flow, float scale);
    static void WarpCovered(DQImage* dest, DQImage* coverage, DQImage* source, DQImage* flow,
                            float scale);

    ZUQuelmor4& engine_;
    ZUQuelmor4Internal& state_;
    const RenderRequest& req_;
    PassMotion& motion_;
    const RoadPass& pass_;
    ZUIdleAndProgressClass& progress_;
    SequenceFramePair tracking_;
    SequenceFramePair warped_;
};

void SingleLayerRoad::RefuseRowsNotBuilt() const {
    if (state_.warping < kInverse || state_.warping > kForwardAlone) RoadNotAvailable("warping");
}

void SingleLayerRoad::Draw(DQImage* dest) {
    RefuseRowsNotBuilt();
    DQImage* nearestFlow = GetFlow();
    CheckOutFramesToWarp();
    if (state_.warping == kInverseSmartBlend)
        WarpAndMixCovered(dest, nearestFlow);
    else if (state_.warping == kForward || state_.warping == kForwardAlone)
        WarpAndMixForward(dest, nearestFlow, state_.warping == kForward);
    else
        WarpAndMix(dest, nearestFlow);
    MotionBlur(dest);
}

// A full-size working image with the layout of `like` (the frame being drawn), made when the
// kept one is missing or laid out otherwise.
DQImage* SingleLayerRoad::Working(DQImagePtr& slot, const DQImage* like) {
    if (!slot || slot->width != like->width || slot->height != like->height ||
        slot->channels != like->channels || slot->dataType != like->dataType ||
        slot->bottomUp != like->bottomUp) {
        slot.reset();
        slot =
            DQMakeImage(like->width, like->height, like->channels, like->dataType, like->bottomUp);
        slot->whitePoint = like->whitePoint;
    }
    return slot.get();
}

// Runs the flow object from `first` to `second` in the progress range low..high, with the
// geometry of the pair as seeds when there is any.
void SingleLayerRoad::ComputeFlowInRange(DQImage* result, DQImage* first, DQImage* second,
                                         int firstFrame, int secondFrame, float low, float high) {
    progress_.SetSubRange(low, high);
    if (!motion_.needMotion) return;
    DQOpticalFlowUChar* flow = state_.opticalFlow;
    if (motion_.anyGeometry)
        state_.FeedGeometryToFlow(engine_, flow, 0, firstFrame, secondFrame, req_.fieldsIn);
    ZUIdleAndProgressClass child(&progress_);
    ++state_.flowRuns;
    flow->ComputeFlow(result, first, second, kBandPass, kSmoothing, kSkipPropagation, &child,
                      state_.enhanceImages);
}

// Builds the morph flow from `firstFrame` to `secondFrame` in the progress range low..high, from
// the geometry of the pair alone.
void SingleLayerRoad::ComputeMorphInRange(DQImage* result, int firstFrame, int secondFrame,
                                          float low, float high) {
    BuildMorphInRange(engine_, state_, motion_, req_, 0, result, firstFrame, secondFrame, low, high,
                      progress_);
}

// Motion from geometry alone: the morph flow object takes the place of the optical one, and no
// frame is checked out until the frames to warp. Returns the flow that "Nearest" warps with.
DQImage* SingleLayerRoad::GetMorphFlow() {
    DestroyFlow(state_.opticalFlow);
    EnsureMorphFlow(state_, motion_, pass_.sensitivity);
    const float p = float(pass_.pass);
    const float passes = float(pass_.passes);
    DQImage* nearestFlow = nullptr;
    if (state_.interpolation == kNearest) {
        if (NearestUsesAtoB(motion_.weightA, state_.warping))
            ComputeMorphInRange(nullptr, motion_.frameA, motion_.frameB, p / passes,
                                (p + 1.0f) / passes);
        else
            ComputeMorphInRange(nullptr, motion_.frameB, motion_.frameA, p / passes,
                                (p + 1.0f) / passes);
        nearestFlow = FlowOutputOf(state_.morphFlow);
    } else {
        if (!state_.flowBtoA) {
            DQImagePtr image = DQMakeImage(state_.flowWidth, state_.flowHeight, 2, DQ_FLOAT);
            state_.flowBtoA = image.release();
        }
        const float all = 2.0f * passes;
        ComputeMorphInRange(state_.flowBtoA, motion_.frameB, motion_.frameA, 2.0f * p / all,
                            (2.0f * p + 1.0f) / all);
        progress_.RepeatProgress();
        ComputeMorphInRange(nullptr, motion_.frameA, motion_.frameB, (2.0f * p + 1.0f) / all,
                            (2.0f * p + 2.0f) / all);
        state_.flowAtoB = FlowOutputOf(state_.morphFlow); // borrowed from the morph object
    }
    progress_.RepeatProgress();
    return nearestFlow;
}

// Makes or keeps the flow object, checks out the tracking frames and computes the flows the
// interpolation needs. Returns the flow that "Nearest" warps with.
DQImage* SingleLayerRoad::GetFlow() {
    if (pass_.externalVectors) return LoadVectors();
    if (!state_.doOpticalFlow[0]) return GetMorphFlow();
    DestroyFlow(state_.morphFlow);
    if (!state_.opticalFlow) {
        state_.opticalFlow = MakeOpticalFlow(state_.width, state_.height, state_.flowLevel,
                                             motion_.anyGeometry, state_.layerCount != 1);
        motion_.needMotion = true;
        if (req_.alphaFirst) state_.opticalFlow->videoLevels = true;
    }
    state_.opticalFlow->SetSensitivity(pass_.sensitivity);
    tracking_.CheckOut(motion_.frameA, motion_.frameB, req_.fieldsIn, req_.flowFromSequence != 1);
    DQImage* a = tracking_.A();
    DQImage* b = tracking_.B();
    const float p = float(pass_.pass);
    const float passes = float(pass_.passes);

    DQImage* nearestFlow = nullptr;
    if (state_.interpolation == kNearest) {
        if (NearestUsesAtoB(motion_.weightA, state_.warping))
            ComputeFlowInRange(nullptr, a, b, motion_.frameA, motion_.frameB, p / passes,
                               (p + 1.0f) / passes);
        else
            ComputeFlowInRange(nullptr, b, a, motion_.frameB, motion_.frameA, p / passes,
                               (p + 1.0f) / passes);
        nearestFlow = FlowOutputOf(state_.opticalFlow);
    } else {
        if (!state_.flowBtoA) {
            DQImagePtr image = DQMakeImage(state_.flowWidth, state_.flowHeight, 2, DQ_FLOAT);
            state_.flowBtoA = image.release();
        }
        const float all = 2.0f * passes;
        ComputeFlowInRange(state_.flowBtoA, b, a, motion_.frameB, motion_.frameA, 2.0f * p / all,
                           (2.0f * p + 1.0f) / all);
        progress_.RepeatProgress();
        ComputeFlowInRange(nullptr, a, b, motion_.frameA, motion_.frameB, (2.0f * p + 1.0f) / all,
                           (2.0f * p + 2.0f) / all);
        state_.flowAtoB = FlowOutputOf(state_.opticalFlow); // borrowed from the flow object
    }
    progress_.RepeatProgress();
    return nearestFlow;
}

// Motion from the engine's own vectors instead of a flow object: both directions at frame size,
// loaded afresh for every pass. Returns the flow that "Nearest" warps with, chosen as GetFlow
// chooses it.
DQImage* SingleLayerRoad::LoadVectors() {
    const float p = float(pass_.pass);
    LoadPassVectors(engine_, state_, motion_, nullptr, nullptr, p / float(pass_.passes),
                    (p + 1.0f) / float(pass_.passes), progress_);
    if (state_.interpolation != kNearest) return nullptr;
    return NearestUsesAtoB(motion_.weightA, state_.warping) ? state_.flowAtoB : state_.flowBtoA;
}

// With motion measured on the frames themselves the tracking frames are warped; otherwise they
// go back and the frames to warp are checked out.
void SingleLayerRoad::CheckOutFramesToWarp() {
    if (req_.flowFromSequence != 0 && !pass_.externalVectors && tracking_.Held()) return;
    tracking_.GiveBack();
    warped_.CheckOut(motion_.frameA, motion_.frameB, req_.fieldsIn, false);
}

void SingleLayerRoad::Warp(DQImage* dest, DQImage* source, DQImage* flow, float scale) {
    WarpInverseOrThrow(dest, source, flow, 1, nullptr, scale);
}

// Inverse warps pull a frame with the flow that starts at the other frame, so the flows cross:
// A is pulled with the flow from B to A.
void SingleLayerRoad::WarpAndMix(DQImage* dest, DQImage* nearestFlow) {
    DQImage* a = warped_.Held() ? warped_.A() : tracking_.A();
    DQImage* b = warped_.Held() ? warped_.B() : tracking_.B();
    const float wa = motion_.weightA;
    const float wb = 1.0f - wa;
    switch (state_.interpolation) {
    case kNearest:
        // The frame nearer in time moves the short way; 0.5 counts as nearer to A.
        if (wa < 0.5f)
            Warp(dest, b, nearestFlow, wa);
        else
            Warp(dest, a, nearestFlow, wb);
        break;
    case kBlend: {
        DQImage* movedA = Working(state_.workingA, dest);
        DQImage* movedB = Working(state_.workingB, dest);
        Warp(movedA, a, state_.flowBtoA, wb);
        Warp(movedB, b, state_.flowAtoB, wa);
        Dissolve(dest, movedA, movedB, wb);
        break;
    }
    default:
        EnergyBlendInverse(dest, a, state_.flowAtoB, b, state_.flowBtoA,
                           Working(state_.workingA, dest), Working(state_.workingB, dest), wa);
    }
}

void SingleLayerRoad::WarpCovered(DQImage* dest, DQImage* coverage, DQImage* source, DQImage* flow,
                                  float scale) {
    WarpInverseOrThrow(dest, source, flow, 0, coverage, scale);
}

// Fills the pixels where `holes` is not 0 from the rest of the picture.
void SingleLayerRoad::FillUncovered(DQImage* dest, DQImage* holes) {
    FillHolesInRange(dest, holes, progress_);
}

// "Inverse + Smart Blend": the warps fade what they pull from outside the picture and say how
// much of each pixel they covered; the frames are mixed by what each covers, and what neither
// covers is filled from the rest of the picture.
void SingleLayerRoad::WarpAndMixCovered(DQImage* dest, DQImage* nearestFlow) {
    DQImage* a = warped_.Held() ? warped_.A() : tracking_.A();
    DQImage* b = warped_.Held() ? warped_.B() : tracking_.B();
    const float wa = motion_.weightA;
    const float wb = 1.0f - wa;
    // "Nearest" warps one frame and so needs one coverage mask.
    DQImagePtr maskA = DQMakeImage(dest->width, dest->height, 1, DQ_UCHAR);
    DQImagePtr maskB;
    if (state_.interpolation != kNearest)
        maskB = DQMakeImage(dest->width, dest->height, 1, DQ_UCHAR);
    switch (state_.interpolation) {
    case kNearest:
        if (wa < 0.5f)
            WarpCovered(dest, maskA.get(), b, nearestFlow, wa);
        else
            WarpCovered(dest, maskA.get(), a, nearestFlow, wb);
        maskA->InvertBytes();
        FillUncovered(dest, maskA.get());
        break;
    case kBlend: {
        DQImage* movedA = Working(state_.workingA, dest);
        DQImage* movedB = Working(state_.workingB, dest);
        WarpCovered(movedA, maskA.get(), a, state_.flowBtoA, wb);
        WarpCovered(movedB, maskB.get(), b, state_.flowAtoB, wa);
        if (req_.alphaFirst)
            SmartBlendAlphaFirst(dest, movedA, movedB, maskA.get(), maskB.get(), wb);
        else
            SmartBlend(dest, movedA, movedB, maskA.get(), maskB.get(), wb);
        maskA->MaxInto(maskB.get());
        maskA->InvertBytes();
        FillUncovered(dest, maskA.get());
        break;
    }
    default:
        EnergyBlendInverseMasked(dest, a, state_.flowAtoB, b, state_.flowBtoA,
                                 Working(state_.workingA, dest), Working(state_.workingB, dest),
                                 maskA.get(), maskB.get(), wa);
    }
}

void SingleLayerRoad::Push(DQImage* dest, DQImage* landed, DQImage* source, DQImage* flow,
                           float scale) {
    WarpForwardOrThrow(dest, source, flow, landed, scale, progress_);
}

// "Forward": each frame is pushed along the flow that starts at it, so the flows do not cross as
// they do for inverse warps. With `fill` the warps record where they landed, the frames are
// mixed by what each reached and the holes that neither reached are filled; without it
// (forward alone) the holes stay empty.
void SingleLayerRoad::WarpAndMixForward(DQImage* dest, DQImage* nearestFlow, bool fill) {
    DQImage* a = warped_.Held() ? warped_.A() : tracking_.A();
    DQImage* b = warped_.Held() ? warped_.B() : tracking_.B();
    const float wa = motion_.weightA;
    const float wb = 1.0f - wa;
    DQImagePtr maskA, maskB;
    if (fill) {
        maskA = DQMakeImage(dest->width, dest->height, 1, DQ_UCHAR);
        maskB = DQMakeImage(dest->width, dest->height, 1, DQ_UCHAR);
    }
    switch (state_.interpolation) {
    case kNearest:
        if (wa < 0.5f)
            Push(dest, maskA.get(), b, nearestFlow, wa);
        else
            Push(dest, maskA.get(), a, nearestFlow, wb);
        if (fill) {
            maskA->InvertBytes();
            FillUncovered(dest, maskA.get());
        }
        break;
    case kBlend: {
        DQImage* movedA = Working(state_.workingA, dest);
        DQImage* movedB = Working(state_.workingB, dest);
        Push(movedA, maskA.get(), a, state_.flowAtoB, wb);
        Push(movedB, maskB.get(), b, state_.flowBtoA, wa);
        if (!fill) {
            Dissolve(dest, movedA, movedB, wb);
            break;
        }
        SmartBlend(dest, movedA, movedB, maskA.get(), maskB.get(), wb);
        maskA->MaxInto(maskB.get());
        maskA->InvertBytes();
        FillUncovered(dest, maskA.get());
        break;
    }
    default: {
        progress_.CollapseSubRange();
        ZUIdleAndProgressClass child(&progress_);
        EnergyBlendForward(dest, a, state_.flowAtoB, b, state_.flowBtoA,
                           Working(state_.workingA, dest), Working(state_.workingB, dest),
                           maskA.get(), maskB.get(), &child, wa);
    }
    }
}

// Blurs along the flow when the output spans more than a source frame, sharpens when it spans
// less, and leaves the picture as it is at a span of one.
void SingleLayerRoad::MotionBlur(DQImage* dest) {
    DQImage* flow = state_.AnyFlowAtoB();
    float amount = 0.0f;
    if (!flow || !MotionBlurAmount(pass_.t0, pass_.t1, engine_.motionBlur, &amount)) return;
    DQImage* blurred = Working(state_.workingA, dest);
    progress_.CollapseSubRange();
    ZUIdleAndProgressClass child(&progress_);
    ZUQuelmor4Internal::ApplyMotionBlur(blurred, dest, flow, engine_.highQuality == 1, &child,
                                        amount);
    dest->CopyFrom(0, 0, blurred, 0, 0, blurred->width, blurred->height);
}

} // namespace

void DrawSingleLayer(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const RenderRequest& request,
                     PassMotion& motion, const RoadPass& pass, ZUIdleAndProgressClass& progress,
                     DQImage* dest) {
    SingleLayerRoad road(engine, state, request, motion, pass, progress);
    road.Draw(dest);
}
