#pragma once
// Mixing two warped frames by what each really covers: where both cover a pixel they dissolve,
// where one covers it the result is that one, with every stage between for partial coverage.
// Pixels that neither covers are left for the caller to fill.

#include "image/Image.h"

// dest = the coverage-aware mix of a and b, t being the share of b as in Dissolve.
//
// Four channels: a and b are premultiplied and their own alpha (channel 3) is the coverage; the
// masks are not read and may be null. The result keeps at least the coverage of the better of
// the two. Other channel counts: maskA and maskB (one channel, of any of the three element types,
// full at its white value) are the coverage.
//
// dest, a and b must agree in width, height, channels and element type, and with other than four
// channels both masks must be given at that size with one channel; otherwise dest is cleared
// (when it can be) and nothing else happens. A weight that is not a finite number is refused the
// same way. Rows are shared among the host's workers; the result does not depend on their count.
void SmartBlend(DQImage* dest, const DQImage* a, const DQImage* b, const DQImage* maskA,
                const DQImage* maskB, float t);

// The same for four-channel pixels whose alpha comes first (alpha, then three channels), with a
// harder rule: a frame counts as covering only where its alpha is full. Other channel counts mix
// by the masks as SmartBlend does.
void SmartBlendAlphaFirst(DQImage* dest, const DQImage* a, const DQImage* b, const DQImage* maskA,
                          const DQImage* maskB, float t);
