#pragma once
// Optional per-step timing of the flow object, for benchmarks. Nothing is measured unless a
// caller installs a table; the render is never parallel above pixel level, so one process-wide
// table is enough.
#include <chrono>

enum DQFlowStep {
    kDQFlowStepPyramids,
    kDQFlowStepGradients,
    kDQFlowStepTensor,
    kDQFlowStepResidual,
    kDQFlowStepSmoothing,
    kDQFlowStepSolve,
    kDQFlowStepSweeps,
    kDQFlowStepOther,
    kDQFlowStepCount,
};

inline constexpr const char* kDQFlowStepNames[kDQFlowStepCount] = {
    "pyramids", "gradients", "tensor", "residual", "smoothing", "solve", "sweeps", "other"};

struct DQFlowStepTimes {
    double seconds[kDQFlowStepCount] = {};
};

// Installs the table that the steps add their times to; null switches timing off.
void DQFlowSetStepTimes(DQFlowStepTimes* times);
DQFlowStepTimes* DQFlowGetStepTimes();

// Adds the time of its scope to one step of the installed table.
class DQFlowStepClock {
public:
    explicit DQFlowStepClock(DQFlowStep step) : step_(step), times_(DQFlowGetStepTimes()) {
        if (times_) start_ = std::chrono::steady_clock::now();
    }
    ~DQFlowStepClock() {
        if (times_)
            times_->seconds[step_] +=
                std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }
    DQFlowStepClock(const DQFlowStepClock&) = delete;
    DQFlowStepClock& operator=(const DQFlowStepClock&) = delete;

private:
    DQFlowStep step_;
    DQFlowStepTimes* times_;
    std::chrono::steady_clock::time_point start_;
};
