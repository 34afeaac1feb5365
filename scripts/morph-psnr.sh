#!/usr/bin/env bash
# Motion from points against optical flow on the synthetic clip: renders the clip, its true
# in-between frames and the true motion of a few points of each object (quelmor synth --points),
# retimes it to a quarter of its speed four ways and scores each against the true frames:
#   optical flow; optical flow steered by the points; the points alone (--motion points); no motion.
#   scripts/morph-psnr.sh [OUTPUT_FOLDER] [SIZE] [FRAMES]   (defaults: morph-psnr, 320x180, 12)
# Expects a built command in $BUILD_DIR (default: build).
set -euo pipefail
cd "$(dirname "$0")/.."

quelmor="${BUILD_DIR:-build}/cli/quelmor"
work="${1:-morph-psnr}"
size="${2:-320x180}"
frames="${3:-12}"
threads="${THREADS:-$(nproc)}"

rm -rf "$work/synth" "$work/flow" "$work/seeded" "$work/points" "$work/none"
mkdir -p "$work/synth" "$work/flow" "$work/seeded" "$work/points" "$work/none"
"$quelmor" synth "$work/synth/clip.%04d.png" --frames "$frames" --size "$size" --steps 4 \
    --points "$work/synth/points.txt" --threads "$threads" --quiet

# Output frames up to the last source frame: later ones would show the clip past its end.
last=$(((frames - 1) * 4))
retime() {
    local out="$1"
    shift
    "$quelmor" retime "$work/synth/clip.%04d.png" "$work/$out/clip.%04d.png" --speed 0.25 \
        --frames "0-$last" --threads "$threads" --quiet "$@"
}
retime flow
retime seeded --points "$work/synth/points.txt"
retime points --motion points --points "$work/synth/points.txt"
retime none --quality none

echo "synthetic clip $size, $frames frames, $(grep -c '^point' "$work/synth/points.txt") true point positions"
for kind in flow seeded points none; do
    case "$kind" in
    flow) label="optical flow" ;;
    seeded) label="optical flow + points as seeds" ;;
    points) label="points alone (--motion points)" ;;
    none) label="no motion (plain blend)" ;;
    esac
    printf '%-32s ' "$label:"
    "$quelmor" score "$work/$kind/clip.%04d.png" "$work/synth/true_clip.%04d.png"
done
