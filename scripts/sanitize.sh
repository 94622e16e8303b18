#!/usr/bin/env bash
# Builds everything with a sanitizer into its own folder and runs every test there.
# Usage: scripts/sanitize.sh asan|tsan [extra ctest arguments]
#   asan: AddressSanitizer with leak detection plus UndefinedBehaviorSanitizer, into build-asan/
#   tsan: ThreadSanitizer, into build-tsan/
# Any finding fails the test that made it. Suppressions live in tests/sanitizers/, each with its
# reason; they cover Mesa (which is not instrumented), never this project's own code.
# ZEL_SANITIZE_BUILD_DIR builds elsewhere. Exits non-zero when anything fails.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
kind=${1:-}
case "$kind" in
asan)
    flags="-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer"
    ;;
tsan)
    flags="-fsanitize=thread"
    ;;
*)
    echo "usage: $0 asan|tsan [ctest arguments]" >&2
    exit 2
    ;;
esac
shift
if "${CXX:-c++}" -v 2>&1 | grep -q '^gcc version'; then
    # GCC only. Its flow analysis misreads sanitizer instrumentation (false "may be used
    # uninitialized" inside libstdc++'s std::regex at -O1); the normal build keeps that warning.
    # Android's LightRefBase header (android::Fence's reference count) uses
    # std::atomic_thread_fence, which ThreadSanitizer does not model and GCC warns about.
    case "$kind" in
    asan) flags="$flags -Wno-maybe-uninitialized" ;;
    tsan) flags="$flags -Wno-tsan" ;;
    esac
fi
build=${ZEL_SANITIZE_BUILD_DIR:-$here/build-$kind}
supp=$here/tests/sanitizers

launcher=()
if command -v ccache >/dev/null; then
    launcher=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
fi
werror=OFF
[ "${CI:-}" = "true" ] && werror=ON

# -O1 keeps the sanitized suite fast enough on a small machine while keeping usable stacks.
cmake -S "$here" -B "$build" -G Ninja -DZEL_WERROR=$werror "${launcher[@]}" \
    -DCMAKE_BUILD_TYPE=Debug \
    -DCMAKE_C_FLAGS_DEBUG="-O1 -g" -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g" \
    -DCMAKE_C_FLAGS="$flags" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_EXE_LINKER_FLAGS="$flags" -DCMAKE_SHARED_LINKER_FLAGS="$flags" \
    -DCMAKE_MODULE_LINKER_FLAGS="$flags"
cmake --build "$build" -j"$(nproc)"

# halt_on_error makes the first finding end the test process with a failure.
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
export ASAN_OPTIONS="detect_leaks=1:halt_on_error=1:strict_string_checks=1:detect_stack_use_after_return=1"
export LSAN_OPTIONS="suppressions=$supp/lsan.supp:print_suppressions=0"
export TSAN_OPTIONS="suppressions=$supp/tsan.supp:halt_on_error=1:second_deadlock_stack=1:print_suppressions=0"
# llvmpipe starts one rasteriser thread per core; fewer threads make the instrumented runs faster
# while still running the rasteriser on threads of its own.
export LP_NUM_THREADS=${LP_NUM_THREADS:-2}

cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 900 "$@"
