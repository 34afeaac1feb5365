#pragma once
// Looks inside the engine's motion for the quality benchmark: the two flows that a "Blend" render
// kept, compared with the DIS reference's flows by end-point difference, and each flow judged on
// its own by how well it pulls one frame onto the other (PSNR of B pulled along the flow from A
// against A). Only with OpenCV.
#ifdef QUELMOR_HAVE_OPENCV
#include "DisReference.h"
#include "ImageMetrics.h"
#include "RetimeBenchSupport.h"

#include "engine/EngineInternal.h"
#include "warp/Warp.h"

#include <cmath>

namespace quelmor::bench {

struct FlowCheck {
    double endPointDifference = 0.0; // mean over both directions, full-size pixels
    double largeShare = 0.0;         // share of pixels that differ by more than 3 pixels
    double enginePullPsnr = 0.0;     // mean over both directions
    double disPullPsnr = 0.0;
};

namespace flow_check_detail {

// Mean end-point difference of a flow at flow size against a full-size one, both read in
// full-size pixels; the smaller flow is sampled bilinearly through the ratio of (size - 1).
inline void Compare(const DQImage& small, const cv::Mat& full, double* mean, double* large) {
    const float rx = full.cols > 1 ? float(small.width - 1) / float(full.cols - 1) : 0.f;
    const float ry = full.rows > 1 ? float(small.height - 1) / float(full.rows - 1) : 0.f;
    double sum = 0.0;
    long over = 0;
    for (int y = 0; y < full.rows; ++y) {
        const cv::Vec2f* f = full.ptr<cv::Vec2f>(y);
        for (int x = 0; x < full.cols; ++x) {
            float dx = 0.f, dy = 0.f;
            small.GetFlowBilinear(&dx, &dy, 0, float(x) * rx, float(y) * ry);
            dx = rx > 0.f ? dx / rx : dx;
            dy = ry > 0.f ? dy / ry : dy;
            const double d = std::hypot(double(dx) - f[x][0], double(dy) - f[x][1]);
            sum += d;
            over += d > 3.0;
        }
    }
    const double n = double(full.cols) * full.rows;
    *mean = sum / n;
    *large = double(over) / n;
}

// PSNR of `to` pulled all the way along `flow` (which starts at `from`) against `from`.
inline double PullPsnr(DQImage* from, DQImage* to, DQImage* flow) {
    DQImagePtr pulled(new DQImage(from->width, from->height, 4, DQ_UCHAR, 0));
    DQWarpInverse(pulled.get(), to, flow, 1, nullptr, 1, 1.0f);
    return Psnr(*pulled, *from);
}

} // namespace flow_check_detail

// Renders the in-between frame of A and B with "Blend" and `settings`, keeps the engine's flows
// and checks them. Returns false when the engine failed or kept no flow.
inline bool CheckEngineFlow(DQImage* a, DQImage* b, RetimeSettings settings, FlowCheck* out) {
    using namespace flow_check_detail;
    settings.interpolation = 1;
    settings.cacheLastMotion = 1;
    ClipEngine engine({a, b});
    DQImagePtr frame(new DQImage(a->width, a->height, 4, DQ_UCHAR, 0));
    if (RenderFrame(engine, frame.get(), 0.5f, settings) != 0 || !engine.internal) return false;
    DQImage* bToA = engine.internal->flowBtoA;
    DQImage* aToB = engine.internal->flowAtoB;
    if (!bToA || !aToB) return false;
    const DisFlows dis = ComputeDisFlows(*a, *b);
    double meanAB, largeAB, meanBA, largeBA;
    Compare(*aToB, dis.aToB, &meanAB, &largeAB);
    Compare(*bToA, dis.bToA, &meanBA, &largeBA);
    out->endPointDifference = 0.5 * (meanAB + meanBA);
    out->largeShare = 0.5 * (largeAB + largeBA);
    out->enginePullPsnr = 0.5 * (PullPsnr(a, b, aToB) + PullPsnr(b, a, bToA));
    auto disAB = ToFlowImage(dis.aToB), disBA = ToFlowImage(dis.bToA);
    out->disPullPsnr = 0.5 * (PullPsnr(a, b, disAB.get()) + PullPsnr(b, a, disBA.get()));
    return true;
}

} // namespace quelmor::bench
#endif
