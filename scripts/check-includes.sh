#!/usr/bin/env bash
# Fails when src/ or include/ include a header that does not exist on Android. Quoted includes
# must name the project's own headers; angle includes must come from the platform allowlist.
#
# Usage: scripts/check-includes.sh [ROOT] [--platform]
# With --platform it checks nothing and prints each distinct Android platform header that src/ and
# include/ include (not the C/C++/POSIX ones), one per line, for scripts/check-android-bp.sh.
set -euo pipefail
root=.
list_platform=false
for arg in "$@"; do
    case "$arg" in
        --platform) list_platform=true ;;
        *) root=$arg ;;
    esac
done
[ "$root" = . ] && root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

# C and C++ standard library, POSIX/bionic.
system='^(<[a-z_0-9]+>|<(assert|ctype|dlfcn|errno|fcntl|inttypes|limits|math|poll|pthread|sched|signal|stdarg|stdbool|stddef|stdint|stdio|stdlib|string|strings|time|unistd)\.h>'
system+='|<sys/(mman|stat|types|time|syscall|resource|prctl|ioctl)\.h>)$'
# The Android platform include paths, and the vendor gralloc extension.
platform='^(<(EGL|GLES2|GLES3|KHR|ui|math|system|hardware|sync|cutils|utils|log|android|android-base|vndk|nativebase|aidl)/[A-Za-z0-9_./-]+\.h>'
platform+='|<bufmeta\.h>)$'

# file:line:include for every include in src/ and include/.
includes() {
    grep -rnE '^[[:space:]]*#[[:space:]]*include' src include --include='*.h' --include='*.cpp' |
        while IFS= read -r hit; do
            file=${hit%%:*}
            rest=${hit#*:}
            line=${rest%%:*}
            inc=$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*//; s/[[:space:]]*(\/\/.*)?$//' \
                <<<"${rest#*:}")
            echo "$file:$line:$inc"
        done
}

if $list_platform; then
    includes | while IFS= read -r hit; do
        inc=${hit#*:*:}
        [[ "$inc" =~ $platform ]] && echo "$inc"
    done | sort -u
    exit 0
fi

status=0
while IFS= read -r hit; do
    file=${hit%%:*}
    rest=${hit#*:}
    line=${rest%%:*}
    inc=${rest#*:}
    case "$inc" in
        \"*\")
            name=${inc//\"/}
            if [ -f "$(dirname "$file")/$name" ] || [ -f "src/$name" ] || [ -f "include/$name" ]; then
                continue
            fi
            ;;
        \<*\>)
            if [[ "$inc" =~ $system ]] || [[ "$inc" =~ $platform ]]; then
                continue
            fi
            if [ -f "include/${inc:1:${#inc}-2}" ]; then
                continue
            fi
            ;;
    esac
    echo "$file:$line: $inc is not an Android platform header" >&2
    status=1
done < <(includes)

[ $status -eq 0 ] && echo "include allowlist: src/ and include/ use platform headers only"
exit $status
