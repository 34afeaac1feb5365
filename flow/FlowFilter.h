#pragma once
// Smoothing of float images for the flow object without allocating per call. The row and column
// passes are the library's own line and column functions, so the results equal those of BlurGauss
// and Blur5 on the same image; what differs is that each band runs both passes over a window of
// rows kept in scratch of the caller's, one window after the other, and that source and target may
// be different images.
#include "image/DQImage.h"

#include <cstddef>

// One growable block of floats from the library heap, kept for reuse.
class DQFlowBuffer {
public:
    DQFlowBuffer() = default;
    ~DQFlowBuffer();
    DQFlowBuffer(const DQFlowBuffer&) = delete;
    DQFlowBuffer& operator=(const DQFlowBuffer&) = delete;

    // At least `count` floats; contents are not kept when the block grows. Throws DQErr 1.
    float* Reserve(size_t count);

private:
    float* data_ = nullptr;
    size_t capacity_ = 0;
};

// The working memory of one flow object that is not a level image: the plane of the smoothing
// filters, the two input-size images of the reduction and the planes of the sweeps.
struct DQFlowScratch : public ZUMem {
    DQFlowBuffer filterPlane;
    DQFlowBuffer sweepPlanes;
    DQFlowBuffer reduceFirst;
    DQFlowBuffer reduceSecond;
};

// The filters the flow object uses: the binomial 1/16, 1/4, 3/8, 1/4, 1/16 and the base-2
// Gaussians of the solver's windows and the edge enhancement; the morph flow's spread adds the
// Gaussians of radius 1.95 and 2.5.
enum class DQFlowFilterKind { Binomial, Gauss2, Gauss3, Gauss5, Gauss7, Gauss1_95, Gauss2_5 };

// Filters every channel of the float image `source` along rows and then columns into `dest`, of
// the same size and channels (the same image is allowed). `plane` holds the windows of rows
// between the passes. Images that are not float or do not match throw DQErr 5.
void DQFlowBlur(DQImage* dest, const DQImage* source, DQFlowFilterKind kind, DQFlowBuffer& plane);
