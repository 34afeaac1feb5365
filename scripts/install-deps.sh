#!/usr/bin/env bash
# Installs what Quelmor needs on a Debian machine, for one use:
#   scripts/install-deps.sh command   build and run the quelmor command and the plug-in
#   scripts/install-deps.sh test      the same, plus GoogleTest for the suites
#   scripts/install-deps.sh bench     the same, plus Google Benchmark and OpenCV for the benchmarks
# Skips apt-get when everything is already there, so repeated runs are quick.
set -euo pipefail

use="${1:-test}"
packages=(
    build-essential cmake pkg-config
    libopenimageio-dev
    libavformat-dev libavcodec-dev libswscale-dev libavutil-dev
)
case "$use" in
command) ;;
test) packages+=(libgtest-dev) ;;
bench) packages+=(libgtest-dev libbenchmark-dev libopencv-dev) ;;
*)
    echo "install-deps.sh: unknown use '$use' (command, test or bench)" >&2
    exit 2
    ;;
esac

missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if ((${#missing[@]})); then
    sudo=""
    if [[ $(id -u) != 0 ]]; then sudo="sudo"; fi
    $sudo apt-get update
    DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y --no-install-recommends "${missing[@]}"
fi
