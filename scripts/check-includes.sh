#!/usr/bin/env bash
# Fails when src/ or include/ include a header that does not exist on Android. Quoted includes
# must name the project's own headers; angle includes must come from the platform allowlist.
set -euo pipefail
root=${1:-$(cd "$(dirname "$0")/.." && pwd)}
cd "$root"

# C and C++ standard library, POSIX/bionic, and the Android platform include paths.
allow='^(<[a-z_0-9]+>|<(assert|ctype|dlfcn|errno|fcntl|inttypes|limits|math|poll|pthread|sched|signal|stdarg|stdbool|stddef|stdint|stdio|stdlib|string|strings|time|unistd)\.h>'
allow+='|<sys/(mman|stat|types|time|syscall|resource|prctl|ioctl)\.h>'
allow+='|<(EGL|GLES2|GLES3|KHR|ui|math|system|hardware|sync|cutils|utils|log|android|android-base|vndk|nativebase|aidl)/[A-Za-z0-9_./-]+\.h>'
allow+='|<bufmeta\.h>)$'

status=0
while IFS= read -r hit; do
    file=${hit%%:*}
    rest=${hit#*:}
    line=${rest%%:*}
    inc=$(sed -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]*//; s/[[:space:]]*(\/\/.*)?$//' <<<"${rest#*:}")
    case "$inc" in
        \"*\")
            name=${inc//\"/}
            if [ -f "$(dirname "$file")/$name" ] || [ -f "src/$name" ] || [ -f "include/$name" ]; then
                continue
            fi
            ;;
        \<*\>)
            if [[ "$inc" =~ $allow ]]; then
                continue
            fi
            if [ -f "include/${inc:1:${#inc}-2}" ]; then
                continue
            fi
            ;;
    esac
    echo "$file:$line: $inc is not an Android platform header" >&2
    status=1
done < <(grep -rnE '^[[:space:]]*#[[:space:]]*include' src include --include='*.h' --include='*.cpp' || true)

[ $status -eq 0 ] && echo "include allowlist: src/ and include/ use platform headers only"
exit $status
