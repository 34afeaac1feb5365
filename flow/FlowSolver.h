#pragma once
// The steps of one pyramid level of the flow solver, each a driver over row bands. All images are
// float level images of one flow object; W and H are the level's size.
//
// Inside the solver a vector (u, v) at pixel (x, y) of A means that A(x, y) corresponds to
// B(x - u, y - v); the flow object negates the field at the very end.
#include "image/DQImage.h"

class ZUIdleAndProgressClass;
class DQFlowBuffer;

// Which window SmoothLevelImage applies.
enum class DQFlowWindow { Tensor, Flow };

// Determinant threshold below which a pixel's 2x2 system is left unsolved.
inline constexpr float kDQFlowMinDeterminant = 40.0f;

// Central differences in the interior, one-sided on the border, into gradX and gradY.
void DQFlowComputeGradients(const DQImage* image, DQImage* gradX, DQImage* gradY);
// Zeroes both gradients where the matte, at the pixel or any existing four-neighbour, is < 0.95.
void DQFlowMaskGradients(DQImage* gradX, DQImage* gradY, const DQImage* matte);
// Channels Ix Ix, Iy Ix, Iy Iy.
void DQFlowComputeTensor(const DQImage* gradX, const DQImage* gradY, DQImage* tensor);
// Window of the given kind for a smoothing selector: 0 box, 1 and 2 Gaussians, other none.
// `plane` is the filters' scratch; without it the call allocates its own.
void DQFlowSmoothLevelImage(DQImage* image, DQFlowWindow kind, int smoothing,
                            DQFlowBuffer* plane = nullptr);
// (Ix d, Iy d) with d = B(x - u, y - v) - A(x, y); zero outside B or outside matte B (may be null).
void DQFlowComputeResidual(const DQImage* imageA, const DQImage* imageB, const DQImage* gradX,
                           const DQImage* gradY, const DQImage* flow, const DQImage* matteB,
                           DQImage* residual);
// Adds the solution of every well-conditioned pixel's system to the flow.
void DQFlowSolveStep(const DQImage* tensor, const DQImage* residual, DQImage* flow);
// Seeds: replacing mode (blend false) or blending mode.
void DQFlowApplySeeds(DQImage* flow, const DQImage* seedFlow, const DQImage* seedWeight,
                      bool blend);
// Bilinear expansion of a coarse flow into the next finer level, vectors scaled by the size
// ratio. Throws DQErr 5 when the images are not float or differ in channels.
void DQFlowExpandFlow(const DQImage* coarse, DQImage* fine);
// The four directional sweeps that let each pixel adopt a neighbour's vector when it matches a
// 3x3 patch better. Mattes may both be null; the progress object, when given, gets an idle check
// after each sweep. `planes` holds the sweeps' working copies of the images; without it the
// sweeps allocate their own.
void DQFlowPropagateVectors(const DQImage* imageA, const DQImage* imageB, DQImage* flow,
                            const DQImage* matteA, const DQImage* matteB,
                            ZUIdleAndProgressClass* progress = nullptr,
                            DQFlowBuffer* planes = nullptr);
// Sum of squared differences between nine values of A and the bilinear 3x3 patch of B at
// (px, py); false where the patch cannot be read (see the definition for the rules). Scalar
// reference of the cost that the sweeps evaluate eight pixels at a time.
bool DQFlowPatchCost(const float a[9], float px, float py, const DQImage* imageB,
                     const DQImage* matteB, float* cost);
// Bilinear sample of one float channel with the solver's rule for the last column and row.
float DQFlowSampleBilinear(const DQImage* image, int channel, float x, float y);
