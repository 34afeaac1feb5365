#pragma once
// Source frames checked out of the derived engine, held in canonical channel
// order while the engine works on them.

#include "engine/EngineInternal.h"

// Brings a four-channel image to R, G, B, A order by its channel indices.
void BringToCanonicalOrder(ZUImage* image);
// Writes each canonical channel back to its stored index.
void RestoreChannelOrder(ZUImage* image);

// Frames A and B of one sequence, given back when the holder goes out of scope.
class SequenceFramePair {
public:
    SequenceFramePair(ZUQuelmor4& engine, ZUQuelmor4Internal& state)
        : engine_(engine), state_(state) {}
    ~SequenceFramePair() { GiveBack(); }
    SequenceFramePair(const SequenceFramePair&) = delete;
    SequenceFramePair& operator=(const SequenceFramePair&) = delete;

    // Checks out A then B; a failed fetch is thrown with its code.
    void CheckOut(int frameA, int frameB, int fieldsIn, bool tracking);
    void GiveBack();
    bool Held() const { return a_ != nullptr; }
    DQImage* A() const { return ZUImageGetDQImage(a_); }
    DQImage* B() const { return ZUImageGetDQImage(b_); }

private:
    ZUQuelmor4& engine_;
    ZUQuelmor4Internal& state_;
    ZUImage* a_ = nullptr;
    ZUImage* b_ = nullptr;
};
