#include "image/DQImage.h"
#include "image/Parallel.h"

#include <cstdio>

namespace {
// Byte k of each result pixel is byte Order[k] of the source pixel.
template <int P0, int P1, int P2, int P3>
void ReorderRows(const DQImage& dst, const DQImage& src) {
    const int width = dst.width;
    ZUMPForRows(dst.height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            uint8_t* out = dst.RowAddress(y);
            const uint8_t* in = src.RowAddress(y);
            for (int x = 0; x < width; ++x, out += 4, in += 4) {
                const uint8_t b0 = in[P0], b1 = in[P1], b2 = in[P2], b3 = in[P3];
                out[0] = b0;
                out[1] = b1;
                out[2] = b2;
                out[3] = b3;
            }
        }
    });
}

bool IsFourChannelBytes(const DQImage& image) {
    return image.dataType == DQ_UCHAR && image.channels == 4;
}

// Checks the layout, printing `message` when it does not fit.
bool CanReorder(const DQImage& dst, const DQImage* src, const char* message) {
    if (!src || !IsFourChannelBytes(dst) || !IsFourChannelBytes(*src) || dst.width != src->width ||
        dst.height != src->height) {
        std::fputs(message, stderr);
        return false;
    }
    return dst.data && src->data;
}

constexpr const char* kToArgbMessage =
    "RGBAtoARGB is currently designed to only work on 4chan UChar images\n";
} // namespace

void DQImage::RGBAtoABGR() {
    if (CanReorder(*this, this,
                   "RGBAtoABGR is currently designed to only work on 4chan UChar images\n"))
        ReorderRows<3, 2, 1, 0>(*this, *this);
}

void DQImage::ABGRtoRGBA() {
    if (CanReorder(*this, this,
                   "ABGRtoRGBA is currently designed to only work on 4chan UChar images\n"))
        ReorderRows<3, 2, 1, 0>(*this, *this);
}

void DQImage::RGBAtoARGB() {
    if (CanReorder(*this, this, kToArgbMessage)) ReorderRows<3, 0, 1, 2>(*this, *this);
}

void DQImage::ARGBtoRGBA() {
    if (CanReorder(*this, this,
                   "ARGBtoRGBA is currently designed to only work on 4chan UChar images\n"))
        ReorderRows<1, 2, 3, 0>(*this, *this);
}

// Both forms that read from a second image share one message, whichever way they turn.
void DQImage::RGBAtoARGB(const DQImage* source) {
    if (CanReorder(*this, source, kToArgbMessage)) ReorderRows<3, 0, 1, 2>(*this, *source);
}

void DQImage::ARGBtoRGBA(const DQImage* source) {
    if (CanReorder(*this, source, kToArgbMessage)) ReorderRows<1, 2, 3, 0>(*this, *source);
}
