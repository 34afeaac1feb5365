// The input side of the flow object: conversion of any supported image to one float channel on
// the scale 0 to 255, the reduction to level 0, edge enhancement, the upper levels, the band-pass
// and the binary matte pyramids.
#include "flow/Flow.h"
#include "flow/FlowFilter.h"
#include "flow/FlowSolver.h"
#include "flow/FlowTiming.h"
#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "warp/Filters.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

namespace {

// Scale of a value of type T onto 0..255.
template <class T>
inline float ToByteScale(float v) {
    if constexpr (std::is_same_v<T, uint8_t>)
        return v;
    else if constexpr (std::is_same_v<T, uint16_t>)
        return v / 257.0f;
    else
        return v * 255.0f;
}

// One pixel of the conversion table. The video-range forms of the three-channel column are kept
// as they are used: the 8-bit form divides by 257 and the 16-bit and float forms have no offset.
template <class T, int C>
inline float ConvertPixel(const T* p, bool videoLevels) {
    constexpr float kVideo = 255.0f / 219.0f;
    if (!videoLevels) {
        const float l = C == 1
                            ? static_cast<float>(p[0])
                            : 0.3f * static_cast<float>(p[0]) + 0.59f * static_cast<float>(p[1]) +
                                  0.11f * static_cast<float>(p[2]);
        return ToByteScale<T>(l);
    }
    if constexpr (C == 1) {
        return ToByteScale<T>(static_cast<float>(p[0]));
    } else if constexpr (C == 3) {
        const float c0 = static_cast<float>(p[0]);
        if constexpr (std::is_same_v<T, uint8_t>)
            return (c0 / 257.0f - 16.0f) * kVideo;
        else
            return ToByteScale<T>(c0) * kVideo;
    } else {
        return (ToByteScale<T>(static_cast<float>(p[1])) - 16.0f) * kVideo;
    }
}

template <class T, int C>
void ConvertRows(DQImage* target, const DQImage* source, bool videoLevels) {
    const int w = std::min(target->width, source->width);
    const int h = std::min(target->height, source->height);
    ZUMPForRows(h, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const T* in = source->Row<T>(y);
            float* out = target->Row<float>(y);
            for (int x = 0; x < w; ++x)
                out[x] = ConvertPixel<T, C>(in + C * x, videoLevels);
        }
    });
}

// Matte levels hold 0 or 1: 1 only where the value is fully inside.
void ThresholdMatte(DQImage* image, float scale) {
    const int w = image->width;
    ZUMPForRows(image->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* row = image->Row<float>(y);
            for (int x = 0; x < w; ++x)
                row[x] = static_cast<double>(row[x] * scale) < 0.9999 ? 0.0f : 1.0f;
        }
    });
}

void Subtract(DQImage* image, const DQImage* mean) {
    const int w = image->width * image->channels;
    ZUMPForRows(image->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* __restrict row = image->Row<float>(y);
            const float* __restrict m = mean->Row<float>(y);
            for (int x = 0; x < w; ++x)
                row[x] -= m[x];
        }
    });
}

constexpr float kMatteScale = 0.003921569f;

} // namespace

void DQFlowConvertInput(DQImage* target, const DQImage* source, bool videoLevels) {
    if (source->dataType == DQ_FLOAT && source->whitePoint != 1.0f) {
        fputs(" floating image input to DQOpticalFlowUChar is not in correct range\n", stderr);
        return;
    }
    // Other images leave the target as it was.
    if (!DQDispatchable(source->dataType, source->channels)) return;
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class T, int C>() {
        if constexpr (C != 2) ConvertRows<T, C>(target, source, videoLevels);
    });
}

void DQOpticalFlowUChar::ConvertInput(DQImage* target, const DQImage* source) const {
    DQFlowConvertInput(target, source, videoLevels);
}

bool DQOpticalFlowUChar::CheckReducedSize(const DQImage* image) const {
    int w = image->width, h = image->height;
    for (int i = 0; i < reduction; ++i) {
        w /= 2;
        h /= 2;
    }
    if (w == width && h == height) return true;
    fputs("incorrect with and height\n", stderr);
    return false;
}

void DQOpticalFlowUChar::ReduceInput(DQImage* image, DQImage** levels, bool threshold) {
    if (reduction == 0) {
        ConvertInput(levels[0], image);
        if (threshold) ThresholdMatte(levels[0], kMatteScale);
        return;
    }
    // The image in hand lives in one of the two reduction buffers, the next half size in the
    // other; the last resize writes level 0.
    DQFlowBuffer* buffers[2] = {&scratch->reduceFirst, &scratch->reduceSecond};
    int w = image->width, h = image->height;
    float* data = buffers[0]->Reserve(static_cast<size_t>(w) * static_cast<size_t>(h));
    DQImage current(data, w, h, 1, DQ_FLOAT, 0);
    ConvertInput(&current, image);
    if (threshold) ThresholdMatte(&current, kMatteScale);
    for (int step = 0; step < reduction; ++step) {
        DQFlowBlur(&current, &current, DQFlowFilterKind::Binomial, scratch->filterPlane);
        if (step + 1 == reduction) {
            ResizeBilinear(levels[0], &current);
            if (threshold) ThresholdMatte(levels[0], 1.0f);
            break;
        }
        w /= 2;
        h /= 2;
        data = buffers[(step + 1) % 2]->Reserve(static_cast<size_t>(w) * static_cast<size_t>(h));
        DQImage next(data, w, h, 1, DQ_FLOAT, 0);
        ResizeBilinear(&next, &current);
        if (threshold) ThresholdMatte(&next, 1.0f);
        current.Rebind(data, w, h, w * static_cast<int>(sizeof(float)), 1, DQ_FLOAT, 0);
    }
}

void DQOpticalFlowUChar::BuildUpperLevels(DQImage** levels, bool threshold) {
    for (int level = 1; level < numLevels; ++level) {
        DQImage* smoothed = gradXLevels[level - 1];
        DQFlowBlur(smoothed, levels[level - 1], DQFlowFilterKind::Binomial, scratch->filterPlane);
        ResizeBilinear(levels[level], smoothed);
        if (threshold) ThresholdMatte(levels[level], 1.0f);
    }
}

void DQOpticalFlowUChar::BuildImagePyramid(DQImage* image, DQImage** levels, bool enhanceEdges,
                                           DQImage* matte) {
    DQFlowStepClock clock(kDQFlowStepPyramids);
    CheckReducedSize(image);
    ReduceInput(image, levels, false);
    if (enhanceEdges) {
        DQImage* base = levels[0];
        DQImage* gx = gradXLevels[0];
        DQImage* gy = gradYLevels[0];
        DQFlowBlur(base, base, DQFlowFilterKind::Gauss2, scratch->filterPlane);
        DQFlowComputeGradients(base, gx, gy);
        if (matte) DQFlowMaskGradients(gx, gy, matte);
        const int w = base->width;
        ZUMPForRows(base->height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y) {
                float* row = base->Row<float>(y);
                const float* dx = gx->Row<float>(y);
                const float* dy = gy->Row<float>(y);
                for (int x = 0; x < w; ++x) {
                    const float m =
                        std::min(std::sqrt(dx[x] * dx[x] + dy[x] * dy[x]) / 20.0f, 1.0f);
                    row[x] = static_cast<float>((static_cast<double>(row[x]) + 255.0 * m) / 2.0);
                }
            }
        });
    }
    BuildUpperLevels(levels, false);
}

void DQOpticalFlowUChar::BuildMattePyramid(DQImage* matte, DQImage** levels) {
    CheckReducedSize(matte);
    ReduceInput(matte, levels, true);
    BuildUpperLevels(levels, true);
}

void DQOpticalFlowUChar::BandPassImage(int which) {
    DQFlowStepClock clock(kDQFlowStepPyramids);
    DQImage** levels = which ? imageBLevels : imageALevels;
    for (int level = 0; level < numLevels; ++level) {
        DQImage* mean = gradXLevels[level];
        DQFlowBlur(mean, levels[level], DQFlowFilterKind::Binomial, scratch->filterPlane);
        Subtract(levels[level], mean);
    }
}

void DQOpticalFlowUChar::BandPassImages() {
    BandPassImage(1);
    BandPassImage(0);
}
