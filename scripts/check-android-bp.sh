#!/usr/bin/env bash
# Fails when Android.bp no longer describes src/: a src/*.cpp missing from srcs, a srcs entry that
# does not exist (or a glob), or a platform header included by src/ or include/ whose library is
# not among Android.bp's dependencies. The platform headers come from check-includes.sh, which
# also keeps them on the allowlist.
set -euo pipefail
root=${1:-$(cd "$(dirname "$0")/.." && pwd)}
cd "$root"
bp=Android.bp
status=0

# The entries of the srcs list, one per line.
listed=$(sed -n '/^[[:space:]]*srcs:[[:space:]]*\[/,/\]/p' "$bp" | grep -oE '"[^"]+"' | tr -d '"' |
    sort)
if [ -z "$listed" ]; then
    echo "$bp: no srcs list found" >&2
    exit 1
fi
while IFS= read -r src; do
    case "$src" in
        *'*'*) echo "$bp: srcs entry $src is a glob; list the files" >&2; status=1 ;;
        *) [ -f "$src" ] || { echo "$bp: srcs entry $src does not exist" >&2; status=1; } ;;
    esac
done <<<"$listed"
for src in src/*.cpp; do
    grep -qxF "$src" <<<"$listed" || { echo "$bp: $src is missing from srcs" >&2; status=1; }
done

# The module (any one of the alternatives) that provides each platform include path on a device.
module_for() {
    case "$1" in
        '<EGL/'* | '<KHR/'*) echo libEGL ;;
        '<GLES2/'* | '<GLES3/'*) echo libGLESv2 ;;
        '<ui/'*) echo libui ;;
        # The HIDL graphics types reach libui's users through libui's exported headers.
        '<android/hardware/graphics/common/'*) echo "libui android.hardware.graphics.common@1.2" ;;
        '<math/'*) echo libmath_headers ;;
        '<nativebase/'*) echo "libnativebase_headers libnativewindow_headers libui" ;;
        '<system/window.h>') echo "libnativewindow_headers libnativewindow" ;;
        '<system/'*) echo "libsystem_headers libcutils libutils" ;;
        '<hardware/'*) echo "libhardware_headers libhardware" ;;
        '<sync/'*) echo libsync ;;
        '<cutils/'*) echo libcutils ;;
        '<utils/'*) echo libutils ;;
        '<log/'*) echo liblog ;;
        '<android-base/'*) echo "libbase_headers libbase" ;;
        '<vndk/'*) echo "libnativewindow libnativewindow_headers" ;;
        '<android/fdsan.h>') echo libc ;;
        '<bufmeta.h>') echo libbufmeta ;;
    esac
}

deps=$(sed '/^[[:space:]]*srcs:[[:space:]]*\[/,/\]/d' "$bp" | grep -oE '"[^"]+"' | tr -d '"')
while IFS= read -r inc; do
    [ -n "$inc" ] || continue
    modules=$(module_for "$inc")
    if [ -z "$modules" ]; then
        echo "$bp: no device module is known for $inc; add one to check-android-bp.sh" >&2
        status=1
        continue
    fi
    found=false
    for m in $modules; do
        # bionic's libc is always linked.
        if [ "$m" = libc ] || grep -qxF "$m" <<<"$deps"; then
            found=true
            break
        fi
    done
    $found || { echo "$bp: src/ includes $inc but lists none of: $modules" >&2; status=1; }
done < <("$(dirname "$0")/check-includes.sh" "$root" --platform)

[ $status -eq 0 ] && echo "Android.bp: srcs match src/*.cpp and every platform header has its module"
exit $status
