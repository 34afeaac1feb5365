#include "image/DQImage.h"
#include "image/Dispatch.h"
#include "image/ElementStore.h"
#include "image/Parallel.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {
bool SameShape(const DQImage& a, const DQImage& b) {
    return a.data && b.data && a.width == b.width && a.height == b.height &&
           a.channels == b.channels;
}

// Images the typed loops below can address; any other element type is left as it is.
bool Addressable(const DQImage& image) {
    return image.data && image.width >= 1 && DQDispatchableType(image.dataType);
}

// The generic path of element-wise operations between two images of any of the three types:
// both elements read as float, `combine` applied, the result stored as the element writers store.
template <class Combine>
void CombineThroughFloats(DQImage& dst, const DQImage& src, Combine combine) {
    const int elements = dst.width * dst.channels;
    DQDispatchType(dst.dataType, [&]<class D>() {
        DQDispatchType(src.dataType, [&]<class S>() {
            for (int y = 0; y < dst.height; ++y) {
                D* __restrict out = dst.Row<D>(y);
                const S* __restrict in = src.Row<S>(y);
                for (int i = 0; i < elements; ++i)
                    out[i] = DQStoreTruncated<D>(
                        combine(static_cast<float>(out[i]), static_cast<float>(in[i])));
            }
        });
    });
}

// Runs `body(row, elements)` over every row of the image on the calling thread.
template <class T, class Body>
void ForRowsHere(const DQImage& image, Body body) {
    const int elements = image.width * image.channels;
    for (int y = 0; y < image.height; ++y)
        body(image.Row<T>(y), elements);
}

// Runs `body(row, elements)` over every row of the image in bands.
template <class T, class Body>
void ForRowsInBands(const DQImage& image, Body body) {
    const int elements = image.width * image.channels;
    ZUMPForRows(image.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            body(image.Row<T>(y), elements);
    });
}
} // namespace

void DQImage::Scale(float f) {
    if (std::fabs(f - 1.0f) < 1e-06f || !Addressable(*this)) return;
    if (dataType == DQ_FLOAT) {
        ForRowsInBands<float>(*this, [f](float* __restrict row, int n) {
            for (int i = 0; i < n; ++i)
                row[i] *= f;
        });
        return;
    }
    DQDispatchType(dataType, [&]<class T>() {
        ForRowsHere<T>(*this, [f](T* __restrict row, int n) {
            for (int i = 0; i < n; ++i)
                row[i] = DQStoreTruncated<T>(static_cast<float>(row[i]) * f);
        });
    });
}

void DQImage::ScaleColour(float f) {
    if (channels <= 3) {
        Scale(f);
        return;
    }
    if (!Addressable(*this)) return;
    DQDispatchType(dataType, [&]<class T>() {
        const int stride = channels;
        for (int y = 0; y < height; ++y) {
            T* __restrict row = Row<T>(y);
            for (int x = 0; x < width; ++x)
                for (int c = 0; c < 3; ++c)
                    row[x * stride + c] =
                        DQStoreHalfUp<T>(static_cast<float>(row[x * stride + c]) * f);
        }
    });
}

void DQImage::ScaleXY(float fx, float fy) {
    if (channels != 2 && dataType != DQ_FLOAT) {
        std::fprintf(stderr, "error in ScaleXY!\n");
        return;
    }
    // Only pixels that hold two floats carry a vector; the rest are left alone.
    if (dataType != DQ_FLOAT || channels < 2 || !data) return;
    for (int y = 0; y < height; ++y) {
        float* __restrict row = Row<float>(y);
        for (int x = 0; x < width; ++x) {
            row[x * channels] *= fx;
            row[x * channels + 1] *= fy;
        }
    }
}

void DQImage::Subtract(const DQImage* source) {
    if (!source || !SameShape(*this, *source) || !Addressable(*this) || !Addressable(*source))
        return;
    if (dataType == DQ_FLOAT && source->dataType == DQ_FLOAT) {
        const int elements = width * channels;
        ZUMPForRows(height, [&](int, int first, int last) {
            for (int y = first; y <= last; ++y) {
                float* __restrict out = Row<float>(y);
                const float* __restrict in = source->Row<float>(y);
                for (int i = 0; i < elements; ++i)
                    out[i] -= in[i];
            }
        });
        return;
    }
    CombineThroughFloats(*this, *source, [](float a, float b) { return a - b; });
}

void DQImage::MaxInto(const DQImage* source) {
    if (!source || !SameShape(*this, *source) || channels != 1 || dataType != source->dataType ||
        !Addressable(*this))
        return;
    DQDispatchType(dataType, [&]<class T>() {
        for (int y = 0; y < height; ++y) {
            T* __restrict out = Row<T>(y);
            const T* __restrict in = source->Row<T>(y);
            for (int x = 0; x < width; ++x)
                out[x] = std::max(out[x], in[x]);
        }
    });
}

void DQImage::MinInto(const DQImage* source) {
    if (!source || !SameShape(*this, *source) || !Addressable(*this) || !Addressable(*source))
        return;
    CombineThroughFloats(*this, *source, [](float a, float b) { return std::min(a, b); });
}

void DQImage::Invert() {
    if (!Addressable(*this)) return;
    DQDispatchType(dataType, [&]<class T>() {
        ForRowsInBands<T>(*this, [](T* __restrict row, int n) {
            for (int i = 0; i < n; ++i) {
                if constexpr (std::is_floating_point_v<T>)
                    row[i] = 1.0f - row[i];
                else
                    row[i] = static_cast<T>(~row[i]);
            }
        });
    });
}

void DQImage::InvertBytes() {
    if (!data || width < 1) return;
    for (int y = 0; y < height; ++y) {
        uint8_t* __restrict row = RowAddress(y);
        for (int x = 0; x < width; ++x)
            row[x] = static_cast<uint8_t>(~row[x]);
    }
}
