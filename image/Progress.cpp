#include "image/Progress.h"

#include "image/Error.h"

#include <atomic>

void ZUIdleAndProgressClass::ReportProgress(float fraction) {
    progress = fraction;
    if (interrupted) DQThrow(kDQErrInterrupted);
    if (parent)
        parent->ReportProgress(parent->rangeLow +
                               (parent->rangeHigh - parent->rangeLow) * fraction);
}

void ZUIldeAndProgressMPInterruptible::ReportProgress(float fraction) {
    std::atomic_ref<int> shared(*sharedError);
    if (!isMaster) {
        if (shared.load(std::memory_order_relaxed) != 0) DQThrow(kDQErrInterrupted);
        return;
    }
    if (shared.load(std::memory_order_relaxed) != 0) return;
    try {
        ZUIdleAndProgressClass::ReportProgress(fraction);
    } catch (DQErr code) {
        shared.store(1, std::memory_order_relaxed);
        DQThrow(code);
    }
}
