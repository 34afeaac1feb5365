// The two flow dissolves: shared mode handling, the inverse-warp form and the 8-bit form with the
// kernel warp, marks and pyramid mixes.
#include "engine/FlowDissolve.h"

#include "engine/EnergyBlend.h"
#include "engine/Mix.h"
#include "flow/Pyramids.h"
#include "image/Error.h"
#include "image/Parallel.h"
#include "warp/Filters.h"
#include "warp/FlowGuidedZoom.h"
#include "warp/Warp.h"
#include "warp/Zoom.h"

#include <algorithm>
#include <cstdio>

namespace {

// Near the ends of the interval a copy of the nearer frame is all there is to see.
constexpr float kCopyBelow = 0.002f;
constexpr float kCopyAbove = 0.998f;

void ZeroBorder(DQImage* flow) {
    if (!flow || flow->width < 1 || flow->height < 1) return;
    const int w = flow->width, h = flow->height, c = flow->channels;
    for (int y = 0; y < h; ++y) {
        float* row = flow->Row<float>(y);
        if (y == 0 || y == h - 1) {
            std::fill(row, row + w * c, 0.0f);
        } else {
            std::fill(row, row + c, 0.0f);
            std::fill(row + (w - 1) * c, row + w * c, 0.0f);
        }
    }
}

DQImagePtr Like(const DQImage* image) {
    DQImagePtr out =
        DQMakeImage(image->width, image->height, image->channels, image->dataType, image->bottomUp);
    out->whitePoint = image->whitePoint;
    return out;
}

DQImagePtr Copy(const DQImage* image) {
    DQImagePtr out = Like(image);
    out->CopyWhole(image);
    return out;
}

void CheckFrames(const DQImage* dest, const DQImage* a, const DQImage* b) {
    if (!dest || !a || !b) DQThrow(kDQErrBadArgument);
    for (const DQImage* other : {a, b})
        if (other->width != dest->width || other->height != dest->height ||
            other->channels != dest->channels || other->dataType != dest->dataType)
            DQThrow(kDQErrBadArgument);
}

void CheckFlow(const DQImage* flow) {
    if (flow && (flow->channels != 2 || flow->dataType != DQ_FLOAT)) DQThrow(kDQErrBadArgument);
}

// Inverse warp of `source` along `flow` by `scale` into a new image; a copy without a flow.
DQImagePtr WarpedInverse(DQImage* source, DQImage* flow, float scale) {
    DQImagePtr out = Like(source);
    if (!flow) {
        out->CopyWhole(source);
    } else if (!DQWarpInverse(out.get(), source, flow, 1, nullptr, 1, scale)) {
        DQThrow(kDQErrBadArgument);
    }
    return out;
}

// The kernel warp of `source` along `flow` by `scale`, with its landing marks when asked.
DQImagePtr WarpedByKernel(const DQImage* source, const DQImage* flow, float scale,
                          DQImagePtr* marks = nullptr) {
    DQImagePtr out = Like(source);
    if (marks) *marks = DQMakeImage(source->width, source->height, 1, DQ_FLOAT);
    if (!flow) {
        out->CopyWhole(source);
        if (marks) (*marks)->FillColour(1.0f, 0.0f, 0.0f, 0.0f);
        return out;
    }
    const DQZoomFilter* filter = DQFindZoomFilter("lanczos");
    DQFlowGuidedZoom(out.get(), source, flow, scale, *filter, marks ? marks->get() : nullptr);
    return out;
}

// The share of a at each pixel: t mA / (t mA + (1 - t) mB), t where neither frame landed.
float ShareOfA(float t, float markA, float markB) {
    const float ka = t * markA, kb = (1.0f - t) * markB;
    return ka + kb > 1e-6f ? ka / (ka + kb) : t;
}

// dest = wA s + wB (1 - s) per pixel, s from the marks.
void MixByMarks(DQImage* dest, const DQImage* wA, const DQImage* wB, const DQImage* marksA,
                const DQImage* marksB, float t) {
    const int channels = dest->channels;
    ZUMPForRows(dest->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const uint8_t* pa = wA->Row<uint8_t>(y);
            const uint8_t* pb = wB->Row<uint8_t>(y);
            const float* ma = marksA->Row<float>(y);
            const float* mb = marksB->Row<float>(y);
            uint8_t* out = dest->Row<uint8_t>(y);
            for (int x = 0; x < dest->width; ++x) {
                const float s = ShareOfA(t, ma[x], mb[x]);
                for (int c = 0; c < channels; ++c) {
                    const int i = x * channels + c;
                    const float v = float(pb[i]) + (float(pa[i]) - float(pb[i])) * s;
                    out[i] = uint8_t(std::clamp(v + 0.5f, 0.0f, 255.0f));
                }
            }
        }
    });
}

// Laplacian pyramids of the two frames mixed channel by channel, by `mix`(first, second, c).
template <class Mix>
void MixBands(DQImage* dest, DQImage* a, DQImage* b, Mix&& mix) {
    LaplacePyramid first(a->width, a->height), second(a->width, a->height);
    for (int c = 0; c < dest->channels; ++c) {
        first.Build(a, c);
        second.Build(b, c);
        mix(first, second, c);
    }
}

// The modes that both forms run alike but for `warp`(source, flow, scale), which moves a frame
// along a flow: after the flows' borders are zeroed, and with nearest wherever t lies so close to
// an end that a copy is all there is to see. False for a mode that a form runs on its own.
template <class Warp>
bool SharedMode(DQImage* dest, DQImage* a, DQImage* flowA, DQImage* b, DQImage* flowB, int& mode,
                float t, Warp&& warp) {
    if (t < kCopyBelow || t > kCopyAbove) mode = kDQDissolveNearest;
    ZeroBorder(flowA);
    ZeroBorder(flowB);
    const float u = 1.0f - t;
    switch (mode) {
    case kDQDissolveNearest:
        dest->CopyWhole(t < 0.5f ? b : a);
        return true;
    case kDQDissolvePlain:
        Dissolve(dest, a, b, u);
        return true;
    case kDQDissolveWarpNearer:
        if (t < 0.5f && flowA)
            dest->CopyWhole(warp(b, flowA, t).get());
        else if (t >= 0.5f && flowB)
            dest->CopyWhole(warp(a, flowB, u).get());
        return true;
    case kDQDissolveWarpBoth: {
        const DQImagePtr wA = warp(a, flowB, u);
        const DQImagePtr wB = warp(b, flowA, t);
        Dissolve(dest, wA.get(), wB.get(), u);
        return true;
    }
    default:
        return false;
    }
}

} // namespace

void DQFlowDissolveInv(DQImage* dest, DQImage* a, DQImage* flowA, DQImage* b, DQImage* flowB,
                       int mode, float t) {
    CheckFrames(dest, a, b);
    CheckFlow(flowA);
    CheckFlow(flowB);
    if (!flowA && !flowB && mode != 0 && mode != 2 && mode != 6) {
        std::fprintf(stderr, "DQFlowDissolveInv what?\n");
        return;
    }
    if (SharedMode(dest, a, flowA, b, flowB, mode, t, WarpedInverse)) return;
    const float u = 1.0f - t;
    switch (mode) {
    case kDQDissolveMode5:
        EnergyBlendInverse(dest, a, flowA, b, flowB, nullptr, nullptr, t);
        return;
    case kDQDissolveMode6: {
        // Each frame sharpened where the two differ, a as at u and b as at t.
        DQImagePtr ca = Copy(a), cb = Copy(b);
        SharpenWarpedFrame(ca.get(), b, u);
        SharpenWarpedFrame(cb.get(), a, t);
        Dissolve(dest, ca.get(), cb.get(), u);
        return;
    }
    default: // mode 4 and unknown modes leave dest
        return;
    }
}

void DQFlowDissolve(DQImage* dest, DQImage* a, DQImage* flowA, DQImage* b, DQImage* flowB, int mode,
                    float t) {
    CheckFrames(dest, a, b);
    if (a->dataType != DQ_UCHAR) {
        std::fprintf(stderr, "DQFlowDissolve only supports unsigned char\n");
        return;
    }
    CheckFlow(flowA);
    CheckFlow(flowB);
    if (!flowA && !flowB && mode != 0) {
        std::fprintf(stderr, "DQFlowDissolve what?\n");
        return;
    }
    const auto warp = [](const DQImage* source, const DQImage* flow, float scale) {
        return WarpedByKernel(source, flow, scale);
    };
    if (SharedMode(dest, a, flowA, b, flowB, mode, t, warp)) return;
    const float u = 1.0f - t;
    switch (mode) {
    case kDQDissolveMode4: {
        DQImagePtr marksA, marksB;
        const DQImagePtr wA = WarpedByKernel(a, flowB, u, &marksA);
        const DQImagePtr wB = WarpedByKernel(b, flowA, t, &marksB);
        BlurGauss(marksA.get(), 0, 4.0f);
        BlurGauss(marksB.get(), 0, 4.0f);
        MixByMarks(dest, wA.get(), wB.get(), marksA.get(), marksB.get(), t);
        return;
    }
    case kDQDissolveMode5: {
        DQImagePtr marksA, marksB;
        const DQImagePtr wA = WarpedByKernel(a, flowB, u, &marksA);
        const DQImagePtr wB = WarpedByKernel(b, flowA, t, &marksB);
        DQImagePtr weight = DQMakeImage(a->width, a->height, 1, DQ_UCHAR);
        for (int y = 0; y < a->height; ++y) {
            const float* ma = marksA->Row<float>(y);
            const float* mb = marksB->Row<float>(y);
            uint8_t* w = weight->Row<uint8_t>(y);
            for (int x = 0; x < a->width; ++x)
                w[x] = uint8_t(ShareOfA(t, ma[x], mb[x]) * 255.0f + 0.5f);
        }
        GaussPyramid weights(a->width, a->height);
        weights.Build(weight.get(), 0);
        MixBands(dest, wA.get(), wB.get(),
                 [&](LaplacePyramid& first, LaplacePyramid& second, int c) {
                     BlendPyramids(dest, c, first, second, weights, 255.0f);
                 });
        return;
    }
    case kDQDissolveMode6: {
        GaussStepOneDPyramid step(std::min(a->width, a->height));
        MixBands(dest, a, b, [&](LaplacePyramid& first, LaplacePyramid& second, int c) {
            BlendPyramids(dest, c, first, second, step, t);
        });
        return;
    }
    default:
        return;
    }
}
