#!/usr/bin/env bash
# Fails when a library or program of the build needs the system's libEGL, libGLESv2 or libGL
# directly instead of reaching the driver through libzel_hostgpu.
# Usage: check_no_direct_gl_link.sh FOLDER...  (the build's lib/ and bin/ folders)
set -euo pipefail

checked=0
offenders=0
saw_layer=0
for dir in "$@"; do
    [ -d "$dir" ] || continue
    while IFS= read -r -d '' file; do
        # Only ELF files: skip scripts and data that land next to the binaries.
        [ "$(head -c 4 "$file" | od -An -c | tr -d ' ')" = '177ELF' ] || continue
        checked=$((checked + 1))
        [ "$(basename "$file")" = libzel_hostgpu.so ] && saw_layer=1
        needed=$(readelf -d "$file" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
        bad=$(grep -E '^lib(EGL|GLESv1_CM|GLESv2|GL|OpenGL|GLX|GLdispatch)\.so' <<<"$needed" || true)
        if [ -n "$bad" ]; then
            echo "FAIL: $file needs $(tr '\n' ' ' <<<"$bad")"
            offenders=$((offenders + 1))
        fi
    done < <(find "$dir" -maxdepth 1 -type f -print0)
done

if [ "$saw_layer" -eq 0 ]; then
    echo "FAIL: libzel_hostgpu.so not found in $*"
    exit 1
fi
echo "checked $checked binaries, $offenders link EGL/GL directly"
[ "$offenders" -eq 0 ]
