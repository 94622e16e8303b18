#!/usr/bin/env bash
# Compiles every src/*.cpp (syntax only) against Android's own platform headers instead of the host
# stand-ins in host/include, to catch declarations the stand-ins get wrong before a device build does.
#
# Usage: scripts/check-device-headers.sh DIR [compiler]
#
# DIR holds copies of the platform headers in Android's source layout:
#   DIR/frameworks/native/libs/{ui,math,nativebase,nativewindow,arect}/include
#   DIR/frameworks/native/include              (optional)
#   DIR/system/core/{libcutils,libutils,libsync}/include   (libutils optional: Debian's is used otherwise)
#   DIR/hardware/libhardware/include
#   DIR/stubs                                  headers from outside those trees (bionic, generated
#                                              AIDL/HIDL types) reduced to what the others need
# Debian's Android 10 headers (/usr/include/android: utils, cutils, log, android-base, system) fill
# in the rest. Of host/include only the vendor bufmeta.h is used. The headers are not part of the
# repository, so this is a developer tool and not run in CI.
set -uo pipefail
dir=${1:?usage: $0 DIR [compiler]}
cxx=${2:-clang++}
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$(cd "$dir" && pwd)

vendor=$(mktemp -d)
trap 'rm -rf "$vendor"' EXIT
ln -s "$root/host/include/bufmeta.h" "$vendor/bufmeta.h"

includes=(-I"$root/src" -I"$root/include")
for d in frameworks/native/libs/ui/include frameworks/native/libs/math/include \
    frameworks/native/libs/nativebase/include frameworks/native/libs/nativewindow/include \
    frameworks/native/libs/arect/include frameworks/native/include \
    system/core/libcutils/include system/core/libutils/include system/core/libsync/include \
    hardware/libhardware/include stubs; do
    [ -d "$dir/$d" ] && includes+=(-I"$dir/$d")
done
includes+=(-I"$vendor" -isystem /usr/include/android)

flags=(-std=c++17 -fsyntax-only -Wall -Wextra -DEGL_EGLEXT_PROTOTYPES -DGL_GLEXT_PROTOTYPES)
failed=0
for src in "$root"/src/*.cpp; do
    if out=$("$cxx" "${flags[@]}" "${includes[@]}" "$src" 2>&1); then
        echo "ok    ${src#"$root"/}"
    else
        echo "FAIL  ${src#"$root"/}"
        echo "$out" | grep -E 'error:' | sed 's/^/      /'
        failed=$((failed + 1))
    fi
done
echo "$failed source file(s) failed against the headers in $dir"
[ $failed -eq 0 ]
