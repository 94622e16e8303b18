#!/usr/bin/env bash
# Sets up, builds and runs every test. Exits non-zero when anything fails.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
"$here/scripts/setup.sh"
build=${ZEL_BUILD_DIR:-$here/build}
cd "$build"
ctest --output-on-failure -j"$(nproc)" --timeout 600
[ "${ZEL_FUZZ:-1}" = 0 ] || "$here/scripts/fuzz.sh" 20  # ZEL_FUZZ=0 skips the fuzzers
