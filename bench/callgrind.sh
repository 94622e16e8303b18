#!/usr/bin/env bash
# Instructions per steady-state blit by component (callgrind), next to libyuv's for the same
# conversion: two runs of zel_compare with 3 and 11 frames, differenced (bench/README.md).
# Usage: bench/callgrind.sh [pair, default NV21->RGBA] [build dir, default build]
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
pair=${1:-NV21->RGBA}
build=${2:-$here/../build}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT
for method in ours libyuv; do
    for frames in 3 11; do
        LP_NUM_THREADS=0 valgrind --tool=callgrind --callgrind-out-file="$out/$method.$frames" \
            "$build/bin/zel_compare" --pair "$pair" --method "$method" --frames "$frames" \
            >"$out/$method.$frames.log" 2>&1
    done
    echo "## $pair, $method (LP_NUM_THREADS=0)"
    echo
    "$here/callgrind_breakdown.py" "$out/$method.3" 3 "$out/$method.11" 11 --top 12
    echo
done
