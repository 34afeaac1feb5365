#!/usr/bin/env bash
# Runs `quelmor retime` and `quelmor spark` with random option sets, sane and hostile, on tiny
# clips, some of them damaged, under the address and undefined-behaviour sanitizers. A run fails
# when the command dies of a signal or exits other than 0, 1 or 2, when a sanitizer reports,
# when a hidden .part file is left, or when a success leaves no output. The seed of each failure
# is printed; `SEED=n RUNS=1 scripts/soak.sh` repeats that run alone.
#   RUNS=200        runs (default 200)
#   SEED=n          seed of the first run (default: from the clock); run i uses SEED + i
#   BUILD_DIR=...   sanitizer build folder (default build-asan), configured and built if needed
#   KEEP=1          keeps the work folder
set -uo pipefail
cd "$(dirname "$0")/.."

runs="${RUNS:-200}"
seed="${SEED:-$(date +%s)}"
build="${BUILD_DIR:-build-asan}"
if [[ ! -x "$build/cli/quelmor" ]]; then
    cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DQUELMOR_SANITIZE=address,undefined \
        -DQUELMOR_BUILD_TESTS=OFF -DQUELMOR_BUILD_BENCH=OFF >/dev/null || exit 1
    cmake --build "$build" -j "$(nproc)" --target quelmor >/dev/null || exit 1
fi
quelmor="$(cd "$build/cli" && pwd)/quelmor"
export ASAN_OPTIONS="detect_leaks=0:abort_on_error=1:halt_on_error=1"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"

work="$(mktemp -d /tmp/quelmor_soak.XXXXXX)"
[[ -n "${KEEP:-}" ]] || trap 'rm -rf "$work"' EXIT
cd "$work"

# The clips: 8-bit PNG, 16-bit TIFF, half EXR, an H.264 video, and a PNG clip with a truncated
# frame and one with a frame that is not an image.
"$quelmor" synth png8.%04d.png --frames 5 --size 24x16 --quiet >/dev/null
"$quelmor" synth tif16.%04d.tif --frames 4 --size 16x12 --depth 16 --quiet >/dev/null
"$quelmor" synth half.%04d.exr --frames 4 --size 20x10 --quiet >/dev/null
"$quelmor" retime png8.%04d.png video.mp4 --speed 1 --quiet
mkdir cut bad
cp png8.000[0-4].png cut/ && truncate -s 200 cut/png8.0002.png
cp png8.000[0-4].png bad/ && echo "not an image" >bad/png8.0003.png
rm -f true_*
inputs=(png8.%04d.png tif16.%04d.tif half.%04d.exr video.mp4 cut/png8.%04d.png
        bad/png8.%04d.png missing.%04d.png)
outputs=(png exr tif jpg dpx mp4 mov)
speeds=(0.25 0.5 0.37 1 1.5 2 3 7 0 -1 1e-9 1e300 abc)
interpolations=(nearest blend weighted 0 2 5 bogus)
qualities=(none sloppy medium high best 9)
blurs=(0 0.5 1 5 5.5 100 -1)
fields=(none lower upper 4)
frameRanges=(0-0 1-3 2 0-50 5-2 x)
pick() { local -n list=$1; echo "${list[RANDOM % ${#list[@]}]}"; }

declare -A statuses=()
failures=0
for ((i = 0; i < runs; i++)); do
    run=$((seed + i))
    RANDOM=$run
    command=$([[ $((RANDOM % 2)) == 0 ]] && echo retime || echo spark)
    ext=$(pick outputs)
    out="out$i"
    [[ $ext == mp4 || $ext == mov ]] && out="$out.$ext" || out="$out.%04d.$ext"
    args=("$command" "$(pick inputs)" "$out" --quiet)
    (( RANDOM % 8 )) && args+=(--speed "$(pick speeds)")
    (( RANDOM % 2 )) && args+=(--interpolation "$(pick interpolations)")
    (( RANDOM % 2 )) && args+=(--quality "$(pick qualities)")
    (( RANDOM % 3 )) || args+=(--motion-blur "$(pick blurs)")
    (( RANDOM % 6 )) || args+=(--rate 24)
    if [[ $command == retime ]]; then
        (( RANDOM % 4 )) || args+=(--frames "$(pick frameRanges)")
    else
        (( RANDOM % 4 )) || args+=(--fields-in "$(pick fields)")
        (( RANDOM % 4 )) || args+=(--fields-out "$(pick fields)")
        (( RANDOM % 5 )) || args+=(--setup "s$((RANDOM % 2)).setup")
    fi
    timeout 300 "$quelmor" "${args[@]}" >"run.out" 2>"run.err"
    status=$?
    statuses[$status]=$((${statuses[$status]:-0} + 1))
    why=""
    if ((status > 2)); then
        why="exit status $status"
    elif grep -q "Sanitizer\|runtime error" run.err; then
        why="sanitizer report"
    elif [[ -n "$(find . -name '*.part')" ]]; then
        why="hidden .part file left: $(find . -name '*.part' | head -3 | tr '\n' ' ')"
    elif ((status == 0)) && ! ls "${out%%.*}"* >/dev/null 2>&1; then
        why="success without output"
    fi
    if [[ -n $why ]]; then
        failures=$((failures + 1))
        echo "FAIL seed $run: $why: quelmor ${args[*]}"
        head -20 run.err | sed 's/^/    /'
        find . -name '*.part' -delete
    fi
    rm -rf out"$i"* .out"$i"*
done

summary=""
for s in $(echo "${!statuses[@]}" | tr ' ' '\n' | sort -n); do
    summary+=" exit $s: ${statuses[$s]},"
done
echo "soak: $runs runs from seed $seed,${summary%,}; $failures failed"
((failures == 0))
