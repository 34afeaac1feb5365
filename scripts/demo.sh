#!/usr/bin/env bash
# Demo of quelmor on a fresh Debian machine: installs what is needed (apt-get), builds the
# command, renders a synthetic clip whose true in-between frames are known, retimes it to a
# quarter of its speed, and scores the result against the true frames.
#   scripts/demo.sh [OUTPUT_FOLDER]      (default: demo-output)
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/install-deps.sh command

build="${BUILD_DIR:-build}"
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DQUELMOR_BUILD_TESTS=OFF -DQUELMOR_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target quelmor
quelmor="$build/cli/quelmor"

work="${1:-demo-output}"
mkdir -p "$work"
rm -rf "$work/synth" "$work/retimed" "$work/blended" "$work/repeated"
mkdir -p "$work/synth" "$work/retimed" "$work/blended" "$work/repeated"

"$quelmor" synth "$work/synth/clip.%04d.png" --frames 12 --size 320x180 --steps 4
"$quelmor" retime "$work/synth/clip.%04d.png" "$work/retimed/clip.%04d.png" --speed 0.25 \
    --quality best --interpolation blend
# The same retime without motion vectors, for comparison: neighbouring frames blended, and
# each source frame held four times.
"$quelmor" retime "$work/synth/clip.%04d.png" "$work/blended/clip.%04d.png" --speed 0.25 \
    --quality none --interpolation blend --quiet
"$quelmor" retime "$work/synth/clip.%04d.png" "$work/repeated/clip.%04d.png" --speed 0.25 \
    --quality none --interpolation nearest --quiet

echo
echo "result:      $work/retimed/clip.####.png"
echo "true frames: $work/synth/true_clip.####.png"
echo -n "motion vectors (Best, Blend) against the true frames: "
"$quelmor" score "$work/retimed/clip.%04d.png" "$work/synth/true_clip.%04d.png"
echo -n "plain blend against the true frames:                 "
"$quelmor" score "$work/blended/clip.%04d.png" "$work/synth/true_clip.%04d.png"
echo -n "repeated frames against the true frames:             "
"$quelmor" score "$work/repeated/clip.%04d.png" "$work/synth/true_clip.%04d.png"
