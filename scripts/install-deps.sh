#!/usr/bin/env bash
# Installs what Quelmor needs to build, test and run on a Debian machine. Skips apt-get when
# everything is already there, so repeated runs are quick.
set -euo pipefail

packages=(
    build-essential cmake pkg-config
    libgtest-dev libbenchmark-dev
    libopenimageio-dev openimageio-tools
    libavformat-dev libavcodec-dev libswscale-dev libavutil-dev
)
if [[ "${QUELMOR_WITH_OPENCV:-0}" == 1 ]]; then
    packages+=(libopencv-dev)
fi

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
