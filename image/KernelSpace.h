#pragma once
// The hot pixel units are built once for the x86-64 baseline and once more for each processor
// level above it: AVX2 with FMA, and AVX-512. Each copy lives in its own namespace, named by
// QUELMOR_KERNEL_NS (the build sets it for the further copies), so that no function of one copy
// can stand in for another at link time. Kernel units and the headers they share wrap their
// contents in QUELMOR_KERNELS_BEGIN and QUELMOR_KERNELS_END; the entry points are reached through
// QUELMOR_KERNEL_ENTRY, which calls the copy of the level in force (see image/CpuLevel.h).
#include "image/CpuLevel.h"

#ifndef QUELMOR_KERNEL_NS
#define QUELMOR_KERNEL_NS kernels_baseline
#endif

#define QUELMOR_KERNELS_BEGIN inline namespace QUELMOR_KERNEL_NS {
#define QUELMOR_KERNELS_END }

#define QUELMOR_KERNEL_DECLARE_IN(Space, Result, Name, Params)                                     \
    namespace Space {                                                                              \
    Result Name Params;                                                                            \
    }

// The copies the build holds, in the order of the levels, so that the level indexes them.
#if defined(QUELMOR_HAVE_AVX512_KERNELS)
#define QUELMOR_KERNEL_DECLARE_COPIES(Result, Name, Params)                                        \
    QUELMOR_KERNEL_DECLARE_IN(kernels_baseline, Result, Name, Params)                              \
    QUELMOR_KERNEL_DECLARE_IN(kernels_avx2, Result, Name, Params)                                  \
    QUELMOR_KERNEL_DECLARE_IN(kernels_avx512, Result, Name, Params)
#define QUELMOR_KERNEL_COPIES(Name)                                                                \
    &kernels_baseline::Name, &kernels_avx2::Name, &kernels_avx512::Name
#elif defined(QUELMOR_HAVE_AVX2_KERNELS)
#define QUELMOR_KERNEL_DECLARE_COPIES(Result, Name, Params)                                        \
    QUELMOR_KERNEL_DECLARE_IN(kernels_baseline, Result, Name, Params)                              \
    QUELMOR_KERNEL_DECLARE_IN(kernels_avx2, Result, Name, Params)
#define QUELMOR_KERNEL_COPIES(Name) &kernels_baseline::Name, &kernels_avx2::Name
#else
#define QUELMOR_KERNEL_DECLARE_COPIES(Result, Name, Params)                                        \
    QUELMOR_KERNEL_DECLARE_IN(kernels_baseline, Result, Name, Params)
#define QUELMOR_KERNEL_COPIES(Name) &kernels_baseline::Name
#endif

// Declares the entry point `Name` in every copy and defines the global `Name` that forwards to
// the copy of the level in force (never above the best level the build holds, see CpuLevel.cpp).
// `Params` is the parenthesised parameter list, `Args` the parenthesised argument list that
// passes them on.
#define QUELMOR_KERNEL_ENTRY(Result, Name, Params, Args)                                           \
    QUELMOR_KERNEL_DECLARE_COPIES(Result, Name, Params)                                            \
    Result Name Params {                                                                           \
        static constexpr Result(*const kCopies[]) Params = {QUELMOR_KERNEL_COPIES(Name)};          \
        return kCopies[DQCpuLevel()] Args;                                                         \
    }
