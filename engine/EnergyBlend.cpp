// Difference mask, mix through a mask and the sharpening of a warped frame.

#include "engine/EnergyBlend.h"

#include "engine/Mix.h"
#include "engine/SmartBlend.h"
#include "warp/Filters.h"
#include "warp/Warp.h"

#include <cmath>

namespace {

template <class T, int C>
void MarkDifferences(DQImage* mask, const DQImage* a, const DQImage* b, int y, float threshold) {
    const T* pa = a->Row<T>(y);
    const T* pb = b->Row<T>(y);
    uint8_t* out = mask->Row<uint8_t>(y);
    for (int x = 0; x < a->width; ++x, pa += C, pb += C) {
        double sum = 0.0;
        for (int c = 0; c < 3; ++c)
            sum += std::fabs(double(pa[c]) - double(pb[c]));
        if (float(sum) >= threshold) out[x] = 255;
    }
}

bool Fits(const DQImage* mask, const DQImage* a, const DQImage* b) {
    return mask && a && b && mask->channels == 1 && mask->dataType == DQ_UCHAR &&
           a->channels >= 3 && a->width == b->width && a->height == b->height &&
           a->channels == b->channels && a->dataType == b->dataType && mask->width == a->width &&
           mask->height == a->height;
}

} // namespace

int DifferenceMask(DQImage* mask, const DQImage* a, const DQImage* b, int mode, int lines,
                   float level) {
    if (mode != 1 || !Fits(mask, a, b)) return kDQErrBadArgument;
    mask->Clear();
    const float threshold = float(a->whitePoint * level * level * level * 3.0);
    // Rows walked: all, or every second one from the bottom (lines 3 one row higher).
    const int bottom = lines == 3 ? a->lastRow - 1 : a->lastRow;
    const int stride = lines == 2 || lines == 3 ? 2 : 1;
    const int rows = bottom < 0 ? 0 : bottom / stride + 1;
    DQDispatchTypeChannels(a->dataType, a->channels, [&]<class T, int C>() {
        if constexpr (C >= 3) {
            ZUMPForRows(rows, [&](int, int first, int last) {
                for (int i = first; i <= last; ++i)
                    MarkDifferences<T, C>(mask, a, b, bottom - i * stride, threshold);
            });
        }
    });
    return 0;
}

void MixThroughMask(DQImage* dest, const DQImage* other, const DQImage* mask, int one, int zero) {
    if (!dest || !other || !mask || dest->width != other->width || dest->height != other->height ||
        dest->channels != other->channels || dest->dataType != other->dataType ||
        mask->width != dest->width || mask->height != dest->height || mask->dataType != DQ_UCHAR)
        DQThrow(kDQErrBadArgument);
    const float low = float(zero);
    const float span = float(one - zero) / 255.0f;
    DQDispatchTypeChannels(dest->dataType, dest->channels, [&]<class T, int C>() {
        ZUMPForRows(dest->height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y) {
                T* d = dest->Row<T>(y);
                const T* o = other->Row<T>(y);
                const uint8_t* m = mask->Row<uint8_t>(y);
                for (int x = 0; x < dest->width; ++x, d += C, o += C) {
                    const float w = low + span * float(m[x]);
                    for (int c = 0; c < C; ++c) {
                        const float v = float(d[c]) * w + float(o[c]) * (1.0f - w);
                        if constexpr (std::is_same_v<T, float>)
                            d[c] = v;
                        else
                            d[c] = T(v + 0.5f);
                    }
                }
            }
        });
    });
}

void SharpenWarpedFrame(DQImage* warped, const DQImage* source, float amount) {
    DQImagePtr mask = DQMakeImage(warped->width, warped->height, 1, DQ_UCHAR);
    if (int code = DifferenceMask(mask.get(), warped, source, 1, 1, 0.4f)) DQThrow(code);
    DQImagePtr blurred =
        DQMakeImage(warped->width, warped->height, warped->channels, warped->dataType);
    blurred->CopyWhole(warped);
    BlurGauss(blurred.get(), 0, 3.0f);
    const double u = amount;
    const double e = 1.0 - (std::fabs(0.5 - u) + std::fabs(0.5 - u));
    // blurred = w + (blurred - w)(-0.5 e) = w + 0.5 e (w - blurred): an unsharp mask. The warped
    // frame itself is the plain side: it is not written before the mix below.
    if (DQBlend(blurred.get(), warped, 1, float(-0.5 * e)) == 0) DQThrow(kDQErrBadArgument);
    mask->InvertBytes();
    MixThroughMask(warped, blurred.get(), mask.get(), 1, 0);
}

namespace {

// `scratch` when given, else a new image like `like` held by `owned`.
DQImage* WarpTarget(DQImage* scratch, const DQImage* like, DQImagePtr& owned) {
    if (scratch) return scratch;
    owned = DQMakeImage(like->width, like->height, like->channels, like->dataType, like->bottomUp);
    owned->whitePoint = like->whitePoint;
    return owned.get();
}

// Pulls `source` along `flow` by `scale` into `warped` (a copy without a flow) and sharpens what
// moved.
void WarpAndSharpen(DQImage* warped, DQImage* source, DQImage* flow, float scale) {
    if (!flow)
        warped->CopyFrom(0, 0, source, 0, 0, source->width, source->height);
    else if (DQWarpInverse(warped, source, flow, 1, nullptr, 1, scale) == 0)
        DQThrow(kDQErrBadArgument);
    SharpenWarpedFrame(warped, source, scale);
}

// The same with the coverage of the warp in `coverage`: a frame that is not moved covers all.
void WarpAndSharpenCovered(DQImage* warped, DQImage* coverage, DQImage* source, DQImage* flow,
                           float scale) {
    if (!flow) {
        warped->CopyFrom(0, 0, source, 0, 0, source->width, source->height);
        const uint8_t full = 255;
        coverage->FillPixel(&full);
    } else if (DQWarpInverse(warped, source, flow, 0, coverage, 1, scale) == 0) {
        DQThrow(kDQErrBadArgument);
    }
    SharpenWarpedFrame(warped, source, scale);
}

// `mask` when given, else a new coverage mask of the frame's size held by `owned`.
DQImage* CoverageTarget(DQImage* mask, const DQImage* like, DQImagePtr& owned) {
    if (mask) return mask;
    owned = DQMakeImage(like->width, like->height, 1, DQ_UCHAR);
    return owned.get();
}

} // namespace

void EnergyBlendInverse(DQImage* dest, DQImage* a, DQImage* flowAtoB, DQImage* b, DQImage* flowBtoA,
                        DQImage* scratchA, DQImage* scratchB, float weightA) {
    const float u = 1.0f - weightA;
    DQImagePtr ownedA, ownedB;
    DQImage* warpedA = WarpTarget(scratchA, a, ownedA);
    DQImage* warpedB = WarpTarget(scratchB, b, ownedB);
    WarpAndSharpen(warpedA, a, flowBtoA, u);
    WarpAndSharpen(warpedB, b, flowAtoB, weightA);
    Dissolve(dest, warpedA, warpedB, u);
}

void EnergyBlendInverseMasked(DQImage* dest, DQImage* a, DQImage* flowAtoB, DQImage* b,
                              DQImage* flowBtoA, DQImage* scratchA, DQImage* scratchB,
                              DQImage* maskA, DQImage* maskB, float weightA) {
    const float u = 1.0f - weightA;
    DQImagePtr ownedA, ownedB, ownedMaskA, ownedMaskB;
    DQImage* warpedA = WarpTarget(scratchA, a, ownedA);
    DQImage* warpedB = WarpTarget(scratchB, b, ownedB);
    DQImage* coverageA = CoverageTarget(maskA, a, ownedMaskA);
    DQImage* coverageB = CoverageTarget(maskB, b, ownedMaskB);
    WarpAndSharpenCovered(warpedA, coverageA, a, flowBtoA, u);
    WarpAndSharpenCovered(warpedB, coverageB, b, flowAtoB, weightA);
    SmartBlend(dest, warpedA, warpedB, coverageA, coverageB, u);
    // What neither frame covered takes the colour of the nearest pixel that one of them did.
    coverageA->MaxInto(coverageB);
    coverageA->InvertBytes();
    DQVoronoiFill(dest, coverageA);
}
