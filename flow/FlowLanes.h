#pragma once
// Eight floats or ints as one GCC vector, and the few operations the flow steps use on them:
// unaligned loads and stores, masks as bits, minimum and maximum across the lanes and the
// interleaving of two-channel rows.
#include "flow/FlowLanePlanes.h"
#include "image/KernelSpace.h"

namespace flow_lanes {
QUELMOR_KERNELS_BEGIN

using F8 = float __attribute__((vector_size(4 * kDQFlowLanes)));
using I8 = int __attribute__((vector_size(4 * kDQFlowLanes)));

#define QUELMOR_LANES_INLINE inline __attribute__((always_inline))

inline constexpr I8 kLaneIndex = {0, 1, 2, 3, 4, 5, 6, 7};
inline constexpr int kAllLanes = (1 << kDQFlowLanes) - 1;

QUELMOR_LANES_INLINE F8 Load(const float* p) {
    F8 v;
    __builtin_memcpy(&v, p, sizeof(v));
    return v;
}

QUELMOR_LANES_INLINE void Store(float* p, F8 v) {
    __builtin_memcpy(p, &v, sizeof(v));
}

QUELMOR_LANES_INLINE F8 Splat(float value) {
    return F8{} + value;
}

// Lane k as a float, plus `first`.
QUELMOR_LANES_INLINE F8 LanePositions(int first) {
    return static_cast<float>(first) + __builtin_convertvector(kLaneIndex, F8);
}

// One bit per lane that is set in the mask (lanes hold 0 or -1).
QUELMOR_LANES_INLINE int Bits(I8 mask) {
#ifdef __AVX__
    return __builtin_ia32_movmskps256(reinterpret_cast<F8>(mask));
#else
    int bits = 0;
    for (int k = 0; k < kDQFlowLanes; ++k)
        bits |= (mask[k] != 0) << k;
    return bits;
#endif
}

// The smallest or the largest value over the lanes, in every lane.
template <bool kLargest>
QUELMOR_LANES_INLINE I8 AcrossLanes(I8 v) {
    for (const I8 order :
         {I8{4, 5, 6, 7, 0, 1, 2, 3}, I8{2, 3, 0, 1, 6, 7, 4, 5}, I8{1, 0, 3, 2, 5, 4, 7, 6}}) {
        const I8 other = __builtin_shuffle(v, order);
        v = (kLargest ? other > v : other < v) ? other : v;
    }
    return v;
}

// The even and the odd elements of 16 floats from p.
QUELMOR_LANES_INLINE void LoadPairs(const float* p, F8* even, F8* odd) {
    const F8 low = Load(p), high = Load(p + kDQFlowLanes);
    *even = __builtin_shuffle(low, high, I8{0, 2, 4, 6, 8, 10, 12, 14});
    *odd = __builtin_shuffle(low, high, I8{1, 3, 5, 7, 9, 11, 13, 15});
}

// The inverse of LoadPairs.
QUELMOR_LANES_INLINE void StorePairs(float* p, F8 even, F8 odd) {
    Store(p, __builtin_shuffle(even, odd, I8{0, 8, 1, 9, 2, 10, 3, 11}));
    Store(p + kDQFlowLanes, __builtin_shuffle(even, odd, I8{4, 12, 5, 13, 6, 14, 7, 15}));
}

QUELMOR_KERNELS_END
} // namespace flow_lanes
