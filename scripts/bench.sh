#!/usr/bin/env bash
# Installs what the benchmarks need (OpenCV, Google Benchmark, OpenImageIO from Debian), builds
# Release and runs the benchmarks under bench/.
#   scripts/bench.sh                 runs every benchmark executable
#   scripts/bench.sh warp_bench ...  runs the named ones; extra flags after -- go to each, e.g.
#   scripts/bench.sh warp_bench -- --benchmark_filter=Warp
#   BUILD_DIR=...                    chooses the build folder (default build)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh bench

names=()
while (($#)) && [[ "$1" != "--" ]]; do
    names+=("$1")
    shift
done
if (($#)); then shift; fi

build="${BUILD_DIR:-build}"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DQUELMOR_BUILD_BENCH=ON
if ((${#names[@]} == 0)); then
    for source in bench/*_bench.cpp; do
        names+=("$(basename "$source" .cpp)")
    done
fi
cmake --build "$build" -j "$(nproc)" --target "${names[@]}"
for name in "${names[@]}"; do
    echo "== $name"
    "$build/bench/$name" "$@"
done
