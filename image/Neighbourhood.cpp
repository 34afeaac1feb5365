#include "image/DQImage.h"
#include "image/Dispatch.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {
bool SameFloatShape(const DQImage& a, const DQImage& b) {
    return a.dataType == DQ_FLOAT && b.dataType == DQ_FLOAT && a.width == b.width &&
           a.height == b.height && a.channels == b.channels;
}

// The source to read while writing `dst`: the source itself, or a copy of it when both share
// storage, so that no output overwrites pixels still to be read.
const DQImage* Unaliased(const DQImage& dst, const DQImage& src, DQImagePtr& copy) {
    if (src.data != dst.data) return &src;
    copy = DQMakeImage(src.width, src.height, src.channels, src.dataType);
    copy->CopyWhole(&src);
    return copy.get();
}

constexpr int kSumRadius = 3;

template <int C>
void BoxMeanRows(DQImage& dst, const DQImage& src, float* columnSums) {
    const int w = src.width, h = src.height;
    for (int y = 0; y < h; ++y) {
        const int top = std::max(0, y - kSumRadius), bottom = std::min(h - 1, y + kSumRadius);
        std::fill(columnSums, columnSums + w * C, 0.0f);
        for (int sy = top; sy <= bottom; ++sy) {
            const float* __restrict in = src.Row<float>(sy);
            for (int i = 0; i < w * C; ++i)
                columnSums[i] += in[i];
        }
        const float rowsInside = static_cast<float>(bottom - top + 1);
        float* __restrict out = dst.Row<float>(y);
        for (int x = 0; x < w; ++x) {
            const int left = std::max(0, x - kSumRadius), right = std::min(w - 1, x + kSumRadius);
            const float count = rowsInside * static_cast<float>(right - left + 1);
            for (int c = 0; c < C; ++c) {
                float sum = 0.0f;
                for (int sx = left; sx <= right; ++sx)
                    sum += columnSums[sx * C + c];
                out[x * C + c] = sum / count;
            }
        }
    }
}

template <int C>
void LaplacianRows(DQImage& dst, const DQImage& src) {
    const int w = src.width, h = src.height;
    for (int y = 0; y < h; ++y) {
        const float* __restrict up = src.Row<float>(std::max(0, y - 1));
        const float* __restrict centre = src.Row<float>(y);
        const float* __restrict down = src.Row<float>(std::min(h - 1, y + 1));
        float* __restrict out = dst.Row<float>(y);
        for (int x = 0; x < w; ++x) {
            const int left = std::max(0, x - 1) * C, right = std::min(w - 1, x + 1) * C;
            for (int c = 0; c < C; ++c) {
                const int i = x * C + c;
                out[i] = -4.0f * centre[i] + centre[left + c] + centre[right + c] + up[i] + down[i];
            }
        }
    }
}

// Difference across a position: central inside, one-sided at the ends, 0 for a single sample.
inline float Difference(float before, float after, int span) {
    return span == 0 ? 0.0f : (after - before) / static_cast<float>(span);
}

template <class S, int C>
void GradientRows(DQImage& dst, const DQImage& src) {
    const int w = src.width, h = src.height;
    for (int y = 0; y < h; ++y) {
        const int y0 = std::max(0, y - 1), y1 = std::min(h - 1, y + 1);
        const S* above = src.Row<S>(y0);
        const S* row = src.Row<S>(y);
        const S* below = src.Row<S>(y1);
        float* __restrict out = dst.Row<float>(y);
        for (int x = 0; x < w; ++x) {
            const int x0 = std::max(0, x - 1), x1 = std::min(w - 1, x + 1);
            for (int c = 0; c < C; ++c) {
                out[(x * C + c) * 2] = Difference(row[x0 * C + c], row[x1 * C + c], x1 - x0);
                out[(x * C + c) * 2 + 1] = Difference(above[x * C + c], below[x * C + c], y1 - y0);
            }
        }
    }
}
} // namespace

void DQImage::Sum55(const DQImage* source) {
    if (!source || !SameFloatShape(*this, *source)) {
        std::fprintf(stderr, "wrong matchup for DQImage::Sum55\n");
        return;
    }
    if (!data || !source->data || width < 1 || !DQDispatchableChannels(channels)) return;
    DQImagePtr copy;
    const DQImage* src = Unaliased(*this, *source, copy);
    DQImagePtr columnSums = DQMakeImage(width, 1, channels, DQ_FLOAT);
    DQDispatchChannels<float>(
        channels, [&]<class, int C>() { BoxMeanRows<C>(*this, *src, columnSums->Row<float>(0)); });
}

void DQImage::Laplacian(const DQImage* source) {
    if (!source || !SameFloatShape(*this, *source)) {
        std::fprintf(stderr, "wrong matchup for DQImage::Laplacian\n");
        return;
    }
    if (!data || !source->data || width < 1 || !DQDispatchableChannels(channels)) return;
    DQImagePtr copy;
    const DQImage* src = Unaliased(*this, *source, copy);
    DQDispatchChannels<float>(channels, [&]<class, int C>() { LaplacianRows<C>(*this, *src); });
}

void DQImage::Gradient(const DQImage* source) {
    if (!source || dataType != DQ_FLOAT ||
        (source->dataType != DQ_UCHAR && source->dataType != DQ_USHORT &&
         source->dataType != DQ_FLOAT)) {
        std::fprintf(stderr, "Gradient for these data types not implemented!\n");
        return;
    }
    if (width != source->width || height != source->height || channels != 2 * source->channels) {
        std::fprintf(stderr, "dimensions don't match\n");
        return;
    }
    if (!data || !source->data || width < 1 || !DQDispatchableChannels(source->channels)) return;
    DQDispatchTypeChannels(source->dataType, source->channels,
                           [&]<class S, int C>() { GradientRows<S, C>(*this, *source); });
}

void DQImage::Normalize2() {
    if (dataType != DQ_FLOAT || channels != 2 || !data) return;
    for (int y = 0; y < height; ++y) {
        float* p = Row<float>(y);
        for (int x = 0; x < width; ++x, p += 2) {
            const float length = std::sqrt(p[0] * p[0] + p[1] * p[1]);
            if (length == 0.0f) continue;
            p[0] /= length;
            p[1] /= length;
        }
    }
}

void DQImage::Normalize3() {
    if (dataType != DQ_FLOAT || channels != 3 || !data) return;
    for (int y = 0; y < height; ++y) {
        float* p = Row<float>(y);
        for (int x = 0; x < width; ++x, p += 3) {
            const float length = std::sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
            if (length == 0.0f) {
                p[0] = 0.0f;
                p[1] = 0.0f;
                p[2] = 1.0f;
                continue;
            }
            p[0] /= length;
            p[1] /= length;
            p[2] /= length;
        }
    }
}
