// Row functions and drivers of the layer operations.

#include "engine/LayerImages.h"

#include "image/ElementStore.h"

#include <algorithm>
#include <cstdio>
#include <type_traits>

namespace {

// The factor that turns an element into a fraction of white.
template <class T>
constexpr double FractionOf() {
    if constexpr (std::is_same_v<T, uint8_t>)
        return 0.003921569;
    else if constexpr (std::is_same_v<T, uint16_t>)
        return 1.5259022e-5;
    else
        return 1.0;
}

template <class T>
constexpr double WhiteOf() {
    if constexpr (std::is_same_v<T, uint8_t>)
        return 255.0;
    else if constexpr (std::is_same_v<T, uint16_t>)
        return 65535.0;
    else
        return 1.0;
}

bool SameSize(const DQImage* a, const DQImage* b) {
    return a && b && a->data && b->data && a->width == b->width && a->height == b->height;
}

template <class T, int C>
void MattedRow(T* __restrict out, const T* __restrict in, const T* __restrict m, int width) {
    for (int x = 0; x < width; ++x, out += 4, in += C) {
        const double f = m[x] * FractionOf<T>();
        for (int c = 0; c < 3; ++c)
            out[c] = DQStoreHalfUp<T>(in[c] * f);
        out[3] = C == 4 ? DQStoreHalfUp<T>(in[3] * f) : m[x];
    }
}

template <class T>
void BlackMatteRow(T* __restrict m, const float* __restrict cut, int width) {
    for (int x = 0; x < width; ++x) {
        const double v = std::clamp(double(m[x]) * (1.0 - double(cut[x])), 0.0, WhiteOf<T>());
        m[x] = DQStoreTruncated<T>(v);
    }
}

template <class T>
void OverRow(T* __restrict d, const T* __restrict t, int columns) {
    for (int x = 0; x < columns; ++x, d += 4, t += 4) {
        const double ta = t[3] * FractionOf<T>();
        if (ta <= 0.0) continue;
        if (t[3] >= T(WhiteOf<T>())) {
            for (int c = 0; c < 4; ++c)
                d[c] = t[c];
            continue;
        }
        for (int c = 0; c < 3; ++c)
            d[c] = DQStoreHalfUp<T>(std::min(WhiteOf<T>(), d[c] * (1.0 - ta) + t[c]));
        d[3] = DQStoreHalfUp<T>(std::min(WhiteOf<T>(), d[3] + (WhiteOf<T>() - d[3]) * ta));
    }
}

} // namespace

void LayerMatte(DQImage* dest, DQImage* const* mattes, int layer, int layerCount,
                const DQImage* backgroundImage) {
    if (layer + 1 < layerCount) {
        const DQImage* matte = mattes[layer];
        dest->CopyFromNormalised(0, 0, matte, 0, 0, matte->width, matte->height);
    } else if (backgroundImage && backgroundImage->channels == 4) {
        dest->CopyChannelNormalised(0, backgroundImage, 3);
    } else {
        dest->FillColour(1.0f, 1.0f, 1.0f, 1.0f);
    }
}

void MattedImage(DQImage* dest, const DQImage* source, const DQImage* matte) {
    if (!SameSize(dest, source) || !SameSize(dest, matte) || dest->channels != 4 ||
        matte->channels != 1 || (source->channels != 3 && source->channels != 4) ||
        source->dataType != dest->dataType || matte->dataType != dest->dataType) {
        std::fputs("error in image types for MattedImage\n", stderr);
        DQThrow(kDQErrBadArgument);
    }
    DQDispatchType(dest->dataType, [&]<class T>() {
        ZUMPForRows(dest->height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y) {
                if (source->channels == 4)
                    MattedRow<T, 4>(dest->Row<T>(y), source->Row<T>(y), matte->Row<T>(y),
                                    dest->width);
                else
                    MattedRow<T, 3>(dest->Row<T>(y), source->Row<T>(y), matte->Row<T>(y),
                                    dest->width);
            }
        });
    });
}

void RenderBlackMatte(DQImage* matte, const DQImage* cut) {
    if (!SameSize(matte, cut) || matte->channels != 1 || cut->channels != 1 ||
        cut->dataType != DQ_FLOAT) {
        std::fputs("error in image types for RenderBlackMatte\n", stderr);
        return;
    }
    DQDispatchType(matte->dataType, [&]<class T>() {
        ZUMPForRows(matte->height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y)
                BlackMatteRow<T>(matte->Row<T>(y), cut->Row<float>(y), matte->width);
        });
    });
}

void Subtract1Channel(DQImage* a, const DQImage* b) {
    if (!SameSize(a, b) || a->channels != 1 || b->channels != 1 || a->dataType != b->dataType) {
        std::fputs("error in image types for Subtract1Channel\n", stderr);
        return;
    }
    DQDispatchType(a->dataType, [&]<class T>() {
        ZUMPForRows(a->height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y) {
                T* __restrict p = a->Row<T>(y);
                const T* __restrict q = b->Row<T>(y);
                for (int x = 0; x < a->width; ++x)
                    p[x] = p[x] > q[x] ? T(p[x] - q[x]) : T(0);
            }
        });
    });
}

void OverInto(DQImage* dest, const DQImage* top, int lastColumn, int lastRow) {
    if (!SameSize(dest, top) || dest->channels != 4 || top->channels != 4 ||
        dest->dataType != top->dataType) {
        std::fputs("error in image types for OverInto\n", stderr);
        DQThrow(kDQErrBadArgument);
    }
    const int columns = std::min(lastColumn + 1, dest->width);
    const int rows = std::min(lastRow + 1, dest->height);
    DQDispatchType(dest->dataType, [&]<class T>() {
        ZUMPForRows(rows, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y)
                OverRow<T>(dest->Row<T>(y), top->Row<T>(y), columns);
        });
    });
}
