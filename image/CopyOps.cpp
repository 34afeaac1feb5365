#include "image/DQImage.h"
#include "image/Dispatch.h"
#include "image/ElementStore.h"
#include "image/Parallel.h"

#include <cstdio>
#include <cstring>

namespace {
// v * (destination white / source white), rounded and clamped for integer destinations.
template <class D, class S>
struct NormaliseElement {
    double ratio;
    double white;
    D operator()(S v) const {
        if constexpr (std::is_floating_point_v<D>)
            return static_cast<D>(static_cast<float>(v) * static_cast<float>(ratio));
        else
            return DQStoreRounded<D>(v * ratio, white);
    }
};

template <class D, class S>
NormaliseElement<D, S> Normaliser(const DQImage& dst, const DQImage& src) {
    return {static_cast<double>(dst.whitePoint) / src.whitePoint, dst.whitePoint};
}

// Runs `body(d, s)` for every element pair of one channel, over all rows in bands.
template <class D, class S, class Body>
void ForChannelPairs(DQImage& dst, int dc, const DQImage& src, int sc, Body body) {
    const int dstStride = dst.channels;
    const int srcStride = src.channels;
    const int w = dst.width;
    ZUMPForRows(dst.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            D* __restrict out = dst.Row<D>(y) + dc;
            const S* __restrict in = src.Row<S>(y) + sc;
            for (int x = 0; x < w; ++x)
                out[x * dstStride] = body(in[x * srcStride]);
        }
    });
}

bool ChannelPairFits(const DQImage& dst, int dc, const DQImage& src, int sc) {
    return dst.data && src.data && dst.width == src.width && dst.height == src.height && dc >= 0 &&
           dc < dst.channels && sc >= 0 && sc < src.channels && DQDispatchableType(dst.dataType) &&
           DQDispatchableType(src.dataType);
}

// Start on each side and length of the centred overlap of a destination and a source side.
struct CentredSpan {
    int dst, src, size;
};
CentredSpan Centre(int dstSize, int srcSize) {
    if (dstSize >= srcSize) return {(dstSize - srcSize) / 2, 0, srcSize};
    return {0, (srcSize - dstSize) / 2, dstSize};
}
} // namespace

void DQImage::CopyFromNormalised(int dx, int dy, const DQImage* source, int sx, int sy, int w,
                                 int h) {
    if (!source || !data || !source->data || w <= 0 || h <= 0) return;
    if (dataType == source->dataType && whitePoint == source->whitePoint) {
        CopyFrom(dx, dy, source, sx, sy, w, h);
        return;
    }
    if (channels != source->channels || !DQDispatchable(dataType, channels) ||
        !DQDispatchableType(source->dataType))
        return;
    if (!DQRectInside(width, height, dx, dy, w, h) ||
        !DQRectInside(source->width, source->height, sx, sy, w, h)) {
        std::fprintf(stderr, "CopyFromNormalised: rectangle outside the images\n");
        return;
    }
    const int elements = w * channels;
    DQDispatchType(dataType, [&]<class D>() {
        DQDispatchType(source->dataType, [&]<class S>() {
            const auto convert = Normaliser<D, S>(*this, *source);
            ZUMPForRows(h, [&](int, int first, int last) {
                for (int y = first; y <= last; ++y) {
                    D* __restrict out = Row<D>(dy + y) + dx * channels;
                    const S* __restrict in = source->Row<S>(sy + y) + sx * channels;
                    for (int i = 0; i < elements; ++i)
                        out[i] = convert(in[i]);
                }
            });
        });
    });
}

void DQImage::CopyCentred(const DQImage* source) {
    if (!source || !data || !source->data) return;
    const CentredSpan xs = Centre(width, source->width);
    const CentredSpan ys = Centre(height, source->height);
    CopyFrom(xs.dst, ys.dst, source, xs.src, ys.src, xs.size, ys.size);
}

void DQImage::CopyCentredNormalised(const DQImage* source) {
    if (!source || !data || !source->data) return;
    if (whitePoint == source->whitePoint) {
        CopyCentred(source);
        return;
    }
    const CentredSpan xs = Centre(width, source->width);
    const CentredSpan ys = Centre(height, source->height);
    CopyFromNormalised(xs.dst, ys.dst, source, xs.src, ys.src, xs.size, ys.size);
}

void DQImage::CopyImagePartFrom(int dx, int dy, const DQImage* source, int x0, int y0, int x1,
                                int y1) {
    if (!source || dataType != source->dataType || channels != source->channels) {
        std::fprintf(stderr, "CopyImagePartFrom: incompatible images!\n");
        return;
    }
    const int w = x1 - x0 + 1;
    const int h = y1 - y0 + 1;
    if (!data || !source->data || w <= 0 || h <= 0) return;
    if (!DQRectInside(width, height, dx, dy, w, h) ||
        !DQRectInside(source->width, source->height, x0, y0, w, h)) {
        std::fprintf(stderr, "CopyImagePartFrom: rectangle outside the images\n");
        return;
    }
    const size_t bytes = static_cast<size_t>(w) * pixelBytes;
    for (int y = 0; y < h; ++y)
        std::memmove(PixelAddress(dx, dy + y), source->PixelAddress(x0, y0 + y), bytes);
}

void DQImage::CopyTranspose(const DQImage* source) {
    if (!source || dataType != source->dataType || channels != source->channels ||
        width != source->height || height != source->width) {
        std::fprintf(stderr, "DQImage::CopyTranspose resolutions don't match\n");
        return;
    }
    if (!data || !source->data || source == this || !DQDispatchable(dataType, channels)) return;
    DQDispatchTypeChannels(dataType, channels, [&]<class T, int C>() {
        for (int y = 0; y < height; ++y) {
            T* __restrict out = Row<T>(y);
            for (int x = 0; x < width; ++x) {
                const T* in = source->Row<T>(x) + y * C;
                for (int c = 0; c < C; ++c)
                    out[x * C + c] = in[c];
            }
        }
    });
}

void DQImage::CopyChannelPlain(int destChannel, const DQImage* source, int sourceChannel) {
    if (!source || !ChannelPairFits(*this, destChannel, *source, sourceChannel)) {
        std::fprintf(stderr, "CopyCHannelIntoCHannel: incompatible images!\n");
        return;
    }
    DQDispatchType(dataType, [&]<class D>() {
        DQDispatchType(source->dataType, [&]<class S>() {
            ForChannelPairs<D, S>(*this, destChannel, *source, sourceChannel,
                                  [](S v) { return DQStoreTruncated<D>(v); });
        });
    });
}

void DQImage::CopyChannelNormalised(int destChannel, const DQImage* source, int sourceChannel) {
    if (!source || !ChannelPairFits(*this, destChannel, *source, sourceChannel)) {
        std::fprintf(stderr, "CopyCHannelIntoCHannel: incompatible images!\n");
        return;
    }
    if (dataType == source->dataType && whitePoint == source->whitePoint) {
        CopyChannelPlain(destChannel, source, sourceChannel);
        return;
    }
    DQDispatchType(dataType, [&]<class D>() {
        DQDispatchType(source->dataType, [&]<class S>() {
            ForChannelPairs<D, S>(*this, destChannel, *source, sourceChannel,
                                  Normaliser<D, S>(*this, *source));
        });
    });
}
