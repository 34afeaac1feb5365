#pragma once
// A chain of progress objects. A long operation makes a child on its stack whose parent is the
// caller's object and reports 0..1 on it; the parent maps that onto its own current sub-range.
// Setting `interrupted` anywhere in the chain makes the next report there throw DQErr 6.
#include "image/Mem.h"

#include <cstdint>

class ZUIdleAndProgressClass : public ZUMem {
public:
    explicit ZUIdleAndProgressClass(ZUIdleAndProgressClass* parent = nullptr) : parent(parent) {}
    virtual ~ZUIdleAndProgressClass() = default;

    // Stores the fraction, throws DQErr 6 when interrupted, then reports to the parent mapped
    // through the parent's sub-range.
    virtual void ReportProgress(float fraction);

    ZUIdleAndProgressClass* SetSubRange(float low, float high) {
        rangeLow = low;
        rangeHigh = high;
        return this;
    }
    ZUIdleAndProgressClass* CollapseSubRange() {
        rangeLow = rangeHigh = progress;
        return this;
    }
    void RepeatProgress() { ReportProgress(progress); }
    void FinishSubRange() { ReportProgress(rangeHigh); }
    void SetInterrupted(bool value) { interrupted = value ? 1 : 0; }
    bool IsInterrupted() const { return interrupted != 0; }

    uint8_t interrupted = 0;
    float progress = 0.0f;
    float rangeLow = 0.0f;
    float rangeHigh = 1.0f;
    ZUIdleAndProgressClass* parent = nullptr;
};

// The progress object of a band of a parallel operation. Only a master band forwards progress;
// the others poll the error word shared by all bands of one operation, so one interruption stops
// every band at its next report.
class ZUIldeAndProgressMPInterruptible : public ZUIdleAndProgressClass {
public:
    ZUIldeAndProgressMPInterruptible(ZUIdleAndProgressClass* parent, bool isMaster,
                                     int* sharedError)
        : ZUIdleAndProgressClass(parent), isMaster(isMaster ? 1 : 0), sharedError(sharedError) {}
    void ReportProgress(float fraction) override;

    uint8_t isMaster;
    int* sharedError;
};
