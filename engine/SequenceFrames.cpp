// Check-out and give-back of source frames, with the channel order made
// canonical on the way in and restored on the way out.

#include "engine/SequenceFrames.h"

#include "engine/Fields.h"

#include <cmath>

namespace {

// Per pixel: out[k] = in[from[k]] over the four channels.
template <class T>
void PermuteChannels(DQImage* image, const int (&from)[4]) {
    ZUMPForRows(image->height, [&](int, int first, int last) {
        for (int y = first; y <= last; ++y) {
            T* p = image->Row<T>(y);
            for (int x = 0; x < image->width; ++x, p += 4) {
                const T in[4] = {p[0], p[1], p[2], p[3]};
                for (int k = 0; k < 4; ++k)
                    p[k] = in[from[k]];
            }
        }
    });
}

void Permute(DQImage* image, const int (&from)[4]) {
    DQDispatchType(image->dataType, [&]<class T>() { PermuteChannels<T>(image, from); });
}

// The stored index of each canonical channel, or false for a frame that needs no reordering.
bool StoredOrder(const ZUImage* image, int (&index)[4]) {
    DQImage* pixels = ZUImageGetDQImage(image);
    if (!pixels || pixels->channels != 4) return false;
    const ZUImageInternal* bridge = image->internal;
    index[0] = bridge->redIndex;
    index[1] = bridge->greenIndex;
    index[2] = bridge->blueIndex;
    index[3] = bridge->alphaIndex;
    bool identity = true;
    unsigned seen = 0;
    for (int k = 0; k < 4; ++k) {
        if (index[k] < 0 || index[k] > 3) return false;
        seen |= 1u << index[k];
        identity = identity && index[k] == k;
    }
    return seen == 0xF && !identity;
}

// Field number f: the frame it lies in and the rows of the other field to rebuild.
int FieldMode(int field, int fieldsIn) {
    const double half = field * 0.5;
    const bool firstField = half - std::trunc(half) < 0.5;
    return (firstField && fieldsIn == 2) || (!firstField && fieldsIn != 2) ? 3 : 2;
}

} // namespace

void BringToCanonicalOrder(ZUImage* image) {
    int index[4];
    if (StoredOrder(image, index)) Permute(ZUImageGetDQImage(image), index);
}

void RestoreChannelOrder(ZUImage* image) {
    int index[4];
    if (!StoredOrder(image, index)) return;
    int inverse[4];
    for (int k = 0; k < 4; ++k)
        inverse[index[k]] = k;
    Permute(ZUImageGetDQImage(image), inverse);
}

int ZUQuelmor4Internal::GetSequenceFrame(ZUQuelmor4& engine, ZUImage** image, int frame,
                                         int fieldsIn, bool tracking) {
    *image = nullptr;
    const int sourceFrame = fieldsIn ? frame / 2 : frame;
    ZUImage* fetched = nullptr;
    const int code = tracking ? engine.GetTrackingSequenceImage(&fetched, sourceFrame)
                              : engine.GetToBeWarpedSequenceImage(&fetched, sourceFrame);
    if (code != 0) {
        if (fetched) engine.CleanUpCheckedOutImage(fetched);
        return code;
    }
    if (!fetched || fetched->height == 0) {
        if (fetched) engine.CleanUpCheckedOutImage(fetched);
        return kDQErrBadArgument;
    }
    try {
        if (fieldsIn) FieldToFrame(ZUImageGetDQImage(fetched), FieldMode(frame, fieldsIn));
        BringToCanonicalOrder(fetched);
    } catch (DQErr error) {
        engine.CleanUpCheckedOutImage(fetched);
        return error == kDQErrBadArgument ? kDQErrBadArgument : kDQErrMemory;
    }
    *image = fetched;
    return 0;
}

void ZUQuelmor4Internal::GiveBackSequenceFrame(ZUQuelmor4& engine, ZUImage* image) {
    if (!image) return;
    RestoreChannelOrder(image);
    engine.CleanUpCheckedOutImage(image);
}

void SequenceFramePair::CheckOut(int frameA, int frameB, int fieldsIn, bool tracking) {
    GiveBack();
    if (int code = state_.GetSequenceFrame(engine_, &a_, frameA, fieldsIn, tracking)) DQThrow(code);
    if (int code = state_.GetSequenceFrame(engine_, &b_, frameB, fieldsIn, tracking)) DQThrow(code);
}

void SequenceFramePair::GiveBack() {
    ZUQuelmor4Internal::GiveBackSequenceFrame(engine_, b_);
    ZUQuelmor4Internal::GiveBackSequenceFrame(engine_, a_);
    a_ = b_ = nullptr;
}
