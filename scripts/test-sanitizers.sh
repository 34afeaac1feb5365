#!/usr/bin/env bash
# Builds the suites of the image, warp, flow and engine libraries and of the plug-in under the
# address and undefined-behaviour sanitizers, in a build folder of their own, and runs them. Any
# finding stops the test that made it and fails the run.
#   SANITIZE_BUILD_DIR=...   chooses the build folder (default build-sanitize)
#   QUELMOR_SANITIZE=...     chooses the sanitizers (default address,undefined)
set -euo pipefail
cd "$(dirname "$0")/.."

build="${SANITIZE_BUILD_DIR:-build-sanitize}"
sanitizers="${QUELMOR_SANITIZE:-address,undefined}"
jobs="$(nproc)"

# -O1 keeps the sanitized build quick to compile and its reports readable; -g1 gives the reports
# file and line. No finding is recovered from: the first one aborts the process.
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DCMAKE_CXX_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" -DCMAKE_C_FLAGS_RELWITHDEBINFO="-O1 -g1 -DNDEBUG" \
    -DCMAKE_CXX_FLAGS="-fno-sanitize-recover=all" -DCMAKE_C_FLAGS="-fno-sanitize-recover=all" \
    -DQUELMOR_SANITIZE="$sanitizers" -DQUELMOR_BUILD_TESTS=ON -DQUELMOR_BUILD_BENCH=OFF

# The suites of the libraries and of the plug-in; the command's suites run in the Release build.
cmake --build "$build" -j "$jobs" --target library_suites

export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:strict_string_checks=1:check_initialization_order=1${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
# QUELMOR_SANITIZE_EXCLUDE, a ctest regular expression, leaves suites out of this stage.
exclude="${QUELMOR_SANITIZE_EXCLUDE:-}"
# Suites that were not built (the command's) show up as *_NOT_BUILT entries.
ctest --test-dir "$build" -j "$jobs" --output-on-failure -E "_NOT_BUILT\$${exclude:+|$exclude}"
