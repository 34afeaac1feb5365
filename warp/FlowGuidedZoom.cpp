#include "warp/FlowGuidedZoom.h"

#include "image/Dispatch.h"
#include "image/Error.h"
#include "image/Parallel.h"
#include "warp/PixelAccess.h"

#include <algorithm>
#include <cmath>

using warp_detail::RowView;
using warp_detail::StoreSample;

namespace {

constexpr int kMostTaps = 16;

// The kernel's taps around a position along one axis: the pixels within the radius, read at the
// nearest edge beyond it, and their weights normalised to sum 1.
struct AxisTaps {
    int count = 0;
    int index[kMostTaps];
    float weight[kMostTaps];
};

void TapsAt(float position, int size, const DQZoomFilter& filter, AxisTaps& taps) {
    const int first = static_cast<int>(std::ceil(position - filter.radius));
    const int last = static_cast<int>(std::floor(position + filter.radius));
    float sum = 0.0f;
    taps.count = 0;
    for (int j = first; j <= last && taps.count < kMostTaps; ++j) {
        const float w = filter.kernel(position - static_cast<float>(j));
        if (w == 0.0f) continue;
        taps.index[taps.count] = std::clamp(j, 0, size - 1);
        taps.weight[taps.count] = w;
        sum += w;
        ++taps.count;
    }
    if (sum != 0.0f)
        for (int i = 0; i < taps.count; ++i)
            taps.weight[i] /= sum;
}

// The flow at an image pixel, in image pixels.
struct FlowReader {
    const DQImage* flow;
    float gx, gy; // image pixel to flow pixel
    float sx, sy; // flow vector to image vector

    FlowReader(const DQImage* f, const DQImage* image) : flow(f) {
        gx = image->width > 1 ? float(f->width - 1) / float(image->width - 1) : 0.0f;
        gy = image->height > 1 ? float(f->height - 1) / float(image->height - 1) : 0.0f;
        sx = f->width > 1 ? float(image->width - 1) / float(f->width - 1) : 1.0f;
        sy = f->height > 1 ? float(image->height - 1) / float(f->height - 1) : 1.0f;
    }
    void At(int x, int y, float& u, float& v) const {
        const float fx = x * gx, fy = y * gy;
        const int x0 = std::min(static_cast<int>(fx), std::max(flow->width - 2, 0));
        const int y0 = std::min(static_cast<int>(fy), std::max(flow->height - 2, 0));
        const int x1 = std::min(x0 + 1, flow->width - 1), y1 = std::min(y0 + 1, flow->height - 1);
        const float tx = fx - x0, ty = fy - y0;
        const float* r0 = flow->Row<float>(y0);
        const float* r1 = flow->Row<float>(y1);
        for (int c = 0; c < 2; ++c) {
            const float top = r0[2 * x0 + c] + tx * (r0[2 * x1 + c] - r0[2 * x0 + c]);
            const float bottom = r1[2 * x0 + c] + tx * (r1[2 * x1 + c] - r1[2 * x0 + c]);
            (c ? v : u) = top + ty * (bottom - top);
        }
        u *= sx;
        v *= sy;
    }
};

template <class T, int C>
void ZoomRows(DQImage* dest, const DQImage* source, const DQImage* flow, float scale,
              const DQZoomFilter& filter, DQImage* landed) {
    const FlowReader reader(flow, dest);
    const RowView<T> in(*source);
    const RowView<T> out(*dest);
    const float lastX = float(source->width - 1), lastY = float(source->height - 1);
    ZUMPForRows(dest->height, [&](int, int first, int last) {
        AxisTaps across, down;
        for (int y = first; y <= last; ++y) {
            T* target = out.Row(y);
            float* mark = landed ? landed->Row<float>(y) : nullptr;
            for (int x = 0; x < dest->width; ++x) {
                float u, v;
                reader.At(x, y, u, v);
                const float px = x + scale * u, py = y + scale * v;
                if (mark) mark[x] = px >= 0.0f && px <= lastX && py >= 0.0f && py <= lastY;
                TapsAt(px, source->width, filter, across);
                TapsAt(py, source->height, filter, down);
                float sum[C] = {};
                for (int j = 0; j < down.count; ++j) {
                    const T* row = in.Row(down.index[j]);
                    float line[C] = {};
                    for (int i = 0; i < across.count; ++i)
                        for (int c = 0; c < C; ++c)
                            line[c] += across.weight[i] * float(row[across.index[i] * C + c]);
                    for (int c = 0; c < C; ++c)
                        sum[c] += down.weight[j] * line[c];
                }
                for (int c = 0; c < C; ++c)
                    target[x * C + c] = StoreSample<T>(sum[c]);
            }
        }
    });
}

} // namespace

void DQFlowGuidedZoom(DQImage* dest, const DQImage* source, const DQImage* flow, float scale,
                      const DQZoomFilter& filter, DQImage* landed) {
    if (!dest || !source || !flow || dest == source) DQThrow(kDQErrBadArgument);
    if (dest->width != source->width || dest->height != source->height ||
        dest->channels != source->channels || dest->dataType != source->dataType)
        DQThrow(kDQErrBadArgument);
    if (flow->channels != 2 || flow->dataType != DQ_FLOAT || flow->width < 1 || flow->height < 1)
        DQThrow(kDQErrBadArgument);
    if (landed && (landed->width != dest->width || landed->height != dest->height ||
                   landed->channels != 1 || landed->dataType != DQ_FLOAT))
        DQThrow(kDQErrBadArgument);
    if (!(filter.radius > 0.0f) || 2.0f * filter.radius + 1.0f > float(kMostTaps))
        DQThrow(kDQErrBadArgument);
    if (dest->width < 1 || dest->height < 1 || !dest->data || !source->data) return;
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class T, int C>() {
        ZoomRows<T, C>(dest, source, flow, scale, filter, landed);
    });
}
