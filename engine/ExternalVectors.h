#pragma once
// Motion supplied by a derived engine instead of computed: the vector images of slots 23 and 24
// turned into the engine's flow images, one direction derived from the other when only one is
// given.
#include "engine/Engine.h"
#include "image/DQImage.h"

class ZUIdleAndProgressClass;

// Fills `flowAtoB` from the vectors that start at frame A (GetNextFrameVectors) and `flowBtoA`
// from those that start at frame B (GetPreviousFrameVectors), polling `progress` (may be null)
// after each. A slot that answers 5 or hands over no image gives nothing; when only one direction
// arrives the other is derived from it by inverting the flow; when none does, both flows stay as
// they were. Each vector image must have the size of its flow (else DQErr 5); alpha is limited by
// the matte when one is given, vectors are converted with the slot's scale and filled where alpha
// is 0, then scaled by GetVectorScaleXY. Every image fetched is released through its partner slot,
// also when a step throws; the code is then thrown on.
void LoadExternalVectors(ZUQuelmor4& engine, DQImage* flowBtoA, int frameB, DQImage* matteB,
                         DQImage* flowAtoB, int frameA, DQImage* matteA,
                         ZUIdleAndProgressClass* progress);

// Alpha of the four-channel `vectors` becomes the smaller of itself and the one-channel `matte` of
// the same size, the matte taken to the vector image's white point. Anything else throws DQErr 5.
void LimitAlphaByMatte(DQImage* vectors, const DQImage* matte);
