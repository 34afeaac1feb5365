#include "warp/Filters.h"
#include "warp/PixelAccess.h"
#include "warp/SeparableFilter.h"

#include <cmath>

void ConvolveTaps(DQImage* image, const float* taps, int count, int axes, float /*radius*/) {
    if (!image || !taps || count < 1 || count % 2 == 0) return;
    const bool rows = axes == 0 || axes == 2;
    const bool columns = axes == 0 || axes == 3;
    if (!rows && !columns) return;
    // The taps are symmetric: keep the centre half, centre first.
    const int n = count / 2 + 1;
    warp_detail::Scratch<float> half(static_cast<size_t>(n));
    for (int k = 0; k < n; ++k)
        half[k] = taps[count / 2 + k];
    // Renormalised only where taps fall outside.
    FilterSeparableTaps(image, image, half.get(), n, n - 1, rows, columns);
}

void BlurBox(DQImage* image, int axes, float radius) {
    if (!(radius >= 0.001f)) return;
    const int whole = static_cast<int>(std::ceil(radius));
    const int count = 2 * whole + 1;
    const float fraction = radius - std::floor(radius);
    warp_detail::Scratch<float> taps(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
        taps[i] = 1.0f;
    if (fraction > 0.0f) {
        taps[0] = fraction;
        taps[count - 1] = fraction;
    }
    // Divided by the number of taps, not by their sum: a fractional box is deliberately a little
    // darker than one.
    for (int i = 0; i < count; ++i)
        taps[i] /= static_cast<float>(count);
    ConvolveTaps(image, taps.get(), count, axes, radius);
}

void Blur3(DQImage* image) {
    const float taps[3] = {0.25f, 0.5f, 0.25f};
    ConvolveTaps(image, taps, 3, 0, 1.0f);
}
