#include "Score.h"

#include <algorithm>
#include <cmath>

namespace quelmor::cli {

double MeanSquaredError(const MediaFrame& a, const MediaFrame& b) {
    if (!a.format.SameSize(b.format))
        throw MediaError("cannot compare frames of " + std::to_string(a.format.width) + "x" +
                         std::to_string(a.format.height) + " and " +
                         std::to_string(b.format.width) + "x" + std::to_string(b.format.height));
    MediaFormat rgb{a.format.width, a.format.height, 3, SampleType::Float};
    MediaFrame fa, fb;
    ConvertFrame(a, rgb, fa);
    ConvertFrame(b, rgb, fb);
    const float* pa = reinterpret_cast<const float*>(fa.pixels.data());
    const float* pb = reinterpret_cast<const float*>(fb.pixels.data());
    const std::size_t n = std::size_t(rgb.width) * rgb.height * 3;
    double sum = 0;
    for (std::size_t i = 0; i < n; ++i) {
        const double d = double(pa[i]) - double(pb[i]);
        sum += d * d;
    }
    return sum / double(n);
}

double PsnrOf(double meanSquaredError) {
    return meanSquaredError <= 1e-10 ? 99.0
                                     : std::min(99.0, 10.0 * std::log10(1.0 / meanSquaredError));
}

ClipScore ScoreClips(MediaReader& result, MediaReader& truth) {
    ClipScore score;
    score.frames = std::min(result.FrameCount(), truth.FrameCount());
    score.worstPsnr = 1e9;
    MediaFrame a, b;
    double sum = 0;
    for (int i = 0; i < score.frames; ++i) {
        result.Read(i, a);
        truth.Read(i, b);
        const double mse = MeanSquaredError(a, b);
        const double p = PsnrOf(mse);
        sum += mse;
        if (p < score.worstPsnr) {
            score.worstPsnr = p;
            score.worstFrame = i;
        }
    }
    score.psnr = score.frames ? PsnrOf(sum / score.frames) : 0.0;
    if (!score.frames) score.worstPsnr = 0;
    return score;
}

} // namespace quelmor::cli
