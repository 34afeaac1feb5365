#include "image/DQImage.h"
#include "image/Dispatch.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {
constexpr const char* kGammaMessage =
    "GammaChannel is currently designed to only work on UChar images\n";

struct GammaTable {
    uint8_t entry[256];
    explicit GammaTable(float gamma) {
        const double exponent = 1.0 / gamma;
        for (int i = 0; i < 256; ++i) {
            const double v = std::pow(i / 255.0, exponent) * 255.0 + 0.5;
            // A zero or negative gamma sends some entries out of range (or to NaN); keep them
            // in 0..255.
            entry[i] = static_cast<uint8_t>(v >= 0.0 ? std::min(v, 255.0) : 0.0);
        }
    }
};

// Maps channels [firstChannel, endChannel) of every pixel through the table.
void MapChannels(const DQImage& image, const GammaTable& table, int firstChannel, int endChannel) {
    const int stride = image.channels;
    for (int y = 0; y < image.height; ++y) {
        uint8_t* row = image.RowAddress(y);
        for (int x = 0; x < image.width; ++x)
            for (int c = firstChannel; c < endChannel; ++c)
                row[x * stride + c] = table.entry[row[x * stride + c]];
    }
}
} // namespace

void DQImage::GammaChannel(int channel, float gamma) {
    if (dataType != DQ_UCHAR) {
        std::fputs(kGammaMessage, stderr);
        return;
    }
    if (!data || channel < 0 || channel >= channels) return;
    MapChannels(*this, GammaTable(gamma), channel, channel + 1);
}

void DQImage::GammaImage(float gamma) {
    if (dataType != DQ_UCHAR) {
        std::fputs(kGammaMessage, stderr);
        return;
    }
    if (!data) return;
    MapChannels(*this, GammaTable(gamma), 0, channels);
}

DQImagePtr DQImage::MakeLuminance(int resultBottomUp) const {
    if (!data || channels < 1) return nullptr;
    DQImagePtr result = DQMakeImage(width, height, 1, DQ_FLOAT, resultBottomUp);
    // The generic reader gives raw integer elements; a float image reads as 16-bit words.
    std::vector<float> pixel(static_cast<size_t>(channels));
    for (int y = 0; y < height; ++y) {
        float* out = result->Row<float>(y);
        for (int x = 0; x < width; ++x) {
            GetPixelFloat(x, y, pixel.data());
            out[x] = channels >= 3
                         ? (30.0f * pixel[0] + 59.0f * pixel[1] + 11.0f * pixel[2]) / 100.0f
                         : pixel[0];
        }
    }
    return result;
}

void DQImage::Composite(const DQImage* source, int x, int y) {
    if (dataType != DQ_UCHAR || !source || source->dataType != DQ_UCHAR) {
        std::fputs("Composite is currently designed to only work on UChar images\n", stderr);
        return;
    }
    if (!data || !source->data || source->channels != 4 || (channels != 3 && channels != 4)) return;
    // The part of the source that falls inside this image.
    const int x0 = std::max(0, -x), y0 = std::max(0, -y);
    const int x1 = std::min(source->width, width - x), y1 = std::min(source->height, height - y);
    const int stride = channels;
    for (int sy = y0; sy < y1; ++sy) {
        uint8_t* out = RowAddress(y + sy) + (x + x0) * stride;
        const uint8_t* in = source->RowAddress(sy) + x0 * 4;
        for (int sx = x0; sx < x1; ++sx, out += stride, in += 4) {
            const double a = in[3] / 255.0;
            for (int c = 0; c < 3; ++c)
                out[c] = static_cast<uint8_t>(out[c] + (in[c] - out[c]) * a + 0.5);
            if (stride == 4) out[3] = static_cast<uint8_t>(out[3] + (255 - out[3]) * a + 0.5);
        }
    }
}
