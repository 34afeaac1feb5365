// The entry points of the mixing kernel unit, each forwarding to the copy of the level in force.
#include "engine/Mix.h"
#include "image/KernelSpace.h"

QUELMOR_KERNEL_ENTRY(int, DQBlend, (DQImage * dest, const DQImage* other, int lines, float k),
                     (dest, other, lines, k))
QUELMOR_KERNEL_ENTRY(int, DQBlendParallel, (DQImage * dest, const DQImage* other, float k),
                     (dest, other, k))
QUELMOR_KERNEL_ENTRY(void, Dissolve, (DQImage * dest, const DQImage* a, const DQImage* b, float t),
                     (dest, a, b, t))
