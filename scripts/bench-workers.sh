#!/usr/bin/env bash
# The stand-in host's waiting workers on a loaded machine: the 1080p 4x slow motion of the real
# clip with the workers spinning long before they sleep (1 ms), as long as the default and
# hardly at all, in one run and randomly interleaved, so that both meet the same load,
# while a busy loop holds core 0. The load average is printed before and after.
#
#   scripts/bench-workers.sh             busy loop on core 0, 3 repetitions of each setting
#   BUSY=0 scripts/bench-workers.sh      without the busy loop
#   REPS=5 BUILD=build scripts/bench-workers.sh
set -euo pipefail
cd "$(dirname "$0")/.."
BUILD=${BUILD:-build}
REPS=${REPS:-3}
BUSY=${BUSY:-1}

if [ "$BUSY" = 1 ]; then
    taskset -c 0 sh -c 'while :; do :; done' &
    busy=$!
    trap 'kill "$busy"' EXIT
fi
echo "before: $(uptime)"
"$BUILD/bench/retime_speed_bench" --benchmark_filter='BM_SlowMotion4xWorkerSpin' \
    --benchmark_repetitions="$REPS" --benchmark_enable_random_interleaving=true \
    --benchmark_counters_tabular=true
echo "after: $(uptime)"
