#!/usr/bin/env bash
# Sets up a fresh Debian machine, builds Quelmor in Release and runs every test, then builds the
# library and plug-in suites under the address and undefined-behaviour sanitizers in a folder of
# their own (scripts/test-sanitizers.sh) and runs them.
#   QUELMOR_SANITIZE=address,undefined scripts/test.sh   builds and tests everything under the
#                                                        sanitizers, in place of Release
#   BUILD_DIR=...                                        chooses the build folder (default build)
#   QUELMOR_SKIP_SANITIZER_STAGE=1                       leaves out the sanitizer stage
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh test

build="${BUILD_DIR:-build}"
jobs="$(nproc)"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DQUELMOR_BUILD_TESTS=ON -DQUELMOR_SANITIZE="${QUELMOR_SANITIZE:-}"
cmake --build "$build" -j "$jobs"
ctest --test-dir "$build" -j "$jobs" --output-on-failure

# Portable binaries: the suite again with the baseline kernels forced (the run above takes the
# best copy the processor has), and no AVX-class instruction outside the kernel copies.
QUELMOR_CPU=baseline ctest --test-dir "$build" -j "$jobs" --output-on-failure
scripts/check-portable.sh "$build"

# The sanitizer stage, unless this run is already a sanitized one.
if [[ -z "${QUELMOR_SANITIZE:-}" && "${QUELMOR_SKIP_SANITIZER_STAGE:-0}" != 1 ]]; then
    scripts/test-sanitizers.sh
fi
