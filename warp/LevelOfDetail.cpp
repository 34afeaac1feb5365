#include "warp/LevelOfDetail.h"

#include "image/PortableMath.h"
#include "warp/Sampling.h"

#include <cmath>

namespace warp_detail {
namespace {

constexpr float kHalfRoot2 = 0.707106781187f;

inline float Distance(const float* p, const float* q) {
    const float dx = p[0] - q[0];
    const float dy = p[1] - q[1];
    return std::sqrt(dx * dx + dy * dy);
}

} // namespace

void ComputeLevelOfDetail(DQImage* plane, const DQImage* flow, const DQMipMap& mip,
                          int filterMode) {
    const int width = plane->width;
    const int height = plane->height;
    const float bias = filterMode == 2 ? 0.0f : 0.5f;
    const float maxLevel = static_cast<float>(mip.levelCount - 1);
    const float fx = static_cast<float>(flow->lastColumn) / static_cast<float>(mip.lastColumn);
    const float fy = static_cast<float>(flow->lastRow) / static_cast<float>(mip.lastRow);
    const RowView<float> vectors(*flow);

    // Where every pixel lands: (x, y) plus the flow read at that pixel.
    Scratch<float> landing(static_cast<size_t>(width) * height * 2);
    for (int y = 0; y < height; ++y) {
        const Tap cy = CellOf(static_cast<float>(y) * fy, flow->lastRow);
        for (int x = 0; x < width; ++x) {
            float u, v;
            ReadFlow(vectors, CellOf(static_cast<float>(x) * fx, flow->lastColumn), cy, u, v);
            float* p = &landing[(static_cast<size_t>(y) * width + x) * 2];
            p[0] = static_cast<float>(x) + u;
            p[1] = static_cast<float>(y) + v;
        }
    }
    auto at = [&](int x, int y) { return &landing[(static_cast<size_t>(y) * width + x) * 2]; };
    auto toLevel = [&](float stretch) {
        float level = static_cast<float>(DQPortableLog2(stretch)) + bias;
        if (!(level >= 0.01f)) level = 0.0f;
        if (level > maxLevel) level = maxLevel;
        return level;
    };

    for (int y = 0; y < height; ++y) {
        float* out = plane->Row<float>(y);
        const bool borderRow = y == 0 || y == height - 1;
        for (int x = 0; x < width; ++x) {
            const float* p = at(x, y);
            if (borderRow || x == 0 || x == width - 1) {
                float actual = 0.0f;
                float nominal = 0.0f;
                for (int dy = -1; dy <= 1; ++dy) {
                    for (int dx = -1; dx <= 1; ++dx) {
                        const int nx = x + dx;
                        const int ny = y + dy;
                        if ((dx == 0 && dy == 0) || nx < 0 || ny < 0 || nx >= width || ny >= height)
                            continue;
                        actual += Distance(p, at(nx, ny));
                        nominal += (dx != 0 && dy != 0) ? 1.41421356f : 1.0f;
                    }
                }
                out[x] = nominal > 0.0f ? toLevel(actual / nominal) : 0.0f;
                continue;
            }
            float d = Distance(p, at(x + 1, y + 1)) + Distance(p, at(x + 1, y - 1)) +
                      Distance(p, at(x - 1, y + 1)) + Distance(p, at(x - 1, y - 1));
            d *= kHalfRoot2;
            d += Distance(p, at(x + 1, y)) + Distance(p, at(x - 1, y)) + Distance(p, at(x, y + 1)) +
                 Distance(p, at(x, y - 1));
            out[x] = toLevel(0.125f * d);
        }
    }
}

} // namespace warp_detail
