#!/usr/bin/env bash
# Builds the libFuzzer targets with clang, AddressSanitizer and UndefinedBehaviorSanitizer into
# build-fuzz/ and runs each for a while over its corpus in tests/fuzz/corpus/<target>/. New
# interesting inputs go to build-fuzz/corpus/<target>/ (merge them into the repository's corpus
# by hand, keeping it small). Exits non-zero on a crash, a sanitizer report or a failed check; the
# reproducer is left in build-fuzz/artifacts/.
# Usage: scripts/fuzz.sh [seconds per target, default 20] [target...]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
seconds=${1:-20}
shift || true
build=${ZEL_FUZZ_BUILD_DIR:-$here/build-fuzz}

if [ ! -f "$build/build.ninja" ]; then
    launcher=()
    command -v ccache >/dev/null && launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache
                                              -DCMAKE_C_COMPILER_LAUNCHER=ccache)
    CC=clang-14 CXX=clang++-14 cmake -S "$here" -B "$build" -G Ninja \
        -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZEL_BUILD_TESTS=OFF -DZEL_BUILD_FUZZERS=ON \
        -DZEL_WERROR=ON "${launcher[@]}" >/dev/null
fi
cmake --build "$build" --target fuzzers -j"$(nproc)"

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
    for dir in "$here"/tests/fuzz/corpus/*/; do
        targets+=("$(basename "$dir")")
    done
fi

# Mesa is not instrumented and keeps its allocations to the end of the process.
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=0:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
failed=0
for target in "${targets[@]}"; do
    mkdir -p "$build/corpus/$target" "$build/artifacts/$target"
    echo "fuzz: $target for ${seconds}s"
    if ! "$build/bin/$target" -max_total_time="$seconds" -max_len=4096 -rss_limit_mb=4096 -print_final_stats=1 \
            -artifact_prefix="$build/artifacts/$target/" \
            "$build/corpus/$target" "$here/tests/fuzz/corpus/$target" \
            >"$build/$target.log" 2>&1; then
        echo "fuzz: $target FAILED, see $build/$target.log" >&2
        tail -n 40 "$build/$target.log" >&2
        failed=1
    fi
    grep -E '^stat::(number_of_executed_units|average_exec_per_sec|new_units_added)|cov: ' \
        "$build/$target.log" | tail -n 4
done
exit $failed
