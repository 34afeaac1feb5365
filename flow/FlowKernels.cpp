// The entry points of the flow's kernel units, each forwarding to the copy of the level in force.
#include "flow/FlowFilter.h"
#include "flow/FlowLanePlanes.h"
#include "flow/FlowSolver.h"
#include "flow/InvertFlow.h"
#include "image/KernelSpace.h"

QUELMOR_KERNEL_ENTRY(float, DQFlowSampleBilinear,
                     (const DQImage* image, int channel, float x, float y), (image, channel, x, y))
QUELMOR_KERNEL_ENTRY(void, DQFlowComputeGradients,
                     (const DQImage* image, DQImage* gradX, DQImage* gradY), (image, gradX, gradY))
QUELMOR_KERNEL_ENTRY(void, DQFlowMaskGradients,
                     (DQImage * gradX, DQImage* gradY, const DQImage* matte), (gradX, gradY, matte))
QUELMOR_KERNEL_ENTRY(void, DQFlowComputeTensor,
                     (const DQImage* gradX, const DQImage* gradY, DQImage* tensor),
                     (gradX, gradY, tensor))
QUELMOR_KERNEL_ENTRY(void, DQFlowSmoothLevelImage,
                     (DQImage * image, DQFlowWindow kind, int smoothing, DQFlowBuffer* plane),
                     (image, kind, smoothing, plane))
QUELMOR_KERNEL_ENTRY(void, DQFlowComputeResidual,
                     (const DQImage* imageA, const DQImage* imageB, const DQImage* gradX,
                      const DQImage* gradY, const DQImage* flow, const DQImage* matteB,
                      DQImage* residual),
                     (imageA, imageB, gradX, gradY, flow, matteB, residual))
QUELMOR_KERNEL_ENTRY(void, DQFlowSolveStep,
                     (const DQImage* tensor, const DQImage* residual, DQImage* flow),
                     (tensor, residual, flow))
QUELMOR_KERNEL_ENTRY(void, DQFlowApplySeeds,
                     (DQImage * flow, const DQImage* seedFlow, const DQImage* seedWeight,
                      bool blend),
                     (flow, seedFlow, seedWeight, blend))
QUELMOR_KERNEL_ENTRY(void, DQFlowExpandFlow, (const DQImage* coarse, DQImage* fine), (coarse, fine))
QUELMOR_KERNEL_ENTRY(bool, DQFlowPatchCost,
                     (const float a[9], float px, float py, const DQImage* imageB,
                      const DQImage* matteB, float* cost),
                     (a, px, py, imageB, matteB, cost))
QUELMOR_KERNEL_ENTRY(void, DQFlowPropagateVectors,
                     (const DQImage* imageA, const DQImage* imageB, DQImage* flow,
                      const DQImage* matteA, const DQImage* matteB,
                      ZUIdleAndProgressClass* progress, DQFlowBuffer* planes),
                     (imageA, imageB, flow, matteA, matteB, progress, planes))
QUELMOR_KERNEL_ENTRY(void, DQFlowLoadLanePlane,
                     (DQFlowLanePlane & plane, const DQImage* image, int channel, bool transposed),
                     (plane, image, channel, transposed))
QUELMOR_KERNEL_ENTRY(void, DQFlowStoreLanePlane,
                     (const DQFlowLanePlane& plane, DQImage* image, int channel),
                     (plane, image, channel))
QUELMOR_KERNEL_ENTRY(void, DQFlowTransposeLanePlane,
                     (DQFlowLanePlane & target, const DQFlowLanePlane& source), (target, source))
QUELMOR_KERNEL_ENTRY(void, DQFlowBlur,
                     (DQImage * dest, const DQImage* source, DQFlowFilterKind kind,
                      DQFlowBuffer& plane),
                     (dest, source, kind, plane))

QUELMOR_KERNEL_ENTRY(void, DQInvertFlow,
                     (DQImage * target, DQImage* source, DQImage* scratch,
                      ZUIdleAndProgressClass* progress),
                     (target, source, scratch, progress))
