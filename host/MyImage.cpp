#include "host/MyImage.h"

#include "image/Image.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

MyImage::~MyImage() {
    delete[] buffer;
    buffer = nullptr;
}

int MyPixelTypeForDepth(int depth) {
    switch (depth) {
    case 24:
    case 25:
        return 0;
    case 48:
    case 64:
        return 1;
    case 49:
        return 2;
    default:
        return -1;
    }
}

uint8_t* MyAllocatePixels(size_t bytes) {
    return new (std::nothrow) uint8_t[bytes];
}

int MyImage::MyInit(void* data, int width, int height, int depth, int rowBytes, int channels) {
    if (const int result = ZUImageReset(this)) return result;
    if (buffer != data) delete[] buffer;
    buffer = static_cast<uint8_t*>(data);
    bufWidth = width;
    bufHeight = height;
    bufDepth = depth;
    bufRowBytes = rowBytes;
    bufChannels = channels;
    if (!data) return 1;
    if (channels != 1 && channels != 3 && channels != 4) return 5;
    const int pixelType = MyPixelTypeForDepth(depth);
    if (pixelType < 0) return 0;
    switch (channels) {
    case 1:
        return ZUImageInitGray(this, data, width, height, rowBytes, 1, pixelType);
    case 3:
        return ZUImageInitRGB(this, data, width, height, rowBytes, 1, pixelType);
    default:
        return ZUImageInitRGBA(this, data, width, height, rowBytes, 1, pixelType, 1, 1, 0, 1, 2, 3);
    }
}

int ZUImageIsValid(const ZUImage* image, int verbose) {
    const int valid = image && image->internal ? 1 : 0;
    if (verbose) {
        if (!valid) {
            fprintf(stderr, "ZUImage %p: no image\n", static_cast<const void*>(image));
        } else {
            const DQImage* dq = image->internal;
            printf("ZUImage %p: %d x %d, %d channels, type %d, row bytes %d, data %p\n",
                   static_cast<const void*>(image), dq->width, dq->height, dq->channels,
                   dq->dataType, dq->rowBytes, static_cast<const void*>(dq->data));
            if (dq->data && dq->width > 0 && dq->height > 0) {
                float first[4] = {};
                dq->GetPixelFloat(0, 0, first);
                printf("  first pixel %g %g %g %g\n", first[0], first[1], first[2], first[3]);
            }
        }
    }
    return valid;
}

namespace {

// Element-wise rewrite of every row of a 16-bit image on the row loop.
template <class Op>
void ForEachUShortRow(DQImage* image, Op op) {
    const int count = image->width * image->channels;
    ZUMPForRows(image->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y)
            op(image->Row<uint16_t>(y), count);
    });
}

} // namespace

int ZUImageScale(ZUImage* image, float factor, float maximum) {
    if (!image) return 5;
    DQImage* dq = ZUImageGetDQImage(image);
    if (!dq || dq->dataType != DQ_USHORT) return 0;
    if (factor == 0.0f) {
        dq->Clear();
        return 0;
    }
    if (dq->channels == 4) dq->Unpremultiply();
    ForEachUShortRow(dq, [=](uint16_t* row, int count) {
        // Plain comparisons rather than fmin/fmax: the products are never NaN, and the loop
        // then vectorises instead of calling the library per element.
        for (int i = 0; i < count; ++i) {
            float scaled = row[i] * factor + 0.5f;
            scaled = scaled < maximum ? scaled : maximum;
            scaled = scaled > 0.0f ? scaled : 0.0f;
            row[i] = uint16_t(scaled);
        }
    });
    return 0;
}

int ZUImageExpand(ZUImage* image, float factor) {
    if (!image) return 5;
    DQImage* dq = ZUImageGetDQImage(image);
    if (!dq || dq->dataType != DQ_USHORT) return 0;
    if (dq->channels != 4) return ZUImageScale(image, factor, 65535.0f);
    if (factor == 0.0f) {
        ForEachUShortRow(dq, [](uint16_t* row, int count) {
            for (int i = 0; i < count; i += 4) {
                row[i] = row[i + 1] = row[i + 2] = 0;
                row[i + 3] = 1;
            }
        });
        return 0;
    }
    const double scale = factor;
    ForEachUShortRow(dq, [=](uint16_t* row, int count) {
        for (int i = 0; i < count; ++i)
            row[i] = uint16_t(int64_t(row[i] * scale + 0.5));
    });
    return 0;
}

int ZUImageCopy(ZUImage* destination, ZUImage* source) {
    DQImage* to = ZUImageGetDQImage(destination);
    DQImage* from = ZUImageGetDQImage(source);
    if (!to || !from) return 0;
    if (to->dataType != DQ_FLOAT && from->dataType == DQ_FLOAT)
        to->CopyCentredNormalised(from);
    else
        to->CopyCentred(from);
    return 0;
}
