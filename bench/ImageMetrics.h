#pragma once
// Picture quality of a rebuilt frame against the true one, on 8-bit four-channel images: PSNR
// over the colour channels and on BT.601 luma, and SSIM with the usual 11x11 Gaussian window
// (sigma 1.5, K1 0.01, K2 0.03, dynamic range 255), scored on the region where the window fits
// inside the picture. SSIM comes in two forms: on luma, and as the mean of the three colour
// channels. Luma and colour PSNR part ways where a frame has its detail right but its colour
// fringes wrong.
#include "image/DQImage.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <vector>

namespace quelmor::bench {

// What a score is taken on: the luma of the colour channels, or each colour channel alone.
enum class ScorePlane { Luma, Red, Green, Blue };

struct FrameScore {
    double psnr = 0.0;         // dB over R, G, B
    double ssimLuma = 0.0;     // SSIM of BT.601 luma
    double ssimChannels = 0.0; // mean of the SSIM of R, G and B
    double psnrLuma = 0.0;     // dB of BT.601 luma
};

namespace metrics_detail {

inline void CheckComparable(const DQImage& a, const DQImage& b) {
    if (a.width != b.width || a.height != b.height || a.channels < 3 || b.channels < 3 ||
        a.dataType != DQ_UCHAR || b.dataType != DQ_UCHAR)
        throw std::invalid_argument("quality scores need two 8-bit colour images of one size");
}

// One plane of an image as floats on the scale 0 to 255.
inline std::vector<float> Plane(const DQImage& image, ScorePlane plane) {
    std::vector<float> out(size_t(image.width) * image.height);
    for (int y = 0; y < image.height; ++y) {
        const uint8_t* row = image.Row<uint8_t>(y);
        float* o = &out[size_t(y) * image.width];
        for (int x = 0; x < image.width; ++x) {
            const uint8_t* p = row + size_t(x) * image.channels;
            switch (plane) {
            case ScorePlane::Luma:
                o[x] = 0.299f * p[0] + 0.587f * p[1] + 0.114f * p[2];
                break;
            case ScorePlane::Red:
                o[x] = p[0];
                break;
            case ScorePlane::Green:
                o[x] = p[1];
                break;
            case ScorePlane::Blue:
                o[x] = p[2];
                break;
            }
        }
    }
    return out;
}

inline constexpr int kSsimRadius = 5; // 11x11 window

inline std::array<double, 2 * kSsimRadius + 1> SsimWindow() {
    std::array<double, 2 * kSsimRadius + 1> taps{};
    double sum = 0.0;
    for (int i = -kSsimRadius; i <= kSsimRadius; ++i)
        sum += taps[i + kSsimRadius] = std::exp(-double(i * i) / (2.0 * 1.5 * 1.5));
    for (double& t : taps)
        t /= sum;
    return taps;
}

// Gaussian-weighted mean of `values` over every window that fits inside the w x h plane: the
// result is (w - 10) x (h - 10), row-major.
inline std::vector<double> WindowMeans(const std::vector<double>& values, int w, int h) {
    const auto taps = SsimWindow();
    const int ow = w - 2 * kSsimRadius, oh = h - 2 * kSsimRadius;
    std::vector<double> across(size_t(ow) * h), out(size_t(ow) * oh);
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < ow; ++x) {
            double s = 0.0;
            for (int k = 0; k <= 2 * kSsimRadius; ++k)
                s += taps[k] * values[size_t(y) * w + x + k];
            across[size_t(y) * ow + x] = s;
        }
    for (int y = 0; y < oh; ++y)
        for (int x = 0; x < ow; ++x) {
            double s = 0.0;
            for (int k = 0; k <= 2 * kSsimRadius; ++k)
                s += taps[k] * across[size_t(y + k) * ow + x];
            out[size_t(y) * ow + x] = s;
        }
    return out;
}

inline double PsnrOfMse(double mse) {
    return mse <= 1e-10 ? 99.0 : std::min(99.0, 10.0 * std::log10(255.0 * 255.0 / mse));
}

} // namespace metrics_detail

// PSNR in dB of the colour channels; 99 for identical pictures.
inline double Psnr(const DQImage& a, const DQImage& b) {
    metrics_detail::CheckComparable(a, b);
    double sum = 0.0;
    for (int y = 0; y < a.height; ++y) {
        const uint8_t* p = a.Row<uint8_t>(y);
        const uint8_t* q = b.Row<uint8_t>(y);
        for (int x = 0; x < a.width; ++x)
            for (int c = 0; c < 3; ++c) {
                const double d = double(p[x * a.channels + c]) - double(q[x * b.channels + c]);
                sum += d * d;
            }
    }
    return metrics_detail::PsnrOfMse(sum / (3.0 * a.width * a.height));
}

// PSNR in dB of one plane (luma or a single colour channel); 99 for identical pictures.
inline double Psnr(const DQImage& a, const DQImage& b, ScorePlane plane) {
    metrics_detail::CheckComparable(a, b);
    const std::vector<float> pa = metrics_detail::Plane(a, plane),
                             pb = metrics_detail::Plane(b, plane);
    double sum = 0.0;
    for (size_t i = 0; i < pa.size(); ++i)
        sum += (double(pa[i]) - pb[i]) * (double(pa[i]) - pb[i]);
    return metrics_detail::PsnrOfMse(sum / double(pa.size()));
}

// Mean SSIM of one plane over the windows that fit inside the picture. Pictures smaller than
// the window throw std::invalid_argument.
inline double Ssim(const DQImage& a, const DQImage& b, ScorePlane plane) {
    using namespace metrics_detail;
    CheckComparable(a, b);
    const int w = a.width, h = a.height;
    if (w <= 2 * kSsimRadius || h <= 2 * kSsimRadius)
        throw std::invalid_argument("SSIM needs pictures larger than its 11x11 window");
    const std::vector<float> pa = Plane(a, plane), pb = Plane(b, plane);
    const size_t n = pa.size();
    std::vector<double> x(n), y(n), xx(n), yy(n), xy(n);
    for (size_t i = 0; i < n; ++i) {
        x[i] = pa[i];
        y[i] = pb[i];
        xx[i] = x[i] * x[i];
        yy[i] = y[i] * y[i];
        xy[i] = x[i] * y[i];
    }
    const auto mx = WindowMeans(x, w, h), my = WindowMeans(y, w, h);
    const auto mxx = WindowMeans(xx, w, h), myy = WindowMeans(yy, w, h);
    const auto mxy = WindowMeans(xy, w, h);
    const double c1 = (0.01 * 255.0) * (0.01 * 255.0), c2 = (0.03 * 255.0) * (0.03 * 255.0);
    double sum = 0.0;
    for (size_t i = 0; i < mx.size(); ++i) {
        const double vx = mxx[i] - mx[i] * mx[i], vy = myy[i] - my[i] * my[i];
        const double cxy = mxy[i] - mx[i] * my[i];
        sum += ((2.0 * mx[i] * my[i] + c1) * (2.0 * cxy + c2)) /
               ((mx[i] * mx[i] + my[i] * my[i] + c1) * (vx + vy + c2));
    }
    return sum / double(mx.size());
}

inline FrameScore Score(const DQImage& result, const DQImage& truth) {
    FrameScore s;
    s.psnr = Psnr(result, truth);
    s.psnrLuma = Psnr(result, truth, ScorePlane::Luma);
    s.ssimLuma = Ssim(result, truth, ScorePlane::Luma);
    s.ssimChannels =
        (Ssim(result, truth, ScorePlane::Red) + Ssim(result, truth, ScorePlane::Green) +
         Ssim(result, truth, ScorePlane::Blue)) /
        3.0;
    return s;
}

// Running mean of frame scores.
struct ScoreMean {
    FrameScore sum;
    int count = 0;
    void Add(const FrameScore& s) {
        sum.psnr += s.psnr;
        sum.ssimLuma += s.ssimLuma;
        sum.ssimChannels += s.ssimChannels;
        sum.psnrLuma += s.psnrLuma;
        ++count;
    }
    FrameScore Mean() const {
        if (count == 0) return {};
        return {sum.psnr / count, sum.ssimLuma / count, sum.ssimChannels / count,
                sum.psnrLuma / count};
    }
};

} // namespace quelmor::bench
