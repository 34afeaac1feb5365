// The Laplacian, Gaussian and step pyramids and the band-by-band blend of two Laplacian pyramids.
// Every step down is ReduceStep and every step up ExpandLevel (flow/PyramidSteps.h).
#include "flow/Pyramids.h"

#include "flow/PyramidSteps.h"
#include "image/Dispatch.h"
#include "image/Error.h"
#include "warp/Filters.h"

#include <algorithm>
#include <cstdio>
#include <type_traits>

namespace {

constexpr int kSmallestKeptSide = 9;

void RefuseImage() {
    std::fprintf(stderr, "can't make laplacian pyramid\n");
}

bool IntegerImage(const DQImage* image) {
    return image && (image->dataType == DQ_UCHAR || image->dataType == DQ_USHORT) && image->data;
}

bool Fits(const DQImage* image, int channel, int width, int height) {
    return image && image->width == width && image->height == height && channel >= 0 &&
           channel < image->channels;
}

// A one-channel float level, made without throwing; its error code is thrown by the caller's
// rule once the partly made object is released.
DQImage* MakeLevel(int width, int height, int& error) {
    DQImage* level = nullptr;
    try {
        level = new DQImage(0, width, height, 1, DQ_FLOAT, 0);
    } catch (DQErr code) {
        error = code ? code : kDQErrMemory;
        return nullptr;
    }
    if (level->errorCode || !level->data) {
        error = level->errorCode ? level->errorCode : kDQErrMemory;
        delete level;
        return nullptr;
    }
    return level;
}

// Allocates levels of halving sizes (with `oneRow`, of halving widths and one row, counted on the
// width alone); on failure releases them and throws `failure` (or the level's own code when
// `failure` is 0).
template <size_t N>
int32_t MakeLevels(DQImage* (&levels)[N], int width, int height, int failure, bool oneRow = false) {
    if (width < 1 || height < 1) DQThrow(kDQErrBadArgument);
    const int count = PyramidLevelCount(width, oneRow ? width : height);
    int w = width, h = height;
    for (int k = 0; k < count; ++k) {
        int error = 0;
        levels[k] = MakeLevel(std::max(w, 1), std::max(h, 1), error);
        if (!levels[k]) {
            for (int i = 0; i < k; ++i) {
                delete levels[i];
                levels[i] = nullptr;
            }
            DQThrow(failure ? failure : error);
        }
        w /= 2;
        if (!oneRow) h /= 2;
    }
    return count;
}

template <size_t N>
void ReleaseLevels(DQImage* (&levels)[N]) {
    for (DQImage*& level : levels) {
        delete level;
        level = nullptr;
    }
}

// Channel `channel` of an integer image into a float level, unscaled.
void LoadChannel(DQImage* level, const DQImage* image, int channel) {
    DQDispatchType(image->dataType, [&]<class T>() {
        if constexpr (!std::is_floating_point_v<T>) {
            const int channels = image->channels;
            for (int y = 0; y < image->height; ++y) {
                const T* in = image->Row<T>(y) + channel;
                float* out = level->Row<float>(y);
                for (int x = 0; x < image->width; ++x)
                    out[x] = static_cast<float>(in[x * channels]);
            }
        }
    });
}

// Limits level 0 to the element range of `image` (the level keeps the limited values), adds 0.5,
// truncates and stores into the channel.
void StoreChannel(DQImage* level, DQImage* image, int channel) {
    DQDispatchType(image->dataType, [&]<class T>() {
        if constexpr (!std::is_floating_point_v<T>) {
            constexpr float top = std::is_same_v<T, uint8_t> ? 255.0f : 65535.0f;
            const int channels = image->channels;
            for (int y = 0; y < image->height; ++y) {
                float* in = level->Row<float>(y);
                T* out = image->Row<T>(y) + channel;
                for (int x = 0; x < image->width; ++x) {
                    const float v = std::min(std::max(in[x], 0.0f), top);
                    in[x] = v;
                    out[x * channels] = static_cast<T>(static_cast<int32_t>(v + 0.5f));
                }
            }
        }
    });
}

// level += other, or level -= other with `sign` -1, element by element.
void Accumulate(DQImage* level, const DQImage* other, float sign) {
    for (int y = 0; y < level->height; ++y) {
        float* out = level->Row<float>(y);
        const float* in = other->Row<float>(y);
        if (sign > 0.0f)
            for (int x = 0; x < level->width; ++x)
                out[x] += in[x];
        else
            for (int x = 0; x < level->width; ++x)
                out[x] -= in[x];
    }
}

// Levels 1 and up of a Gaussian pyramid from level 0: each level reduced into the next.
void ReduceLevels(DQImage* const* levels, int count) {
    for (int k = 1; k < count; ++k) {
        DQImagePtr scratch = DQMakeImage(levels[k - 1]->width, levels[k - 1]->height, 1, DQ_FLOAT);
        ReduceStep(levels[k], levels[k - 1], scratch.get());
    }
}

DQImagePtr Expanded(const DQImage* level, const DQImage* finer) {
    DQImagePtr out = DQMakeImage(finer->width, finer->height, 1, DQ_FLOAT);
    ExpandLevel(out.get(), level);
    return out;
}

} // namespace

int PyramidLevelCount(int width, int height) {
    int count = 1;
    for (int w = width / 2, h = height / 2; w > kSmallestKeptSide && h > kSmallestKeptSide;
         w /= 2, h /= 2)
        ++count;
    return count;
}

LaplacePyramid::LaplacePyramid(int w, int h) : width(w), height(h) {
    numLevels = MakeLevels(levels, w, h, kDQErrMemory);
}

LaplacePyramid::~LaplacePyramid() {
    ReleaseLevels(levels);
}

void LaplacePyramid::Build(DQImage* image, int channel) {
    if (!Fits(image, channel, width, height) || !IntegerImage(image)) return RefuseImage();
    LoadChannel(levels[0], image, channel);
    ReduceLevels(levels, numLevels);
    // Finest first, so that level k + 1 is still low-pass when it is expanded.
    for (int k = 0; k + 1 < numLevels; ++k)
        Accumulate(levels[k], Expanded(levels[k + 1], levels[k]).get(), -1.0f);
}

void LaplacePyramid::Collapse(DQImage* image, int channel) {
    if (!Fits(image, channel, width, height) || !IntegerImage(image)) return RefuseImage();
    for (int k = numLevels - 1; k >= 1; --k)
        Accumulate(levels[k - 1], Expanded(levels[k], levels[k - 1]).get(), 1.0f);
    StoreChannel(levels[0], image, channel);
}

GaussPyramid::GaussPyramid(int w, int h) : width(w), height(h) {
    numLevels = MakeLevels(levels, w, h, 0);
}

GaussPyramid::~GaussPyramid() {
    ReleaseLevels(levels);
}

void GaussPyramid::Build(DQImage* image, int channel) {
    if (!Fits(image, channel, width, height)) return RefuseImage();
    if (!IntegerImage(image)) return;
    LoadChannel(levels[0], image, channel);
    ReduceLevels(levels, numLevels);
}

GaussStepOneDPyramid::GaussStepOneDPyramid(int w) : width(w) {
    numLevels = MakeLevels(levels, w, 1, 0, true);
    for (int k = 0; k < numLevels; ++k) {
        DQImage* level = levels[k];
        const int n = level->width;
        float* row = level->Row<float>(0);
        for (int x = 0; x < n; ++x)
            row[x] = x < n / 2 ? 0.0f : 1.0f;
        BlurBox(level, 2, 5.0f);
        BlurGauss(level, 2, static_cast<float>(n) * 0.5f);
        const auto [low, high] = std::minmax_element(row, row + n);
        const float lowest = *low, range = *high - *low;
        if (range < 0.0001f) {
            // Too short a row to hold a curve: it keeps the plain step.
            std::fprintf(stderr, "what?\n");
            for (int x = 0; x < n; ++x)
                row[x] = x < n / 2 ? 0.0f : 1.0f;
            continue;
        }
        for (int x = 0; x < n; ++x)
            row[x] = (row[x] - lowest) / range;
    }
}

GaussStepOneDPyramid::~GaussStepOneDPyramid() {
    ReleaseLevels(levels);
}

float GaussStepOneDPyramid::StepValue(int level, float t) const {
    if (level < 0 || level >= numLevels) DQThrow(kDQErrBadArgument);
    const DQImage* row = levels[level];
    const float* p = row->Row<float>(0);
    const int m = row->width - 1;
    const float position = static_cast<float>(m) * t;
    if (!(position > 0.0f)) return p[0];
    const float i = static_cast<float>(static_cast<int>(position));
    if (i >= static_cast<float>(m)) return p[m];
    const int at = static_cast<int>(i);
    return p[at] + (p[at + 1] - p[at]) * (position - i);
}

namespace {

// The blend of two Laplacian pyramids from the coarsest band down: band k adds
// second + (first - second) a to the running sum, with a = weight(k, x, y), and the sum is
// expanded into the next finer band.
template <class Weight>
void BlendBands(DQImage* result, int channel, LaplacePyramid& first, LaplacePyramid& second,
                Weight&& weight) {
    LaplacePyramid sum(first.width, first.height);
    const int last = sum.numLevels - 1;
    sum.levels[last]->Clear();
    for (int k = last; k >= 0; --k) {
        DQImage* level = sum.levels[k];
        for (int y = 0; y < level->height; ++y) {
            float* out = level->Row<float>(y);
            const float* f = first.levels[k]->Row<float>(y);
            const float* s = second.levels[k]->Row<float>(y);
            for (int x = 0; x < level->width; ++x)
                out[x] += s[x] + (f[x] - s[x]) * weight(k, x, y);
        }
        if (k > 0) ExpandLevel(sum.levels[k - 1], level);
    }
    StoreChannel(sum.levels[0], result, channel);
}

bool SameSizes(const LaplacePyramid& a, const LaplacePyramid& b) {
    return a.width == b.width && a.height == b.height && a.numLevels == b.numLevels;
}

} // namespace

void BlendPyramids(DQImage* result, int channel, LaplacePyramid& first, LaplacePyramid& second,
                   GaussStepOneDPyramid& step, float t) {
    if (!IntegerImage(result)) return;
    if (!Fits(result, channel, first.width, first.height) || !SameSizes(first, second) ||
        step.numLevels < first.numLevels)
        return RefuseImage();
    float bandWeight[LaplacePyramid::kMaxLevels];
    for (int k = 0; k < first.numLevels; ++k)
        bandWeight[k] = step.StepValue(k, t);
    BlendBands(result, channel, first, second, [&](int k, int, int) { return bandWeight[k]; });
}

void BlendPyramids(DQImage* result, int channel, LaplacePyramid& first, LaplacePyramid& second,
                   GaussPyramid& weight, float white) {
    if (!IntegerImage(result)) return;
    if (!Fits(result, channel, first.width, first.height) || !SameSizes(first, second) ||
        weight.width != first.width || weight.height != first.height || !(white > 0.0f))
        return RefuseImage();
    const float scale = 1.0f / white;
    BlendBands(result, channel, first, second,
               [&](int k, int x, int y) { return weight.levels[k]->Row<float>(y)[x] * scale; });
}
