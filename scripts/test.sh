#!/usr/bin/env bash
# Sets up, builds and runs every test, then runs them again under AddressSanitizer with
# UndefinedBehaviorSanitizer and under ThreadSanitizer (scripts/sanitize.sh), then fuzzes every
# fuzz target briefly (scripts/fuzz.sh). ZEL_SANITIZE=0 and ZEL_FUZZ=0 skip those runs. Exits
# non-zero when anything fails.
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
[ "${ZEL_FUZZ:-1}" = 0 ] || "$here/scripts/fuzz.sh" 20
