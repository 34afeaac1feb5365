#include "warp/FlowGuidedZoom.h"

#include "image/Dispatch.h"
#include "image/Error.h"
#include "image/Parallel.h"
#include "warp/PixelAccess.h"

#include <algorithm>
#include <cmath>
#include <vector>

using warp_detail::RowView;
using warp_detail::StoreSample;

namespace {

constexpr int kMostTaps = 16;
// Positions are read to 1/1024 of a pixel: the weights of every fraction are made once per call.
constexpr int kSteps = 1024;

// The kernel's normalised weights for each fraction f = s / kSteps of a position, on the pixels
// at whole distances k = -(reach - 1) .. reach from the pixel below it: every pixel within the
// radius.
class FractionTable {
public:
    explicit FractionTable(const DQZoomFilter& filter)
        : reach_(static_cast<int>(std::ceil(filter.radius))),
          weights_(static_cast<size_t>(kSteps + 1) * 2 * reach_) {
        for (int s = 0; s <= kSteps; ++s) {
            float* w = &weights_[static_cast<size_t>(s) * 2 * reach_];
            const float f = static_cast<float>(s) / kSteps;
            float sum = 0.0f;
            for (int k = -(reach_ - 1); k <= reach_; ++k)
                sum += w[k + reach_ - 1] = filter.kernel(f - static_cast<float>(k));
            if (sum != 0.0f)
                for (int i = 0; i < 2 * reach_; ++i)
                    w[i] /= sum;
        }
    }
    int Taps() const { return 2 * reach_; }
    // The first pixel (before clamping) and the weights for a position.
    const float* At(float position, int& first) const {
        const float below = std::floor(position);
        first = static_cast<int>(below) - (reach_ - 1);
        const int s = static_cast<int>((position - below) * kSteps + 0.5f);
        return &weights_[static_cast<size_t>(s) * 2 * reach_];
    }

private:
    int reach_;
    std::vector<float> weights_;
};

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
    const FractionTable table(filter);
    const int taps = table.Taps();
    // Far outside the source every tap reads the edge: positions are held within a margin so that
    // the pixel numbers stay small.
    const float margin = float(taps + 2);
    const RowView<T> in(*source);
    const RowView<T> out(*dest);
    const float lastX = float(source->width - 1), lastY = float(source->height - 1);
    ZUMPForRows(dest->height, [&](int, int first, int last) {
        int across[kMostTaps], down[kMostTaps];
        for (int y = first; y <= last; ++y) {
            T* target = out.Row(y);
            float* mark = landed ? landed->Row<float>(y) : nullptr;
            for (int x = 0; x < dest->width; ++x) {
                float u, v;
                reader.At(x, y, u, v);
                float px = x + scale * u, py = y + scale * v;
                if (!(px == px)) px = float(x); // a vector that is not a number moves nothing
                if (!(py == py)) py = float(y);
                if (mark) mark[x] = px >= 0.0f && px <= lastX && py >= 0.0f && py <= lastY;
                int left, top;
                const float* wx = table.At(std::clamp(px, -margin, lastX + margin), left);
                const float* wy = table.At(std::clamp(py, -margin, lastY + margin), top);
                for (int i = 0; i < taps; ++i) {
                    across[i] = std::clamp(left + i, 0, source->width - 1) * C;
                    down[i] = std::clamp(top + i, 0, source->height - 1);
                }
                float sum[C] = {};
                for (int j = 0; j < taps; ++j) {
                    const T* row = in.Row(down[j]);
                    float line[C] = {};
                    for (int i = 0; i < taps; ++i)
                        for (int c = 0; c < C; ++c)
                            line[c] += wx[i] * float(row[across[i] + c]);
                    for (int c = 0; c < C; ++c)
                        sum[c] += wy[j] * line[c];
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
