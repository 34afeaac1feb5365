// How many threads a command may use. By default every core this process may run on: a farm's
// scheduler often grants a task fewer cores than the node has, and the process's affinity mask
// says which. `--threads N` asks for N instead, within what the row loop's slot table holds.
#pragma once

#include <string>

#include "cli/CommandLine.h"

namespace quelmor::cli {

// The most workers the engine's row loop runs at once.
inline constexpr int kMostThreads = 64;

// Cores in this process's affinity mask (all online cores where the mask cannot be read),
// limited to 1 to kMostThreads.
int AvailableCores();

// Reads the value of --threads: a whole number from 1 to kMostThreads, or UsageError.
int ParseThreads(const std::string& text);

// The value of --threads on `line`, or AvailableCores() without it.
int ThreadsOption(const CommandLine& line);

} // namespace quelmor::cli
