#include "flow/HoleFill.h"

#include "flow/HoleFillNear.h"
#include "flow/PyramidSteps.h"
#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "image/Progress.h"
#include "warp/Filters.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <type_traits>

namespace {

// Size of the level below one of (w, h): halved, never under 2 on either side.
int NextSide(int side) {
    return std::max(2, side / 2);
}

// Weight 1 where the holes image is zero, else 0. A not-a-number holes value compares unequal to
// zero, so it marks a hole.
template <class H>
void LoadWeightRows(DQImage& weights, const DQImage& holes) {
    const int w = weights.width;
    ZUMPForRows(weights.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const H* __restrict h = holes.Row<H>(y);
            float* __restrict wt = weights.Row<float>(y);
            for (int x = 0; x < w; ++x)
                wt[x] = h[x] == H(0) ? 1.0f : 0.0f;
        }
    });
}

// Values of unknown pixels (weight 0) set to 0.
void ClearUnknownValues(DQImage& values, const DQImage& weights) {
    const int w = values.width;
    ZUMPForRows(values.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* __restrict v = values.Row<float>(y);
            const float* __restrict wt = weights.Row<float>(y);
            for (int x = 0; x < w; ++x)
                v[x] = wt[x] != 0.0f ? v[x] : 0.0f;
        }
    });
}

// Whether any pixel of a one-channel holes image is non-zero (or not a number).
template <class H>
bool AnyHoleRows(const DQImage& holes) {
    for (int y = 0; y < holes.height; ++y) {
        const H* h = holes.Row<H>(y);
        for (int x = 0; x < holes.width; ++x)
            if (!(h[x] == H(0))) return true;
    }
    return false;
}

// One float plane into channel `channel` of an image: integers take value + 0.5, truncated, and
// limited to the element range; floats are stored as they are.
template <class T>
void StoreChannelRows(DQImage& image, int channel, const DQImage& plane) {
    const int w = image.width;
    const int stride = image.channels;
    ZUMPForRows(image.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            const float* __restrict in = plane.Row<float>(y);
            T* __restrict out = image.Row<T>(y) + channel;
            for (int x = 0; x < w; ++x) {
                if constexpr (std::is_floating_point_v<T>) {
                    out[x * stride] = in[x];
                } else {
                    constexpr float kTop = static_cast<float>(std::numeric_limits<T>::max());
                    // Limited first from below, so that a not-a-number value lands on 0.
                    float v = in[x] + 0.5f;
                    v = v > 0.0f ? v : 0.0f;
                    v = v < kTop ? v : kTop;
                    out[x * stride] = static_cast<T>(v);
                }
            }
        }
    });
}

bool HolesImageFits(const DQImage& holes, int width, int height) {
    return holes.data && holes.width == width && holes.height == height && holes.channels == 1 &&
           DQDispatchableType(holes.dataType);
}

} // namespace

DQSingleChannelFill::DQSingleChannelFill(int throwOnError, int width, int height)
    : width(width), height(height), maxX(static_cast<float>(width - 1)),
      maxY(static_cast<float>(height - 1)) {
    Allocate(throwOnError);
}

DQSingleChannelFill::DQSingleChannelFill(int width, int height)
    : DQSingleChannelFill(1, width, height) {}

DQSingleChannelFill::~DQSingleChannelFill() = default;

void DQSingleChannelFill::Allocate(int throwOnError) {
    if (width < 1 || height < 1) {
        error = kDQErrBadArgument;
        if (throwOnError == 1) DQThrow(error);
        return;
    }
    // Halve until both sides are 2; the level where that happens is where the fill begins, and one
    // more level of the same 2 x 2 size lies below it.
    int w = width;
    int h = height;
    int k = 0;
    do {
        w = NextSide(w);
        h = NextSide(h);
        ++k;
    } while (w != 2 || h != 2);
    topLevel = k;
    numLevels = k + 1;

    std::vector<DQImagePtr>* const pyramids[] = {&fillLevels, &valueLevels, &weightLevels,
                                                 &scratchLevels};
    for (auto* levels : pyramids)
        levels->clear();
    // Temporaries are made without throwing and their code tested; on failure everything made
    // so far is released.
    int code = 0;
    w = width;
    h = height;
    try {
        for (int level = 0; level <= numLevels && code == 0; ++level) {
            for (auto* levels : pyramids) {
                DQImagePtr image(new DQImage(0, w, h, 1, DQ_FLOAT, 0));
                if (image->errorCode != 0 || !image->data) {
                    code = image->errorCode != 0 ? image->errorCode : int(kDQErrMemory);
                    break;
                }
                levels->push_back(std::move(image));
            }
            w = NextSide(w);
            h = NextSide(h);
        }
    } catch (DQErr thrown) {
        code = thrown != 0 ? int(thrown) : int(kDQErrMemory);
    } catch (const std::bad_alloc&) {
        code = kDQErrMemory;
    }
    if (code != 0) {
        for (auto* made : pyramids)
            made->clear();
        error = code;
        if (throwOnError == 1) DQThrow(error);
    }
}

void DQSingleChannelFill::LoadChannel(DQImage* image, int channel, DQImage* holes) {
    LoadHoles(holes);
    LoadValues(image, channel);
}

void DQSingleChannelFill::LoadHoles(DQImage* holes) {
    if (error != 0 || fillLevels.empty()) DQThrow(error != 0 ? error : int(kDQErrBadArgument));
    if (!holes || !HolesImageFits(*holes, width, height)) DQThrow(kDQErrBadArgument);
    DQDispatchType(holes->dataType,
                   [&]<class H>() { LoadWeightRows<H>(*weightLevels[0], *holes); });
    for (int k = 1; k <= numLevels; ++k)
        ReduceStep(weightLevels[k].get(), weightLevels[k - 1].get(), scratchLevels[k - 1].get());
    holesLoaded = true;
}

void DQSingleChannelFill::LoadValues(DQImage* image, int channel) {
    if (error != 0 || fillLevels.empty()) DQThrow(error != 0 ? error : int(kDQErrBadArgument));
    if (!holesLoaded || !image || !image->data || image->width != width ||
        image->height != height || channel < 0 || channel >= image->channels ||
        !DQDispatchableType(image->dataType))
        DQThrow(kDQErrBadArgument);
    valueLevels[0]->CopyChannelPlain(0, image, channel);
    ClearUnknownValues(*valueLevels[0], *weightLevels[0]);
    // The fill planes serve as scratch here; Fill overwrites them.
    for (int k = 1; k <= numLevels; ++k)
        ReduceStep(valueLevels[k].get(), valueLevels[k - 1].get(), fillLevels[k - 1].get());
}

void DQSingleChannelFill::ApplyFillData(int level) {
    DQImage& fill = *fillLevels[level];
    const DQImage& values = *valueLevels[level];
    const DQImage& weights = *weightLevels[level];
    const int w = fill.width;
    ZUMPForRows(fill.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            float* __restrict out = fill.Row<float>(y);
            const float* __restrict v = values.Row<float>(y);
            const float* __restrict wt = weights.Row<float>(y);
            // A select rather than a branch, so the loop vectorises; the quotient of a zero
            // weight is computed and dropped.
            for (int x = 0; x < w; ++x) {
                const float q = v[x] / wt[x];
                out[x] = wt[x] == 0.0f ? out[x] : q;
            }
        }
    });
}

void DQSingleChannelFill::Fill(ZUIdleAndProgressClass* progress, int mode) {
    if (mode != 0) DQThrow(kDQErrBadArgument);
    if (error != 0 || fillLevels.empty()) DQThrow(error != 0 ? error : int(kDQErrBadArgument));
    iterations = 1;

    double total = 0.0;
    for (int k = topLevel; k >= 0; --k)
        total += static_cast<double>(fillLevels[k]->width) * fillLevels[k]->height;

    fillLevels[topLevel]->Clear();
    double done = 0.0;
    for (int k = topLevel; k >= 0; --k) {
        DQImage* fill = fillLevels[k].get();
        ApplyFillData(k);
        for (int i = 0; i < iterations; ++i) {
            BlurGauss(fill, 0, 5.0f);
            if (progress) progress->RepeatProgress();
        }
        if (k == 0)
            ApplyFillData(0);
        else
            ExpandLevel(fillLevels[k - 1].get(), fill);
        done += static_cast<double>(fill->width) * fill->height;
        if (progress) progress->ReportProgress(static_cast<float>(done / total));
    }
}

namespace {

// The checks common to both forms. False when there is nothing to do: sizes differ, the image is
// empty, or nothing is a hole (every pixel would be replaced by its own value).
bool FillIsNeeded(DQImage* image, DQImage* holes, ZUIdleAndProgressClass* progress) {
    if (!image || !holes) return false;
    if (image->width != holes->width || image->height != holes->height) return false;
    if (image->width < 1 || image->height < 1 || !image->data) return false;
    if (!DQDispatchableType(image->dataType) || image->channels < 1 ||
        !HolesImageFits(*holes, image->width, image->height))
        DQThrow(kDQErrBadArgument);

    bool anyHole = false;
    DQDispatchType(holes->dataType, [&]<class H>() { anyHole = AnyHoleRows<H>(*holes); });
    if (!anyHole) {
        if (progress) progress->ReportProgress(1.0f);
        return false;
    }
    return true;
}

} // namespace

void FillHoles(DQImage* image, DQImage* holes, ZUIdleAndProgressClass* progress) {
    if (!FillIsNeeded(image, holes, progress)) return;
    FillHolesNearHoles(image, holes, progress);
}

void FillHolesWhereNeeded(DQImage* image, DQImage* holes, const DQImage* needed,
                          ZUIdleAndProgressClass* progress) {
    if (!needed || !image || !HolesImageFits(*needed, image->width, image->height))
        DQThrow(kDQErrBadArgument);
    if (!FillIsNeeded(image, holes, progress)) return;
    FillHolesNearHoles(image, holes, progress, needed);
}

void FillHolesFullFrame(DQImage* image, DQImage* holes, ZUIdleAndProgressClass* progress) {
    if (!FillIsNeeded(image, holes, progress)) return;

    DQSingleChannelFill fill(1, image->width, image->height);
    // Channels are filled into a copy, so an interruption or failure part way leaves the image
    // as it was.
    DQImagePtr result =
        DQMakeImage(image->width, image->height, image->channels, image->dataType, 0);
    const int channels = image->channels;
    // The holes, and so the weights, are the same for every channel.
    fill.LoadHoles(holes);
    ZUIdleAndProgressClass channelRange(progress);
    for (int c = 0; c < channels; ++c) {
        channelRange.SetSubRange(static_cast<float>(c) / channels,
                                 static_cast<float>(c + 1) / channels);
        ZUIdleAndProgressClass step(&channelRange);
        fill.LoadValues(image, c);
        fill.Fill(progress ? &step : nullptr, 0);
        DQDispatchType(image->dataType,
                       [&]<class T>() { StoreChannelRows<T>(*result, c, *fill.fillLevels[0]); });
    }
    image->CopyWhole(result.get());
}
