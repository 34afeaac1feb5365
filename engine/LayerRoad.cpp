// The several-layer road. Layer 0 is the frontmost and the last layer the background; a layer's
// visible matte is its own matte less the (grown) mattes of every layer in front of it.

#include "engine/LayerRoad.h"

#include "engine/EnergyBlend.h"
#include "engine/Fields.h"
#include "engine/FlowObjects.h"
#include "engine/LayerImages.h"
#include "engine/Mix.h"
#include "engine/RoadSteps.h"
#include "engine/SequenceFrames.h"
#include "engine/SingleLayerRoad.h"
#include "engine/SmartBlend.h"
#include "flow/Flow.h"
#include "flow/MatteChoke.h"
#include "flow/MorphFlow.h"

#include <cmath>
#include <cstdio>

namespace {

// "Nearest" on a layer moved by geometry alone runs its one flow from A to B when the nearer
// frame is B and the warp is plain inverse, or when the nearer frame is A and the warp is any
// other. This differs from the layers with optical flow for "Inverse + Smart Blend", which here
// takes the flow that starts at the nearer frame.
bool MorphNearestRunsAtoB(float weightA, int warping) {
    return (weightA < 0.5f && warping == kInverse) || (weightA >= 0.5f && warping != kInverse);
}

// The rows of a field that are rebuilt from the other field's rows.
int FieldRowsOf(int field, int fieldsIn) {
    const double half = field * 0.5;
    const bool firstField = half - std::trunc(half) < 0.5;
    return (firstField && fieldsIn == 2) || (!firstField && fieldsIn != 2) ? 3 : 2;
}

// The mattes of every foreground layer at frames A and B, given back when the holder goes.
class LayerMattes {
public:
    explicit LayerMattes(ZUQuelmor4& engine) : engine_(engine) {}
    ~LayerMattes() { GiveBack(); }
    LayerMattes(const LayerMattes&) = delete;
    LayerMattes& operator=(const LayerMattes&) = delete;

    // For each foreground layer from the front: its matte at A, then at B. A failure throws;
    // what was already checked out is given back by the destructor.
    void CheckOut(int foregroundLayers, int frameA, int frameB, int fieldsIn, const DQImage* like) {
        for (int k = 0; k < foregroundLayers; ++k) {
            a_[k] = Fetch(frameA, fieldsIn, k, like);
            b_[k] = Fetch(frameB, fieldsIn, k, like);
        }
    }
    void GiveBack() {
        for (int k = kMaxLayers - 1; k >= 0; --k) {
            if (b_[k]) engine_.CleanUpCheckedOutMatteImage(b_[k]);
            if (a_[k]) engine_.CleanUpCheckedOutMatteImage(a_[k]);
            a_[k] = b_[k] = nullptr;
        }
    }
    // The checked-out pixels of each layer, indexed by layer.
    DQImage* const* A() {
        for (int k = 0; k < kMaxLayers; ++k)
            pixelsA_[k] = ZUImageGetDQImage(a_[k]);
        return pixelsA_;
    }
    DQImage* const* B() {
        for (int k = 0; k < kMaxLayers; ++k)
            pixelsB_[k] = ZUImageGetDQImage(b_[k]);
        return pixelsB_;
    }

private:
    ZUImage* Fetch(int frame, int fieldsIn, int layer, const DQImage* like) {
        ZUImage* image = nullptr;
        const int source = fieldsIn ? frame / 2 : frame;
        const int code = engine_.GetMatteLayerSequenceImage(&image, source, layer);
        if (code != 0) {
            if (image) engine_.CleanUpCheckedOutMatteImage(image);
            DQThrow(code);
        }
        DQImage* pixels = ZUImageGetDQImage(image);
        if (!pixels || pixels->channels != 1 || pixels->width != like->width ||
            pixels->height != like->height) {
            if (image) engine_.CleanUpCheckedOutMatteImage(image);
            std::fprintf(stderr,
                         "Quelmor: the matte of layer %d at frame %d is not one channel of the "
                         "frame's size\n",
                         layer, source);
            DQThrow(kDQErrBadArgument);
        }
        try {
            if (fieldsIn) FieldToFrame(pixels, FieldRowsOf(frame, fieldsIn));
        } catch (DQErr) {
            engine_.CleanUpCheckedOutMatteImage(image);
            throw;
        }
        return image;
    }

    ZUQuelmor4& engine_;
    ZUImage* a_[kMaxLayers] = {};
    ZUImage* b_[kMaxLayers] = {};
    DQImage* pixelsA_[kMaxLayers] = {};
    DQImage* pixelsB_[kMaxLayers] = {};
};

class LayerRoad {
public:
    LayerRoad(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const RenderRequest& request,
              PassMotion& motion, const LayerPass& pass, ZUIdleAndProgressClass& progress)
        : engine_(engine), state_(state), req_(request), motion_(motion), pass_(pass),
          progress_(progress), tracking_(engine, state), warped_(engine, state), mattes_(engine) {}

    void Draw(DQImage* dest);

private:
    void RefuseRowsNotBuilt(const DQImage* dest) const;
    void CheckOut();
    void MakeWorkingImages(const DQImage* dest);
    void EnsureFlowObjects(int layer);
    void VisibleMattes(int layer);
    void CutNearerLayers(DQImage* matte, DQImage* const* mattes, int layer);
    void ComputeLayerFlows(int layer);
    void ComputeDirection(int layer, DQImage* result, bool firstIsA, float low, float high,
                          bool reversesLast = false);
    void BuildMorphDirection(int layer, DQImage* result, bool firstIsA, float low, float high);
    DQImage* NearestFlow(int layer) const;
    DQImage* NearestPicture(int layer);
    DQImage* BothPictures(int layer);
    void CompleteFromOther(int layer);
    void FillInShape(DQImage* picture, DQImage* const* mattes, int layer, const DQImage* frame,
                     bool premultipliedNext);
    void Fill(DQImage* image, DQImage* holes);
    void WarpForward(DQImage* dest, DQImage* source, DQImage* flow, DQImage* mask, float scale);
    DQImage* MotionBlur(int layer, DQImage* picture);
    DQImage* FreePicture(const DQImage* used);

    DQImage* TrackA() const { return tracking_.A(); }
    DQImage* TrackB() const { return tracking_.B(); }
    DQImage* WarpedA() const { return warped_.Held() ? warped_.A() : tracking_.A(); }
    DQImage* WarpedB() const { return warped_.Held() ? warped_.B() : tracking_.B(); }
    bool Moved() const { return pass_.moved; }

    ZUQuelmor4& engine_;
    ZUQuelmor4Internal& state_;
    const RenderRequest& req_;
    PassMotion& motion_;
    const LayerPass& pass_;
    ZUIdleAndProgressClass& progress_;
    SequenceFramePair tracking_;
    SequenceFramePair warped_;
    LayerMattes mattes_;

    DQImagePtr pictureA_, pictureB_, workA_, workB_, mixed_;
    DQImagePtr matteA_, matteB_, scratchMatte_, chokeMatte_, shapeMatte_;
    DQImagePtr maskA_, maskB_;
};

void LayerRoad::RefuseRowsNotBuilt(const DQImage* dest) const {
    if (dest->channels != 4) {
        std::fputs("Quelmor: foreground layers need a result with alpha\n", stderr);
        DQThrow(kDQErrBadArgument);
    }
    if (!Moved()) return;
    if (state_.warping < kInverse || state_.warping > kForwardAlone) RoadNotAvailable("warping");
}

void LayerRoad::CheckOut() {
    tracking_.CheckOut(motion_.frameA, motion_.frameB, req_.fieldsIn, req_.flowFromSequence != 1);
    if (req_.flowFromSequence == 0)
        warped_.CheckOut(motion_.frameA, motion_.frameB, req_.fieldsIn, false);
    const DQImage* a = TrackA();
    for (const DQImage* frame : {TrackB(), WarpedA(), WarpedB()})
        if (frame->width != a->width || frame->height != a->height ||
            frame->dataType != a->dataType || (frame->channels != 3 && frame->channels != 4)) {
            std::fputs("Quelmor: the frames of a pair differ in layout\n", stderr);
            DQThrow(kDQErrBadArgument);
        }
    mattes_.CheckOut(state_.layerCount - 1, motion_.frameA, motion_.frameB, req_.fieldsIn, a);
}

void LayerRoad::MakeWorkingImages(const DQImage* dest) {
    const int w = dest->width, h = dest->height, type = dest->dataType;
    for (DQImagePtr* picture : {&pictureA_, &pictureB_, &workA_, &workB_}) {
        *picture = DQMakeImage(w, h, 4, type);
        (*picture)->whitePoint = dest->whitePoint;
    }
    for (DQImagePtr* matte : {&matteA_, &matteB_, &scratchMatte_, &shapeMatte_}) {
        *matte = DQMakeImage(w, h, 1, type);
        (*matte)->whitePoint = dest->whitePoint;
    }
    chokeMatte_ = DQMakeImage(w, h, 1, DQ_FLOAT);
    maskA_ = DQMakeImage(w, h, 1, DQ_UCHAR);
    maskB_ = DQMakeImage(w, h, 1, DQ_UCHAR);
}

void LayerRoad::Draw(DQImage* dest) {
    RefuseRowsNotBuilt(dest);
    CheckOut();
    if (TrackA()->width != dest->width || TrackA()->height != dest->height ||
        TrackA()->dataType != dest->dataType) {
        std::fputs("Quelmor: the frames and the result differ in layout\n", stderr);
        DQThrow(kDQErrBadArgument);
    }
    MakeWorkingImages(dest);
    const int start = engine_.GetDrawStartLayer();
    const int end = engine_.GetDrawEndLayer();
    if (start < 0 || start >= state_.layerCount || end < 0 || end >= state_.layerCount)
        DQThrow(kDQErrBadArgument);
    for (int layer = start; layer >= end; --layer) {
        if (Moved() && !pass_.externalVectors) EnsureFlowObjects(layer);
        VisibleMattes(layer);
        if (Moved()) ComputeLayerFlows(layer);
        DQImage* picture =
            state_.interpolation == kNearest ? NearestPicture(layer) : BothPictures(layer);
        picture = MotionBlur(layer, picture);
        if (layer + 1 == state_.layerCount)
            dest->CopyFrom(0, 0, picture, 0, 0, picture->width, picture->height);
        else
            OverInto(dest, picture, dest->width - 1, dest->height - 1);
        progress_.RepeatProgress();
    }
}

// The flow object of layer 0's kind, then the one of this layer's kind, which gets the layer's
// sensitivity. Both kinds may live side by side: layer 0's flow may be kept in its object's own
// output while the other layers have images of their own.
void LayerRoad::EnsureFlowObjects(int layer) {
    for (int kindOf : {0, layer}) {
        if (state_.doOpticalFlow[kindOf]) {
            if (state_.opticalFlow) continue;
            state_.opticalFlow = MakeOpticalFlow(state_.width, state_.height, state_.flowLevel,
                                                 motion_.anyGeometry, true);
            motion_.needMotion = true;
            if (req_.alphaFirst) state_.opticalFlow->videoLevels = true;
        } else {
            EnsureMorphFlow(state_, motion_, pass_.sensitivity[layer]);
        }
    }
    if (state_.doOpticalFlow[layer])
        state_.opticalFlow->SetSensitivity(pass_.sensitivity[layer]);
    else
        state_.morphFlow->SetSensitivity(pass_.sensitivity[layer]);
}

// One nearer layer's matte, grown by its shrink value so that a margin around it counts as
// foreground, taken out of `matte`.
void LayerRoad::CutNearerLayers(DQImage* matte, DQImage* const* mattes, int layer) {
    for (int k = layer - 1; k >= 0; --k) {
        chokeMatte_->CopyChannelNormalised(0, mattes[k], 0);
        DQMatteChoke(chokeMatte_.get(), -pass_.shrink[k]);
        RenderBlackMatte(matte, chokeMatte_.get());
        progress_.RepeatProgress();
    }
}

void LayerRoad::VisibleMattes(int layer) {
    LayerMatte(matteA_.get(), mattes_.A(), layer, state_.layerCount, nullptr);
    LayerMatte(matteB_.get(), mattes_.B(), layer, state_.layerCount, nullptr);
    CutNearerLayers(matteA_.get(), mattes_.A(), layer);
    CutNearerLayers(matteB_.get(), mattes_.B(), layer);
}

// The flows of the layer: the engine's own vectors, limited to what is visible of the layer, or
// flows measured on the layer's pictures or built from its geometry alone. "Nearest" needs one
// toward the nearer frame's partner, the blends both ways.
void LayerRoad::ComputeLayerFlows(int layer) {
    const float p = float(pass_.pass);
    const float layers = float(engine_.GetDrawStartLayer() - engine_.GetDrawEndLayer() + 1);
    const float share = 1.0f / (float(pass_.passes) * layers);
    const float low = (p * layers + float(engine_.GetDrawStartLayer() - layer)) * share;
    if (pass_.externalVectors) {
        LoadPassVectors(engine_, state_, motion_, matteA_.get(), matteB_.get(), low, low + share,
                        progress_);
        return;
    }
    state_.AllocLayerFlows(req_.cacheLastMotion);
    const bool optical = state_.doOpticalFlow[layer];
    // `reversesLast`: this run follows one of the same layer the other way.
    const auto run = [&](DQImage* result, bool firstIsA, float from, float to, bool reversesLast) {
        if (optical)
            ComputeDirection(layer, result, firstIsA, from, to, reversesLast);
        else
            BuildMorphDirection(layer, result, firstIsA, from, to);
    };
    if (state_.interpolation == kNearest) {
        const bool atoB = optical ? NearestUsesAtoB(motion_.weightA, state_.warping)
                                  : MorphNearestRunsAtoB(motion_.weightA, state_.warping);
        run(state_.FlowAtoB(layer), atoB, low, low + share, false);
    } else {
        run(state_.FlowBtoA(layer), false, low, low + 0.5f * share, false);
        run(state_.FlowAtoB(layer), true, low + 0.5f * share, low + share, true);
    }
    progress_.RepeatProgress();
}

// The morph flow of the layer from the geometry of (first, second) alone.
void LayerRoad::BuildMorphDirection(int layer, DQImage* result, bool firstIsA, float low,
                                    float high) {
    const int first = firstIsA ? motion_.frameA : motion_.frameB;
    const int second = firstIsA ? motion_.frameB : motion_.frameA;
    BuildMorphInRange(engine_, state_, motion_, req_, layer, result, first, second, low, high,
                      progress_);
}

// The flow that "Nearest" moves the layer with. A computed one was run in the direction needed
// into the layer's A-to-B slot; the engine's own vectors come in both true directions, and the
// one is taken as for the single layer.
DQImage* LayerRoad::NearestFlow(int layer) const {
    if (!pass_.externalVectors) return state_.FlowAtoB(layer);
    return NearestUsesAtoB(motion_.weightA, state_.warping) ? state_.FlowAtoB(layer)
                                                            : state_.FlowBtoA(layer);
}

// Loads the solver with the layer's pictures of (first, second) and masks out of it every pixel
// where a nearer layer hides this one. `reversesLast`: the call before ran the same layer the
// other way, so the matted pictures in workA and workB still hold, and the solver's matte pyramids
// (which solving only reads) are the right ones with first and second swapped.
void LayerRoad::ComputeDirection(int layer, DQImage* result, bool firstIsA, float low, float high,
                                 bool reversesLast) {
    progress_.SetSubRange(low, high);
    if (!motion_.needMotion) return;
    DQOpticalFlowUChar* flow = state_.opticalFlow;
    DQImage* work[2] = {workA_.get(), workB_.get()};
    DQImage* visible[2] = {matteA_.get(), matteB_.get()};
    DQImage* const* whole[2] = {mattes_.A(), mattes_.B()};
    DQImage* track[2] = {TrackA(), TrackB()};
    const int order[2] = {firstIsA ? 0 : 1, firstIsA ? 1 : 0};
    if (reversesLast) {
        flow->SwapImages(); // the image pyramids are loaded afresh below
    } else {
        for (int side = 0; side < 2; ++side)
            MattedImage(work[side], track[side], visible[side]);
        for (int which = 0; which < 2; ++which) {
            const int side = order[which];
            LayerMatte(scratchMatte_.get(), whole[side], layer, state_.layerCount, nullptr);
            Subtract1Channel(scratchMatte_.get(), visible[side]);
            scratchMatte_->Invert();
            flow->LoadMatte(scratchMatte_.get(), which);
        }
    }
    for (int which = 0; which < 2; ++which) {
        const int side = order[which];
        LayerMatte(scratchMatte_.get(), whole[side], layer, state_.layerCount, nullptr);
        flow->LoadImage(work[side], visible[side], scratchMatte_.get(), which,
                        state_.enhanceImages);
    }
    if (motion_.anyGeometry) {
        const int frames[2] = {motion_.frameA, motion_.frameB};
        state_.FeedGeometryToFlow(engine_, flow, layer, frames[order[0]], frames[order[1]],
                                  req_.fieldsIn);
    }
    ZUIdleAndProgressClass child(&progress_);
    ++state_.flowRuns;
    flow->ComputeLoadedFlow(result, kBandPass, kSmoothing, kSkipPropagation, &child);
}

void LayerRoad::Fill(DQImage* image, DQImage* holes) {
    FillHolesInRange(image, holes, progress_);
}

void LayerRoad::WarpForward(DQImage* dest, DQImage* source, DQImage* flow, DQImage* mask,
                            float scale) {
    WarpForwardOrThrow(dest, source, flow, mask, scale, progress_);
}

// An unpremultiplied picture's pixels that are not opaque filled from the opaque ones, then the
// layer's whole shape put back as its alpha; `frame` lends its own alpha to the background. When
// the picture is premultiplied next, a pixel outside the shape comes out black whatever its
// colour, so only the holes inside the shape are filled: for a foreground layer that is a small
// part of the frame.
void LayerRoad::FillInShape(DQImage* picture, DQImage* const* mattes, int layer,
                            const DQImage* frame, bool premultipliedNext) {
    DQImage* shape = shapeMatte_.get();
    LayerMatte(shape, mattes, layer, state_.layerCount, frame);
    scratchMatte_->CopyChannelPlain(0, picture, 3);
    scratchMatte_->Invert();
    progress_.CollapseSubRange();
    ZUIdleAndProgressClass child(&progress_);
    if (premultipliedNext)
        FillHolesWhereNeeded(picture, scratchMatte_.get(), shape, &child);
    else
        FillHoles(picture, scratchMatte_.get(), &child);
    picture->CopyChannelPlain(3, shape, 0);
}

// "Nearest": the nearer frame's layer, its colour extended under the nearer layers, moved along
// the layer's flow.
DQImage* LayerRoad::NearestPicture(int layer) {
    const bool useA = motion_.weightA >= 0.5f;
    DQImage* frame = useA ? WarpedA() : WarpedB();
    DQImage* visible = useA ? matteA_.get() : matteB_.get();
    DQImage* const* mattes = useA ? mattes_.A() : mattes_.B();
    DQImage* p = pictureA_.get();
    MattedImage(p, frame, visible);
    p->Unpremultiply();
    FillInShape(p, mattes, layer, frame, true);
    p->Premultiply();
    if (!Moved()) return p;

    DQImage* flow = NearestFlow(layer);
    const float s = useA ? 1.0f - motion_.weightA : motion_.weightA;
    DQImage* out = workA_.get();
    switch (state_.warping) {
    case kInverse:
        WarpInverseOrThrow(out, p, flow, 1, nullptr, s);
        break;
    case kInverseSmartBlend:
    case kForward:
        if (state_.warping == kInverseSmartBlend)
            WarpInverseOrThrow(out, p, flow, 0, maskA_.get(), s);
        else
            WarpForward(out, p, flow, maskA_.get(), s);
        maskA_->InvertBytes();
        Fill(out, maskA_.get());
        break;
    default:
        WarpForward(out, p, flow, nullptr, s);
    }
    return out;
}

// Each frame's layer completed from the other: the other frame's layer, moved fully onto this
// one, shows through where this one is hidden by a nearer layer.
void LayerRoad::CompleteFromOther(int layer) {
    DQImage* pa = pictureA_.get();
    DQImage* pb = pictureB_.get();
    MattedImage(pa, WarpedA(), matteA_.get());
    MattedImage(pb, WarpedB(), matteB_.get());
    const bool inverse = state_.warping < kForward;
    if (Moved()) {
        if (inverse)
            WarpInverseOrThrow(workB_.get(), pa, state_.FlowBtoA(layer), 1, nullptr, 1.0f);
        else
            WarpForward(workB_.get(), pa, state_.FlowAtoB(layer), nullptr, 1.0f);
        if (inverse)
            WarpInverseOrThrow(workA_.get(), pb, state_.FlowAtoB(layer), 1, nullptr, 1.0f);
        else
            WarpForward(workA_.get(), pb, state_.FlowBtoA(layer), nullptr, 1.0f);
    } else {
        workB_->CopyWhole(pa);
        workA_->CopyWhole(pb);
    }
    OverInto(workB_.get(), pb, pb->width - 1, pb->height - 1);
    OverInto(workA_.get(), pa, pa->width - 1, pa->height - 1);
    DQImage* work[2] = {workA_.get(), workB_.get()};
    DQImage* const* mattes[2] = {mattes_.A(), mattes_.B()};
    DQImage* frames[2] = {WarpedA(), WarpedB()};
    // "Weighted Energy Blend" mixes the moved pictures before it premultiplies them.
    const bool premultipliedNext = state_.interpolation == kBlend || !Moved();
    for (int side = 0; side < 2; ++side) {
        work[side]->Unpremultiply();
        FillInShape(work[side], mattes[side], layer, frames[side], premultipliedNext);
    }
}

// The blends: both frames' layers completed, moved to the moment and mixed by the interpolation
// and the warping.
DQImage* LayerRoad::BothPictures(int layer) {
    CompleteFromOther(layer);
    DQImage* wA = workA_.get();
    DQImage* wB = workB_.get();
    DQImage* pA = pictureA_.get();
    DQImage* pB = pictureB_.get();
    const float a = motion_.weightA;
    const float b = 1.0f - a;
    if (!Moved()) {
        wA->Premultiply();
        wB->Premultiply();
        Dissolve(pA, wA, wB, b);
        return pA;
    }
    if (state_.interpolation == kBlend) {
        wA->Premultiply();
        wB->Premultiply();
        switch (state_.warping) {
        case kInverse:
            WarpInverseOrThrow(pA, wA, state_.FlowBtoA(layer), 1, nullptr, b);
            WarpInverseOrThrow(pB, wB, state_.FlowAtoB(layer), 1, nullptr, a);
            Dissolve(wA, pA, pB, b);
            return wA;
        case kInverseSmartBlend:
        case kForward:
            if (state_.warping == kInverseSmartBlend) {
                WarpInverseOrThrow(pA, wA, state_.FlowBtoA(layer), 0, maskA_.get(), b);
                WarpInverseOrThrow(pB, wB, state_.FlowAtoB(layer), 0, maskB_.get(), a);
            } else {
                WarpForward(pA, wA, state_.FlowAtoB(layer), maskA_.get(), b);
                WarpForward(pB, wB, state_.FlowBtoA(layer), maskB_.get(), a);
            }
            SmartBlend(wA, pA, pB, maskA_.get(), maskB_.get(), b);
            maskA_->MaxInto(maskB_.get());
            maskA_->InvertBytes();
            Fill(wA, maskA_.get());
            return wA;
        default:
            WarpForward(pA, wA, state_.FlowAtoB(layer), nullptr, b);
            WarpForward(pB, wB, state_.FlowBtoA(layer), nullptr, a);
            Dissolve(wA, pA, pB, b);
            return wA;
        }
    }
    if (!mixed_) {
        mixed_ = DQMakeImage(wA->width, wA->height, 4, wA->dataType);
        mixed_->whitePoint = wA->whitePoint;
    }
    DQImage* out = mixed_.get();
    switch (state_.warping) {
    case kInverse:
        EnergyBlendInverse(out, wA, state_.FlowAtoB(layer), wB, state_.FlowBtoA(layer), pA, pB, a);
        break;
    case kInverseSmartBlend:
        EnergyBlendInverseMasked(out, wA, state_.FlowAtoB(layer), wB, state_.FlowBtoA(layer), pA,
                                 pB, maskA_.get(), maskB_.get(), a);
        break;
    default: {
        const bool masks = state_.warping == kForward;
        progress_.CollapseSubRange();
        ZUIdleAndProgressClass child(&progress_);
        EnergyBlendForward(out, wA, state_.FlowAtoB(layer), wB, state_.FlowBtoA(layer), pA, pB,
                           masks ? maskA_.get() : nullptr, masks ? maskB_.get() : nullptr, &child,
                           a);
    }
    }
    out->Premultiply();
    return out;
}

// A picture of the four that does not hold `used`.
DQImage* LayerRoad::FreePicture(const DQImage* used) {
    for (DQImagePtr* picture : {&pictureA_, &pictureB_, &workA_, &workB_})
        if (picture->get() != used) return picture->get();
    return nullptr;
}

DQImage* LayerRoad::MotionBlur(int layer, DQImage* picture) {
    DQImage* flow = Moved() ? state_.FlowAtoB(layer) : nullptr;
    float amount = 0.0f;
    if (!flow || !MotionBlurAmount(pass_.t0, pass_.t1, engine_.motionBlur, &amount)) return picture;
    DQImage* blurred = FreePicture(picture);
    progress_.CollapseSubRange();
    ZUIdleAndProgressClass child(&progress_);
    ZUQuelmor4Internal::ApplyMotionBlur(blurred, picture, flow, engine_.highQuality == 1, &child,
                                        amount);
    return blurred;
}

} // namespace

void DrawLayers(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const RenderRequest& request,
                PassMotion& motion, const LayerPass& pass, ZUIdleAndProgressClass& progress,
                DQImage* dest) {
    LayerRoad road(engine, state, request, motion, pass, progress);
    road.Draw(dest);
}
