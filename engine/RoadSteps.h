#pragma once
// Steps that the single-layer and the several-layer road share: the warping modes, the choice of
// the flow that "Nearest" moves the nearer frame with, motion from the engine's own vectors or
// from geometry alone, warps and fills that report failure by DQErr, and the motion blur amount
// of a pass.

#include "engine/MotionReuse.h"
#include "engine/RenderContext.h"

// Warping modes of UsesWhichWarping.
constexpr int kInverse = 0;
constexpr int kInverseSmartBlend = 1;
constexpr int kForward = 2;
constexpr int kForwardAlone = 3;

// How the roads run the optical flow: with the band pass, smoothing 1, and propagation.
constexpr int kBandPass = 1;
constexpr int kSmoothing = 1;
constexpr int kSkipPropagation = 0;

// Whether "Nearest" moves the nearer frame with the flow from A to B: an inverse warp pulls the
// nearer frame with the flow that starts at the other frame, a forward warp pushes it with its
// own. A weight of exactly 0.5 counts as nearer to A.
bool NearestUsesAtoB(float weightA, int warping);

// Makes the morph flow object when it is missing, which asks the pass for motion, and gives it
// `sensitivity`.
void EnsureMorphFlow(ZUQuelmor4Internal& state, PassMotion& motion, float sensitivity);

// The morph flow of `layer` from `firstFrame` to `secondFrame`, built from the geometry of that
// pair alone, in the progress range low..high. It lands in the object's own output and, when
// `result` is another image, there too. Nothing is built when the pass needs no motion.
void BuildMorphInRange(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const PassMotion& motion,
                       const RenderRequest& request, int layer, DQImage* result, int firstFrame,
                       int secondFrame, float low, float high, ZUIdleAndProgressClass& progress);

// Motion from the engine's own vectors: the flow objects go, and both directions of the pass's
// pair are loaded at frame size into the state's flowBtoA and flowAtoB, in the progress range
// low..high. Vector alpha is limited by matteA and matteB where they are given. The pair is made
// before the flow objects go, so that a flow still borrowed from one of them is told from an
// owned one.
void LoadPassVectors(ZUQuelmor4& engine, ZUQuelmor4Internal& state, const PassMotion& motion,
                     DQImage* matteA, DQImage* matteB, float low, float high,
                     ZUIdleAndProgressClass& progress);

// DQWarpInverse, with a refused image thrown as DQErr 5.
void WarpInverseOrThrow(DQImage* dest, DQImage* source, DQImage* flow, int extendEdges,
                        DQImage* coverage, float scale);
// DQWarpForward with progress in what is left of the current range; a refused image throws 5.
void WarpForwardOrThrow(DQImage* dest, DQImage* source, DQImage* flow, DQImage* landed, float scale,
                        ZUIdleAndProgressClass& progress);
// FillHoles of the pixels where `holes` is not 0, with progress in what is left of the range.
void FillHolesInRange(DQImage* image, DQImage* holes, ZUIdleAndProgressClass& progress);

// The amount of motion blur for a pass whose output spans source times t0 to t1, or false when
// the span or the engine's amount is too small for any.
bool MotionBlurAmount(float t0, float t1, float motionBlur, float* amount);
