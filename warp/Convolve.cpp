#include "image/PortableMath.h"
#include "warp/Filters.h"
#include "warp/SeparableFilter.h"

#include <cmath>

void DQMakeGaussKernel(DQFilterKernel& kernel, float radius) {
    const double r = radius;
    const double s = (r / 3.0) * (r / 3.0);
    int n = static_cast<int>(radius) + 1;
    if (n > DQFilterKernel::kMaxTaps) n = DQFilterKernel::kMaxTaps;
    if (n < 1) n = 1;
    double w[DQFilterKernel::kMaxTaps];
    double sum = 0.0;
    for (int i = 0; i < n; ++i) {
        w[i] = s > 0.0 ? DQPortableExp2(-static_cast<double>(i) * i / s) : (i == 0 ? 1.0 : 0.0);
        sum += w[i];
    }
    // Both sides of the centre count, the centre once.
    const double norm = 2.0 * sum - w[0];
    kernel.n = n;
    for (int i = 0; i < n; ++i)
        kernel.w[i] = static_cast<float>(w[i] / norm);
}

void Convolve(DQImage* dest, const DQImage* source, const DQFilterKernel& kernel, int direction) {
    const int n = kernel.n < DQFilterKernel::kMaxTaps ? kernel.n : DQFilterKernel::kMaxTaps;
    FilterSeparableTaps(dest, source, kernel.w, n, n, direction != 2, direction != 1);
}

void BlurGauss(DQImage* image, int axes, float radius) {
    if (!(radius >= 0.001f)) return;
    DQFilterKernel kernel;
    DQMakeGaussKernel(kernel, radius);
    const int direction = axes == 2 ? 1 : axes == 3 ? 2 : 0;
    Convolve(image, image, kernel, direction);
}

void Blur5(DQImage* image) {
    DQFilterKernel kernel;
    kernel.n = 3;
    kernel.w[0] = 0.375f;
    kernel.w[1] = 0.25f;
    kernel.w[2] = 0.0625f;
    Convolve(image, image, kernel, 0);
}
