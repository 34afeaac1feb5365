#include "image/DQImage.h"
#include "image/Dispatch.h"
#include "image/Parallel.h"

#include <algorithm>
#include <cstring>

namespace {
// Fills rows first..last with copies of one pixel: the first row by doubling its filled prefix,
// the others as copies of the first.
void FillRows(const DQImage& image, const uint8_t* pixel, int first, int last) {
    const size_t pixelBytes = static_cast<size_t>(image.pixelBytes);
    const size_t rowBytes = static_cast<size_t>(image.width) * pixelBytes;
    if (rowBytes == 0 || first > last) return;
    uint8_t* head = image.RowAddress(first);
    std::memcpy(head, pixel, pixelBytes);
    for (size_t filled = pixelBytes; filled < rowBytes;) {
        const size_t n = std::min(filled, rowBytes - filled);
        std::memcpy(head + filled, head, n);
        filled += n;
    }
    for (int y = first + 1; y <= last; ++y)
        std::memcpy(image.RowAddress(y), head, rowBytes);
}

// A colour component in 0..1 as an element of T, clamped to the element's range.
template <class T>
T ColourElement(float c, float whitePoint) {
    double v;
    if constexpr (std::is_same_v<T, uint8_t>)
        v = c * 255.0 + 0.5;
    else if constexpr (std::is_same_v<T, uint16_t>)
        v = c * 65535.0 + 0.499;
    else
        return static_cast<T>(c * whitePoint);
    return static_cast<T>(std::clamp(v, 0.0, static_cast<double>(whitePoint)));
}
} // namespace

void DQImage::FillPixel(const void* pixel) {
    if (!data || !pixel || width < 1 || pixelBytes < 1) return;
    const auto* bytes = static_cast<const uint8_t*>(pixel);
    ZUMPForRows(height, [&](int, int first, int last) { FillRows(*this, bytes, first, last); });
}

void DQImage::FillColour(float c0, float c1, float c2, float c3) {
    if (!data || width < 1 || !DQDispatchable(dataType, channels)) return;
    const float colour[4] = {c0, c1, c2, c3};
    DQDispatchTypeChannels(dataType, channels, [&]<class T, int C>() {
        T pixel[C];
        for (int c = 0; c < C; ++c)
            pixel[c] = ColourElement<T>(colour[c], whitePoint);
        FillRows(*this, reinterpret_cast<const uint8_t*>(pixel), 0, height - 1);
    });
}
