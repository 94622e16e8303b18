#!/usr/bin/env python3
"""Instructions per frame by component, from two callgrind profiles of the same run with a
different number of frames: (long - short) / (frames_long - frames_short), so that start-up and
the first frame's program and image creation drop out.

    callgrind_breakdown.py SHORT.out FRAMES_SHORT LONG.out FRAMES_LONG [--top N]
"""
import re
import subprocess
import sys
from collections import defaultdict

LINE = re.compile(r"^\s*([\d,]+)\s+\([^)]*\)\s+(.*?)(?:\s+\[(.*)\])?$")


def components(obj, function):
    if "libcodec2_zel" in obj:
        return "libcodec2_zel.so"
    if "libzel_hostgpu" in obj:
        return "GPU layer (libzel_hostgpu.so)"
    if "libzel_host" in obj or "android/" in obj:
        return "host platform (gralloc, Android libs)"
    if "libLLVM" in obj:
        return "Mesa: LLVM (shader compiler)"
    if "swrast_dri" in obj or "libgallium" in obj or "libglapi" in obj or "EGL" in obj \
            or "GLdispatch" in obj:
        return "Mesa: driver (LLVM apart)"
    if "libc.so" in obj and "memset" in function:
        return "libc memset"
    if "libc.so" in obj and ("memcpy" in function or "memmove" in function):
        return "libc memcpy"
    if "libyuv" in obj:
        return "libyuv"
    if obj == "???":
        return "generated code (shaders, fetch/blend)"
    return "other (" + obj.rsplit("/", 1)[-1] + ")"


def profile(path):
    text = subprocess.run(["callgrind_annotate", "--threshold=100", "--auto=no", path], check=True,
                          capture_output=True, text=True).stdout
    functions = defaultdict(int)
    started = False
    for line in text.splitlines():
        if "file:function" in line:
            started = True
            continue
        if not started:
            continue
        match = LINE.match(line)
        if not match:
            continue
        count = int(match.group(1).replace(",", ""))
        name = match.group(2)
        obj = match.group(3) or "???"
        functions[(obj, name.split(":", 1)[-1])] += count
    return functions


def main():
    args = sys.argv[1:]
    top = 15
    if "--top" in args:
        i = args.index("--top")
        top = int(args[i + 1])
        del args[i:i + 2]
    short, short_frames, long_, long_frames = args[0], int(args[1]), args[2], int(args[3])
    a, b = profile(short), profile(long_)
    frames = long_frames - short_frames
    per_function = {k: (b.get(k, 0) - a.get(k, 0)) / frames for k in set(a) | set(b)}
    per_component = defaultdict(float)
    for (obj, function), count in per_function.items():
        per_component[components(obj, function)] += count
    total = sum(per_component.values())
    print("| component | instructions per frame |")
    print("|---|---|")
    for name, count in sorted(per_component.items(), key=lambda item: -item[1]):
        if abs(count) >= 1:
            print(f"| {name} | {count:,.0f} |")
    print(f"| total | {total:,.0f} |")
    print()
    print(f"Top {top} functions per frame:")
    print()
    for (obj, function), count in sorted(per_function.items(), key=lambda item: -item[1])[:top]:
        print(f"    {count:>14,.0f}  {function[:90]}  [{obj.rsplit('/', 1)[-1]}]")


if __name__ == "__main__":
    main()
