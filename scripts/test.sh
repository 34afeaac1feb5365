#!/usr/bin/env bash
# Sets up a fresh Debian machine, builds Quelmor in Release and runs every test.
#   QUELMOR_SANITIZE=address,undefined scripts/test.sh   builds and tests under the sanitizers
#   BUILD_DIR=...                                        chooses the build folder (default build)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh test

build="${BUILD_DIR:-build}"
jobs="$(nproc)"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DQUELMOR_BUILD_TESTS=ON -DQUELMOR_SANITIZE="${QUELMOR_SANITIZE:-}"
cmake --build "$build" -j "$jobs"
ctest --test-dir "$build" -j "$jobs" --output-on-failure

# Portable binaries: the suite again with the baseline kernels forced (the run above takes the
# AVX2 copy where the processor has it), and no AVX-class instruction outside the AVX2 copy.
QUELMOR_CPU=baseline ctest --test-dir "$build" -j "$jobs" --output-on-failure
scripts/check-portable.sh "$build"
