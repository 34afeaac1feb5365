#!/usr/bin/env bash
# Speed of this build (kernels chosen at run time) against a reference build, for instance main's
# code built with -march=native, measured in one run: the two builds take turns, bench by bench,
# round after round, so that a change in the machine's load falls on both alike. Prints the median
# of each benchmark for both builds, their ratio and the load average before and after.
#   scripts/compare-speed.sh REF_BUILD [ROUNDS]     (this build: BUILD_DIR, default build)
# A reference build of main with -march=native, for example:
#   git worktree add --detach ../native-ref main
#   cmake -S ../native-ref -B ../native-ref/build -DCMAKE_BUILD_TYPE=Release -DQUELMOR_BUILD_TESTS=OFF
#   cmake --build ../native-ref/build -j2 --target retime_speed_bench flow_bench
set -euo pipefail
cd "$(dirname "$0")/.."
ref="${1:?reference build folder}"
rounds="${2:-3}"
new="${BUILD_DIR:-build}"
benches=(
    "retime_speed_bench --benchmark_filter=BM_FreshInBetween/960|BM_KeptFlowInBetween/960"
    "flow_bench --benchmark_filter=Speed.*Quelmor"
)
out="$(mktemp -d)"
trap 'rm -rf "$out"' EXIT
echo "load before: $(uptime)"
for ((round = 0; round < rounds; ++round)); do
    for i in "${!benches[@]}"; do
        read -r name filter <<<"${benches[$i]}"
        for side in new ref; do
            dir="$new"
            [[ $side == ref ]] && dir="$ref"
            "$dir/bench/$name" "$filter" --benchmark_format=json \
                >"$out/$side-$i-$round.json" 2>/dev/null
        done
    done
done
echo "load after:  $(uptime)"
python3 - "$out" <<'PY'
import json, pathlib, statistics, sys, collections
times = collections.defaultdict(lambda: collections.defaultdict(list))
units = {}
for f in sorted(pathlib.Path(sys.argv[1]).glob("*.json")):
    side = f.name.split("-")[0]
    for b in json.loads(f.read_text())["benchmarks"]:
        times[b["name"]][side].append(b["real_time"])
        units[b["name"]] = b.get("time_unit", "")
print(f"{'benchmark':58} {'new':>9} {'ref':>9} {'unit':>4} {'new/ref':>8}")
for name, sides in times.items():
    n, r = statistics.median(sides["new"]), statistics.median(sides["ref"])
    print(f"{name:58} {n:9.2f} {r:9.2f} {units[name]:>4} {n / r:8.3f}")
PY
