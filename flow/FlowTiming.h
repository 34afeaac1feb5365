#pragma once
// Optional per-step timing of the flow object, for benchmarks. Nothing is measured unless a
// caller installs a table; the render is never parallel above pixel level, so one process-wide
// table is enough.
#include <chrono>
#include <ctime>

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

// Wall-clock seconds per step, and the processor seconds of the whole process (all workers,
// waiting included) over the same spans.
struct DQFlowStepTimes {
    double seconds[kDQFlowStepCount] = {};
    double cpuSeconds[kDQFlowStepCount] = {};
};

// Installs the table that the steps add their times to; null switches timing off.
void DQFlowSetStepTimes(DQFlowStepTimes* times);
DQFlowStepTimes* DQFlowGetStepTimes();

// Adds the time of its scope to one step of the installed table.
class DQFlowStepClock {
public:
    explicit DQFlowStepClock(DQFlowStep step) : step_(step), times_(DQFlowGetStepTimes()) {
        if (times_) {
            start_ = std::chrono::steady_clock::now();
            cpuStart_ = ProcessSeconds();
        }
    }
    ~DQFlowStepClock() {
        if (!times_) return;
        times_->seconds[step_] +=
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
        times_->cpuSeconds[step_] += ProcessSeconds() - cpuStart_;
    }
    DQFlowStepClock(const DQFlowStepClock&) = delete;
    DQFlowStepClock& operator=(const DQFlowStepClock&) = delete;

private:
    static double ProcessSeconds() {
        timespec t{};
        clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
        return static_cast<double>(t.tv_sec) + 1e-9 * static_cast<double>(t.tv_nsec);
    }

    DQFlowStep step_;
    DQFlowStepTimes* times_;
    std::chrono::steady_clock::time_point start_;
    double cpuStart_ = 0.0;
};
