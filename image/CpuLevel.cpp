#include "image/CpuLevel.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

int DetectBestLevel() {
#if defined(QUELMOR_HAVE_AVX2_KERNELS) && (defined(__x86_64__) || defined(__i386__))
    __builtin_cpu_init();
    // The AVX2 copy is also compiled for F16C, BMI1 and BMI2, which every AVX2 processor has.
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
        __builtin_cpu_supports("f16c") && __builtin_cpu_supports("bmi") &&
        __builtin_cpu_supports("bmi2"))
        return DQ_CPU_AVX2;
#endif
    return DQ_CPU_BASELINE;
}

int StartLevel() {
    const char* forced = std::getenv("QUELMOR_CPU");
    if (forced && std::strcmp(forced, "baseline") == 0) return DQ_CPU_BASELINE;
    return DetectBestLevel();
}

std::atomic<int>& Level() {
    static std::atomic<int> level{StartLevel()};
    return level;
}

} // namespace

int DQCpuLevel() {
    return Level().load(std::memory_order_relaxed);
}

int DQCpuBestLevel() {
    static const int best = DetectBestLevel();
    return best;
}

int DQSetCpuLevel(int level) {
    const int chosen =
        level >= DQ_CPU_AVX2 && DQCpuBestLevel() >= DQ_CPU_AVX2 ? DQ_CPU_AVX2 : DQ_CPU_BASELINE;
    Level().store(chosen, std::memory_order_relaxed);
    return chosen;
}
