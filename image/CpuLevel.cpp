#include "image/CpuLevel.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr const char* kLevelNames[] = {"baseline", "avx2", "avx512"};
constexpr int kLevelCount = static_cast<int>(sizeof kLevelNames / sizeof kLevelNames[0]);

int DetectBestLevel() {
    int best = DQ_CPU_BASELINE;
#if defined(QUELMOR_HAVE_AVX2_KERNELS) && (defined(__x86_64__) || defined(__i386__))
    __builtin_cpu_init();
    // The AVX2 copy is also compiled for F16C, BMI1 and BMI2, which every AVX2 processor has.
    // The processor test includes the operating system's: a feature whose registers the system
    // does not save on a task switch reads as missing.
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma") &&
        __builtin_cpu_supports("f16c") && __builtin_cpu_supports("bmi") &&
        __builtin_cpu_supports("bmi2"))
        best = DQ_CPU_AVX2;
#if defined(QUELMOR_HAVE_AVX512_KERNELS)
    if (best == DQ_CPU_AVX2 && __builtin_cpu_supports("avx512f") &&
        __builtin_cpu_supports("avx512cd") && __builtin_cpu_supports("avx512bw") &&
        __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl"))
        best = DQ_CPU_AVX512;
#endif
#endif
    return best;
}

int Bounded(int level, int best) {
    return level < DQ_CPU_BASELINE ? DQ_CPU_BASELINE : level > best ? best : level;
}

int StartLevel() {
    const int best = DetectBestLevel();
    const char* forced = std::getenv("QUELMOR_CPU");
    if (!forced || !*forced) return best;
    const int named = DQCpuLevelNamed(forced);
    if (named < 0) {
        std::fprintf(stderr,
                     "quelmor: QUELMOR_CPU=%s names no level (baseline, avx2 or avx512); using "
                     "%s\n",
                     forced, kLevelNames[best]);
        return best;
    }
    return Bounded(named, best);
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
    const int chosen = Bounded(level, DQCpuBestLevel());
    Level().store(chosen, std::memory_order_relaxed);
    return chosen;
}

const char* DQCpuLevelName(int level) {
    return level >= 0 && level < kLevelCount ? kLevelNames[level] : nullptr;
}

int DQCpuLevelNamed(const char* name) {
    if (!name) return -1;
    for (int level = 0; level < kLevelCount; ++level)
        if (std::strcmp(name, kLevelNames[level]) == 0) return level;
    return -1;
}
