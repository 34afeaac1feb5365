#include "warp/VoronoiFill.h"

#include "image/Dispatch.h"
#include "image/Parallel.h"

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint16_t kNoSeed = 0xFFFF;
static_assert(std::endian::native == std::endian::little,
              "the merge reads a seed's two 16-bit coordinates as one word, x in the low half");
// Above any squared distance between two pixels of an accepted image; the best distance of a
// pixel before any neighbour has been looked at.
constexpr float kFarAway = 8589672448.0f;

inline float SquaredDistance(int x, int y, const uint16_t* seed) {
    const float dx = static_cast<float>(static_cast<int>(seed[0]) - x);
    const float dy = static_cast<float>(static_cast<int>(seed[1]) - y);
    return dx * dx + dy * dy;
}

template <class M>
inline bool IsSeed(M m) {
    if constexpr (std::is_floating_point_v<M>)
        return !(m != 0.0f);
    else
        return m == 0;
}

// One sweep over the mask into `pass`. Rows run in the direction StepY (+1 top to bottom, -1
// bottom to top), columns in StepX. Each pixel looks at three neighbours already visited in this
// sweep: the previous pixel of its row, the same column of the previous row, and the previous
// pixel of the previous row. The first is taken as it is, the others only when strictly closer,
// so on a tie the earlier neighbour stands.
template <class M, int StepX, int StepY>
void Sweep(DQImage& pass, const DQImage& mask) {
    const int width = pass.width;
    const int height = pass.height;
    const int firstX = StepX > 0 ? 0 : width - 1;
    const int firstY = StepY > 0 ? 0 : height - 1;
    for (int i = 0; i < height; ++i) {
        const int y = firstY + i * StepY;
        const M* __restrict m = mask.Row<M>(y);
        uint16_t* __restrict out = pass.Row<uint16_t>(y);
        // Row before in sweep order; the first row of the sweep has none.
        const uint16_t* __restrict before = i > 0 ? pass.Row<uint16_t>(y - StepY) : nullptr;
        for (int j = 0; j < width; ++j) {
            const int x = firstX + j * StepX;
            uint16_t* target = out + 2 * x;
            if (IsSeed(m[x])) {
                target[0] = static_cast<uint16_t>(x);
                target[1] = static_cast<uint16_t>(y);
                continue;
            }
            const uint16_t* best = nullptr;
            float bestDistance = kFarAway;
            if (j > 0) {
                best = out + 2 * (x - StepX);
                bestDistance = SquaredDistance(x, y, best);
            }
            if (before) {
                const uint16_t* above = before + 2 * x;
                const float d = SquaredDistance(x, y, above);
                if (d < bestDistance) {
                    best = above;
                    bestDistance = d;
                }
                if (j > 0) {
                    const uint16_t* corner = before + 2 * (x - StepX);
                    const float dc = SquaredDistance(x, y, corner);
                    if (dc < bestDistance) best = corner;
                }
            }
            target[0] = best ? best[0] : kNoSeed;
            target[1] = best ? best[1] : kNoSeed;
        }
    }
}

template <class M>
void PropagateFrom(DQImage& nearest, DQImage& pass, const DQImage& mask) {
    // Each sweep writes every pixel of `pass` before any pixel reads it back, so the pass image
    // needs no clearing between sweeps.
    Sweep<M, +1, +1>(nearest, mask);
    Sweep<M, -1, +1>(pass, mask);
    DQVoronoiMerge(&nearest, &pass);
    Sweep<M, -1, -1>(pass, mask);
    DQVoronoiMerge(&nearest, &pass);
    Sweep<M, +1, -1>(pass, mask);
    DQVoronoiMerge(&nearest, &pass);
}

// Copies the colour of each pixel's seed into it. C is the channel count, or 0 for a count known
// only at run time. Seeds are their own seeds and are never written, so this runs in place.
template <class T, int C>
void ApplyRows(DQImage& image, const DQImage& nearest) {
    const int channels = C > 0 ? C : image.channels;
    const int width = image.width;
    const int lastColumn = image.lastColumn;
    const int lastRow = image.lastRow;
    for (int y = 0; y < image.height; ++y) {
        const uint16_t* seeds = nearest.Row<uint16_t>(y);
        T* out = image.Row<T>(y);
        for (int x = 0; x < width; ++x) {
            const int sx = seeds[2 * x];
            const int sy = seeds[2 * x + 1];
            if ((sx == x && sy == y) || sx > lastColumn || sy > lastRow) continue;
            const T* in = image.Row<T>(sy) + sx * channels;
            T* to = out + x * channels;
            for (int c = 0; c < channels; ++c)
                to[c] = in[c];
        }
    }
}

bool IsSeedImage(const DQImage* image, int width, int height) {
    return image && image->data && image->width == width && image->height == height &&
           image->channels == 2 && image->dataType == DQ_USHORT;
}

} // namespace

void DQVoronoiMerge(DQImage* nearest, DQImage* pass) {
    if (!nearest || !IsSeedImage(pass, nearest->width, nearest->height) ||
        !IsSeedImage(nearest, pass->width, pass->height))
        DQThrow(kDQErrBadArgument);
    const int width = nearest->width;
    ZUMPForRows(nearest->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            // Each seed is handled as one 32-bit word (x in the low half on this little-endian
            // layout of two 16-bit elements) so that the loop is a vectorisable select.
            uint32_t* __restrict keep = reinterpret_cast<uint32_t*>(nearest->Row<uint16_t>(y));
            const uint32_t* __restrict candidate =
                reinterpret_cast<const uint32_t*>(pass->Row<uint16_t>(y));
            const float fy = static_cast<float>(y);
            const int w = width;
            for (int x = 0; x < w; ++x) {
                const uint32_t k = keep[x];
                const uint32_t c = candidate[x];
                const float fx = static_cast<float>(x);
                const float kx = static_cast<float>(static_cast<int>(k & 0xFFFFu)) - fx;
                const float ky = static_cast<float>(static_cast<int>(k >> 16)) - fy;
                const float cx = static_cast<float>(static_cast<int>(c & 0xFFFFu)) - fx;
                const float cy = static_cast<float>(static_cast<int>(c >> 16)) - fy;
                keep[x] = kx * kx + ky * ky > cx * cx + cy * cy ? c : k;
            }
        }
    });
}

void DQVoronoiPropagate(DQImage* nearest, DQImage* mask) {
    if (!mask || !mask->data || mask->channels != 1 ||
        !IsSeedImage(nearest, mask->width, mask->height))
        DQThrow(kDQErrBadArgument);
    if (!DQDispatchableType(mask->dataType)) return;
    if (mask->width > kDQVoronoiMaxSide || mask->height > kDQVoronoiMaxSide)
        DQThrow(kDQErrBadArgument);
    DQImagePtr pass = DQMakeImage(mask->width, mask->height, 2, DQ_USHORT);
    DQDispatchType(mask->dataType, [&]<class M>() { PropagateFrom<M>(*nearest, *pass, *mask); });
}

void DQVoronoiApply(DQImage* image, DQImage* nearest) {
    if (!image || !image->data || !IsSeedImage(nearest, image->width, image->height))
        DQThrow(kDQErrBadArgument);
    if (!DQDispatchableType(image->dataType) || image->channels < 1) DQThrow(kDQErrBadArgument);
    DQDispatchType(image->dataType, [&]<class T>() {
        if (image->channels == 4)
            ApplyRows<T, 4>(*image, *nearest);
        else
            ApplyRows<T, 0>(*image, *nearest);
    });
}

void DQVoronoiFill(DQImage* image, DQImage* mask) {
    if (!image || !mask || image->width != mask->width || image->height != mask->height ||
        mask->channels != 1) {
        std::fprintf(stderr, "input problem in DQVoronoiFill\n");
        return;
    }
    if (!DQDispatchableType(mask->dataType) || !DQDispatchableType(image->dataType) ||
        image->channels < 1)
        return;
    if (image->width < 1 || image->height < 1 || !image->data || !mask->data) return;
    if (image->width > kDQVoronoiMaxSide || image->height > kDQVoronoiMaxSide) {
        std::fprintf(stderr,
                     "DQVoronoiFill: %d x %d is too large, at most %d pixels a side are "
                     "supported\n",
                     image->width, image->height, kDQVoronoiMaxSide);
        DQThrow(kDQErrBadArgument);
    }
    DQImagePtr nearest = DQMakeImage(image->width, image->height, 2, DQ_USHORT);
    DQVoronoiPropagate(nearest.get(), mask);
    DQVoronoiApply(image, nearest.get());
}
