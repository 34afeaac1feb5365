#include "image/DQImage.h"

#include "image/Dispatch.h"
#include "image/Parallel.h"
#include "image/ShortFlow.h"

#include <cstdio>
#include <cstring>

DQImage::DQImage(int /*ignored*/, int bottomUpFlag) {
    bottomUp = bottomUpFlag;
}

DQImage::DQImage(int w, int h, int c, int type, int bu) {
    InitOwned(w, h, c, type, bu, 1);
}

DQImage::DQImage(int throwOnFailure, int w, int h, int c, int type, int bu) {
    InitOwned(w, h, c, type, bu, throwOnFailure);
}

DQImage::DQImage(void* d, int w, int h, int rb, int c, int type, int bu) {
    InitForeign(d, w, h, rb, c, type, bu, 1);
}

DQImage::DQImage(int throwOnFailure, void* d, int w, int h, int rb, int c, int type, int bu) {
    InitForeign(d, w, h, rb, c, type, bu, throwOnFailure);
}

DQImage::DQImage(void* d, int w, int h, int c, int type, int bu) {
    InitForeign(d, w, h, w * kElementBytes[type] * c, c, type, bu, 1);
}

DQImage::DQImage(int throwOnFailure, void* d, int w, int h, int c, int type, int bu) {
    InitForeign(d, w, h, w * kElementBytes[type] * c, c, type, bu, throwOnFailure);
}

DQImage::~DQImage() {
    if (ownsData && data) ZUMemRelease(data);
}

void DQImage::InitOwned(int w, int h, int c, int type, int bu, int throwOnFailure) {
    width = w;
    height = h;
    channels = c;
    dataType = type;
    bottomUp = bu;
    InitLayout(true, throwOnFailure);
}

void DQImage::InitForeign(void* d, int w, int h, int rb, int c, int type, int bu,
                          int throwOnFailure) {
    if (!d) return; // width and height stay 0
    width = w;
    height = h;
    channels = c;
    dataType = type;
    bottomUp = bu;
    data = static_cast<uint8_t*>(d);
    rowBytes = rb;
    InitLayout(false, throwOnFailure);
}

void DQImage::Rebind(void* d, int w, int h, int rb, int c, int type, int bu) {
    width = w;
    height = h;
    channels = c;
    dataType = type;
    bottomUp = bu;
    data = static_cast<uint8_t*>(d);
    rowBytes = rb;
    InitLayout(false, 1);
}

void DQImage::InitLayout(bool allocate, int throwOnFailure) {
    reserved0 = 3;
    reserved1 = 0;
    errorCode = 0;
    elementBytes = kElementBytes[dataType];
    pixelBytes = elementBytes * channels;
    if (allocate) {
        // Row offsets are 32-bit: an image beyond 2 GiB (or of negative size) cannot be
        // addressed, and is refused like an allocation that failed.
        const int64_t bytes = int64_t(width) * pixelBytes * height;
        if (width < 0 || height < 0 || bytes > INT32_MAX) {
            data = nullptr;
            ownsData = 0;
            rowBytes = 0;
            errorCode = kDQErrMemory;
            if (throwOnFailure == 1) DQThrow(kDQErrMemory);
            return;
        }
        rowBytes = width * pixelBytes;
        try {
            data = static_cast<uint8_t*>(
                ZUMemAllocate(static_cast<size_t>(static_cast<int64_t>(rowBytes) * height)));
            ownsData = 1;
        } catch (DQErr code) {
            data = nullptr;
            ownsData = 0;
            errorCode = code;
            if (throwOnFailure == 1) DQThrow(code);
            return;
        }
    } else {
        ownsData = 0;
    }
    lastRow = height - 1;
    lastColumn = width - 1;
    rowStep = bottomUp ? -rowBytes : rowBytes;
    if (dataType >= DQ_UCHAR && dataType <= DQ_FLOAT) whitePoint = kWhitePoint[dataType];
    readElement = DQGetElementReader(dataType);
}

void DQImage::GetPixelFloat(int x, int y, float* out) const {
    // Raw element values of the integer types. A float image takes the 16-bit path and reads
    // words from float storage; callers that need a float pixel read it directly.
    if (dataType == DQ_UCHAR) {
        const uint8_t* p = PixelAddress(x, y);
        for (int c = 0; c < channels; ++c)
            out[c] = p[c];
    } else if (dataType == DQ_USHORT || dataType == DQ_FLOAT) {
        const uint16_t* p = reinterpret_cast<const uint16_t*>(PixelAddress(x, y));
        for (int c = 0; c < channels; ++c)
            out[c] = p[c];
    }
}

void DQImage::GetChannelFloat(int x, int y, float* out, int channel) const {
    const uint8_t* element = PixelAddress(x, y) + channel * elementBytes;
    if (dataType == DQ_FLOAT)
        std::memcpy(out, element, sizeof(float));
    else if (readElement)
        readElement(out, element);
}

void DQImage::SetPixelFloat(int x, int y, const float* in) {
    uint8_t* p = PixelAddress(x, y);
    if (dataType == DQ_FLOAT) {
        std::memcpy(p, in, sizeof(float) * channels);
        return;
    }
    const DQElementWriter write = DQGetElementWriter(dataType);
    if (!write) return;
    for (int c = 0; c < channels; ++c)
        write(p + c * elementBytes, in[c]);
}

void DQImage::SetChannelFloat(int x, int y, int channel, float value) {
    uint8_t* element = PixelAddress(x, y) + channel * elementBytes;
    if (dataType == DQ_FLOAT) {
        std::memcpy(element, &value, sizeof value);
        return;
    }
    if (const DQElementWriter write = DQGetElementWriter(dataType)) write(element, value);
}

void DQImage::SetFlowPixel(int x, int y, int range, float dx, float dy) {
    if (dataType == DQ_USHORT) {
        uint16_t* p = reinterpret_cast<uint16_t*>(PixelAddress(x, y));
        p[0] = DQEncodeShortFlow(dx, range);
        p[1] = DQEncodeShortFlow(dy, range);
        if (p[0] > 50000) std::fprintf(stderr, "whoa\n");
    } else {
        float* p = reinterpret_cast<float*>(PixelAddress(x, y));
        p[0] = dx;
        p[1] = dy;
    }
}

void DQImage::GetFlowBilinear(float* dxOut, float* dyOut, int range, float x, float y) const {
    int ix = static_cast<int>(x);
    int iy = static_cast<int>(y);
    float fx = x - ix;
    float fy = y - iy;
    if (ix >= lastColumn) {
        fx = 1.0f;
        ix = width - 2;
    }
    if (iy >= lastRow) {
        fy = 1.0f;
        iy = height - 2;
    }
    float sample[2][4];
    const int xs[4] = {ix, ix + 1, ix, ix + 1};
    const int ys[4] = {iy, iy, iy + 1, iy + 1};
    for (int k = 0; k < 4; ++k) {
        const uint8_t* p = PixelAddress(xs[k], ys[k]);
        if (dataType == DQ_FLOAT) {
            std::memcpy(&sample[0][k], p, sizeof(float));
            std::memcpy(&sample[1][k], p + sizeof(float), sizeof(float));
        } else {
            readElement(&sample[0][k], p);
            readElement(&sample[1][k], p + elementBytes);
        }
    }
    float out[2];
    for (int c = 0; c < 2; ++c) {
        const float top = sample[c][0] + (sample[c][1] - sample[c][0]) * fx;
        const float bottom = sample[c][2] + (sample[c][3] - sample[c][2]) * fx;
        out[c] = top + (bottom - top) * fy;
    }
    if (dataType == DQ_USHORT) {
        out[0] = DQDecodeShortFlow(out[0], range);
        out[1] = DQDecodeShortFlow(out[1], range);
    }
    *dxOut = out[0];
    *dyOut = out[1];
}

void DQImage::Clear() {
    if (width < 1 || !data) return;
    const size_t bytes = static_cast<size_t>(width) * pixelBytes;
    ZUMPForRows(height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            std::memset(RowAddress(y), 0, bytes);
    });
}

void DQImage::CopyWhole(const DQImage* source) {
    const size_t bytes = static_cast<size_t>(width) * pixelBytes;
    ZUMPForRows(height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            std::memcpy(RowAddress(y), source->RowAddress(y), bytes);
    });
}

namespace {
template <class D, class S>
void CastRows(DQImage& dst, const DQImage& src, int dx, int dy, int sx, int sy, int w, int h) {
    const int elements = w * dst.channels;
    ZUMPForRows(h, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            D* __restrict out = dst.Row<D>(dy + y) + dx * dst.channels;
            const S* __restrict in = src.Row<S>(sy + y) + sx * src.channels;
            for (int i = 0; i < elements; ++i)
                out[i] = static_cast<D>(in[i]);
        }
    });
}
} // namespace

void DQImage::CopyFrom(int dx, int dy, const DQImage* source, int sx, int sy, int w, int h) {
    // Pixels of different channel counts have different layouts: a row copy would read past
    // the narrower rows.
    if (!source || w <= 0 || h <= 0 || channels != source->channels) return;
    if (dataType == source->dataType) {
        if (dx == 0 && dy == 0 && sx == 0 && sy == 0 && width == w && height == h &&
            source->width == w && source->height == h) {
            CopyWhole(source);
            return;
        }
        const size_t bytes = static_cast<size_t>(w) * pixelBytes;
        for (int y = 0; y < h; ++y)
            std::memcpy(PixelAddress(dx, dy + y), source->PixelAddress(sx, sy + y), bytes);
        return;
    }
    if (!DQDispatchableType(dataType) || !DQDispatchableType(source->dataType)) return;
    DQDispatchType(dataType, [&]<class D>() {
        DQDispatchType(source->dataType,
                       [&]<class S>() { CastRows<D, S>(*this, *source, dx, dy, sx, sy, w, h); });
    });
}

DQImagePtr DQMakeImage(int width, int height, int channels, int dataType, int bottomUp) {
    DQImagePtr image(new DQImage(0, width, height, channels, dataType, bottomUp));
    if (image->errorCode != 0) DQThrow(image->errorCode);
    return image;
}
