// The sub-commands of `quelmor`. Each takes the arguments after its name and
// returns the exit status; bad input throws UsageError or MediaError.
#pragma once

#include <span>
#include <string>

namespace quelmor::cli {

int RunSynth(std::span<const std::string> args);
int RunScore(std::span<const std::string> args);
int RunRetime(std::span<const std::string> args);
int RunSpark(std::span<const std::string> args);
int RunDissolve(std::span<const std::string> args);
int RunVectors(std::span<const std::string> args);

} // namespace quelmor::cli
