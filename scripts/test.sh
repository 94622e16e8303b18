#!/usr/bin/env bash
# Sets up, builds and runs every test, then runs them again under AddressSanitizer with
# UndefinedBehaviorSanitizer and under ThreadSanitizer (scripts/sanitize.sh). Set ZEL_SANITIZE=0
# to skip the sanitizer runs. Exits non-zero when anything fails.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh"
build=${ZEL_BUILD_DIR:-$here/build}
(cd "$build" && ctest --output-on-failure -j"$(nproc)" --timeout 600)
if [ "${ZEL_SANITIZE:-1}" != "0" ]; then
    for kind in asan tsan; do
        start=$SECONDS
        "$here/scripts/sanitize.sh" "$kind"
        echo "test: the $kind run took $((SECONDS - start)) s"
    done
fi
