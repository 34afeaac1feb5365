#pragma once
// Which copy of the hot pixel units runs: the x86-64 baseline, the one built for AVX2 and FMA,
// or the one built for AVX-512. All give the same pixels; the level only changes the speed. At
// start the level is the best that the processor, its operating system and the build support,
// unless the environment variable QUELMOR_CPU names a lower one ("baseline", "avx2" or "avx512";
// a level that cannot run falls back to the best one below it).

enum DQCpuLevelCode { DQ_CPU_BASELINE = 0, DQ_CPU_AVX2 = 1, DQ_CPU_AVX512 = 2 };

// The level in force.
int DQCpuLevel();
// The best level the processor and the build support.
int DQCpuBestLevel();
// Asks for a level; a level the processor or the build cannot run falls back to the best one
// below it. Returns the level now in force. Not to be called while pixel work runs.
int DQSetCpuLevel(int level);

// The name of a level as QUELMOR_CPU spells it; null for a number that is no level.
const char* DQCpuLevelName(int level);
// The level QUELMOR_CPU's value names; -1 for a value that names none.
int DQCpuLevelNamed(const char* name);
