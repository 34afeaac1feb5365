// Motion blur and its opposite along the flow: the output is smeared along the vectors when the
// retime speeds a clip up, and the smear already in the source is pushed back when it slows down.

#include "engine/EngineInternal.h"
#include "engine/Mix.h"
#include "warp/Warp.h"

#include <algorithm>
#include <cmath>

namespace {

constexpr float kLeastAmount = -10.0f;
constexpr float kMostAmount = 20.0f;
// Blur length, as a share of the vector, whose difference from the source is amplified to
// sharpen.
constexpr float kSharpeningShutter = 0.5f;

// Pixels that became fully transparent keep no colour.
template <class T>
void ClearColourUnderZeroAlpha(DQImage* image) {
    ZUMPForRows(image->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            T* p = image->Row<T>(y);
            for (int x = 0; x < image->width; ++x, p += 4)
                if (p[3] == T(0)) p[0] = p[1] = p[2] = T(0);
        }
    });
}

} // namespace

void ZUQuelmor4Internal::ApplyMotionBlur(DQImage* dest, DQImage* source, DQImage* flow,
                                         bool highQuality, ZUIdleAndProgressClass* progress,
                                         float amount) {
    amount = std::clamp(amount, kLeastAmount, kMostAmount);
    if (std::fabs(amount) < 1e-06f) {
        dest->CopyFrom(0, 0, source, 0, 0, source->width, source->height);
        return;
    }
    if (amount > 0.0f) {
        DQBlurAlongFlow(dest, source, flow, highQuality ? 1 : 0, progress, 0, amount);
        if (dest->channels == 4)
            DQDispatchType(dest->dataType, [&]<class T>() { ClearColourUnderZeroAlpha<T>(dest); });
        return;
    }
    DQBlurAlongFlow(dest, source, flow, highQuality ? 1 : 0, progress, 0, kSharpeningShutter);
    if (progress) progress->RepeatProgress();
    // dest = source + (blurred - source) amount: a negative amount pushes the smear away.
    if (DQBlendParallel(dest, source, amount) == 0) DQThrow(kDQErrBadArgument);
    if (progress) progress->RepeatProgress();
}
