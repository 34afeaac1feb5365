#pragma once
// Which copy of the hot pixel units runs: the x86-64 baseline, or the one built for AVX2 and FMA.
// Both give the same pixels; the level only changes the speed. At start the level is the best
// that the processor and the build support, unless the environment variable QUELMOR_CPU is
// "baseline".

enum DQCpuLevelCode { DQ_CPU_BASELINE = 0, DQ_CPU_AVX2 = 1 };

// The level in force.
int DQCpuLevel();
// The best level the processor and the build support.
int DQCpuBestLevel();
// Asks for a level; a level the processor or the build cannot run falls back to the best one
// below it. Returns the level now in force. Not to be called while pixel work runs.
int DQSetCpuLevel(int level);
