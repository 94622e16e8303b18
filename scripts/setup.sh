#!/usr/bin/env bash
# Installs what a fresh Debian bookworm machine needs (as root) and builds everything into build/.
# Usage: scripts/setup.sh [extra cmake arguments]
# Set ZEL_BUILD_DIR to build elsewhere. With CI=true warnings are errors.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${ZEL_BUILD_DIR:-$here/build}

packages=(
    build-essential cmake ninja-build pkg-config python3 git
    android-libutils-dev android-libcutils-dev android-liblog-dev android-libbase-dev
    android-platform-system-core-headers
    libegl-dev libgles-dev libegl-mesa0 libgl1-mesa-dri libgbm1
    googletest libgtest-dev libbenchmark-dev
    ffmpeg clang-14 libfuzzer-14-dev
    libcli11-dev libspng-dev libyuv-dev libfreetype-dev fonts-dejavu-core valgrind
)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    echo "setup: installing ${missing[*]}"
    if [ "$(id -u)" -ne 0 ]; then
        echo "setup: run as root to install packages" >&2
        exit 1
    fi
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -q
    apt-get install -y -q --no-install-recommends "${packages[@]}"
fi

werror=OFF
[ "${CI:-}" = "true" ] && werror=ON
cmake -S "$here" -B "$build" -G Ninja -DZEL_WERROR=$werror "$@"
cmake --build "$build" -j"$(nproc)"
