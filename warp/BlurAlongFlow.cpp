#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "warp/Sampling.h"
#include "warp/Warp.h"

#include <algorithm>
#include <cmath>
#include <optional>

using namespace warp_detail;

namespace {

struct BlurJob {
    const DQImage* source;
    DQImage* dest;
    const DQImage* flow;
    int firstColumn, lastColumn, firstRow;
    float fx, fy;
    float shutter;
    ZUIdleAndProgressClass* progress;
    int* sharedError;
};

template <class T, int C>
void BlurBand(const BlurJob& job, int firstBand, int lastBand) {
    const RowView<T> source(*job.source);
    const RowView<T> dest(*job.dest);
    const RowView<float> flow(*job.flow);
    const float widthF = static_cast<float>(job.source->width);
    const float heightF = static_cast<float>(job.source->height);
    const float halfX = job.shutter * 0.5f / job.fx;
    const float halfY = job.shutter * 0.5f / job.fy;
    std::optional<ZUIldeAndProgressMPInterruptible> progress;
    if (job.progress) progress.emplace(job.progress, false, job.sharedError);
    const float bandRows = static_cast<float>(lastBand - firstBand + 1);

    for (int r = firstBand; r <= lastBand; ++r) {
        const int y = job.firstRow + r;
        const float yf = static_cast<float>(y);
        const Tap cy = CellOf(yf * job.fy, flow.lastRow);
        const T* sourceRow = source.Row(y);
        T* target = dest.Row(y);
        for (int x = job.firstColumn; x <= job.lastColumn; ++x) {
            const float xf = static_cast<float>(x);
            float u, v;
            ReadFlow(flow, CellOf(xf * job.fx, flow.lastColumn), cy, u, v);
            const float hx = u * halfX;
            const float hy = v * halfY;
            const float lengthSquared = hx * hx + hy * hy;
            if (lengthSquared < 1e-06f) {
                for (int c = 0; c < C; ++c)
                    target[x * C + c] = sourceRow[x * C + c];
                continue;
            }
            int count = static_cast<int>(std::sqrt(lengthSquared) + 1.0f);
            float stepX = hx;
            float stepY = hy;
            if (count > 1) {
                stepX = hx / static_cast<float>(count - 1);
                stepY = hy / static_cast<float>(count - 1);
            } else {
                count = 2;
            }
            float sum[C] = {};
            int taken = 0;
            // Samples at i steps along the direction for i = begin .. count - 1, stopping at the
            // first one outside the image.
            auto gather = [&](float direction, int begin) {
                for (int i = begin; i < count; ++i) {
                    const float k = direction * static_cast<float>(i);
                    const float px = xf + k * stepX;
                    const float py = yf + k * stepY;
                    if (!(px >= 0.0f && px < widthF && py >= 0.0f && py < heightF)) break;
                    float sample[4];
                    SampleBilinear<T, C>(source, px, py, sample);
                    for (int c = 0; c < C; ++c)
                        sum[c] += sample[c];
                    ++taken;
                }
            };
            gather(1.0f, 0);  // the pixel itself and forwards
            gather(-1.0f, 1); // backwards, from one step behind the pixel
            if (taken == 0) { // a vector that is not a number: keep the pixel
                for (int c = 0; c < C; ++c)
                    target[x * C + c] = sourceRow[x * C + c];
                continue;
            }
            const float norm = 1.0f / static_cast<float>(taken);
            for (int c = 0; c < C; ++c)
                target[x * C + c] = StoreSample<T>(sum[c] * norm);
        }
        if (progress) progress->ReportProgress(static_cast<float>(r - firstBand + 1) / bandRows);
    }
}

} // namespace

void DQBlurAlongFlow(DQImage* dest, DQImage* source, DQImage* flow, int firstColumn, int lastColumn,
                     int firstRow, int lastRow, int filtered, ZUIdleAndProgressClass* progress,
                     int options, float shutter) {
    if (!dest || !source || !flow) DQThrow(kDQErrBadArgument);
    if (source->dataType < DQ_UCHAR || source->dataType > DQ_FLOAT || source->channels < 1 ||
        source->channels > 4)
        DQThrow(kDQErrBadArgument);
    if (dest->width != source->width || dest->height != source->height ||
        dest->dataType != source->dataType || dest->channels != source->channels)
        DQThrow(kDQErrBadArgument);
    if (flow->dataType != DQ_FLOAT || flow->channels != 2 || flow->width < 2 || flow->height < 2 ||
        source->width < 2 || source->height < 2)
        DQThrow(kDQErrBadArgument);
    firstColumn = std::max(firstColumn, 0);
    firstRow = std::max(firstRow, 0);
    lastColumn = std::min(lastColumn, source->lastColumn);
    lastRow = std::min(lastRow, source->lastRow);
    if (firstColumn > lastColumn || firstRow > lastRow) return;

    int sharedError = 0;
    const BlurJob job{source,
                      dest,
                      flow,
                      firstColumn,
                      lastColumn,
                      firstRow,
                      static_cast<float>(flow->lastColumn) / static_cast<float>(source->lastColumn),
                      static_cast<float>(flow->lastRow) / static_cast<float>(source->lastRow),
                      shutter,
                      progress,
                      &sharedError};
    const int rows = lastRow - firstRow + 1;
    DQDispatchTypeChannels(source->dataType, source->channels, [&]<class T, int C>() {
        ZUMPForRows(rows, [&](int, int first, int last) { BlurBand<T, C>(job, first, last); });
    });
}

void DQBlurAlongFlow(DQImage* dest, DQImage* source, DQImage* flow, int filtered,
                     ZUIdleAndProgressClass* progress, int options, float shutter) {
    if (!source) DQThrow(kDQErrBadArgument);
    DQBlurAlongFlow(dest, source, flow, 0, source->lastColumn, 0, source->lastRow, filtered,
                    progress, options, shutter);
}
