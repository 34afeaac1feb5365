#pragma once
// The hot pixel units are built twice: once for the x86-64 baseline and once for processors with
// AVX2 and FMA. Each copy lives in its own namespace, named by QUELMOR_KERNEL_NS (the build sets it
// for the AVX2 copy), so that no function of one copy can stand in for the other at link time.
// Kernel units and the headers they share wrap their contents in QUELMOR_KERNELS_BEGIN and
// QUELMOR_KERNELS_END; the entry points are reached through QUELMOR_KERNEL_ENTRY, which calls
// the copy of the level in force (see image/CpuLevel.h).
#include "image/CpuLevel.h"

#ifndef QUELMOR_KERNEL_NS
#define QUELMOR_KERNEL_NS kernels_baseline
#endif

#define QUELMOR_KERNELS_BEGIN inline namespace QUELMOR_KERNEL_NS {
#define QUELMOR_KERNELS_END }

// Declares the entry point `Name` in both copies and defines the global `Name` that forwards to
// the copy of the level in force. `Params` is the parenthesised parameter list, `Args` the
// parenthesised argument list that passes them on.
#ifdef QUELMOR_HAVE_AVX2_KERNELS
#define QUELMOR_KERNEL_ENTRY(Result, Name, Params, Args)                                           \
    namespace kernels_baseline {                                                                   \
    Result Name Params;                                                                            \
    }                                                                                              \
    namespace kernels_avx2 {                                                                       \
    Result Name Params;                                                                            \
    }                                                                                              \
    Result Name Params {                                                                           \
        static constexpr Result(*const kCopies[])                                                  \
            Params = {&kernels_baseline::Name, &kernels_avx2::Name};                               \
        return kCopies[DQCpuLevel()] Args;                                                         \
    }
#else
#define QUELMOR_KERNEL_ENTRY(Result, Name, Params, Args)                                           \
    namespace kernels_baseline {                                                                   \
    Result Name Params;                                                                            \
    }                                                                                              \
    Result Name Params {                                                                           \
        return kernels_baseline::Name Args;                                                        \
    }
#endif
